// The allocator on a whole file: opening, mapping, unmapping, starting over.

#include "FileAlloc/filealloc.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

#include "dw_util/pathRule.h"
#include "openAllocator.h"
#include "platform/mapping.h"
#include "platform/process.h"
#include "storageLedger.h"
#include "support/capturedLog.h"
#include "support/raised.h"
#include "support/tempFolder.h"
#include "vdreader/errors.hpp"

using namespace FileWorkLibrary;

namespace {

using Lines = std::vector<std::string>;

class Allocator : public testing::Test {
  protected:
    std::string path() const { return folder.name("f"); }
    OpenAllocator& create() { return open(true); }
    OpenAllocator& open(bool createIt = false) {
        allocator = std::make_unique<OpenAllocator>(path().c_str(), createIt);
        return *allocator;
    }
    // Everything behind the end of the allocator.
    std::string bytesAtTheEnd() {
        allocator.reset();
        return folder.read("f");
    }

    TempFolder folder;
    CapturedLog log;
    std::unique_ptr<OpenAllocator> allocator;
};

std::string systemText(int code) {
    return std::error_code(code, std::system_category()).message();
}

} // namespace

TEST_F(Allocator, CreatesANewFile) {
    folder.write("f", "old content");
    EXPECT_TRUE(create().isOk());
    EXPECT_EQ(allocator->fileSize(), 0u);
    EXPECT_EQ(allocator->state, 1u);
    EXPECT_EQ(allocator->lastErrorText(), nullptr);
    EXPECT_EQ(log.size(), 0u);
}

TEST_F(Allocator, OpensAnExistingFile) {
    folder.write("f", "old content");
    EXPECT_TRUE(open().isOk());
    EXPECT_EQ(allocator->fileSize(), 11u);
    EXPECT_EQ(bytesAtTheEnd(), "old content");
}

TEST_F(Allocator, FailedOpenIsNotedAndRaisesNothing) {
    EXPECT_FALSE(open().isOk());
    EXPECT_EQ(allocator->state, 0u);
    EXPECT_EQ(allocator->fileSize(), 0u);
    EXPECT_EQ(allocator->lastErrorText(), systemText(2));
    EXPECT_EQ(log.messages(CapturedLog::events), Lines{"Allocating error: " + systemText(2)});
    EXPECT_EQ(log.size(), 1u);
}

TEST_F(Allocator, EmptyAndMissingNamesDoNotOpen) {
    const std::string text = std::error_code(22, std::generic_category()).message();
    for (const char* name : {"", static_cast<const char*>(nullptr)}) {
        OpenAllocator unnamed(name, true);
        EXPECT_FALSE(unnamed.isOk());
        EXPECT_EQ(unnamed.lastErrorText(), text);
        EXPECT_STREQ(unnamed.resolvedName(), "");
    }
}

TEST_F(Allocator, NameIsResolvedForShowAloneAndOpenedAsItCame) {
    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::current_path(folder.path());
    {
        OpenAllocator named("here.vd", true);
        PathBuffer expected = {};
        resolvePath(expected, "here.vd");
        EXPECT_STREQ(named.resolvedName(), expected);
        EXPECT_STRNE(named.resolvedName(), "here.vd");
        EXPECT_EQ(named.storage.name(), "here.vd");
    }
    std::filesystem::current_path(before);
    EXPECT_TRUE(std::filesystem::exists(folder.path() / "here.vd"));
}

TEST_F(Allocator, NameForShowHasRoomFor511Characters) {
    const char separator = platform::pathForm.separator;
    const std::string name = std::string(2, separator) + std::string(600, 'n');
    EXPECT_EQ(OpenAllocator(name.substr(0, 400).c_str(), false).resolvedName(),
              name.substr(0, 400));
    EXPECT_EQ(OpenAllocator(name.c_str(), false).resolvedName(), name.substr(0, 511));
}

TEST_F(Allocator, FieldsStandInTheirOrder) {
    OpenAllocator& a = create();
    const std::vector<const void*> fields = {&a.storage,  &a.state, &a.errorText,
                                             &a.fileName, &a.lock,  &a.head,
                                             &a.tail,     &a.count, &a.granularity};
    for (std::size_t i = 1; i < fields.size(); ++i)
        EXPECT_LT(fields[i - 1], fields[i]) << i;
    EXPECT_EQ(a.granularity, platform::allocationGranularity());
}

TEST_F(Allocator, ListBeginsWithASentinel) {
    OpenAllocator& a = create();
    EXPECT_EQ(a.tail, a.head.get());
    EXPECT_EQ(a.head->magic, 0x56172811u);
    EXPECT_EQ(a.head->page, nullptr);
    EXPECT_EQ(a.head->next, nullptr);
    EXPECT_EQ(a.mappedCount(), 0u);
}

// ---- mapping ----

TEST_F(Allocator, MappingAnEmptyFileExtendsItToTheEndOfTheBlock) {
    TMappedPage page;
    EXPECT_TRUE(create().map(132, 1000, page));
    EXPECT_EQ(allocator->fileSize(), 132u + 1000 + 28);
    EXPECT_EQ(bytesAtTheEnd(),
              std::string(132, '\0') + headBytes(1000, 0, 132, 0) + std::string(1004, '\0'));
}

TEST_F(Allocator, BlockOffTheGranularityIsMappedFromBelow) {
    const StorageLedger ledger;
    OpenAllocator& a = create();
    const std::uint64_t point = 2 * a.granularity + 12;
    TMappedPage page;
    ASSERT_TRUE(a.map(point, 500, page));
    EXPECT_EQ(ledger.lastView().offset, 2 * a.granularity);
    EXPECT_EQ(ledger.lastView().size, 500u + 28 + 12);
    EXPECT_EQ(a.node(0)->viewSize, 500u + 28 + 12);
    EXPECT_EQ(page.payloadRoom(), 500u);
    EXPECT_EQ(reinterpret_cast<char*>(page.block), static_cast<char*>(a.node(0)->viewBase) + 12);
    EXPECT_EQ(page.append("xyz", 3), 0);
    EXPECT_EQ(bytesAtTheEnd().substr(point, 27), headBytes(500, 3, point, 1) + "xyz");
}

TEST_F(Allocator, BlockOnTheGranularityIsMappedFromItsBegin) {
    const StorageLedger ledger;
    OpenAllocator& a = create();
    TMappedPage page;
    ASSERT_TRUE(a.map(a.granularity, 500, page));
    EXPECT_EQ(ledger.lastView().offset, a.granularity);
    EXPECT_EQ(ledger.lastView().size, 528u);
}

TEST_F(Allocator, UnalignedBlocksOfADamagedFileCanBeMapped) {
    TMappedPage page;
    ASSERT_TRUE(create().map(7, 50, page));
    EXPECT_EQ(page.append("abc", 3), 0);
    EXPECT_EQ(page.used(), 3u);
    EXPECT_EQ(bytesAtTheEnd().substr(7, 27), headBytes(50, 3, 7, 1) + "abc");
}

TEST_F(Allocator, MappedPageShowsTheBlockAndDoesNotOwnIt) {
    TMappedPage page;
    ASSERT_TRUE(create().map(0, 100, page));
    EXPECT_EQ(page.owner, allocator.get());
    EXPECT_FALSE(page.ownsMapping);
    EXPECT_EQ(page.payloadRoom(), 100u);
    const TMappedPage* const kept = allocator->node(0)->page;
    EXPECT_TRUE(kept->ownsMapping);
    EXPECT_EQ(kept->block, page.block);
    EXPECT_EQ(kept->owner, allocator.get());
}

TEST_F(Allocator, NodesAreLinkedInTheOrderOfMapping) {
    OpenAllocator& a = create();
    TMappedPage first, second;
    a.map(0, 100, first);
    a.map(128, 50, second);
    EXPECT_EQ(a.mappedCount(), 2u);
    EXPECT_EQ(a.head->next, a.node(0));
    EXPECT_EQ(a.node(0)->prev, a.head.get());
    EXPECT_EQ(a.node(1)->prev, a.node(0));
    EXPECT_EQ(a.tail, a.node(1));
    EXPECT_EQ(a.tail->next, nullptr);
    EXPECT_EQ(a.node(0)->page->block, first.block);
    EXPECT_EQ(a.node(1)->page->block, second.block);
    EXPECT_EQ(a.node(1)->magic, 0x56172811u);
}

TEST_F(Allocator, MappingWritesTheHeadAnewAndKeepsUsedAndElements) {
    std::string head = headBytes(33, 5, 77, 2, 0x1234);
    head[0] = head[1] = 'x';
    folder.write("f", head + std::string(200, 'p'));
    TMappedPage page;
    ASSERT_TRUE(open().map(0, 100, page));
    EXPECT_EQ(page.used(), 5u);
    EXPECT_EQ(bytesAtTheEnd(), headBytes(100, 5, 0, 2, 0x1234) + std::string(200, 'p'));
}

TEST_F(Allocator, UsedThatRunsPastTheViewGivesNothingBehindIt) {
    folder.write("f", headBytes(100, 0xFFFFFF00, 0, 2) + std::string(4000, 'p'));
    TMappedPage page;
    ASSERT_TRUE(open().map(0, 100, page));
    std::int32_t err = 0;
    EXPECT_NE(page.getPtr(99, err), nullptr);
    EXPECT_EQ(page.getPtr(100, err), nullptr);
    EXPECT_EQ(page.readable(), 100u);
}

TEST_F(Allocator, PageOfAnotherKindAdoptsNothingButTheViewIsKept) {
    TLoadPage page;
    EXPECT_TRUE(create().map(0, 100, page));
    EXPECT_FALSE(page.hasBlock());
    EXPECT_EQ(allocator->mappedCount(), 1u);
}

TEST_F(Allocator, FileGrowsAndEarlierViewsStayGood) {
    OpenAllocator& a = create();
    TMappedPage first, second;
    ASSERT_TRUE(a.map(0, 1000, first));
    ASSERT_TRUE(a.map(1028, 200'000, second));
    EXPECT_EQ(a.fileSize(), 1028u + 200'028);
    EXPECT_EQ(first.append("first", 5), 0);
    EXPECT_EQ(second.append("second", 6), 0);
    const std::string bytes = bytesAtTheEnd();
    EXPECT_EQ(bytes.substr(24, 5), "first");
    EXPECT_EQ(bytes.substr(1028 + 24, 6), "second");
}

TEST_F(Allocator, MappingIsMadeAnewOnlyWhereTheFileGrows) {
    const StorageLedger ledger;
    folder.write("f", std::string(1000, '\0'));
    OpenAllocator& a = open();
    TMappedPage page;
    a.map(0, 100, page);
    EXPECT_EQ(ledger.count(StorageLedger::map), 1);
    a.map(972, 0, page); // to the very end
    EXPECT_EQ(ledger.count(StorageLedger::map), 1);
    EXPECT_EQ(a.fileSize(), 1000u);
    a.map(973, 0, page);
    EXPECT_EQ(ledger.count(StorageLedger::map), 2);
    EXPECT_EQ(a.fileSize(), 2000u);
}

TEST_F(Allocator, PointsAndSizesThatNoFileReachesAreRefused) {
    const StorageLedger ledger;
    OpenAllocator& a = create();
    TMappedPage page;
    const auto text = [&](const file_point& point, std::uint32_t size) {
        return raisedText([&] { a.mapBlock(point, size, page); });
    };
    const std::string place = "FileWorkLibrary::TFileStorageAllocatorNew::mapBlock:";
    EXPECT_EQ(text(file_point::at((1ull << 40) + 1), 0), place + "point<1099511627777>size<0>");
    EXPECT_EQ(text(file_point::at((1ull << 40) - 1000), 973),
              place + "point<1099511626776>size<973>");
    EXPECT_EQ(text(file_point::none(), 104), place + "point<-1>size<104>");
    EXPECT_EQ(text(file_point::at(~0ull - 27), 0), place + "point<-28>size<0>");
    EXPECT_EQ(text(file_point::at(1ull << 40), 0xFFFFFFFF),
              place + "point<1099511627776>size<4294967295>");
    EXPECT_EQ(a.fileSize(), 0u);
    EXPECT_EQ(a.mappedCount(), 0u);
    EXPECT_EQ(ledger.count(StorageLedger::map), 0);
    // The last that is not refused: it only fails at a platform that has no room for it.
    ledger.fail(StorageLedger::map, 1, true);
    EXPECT_EQ(text(file_point::at((1ull << 40) - 1000), 972).substr(0, 35),
              "MappableStorageFile createMapping:n");
}

TEST_F(Allocator, MappingAFileThatDidNotOpenRaisesWhatThePlatformSays) {
    const StorageLedger ledger;
    TMappedPage page;
    OpenAllocator& a = open();
    ledger.fail(StorageLedger::map, 1, false);
    EXPECT_EQ(raisedText([&] { a.map(0, 100, page); }),
              "MappableStorageFile createMapping:name().c_str()<" + path() +
                  ">end<128>GetLastError()<5>");
    EXPECT_FALSE(page.hasBlock());
}

TEST_F(Allocator, ViewThatIsNullIsNotedAndClosesTheAllocator) {
    TMappedPage page;
    OpenAllocator& a = create();
    platform::setLastError(5);
    EXPECT_FALSE(a.enterView(nullptr, 128, 0, file_point::at(0), 100, page));
    EXPECT_FALSE(a.isOk());
    EXPECT_EQ(a.lastErrorText(), systemText(5));
    EXPECT_EQ(log.messages(CapturedLog::events), Lines{"Allocating error: " + systemText(5)});
    EXPECT_FALSE(page.hasBlock());
    EXPECT_EQ(a.mappedCount(), 0u);
}

// ---- unmapping ----

TEST_F(Allocator, UnmappingTakesTheViewAndTheNode) {
    const StorageLedger ledger;
    OpenAllocator& a = create();
    TMappedPage pages[3];
    for (int i = 0; i < 3; ++i)
        a.map(128 * i, 100, pages[i]);
    a.unmapBlock(pages[1]);
    EXPECT_EQ(ledger.openViews(), 2u);
    EXPECT_EQ(a.mappedCount(), 2u);
    EXPECT_FALSE(pages[1].hasBlock());
    EXPECT_EQ(a.node(0)->page->block, pages[0].block);
    EXPECT_EQ(a.node(1)->page->block, pages[2].block);
    EXPECT_EQ(a.node(1)->prev, a.node(0));
    a.unmapBlock(pages[2]);
    EXPECT_EQ(a.tail, a.node(0));
    a.unmapBlock(pages[0]);
    EXPECT_EQ(a.tail, a.head.get());
    EXPECT_EQ(ledger.openViews(), 0u);
    EXPECT_EQ(a.mappedCount(), 0u);
    EXPECT_TRUE(a.map(0, 100, pages[0]));
    EXPECT_EQ(a.tail, a.node(0));
}

TEST_F(Allocator, UnmappingWhatIsNotThereDoesNothing) {
    const StorageLedger ledger;
    OpenAllocator& a = create();
    TMappedPage page, none;
    a.map(0, 100, page);
    a.unmapBlock(none);
    TLoadPage elsewhere;
    elsewhere.reserve(100);
    elsewhere.init(100, file_point::at(128));
    a.unmapBlock(elsewhere);
    EXPECT_EQ(ledger.count(StorageLedger::unview), 0);
    EXPECT_EQ(a.mappedCount(), 1u);
    EXPECT_TRUE(elsewhere.hasBlock());
}

TEST_F(Allocator, UnmappingGoesByThePositionOfAnyPage) {
    const StorageLedger ledger;
    OpenAllocator& a = create();
    TMappedPage page;
    a.map(128, 100, page);
    TLoadPage same;
    same.reserve(100);
    same.init(100, file_point::at(128));
    a.unmapBlock(same);
    EXPECT_EQ(ledger.openViews(), 0u);
    EXPECT_TRUE(same.hasBlock());
}

TEST_F(Allocator, OfTwoViewsOfABlockTheFirstIsUnmapped) {
    OpenAllocator& a = create();
    TMappedPage first, second;
    a.map(0, 100, first);
    a.map(0, 100, second);
    EXPECT_EQ(a.mappedCount(), 2u);
    EXPECT_NE(first.block, second.block);
    a.unmapBlock(second);
    ASSERT_EQ(a.mappedCount(), 1u);
    EXPECT_EQ(a.node(0)->page->block, second.block);
    EXPECT_EQ(second.append("x", 1), 0);
}

TEST_F(Allocator, EndOfTheCallersPageLeavesTheBlockMapped) {
    const StorageLedger ledger;
    OpenAllocator& a = create();
    char* payload = nullptr;
    {
        TMappedPage page;
        a.map(0, 100, page);
        payload = page.payload();
    }
    EXPECT_EQ(ledger.openViews(), 1u);
    std::memcpy(payload, "still here", 10);
    EXPECT_EQ(bytesAtTheEnd().substr(24, 10), "still here");
}

TEST_F(Allocator, EndOfAPageThatOwnsItsMappingUnmapsTheBlock) {
    const StorageLedger ledger;
    OpenAllocator& a = create();
    {
        TMappedPage page;
        a.map(0, 100, page);
        page.ownsMapping = true;
    }
    EXPECT_EQ(ledger.openViews(), 0u);
    EXPECT_EQ(a.mappedCount(), 0u);
}

TEST_F(Allocator, AllViewsGoAtOnce) {
    const StorageLedger ledger;
    OpenAllocator& a = create();
    TMappedPage pages[3];
    for (int i = 0; i < 3; ++i)
        a.map(128 * i, 100, pages[i]);
    a.unmapAll();
    EXPECT_EQ(ledger.openViews(), 0u);
    EXPECT_EQ(a.mappedCount(), 0u);
    EXPECT_EQ(a.tail, a.head.get());
    EXPECT_EQ(a.head->next, nullptr);
    EXPECT_TRUE(a.isOk());
    EXPECT_TRUE(a.map(0, 100, pages[0]));
}

TEST_F(Allocator, PagesOfTheListAreLeftBehindWhenAllViewsGo) {
    OpenAllocator& a = create();
    TMappedPage page;
    a.map(0, 100, page);
    TMappedPage* const kept = a.node(0)->page;
    a.unmapAll();
    EXPECT_TRUE(kept->ownsMapping);
    EXPECT_FALSE(kept->hasBlock());
    kept->ownsMapping = false;
    delete kept; // nobody else does
}

TEST_F(Allocator, EndOfTheAllocatorReleasesAll) {
    const StorageLedger ledger;
    TMappedPage first, second;
    create().map(0, 100, first);
    allocator->map(128, 100, second);
    allocator.reset();
    EXPECT_EQ(ledger.openViews(), 0u);
    EXPECT_EQ(ledger.openMappings(), 0u);
    EXPECT_EQ(ledger.openFiles(), 0u);
    EXPECT_EQ(log.size(), 0u);
}

// ---- closing, starting over ----

TEST_F(Allocator, ViewsOutliveTheClosedFile) {
    const StorageLedger ledger;
    TMappedPage page;
    create().map(0, 100, page);
    allocator->closeStorage();
    EXPECT_EQ(ledger.openFiles() + ledger.openMappings(), 0u);
    EXPECT_EQ(allocator->fileSize(), 0u);
    EXPECT_EQ(page.append("late", 4), 0);
    EXPECT_EQ(bytesAtTheEnd().substr(24, 4), "late");
}

TEST_F(Allocator, ResetEmptiesTheFileAndDropsAllViews) {
    const StorageLedger ledger;
    TMappedPage page;
    OpenAllocator& a = create();
    a.map(0, 100, page);
    page.append("gone", 4);
    EXPECT_TRUE(a.reset());
    EXPECT_EQ(a.fileSize(), 0u);
    EXPECT_EQ(ledger.openViews(), 0u);
    EXPECT_EQ(a.mappedCount(), 0u);
    EXPECT_TRUE(a.isOk());
    EXPECT_TRUE(a.map(0, 10, page));
    EXPECT_EQ(page.used(), 0u);
    EXPECT_EQ(bytesAtTheEnd(), headBytes(10, 0, 0, 0) + std::string(14, '\0'));
    EXPECT_EQ(log.size(), 0u);
}

TEST_F(Allocator, ResetThatCannotOpenIsTrueAndClosesTheAllocator) {
    const StorageLedger ledger;
    OpenAllocator& a = create();
    ledger.fail(StorageLedger::open, 1, false);
    EXPECT_TRUE(a.reset());
    EXPECT_FALSE(a.isOk());
    EXPECT_EQ(a.lastErrorText(), systemText(5));
    EXPECT_EQ(log.messages(CapturedLog::events), Lines{"Allocating error: " + systemText(5)});
}

TEST_F(Allocator, ResetDoesNotOpenWhatWasNotOpen) {
    OpenAllocator& a = open();
    EXPECT_TRUE(a.reset());
    EXPECT_TRUE(std::filesystem::exists(path()));
    EXPECT_FALSE(a.isOk());
    TMappedPage page;
    EXPECT_TRUE(a.map(0, 10, page));
}

TEST_F(Allocator, FailureInsideAResetIsLoggedAndFalse) {
    const StorageLedger ledger;
    OpenAllocator& a = create();
    ledger.fail(StorageLedger::close, 1, false);
    EXPECT_FALSE(a.reset());
    EXPECT_EQ(
        log.messages(CapturedLog::events),
        Lines{"Error while reseting data: MappableStorageFile closeHanle:m_filePath.c_str()<" +
              path() + ">GetLastError()<5>"});
    EXPECT_TRUE(a.isOk());
    EXPECT_EQ(a.lastErrorText(), nullptr);
    EXPECT_TRUE(a.reset());
}

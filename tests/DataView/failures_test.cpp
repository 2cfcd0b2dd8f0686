// Damaged lists, failing platform calls and exhausted memory.

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "FileAlloc/filealloc.h"
#include "libn/memTraceTable.h"
#include "openAllocator.h"
#include "storageLedger.h"
#include "support/capturedLog.h"
#include "support/failingMalloc.h"
#include "support/raised.h"
#include "support/tempFolder.h"
#include "vdreader/errors.hpp"

using namespace FileWorkLibrary;

namespace {

constexpr char kMagicText[] = "MAGIC !!! IS INCORRECT";

// Three mapped blocks of 100 bytes.
class DamagedList : public testing::Test {
  protected:
    DamagedList() {
        allocator = std::make_unique<OpenAllocator>(folder.name("f").c_str(), true);
        for (int i = 0; i < 3; ++i)
            EXPECT_TRUE(allocator->map(128 * i, 100, pages[i]));
    }
    ~DamagedList() override {
        if (allocator != nullptr)
            repair();
    }

    void damage(int number) {
        broken = allocator->node(number);
        broken->magic = 0x56172812;
    }
    void repair() {
        if (broken != nullptr)
            broken->magic = 0x56172811;
        broken = nullptr;
    }
    void damageAfterUnmapping(int number) {
        toBreak = allocator->node(number);
        ledger.whenUnmapped([] { toBreak->magic = 0; });
    }

    // The text of a CEmptyError, or what else came.
    template <class Call>
    std::string emptyErrorText(Call call) {
        const auto error = raised<CEmptyError>(call);
        return error ? error->what() : "(no CEmptyError)";
    }
    void expectLockFree() {
        EXPECT_TRUE(allocator->lock.try_lock());
        allocator->lock.unlock();
    }

    TempFolder folder;
    CapturedLog log;
    StorageLedger ledger;
    std::unique_ptr<OpenAllocator> allocator;
    TMappedPage pages[3];
    ServantsLibrary::pbuffer* broken = nullptr;
    static inline ServantsLibrary::pbuffer* toBreak = nullptr;
};

} // namespace

TEST_F(DamagedList, RaisesInAWalkThatComesToTheNode) {
    damage(1);
    TLoadPage page;
    EXPECT_EQ(emptyErrorText([&] { allocator->unmapBlock(pages[1]); }), kMagicText);
    EXPECT_EQ(emptyErrorText([&] { allocator->unmapBlock(pages[2]); }), kMagicText);
    EXPECT_EQ(emptyErrorText([&] { allocator->loadAt(128, page, 100); }), kMagicText);
    EXPECT_EQ(emptyErrorText([&] { allocator->loadAt(256, page, 100); }), kMagicText);
    EXPECT_EQ(emptyErrorText([&] { allocator->loadAt(5000, page, 100); }), kMagicText);
    EXPECT_EQ(emptyErrorText([&] { page.load(*allocator, 100, file_point::at(256)); }), kMagicText);
    EXPECT_EQ(ledger.openViews(), 3u);
    expectLockFree();
}

TEST_F(DamagedList, DoesNotMatterInFrontOfTheNode) {
    damage(2);
    TLoadPage page;
    EXPECT_TRUE(allocator->loadAt(0, page, 100));
    EXPECT_TRUE(allocator->loadAt(128, page, 100));
    allocator->unmapBlock(pages[0]);
    EXPECT_EQ(allocator->mappedCount(), 2u);
}

TEST_F(DamagedList, StopsTheWalkThatDropsAllViewsAndItGoesOnLater) {
    damage(1);
    EXPECT_EQ(emptyErrorText([&] { allocator->unmapAll(); }), kMagicText);
    EXPECT_EQ(ledger.openViews(), 2u);
    EXPECT_EQ(allocator->mappedCount(), 3u);
    expectLockFree();
    repair();
    allocator->unmapAll();
    EXPECT_EQ(ledger.openViews(), 0u);
    EXPECT_EQ(ledger.count(StorageLedger::unview), 3);
    EXPECT_EQ(allocator->mappedCount(), 0u);
}

TEST_F(DamagedList, FailsAReset) {
    damage(0);
    EXPECT_FALSE(allocator->reset());
    EXPECT_EQ(log.messages(CapturedLog::events),
              std::vector<std::string>{std::string("Error while reseting data: ") + kMagicText});
    EXPECT_EQ(allocator->fileSize(), 512u);
    EXPECT_EQ(allocator->lastErrorText(), nullptr);
    expectLockFree();
}

TEST_F(DamagedList, IsReportedAtTheEndOfTheAllocator) {
    damage(0);
    // Behind the damage nothing can be trusted: what stands there is left to the system.
    std::vector<ServantsLibrary::pbuffer*> lost = {allocator->node(1), allocator->node(2)};
    broken = nullptr;
    const std::uint32_t frees = memCountFree;
    allocator.reset();
    EXPECT_EQ(memCountFree - frees, 4u) << "object, name, sentinel and the damaged node";
    const std::vector<std::string> lines = log.messages(CapturedLog::errors);
    ASSERT_EQ(lines.size(), 1u);
    const std::string expected =
        "exception caught in function "
        "FileWorkLibrary::TFileStorageAllocatorNew::~TFileStorageAllocatorNew, file "
        "Common/DataView/FileAlloc/filealloc, line ";
    EXPECT_NE(lines[0].find(expected), std::string::npos) << lines[0];
    EXPECT_NE(lines[0].find(std::string(": \"") + kMagicText + "\"."), std::string::npos);
    EXPECT_EQ(ledger.openFiles() + ledger.openMappings(), 0u);
    EXPECT_EQ(ledger.openViews(), 3u);
    for (ServantsLibrary::pbuffer* node : lost)
        ServantsLibrary::freeNode(node);
}

TEST_F(DamagedList, IsFoundAgainBehindTheUnmappingOfABlock) {
    damageAfterUnmapping(1);
    EXPECT_EQ(emptyErrorText([&] { allocator->unmapBlock(pages[1]); }), kMagicText);
    EXPECT_EQ(ledger.openViews(), 2u);
    EXPECT_EQ(allocator->mappedCount(), 3u);
    EXPECT_FALSE(pages[1].hasBlock());
    ledger.whenUnmapped(nullptr);
    broken = toBreak;
    expectLockFree();
}

TEST_F(DamagedList, IsFoundAgainBehindTheUnmappingOfEach) {
    damageAfterUnmapping(2);
    toBreak = allocator->node(0);
    EXPECT_EQ(emptyErrorText([&] { allocator->unmapAll(); }), kMagicText);
    EXPECT_EQ(ledger.openViews(), 2u);
    ledger.whenUnmapped(nullptr);
    broken = toBreak;
    repair();
    allocator->unmapAll();
    EXPECT_EQ(ledger.count(StorageLedger::unview), 3);
}

TEST_F(DamagedList, IsReportedByAPageThatOwnsItsMapping) {
    damage(0);
    {
        TMappedPage owning;
        owning.adopt(pages[2]);
        owning.ownsMapping = true;
    }
    const std::vector<std::string> lines = log.messages(CapturedLog::errors);
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_NE(lines[0].find(kMagicText), std::string::npos);
    EXPECT_EQ(ledger.openViews(), 3u);
}

// ---- platform calls ----

namespace {

// All that an allocator does, in one run; what it raised, if it did.
std::string wholeRun(const std::string& path) {
    return raisedText([&] {
        OpenAllocator a(path.c_str(), true);
        TMappedPage first, second, third;
        a.map(12, 1000, first);
        a.map(5000, 1000, second);
        first.append("abc", 3);
        TLoadPage page;
        page.load(a, 1000, file_point::at(12));
        page.load(a, 100, file_point::at(3000));
        a.unmapBlock(first);
        a.reset();
        a.map(0, 100, third);
        a.closeStorage();
    });
}

} // namespace

namespace {

// A file of its own for each run: where a view could not be taken away, Windows does not let the
// file be emptied.
std::string freshFile(const TempFolder& folder) {
    static int count = 0;
    return folder.name("f" + std::to_string(count++));
}

} // namespace

TEST(FailingStorage, EachCallFailsOnceAndNothingIsLost) {
    const TempFolder folder;
    const CapturedLog log;
    int failures = 0;
    for (int call = 0; call < StorageLedger::kCalls; ++call) {
        int calls = 0;
        {
            const StorageLedger ledger;
            ASSERT_EQ(wholeRun(freshFile(folder)), "(nothing)");
            calls = ledger.count(static_cast<StorageLedger::Call>(call));
        }
        ASSERT_GT(calls, 0) << StorageLedger::kNames[call];
        for (int number = 1; number <= calls; ++number) {
            SCOPED_TRACE(std::string(StorageLedger::kNames[call]) + ' ' + std::to_string(number));
            const StorageLedger ledger;
            ledger.fail(static_cast<StorageLedger::Call>(call), number, false);
            const std::string text = wholeRun(freshFile(folder));
            if (text != "(nothing)") {
                EXPECT_NE(text.find("MappableStorageFile"), std::string::npos);
                ++failures;
            }
            // The last unmapping is that of the destructor, which can only tell of it.
            const bool inTheEnd = call == StorageLedger::unview && number == calls;
            EXPECT_EQ(ledger.openViews(), inTheEnd ? 1u : 0u);
            EXPECT_EQ(ledger.openMappings(), 0u);
            EXPECT_EQ(ledger.openFiles(), 0u);
            ledger.failNothing();
            EXPECT_EQ(wholeRun(freshFile(folder)), "(nothing)");
        }
    }
    EXPECT_GE(failures, 4);
}

TEST(FailingStorage, CallsThatGoOnFailingEndInFailuresOfTheirOwn) {
    const TempFolder folder;
    const CapturedLog log;
    // Not those that end the process when they fail for good: a handle that cannot be closed.
    for (StorageLedger::Call call :
         {StorageLedger::open, StorageLedger::size, StorageLedger::seek, StorageLedger::read,
          StorageLedger::map, StorageLedger::view, StorageLedger::unview}) {
        SCOPED_TRACE(StorageLedger::kNames[call]);
        const StorageLedger ledger;
        ledger.fail(call, 1, true);
        wholeRun(freshFile(folder));
        EXPECT_EQ(ledger.openMappings(), 0u);
        EXPECT_EQ(ledger.openFiles(), 0u);
        EXPECT_EQ(ledger.openViews() != 0, call == StorageLedger::unview);
        ledger.failNothing();
        EXPECT_EQ(wholeRun(freshFile(folder)), "(nothing)");
    }
}

TEST(FailingStorage, CloseThatFailsAtTheEndIsReportedAndTriedAgain) {
    const TempFolder folder;
    const CapturedLog log;
    const StorageLedger ledger;
    {
        OpenAllocator a(folder.name("f").c_str(), true);
        ledger.fail(StorageLedger::close, 1, false);
    }
    EXPECT_EQ(ledger.openFiles(), 0u);
    const std::vector<std::string> lines = log.messages(CapturedLog::errors);
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_NE(lines[0].find("FileWorkLibrary::TFileStorageAllocatorNew::~TFileStorageAllocatorNew"),
              std::string::npos);
    EXPECT_NE(lines[0].find("MappableStorageFile closeHanle:"), std::string::npos);
}

TEST(FailingStorage, FailedMappingLeavesTheAllocatorUsable) {
    const TempFolder folder;
    const StorageLedger ledger;
    OpenAllocator a(folder.name("f").c_str(), true);
    TMappedPage page;
    for (StorageLedger::Call call : {StorageLedger::map, StorageLedger::view}) {
        ledger.fail(call, 1, false);
        const char* lead = call == StorageLedger::map ? "MappableStorageFile createMapping:"
                                                      : "MappableStorageFile mapPtr.";
        EXPECT_EQ(raisedText([&] { a.map(0, 100, page); }).rfind(lead, 0), 0u);
        EXPECT_FALSE(page.hasBlock());
        EXPECT_EQ(a.mappedCount(), 0u);
        EXPECT_TRUE(a.isOk());
        EXPECT_TRUE(a.lock.try_lock());
        a.lock.unlock();
        EXPECT_TRUE(a.map(0, 100, page));
        a.unmapBlock(page);
    }
}

TEST(FailingStorage, BlockThatCannotBeUnmappedStaysInTheList) {
    const TempFolder folder;
    const StorageLedger ledger;
    OpenAllocator a(folder.name("f").c_str(), true);
    TMappedPage page;
    a.map(0, 100, page);
    ledger.fail(StorageLedger::unview, 1, false);
    EXPECT_EQ(raisedText([&] { a.unmapBlock(page); }).rfind("MappableStorageFile unmapPtr:", 0),
              0u);
    EXPECT_TRUE(page.hasBlock());
    EXPECT_EQ(a.mappedCount(), 1u);
    a.unmapBlock(page);
    EXPECT_EQ(a.mappedCount(), 0u);
    EXPECT_EQ(ledger.openViews(), 0u);
}

// ---- memory ----

TEST(FailingMemory, MappingGivesItsViewBack) {
    const TempFolder folder;
    const StorageLedger ledger;
    OpenAllocator a(folder.name("f").c_str(), true);
    TMappedPage page;
    for (std::size_t size : {sizeof(TMappedPage), sizeof(ServantsLibrary::pbuffer)}) {
        const std::uint32_t balance = memCountMalloc - memCountFree;
        {
            const FailingMalloc failing(size);
            EXPECT_NE(raisedText([&] { a.map(0, 100, page); }), "(nothing)");
        }
        EXPECT_EQ(ledger.openViews(), 0u);
        EXPECT_EQ(a.mappedCount(), 0u);
        // The allocation that failed was counted too.
        EXPECT_EQ(memCountMalloc - memCountFree, balance + 1);
    }
    EXPECT_TRUE(a.map(0, 100, page));
}

TEST(FailingMemory, NodeTellsItsSource) {
    const FailingMalloc failing(sizeof(ServantsLibrary::pbuffer));
    EXPECT_NE(raisedText([] {
                  OpenAllocator("", true);
              }).find("Can't allocate memory at Common/SrvLib/Buffers/pbuffer:"),
              std::string::npos);
}

TEST(FailingMemory, ConstructionReleasesWhatItHad) {
    const CapturedLog log;
    const std::uint32_t balance = memCountMalloc - memCountFree;
    {
        const FailingMalloc failing(1); // the empty resolved name
        EXPECT_NE(raisedText([] { OpenAllocator("", true); }), "(nothing)");
    }
    EXPECT_EQ(memCountMalloc - memCountFree, balance + 1);
}

TEST(FailingMemory, AllocatorItselfComesFromTheTracedAllocator) {
    const FailingMalloc failing(sizeof(OpenAllocator));
    EXPECT_NE(raisedText([] {
                  delete new OpenAllocator("", true);
              }).find("Can't allocate memory at Common/include/memutil:194."),
              std::string::npos);
}

TEST(FailingMemory, NothingIsLeftInTheEndButThePagesOfViewsDroppedAtOnce) {
    const TempFolder folder;
    const std::uint32_t balance = memCountMalloc - memCountFree;
    {
        OpenAllocator a(folder.name("f").c_str(), true);
        TMappedPage first, second;
        TLoadPage page;
        a.map(0, 100, first);
        a.map(128, 100, second);
        page.load(a, 100, file_point::at(0));
        a.unmapBlock(first);
        a.unmapBlock(second);
    }
    EXPECT_EQ(memCountMalloc - memCountFree, balance);
    {
        OpenAllocator a(folder.name("f").c_str(), true);
        TMappedPage first, second;
        a.map(0, 100, first);
        a.map(128, 100, second);
    }
    EXPECT_EQ(memCountMalloc - memCountFree, balance + 2);
}

// ---- starting over ----

TEST(AllocatorReset, LetsEverythingGoBeforeItOpens) {
    const TempFolder folder;
    const StorageLedger ledger;
    TMappedPage page;
    OpenAllocator a(folder.name("f").c_str(), true);
    a.map(0, 100, page);
    const ScopedCalls calls;
    static platform::Calls ledgerCalls;
    static std::vector<std::size_t> open;
    ledgerCalls = calls.saved();
    open.clear();
    // A file that is still mapped cannot be emptied on every system.
    platform::calls.openStorage = [](const char* name, platform::StorageAccess access) {
        open = {StorageLedger::openViews(), StorageLedger::openFiles(),
                StorageLedger::openMappings()};
        EXPECT_EQ(access.disposition, platform::Disposition::createAlways);
        return ledgerCalls.openStorage(name, access);
    };
    EXPECT_TRUE(a.reset());
    EXPECT_EQ(open, (std::vector<std::size_t>{0, 0, 0}));
}

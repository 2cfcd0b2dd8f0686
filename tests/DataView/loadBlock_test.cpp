// Copies of blocks: from the file, from views, beside a writer.

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "FileAlloc/filealloc.h"
#include "openAllocator.h"
#include "storageLedger.h"
#include "support/capturedLog.h"
#include "support/tempFolder.h"

using namespace FileWorkLibrary;

namespace {

class LoadBlock : public testing::Test {
  protected:
    OpenAllocator& open(const std::string& bytes) {
        folder.write("f", bytes);
        allocator = std::make_unique<OpenAllocator>(folder.name("f").c_str(), false);
        return *allocator;
    }

    TempFolder folder;
    CapturedLog log;
    std::unique_ptr<OpenAllocator> allocator;
};

std::string bytesOf(const TPage& page, std::size_t count) {
    return {reinterpret_cast<const char*>(page.block), count};
}

std::string letters(std::size_t count) {
    std::string text;
    for (std::size_t i = 0; i < count; ++i)
        text += static_cast<char>('a' + i % 26);
    return text;
}

} // namespace

// ---- from the file ----

TEST_F(LoadBlock, AtTheEndOfTheFileIsFalseAndLeavesThePage) {
    OpenAllocator& a = open(blockBytes(100, 0, 0, 0, ""));
    TLoadPage page;
    EXPECT_FALSE(a.loadAt(128, page, 100));
    EXPECT_FALSE(a.loadAt(129, page, 100));
    EXPECT_FALSE(a.loadBlock(file_point::none(), page, 100));
    EXPECT_FALSE(page.hasBlock());
    EXPECT_EQ(a.lastErrorText(), nullptr);
    EXPECT_EQ(log.size(), 0u);
}

TEST_F(LoadBlock, ReadsHeadPayloadAndWhatFollows) {
    const std::string first = blockBytes(100, 9, 0, 1, letters(104));
    const std::string second = blockBytes(60, 30, 128, 3, letters(64));
    OpenAllocator& a = open(first + second);
    TLoadPage page;
    EXPECT_TRUE(a.loadAt(128, page, 60));
    EXPECT_EQ(bytesOf(page, 88), second);
    EXPECT_EQ(page.used(), 30u);
    EXPECT_EQ(page.elements(), 3u);
    EXPECT_EQ(page.point(), file_point::at(128));
    std::int32_t err = 7;
    EXPECT_EQ(std::string(page.getPtr(10, err), 20), letters(30).substr(10));
    EXPECT_EQ(page.getPtr(30, err), nullptr);
    EXPECT_EQ(log.size(), 0u);
}

TEST_F(LoadBlock, FileThatEndsInsideTheBlockIsAnError) {
    const StorageLedger ledger;
    OpenAllocator& a = open(blockBytes(100, 9, 0, 1, letters(104)).substr(0, 127));
    TLoadPage page;
    EXPECT_FALSE(a.loadAt(0, page, 100));
    ASSERT_NE(a.lastErrorText(), nullptr);
    EXPECT_EQ(log.messages(CapturedLog::events),
              std::vector<std::string>{std::string("Allocating error: ") + a.lastErrorText()});
    EXPECT_TRUE(a.isOk());
    EXPECT_EQ(bytesOf(page, 128),
              blockBytes(100, 9, 0, 1, letters(104)).substr(0, 127) + '\0'); // a new buffer's zero
}

TEST_F(LoadBlock, FailedReadGivesTheSystemsText) {
    const StorageLedger ledger;
    OpenAllocator& a = open(blockBytes(100, 9, 0, 1, letters(104)));
    TLoadPage page;
    for (StorageLedger::Call call : {StorageLedger::read, StorageLedger::seek}) {
        log.clear();
        ledger.fail(call, 1, false);
        EXPECT_FALSE(a.loadAt(0, page, 100));
        const std::string text = std::error_code(5, std::system_category()).message();
        EXPECT_EQ(a.lastErrorText(), text);
        EXPECT_EQ(log.messages(CapturedLog::events),
                  std::vector<std::string>{"Allocating error: " + text});
        EXPECT_TRUE(a.loadAt(0, page, 100));
        EXPECT_EQ(page.used(), 9u);
    }
}

TEST_F(LoadBlock, BufferIsUsedAgainWhereItIsLargeEnough) {
    const std::string block = blockBytes(100, 9, 0, 1, letters(104));
    OpenAllocator& a = open(block + block + std::string(400, '\0'));
    TLoadPage page;
    a.loadAt(0, page, 100);
    const FILE_BLOCK* const buffer = page.block;
    a.loadAt(128, page, 100);
    EXPECT_EQ(page.block, buffer);
    EXPECT_TRUE(a.loadAt(0, page, 200));
    EXPECT_EQ(page.payloadRoom(), 200u);
    EXPECT_EQ(bytesOf(page, 228), block + block.substr(0, 100));
}

TEST_F(LoadBlock, CapacityOfADamagedFileDoesNotMakeTheBufferLarger) {
    OpenAllocator& a = open(headBytes(0xFFFFFFFF, 0xFFFFFFFF, 0, 1) + std::string(1000, 'x'));
    TLoadPage page;
    EXPECT_TRUE(a.loadAt(0, page, 100));
    EXPECT_EQ(page.payloadRoom(), 100u);
    EXPECT_EQ(page.readable(), 100u);
    EXPECT_TRUE(a.loadAt(0, page, 900));
    EXPECT_EQ(page.payloadRoom(), 900u);
    std::int32_t err = 0;
    EXPECT_NE(page.getPtr(899, err), nullptr);
    EXPECT_EQ(page.getPtr(900, err), nullptr);
}

// ---- TLoadPage::load ----

TEST_F(LoadBlock, LoadOfAnAllocatorThatIsNotOpenIsFalse) {
    OpenAllocator closed(folder.name("absent").c_str(), false);
    TLoadPage page;
    EXPECT_FALSE(page.load(closed, 100, file_point::at(0)));
    EXPECT_FALSE(page.hasBlock());
}

TEST_F(LoadBlock, LoadGivesANewBufferItsCapacityAndPoint) {
    OpenAllocator& a = open(blockBytes(100, 9, 0, 1, letters(104)));
    TLoadPage page;
    EXPECT_FALSE(page.load(a, 100, file_point::at(500)));
    EXPECT_EQ(page.capacity(), 100u);
    EXPECT_EQ(page.point(), file_point::at(500));
    EXPECT_EQ(page.used(), 0u);
    EXPECT_TRUE(page.load(a, 100, file_point::at(0)));
    EXPECT_EQ(bytesOf(page, 128), blockBytes(100, 9, 0, 1, letters(104)));
}

TEST_F(LoadBlock, LoadThatFailsKeepsThePositionOfAUsedBuffer) {
    OpenAllocator& a = open(blockBytes(100, 9, 0, 1, letters(104)));
    TLoadPage page;
    EXPECT_TRUE(page.load(a, 100, file_point::at(0)));
    page.setPoint(file_point::none());
    EXPECT_FALSE(page.load(a, 100, file_point::at(128)));
    EXPECT_EQ(page.point(), file_point::none());
    EXPECT_EQ(page.used(), 9u);
}

// ---- from views ----

TEST_F(LoadBlock, MappedBlockIsCopiedWithItsHeadCounted) {
    OpenAllocator& a = open(blockBytes(100, 40, 0, 2, letters(104)));
    TMappedPage mapped;
    a.map(0, 100, mapped);
    TLoadPage page;
    EXPECT_TRUE(a.loadAt(0, page, 100));
    EXPECT_EQ(bytesOf(page, 100), headBytes(100, 40, 0, 2) + letters(76));
    EXPECT_EQ(bytesOf(page, 128).substr(100), std::string(28, '\0'));
    EXPECT_EQ(page.used(), 40u);
}

TEST_F(LoadBlock, MappedBlockTellsItsPlaceInTheCopy) {
    OpenAllocator& a = open(blockBytes(100, 1, 0, 1, "a") + blockBytes(100, 2, 128, 2, "bb"));
    TMappedPage mapped;
    a.map(128, 100, mapped);
    TLoadPage page;
    EXPECT_TRUE(a.loadAt(128, page, 100));
    EXPECT_EQ(page.point().offset(), 128u);
    page.setPoint(file_point::none());
    EXPECT_TRUE(page.load(a, 100, file_point::at(128)));
    EXPECT_EQ(page.point().offset(), 128u);
    EXPECT_EQ(page.used(), 2u);
}

TEST_F(LoadBlock, MappedBlockIsCopiedBehindItsUsedToo) {
    for (std::uint32_t used : {0u, 1u, 7u, 8u, 75u, 76u, 77u, 100u, 0xFFFFFFFFu}) {
        OpenAllocator& a = open(blockBytes(100, used, 0, 2, letters(104)));
        TMappedPage mapped;
        a.map(0, 100, mapped);
        TLoadPage page;
        EXPECT_TRUE(a.loadAt(0, page, 100));
        EXPECT_EQ(bytesOf(page, 100), headBytes(100, used, 0, 2) + letters(76)) << used;
        allocator.reset();
    }
}

TEST_F(LoadBlock, MappedBlockGivesWhatIsInTheViewAndReadsNothing) {
    const StorageLedger ledger;
    OpenAllocator& a = open(blockBytes(100, 0, 0, 0, ""));
    TMappedPage mapped;
    a.map(0, 100, mapped);
    a.closeStorage();
    mapped.append("fresh", 5);
    TLoadPage page;
    EXPECT_TRUE(page.load(a, 100, file_point::at(0)));
    EXPECT_EQ(ledger.count(StorageLedger::read), 0);
    EXPECT_EQ(page.used(), 5u);
    EXPECT_EQ(page.elements(), 1u);
    std::int32_t err = 0;
    EXPECT_STREQ(page.getPtr(0, err), "fresh");
}

TEST_F(LoadBlock, MappedBlockOfAnotherSizeIsTrueAndLeavesThePage) {
    OpenAllocator& a = open(blockBytes(100, 40, 0, 2, letters(104)));
    TMappedPage mapped;
    a.map(0, 100, mapped);
    TLoadPage page;
    EXPECT_TRUE(a.loadAt(0, page, 99));
    EXPECT_FALSE(page.hasBlock());
    page.reserve(50);
    page.init(50, file_point::at(4711));
    const std::string before = bytesOf(page, 78);
    EXPECT_TRUE(a.loadAt(0, page, 50));
    EXPECT_EQ(bytesOf(page, 78), before);
}

TEST_F(LoadBlock, CapacityThatSomebodyRaisesIsNotBelieved) {
    OpenAllocator& a = open(blockBytes(100, 40, 0, 2, letters(104)));
    TMappedPage mapped;
    a.map(0, 100, mapped);
    const std::uint32_t huge = 1'000'000;
    std::memcpy(reinterpret_cast<char*>(mapped.block) + 4, &huge, 4);
    TLoadPage page;
    EXPECT_TRUE(a.loadAt(0, page, huge));
    EXPECT_FALSE(page.hasBlock());
}

TEST_F(LoadBlock, TinyMappedBlocksCopyAPartOfTheHead) {
    for (std::uint32_t size : {0u, 3u, 11u, 23u, 24u, 25u}) {
        OpenAllocator& a = open(blockBytes(size, 1, 0, 6, letters(size + 4)));
        TMappedPage mapped;
        a.map(0, size, mapped);
        TLoadPage page;
        EXPECT_TRUE(a.loadAt(0, page, size));
        // What the copy does not reach: the fields that are set anyway, and zeroes.
        const std::string whole = headBytes(size, 1, 0, 6) + letters(size);
        const std::string set = headBytes(size, 1, 0, 0) + std::string(size + 4, '\0');
        std::string expected = whole.substr(0, size) + set.substr(size);
        EXPECT_EQ(bytesOf(page, size + 28), expected) << size;
        allocator.reset();
    }
}

TEST_F(LoadBlock, UnmappedBlockIsReadFromTheFileAgain) {
    OpenAllocator& a = open(blockBytes(100, 40, 0, 2, letters(104)));
    TMappedPage mapped;
    a.map(0, 100, mapped);
    a.unmapBlock(mapped);
    TLoadPage page;
    EXPECT_TRUE(a.loadAt(0, page, 100));
    EXPECT_EQ(bytesOf(page, 128), blockBytes(100, 40, 0, 2, letters(104)));
}

// ---- beside a writer ----

TEST_F(LoadBlock, AnotherObjectSeesWhatAWriterAppends) {
    OpenAllocator& writer = open(blockBytes(1000, 0, 0, 0, ""));
    TMappedPage mapped;
    writer.map(0, 1000, mapped);
    OpenAllocator reader(folder.name("f").c_str(), false);
    TLoadPage page;
    for (std::uint32_t i = 1; i <= 100; ++i) {
        mapped.append("0123456789", 10);
        ASSERT_TRUE(page.load(reader, 1000, file_point::at(0)));
        ASSERT_EQ(page.used(), 10 * i);
        ASSERT_EQ(page.elements(), i);
        std::int32_t err = 0;
        ASSERT_EQ(std::memcmp(page.getPtr(10 * i - 10, err), "0123456789", 10), 0);
        ASSERT_EQ(page.getPtr(10 * i, err), nullptr);
    }
}

namespace {

// Elements of one letter repeated, as many as `length`.
void appendAll(TPage& page, std::uint32_t length, const std::atomic<bool>& started) {
    while (!started)
        std::this_thread::yield();
    std::string element(length, 'A');
    while (page.append(element.data(), length) == 0)
        element.assign(length, element[0] == 'Z' ? 'A' : static_cast<char>(element[0] + 1));
}

bool isWhole(const char* bytes, std::uint32_t length, std::uint32_t number) {
    return std::string_view(bytes, length) ==
           std::string(length, static_cast<char>('A' + number % 26));
}

constexpr std::uint32_t kSize = 81'920;
constexpr std::uint32_t kElement = 83;

} // namespace

// Unlike a copy, the live page may be read while it grows, up to the `used` that was seen.
TEST_F(LoadBlock, ReadersSeeWholeElementsWhileAThreadAppends) {
    OpenAllocator& a = open(blockBytes(kSize, 0, 0, 0, ""));
    TMappedPage mapped;
    a.map(0, kSize, mapped);
    std::atomic<bool> started{false};
    std::thread writer([&] { appendAll(mapped, kElement, started); });
    constexpr std::uint32_t kAll = kSize / kElement * kElement;
    TLoadPage page;
    std::uint32_t copied = 0, live = 0;
    bool whole = true;
    for (started = true; copied < kAll && whole;) {
        ASSERT_TRUE(page.load(a, kSize, file_point::at(0)));
        ASSERT_GE(page.used(), copied);
        whole = page.used() % kElement == 0;
        // The last 24 bytes of the payload do not come along.
        for (; copied + kElement <= std::min(page.used(), kSize - 24) && whole; copied += kElement)
            whole = isWhole(page.payload() + copied, kElement, copied / kElement);
        for (; live < mapped.used() && whole; live += kElement)
            whole = isWhole(mapped.payload() + live, kElement, live / kElement);
        if (page.used() == kAll)
            break;
    }
    writer.join();
    EXPECT_TRUE(whole);
    EXPECT_EQ(mapped.used(), kAll);
    EXPECT_EQ(mapped.elements(), kSize / kElement);
}

TEST_F(LoadBlock, ThreadsMapLoadAndUnmapSideBySide) {
    constexpr std::uint32_t kBlock = 972; // with its overhead 1,000
    std::string bytes;
    for (std::uint32_t i = 0; i < 8; ++i)
        bytes += blockBytes(kBlock, 4, 1000 * i, i, std::string(4, static_cast<char>('0' + i)));
    OpenAllocator& a = open(bytes);
    std::vector<std::thread> threads;
    std::atomic<int> wrong{0};
    for (std::uint32_t i = 0; i < 8; ++i)
        threads.emplace_back([&, i] {
            for (int k = 0; k < 50; ++k) {
                TMappedPage mapped;
                TLoadPage page;
                std::int32_t err = 1;
                if (!a.map(1000 * i, kBlock, mapped) || !a.loadAt(1000 * i, page, kBlock) ||
                    page.getPtr(3, err) == nullptr || *page.getPtr(3, err) != '0' + int(i))
                    ++wrong;
                a.unmapBlock(mapped);
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(a.mappedCount(), 0u);
    EXPECT_EQ(a.tail, a.head.get());
}

#include "FileAlloc/pages.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "libn/memTraceTable.h"
#include "openAllocator.h"
#include "support/failingMalloc.h"
#include "support/raised.h"
#include "support/slot.h"

using namespace FileWorkLibrary;

namespace {

// A page over a block in memory, at any address.
class Block {
  public:
    explicit Block(std::uint32_t capacity, std::size_t skew = 0)
        : m_bytes(skew + capacity + 28, '\x77'), m_skew(skew) {
        const std::string head = headBytes(capacity, 0, 0, 0);
        std::memcpy(at(), head.data(), head.size());
        page.attach(at(), capacity + 28);
    }
    char* at() { return m_bytes.data() + m_skew; }
    std::string bytes(std::size_t from, std::size_t count) { return {at() + from, count}; }
    void set(std::size_t offset, std::uint32_t value) { std::memcpy(at() + offset, &value, 4); }

    TPage page;

  private:
    std::vector<char> m_bytes;
    std::size_t m_skew;
};

constexpr std::size_t kCapacityAt = 4, kUsedAt = 8;

// The vector keeps the allocation alignment, so `skew` decides whether numbers are aligned.
class PageAt : public testing::TestWithParam<std::size_t> {};

bool inOrder(std::initializer_list<const void*> addresses) {
    return std::adjacent_find(addresses.begin(), addresses.end(), std::greater_equal<>()) ==
           addresses.end();
}

} // namespace

TEST(FilePoint, LowHalfStandsFirst) {
    const file_point point = file_point::at(0x1122334455667788);
    EXPECT_EQ(point.low, 0x55667788u);
    EXPECT_EQ(point.high, 0x11223344u);
    EXPECT_EQ(point.offset(), 0x1122334455667788u);
    unsigned char bytes[8];
    std::memcpy(bytes, &point, 8);
    EXPECT_EQ(bytes[0], 0x88);
    EXPECT_EQ(bytes[7], 0x11);
}

TEST(FilePoint, NoneIsMinusOneInBothHalves) {
    EXPECT_EQ(file_point::none().low, 0xFFFFFFFFu);
    EXPECT_EQ(file_point::none().high, 0xFFFFFFFFu);
    EXPECT_EQ(file_point::none().position(), -1);
    EXPECT_FALSE(file_point::none() == file_point::at(0xFFFFFFFF));
}

TEST(Page, VirtualOperationsStandInTheirOrder) {
    EXPECT_EQ(slotOf(&TPage::init), 0);
    EXPECT_EQ(slotOf(&TPage::reserved), 3); // the destructor between takes two
    EXPECT_EQ(slotOf(&TPage::getPtr), 4);
    EXPECT_EQ(slotOf(&TPage::append), 5);
    EXPECT_EQ(slotOf(&TPage::load), 6);
    EXPECT_EQ(slotOf(&TPage::adopt), 7);
}

TEST(Page, FieldsStandInTheirOrder) {
    TMappedPage page;
    EXPECT_TRUE(inOrder({&page.owner, &page.block, &page.ownsMapping}));
    EXPECT_EQ(reinterpret_cast<char*>(&page.owner) - reinterpret_cast<char*>(&page),
              static_cast<std::ptrdiff_t>(sizeof(void*)));
}

TEST(Page, WithoutABlockThereIsNothing) {
    TPage page;
    std::int32_t err = 7;
    EXPECT_EQ(page.getPtr(0, err), nullptr);
    EXPECT_EQ(err, 1);
    EXPECT_EQ(page.append("a", 1), 1);
    EXPECT_EQ(page.append("", 0), 1);
    page.init(10, file_point::at(5));
    page.setPoint(file_point::at(5));
    EXPECT_FALSE(page.hasBlock());
    EXPECT_EQ(page.point(), file_point::none());
    EXPECT_EQ(page.used() + page.capacity() + page.elements() + page.readable(), 0u);
    EXPECT_EQ(page.payloadRoom(), 0u);
    EXPECT_EQ(page.payload(), nullptr);
}

TEST(Page, ReservedOperationIsZero) {
    TPage page;
    EXPECT_EQ(page.reserved(), 0);
}

TEST(Page, BaseLoadsAndAdoptsNothing) {
    Block own(16), other(16);
    OpenAllocator allocator("", false);
    EXPECT_FALSE(own.page.load(allocator, 16, file_point::at(0)));
    own.page.adopt(other.page);
    EXPECT_EQ(static_cast<void*>(own.page.block), own.at());
}

TEST(Page, TooLittleMemoryIsNoBlock) {
    char memory[28] = {};
    TPage page;
    page.attach(memory, 28);
    EXPECT_TRUE(page.hasBlock());
    EXPECT_EQ(page.payloadRoom(), 0u);
    page.attach(memory, 27);
    EXPECT_FALSE(page.hasBlock());
    page.attach(nullptr, 100);
    EXPECT_FALSE(page.hasBlock());
}

TEST_P(PageAt, InitWritesMarkerCapacityAndPointAlone) {
    Block block(64, GetParam());
    std::memset(block.at(), 0x55, 24);
    block.page.init(64, file_point::at(0x0102030405060708));
    EXPECT_EQ(block.bytes(0, 24),
              headBytes(64, 0x55555555, 0x0102030405060708, 0x55555555, 0x5555));
    EXPECT_EQ(block.page.point().offset(), 0x0102030405060708u);
    EXPECT_EQ(block.page.capacity(), 64u);
    EXPECT_EQ(block.bytes(24, 68), std::string(68, '\x77'));
}

TEST_P(PageAt, PointerEndsAtUsed) {
    Block block(64, GetParam());
    block.set(kUsedAt, 10);
    std::int32_t err = 7;
    EXPECT_EQ(block.page.getPtr(9, err), block.at() + 24 + 9);
    EXPECT_EQ(err, 0);
    EXPECT_EQ(block.page.getPtr(10, err), nullptr);
    EXPECT_EQ(err, 1);
    EXPECT_EQ(block.page.getPtr(0, err), block.at() + 24);
    EXPECT_EQ(err, 0);
}

TEST_P(PageAt, AppendPutsBytesUsedAndElements) {
    Block block(64, GetParam());
    EXPECT_EQ(block.page.append("abc", 3), 0);
    EXPECT_EQ(block.page.append("0123456789ABCDEF", 16), 0);
    EXPECT_EQ(block.page.used(), 19u);
    EXPECT_EQ(block.page.elements(), 2u);
    EXPECT_EQ(block.bytes(24, 20), "abc0123456789ABCDEF\x77");
    EXPECT_EQ(block.bytes(0, 24), headBytes(64, 19, 0, 2));
}

TEST_P(PageAt, AppendFitsToTheLastByte) {
    Block block(40, GetParam());
    const std::string bytes(40, 'x');
    EXPECT_EQ(block.page.append(bytes.data(), 41), 1);
    EXPECT_EQ(block.bytes(0, 68), headBytes(40, 0, 0, 0) + std::string(44, '\x77'));
    EXPECT_EQ(block.page.append(bytes.data(), 40), 0);
    EXPECT_EQ(block.bytes(0, 68), headBytes(40, 40, 0, 1) + bytes + std::string(4, '\x77'));
    EXPECT_EQ(block.page.append(bytes.data(), 1), 1);
    EXPECT_EQ(block.bytes(0, 68), headBytes(40, 40, 0, 1) + bytes + std::string(4, '\x77'));
}

TEST_P(PageAt, AppendCopiesEveryLengthAtEveryPlace) {
    for (std::uint32_t first = 0; first < 12; ++first)
        for (std::uint32_t second = 0; second < 40; ++second) {
            Block block(64, GetParam());
            std::string bytes;
            for (std::uint32_t i = 0; i < first + second; ++i)
                bytes += static_cast<char>('A' + i);
            EXPECT_EQ(block.page.append(bytes.data(), first), 0);
            EXPECT_EQ(block.page.append(bytes.data() + first, second), 0);
            EXPECT_EQ(block.bytes(24, 68), bytes + std::string(68 - bytes.size(), '\x77'));
        }
}

INSTANTIATE_TEST_SUITE_P(Addresses, PageAt, testing::Values(0, 1, 2, 3, 4, 5, 7));

TEST(Page, AppendedNothingCountsAsAnElement) {
    Block block(8);
    EXPECT_EQ(block.page.append("", 0), 0);
    EXPECT_EQ(block.page.elements(), 1u);
    EXPECT_EQ(block.page.used(), 0u);
}

TEST(Page, SumOfUsedAndLengthDoesNotWrap) {
    Block block(64);
    block.set(kCapacityAt, 0xFFFFFFFF);
    block.set(kUsedAt, 0xFFFFFFF0);
    EXPECT_EQ(block.page.append("0123456789ABCDEF0123456789ABCDEF", 32), 1);
    EXPECT_EQ(block.bytes(24, 68), std::string(68, '\x77'));
}

// The appended bytes are those of the head itself, so they tell what it held when they were copied.
TEST(Page, BytesAreThereBeforeTheHeadCountsThem) {
    for (const std::size_t skew : {0, 1}) {
        Block block(64, skew);
        EXPECT_EQ(block.page.append("01234567", 8), 0);
        const std::string before = block.bytes(0, 24);
        EXPECT_EQ(block.page.append(block.at(), 24), 0);
        EXPECT_EQ(block.bytes(24 + 8, 24), before) << skew;
        EXPECT_EQ(block.page.used(), 32u);
        EXPECT_EQ(block.page.elements(), 2u);
    }
}

TEST(Page, NumbersOfTheHeadComeWholeWhileAThreadAppends) {
    constexpr std::uint32_t kAppends = 1 << 20;
    Block block(kAppends);
    std::atomic<bool> done{false};
    std::thread writer([&] {
        for (std::uint32_t i = 0; i < kAppends; ++i)
            block.page.append("x", 1);
        done = true;
    });
    std::uint32_t used = 0, elements = 0;
    int fallen = 0;
    while (!done) {
        const std::uint32_t usedNow = block.page.used(), elementsNow = block.page.elements();
        fallen += usedNow < used || elementsNow < elements;
        used = usedNow;
        elements = elementsNow;
    }
    writer.join();
    EXPECT_EQ(fallen, 0);
    EXPECT_EQ(block.page.used(), kAppends);
    EXPECT_EQ(block.page.elements(), kAppends);
}

TEST(Page, DamagedHeadGivesNoForeignMemory) {
    Block block(64);
    block.set(kCapacityAt, 0xFFFFFFFF);
    block.set(kUsedAt, 0xFFFFFFFF);
    std::int32_t err = 7;
    EXPECT_EQ(block.page.getPtr(63, err), block.at() + 24 + 63);
    EXPECT_EQ(err, 0);
    for (std::uint32_t offset : {64u, 67u, 68u, 1000u, 0xFFFFFFFEu}) {
        EXPECT_EQ(block.page.getPtr(offset, err), nullptr) << offset;
        EXPECT_EQ(err, 1);
    }
    block.set(kUsedAt, 60);
    EXPECT_EQ(block.page.append("01234", 5), 1);
    EXPECT_EQ(block.page.append("0123", 4), 0);
}

TEST(Page, ReadableIsTheLeastOfWhatIsPromisedAndWhatIsThere) {
    struct Row {
        std::uint32_t used, capacity, readable;
    };
    Block block(64);
    for (const Row& row : {Row{10, 64, 10}, Row{64, 64, 64}, Row{70, 64, 64}, Row{70, 66, 64},
                           Row{70, 30, 30}, Row{0xFFFFFFFF, 0xFFFFFFFF, 64}}) {
        block.set(kUsedAt, row.used);
        block.set(kCapacityAt, row.capacity);
        EXPECT_EQ(block.page.readable(), row.readable);
        EXPECT_EQ(block.page.payloadRoom(), 64u);
    }
}

// ---- TLoadPage ----

TEST(LoadPage, BufferIsZeroFilledAndHasRoomForTheWholeBlock) {
    // A used block of this size goes back to the heap first.
    void* used = std::memset(dwminiAlloc(1028, "f", 1, false), 0xAA, 1028);
    dwminiFree(&used);
    TLoadPage page;
    EXPECT_TRUE(page.reserve(1000));
    ASSERT_TRUE(page.hasBlock());
    EXPECT_EQ(std::string(reinterpret_cast<char*>(page.block), 1028), std::string(1028, '\0'));
    EXPECT_EQ(page.payloadRoom(), 1000u);
}

TEST(LoadPage, BufferComesFromTheTracedAllocatorAndGoesBack) {
    const std::uint32_t mallocs = memCountMalloc, frees = memCountFree;
    {
        TLoadPage page;
        page.reserve(100);
        EXPECT_EQ(memCountMalloc - mallocs, 1u);
        EXPECT_EQ(memCountFree - frees, 0u);
    }
    EXPECT_EQ(memCountFree - frees, 1u);
}

TEST(LoadPage, BufferThatIsTooSmallGoesBackWhereALargerOneTakesItsPlace) {
    const std::uint32_t mallocs = memCountMalloc, frees = memCountFree;
    TLoadPage page;
    page.reserve(100);
    page.reserve(200);
    EXPECT_EQ(memCountMalloc - mallocs, 2u);
    EXPECT_EQ(memCountFree - frees, 1u);
}

TEST(LoadPage, SourceOfTheBufferIsTold) {
    TLoadPage page;
    const FailingMalloc failing(100 + 28);
    EXPECT_NE(raisedText([&] {
                  page.reserve(100);
              }).find("Can't allocate memory at Common/DataView/FileAlloc/filealloc:"),
              std::string::npos);
    EXPECT_FALSE(page.hasBlock());
}

TEST(LoadPage, PagesThemselvesComeFromTheTracedAllocator) {
    const FailingMalloc failing(sizeof(TLoadPage));
    EXPECT_NE(raisedText([] {
                  delete new TLoadPage;
              }).find("Can't allocate memory at Common/include/memutil:72."),
              std::string::npos);
}

TEST(LoadPage, BufferIsKeptWhileItsHeadPromisesEnoughAndIsTrue) {
    TLoadPage page;
    page.reserve(100);
    page.init(100, file_point::at(0));
    EXPECT_FALSE(page.reserve(100));
    EXPECT_FALSE(page.reserve(10));
    EXPECT_TRUE(page.reserve(101));
    page.init(10, file_point::at(0));
    EXPECT_TRUE(
        page.reserve(11)); // the head of a damaged or empty block promises less than there is
    page.init(0xFFFFFFFF, file_point::at(0));
    EXPECT_FALSE(page.reserve(11));
    EXPECT_TRUE(page.reserve(12)); // and this one more
    EXPECT_EQ(page.payloadRoom(), 12u);
}

TEST(LoadPage, BufferThatCannotBeHadLeavesTheOldOne) {
    TLoadPage page;
    page.reserve(100);
    page.init(100, file_point::at(9));
    const FailingMalloc failing(200 + 28);
    EXPECT_NE(raisedText([&] { page.reserve(200); }), "(nothing)");
    EXPECT_EQ(page.capacity(), 100u);
    EXPECT_EQ(page.payloadRoom(), 100u);
}

TEST(LoadPage, FailedFreeOfTheBufferIsSwallowed) {
    const MemTraceTable saved = memTraceTable;
    static void* lost;
    memTraceTable = {[](void*, std::size_t, const char*, int) {},
                     [](void* block) {
                         lost = block;
                         throw 7;
                     }};
    memTraceEnabled = true;
    void* buffer = nullptr;
    {
        TLoadPage page;
        page.reserve(100);
        buffer = page.block;
    }
    memTraceEnabled = false;
    memTraceTable = saved;
    EXPECT_EQ(lost, buffer);
    std::free(lost);
}

// ---- TMappedPage ----

TEST(MappedPage, AdoptsAnotherMappedPageWithoutOwningIt) {
    OpenAllocator allocator("", false);
    Block block(16);
    TMappedPage mapped, page;
    mapped.attach(block.at(), 44);
    mapped.owner = &allocator;
    page.ownsMapping = true;
    page.adopt(mapped);
    EXPECT_EQ(static_cast<void*>(page.block), block.at());
    EXPECT_EQ(page.owner, &allocator);
    EXPECT_EQ(page.payloadRoom(), 16u);
    EXPECT_FALSE(page.ownsMapping);
}

TEST(MappedPage, AdoptsNothingElse) {
    Block block(16);
    TMappedPage page;
    page.adopt(block.page);
    EXPECT_FALSE(page.hasBlock());
    TLoadPage loaded;
    loaded.reserve(10);
    page.adopt(loaded);
    EXPECT_FALSE(page.hasBlock());
}

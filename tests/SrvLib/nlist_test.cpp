#include "Buffers/nlist.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <string>
#include <thread>
#include <vector>

#include "libn/memTraceTable.h"
#include "support/failingMalloc.h"
#include "support/raised.h"
#include "support/slot.h"

namespace {

using FileWorkLibrary::TMappedPage;

struct List : ServantsLibrary::TNList<TMappedPage*, 10> {
    using TNList::chunkCount;
    using TNList::chunks;
    using TNList::size;
};

// Pages that are never looked into.
TMappedPage* page(std::uintptr_t number) {
    return reinterpret_cast<TMappedPage*>(number * 64);
}

TMappedPage* const kUnset = reinterpret_cast<TMappedPage*>(~std::uintptr_t{0});

} // namespace

TEST(NList, VirtualOperationsStandInTheirOrder) {
    EXPECT_EQ(slotOf(&List::growIndex), 0);
    EXPECT_EQ(slotOf(&List::grow), 1);
    EXPECT_EQ(slotOf(&List::clear), 2); // and then the destructor
}

TEST(NList, FieldsStandInTheirOrder) {
    const List list;
    const auto at = [&](const void* field) {
        return static_cast<const char*>(field) - reinterpret_cast<const char*>(&list);
    };
    EXPECT_EQ(at(&list.chunks), 8);
    EXPECT_EQ(at(&list.chunkCount), 16);
    EXPECT_EQ(at(&list.size), 20);
    EXPECT_EQ(sizeof(ServantsLibrary::TNList<TMappedPage*, 10>), 24u);
}

TEST(NList, NewListIsEmptyAndTakesNoMemory) {
    const std::uint32_t mallocs = memCountMalloc;
    const List list;
    EXPECT_EQ(list.length(), 0u);
    EXPECT_EQ(list.chunkCount, 0u);
    EXPECT_EQ(list.chunks, nullptr);
    EXPECT_EQ(memCountMalloc, mallocs);
}

TEST(NList, ChunksHoldThousandAndTwentyFourPointers) {
    EXPECT_EQ(List::kChunkElements, 1024u);
    EXPECT_EQ(List::kChunkBytes, 8192u);
}

TEST(NList, AccessMakesTheChunkAndRaisesTheSize) {
    List list;
    list[5] = page(5);
    EXPECT_EQ(list.length(), 6u);
    EXPECT_EQ(list.chunkCount, 1u);
    EXPECT_EQ(list[5], page(5));
    EXPECT_EQ(list[2], kUnset);
    EXPECT_EQ(list.length(), 6u);
}

TEST(NList, ElementBehindTheFirstChunkStandsInASecondOne) {
    List list;
    list[1023] = page(1);
    EXPECT_EQ(list.chunkCount, 1u);
    EXPECT_EQ(list[1024], kUnset);
    EXPECT_EQ(list.chunkCount, 2u);
    EXPECT_EQ(list.length(), 1025u);
    list[1024] = page(2);
    EXPECT_EQ(list.chunks[0][1023], page(1));
    EXPECT_EQ(list.chunks[1][0], page(2));
    for (std::uint32_t i = 1; i < 1024; ++i)
        EXPECT_EQ(list.chunks[1][i], kUnset) << i;
}

TEST(NList, FarAccessMakesAllChunksInBetween) {
    List list;
    list[0] = page(1);
    list[5 * 1024 + 7] = page(2);
    EXPECT_EQ(list.chunkCount, 6u);
    EXPECT_EQ(list.length(), 5u * 1024 + 8);
    EXPECT_EQ(list[0], page(1));
    for (std::uint32_t chunk = 1; chunk < 6; ++chunk)
        EXPECT_EQ(list.chunks[chunk][3], kUnset);
}

TEST(NList, ElementsStayWhereTheyAreWhenTheListGrows) {
    List list;
    TMappedPage** const first = &list[0];
    for (std::uint32_t i = 0; i < 20'000; ++i)
        list[i] = page(i);
    EXPECT_EQ(&list[0], first);
    for (std::uint32_t i = 0; i < 20'000; ++i)
        ASSERT_EQ(list[i], page(i)) << i;
    EXPECT_EQ(list.length(), 20'000u);
}

TEST(NList, IndexGrowsWithoutChunks) {
    List list;
    list[0] = page(1);
    TMappedPage** const chunk = list.chunks[0];
    list.growIndex(7);
    EXPECT_EQ(list.chunks[0], chunk);
    for (int i = 1; i < 8; ++i)
        EXPECT_EQ(list.chunks[i], nullptr);
    EXPECT_EQ(list.length(), 1u);
    list[7 * 1024] = page(2);
    EXPECT_EQ(list.chunkCount, 8u);
    EXPECT_EQ(list[7 * 1024 - 1], kUnset);
}

TEST(NList, GrowingToWhatIsThereDoesNothing) {
    List list;
    list[3 * 1024] = page(3);
    const std::uint32_t mallocs = memCountMalloc;
    list.grow(3);
    list.grow(0);
    list.growIndex(2);
    EXPECT_EQ(memCountMalloc, mallocs);
    EXPECT_EQ(list.chunkCount, 4u);
    EXPECT_EQ(list[3 * 1024], page(3));
}

TEST(NList, ClearingGivesAllMemoryBack) {
    const std::uint32_t balance = memCountMalloc - memCountFree;
    List list;
    list[3000] = page(1);
    list.clear();
    EXPECT_EQ(memCountMalloc - memCountFree, balance);
    EXPECT_EQ(list.length(), 0u);
    EXPECT_EQ(list.chunkCount, 0u);
    EXPECT_EQ(list.chunks, nullptr);
    EXPECT_EQ(list[3000], kUnset);
    list.clear();
    list.clear();
    EXPECT_EQ(memCountMalloc - memCountFree, balance);
}

TEST(NList, EndOfTheListGivesAllMemoryBack) {
    const std::uint32_t balance = memCountMalloc - memCountFree;
    {
        List list;
        list[0] = page(1);
        list[3000] = page(2); // with an index in the place of the first one
    }
    EXPECT_EQ(memCountMalloc - memCountFree, balance);
}

TEST(NList, FailedAllocationLeavesAListThatGoesOn) {
    List list;
    list[0] = page(1);
    for (const std::size_t size : {std::size_t{8192}, 3 * sizeof(void*)}) {
        const FailingMalloc failing(size);
        const std::string text = raisedText([&] { list[2048] = page(2); });
        EXPECT_NE(text.find("Can't allocate memory at Common/SrvLib/Buffers/nlist:"),
                  std::string::npos)
            << text;
        EXPECT_EQ(list.length(), 1u);
        EXPECT_EQ(list.chunkCount, 1u);
        EXPECT_EQ(list[0], page(1));
    }
    list[2048] = page(2);
    EXPECT_EQ(list.chunkCount, 3u);
    EXPECT_EQ(list[1024], kUnset);
    EXPECT_EQ(list[2048], page(2));
}

TEST(NList, OtherElementsAndChunkSizesWorkAlike) {
    ServantsLibrary::TNList<std::uint16_t, 2> list;
    for (std::uint32_t i = 0; i < 100; ++i)
        list[i] = static_cast<std::uint16_t>(i);
    EXPECT_EQ(list[102], 0xFFFF);
    for (std::uint32_t i = 0; i < 100; ++i)
        EXPECT_EQ(list[i], i);
}

TEST(NList, ThreadsReachElementsOfPresentChunksTogether) {
    List list;
    list.grow(3);
    std::vector<std::thread> threads;
    std::atomic<int> wrong{0};
    for (std::uintptr_t t = 0; t < 4; ++t)
        threads.emplace_back([&, t] {
            for (std::uint32_t i = 0; i < 1000; ++i) {
                list[static_cast<std::uint32_t>(t * 1024 + i)] = page(i);
                if (list.length() == 0 || list[static_cast<std::uint32_t>(t * 1024 + i)] != page(i))
                    ++wrong;
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(wrong, 0);
}

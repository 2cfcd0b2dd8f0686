#include "platform/memory.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <vector>

#include "support/scopedCalls.h"

namespace {

using Allocator = platform::LargeTableAllocator<std::uint64_t>;
using Vector = std::vector<std::uint64_t, Allocator>;

std::size_t asked = 0;

} // namespace

TEST(LargeTable, SmallBlocksComeFromTheHeap) {
    const ScopedCalls scope;
    platform::calls.allocateLarge = [](std::size_t) -> void* {
        ADD_FAILURE();
        return nullptr;
    };
    Vector small(1000, 7);
    EXPECT_EQ(small.back(), 7u);
}

TEST(LargeTable, LargeBlocksGrowAndKeepTheirContents) {
    Vector large;
    for (std::uint64_t i = 0; i < 1000000; ++i)
        large.push_back(i);
    for (std::uint64_t i = 0; i < 1000000; i += 99991)
        EXPECT_EQ(large[i], i);
    const Vector copy = large;
    EXPECT_EQ(copy, large);
}

TEST(LargeTable, RefusedBlockRaises) {
    const ScopedCalls scope;
    platform::calls.allocateLarge = [](std::size_t size) -> void* {
        asked = size;
        return nullptr;
    };
    EXPECT_THROW(Vector(Allocator::kLarge / 8), std::bad_alloc);
    EXPECT_EQ(asked, Allocator::kLarge);
}

TEST(LargeTable, CountPastTheAddressSpaceRaises) {
    EXPECT_THROW(Allocator().allocate(std::numeric_limits<std::size_t>::max() / 4),
                 std::bad_array_new_length);
}

TEST(LargeTable, SystemRefusesWhatItCannotHave) {
    EXPECT_EQ(platform::calls.allocateLarge(std::numeric_limits<std::size_t>::max() - 100),
              nullptr);
}

#include "platform/threadBlock.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <set>
#include <thread>
#include <vector>

#include "platform/error.h"

namespace {

bool isZero(const void* block) {
    const auto* bytes = static_cast<const unsigned char*>(block);
    return std::all_of(bytes, bytes + platform::kThreadBlockSize, [](int b) { return b == 0; });
}

} // namespace

TEST(ThreadBlock, IsZeroAtTheStartOfEveryThread) {
    std::memset(platform::threadBlock(), 0x5A, platform::kThreadBlockSize);
    for (int i = 0; i < 50; ++i) {
        bool zero = false;
        std::thread([&zero] {
            zero = isZero(platform::threadBlock());
            // What this thread leaves must not reach a later one that gets the same memory.
            std::memset(platform::threadBlock(), 0xA5, platform::kThreadBlockSize);
        }).join();
        EXPECT_TRUE(zero) << i;
    }
    EXPECT_EQ(*static_cast<const unsigned char*>(platform::threadBlock()), 0x5A);
}

TEST(ThreadBlock, StaysTheSameForItsThread) {
    void* mine = platform::threadBlock();
    EXPECT_EQ(platform::threadBlock(), mine);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(mine) % alignof(std::max_align_t), 0u);
}

TEST(ThreadBlock, ThreadsThatLiveAtOnceHaveTheirOwn) {
    std::vector<void*> blocks(8);
    std::vector<std::thread> threads;
    std::atomic<int> ready{0};
    for (void*& block : blocks)
        threads.emplace_back([&] {
            block = platform::threadBlock();
            for (++ready; ready < 8;)
                std::this_thread::yield();
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(std::set<void*>(blocks.begin(), blocks.end()).size(), 8u);
}

TEST(ThreadBlock, AccessKeepsTheLastError) {
    std::uint32_t code = 0;
    std::thread([&code] {
        platform::setLastError(5);
        platform::threadBlock();
        code = platform::lastError();
    }).join();
    EXPECT_EQ(code, 5u);
}

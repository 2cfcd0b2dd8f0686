#include "platform/threadBlock.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <set>
#include <string>
#include <thread>
#include <utility>
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
    std::memset(platform::threadBlock(), 0, platform::kThreadBlockSize);
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

// ---- the end of a thread ----

TEST(ThreadEnd, HookGetsTheBlockOfItsThreadOnce) {
    static std::atomic<int> calls;
    static void* given;
    static unsigned char first;
    calls = 0;
    void* block = nullptr;
    std::thread([&block] {
        block = platform::threadBlock();
        std::memset(block, 0x77, platform::kThreadBlockSize);
        platform::callAtThreadEnd([](void* ofThread) {
            given = ofThread;
            first = *static_cast<const unsigned char*>(ofThread);
            ++calls;
        });
        EXPECT_EQ(calls, 0);
    }).join();
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(given, block);
    EXPECT_EQ(first, 0x77); // what it held is still there
}

TEST(ThreadEnd, HookStillReachesTheBlockByItsCall) {
    static std::atomic<bool> same;
    same = false;
    std::thread([] {
        platform::callAtThreadEnd(
            [](void* ofThread) { same = platform::threadBlock() == ofThread; });
    }).join();
    EXPECT_TRUE(same);
}

namespace {

std::string* ended = nullptr;

template <char letter>
void note(void*) {
    *ended += letter;
}

// The letters of the hooks that ran at the end of a thread which entered them.
template <class Enter>
std::string hooksOf(Enter enter) {
    std::string letters;
    ended = &letters;
    std::thread(enter).join();
    return letters;
}

template <int... Numbers>
std::vector<bool> enterMany(std::integer_sequence<int, Numbers...>) {
    return {platform::callAtThreadEnd(note<static_cast<char>('a' + Numbers)>)...};
}

} // namespace

TEST(ThreadEnd, LaterHooksRunFirst) {
    EXPECT_EQ(hooksOf([] {
                  platform::callAtThreadEnd(note<'a'>);
                  platform::callAtThreadEnd(note<'b'>);
                  platform::callAtThreadEnd(note<'c'>);
              }),
              "cba");
}

TEST(ThreadEnd, HookThatIsThereKeepsItsPlaceAndRunsOnce) {
    EXPECT_EQ(hooksOf([] {
                  EXPECT_TRUE(platform::callAtThreadEnd(note<'a'>));
                  EXPECT_TRUE(platform::callAtThreadEnd(note<'b'>));
                  EXPECT_TRUE(platform::callAtThreadEnd(note<'a'>));
              }),
              "ba");
}

TEST(ThreadEnd, HookPastTheLastPlaceIsRefused) {
    std::vector<bool> taken;
    EXPECT_EQ(hooksOf([&taken] {
                  taken = enterMany(std::make_integer_sequence<int, 9>());
                  EXPECT_TRUE(platform::callAtThreadEnd(note<'a'>));
              }),
              "hgfedcba");
    EXPECT_EQ(taken, std::vector<bool>({true, true, true, true, true, true, true, true, false}));
}

TEST(ThreadEnd, HookThatIsEnteredByAHookRuns) {
    EXPECT_EQ(hooksOf([] {
                  platform::callAtThreadEnd(note<'a'>);
                  platform::callAtThreadEnd([](void*) { platform::callAtThreadEnd(note<'z'>); });
              }),
              "za");
}

TEST(ThreadEnd, HookBelongsToItsThreadAlone) {
    static std::atomic<int> calls;
    calls = 0;
    std::atomic<bool> ends{false};
    std::thread stays([&ends] {
        platform::callAtThreadEnd([](void*) { ++calls; });
        while (!ends)
            std::this_thread::yield();
    });
    std::thread([] { platform::threadBlock(); }).join();
    std::thread([] {}).join();
    EXPECT_EQ(calls, 0);
    ends = true;
    stays.join();
    EXPECT_EQ(calls, 1);
}

TEST(ThreadEnd, ManyThreadsEndWithTheirOwnBlocks) {
    static std::atomic<int> sum;
    sum = 0;
    std::vector<std::thread> threads;
    for (int i = 1; i <= 100; ++i)
        threads.emplace_back([i] {
            *static_cast<int*>(platform::threadBlock()) = i;
            platform::callAtThreadEnd([](void* block) { sum += *static_cast<int*>(block); });
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(sum, 5050);
}

TEST(ThreadEnd, CallKeepsTheLastError) {
    std::uint32_t code = 0;
    std::thread([&code] {
        platform::setLastError(5);
        platform::callAtThreadEnd([](void*) {});
        code = platform::lastError();
    }).join();
    EXPECT_EQ(code, 5u);
}

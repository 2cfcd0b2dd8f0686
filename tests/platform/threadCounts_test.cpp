#include "platform/threadCounts.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

using platform::raiseThreadCount;
using platform::sumOfThreadCounts;
using platform::ThreadCount;

namespace {

void raise(ThreadCount count, int times) {
    for (int i = 0; i < times; ++i)
        raiseThreadCount(count);
}

// What the body adds to the three sums.
template <class Body>
std::vector<std::uint32_t> added(Body body) {
    const std::uint32_t before[] = {sumOfThreadCounts(ThreadCount::allocations),
                                    sumOfThreadCounts(ThreadCount::releases),
                                    sumOfThreadCounts(ThreadCount::reallocations)};
    body();
    return {sumOfThreadCounts(ThreadCount::allocations) - before[0],
            sumOfThreadCounts(ThreadCount::releases) - before[1],
            sumOfThreadCounts(ThreadCount::reallocations) - before[2]};
}

using Sums = std::vector<std::uint32_t>;

} // namespace

TEST(ThreadCounts, CountersAreApart) {
    EXPECT_EQ(added([] {
                  raise(ThreadCount::allocations, 3);
                  raise(ThreadCount::releases, 2);
                  raise(ThreadCount::reallocations, 1);
              }),
              (Sums{3, 2, 1}));
}

TEST(ThreadCounts, WhatEndedThreadsCountedStays) {
    EXPECT_EQ(added([] {
                  for (int i = 0; i < 1000; ++i)
                      std::thread([] { raise(ThreadCount::releases, 7); }).join();
              }),
              (Sums{0, 7000, 0}));
}

TEST(ThreadCounts, CallThatHasReturnedIsInTheSumOfAnotherThread) {
    std::atomic<int> done{0};
    std::atomic<bool> go{true};
    const std::uint32_t before = sumOfThreadCounts(ThreadCount::allocations);
    std::thread counter([&] {
        while (go) {
            raiseThreadCount(ThreadCount::allocations);
            done.fetch_add(1, std::memory_order_release);
        }
    });
    for (int i = 0; i < 10'000; ++i) {
        const auto known = static_cast<std::uint32_t>(done.load(std::memory_order_acquire));
        EXPECT_GE(sumOfThreadCounts(ThreadCount::allocations) - before, known);
    }
    go = false;
    counter.join();
    EXPECT_EQ(sumOfThreadCounts(ThreadCount::allocations) - before,
              static_cast<std::uint32_t>(done.load()));
}

// More threads than there are lines: some share one.
TEST(ThreadCounts, NothingIsLostWhereThreadsShareALine) {
    constexpr int kThreads = 300;
    constexpr int kTimes = 2000;
    EXPECT_EQ(added([] {
                  std::atomic<int> ready{0};
                  std::vector<std::thread> threads;
                  for (int i = 0; i < kThreads; ++i)
                      threads.emplace_back([&ready] {
                          raiseThreadCount(ThreadCount::allocations);
                          for (++ready; ready < kThreads;)
                              std::this_thread::yield();
                          raise(ThreadCount::allocations, kTimes);
                      });
                  for (std::thread& thread : threads)
                      thread.join();
              }),
              (Sums{kThreads * (kTimes + 1), 0, 0}));
}

// Where threads have lines of their own at all.
TEST(ThreadCounts, LinesOfEndedThreadsServeLaterOnes) {
    const auto hasOwnLine = [] {
        bool own = false;
        std::thread([&own] {
            raiseThreadCount(ThreadCount::releases);
            own = platform::raiseOwnCount(ThreadCount::releases);
        }).join();
        return own;
    };
    const bool first = hasOwnLine();
    for (int i = 0; i < 600; ++i)
        EXPECT_EQ(hasOwnLine(), first) << i;
}

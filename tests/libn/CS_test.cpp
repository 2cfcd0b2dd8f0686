#include "libn/CS.h"

#include <gtest/gtest.h>

#include <mutex>
#include <thread>
#include <type_traits>
#include <vector>

using libn::CS;

static_assert(std::is_base_of_v<libn::Exclusive, CS>);
static_assert(std::is_base_of_v<libn::Noncopyable, CS>);
static_assert(!std::is_copy_constructible_v<CS> && !std::is_copy_assignable_v<CS>);
// The table of virtual operations and the owning pointer.
static_assert(sizeof(CS) == 2 * sizeof(void*));

TEST(CS, KeepsOtherThreadsOut) {
    CS lock;
    int sum = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([&] {
            for (int n = 0; n < 10'000; ++n) {
                const std::lock_guard guard(lock);
                ++sum;
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(sum, 40'000);
}

TEST(CS, SameThreadMayTakeItAgainAndGivesItBackAsOften) {
    CS lock;
    libn::Exclusive& exclusive = lock;
    exclusive.lock();
    exclusive.lock();
    exclusive.unlock();
    bool entered = false;
    std::thread other([&] {
        const std::lock_guard guard(lock);
        entered = true;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_FALSE(entered); // read under the lock that is still held once
    exclusive.unlock();
    other.join();
    EXPECT_TRUE(entered);
}

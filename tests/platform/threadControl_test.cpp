// Stopping, looking at and ending another thread.

#include "platform/threadControl.h"

#include <gtest/gtest.h>

#include <condition_variable>
#include <cstdint>
#include <cstdlib>
#include <mutex>
#include <vector>

#include "platform/error.h"
#include "platform/library.h"
#include "platform/thread.h"
#include "support/victim.h"

using platform::threadCalls;

namespace {

std::uint32_t exitCode(const Victim& victim) {
    std::uint32_t code = 0xDEAD;
    EXPECT_TRUE(threadCalls.exitCodeOf(victim.handle(), &code));
    return code;
}

// Ends it and waits until the system knows.
void end(const Victim& victim, std::uint32_t code) {
    ASSERT_NE(threadCalls.terminate(victim.handle(), code), 0) << platform::lastError();
    victim.awaitEnd();
}

std::atomic<bool> spinning{false};
std::atomic<std::uintptr_t> stackOfSpin{0};

__attribute__((noinline)) void spin() {
    stackOfSpin.store(reinterpret_cast<std::uintptr_t>(__builtin_frame_address(0)));
    spinning.store(true);
    while (spinning.load(std::memory_order_relaxed)) {
    }
}

} // namespace

TEST(ThreadControl, IdOfAThreadIsItsOwn) {
    Counting counting;
    Victim victim([&] { counting(); });
    EXPECT_EQ(threadCalls.threadIdOf(victim.handle()), victim.id());
    EXPECT_EQ(threadCalls.threadIdOf(platform::currentThread()), platform::threadId());
    counting.stop();
    victim.join();
}

TEST(ThreadControl, IdIsFoundByTheNameOfTheSystemsFunction) {
    const auto kernel = platform::libraryCalls.load("kernel32.dll");
    ASSERT_NE(kernel, nullptr);
    const auto idOf = reinterpret_cast<std::uint32_t (*)(platform::ThreadHandle)>(
        platform::libraryCalls.symbol(kernel, "GetThreadId"));
    ASSERT_NE(idOf, nullptr);
    EXPECT_EQ(idOf(platform::currentThread()), platform::threadId());
    platform::libraryCalls.release(kernel);
}

TEST(ThreadControl, SuspendsCount) {
    SKIP_WHERE_NO_THREAD_STOPS();
    Counting counting;
    Victim victim([&] { counting(); });
    EXPECT_TRUE(counting.goesOn());
    EXPECT_EQ(threadCalls.suspend(victim.handle()), 0U);
    EXPECT_TRUE(counting.standsStill());
    EXPECT_EQ(threadCalls.suspend(victim.handle()), 1U);
    EXPECT_EQ(threadCalls.resume(victim.handle()), 2U);
    EXPECT_TRUE(counting.standsStill());
    EXPECT_EQ(threadCalls.resume(victim.handle()), 1U);
    EXPECT_TRUE(counting.goesOn());
    EXPECT_EQ(threadCalls.resume(victim.handle()), 0U) << "it was not suspended";
    EXPECT_EQ(threadCalls.suspend(victim.handle()), 0U) << "that did not count";
    EXPECT_EQ(threadCalls.resume(victim.handle()), 1U);
    counting.stop();
    victim.join();
}

TEST(ThreadControl, CountHasALimit) {
    SKIP_WHERE_NO_THREAD_STOPS();
    Victim victim(hang);
    for (std::uint32_t count = 0; count < 127; ++count)
        ASSERT_EQ(threadCalls.suspend(victim.handle()), count);
    EXPECT_EQ(threadCalls.suspend(victim.handle()), platform::kSuspendFailed);
    EXPECT_NE(platform::lastError(), 0U);
    EXPECT_EQ(threadCalls.resume(victim.handle()), 127U);
}

TEST(ThreadControl, SuspendedThreadStopsAtEachOfAThousandTries) {
    SKIP_WHERE_NO_THREAD_STOPS();
    Counting counting;
    Victim victim([&] { counting(); });
    platform::ThreadContext context = {};
    for (int tries = 0; tries < 1000; ++tries) {
        ASSERT_EQ(threadCalls.suspend(victim.handle()), 0U) << tries;
        ASSERT_TRUE(threadCalls.contextOf(victim.handle(), platform::kContextOfWalk, &context));
        ASSERT_EQ(threadCalls.resume(victim.handle()), 1U);
    }
    EXPECT_TRUE(counting.goesOn());
    counting.stop();
    victim.join();
}

TEST(ThreadControl, ThreadsMaySuspendOneAndTheSameThread) {
    SKIP_WHERE_NO_THREAD_STOPS();
    Counting counting;
    Victim victim([&] { counting(); });
    std::vector<std::thread> others;
    for (int number = 0; number < 3; ++number)
        others.emplace_back([&] {
            for (int tries = 0; tries < 300; ++tries) {
                EXPECT_NE(threadCalls.suspend(victim.handle()), platform::kSuspendFailed);
                EXPECT_NE(threadCalls.resume(victim.handle()), 0U);
            }
        });
    for (std::thread& other : others)
        other.join();
    EXPECT_TRUE(counting.goesOn());
    counting.stop();
    victim.join();
}

TEST(ThreadControl, ThreadThatSuspendsItselfGoesOnWhenAnotherResumesIt) {
    SKIP_WHERE_NO_THREAD_STOPS();
    std::atomic<int> step{0};
    std::uint32_t former = 77;
    Victim victim([&] {
        step.store(1);
        former = threadCalls.suspend(platform::currentThread());
        step.store(2);
    });
    waitWhile(step, 0);
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_EQ(step.load(), 1);
    EXPECT_EQ(resumeOnceSuspended(victim), 1U);
    waitWhile(step, 1);
    EXPECT_EQ(former, 0U);
    victim.join();
}

TEST(ThreadControl, ContextOfASuspendedThreadIsWhereItStands) {
    SKIP_WHERE_NO_THREAD_STOPS();
    Victim victim(spin);
    waitWhile(spinning, false);
    ASSERT_EQ(threadCalls.suspend(victim.handle()), 0U);
    platform::ThreadContext context = {};
    ASSERT_TRUE(threadCalls.contextOf(victim.handle(), platform::kContextOfWalk, &context));
    const std::uintptr_t code = platform::instructionPointer(context);
    const auto start = reinterpret_cast<std::uintptr_t>(&spin);
    EXPECT_GE(code, start);
    EXPECT_LT(code, start + 1024);
    const std::uintptr_t stack = platform::stackPointer(context);
    const std::uintptr_t local = stackOfSpin.load();
    EXPECT_LE(local - stack + 1024, 4096U) << std::hex << local << ' ' << stack;
    EXPECT_EQ(threadCalls.resume(victim.handle()), 1U);
    spinning.store(false);
    victim.join();
}

TEST(ThreadControl, OwnContextIsInTheCallersStack) {
    const auto here = reinterpret_cast<std::uintptr_t>(__builtin_frame_address(0));
    platform::ThreadContext context = {};
    ASSERT_TRUE(
        threadCalls.contextOf(platform::currentThread(), platform::kContextOfReport, &context));
    const std::uintptr_t stack = platform::stackPointer(context);
    EXPECT_LE(here - stack + 65536, 131072U);
    EXPECT_NE(platform::instructionPointer(context), 0U);
}

TEST(ThreadControl, BusyThreadEndsWithItsCode) {
    SKIP_WHERE_NO_THREAD_STOPS();
    Counting counting;
    Victim victim([&] { counting(); });
    EXPECT_EQ(exitCode(victim), platform::kStillActive);
    end(victim, 0xFFFFFF01);
    EXPECT_EQ(exitCode(victim), 0xFFFFFF01U);
    EXPECT_TRUE(counting.standsStill());
    victim.join();
}

TEST(ThreadControl, WaitingThreadEnds) {
    SKIP_WHERE_NO_THREAD_STOPS();
    // Never destroyed: that would wait for the thread that still waits.
    static auto& lock = *new std::mutex;
    static auto& never = *new std::condition_variable;
    Victim victim([] {
        std::unique_lock guard(lock);
        never.wait(guard, [] { return false; });
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
    end(victim, 5);
    EXPECT_EQ(exitCode(victim), 5U);
    victim.join();
}

TEST(ThreadControl, SuspendedThreadEndsAsItStands) {
    SKIP_WHERE_NO_THREAD_STOPS();
    Counting counting;
    bool destroyed = false;
    struct Local {
        bool& told;
        ~Local() { told = true; }
    };
    Victim victim([&] {
        const Local local = {destroyed};
        counting();
    });
    ASSERT_EQ(threadCalls.suspend(victim.handle()), 0U);
    end(victim, 6);
    EXPECT_EQ(exitCode(victim), 6U);
    victim.join();
    EXPECT_FALSE(destroyed);
}

TEST(ThreadControl, WhatAThreadHeldStaysHeld) {
    SKIP_WHERE_NO_THREAD_STOPS();
    static std::mutex lock; // stays locked, so it must not be destroyed
    std::atomic<bool> held{false};
    Victim victim([&] {
        lock.lock();
        held.store(true);
        hang();
    });
    waitWhile(held, false);
    end(victim, 0);
    victim.join();
    EXPECT_FALSE(lock.try_lock());
}

TEST(ThreadControl, ThreadThatEndedByItselfHasTheCodeNought) {
    Victim victim([] {});
    victim.awaitEnd();
    EXPECT_EQ(exitCode(victim), 0U);
    EXPECT_EQ(threadCalls.suspend(victim.handle()), platform::kSuspendFailed);
    EXPECT_NE(platform::lastError(), 0U);
    victim.join();
}

TEST(ThreadControl, NoThreadAtAllFailsEachCall) {
    std::uint32_t code = 0;
    platform::ThreadContext context = {};
    for (int call = 0; call < 7; ++call) {
        platform::setLastError(0);
        switch (call) {
            case 0:
                EXPECT_EQ(threadCalls.threadIdOf(nullptr), 0U);
                break;
            case 1:
                EXPECT_FALSE(threadCalls.exitCodeOf(nullptr, &code));
                break;
            case 2:
                EXPECT_EQ(threadCalls.suspend(nullptr), platform::kSuspendFailed);
                break;
            case 3:
                EXPECT_EQ(threadCalls.resume(nullptr), platform::kSuspendFailed);
                break;
            case 4:
                EXPECT_FALSE(threadCalls.contextOf(nullptr, platform::kContextOfWalk, &context));
                break;
            case 5:
                EXPECT_EQ(threadCalls.terminate(nullptr, 1), 0);
                break;
            default:
                EXPECT_FALSE(threadCalls.close(nullptr));
        }
        EXPECT_NE(platform::lastError(), 0U) << call;
    }
}

TEST(ThreadControlDeathTest, ProcessEndsWhileThreadsAreSuspended) {
    SKIP_WHERE_NO_THREAD_STOPS();
    EXPECT_EXIT(
        {
            auto* victim = new Victim(hang);
            const bool stopped = threadCalls.suspend(victim->handle()) == 0;
            std::exit(stopped ? 11 : 1);
        },
        testing::ExitedWithCode(11), "");
}

// A thread that is stopped inside the heap's functions does not stay there.

#include <gtest/gtest.h>

#ifndef _WIN32

#  include <dlfcn.h>
#  include <malloc.h>

#  include <atomic>
#  include <cstdlib>
#  include <utility>

#  include "../../platform/posix/runTimeLocks.h"
#  include "diagnostics/StackWalker.h"
#  include "diagnostics/stackFixture.h"
#  include "platform/thread.h"
#  include "support/victim.h"

namespace {

// What a thread does outside the heap, for some microseconds: one that was in there alone might be
// found there each time that it is let out.
void stayOutside() {
    for (volatile int i = 0; i < 5000;)
        i = i + 1;
}

} // namespace

// Of a stack, the return addresses alone count, up to the thread's descriptor.
TEST(RunTimeLocks, ReturnIntoTheHeapOnTheStackCounts) {
    std::uint64_t stack[1100] = {};
    ucontext_t context = {};
    context.uc_mcontext.gregs[REG_RSP] =
        static_cast<greg_t>(reinterpret_cast<std::uintptr_t>(stack));
    const auto mayHold = [&](std::size_t words) {
        return platform::mayHoldRunTimeLock(context,
                                            reinterpret_cast<std::uintptr_t>(stack + words));
    };
    const auto begin = reinterpret_cast<std::uint64_t>(::dlsym(RTLD_DEFAULT, "malloc"));
    ASSERT_NE(begin, 0u);
    EXPECT_FALSE(mayHold(1100));
    stack[7] = begin; // a pointer to the function
    EXPECT_FALSE(mayHold(1100));
    stack[7] = begin + 5;
    EXPECT_TRUE(mayHold(1100));
    EXPECT_TRUE(mayHold(8));
    EXPECT_FALSE(mayHold(7));
    EXPECT_FALSE(mayHold(0));
    stack[1023] = std::exchange(stack[7], 0);
    EXPECT_TRUE(mayHold(1100));
    stack[1024] = std::exchange(stack[1023], 0);
    EXPECT_FALSE(mayHold(1100));
    context.uc_mcontext.gregs[REG_RIP] = static_cast<greg_t>(begin);
    EXPECT_TRUE(mayHold(0));
}

// A main thread's descriptor lies elsewhere: the whole 8 KB are the stack's.
TEST(RunTimeLocks, DescriptorBelowTheStackIsNoEnd) {
    std::uint64_t stack[16] = {};
    ucontext_t context = {};
    context.uc_mcontext.gregs[REG_RSP] =
        static_cast<greg_t>(reinterpret_cast<std::uintptr_t>(stack));
    stack[3] = reinterpret_cast<std::uint64_t>(::dlsym(RTLD_DEFAULT, "free")) + 5;
    EXPECT_TRUE(platform::mayHoldRunTimeLock(context, 4096));
}

// Where the thread would stay stopped that holds such a lock, a test that looks hangs.
TEST(RunTimeLocks, ThreadIsNotStoppedInsideTheHeap) {
    SKIP_WHERE_NO_THREAD_STOPS();
    std::atomic<bool> stop{false};
    Victim victim([&] {
        for (std::size_t size = 2000; !stop.load(); size = size * 5 % 300'007 + 1) {
            void* volatile block = std::malloc(size);
            std::free(block);
            stayOutside();
        }
    });
    int inside = 0;
    for (int i = 0; i < 300; ++i) {
        ASSERT_EQ(platform::threadCalls.suspend(victim.handle()), 0u);
        platform::ThreadContext context = {};
        platform::threadCalls.contextOf(victim.handle(), platform::kContextOfWalk, &context);
        inside += platform::mayHoldRunTimeLock(reinterpret_cast<ucontext_t&>(context),
                                               reinterpret_cast<std::uintptr_t>(victim.handle()));
        platform::threadCalls.resume(victim.handle());
        platform::yieldThread();
    }
    stop.store(true);
    victim.join();
    EXPECT_EQ(inside, 0);
}

TEST(RunTimeLocks, ThreadThatAllocatesIsReportedWithASingleHeap) {
    SKIP_WHERE_NO_THREAD_STOPS();
#  ifdef VDREADER_SANITIZED
    GTEST_SKIP() << "a sanitizer's heap holds its locks for longer than a thread is let out";
#  endif
    ::mallopt(M_ARENA_MAX, 1); // all threads take from one heap, as small hosts have it
    std::atomic<bool> stop{false};
    Victim victim([&] {
        for (std::size_t size = 64; !stop.load(); size = size * 5 % 300'007 + 1) {
            void* volatile block = std::malloc(size);
            std::free(block);
            stayOutside();
        }
    });
    for (int i = 0; i < 10; ++i) {
        const auto output = std::make_shared<RecordingOutput>();
        velt::callstack::StackWalker walker(platform::processId(),
                                            platform::debugCalls.currentProcess());
        walker.setOutput(output);
        EXPECT_TRUE(walker.walk(nullptr, victim.handle()));
        EXPECT_GT(output->lines.size(), 5u);
    }
    stop.store(true);
    victim.join();
}

#endif

// Stopping and ending threads on Linux whatever they do with their signals, and what is left.

#include <gtest/gtest.h>

#ifndef _WIN32

#  include <signal.h>
#  include <sys/resource.h>
#  include <sys/wait.h>
#  include <unistd.h>
#  include <cerrno>
#  include <fstream>

#  include "platform/error.h"
#  include "platform/thread.h"
#  include "platform/threadControl.h"
#  include "support/victim.h"

using platform::threadCalls;

namespace {

sigset_t allSignals() {
    sigset_t all;
    sigfillset(&all);
    return all;
}

sigset_t ownMask() {
    sigset_t mask;
    pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    return mask;
}

// The real-time signals that a mask lets through.
int openRealTimeSignals(const sigset_t& mask) {
    int open = 0;
    for (int signal = SIGRTMIN; signal <= SIGRTMAX; ++signal)
        open += sigismember(&mask, signal) == 0;
    return open;
}

long virtualPages() {
    long pages = 0;
    std::ifstream("/proc/self/statm") >> pages;
    EXPECT_GT(pages, 0);
    return pages;
}

class ThreadSignals : public testing::Test {
  protected:
    void SetUp() override { SKIP_WHERE_NO_THREAD_STOPS(); }
};

} // namespace

TEST_F(ThreadSignals, ThreadThatBlocksAllIsSuspendedAndBlocksAllAgain) {
    std::atomic<int> step{0};
    int open = -1;
    Victim victim([&] {
        const sigset_t all = allSignals();
        pthread_sigmask(SIG_SETMASK, &all, nullptr);
        step.store(1);
        while (step.load() == 1) {
        }
        open = openRealTimeSignals(ownMask());
        step.store(3);
        while (step.load() == 3) {
        }
    });
    waitWhile(step, 0);
    ASSERT_EQ(threadCalls.suspend(victim.handle()), 0U) << platform::lastError();
    platform::ThreadContext context = {};
    EXPECT_TRUE(threadCalls.contextOf(victim.handle(), platform::kContextOfWalk, &context));
    EXPECT_EQ(threadCalls.resume(victim.handle()), 1U);
    step.store(2);
    waitWhile(step, 2);
    EXPECT_EQ(open, 0);
    ASSERT_EQ(threadCalls.suspend(victim.handle()), 0U) << "once more";
    EXPECT_EQ(threadCalls.resume(victim.handle()), 1U);
    step.store(4);
    victim.join();
}

TEST_F(ThreadSignals, ThreadThatBlocksAllEnds) {
    for (const bool sleeps : {false, true}) {
        std::atomic<bool> blocked{false};
        Victim victim([&] {
            const sigset_t all = allSignals();
            pthread_sigmask(SIG_SETMASK, &all, nullptr);
            blocked.store(true);
            if (sleeps)
                hang();
            for (;;) {
            }
        });
        waitWhile(blocked, false);
        EXPECT_EQ(threadCalls.terminate(victim.handle(), 8), 1) << platform::lastError();
        std::uint32_t code = 0;
        EXPECT_TRUE(threadCalls.exitCodeOf(victim.handle(), &code));
        EXPECT_EQ(code, 8U);
        victim.join();
    }
}

TEST_F(ThreadSignals, ThreadThatAwaitsAllSignalsIsNotGivenThisOne) {
    std::atomic<bool> waits{false};
    std::atomic<int> got{0};
    Victim victim([&] {
        const sigset_t all = allSignals();
        pthread_sigmask(SIG_SETMASK, &all, nullptr);
        waits.store(true);
        int signal = 0;
        sigwait(&all, &signal);
        got.store(signal);
    });
    waitWhile(waits, false);
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    ASSERT_EQ(threadCalls.suspend(victim.handle()), 0U) << platform::lastError();
    EXPECT_EQ(threadCalls.resume(victim.handle()), 1U);
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_EQ(got.load(), 0);
    pthread_kill(reinterpret_cast<pthread_t>(victim.handle()), SIGUSR1);
    waitWhile(got, 0);
    EXPECT_EQ(got.load(), SIGUSR1);
    victim.join();
}

TEST_F(ThreadSignals, ReadGoesOnWhereItWasStopped) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    ssize_t got = -7;
    Victim victim([&] {
        char byte = 0;
        got = read(ends[0], &byte, 1);
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_EQ(threadCalls.suspend(victim.handle()), 0U);
    EXPECT_EQ(threadCalls.resume(victim.handle()), 1U);
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_EQ(write(ends[1], "x", 1), 1);
    victim.join();
    EXPECT_EQ(got, 1);
    close(ends[0]);
    close(ends[1]);
}

TEST_F(ThreadSignals, HandlerOfTheHostKeepsItsSignal) {
    static std::atomic<int> taken{0};
    taken.store(0);
    struct sigaction host = {};
    host.sa_handler = [](int) { taken.fetch_add(1); };
    struct sigaction former[2] = {};
    for (const int number : {0, 1})
        ASSERT_EQ(sigaction(SIGRTMAX - 3 - number, &host, &former[number]), 0);
    Counting counting;
    Victim victim([&] { counting(); });
    EXPECT_EQ(threadCalls.suspend(victim.handle()), 0U);
    EXPECT_TRUE(counting.standsStill());
    EXPECT_EQ(threadCalls.terminate(victim.handle(), 1), 1);
    victim.join();
    EXPECT_EQ(taken.load(), 0);
    raise(SIGRTMAX - 3);
    EXPECT_EQ(taken.load(), 1);
    for (const int number : {0, 1})
        sigaction(SIGRTMAX - 3 - number, &former[number], nullptr);
}

TEST_F(ThreadSignals, StraySignalOfThatKindChangesNothing) {
    Victim first(hang);
    ASSERT_EQ(threadCalls.suspend(first.handle()), 0U); // the handler is in place from here on
    std::atomic<int> step{0};
    Victim victim([&] {
        for (int signal = SIGRTMAX - 3; signal >= SIGRTMAX - 3; --signal)
            raise(signal);
        step.store(1);
    });
    victim.join();
    EXPECT_EQ(step.load(), 1);
}

TEST_F(ThreadSignals, ThreadOfTheLibraryLetsItsSignalThrough) {
    sigset_t mask;
    {
        const platform::SignalsKeptOff keptOff;
        mask = ownMask();
    }
    EXPECT_EQ(openRealTimeSignals(mask), 1);
    EXPECT_EQ(sigismember(&mask, SIGRTMAX - 3), 0);
    EXPECT_EQ(sigismember(&mask, SIGTERM), 1);
}

TEST_F(ThreadSignals, RunningThreadHasNoContext) {
    Victim victim(hang);
    platform::ThreadContext context = {};
    EXPECT_FALSE(threadCalls.contextOf(victim.handle(), platform::kContextOfWalk, &context));
    EXPECT_EQ(platform::lastError(), static_cast<std::uint32_t>(EBUSY));
}

TEST_F(ThreadSignals, ThreeHundredEndsLeaveNoMemory) {
#  ifdef VDREADER_SANITIZED
    GTEST_SKIP() << "a sanitizer keeps memory of its own for threads that end this way";
#  endif
    const auto endOne = [] {
        Victim victim(hang);
        ASSERT_EQ(threadCalls.terminate(victim.handle(), 1), 1);
        victim.join();
    };
    for (int warm = 0; warm < 20; ++warm)
        endOne();
    const long former = virtualPages();
    for (int count = 0; count < 300; ++count)
        endOne();
    EXPECT_LT(virtualPages() - former, 20000) << "their stacks alone would be 600000 pages";
}

TEST_F(ThreadSignals, ClosingAnEndedThreadReleasesIt) {
#  ifdef VDREADER_SANITIZED
    GTEST_SKIP() << "a sanitizer keeps memory of its own for threads that end this way";
#  endif
    const auto endOne = [] {
        Victim victim(hang);
        ASSERT_EQ(threadCalls.terminate(victim.handle(), 1), 1);
        ASSERT_TRUE(threadCalls.close(victim.handle()));
        victim.forget();
    };
    for (int warm = 0; warm < 20; ++warm)
        endOne();
    const long former = virtualPages();
    for (int count = 0; count < 50; ++count)
        endOne();
    EXPECT_LT(virtualPages() - former, 20000) << "their stacks alone would be 100000 pages";
}

TEST_F(ThreadSignals, ClosingARunningThreadLetsItRun) {
    std::atomic<int> step{0};
    Victim victim([&] {
        waitWhile(step, 0);
        step.store(2);
    });
    EXPECT_TRUE(threadCalls.close(victim.handle()));
    EXPECT_FALSE(threadCalls.close(victim.handle())) << "it is nobody's";
    EXPECT_EQ(platform::lastError(), static_cast<std::uint32_t>(EINVAL));
    victim.forget();
    step.store(1);
    waitWhile(step, 1);
    EXPECT_EQ(step.load(), 2);
    std::this_thread::sleep_for(std::chrono::milliseconds(20)); // out of the objects of this test
}

TEST_F(ThreadSignals, NewThreadInThePlaceOfAnEndedOneHasNoCodeOfIts) {
    for (int tries = 0; tries < 5; ++tries) {
        {
            Victim ended(hang);
            ASSERT_EQ(threadCalls.terminate(ended.handle(), 9), 1);
            ended.join();
        }
        Victim next([] {});
        next.awaitEnd();
        std::uint32_t code = 1;
        EXPECT_TRUE(threadCalls.exitCodeOf(next.handle(), &code));
        EXPECT_EQ(code, 0U);
        next.join();
    }
}

TEST_F(ThreadSignals, NewThreadInThePlaceOfAnEndedOneHasNoValuesOfIts) {
    static int destroyed;
    destroyed = 0;
    pthread_key_t keys[40]; // more than stand in the thread's descriptor itself
    for (pthread_key_t& key : keys)
        ASSERT_EQ(pthread_key_create(&key, [](void*) { ++destroyed; }), 0);
    std::atomic<bool> set{false};
    {
        Victim ended([&] {
            for (const pthread_key_t key : keys)
                pthread_setspecific(key, &set);
            set.store(true);
            hang();
        });
        waitWhile(set, false);
        ASSERT_EQ(threadCalls.terminate(ended.handle(), 1), 1);
        ended.join();
    }
    int found = 0;
    Victim next([&] {
        for (const pthread_key_t key : keys)
            found += pthread_getspecific(key) != nullptr;
    });
    next.join();
    EXPECT_EQ(found, 0);
    EXPECT_EQ(destroyed, 0);
    for (const pthread_key_t key : keys)
        pthread_key_delete(key);
}

TEST_F(ThreadSignals, ThreadThatBlocksAllSuspendsItself) {
    std::atomic<int> step{0};
    int open = -1;
    Victim victim([&] {
        const sigset_t all = allSignals();
        pthread_sigmask(SIG_SETMASK, &all, nullptr);
        step.store(1);
        threadCalls.suspend(platform::currentThread());
        open = openRealTimeSignals(ownMask());
        step.store(2);
    });
    waitWhile(step, 0);
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_EQ(step.load(), 1);
    EXPECT_EQ(resumeOnceSuspended(victim), 1U);
    victim.join();
    EXPECT_EQ(open, 0);
}

TEST_F(ThreadSignals, LastErrorOfTheThreadIsKept) {
    std::atomic<bool> stop{false};
    std::atomic<bool> changed{false};
    Victim victim([&] {
        errno = 4711;
        while (!stop.load())
            if (errno != 4711)
                changed.store(true);
    });
    for (int tries = 0; tries < 3000; ++tries) {
        ASSERT_EQ(threadCalls.suspend(victim.handle()), 0U);
        ASSERT_EQ(threadCalls.resume(victim.handle()), 1U);
    }
    stop.store(true);
    victim.join();
    EXPECT_FALSE(changed.load());
}

// Without room for one more waiting signal nobody can be told.
TEST_F(ThreadSignals, ThreadThatCannotBeToldGoesOnAsItWas) {
    Counting counting;
    Victim victim([&] { counting(); });
    rlimit former = {};
    ASSERT_EQ(getrlimit(RLIMIT_SIGPENDING, &former), 0);
    const rlimit none = {0, former.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_SIGPENDING, &none), 0);
    EXPECT_EQ(threadCalls.suspend(victim.handle()), platform::kSuspendFailed);
    EXPECT_EQ(platform::lastError(), static_cast<std::uint32_t>(EAGAIN));
    EXPECT_EQ(threadCalls.terminate(victim.handle(), 9), 0);
    EXPECT_EQ(platform::lastError(), static_cast<std::uint32_t>(EAGAIN));
    ASSERT_EQ(setrlimit(RLIMIT_SIGPENDING, &former), 0);
    EXPECT_TRUE(counting.goesOn());
    EXPECT_EQ(threadCalls.suspend(victim.handle()), 0U) << "the failed one did not count";
    EXPECT_EQ(threadCalls.resume(victim.handle()), 1U);
    EXPECT_TRUE(counting.goesOn()) << "nor did the failed end";
    counting.stop();
    victim.awaitEnd();
    std::uint32_t code = 1;
    EXPECT_TRUE(threadCalls.exitCodeOf(victim.handle(), &code));
    EXPECT_EQ(code, 0U);
    victim.join();
}

TEST_F(ThreadSignals, ThreadThatForksWhileItIsToldToStopIsNotSuspendedInTheChild) {
    std::atomic<bool> stop{false};
    int bad = 0;
    Victim victim([&] {
        for (int round = 0; round < 300; ++round) {
            const pid_t child = fork();
            if (child == 0)
                _exit(threadCalls.resume(platform::currentThread()) == 0 ? 0 : 1);
            int status = -1;
            while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
            }
            bad += status != 0;
        }
        stop.store(true);
    });
    while (!stop.load())
        if (threadCalls.suspend(victim.handle()) == 0)
            threadCalls.resume(victim.handle());
    victim.join();
    EXPECT_EQ(bad, 0);
}

TEST_F(ThreadSignals, ChildOfAProcessWithSuspendedThreadsSuspendsItsOwn) {
    Victim victim(hang);
    ASSERT_EQ(threadCalls.suspend(victim.handle()), 0U);
    const pid_t child = fork();
    if (child == 0) {
        alarm(20);
        Counting counting;
        Victim own([&] { counting(); });
        const bool good = threadCalls.suspend(own.handle()) == 0 && counting.standsStill() &&
                          threadCalls.terminate(own.handle(), 2) == 1;
        _exit(good ? 0 : 1);
    }
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
}

#endif

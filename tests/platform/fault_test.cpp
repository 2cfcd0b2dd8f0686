// Translators: whose they are, what they see, and what is left when they have thrown.

#include "platform/fault.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <thread>
#include <vector>

#include "platform/context.h"
#include "platform/error.h"
#include "support/faults.h"

namespace {

void otherTranslator(unsigned int, sExceptionPointers*) {}

class Fault : public testing::Test {
  protected:
    ~Fault() override { platform::setTranslator(nullptr); }
};

[[gnu::noinline]] void faultBehindCleanups(int depth, int& cleanups) {
    const faults::Cleanup cleanup(cleanups);
    if (depth > 0)
        faultBehindCleanups(depth - 1, cleanups);
    else
        faults::writeNull();
}

// Needs some stack of its own.
struct LargeCleanup {
    ~LargeCleanup() {
        volatile char bytes[8192];
        bytes[0] = 1;
        faults::sink = bytes[0];
    }
};

[[gnu::noinline]] int overflowWithCleanups(int depth) {
    const LargeCleanup cleanup;
    return depth < faults::zero - 1 ? 0 : overflowWithCleanups(depth + 1) + 1;
}

// The compiler takes the inner call for one that cannot raise, and leaves no way out of it.
[[gnu::noinline]] std::size_t lengthBehindACleanup(const char* text, int& cleanups) {
    const faults::Cleanup cleanup(cleanups);
    const std::size_t length = std::strlen(text);
    faults::sink = static_cast<int>(length);
    if (length > 1000000)
        throw 1;
    return length;
}

} // namespace

TEST_F(Fault, TranslatorBelongsToItsThreadAndTheFormerIsReturned) {
    EXPECT_EQ(platform::setTranslator(faults::noteAndThrow), nullptr);
    std::thread([] {
        EXPECT_EQ(platform::setTranslator(otherTranslator), nullptr);
        EXPECT_EQ(platform::setTranslator(nullptr), otherTranslator);
        EXPECT_EQ(platform::setTranslator(nullptr), nullptr);
    }).join();
    EXPECT_EQ(platform::setTranslator(otherTranslator), faults::noteAndThrow);
    EXPECT_EQ(platform::setTranslator(nullptr), otherTranslator);
}

TEST_F(Fault, SettingATranslatorKeepsTheLastError) {
    std::thread([] {
        platform::setLastError(5);
        platform::setTranslator(faults::noteAndThrow);
        EXPECT_EQ(platform::lastError(), 5u);
    }).join();
}

TEST_F(Fault, AddressAndContextAreThoseOfTheFault) {
    static const void* address;
    static std::uint64_t instruction, stack;
    platform::setTranslator([](unsigned int code, sExceptionPointers* pointers) {
        platform::ThreadContext context;
        platform::copyContext(context, pointers->context);
        address = pointers->record->address;
        instruction = platform::instructionPointer(context);
        stack = platform::stackPointer(context);
        throw code;
    });
    const auto here = reinterpret_cast<std::uintptr_t>(__builtin_frame_address(0));
    EXPECT_THROW(faults::writeNull(), unsigned int);
    EXPECT_EQ(instruction, reinterpret_cast<std::uintptr_t>(address));
    const auto function = reinterpret_cast<std::uintptr_t>(&faults::writeNull);
    EXPECT_LT(instruction - function, 64u);
    EXPECT_LT(here - stack, 16384u);
}

TEST_F(Fault, ExceptionOfTheSameFunctionIsCaught) {
#ifdef VDREADER_SANITIZED
    GTEST_SKIP() << "a sanitizer tells of the fault before it happens";
#endif
    platform::setTranslator(faults::noteAndThrow);
    volatile int reached = 0;
    try {
        reached = 1;
        *faults::nowhere = 1;
        reached = 2;
    } catch (const faults::Caught&) {
        reached = reached + 10;
    }
    EXPECT_EQ(reached, 11);
}

TEST_F(Fault, EveryCleanupRuns) {
    platform::setTranslator(faults::noteAndThrow);
    int cleanups = 0;
    EXPECT_THROW(faultBehindCleanups(20, cleanups), faults::Caught);
    EXPECT_EQ(cleanups, 21);
}

TEST_F(Fault, PassesThroughTheFramesOfTheCLibrary) {
    platform::setTranslator(faults::noteAndThrow);
    int values[] = {4, 3, 2, 1};
    const auto sort = [&values] {
        std::qsort(values, 4, sizeof *values, [](const void*, const void*) {
            faults::readNull();
            return 0;
        });
    };
    EXPECT_THROW(sort(), faults::Caught);
}

TEST_F(Fault, LeavesFramesThatTheCompilerTookForHarmless) {
    platform::setTranslator(faults::noteAndThrow);
    int inner = 0, outer = 0;
    const char* const bad = reinterpret_cast<const char*>(faults::nowhere) + 8;
    const auto measure = [&] {
        const faults::Cleanup cleanup(outer);
        lengthBehindACleanup(bad, inner);
    };
    EXPECT_THROW(measure(), faults::Caught);
    EXPECT_EQ(outer, 1);
    EXPECT_LE(inner, 1);
}

TEST_F(Fault, ExceptionCanBeThrownOn) {
    platform::setTranslator(faults::noteAndThrow);
    const auto throwOn = [] {
        try {
            faults::readNull();
        } catch (const faults::Caught&) {
            throw;
        }
    };
    EXPECT_THROW(throwOn(), faults::Caught);
}

TEST_F(Fault, FaultInsideAHandlerIsCaught) {
    platform::setTranslator(faults::noteAndThrow);
    std::uint32_t first = 0, second = 0;
    try {
        faults::readNull();
    } catch (const faults::Caught& outer) {
        first = outer.record.code;
        try {
            faults::divideByZero();
        } catch (const faults::Caught& inner) {
            second = inner.record.code;
        }
    }
    EXPECT_EQ(first, 0xC0000005u);
    EXPECT_EQ(second, 0xC0000094u);
}

TEST_F(Fault, TranslatorMayFaultAndCatchItself) {
    static std::uint32_t inner, after;
    platform::setTranslator([](unsigned int code, sExceptionPointers* pointers) {
        if (code == 0xC0000094)
            throw faults::Caught{code, *pointers->record, true};
        try {
            faults::divideByZero();
        } catch (const faults::Caught& caught) {
            inner = caught.record.code;
        }
        after = pointers->record->code; // its own fault is still there
        throw faults::Caught{code, *pointers->record, true};
    });
    try {
        faults::readNull();
        FAIL();
    } catch (const faults::Caught& caught) {
        EXPECT_EQ(caught.record.code, 0xC0000005u);
    }
    EXPECT_EQ(inner, 0xC0000094u);
    EXPECT_EQ(after, 0xC0000005u);
}

TEST_F(Fault, FaultOfATranslatorThatIsNotCaughtThereLeavesIt) {
    static int calls;
    calls = 0;
    platform::setTranslator([](unsigned int code, sExceptionPointers* pointers) {
        if (++calls == 1)
            faults::divideByZero();
        throw faults::Caught{code, *pointers->record, true};
    });
    for (int i = 0; i < 20; ++i) {
        calls = 0;
        try {
            faults::readNull();
            FAIL();
        } catch (const faults::Caught& caught) {
            EXPECT_EQ(caught.record.code, 0xC0000094u);
        }
        EXPECT_EQ(calls, 2);
    }
}

TEST_F(Fault, TranslatorMayThrowStandardExceptions) {
    platform::setTranslator(
        [](unsigned int, sExceptionPointers*) { throw std::runtime_error("fault"); });
    EXPECT_THROW(faults::readNull(), std::runtime_error);
}

TEST_F(Fault, OrdinaryExceptionsDoNotReachTheTranslator) {
    static int calls;
    calls = 0;
    platform::setTranslator([](unsigned int, sExceptionPointers*) { ++calls; });
    EXPECT_THROW(throw 1, int);
    EXPECT_THROW(std::string().at(1), std::out_of_range);
    EXPECT_EQ(calls, 0);
}

TEST_F(Fault, StackIsTheSameAfterManyFaults) {
    platform::setTranslator(faults::noteAndThrow);
    for (int i = 0; i < 10000; ++i)
        EXPECT_THROW(faults::readNull(), faults::Caught);
}

TEST_F(Fault, EightThreadsFaultAtOnce) {
    std::atomic<int> caught{0}, ready{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i)
        threads.emplace_back([&] {
            platform::setTranslator(faults::noteAndThrow);
            for (++ready; ready < 8;)
                std::this_thread::yield();
            for (int round = 0; round < 500; ++round)
                try {
                    faults::readNull();
                } catch (const faults::Caught&) {
                    ++caught;
                }
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(caught, 4000);
}

// ---- stack overflow ----

TEST_F(Fault, StackOverflowIsCaughtAgainAndAgain) {
    platform::setTranslator(faults::noteAndThrow);
    for (int i = 0; i < 3; ++i)
        try {
            faults::overflow();
            FAIL();
        } catch (const faults::Caught& caught) {
            EXPECT_EQ(caught.record.code, 0xC00000FDu);
        }
}

TEST_F(Fault, StackOverflowOfAnotherThreadIsCaught) {
    int caughtThere = 0;
    std::thread([&caughtThere] {
        platform::setTranslator(faults::noteAndThrow);
        for (int i = 0; i < 3; ++i)
            try {
                faults::overflow();
            } catch (const faults::Caught& caught) {
                caughtThere += caught.record.code == 0xC00000FD;
            }
    }).join();
    EXPECT_EQ(caughtThere, 3);
}

TEST_F(Fault, CleanupsBehindAnOverflowHaveRoom) {
#ifdef __SANITIZE_THREAD__
    GTEST_SKIP() << "the thread checker's own frames take the room";
#endif
    static int calls;
    calls = 0;
    platform::setTranslator([](unsigned int code, sExceptionPointers*) {
        ++calls;
        throw code;
    });
    EXPECT_THROW(overflowWithCleanups(0), unsigned int);
    EXPECT_EQ(calls, 1);
}

TEST_F(Fault, OtherFaultsAreCaughtAfterAnOverflow) {
    platform::setTranslator(faults::noteAndThrow);
    EXPECT_THROW(faults::overflow(), faults::Caught);
    int cleanups = 0;
    EXPECT_THROW(faultBehindCleanups(3, cleanups), faults::Caught);
    EXPECT_EQ(cleanups, 4);
}

TEST_F(Fault, TranslatorOfAnOverflowMayFaultAndCatchItself) {
    static int inner;
    inner = 0;
    platform::setTranslator([](unsigned int code, sExceptionPointers* pointers) {
        if (code == 0xC0000094)
            throw code;
        for (int i = 0; i < 3; ++i)
            try {
                faults::divideByZero();
            } catch (unsigned int caught) {
                inner += caught == 0xC0000094;
            }
        throw faults::Caught{pointers->record->code, *pointers->record, true};
    });
    for (int i = 0; i < 2; ++i)
        try {
            faults::overflow();
            FAIL();
        } catch (const faults::Caught& caught) {
            EXPECT_EQ(caught.record.code, 0xC00000FDu);
        }
    EXPECT_EQ(inner, 6);
}

// ---- without a translator ----

using FaultDeathTest = Fault;

TEST_F(FaultDeathTest, ThreadWithoutATranslatorDies) {
    EXPECT_DEATH(faults::readNull(), "");
    EXPECT_DEATH(
        {
            platform::setTranslator(faults::noteAndThrow);
            platform::setTranslator(nullptr);
            faults::readNull();
        },
        "");
}

TEST_F(FaultDeathTest, TranslatorThatReturnsLeavesTheFaultToItself) {
    EXPECT_DEATH(
        {
            platform::setTranslator([](unsigned int, sExceptionPointers*) {
                std::fputs("seen\n", stderr);
                std::fflush(stderr);
            });
            try {
                faults::readNull();
            } catch (...) {
                std::fputs("caught\n", stderr);
            }
        },
        "^seen");
}

TEST_F(FaultDeathTest, TranslatorThatKeepsFaultingEndsTheProcess) {
    EXPECT_DEATH(
        {
            platform::setTranslator([](unsigned int, sExceptionPointers*) {
                static int calls = 0;
                if (++calls > 8)
                    std::exit(0);
                faults::divideByZero();
            });
            try {
                faults::readNull();
            } catch (...) {
                std::exit(0);
            }
        },
        "");
}

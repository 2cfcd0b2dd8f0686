// What of faults only Linux has: signals, their former handlers, alternate stacks.

#ifdef __linux__

#  include <gtest/gtest.h>

#  include <fenv.h>
#  include <pthread.h>
#  include <signal.h>
#  include <sys/mman.h>
#  include <unistd.h>
#  include <cerrno>
#  include <cstdlib>
#  include <thread>

#  include "../../platform/posix/faultState.h"
#  include "support/damagedHeap.h"
#  include "support/faults.h"
#  include "support/tempFolder.h"

namespace {

using faults::Caught;

class FaultSignals : public testing::Test {
  protected:
    ~FaultSignals() override { platform::setTranslator(nullptr); }

    static std::uint32_t codeOf(void (*cause)()) {
        platform::setTranslator(faults::noteAndThrow);
        try {
            cause();
        } catch (const Caught& caught) {
            return caught.record.code;
        }
        return 0;
    }
};

volatile double zeroDouble = 0, huge = 1e308, tiny = 1e-308, three = 3;
volatile double result;

[[gnu::noinline]] void misalignedRead() {
    alignas(8) static char bytes[16];
    int value = 0;
    asm volatile("pushfq; orq $0x40000, (%%rsp); popfq; movl (%1), %0"
                 : "=r"(value)
                 : "r"(bytes + 1)
                 : "memory", "cc");
}
[[gnu::noinline]] void singleStep() {
    asm volatile("pushfq; orq $0x100, (%%rsp); popfq; nop; nop" : : : "memory", "cc");
}

stack_t alternateOfThread() {
    stack_t stack = {};
    ::sigaltstack(nullptr, &stack);
    return stack;
}

// Handlers that were there before ours.
volatile sig_atomic_t formerCalls;
volatile int formerSignal, formerCode;
volatile std::uintptr_t formerInstruction;
void formerHandler(int signal, siginfo_t* info, void* context) {
    formerCalls = formerCalls + 1;
    formerSignal = signal;
    formerCode = info->si_code;
    auto& registers = static_cast<ucontext_t*>(context)->uc_mcontext.gregs;
    formerInstruction = static_cast<std::uintptr_t>(registers[REG_RIP]);
    if (signal == SIGILL) // go on behind the instruction
        registers[REG_RIP] += 2;
}
void installFormer(int signal) {
    struct sigaction action = {};
    action.sa_sigaction = formerHandler;
    action.sa_flags = SA_SIGINFO;
    ::sigaction(signal, &action, nullptr);
    formerCalls = 0;
}

} // namespace

// ---- records ----

TEST_F(FaultSignals, FloatingPointFaultsHaveTheirCodes) {
    const auto with = [](int enabled, void (*cause)()) {
        std::feclearexcept(FE_ALL_EXCEPT);
        ::feenableexcept(enabled);
        const std::uint32_t code = codeOf(cause);
        ::fedisableexcept(FE_ALL_EXCEPT);
        std::feclearexcept(FE_ALL_EXCEPT);
        return code;
    };
    EXPECT_EQ(with(FE_DIVBYZERO, [] { result = three / zeroDouble; }), 0xC000008Eu);
    EXPECT_EQ(with(FE_OVERFLOW, [] { result = huge * huge; }), 0xC0000091u);
    EXPECT_EQ(with(FE_UNDERFLOW, [] { result = tiny * tiny; }), 0xC0000093u);
    EXPECT_EQ(with(FE_INEXACT, [] { result = 1 / three; }), 0xC000008Fu);
    EXPECT_EQ(with(FE_INVALID, [] { result = zeroDouble / zeroDouble; }), 0xC0000090u);
}

TEST_F(FaultSignals, FloatingPointFaultsCanBeCaughtAgain) {
    ::feenableexcept(FE_DIVBYZERO);
    for (int i = 0; i < 3; ++i) {
        ::feenableexcept(FE_DIVBYZERO); // the translator runs with all of them off
        EXPECT_EQ(codeOf([] { result = three / zeroDouble; }), 0xC000008Eu);
    }
}

TEST_F(FaultSignals, TranslatorRunsWithoutFloatingPointFaults) {
    static int calls;
    calls = 0;
    ::feenableexcept(FE_DIVBYZERO);
    platform::setTranslator([](unsigned int code, sExceptionPointers*) {
        ++calls;
        result = three / zeroDouble;
        throw code;
    });
    EXPECT_THROW(result = three / zeroDouble, unsigned int);
    EXPECT_EQ(calls, 1);
    ::fedisableexcept(FE_ALL_EXCEPT);
}

TEST_F(FaultSignals, MisalignedAccessIsMisalignment) {
#  ifdef __SANITIZE_THREAD__
    GTEST_SKIP() << "the handler of the thread sanitizer makes misaligned accesses itself";
#  endif
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(codeOf(misalignedRead), 0x80000002u);
}

TEST_F(FaultSignals, SingleStepHasItsCode) {
    EXPECT_EQ(codeOf(singleStep), 0x80000004u);
}

TEST_F(FaultSignals, BreakpointIsAtItsInstruction) {
    platform::setTranslator(faults::noteAndThrow);
    try {
        faults::breakpoint();
        FAIL();
    } catch (const Caught& caught) {
        EXPECT_EQ(*static_cast<const unsigned char*>(caught.record.address), 0xCC);
    }
}

TEST_F(FaultSignals, ViewOfAFileThatIsCutShortIsAnInPageError) {
    const TempFolder folder;
    const std::string path = folder.write("short", std::string(8192, 'x'));
    std::FILE* file = std::fopen(path.c_str(), "r+b");
    void* view = ::mmap(nullptr, 8192, PROT_READ, MAP_SHARED, ::fileno(file), 0);
    ASSERT_NE(view, MAP_FAILED);
    ASSERT_EQ(::ftruncate(::fileno(file), 100), 0);
    platform::setTranslator(faults::noteAndThrow);
    const auto* behind = static_cast<const volatile char*>(view) + 5000;
    try {
        faults::sink = *behind;
        ADD_FAILURE();
    } catch (const Caught& caught) {
        EXPECT_EQ(caught.record.code, 0xC0000006u);
        ASSERT_EQ(caught.record.parameterCount, 3u);
        EXPECT_EQ(caught.record.parameters[0], 0u);
        EXPECT_EQ(caught.record.parameters[1], reinterpret_cast<std::uintptr_t>(behind));
        EXPECT_EQ(caught.record.parameters[2], 0xC0000011u);
    }
    ::munmap(view, 8192);
    std::fclose(file);
}

TEST_F(FaultSignals, CallOfABadAddressIsAFetch) {
    platform::setTranslator(faults::noteAndThrow);
    try {
        faults::callNull();
        FAIL();
    } catch (const Caught& caught) {
        EXPECT_EQ(caught.record.parameters[0], 8u);
    }
}

TEST_F(FaultSignals, AccessNearTheStackIsNoOverflow) {
    platform::setTranslator(faults::noteAndThrow);
    pthread_attr_t attributes;
    ASSERT_EQ(::pthread_getattr_np(::pthread_self(), &attributes), 0);
    void* low = nullptr;
    std::size_t size = 0;
    ::pthread_attr_getstack(&attributes, &low, &size);
    ::pthread_attr_destroy(&attributes);
    // An address below the stack, while the stack itself is nearly unused.
    std::thread([] {
        platform::setTranslator(faults::noteAndThrow);
        const auto below = platform::threadFaults.stack.low - 64;
        try {
            *reinterpret_cast<volatile char*>(below) = 1;
            ADD_FAILURE();
        } catch (const Caught& caught) {
            EXPECT_EQ(caught.record.code, 0xC0000005u);
        }
    }).join();
}

// ---- signals ----

TEST_F(FaultSignals, ThreadThatBlocksThemGetsThemUnblocked) {
    std::thread([] {
        sigset_t all;
        ::sigfillset(&all);
        ::pthread_sigmask(SIG_BLOCK, &all, nullptr);
        EXPECT_EQ(codeOf(faults::readNull), 0xC0000005u);
        EXPECT_EQ(codeOf(faults::divideByZero), 0xC0000094u);
        sigset_t now;
        ::pthread_sigmask(SIG_BLOCK, nullptr, &now);
        for (const int signal : platform::kFaultSignals)
            EXPECT_EQ(sigismember(&now, signal), 0) << signal;
        EXPECT_EQ(sigismember(&now, SIGTERM), 1);
        EXPECT_EQ(sigismember(&now, SIGUSR1), 1);
    }).join();
}

TEST_F(FaultSignals, MaskIsTheThreadsOwnAfterAFault) {
    platform::setTranslator(faults::noteAndThrow);
    sigset_t before, after;
    ::pthread_sigmask(SIG_BLOCK, nullptr, &before);
    EXPECT_THROW(faults::readNull(), Caught);
    ::pthread_sigmask(SIG_BLOCK, nullptr, &after);
    for (int signal = 1; signal < 32; ++signal)
        EXPECT_EQ(sigismember(&before, signal), sigismember(&after, signal)) << signal;
}

TEST_F(FaultSignals, TranslatorSeesTheLastErrorOfTheFault) {
    static int seen;
    platform::setTranslator([](unsigned int code, sExceptionPointers*) {
        seen = errno;
        throw code;
    });
    errno = 77;
    EXPECT_THROW(faults::readNull(), unsigned int);
    EXPECT_EQ(seen, 77);
}

TEST_F(FaultSignals, FormerHandlerGetsFaultsOfThreadsWithoutATranslator) {
    installFormer(SIGILL);
    platform::setTranslator(faults::noteAndThrow);
    EXPECT_THROW(faults::illegalInstruction(), Caught);
    EXPECT_EQ(formerCalls, 0);
    platform::setTranslator(nullptr);
    faults::illegalInstruction();
    EXPECT_EQ(formerCalls, 1);
    EXPECT_EQ(formerSignal, SIGILL);
    std::thread([] { faults::illegalInstruction(); }).join();
    EXPECT_EQ(formerCalls, 2);
}

TEST_F(FaultSignals, FormerHandlerGetsTheFaultThatATranslatorDeclines) {
    installFormer(SIGILL);
    static const void* address;
    platform::setTranslator(
        [](unsigned int, sExceptionPointers* pointers) { address = pointers->record->address; });
    alignas(32) volatile double kept = three;
    faults::illegalInstruction();
    EXPECT_EQ(formerCalls, 1);
    EXPECT_EQ(formerSignal, SIGILL);
    EXPECT_GT(formerCode, 0);
    EXPECT_EQ(formerInstruction, reinterpret_cast<std::uintptr_t>(address));
    EXPECT_EQ(kept, 3);
}

TEST_F(FaultSignals, RegistersOfADeclinedFaultAreAllPutBack) {
    installFormer(SIGILL);
    platform::setTranslator([](unsigned int, sExceptionPointers*) {
        asm volatile("xorps %%xmm7, %%xmm7" : : : "xmm7");
        result = three * 5;
    });
    std::uint64_t general[4] = {};
    double vector = 0;
    const double given = 2.5;
    asm volatile(
        "movq $11, %%rbx; movq $12, %%r10; movq $13, %%r15; movq $14, %%rsi; movsd %5, %%xmm7\n"
        "ud2\n"
        "movq %%rbx, %0; movq %%r10, %1; movq %%r15, %2; movq %%rsi, %3; movsd %%xmm7, %4"
        : "=m"(general[0]), "=m"(general[1]), "=m"(general[2]), "=m"(general[3]), "=m"(vector)
        : "m"(given)
        : "rbx", "r10", "r15", "rsi", "xmm7", "memory");
    EXPECT_EQ(general[0], 11u);
    EXPECT_EQ(general[1], 12u);
    EXPECT_EQ(general[2], 13u);
    EXPECT_EQ(general[3], 14u);
    EXPECT_EQ(vector, 2.5);
    EXPECT_EQ(formerCalls, 1);
}

TEST_F(FaultSignals, SignalThatSomebodySentIsNoFault) {
    installFormer(SIGSEGV);
    platform::setTranslator(faults::noteAndThrow);
    ::raise(SIGSEGV);
    EXPECT_EQ(formerCalls, 1);
    EXPECT_LE(formerCode, 0);
}

TEST_F(FaultSignals, SentSignalThatWasIgnoredStaysIgnored) {
    ::signal(SIGTRAP, SIG_IGN);
    platform::setTranslator(faults::noteAndThrow);
    ::raise(SIGTRAP);
    SUCCEED();
}

using FaultSignalsDeathTest = FaultSignals;

TEST_F(FaultSignalsDeathTest, ProcessDiesOfTheSignalItself) {
#  ifdef VDREADER_SANITIZED
    GTEST_SKIP() << "the sanitizers report these signals and exit";
#  endif
    const auto with = [](void (*cause)()) {
        platform::setTranslator([](unsigned int, sExceptionPointers*) {});
        cause();
    };
    EXPECT_EXIT(with(faults::readNull), testing::KilledBySignal(SIGSEGV), "");
    EXPECT_EXIT(with(faults::divideByZero), testing::KilledBySignal(SIGFPE), "");
    EXPECT_EXIT(with(faults::illegalInstruction), testing::KilledBySignal(SIGILL), "");
    EXPECT_EXIT(with(faults::breakpoint), testing::KilledBySignal(SIGTRAP), "");
    EXPECT_EXIT(with(faults::overflow), testing::KilledBySignal(SIGSEGV), "");
    EXPECT_EXIT(with([] { ::raise(SIGSEGV); }), testing::KilledBySignal(SIGSEGV), "");
    EXPECT_EXIT(with([] { ::raise(SIGTRAP); }), testing::KilledBySignal(SIGTRAP), "");
}

// ---- stacks ----

TEST_F(FaultSignals, FormerAlternateStackComesBackAtTheEndOfTheThread) {
#  ifdef VDREADER_SANITIZED
    GTEST_SKIP() << "a sanitizer has an alternate stack of its own";
#  endif
    static stack_t duringThread, atEnd;
    static char former[65536];
    pthread_key_t key = 0;
    // Called behind the objects of thread_local.
    ::pthread_key_create(&key, [](void*) { atEnd = alternateOfThread(); });
    std::thread([key] {
        stack_t mine = {};
        mine.ss_sp = former;
        mine.ss_size = sizeof former;
        ::sigaltstack(&mine, nullptr);
        ::pthread_setspecific(key, former);
        platform::setTranslator(faults::noteAndThrow);
        duringThread = alternateOfThread();
        mine.ss_flags = 0;
    }).join();
    ::pthread_key_delete(key);
    EXPECT_NE(duringThread.ss_sp, former);
    EXPECT_GE(duringThread.ss_size, platform::kAlternateStackSize);
    EXPECT_EQ(atEnd.ss_sp, former);
    EXPECT_EQ(atEnd.ss_size, sizeof former);
    EXPECT_EQ(atEnd.ss_flags & SS_DISABLE, 0);
}

TEST_F(FaultSignals, AlternateStackGoesWithItsThread) {
    static std::uintptr_t low;
    for (int i = 0; i < 2000; ++i) // of half a MiB each
        std::thread([] {
            platform::setTranslator(faults::noteAndThrow);
            low = platform::threadFaults.alternate.low;
        }).join();
    unsigned char present = 0;
    EXPECT_NE(::mincore(reinterpret_cast<void*>(low), 4096, &present), 0);
    EXPECT_EQ(errno, ENOMEM);
}

TEST_F(FaultSignals, ThreadWithoutAnAlternateStackCatchesAllButOverflows) {
    const platform::StackCalls saved = platform::stackCalls;
    for (const bool maps : {false, true}) {
        if (maps)
            platform::stackCalls.setAlternate = [](const stack_t*, stack_t*) { return -1; };
        else
            platform::stackCalls.map = [](std::size_t) -> void* { return nullptr; };
        std::thread([] {
            EXPECT_EQ(codeOf(faults::readNull), 0xC0000005u);
            EXPECT_EQ(platform::threadFaults.alternate.high, 0u);
        }).join();
        platform::stackCalls = saved;
    }
    std::thread([] {
        EXPECT_EQ(codeOf(faults::overflow), 0xC00000FDu);
        EXPECT_NE(platform::threadFaults.alternate.high, 0u);
    }).join();
}

TEST_F(FaultSignals, FaultsOfASmallStackAreShownOnTheAlternateOne) {
#  ifdef VDREADER_SANITIZED
    GTEST_SKIP() << "a sanitizer keeps variables elsewhere";
#  endif
    static bool alternate;
    pthread_attr_t attributes;
    ::pthread_attr_init(&attributes);
    ::pthread_attr_setstacksize(&attributes, 65536);
    pthread_t thread = {};
    const auto body = [](void*) -> void* {
        platform::setTranslator([](unsigned int code, sExceptionPointers*) {
            const char here = 0;
            alternate =
                platform::threadFaults.alternate.holds(reinterpret_cast<std::uintptr_t>(&here));
            throw code;
        });
        for (int i = 0; i < 100; ++i)
            EXPECT_THROW(faults::readNull(), unsigned int);
        return nullptr;
    };
    ASSERT_EQ(::pthread_create(&thread, &attributes, body, nullptr), 0);
    ::pthread_join(thread, nullptr);
    ::pthread_attr_destroy(&attributes);
    EXPECT_TRUE(alternate);
}

#  if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
TEST(FaultInsideTheHeap, EndsTheProcessInsteadOfWaitingForItsOwnLock) {
    GTEST_FLAG_SET(death_test_style, "threadsafe"); // a heap that no other test has used
    const auto damageAndAllocate = [] {
        std::thread([] {
            platform::setTranslator(faults::noteAndThrow);
            allocateFromDamagedHeap();
        }).join();
    };
    EXPECT_EXIT(damageAndAllocate(), testing::KilledBySignal(SIGSEGV),
                "A fault inside the heap's functions: no report can be made");
}
#  endif

#endif

// Threads ended by force, and what they leave.

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "diagnostics/dumpLockIsFree.h"
#include "platform/dumpWriter.h"
#include "platform/error.h"
#include "platform/library.h"
#include "support/capturedLog.h"
#include "support/raised.h"
#include "support/scopedCalls.h"
#include "support/scopedThreadCalls.h"
#include "support/tempFolder.h"
#include "support/victim.h"
#include "vdreader/postmortem.h"

// Not static: its name stands in the report of its stack.
std::atomic<bool> hangsInTerminateTest{false};
__attribute__((noinline)) void hangingInTerminateTest() {
    hangsInTerminateTest.store(true);
    while (hangsInTerminateTest.load(std::memory_order_relaxed)) {
    }
}

namespace {

constexpr std::uint32_t kReason = 1234;

// Works in an empty folder, with dumps off.
class Terminate : public testing::Test {
  protected:
    Terminate() : m_former(std::filesystem::current_path()) {
        std::filesystem::current_path(m_folder.path());
        EnableAutoDumpCreation(false);
    }
    ~Terminate() override {
        std::error_code ignored;
        std::filesystem::current_path(m_former, ignored);
    }
    void SetUp() override { SKIP_WHERE_NO_THREAD_STOPS(); }

    std::vector<std::string> reports() const { return m_log.messages(CapturedLog::exceptions); }
    std::size_t events() const { return m_log.lines(CapturedLog::events).size(); }

    std::vector<std::string> dumps() const {
        std::vector<std::string> names;
        if (std::filesystem::exists("Dumps"))
            for (const auto& entry : std::filesystem::recursive_directory_iterator("Dumps"))
                if (entry.is_regular_file())
                    names.push_back(entry.path().filename().string());
        return names;
    }

    static std::uint32_t codeOf(const Victim& victim) {
        victim.awaitEnd();
        std::uint32_t code = 0;
        EXPECT_TRUE(platform::threadCalls.exitCodeOf(victim.handle(), &code));
        return code;
    }

    static std::string announced(const Victim& victim) {
        return "NTerminateThread. Terminating thread " + std::to_string(victim.id()) + ".";
    }

    ScopedThreadCalls m_calls;
    CapturedLog m_log;

  private:
    TempFolder m_folder;
    std::filesystem::path m_former;
};

bool isActive(const Victim& victim) {
    std::uint32_t code = 0;
    return platform::threadCalls.exitCodeOf(victim.handle(), &code) &&
           code == platform::kStillActive;
}

bool failsTo(std::uint32_t reason) {
    platform::setLastError(reason);
    return false;
}

class ScopedLibraries {
  public:
    ~ScopedLibraries() { platform::libraryCalls = saved; }
    const platform::LibraryCalls saved = platform::libraryCalls;
};

// Notes what a dump is asked for, and whether the victim, if there is one, ran on meanwhile.
class NotingWriter {
  public:
    explicit NotingWriter(const Counting* victim = nullptr) {
        s_victim = victim;
        s_symbol = m_libraries.saved.symbol;
        platform::libraryCalls.symbol = [](platform::LibraryHandle library, const char* name) {
            return std::strcmp(name, "MiniDumpWriteDump") == 0 ? reinterpret_cast<void*>(&write)
                                                               : s_symbol(library, name);
        };
    }

    struct Written {
        std::uint32_t kind;
        bool ownThread; // the exception is one of the thread that writes
        std::uint32_t code;
        bool victimRan;
    };
    static inline std::vector<Written> written;

  private:
    static std::int32_t write(void*, std::uint32_t, platform::DumpFile, std::uint32_t kind,
                              const platform::DumpException* exception, const void*, const void*) {
        written.push_back({kind, exception->threadId == platform::threadId(),
                           exception->pointers->record->code,
                           s_victim != nullptr && s_victim->goesOn()});
        return 1;
    }

    static inline const Counting* s_victim = nullptr;
    static inline decltype(platform::LibraryCalls::symbol) s_symbol = nullptr;
    ScopedLibraries m_libraries;
};

} // namespace

TEST_F(Terminate, CodeNoughtEndsWithoutAStack) {
    Victim victim(hang);
    EXPECT_NE(NTerminateThread(victim.handle(), 0), 0);
    EXPECT_EQ(codeOf(victim), 0U);
    EXPECT_EQ(reports(), std::vector<std::string>{announced(victim)});
    EXPECT_EQ(events(), 0U);
    EXPECT_TRUE(dumps().empty());
    victim.join();
}

TEST_F(Terminate, OtherCodesShowTheStack) {
    Victim victim(hangingInTerminateTest);
    waitWhile(hangsInTerminateTest, false);
    EXPECT_NE(NTerminateThread(victim.handle(), 0x80000007), 0);
    EXPECT_EQ(codeOf(victim), 0x80000007U);
    EXPECT_EQ(reports(), std::vector<std::string>{announced(victim)});
    bool shown = false;
    std::string all;
    for (const std::string& line : m_log.messages(CapturedLog::events)) {
        shown = shown || (line.find("[Func=") != std::string::npos &&
                          line.find("hangingInTerminateTest") != std::string::npos);
        all += line + '\n';
    }
    EXPECT_TRUE(shown) << all;
    victim.join();
}

TEST_F(Terminate, EndedThreadIsToldOf) {
    Victim victim([] {});
    victim.awaitEnd();
    EXPECT_EQ(NTerminateThread(victim.handle(), 3), 0);
    ASSERT_EQ(reports().size(), 2U);
    EXPECT_EQ(reports()[1], "Thread is not active. ExitCode [0]");
    victim.join();
}

TEST_F(Terminate, CodeOfAnEndedThreadIsTold) {
    Victim victim(hang);
    ASSERT_NE(NTerminateThread(victim.handle(), 0xFFFFFFFE), 0);
    victim.awaitEnd();
    m_log.clear();
    EXPECT_EQ(NTerminateThread(victim.handle(), 3), 0);
    ASSERT_EQ(reports().size(), 2U);
    EXPECT_EQ(reports()[1], "Thread is not active. ExitCode [-2]");
    EXPECT_EQ(events(), 0U);
    victim.join();
}

TEST_F(Terminate, DumpIsMadeWhereDumpsAreOn) {
    EnableAutoDumpCreation(true);
    Victim victim(hang);
    EXPECT_NE(NTerminateThread(victim.handle(), 0), 0);
    ASSERT_EQ(dumps().size(), 1U);
    EXPECT_EQ(dumps()[0].rfind("mini", 0), 0U) << dumps()[0];
    victim.join();
}

TEST_F(Terminate, DumpHasHandlesAndComesWithTheVictimRunning) {
    EnableAutoDumpCreation(true);
    Counting counting;
    const NotingWriter writer(&counting);
    Victim victim([&] { counting(); });
    static std::size_t writtenBefore;
    writtenBefore = 0;
    platform::threadCalls.suspend = [](void*) {
        writtenBefore = NotingWriter::written.size();
        return platform::kSuspendFailed;
    };
    EXPECT_EQ(NTerminateThread(victim.handle(), 1), 0);
    EXPECT_EQ(writtenBefore, 1U);
    ASSERT_EQ(NotingWriter::written.size(), 1U);
    EXPECT_EQ(NotingWriter::written[0].kind, 4U);
    EXPECT_TRUE(NotingWriter::written[0].ownThread);
    EXPECT_EQ(NotingWriter::written[0].code, 0xC0000005U);
    EXPECT_TRUE(NotingWriter::written[0].victimRan);
    counting.stop();
    victim.join();
}

TEST_F(Terminate, DumpsAreNotCounted) {
    EnableAutoDumpCreation(true);
    const NotingWriter writer;
    Victim victim([] {});
    victim.awaitEnd();
    for (int i = 0; i < 4; ++i) // one more than the limit
        EXPECT_EQ(NTerminateThread(victim.handle(), 0), 0);
    EXPECT_EQ(NotingWriter::written.size(), 4U);
    EXPECT_FALSE(IsFullDumpLimitExceeded());
    victim.join();
}

TEST_F(Terminate, LockOfTheDumpIsFreeAtTheEnd) {
    EnableAutoDumpCreation(true);
    static bool free;
    free = false;
    platform::threadCalls.terminate = [](void*, std::uint32_t) {
        free = dumpLockIsFree();
        return std::int32_t{1};
    };
    Counting counting;
    const NotingWriter writer(&counting);
    Victim victim([&] { counting(); });
    EXPECT_EQ(NTerminateThread(victim.handle(), 0), 1);
    EXPECT_TRUE(free);
    EXPECT_EQ(NotingWriter::written.size(), 1U);
    platform::threadCalls = m_calls.saved();
    counting.stop();
    victim.join();
}

TEST_F(Terminate, DumpComesBeforeTheLookAtTheThread) {
    EnableAutoDumpCreation(true);
    Victim victim([] {});
    victim.awaitEnd();
    EXPECT_EQ(NTerminateThread(victim.handle(), 0), 0);
    EXPECT_EQ(dumps().size(), 1U);
    ASSERT_EQ(reports().size(), 2U);
    EXPECT_EQ(reports()[1], "Thread is not active. ExitCode [0]");
    victim.join();
}

TEST_F(Terminate, DumpThatCannotBeMadeStopsNothing) {
    EnableAutoDumpCreation(true);
    std::ofstream("Dumps") << "a file, not a folder";
    Victim victim(hang);
    EXPECT_NE(NTerminateThread(victim.handle(), 0), 0);
    EXPECT_EQ(codeOf(victim), 0U);
    victim.join();
}

// The fixture has told the process already: the question has to come from a fresh one.
TEST(TerminateSettings, ThatCannotBeReadStopNothing) {
    SKIP_WHERE_NO_THREAD_STOPS();
    const std::filesystem::path former = std::filesystem::current_path();
    const TempFolder folder;
    std::filesystem::current_path(folder.path());
    folder.write("sarn.ini", "[dumps]\nauto=1\n");
    const CapturedLog log;
    Victim victim(hang);
    static int failures;
    failures = 0;
    {
        const ScopedCalls calls;
        platform::calls.readAt = [](platform::FileHandle, std::uint64_t, void*,
                                    std::size_t) -> std::ptrdiff_t { return ++failures, -1; };
        EXPECT_THROW(IsAutoDumpCreationEnabled(), std::runtime_error);
        EXPECT_NE(NTerminateThread(victim.handle(), 0), 0);
    }
    EXPECT_EQ(failures, 2);
    EXPECT_EQ(log.messages(CapturedLog::exceptions).size(), 1U);
    EXPECT_FALSE(std::filesystem::exists("Dumps"));
    victim.join();
    std::filesystem::current_path(former);
}

TEST_F(Terminate, ThreadThatCannotBeAskedIsToldOf) {
    Victim victim(hang);
    platform::threadCalls.exitCodeOf = [](void*, std::uint32_t*) { return failsTo(kReason); };
    EXPECT_EQ(NTerminateThread(victim.handle(), 0), 0);
    ASSERT_EQ(reports().size(), 2U);
    EXPECT_EQ(reports()[1], "GetExitCodeThread GLE [1234]");
    platform::threadCalls = m_calls.saved();
    EXPECT_TRUE(isActive(victim));
}

TEST_F(Terminate, NoThreadAtAllIsToldOf) {
    EXPECT_EQ(NTerminateThread(nullptr, 1), 0);
    ASSERT_EQ(reports().size(), 2U);
    EXPECT_EQ(reports()[0], "NTerminateThread. Terminating thread 0.");
    EXPECT_EQ(reports()[1].rfind("GetExitCodeThread GLE [", 0), 0U);
}

TEST_F(Terminate, ThreadThatCannotBeSuspendedGoesOn) {
    Counting counting;
    Victim victim([&] { counting(); });
    platform::threadCalls.suspend = [](void*) {
        failsTo(kReason);
        return platform::kSuspendFailed;
    };
    EXPECT_EQ(NTerminateThread(victim.handle(), 1), 0);
    ASSERT_EQ(reports().size(), 2U);
    EXPECT_EQ(reports()[1], "SuspendThread GLE [1234]");
    EXPECT_EQ(events(), 0U);
    EXPECT_TRUE(counting.goesOn());
}

TEST_F(Terminate, ThreadWithoutAContextStaysSuspended) {
    Counting counting;
    Victim victim([&] { counting(); });
    platform::threadCalls.contextOf = [](void*, std::uint32_t flags,
                                         platform::ThreadContext* context) {
        EXPECT_EQ(flags, 0x10000bU);
        for (const unsigned char byte : context->bytes)
            EXPECT_EQ(byte, 0);
        return failsTo(kReason);
    };
    EXPECT_EQ(NTerminateThread(victim.handle(), 1), 0);
    ASSERT_EQ(reports().size(), 2U);
    EXPECT_EQ(reports()[1], "GetThreadContext GLE [1234]");
    EXPECT_EQ(events(), 0U);
    EXPECT_TRUE(isActive(victim));
    EXPECT_TRUE(counting.standsStill());
    EXPECT_EQ(platform::threadCalls.resume(victim.handle()), 1U);
    EXPECT_TRUE(counting.goesOn());
}

TEST_F(Terminate, ThreadThatCannotBeEndedIsToldOfAndStaysSuspended) {
    platform::threadCalls.terminate = [](void*, std::uint32_t) {
        return static_cast<std::int32_t>(failsTo(kReason));
    };
    for (const std::uint32_t code : {0U, 1U}) {
        Counting counting;
        Victim victim([&] { counting(); });
        m_log.clear();
        EXPECT_EQ(NTerminateThread(victim.handle(), code), 0);
        ASSERT_EQ(reports().size(), 2U);
        EXPECT_EQ(reports()[1], "TerminateThread failed with error code 1234.");
        EXPECT_TRUE(code == 0 ? counting.goesOn() : counting.standsStill()) << code;
        EXPECT_EQ(events() != 0, code != 0);
        const ScopedThreadCalls stands;
        platform::threadCalls = m_calls.saved();
        platform::threadCalls.terminate(victim.handle(), 0);
        victim.join();
    }
}

TEST_F(Terminate, ResultIsThatOfTheSystem) {
    Victim victim(hang);
    platform::threadCalls.terminate = [](void*, std::uint32_t) { return std::int32_t{42}; };
    EXPECT_EQ(NTerminateThread(victim.handle(), 0), 42);
    platform::threadCalls = m_calls.saved();
}

TEST_F(Terminate, IdThatCannotBeLookedUpIsUnknown) {
    static int released;
    released = 0;
    const std::string unknown =
        "NTerminateThread. Terminating thread. Thread's ID is unknown because failed to load "
        "GetThreadId function (kernel32.dll).";
    for (const bool loads : {false, true}) {
        const ScopedLibraries libraries;
        platform::libraryCalls.release = [](platform::LibraryHandle) { ++released; };
        if (loads)
            platform::libraryCalls.symbol = [](platform::LibraryHandle, const char* name) -> void* {
                EXPECT_STREQ(name, "GetThreadId");
                return nullptr;
            };
        else
            platform::libraryCalls.load = [](const char* name) -> platform::LibraryHandle {
                EXPECT_STREQ(name, "kernel32.dll");
                return nullptr;
            };
        Victim victim(hang);
        m_log.clear();
        EXPECT_NE(NTerminateThread(victim.handle(), 0), 0);
        EXPECT_EQ(reports(), std::vector<std::string>{unknown});
        EXPECT_EQ(released, loads ? 1 : 0);
        victim.join();
    }
}

TEST_F(Terminate, MutexOfTheVictimStaysLocked) {
    static auto& lock = *new std::mutex;
    std::atomic<bool> held{false};
    Victim victim([&] {
        lock.lock();
        held.store(true);
        hang();
    });
    waitWhile(held, false);
    EXPECT_NE(NTerminateThread(victim.handle(), 1), 0);
    victim.join();
    EXPECT_FALSE(lock.try_lock());
}

TEST_F(Terminate, ObjectIsDetached) {
    Victim victim(hang);
    sThreadObject object = {victim.handle(), victim.id()};
    EXPECT_EQ(NTerminateThreadEx(&object, 0), 1);
    EXPECT_EQ(object.handle, nullptr);
    EXPECT_EQ(object.id, 0U);
    EXPECT_EQ(reports(), std::vector<std::string>{"NTerminateThread.Terminating thread " +
                                                  std::to_string(victim.id()) + "."});
    victim.forget();
}

TEST_F(Terminate, ObjectsIdentifierIsTakenAsItIs) {
    Victim victim(hang);
    sThreadObject object = {victim.handle(), 0xFFFFFFFF};
    EXPECT_EQ(NTerminateThreadEx(&object, 0), 1);
    EXPECT_EQ(reports().at(0), "NTerminateThread.Terminating thread 4294967295.");
    victim.forget();
}

TEST_F(Terminate, ObjectsStackIsShownForOtherCodes) {
    Victim victim(hang);
    sThreadObject object = {victim.handle(), victim.id()};
    EXPECT_EQ(NTerminateThreadEx(&object, 9), 1);
    EXPECT_NE(events(), 0U);
    victim.forget();
}

TEST_F(Terminate, ObjectWithoutAnIdentifierRaisesWithTheThreadGone) {
    Victim victim(hang);
    sThreadObject object = {victim.handle(), 0};
    const auto failure = raised<std::system_error>([&] { NTerminateThreadEx(&object, 2); });
    ASSERT_TRUE(failure.has_value());
    EXPECT_EQ(failure->code(), std::make_error_code(std::errc::invalid_argument));
    EXPECT_EQ(codeOf(victim), 2U);
    EXPECT_EQ(object.handle, victim.handle());
    EXPECT_EQ(reports().at(0), "NTerminateThread.Terminating thread 0.");
    victim.join();
}

TEST_F(Terminate, HandleThatCannotBeClosedRaisesWithTheThreadGone) {
    Victim victim(hang);
    platform::threadCalls.close = [](void*) { return failsTo(kReason); };
    sThreadObject object = {victim.handle(), victim.id()};
    const auto failure = raised<std::system_error>([&] { NTerminateThreadEx(&object, 2); });
    ASSERT_TRUE(failure.has_value());
    EXPECT_EQ(failure->code(), std::error_code(kReason, std::system_category()));
    EXPECT_EQ(codeOf(victim), 2U);
    EXPECT_EQ(object.handle, victim.handle());
    EXPECT_EQ(object.id, victim.id());
    victim.join();
}

TEST_F(Terminate, ObjectOfAThreadThatDoesNotEndStaysAsItIs) {
    Victim victim([] {});
    victim.awaitEnd();
    sThreadObject object = {victim.handle(), victim.id()};
    EXPECT_EQ(NTerminateThreadEx(&object, 0), 0);
    EXPECT_EQ(object.handle, victim.handle());
    EXPECT_EQ(object.id, victim.id());
    EXPECT_EQ(reports().at(1), "Thread is not active. ExitCode [0]");
    victim.join();
}

TEST_F(Terminate, CallingThreadEndsWithCodeNought) {
    std::atomic<int> step{0};
    Victim victim([&] {
        step.store(1);
        NTerminateThread(platform::currentThread(), 0);
        step.store(2);
    });
    EXPECT_EQ(codeOf(victim), 0U);
    EXPECT_EQ(step.load(), 1);
    EXPECT_EQ(reports(), std::vector<std::string>{announced(victim)});
    victim.join();
}

TEST_F(Terminate, CallingThreadNeverComesBackWithAnotherCode) {
    std::atomic<int> step{0};
    Victim victim([&] {
        step.store(1);
        NTerminateThread(platform::currentThread(), 4);
        step.store(2);
    });
    while (reports().empty())
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    EXPECT_EQ(step.load(), 1);
    EXPECT_TRUE(isActive(victim));
    EXPECT_EQ(reports(), std::vector<std::string>{announced(victim)});
    EXPECT_EQ(events(), 0U) << "it stands in the suspend";
}

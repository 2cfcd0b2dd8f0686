// The lock of reports and dumps: who takes it, from where to where, and who does not wait for it.

#include <atomic>
#include <chrono>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "diagnostics/dumpFixture.h"
#include "diagnostics/dumpLockIsFree.h"
#include "dw_util/logSinks.h"
#include "support/scopedCalls.h"
#include "support/scopedThreadCalls.h"
#include "support/waitWhile.h"

namespace {

using Looks = std::vector<std::string>;

// Notes at the steps of a dump whether another thread could take the lock there.
class DumpLock : public DumpFixture {
  protected:
    DumpLock() { s_looks.clear(); }

    void watch() {
        s_calls = m_calls.saved();
        s_dumpCalls = m_dumpCalls.saved();
        platform::calls.openStream = [](const char* path) {
            look("settings");
            return s_calls.openStream(path);
        };
        platform::calls.openForReading = [](const char* path) {
            look("settings");
            return s_calls.openForReading(path);
        };
        platform::dumpCalls.localFileTime = [] {
            look("name");
            return s_now;
        };
        platform::dumpCalls.runOnThread = [](void (*body)(void*), void* argument) {
            look("thread");
            const bool ran = s_dumpCalls.runOnThread(body, argument);
            look("its end");
            return ran;
        };
        logSinks.events = [](const char* line) {
            const std::string text(line);
            if (text.find("Beginning crash dump creation") != std::string::npos)
                look("first line");
            else if (text.find("] done") != std::string::npos)
                look("second line");
        };
    }

    static inline Looks s_looks;

  private:
    // A step of several calls is noted once.
    static void look(const char* step) {
        const std::string seen = std::string(step) + (dumpLockIsFree() ? ": free" : ": held");
        if (s_looks.empty() || s_looks.back() != seen)
            s_looks.push_back(seen);
    }

    static inline platform::Calls s_calls;
    static inline platform::DumpCalls s_dumpCalls;

    ScopedCalls m_calls;
};

// A call on a thread of its own.
class OtherThread {
  public:
    // Returns when the thread is about to call.
    explicit OtherThread(std::function<void()> call)
        : m_thread([this, call = std::move(call)] {
              m_begun.store(true);
              call();
              m_isBack.store(true);
          }) {
        waitWhile(m_begun, false);
    }
    void join() { m_thread.join(); }

    // Whether the call has come back by the end of a moment; never of one that waits.
    bool comesBack() const {
        for (int i = 0; i < 100 && !m_isBack.load(); ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        return m_isBack.load();
    }

  private:
    std::atomic<bool> m_begun{false};
    std::atomic<bool> m_isBack{false};
    std::thread m_thread;
};

} // namespace

TEST_F(DumpLock, FirstQuestionReadsTheSettingsUnderIt) {
    ini("auto=1\n");
    watch();
    EXPECT_TRUE(IsAutoDumpCreationEnabled());
    EXPECT_EQ(s_looks, (Looks{"settings: held"}));
    EXPECT_TRUE(dumpLockIsFree());
}

TEST_F(DumpLock, RequestHoldsItFromTheNameToTheEndOfItsThread) {
    watch();
    CreateProcessDump(2, true, false);
    EXPECT_EQ(s_looks, (Looks{"name: held", "thread: held", "its end: held"}));
    EXPECT_TRUE(dumpLockIsFree());
}

TEST_F(DumpLock, LinesOfACrashDumpAreWrittenOutsideIt) {
    ini("fulloncrash=1\n");
    watch();
    MadeException exception(0xC0000005);
    CreateProcessCrashDump(2, &exception.pointers, 0);
    EXPECT_EQ(s_looks, (Looks{"first line: free", "settings: held", "name: held", "thread: held",
                              "its end: held", "second line: free"}));
}

// No thread is there to be ended: the dump comes before the look at it.
TEST_F(DumpLock, EndByForceHoldsItFromTheNameToTheEndOfTheDumpThread) {
    const ScopedThreadCalls threadCalls;
    platform::threadCalls.exitCodeOf = [](platform::ThreadHandle, std::uint32_t*) { return false; };
    s_hasLibrary = false;
    EnableAutoDumpCreation(true);
    watch();
    const Looks dump = {"name: held", "thread: held", "its end: held"};
    EXPECT_EQ(NTerminateThread(nullptr, 0), 0);
    EXPECT_EQ(s_looks, dump);
    EXPECT_TRUE(dumpLockIsFree());
    s_looks.clear();
    sThreadObject object = {};
    EXPECT_EQ(NTerminateThreadEx(&object, 0), 0);
    EXPECT_EQ(s_looks, dump);
    EXPECT_TRUE(dumpLockIsFree());
}

TEST_F(DumpLock, QuestionWaitsForItOnceTheSettingIsKnownToo) {
    EnableAutoDumpCreation(true);
    bool answer = false;
    std::unique_lock guard(dumpLock());
    OtherThread other([&answer] { answer = IsAutoDumpCreationEnabled(); });
    EXPECT_FALSE(other.comesBack());
    guard.unlock();
    other.join();
    EXPECT_TRUE(answer);
}

TEST_F(DumpLock, EnableWaitsForIt) {
    EnableAutoDumpCreation(false);
    std::unique_lock guard(dumpLock());
    OtherThread other([] { EnableAutoDumpCreation(true); });
    EXPECT_FALSE(other.comesBack());
    EXPECT_FALSE(IsAutoDumpCreationEnabled());
    guard.unlock();
    other.join();
    EXPECT_TRUE(IsAutoDumpCreationEnabled());
}

TEST_F(DumpLock, RequestWaitsForItBeforeItCounts) {
    for (int i = 0; i < 2; ++i) // one more exceeds the limit
        CreateProcessDump(2, true, false);
    std::unique_lock guard(dumpLock());
    OtherThread other([] { CreateProcessDump(2, true, false); });
    EXPECT_FALSE(other.comesBack());
    EXPECT_FALSE(IsFullDumpLimitExceeded());
    guard.unlock();
    other.join();
    EXPECT_TRUE(IsFullDumpLimitExceeded());
}

TEST_F(DumpLock, CrashDumpWaitsForItBehindItsFirstLine) {
    MadeException exception(0xC0000005);
    for (int i = 0; i < 2; ++i) // one more exceeds the limit
        CreateProcessCrashDump(2, &exception.pointers, 0);
    m_log.clear();
    std::unique_lock guard(dumpLock());
    OtherThread other([&exception] { CreateProcessCrashDump(2, &exception.pointers, 0); });
    while (m_log.size() == 0)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    EXPECT_FALSE(other.comesBack());
    EXPECT_EQ(m_log.messages(CapturedLog::events),
              (Looks{"DUMP:: <CreateProcessCrashDump:Beginning crash dump creation"}));
    EXPECT_FALSE(IsFullDumpLimitExceeded());
    guard.unlock();
    other.join();
    EXPECT_EQ(m_log.size(), 2u);
    EXPECT_TRUE(IsFullDumpLimitExceeded());
}

TEST_F(DumpLock, LimitIsToldWithoutIt) {
    for (int i = 0; i < 3; ++i)
        CreateProcessDump(2, true, false);
    const std::lock_guard guard(dumpLock());
    bool exceeded = false;
    OtherThread([&exceeded] { exceeded = IsFullDumpLimitExceeded(); }).join();
    EXPECT_TRUE(exceeded);
}

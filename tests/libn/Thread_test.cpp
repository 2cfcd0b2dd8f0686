#include "libn/Thread.h"

#include <gtest/gtest.h>

#ifndef _WIN32
#  include <signal.h>
#endif

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <regex>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "platform/thread.h"
#include "support/capturedLog.h"
#include "support/countedNew.h"
#include "support/programFolder.h"
#include "support/waitWhile.h"
#include "vdreader/errors.hpp"
#include "vdreader/log.h"
#include "vdreader/logfiles.h"
#include "vdreader/postmortem.h"

namespace {

class ThreadTest : public testing::Test {
  protected:
    ThreadTest() {
        m_folder.enter("");
        SetDebugLevel(5);
    }
    ~ThreadTest() {
        SetDebugLevel(0);
        libn::makeThread = m_makeThread;
        shutdown_logs();
    }

    std::vector<std::string> events() const { return m_log.messages(CapturedLog::events); }

    // Waits for the last line of a thread.
    void waitForEnd() const {
        while (events().empty() || events().back() != "Thread finished.")
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }

    ProgramFolder m_folder;
    CapturedLog m_log;
    std::thread (*m_makeThread)(unsigned (*entry)(void*), void*) = libn::makeThread;
};

// Notes what happens to it, and runs a function in each cycle.
class Worker : public libn::Thread {
  public:
    explicit Worker(void (*cycle)(Worker&) = nullptr) : m_cycle(cycle) {}
    ~Worker() override {
        note("D");
        stop();
        note("d");
    }
    void run() override {
        ++cycles;
        if (m_cycle != nullptr)
            m_cycle(*this);
        platform::yieldThread();
    }
    void onStart() override { note("S"); }
    void onFinish() override { note(stopRequested() ? "F" : "f"); }
    void onStopRequest() override { note(stopRequested() ? "Q" : "q"); }

    void end() { stop(); }
    const std::string& tag() const { return data->tag; }
    const void* tagAddress() const { return &data->tag; }
    std::uint32_t id() const { return data->thread.id; }
    bool joinable() const { return data->thread.handle.joinable(); }
    void setId(std::uint32_t id) { data->thread.id = id; }
    // What happened since the last call.
    static std::string takeSteps() {
        const std::lock_guard guard(s_lock);
        return std::exchange(s_steps, {});
    }

    std::atomic<int> cycles{0};

  private:
    static void note(const char* step) {
        const std::lock_guard guard(s_lock);
        s_steps += step;
    }
    static inline std::mutex s_lock;
    static inline std::string s_steps;

    void (*m_cycle)(Worker&);
};

std::string hex(const void* pointer) {
    char text[17];
    std::snprintf(text, sizeof text, "%016llX",
                  static_cast<unsigned long long>(reinterpret_cast<std::uintptr_t>(pointer)));
    return text;
}

// The place of a virtual operation in the table, by the compiler's form of member pointers.
template <class Member>
std::size_t tablePlace(Member member) {
    std::uintptr_t words[2];
    static_assert(sizeof member == sizeof words);
    std::memcpy(words, &member, sizeof words);
    return (words[0] - 1) / sizeof(void*);
}

} // namespace

TEST_F(ThreadTest, VirtualOperationsHaveTheirOrder) {
    EXPECT_EQ(tablePlace(&libn::Thread::run), 0u);
    EXPECT_EQ(tablePlace(&libn::Thread::onStart), 1u);
    EXPECT_EQ(tablePlace(&libn::Thread::onFinish), 2u);
    EXPECT_EQ(tablePlace(&libn::Thread::onStopRequest), 3u);
    // The table and the owning pointer.
    EXPECT_EQ(sizeof(libn::Thread), 2 * sizeof(void*));
}

TEST_F(ThreadTest, IsEmptyUntilStarted) {
    const Worker worker;
    EXPECT_FALSE(worker.joinable());
    EXPECT_EQ(worker.id(), 0u);
    EXPECT_EQ(worker.tag(), "");
    EXPECT_STREQ(libn::currentThreadTag, "MAIN");
    EXPECT_EQ(worker.cycles, 0);
}

TEST_F(ThreadTest, RunsCyclesUntilItsObjectIsDeleted) {
    Worker::takeSteps();
    {
        Worker worker;
        worker.setTag("WORK");
        worker.start();
        waitWhile(worker.cycles, 0);
        waitWhile(worker.cycles, 1);
        EXPECT_TRUE(worker.joinable());
        EXPECT_STREQ(libn::currentThreadTag, "WORK");
    }
    // Destructor, request while the flag is not set, last cycle, end, joined.
    EXPECT_EQ(Worker::takeSteps(), "SDqFd");
    EXPECT_EQ(events(), (std::vector<std::string>{"Thread finished."}));
    EXPECT_EQ(m_log.lines(CapturedLog::events).at(0).substr(0, 3), "+: ");
}

// Its object goes while the thread still begins.
TEST_F(ThreadTest, StopBeforeTheFirstCycleLeavesNone) {
    static std::atomic<int> ran;
    ran = 0;
    struct Slow : Worker {
        Slow() : Worker([](Worker&) { ++ran; }) {}
        void onStart() override {
            while (!stopRequested())
                platform::yieldThread();
        }
        ~Slow() override { stop(); }
    };
    Worker::takeSteps();
    {
        Slow worker;
        worker.start();
    }
    EXPECT_EQ(ran, 0);
    EXPECT_EQ(Worker::takeSteps(), "qFDQd");
    EXPECT_EQ(events(), (std::vector<std::string>{"Thread finished."}));
}

TEST_F(ThreadTest, FinishedLineNeedsDebugLevelFive) {
    SetDebugLevel(4);
    {
        Worker worker;
        worker.start();
    }
    EXPECT_EQ(m_log.size(), 0u);
}

TEST_F(ThreadTest, ThreadKnowsItsNumberInTheSystem) {
    static std::atomic<std::uint32_t> own;
    own = 0;
    Worker worker([](Worker&) { own = platform::threadId(); });
    worker.start();
    waitWhile(own, 0u);
    EXPECT_EQ(worker.id(), own);
    EXPECT_NE(own, platform::threadId());
}

// The system gives the number of a thread that has ended to another one, before it is joined too.
TEST_F(ThreadTest, ThreadWithTheNumberOfAnEndedOneMayStopIt) {
    {
        Worker worker([](Worker&) { throw std::runtime_error("ends"); });
        worker.start();
        waitForEnd();
        worker.setId(platform::threadId());
    }
    EXPECT_EQ(events().size(), 2u);
}

#ifndef _WIN32
TEST_F(ThreadTest, ThreadTakesNoSignalsOfTheHost) {
    static std::atomic<int> blocked;
    blocked = -1;
    Worker worker([](Worker&) {
        sigset_t mask;
        pthread_sigmask(SIG_SETMASK, nullptr, &mask);
        blocked = sigismember(&mask, SIGTERM);
    });
    worker.start();
    waitWhile(blocked, -1);
    EXPECT_EQ(blocked, 1);
    sigset_t mask;
    pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    EXPECT_EQ(sigismember(&mask, SIGTERM), 0);
}
#endif

TEST_F(ThreadTest, LongTagIsCutForDebuggersAndStaysWholeInTheThread) {
    const std::string tag = "0123456789ABCDEFGHIJ";
    Worker worker;
    worker.setTag(tag.c_str());
    worker.start();
    waitWhile(worker.cycles, 0);
    EXPECT_STREQ(libn::currentThreadTag, "0123456789ABCDEFGHI");
    EXPECT_EQ(worker.tag(), tag);
}

TEST_F(ThreadTest, TagOfNineteenCharactersFits) {
    Worker worker;
    worker.setTag("0123456789ABCDEFGHI");
    worker.start();
    waitWhile(worker.cycles, 0);
    EXPECT_STREQ(libn::currentThreadTag, "0123456789ABCDEFGHI");
}

// ---- cycles that raise ----

namespace {

// The lines of a thread whose first cycle raises.
template <class Raise>
std::vector<std::string> linesOfFailure(const CapturedLog& log, Raise raise, std::string* address) {
    Worker::takeSteps();
    Worker worker(raise);
    worker.setTag("FAIL");
    worker.start();
    while (log.messages(CapturedLog::events).size() < 2)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    EXPECT_EQ(worker.cycles, 1);
    EXPECT_TRUE(worker.joinable());
    EXPECT_EQ(Worker::takeSteps(), "S"); // no end of the loop
    *address = hex(worker.tagAddress());
    return log.messages(CapturedLog::events);
}

struct NullText : std::exception {
    const char* what() const noexcept override { return nullptr; }
};

} // namespace

TEST_F(ThreadTest, ErrorOfTheFamilyEndsTheThreadWithItsDescription) {
    std::string address;
    const auto lines = linesOfFailure(
        m_log,
        [](Worker&) {
            CEmptyError failure;
            std::memcpy(failure.text, "broken", 7);
            throw failure;
        },
        &address);
    EXPECT_EQ(lines, (std::vector<std::string>{
                         "libn::threadFunc:m_tag<" + address + ">e.GetErrorDesc()<broken>",
                         "Thread finished."}));
    EXPECT_EQ(m_log.lines(CapturedLog::events).at(0).substr(0, 3), "0: ");
}

TEST_F(ThreadTest, StandardExceptionEndsTheThreadWithItsText) {
    std::string address;
    const auto lines = linesOfFailure(
        m_log, [](Worker&) { throw std::runtime_error("no %s"); }, &address);
    EXPECT_EQ(lines,
              (std::vector<std::string>{"libn::threadFunc:m_tag<" + address + ">what()<no %s>",
                                        "Thread finished."}));
}

TEST_F(ThreadTest, NullTextOfAnExceptionIsEmpty) {
    std::string address;
    const auto lines = linesOfFailure(
        m_log, [](Worker&) { throw NullText(); }, &address);
    EXPECT_EQ(lines.at(0), "libn::threadFunc:m_tag<" + address + ">what()<>");
}

TEST_F(ThreadTest, AnythingElseEndsTheThreadWithDots) {
    std::string address;
    const auto lines = linesOfFailure(
        m_log, [](Worker&) { throw 5; }, &address);
    EXPECT_EQ(lines.at(0), "libn::threadFunc:m_tag<" + address + ">...");
}

TEST_F(ThreadTest, FailureBeforeTheFirstCycleAndBehindTheLastIsReportedToo) {
    struct Starting : Worker {
        void onStart() override { throw std::runtime_error("at start"); }
    };
    struct Finishing : Worker {
        void onFinish() override { throw std::runtime_error("at end"); }
        ~Finishing() override { stop(); }
    };
    {
        Starting worker;
        worker.start();
        waitForEnd();
        EXPECT_EQ(worker.cycles, 0);
    }
    ASSERT_EQ(events().size(), 2u);
    EXPECT_TRUE(std::regex_match(events()[0], std::regex("libn::threadFunc:m_tag<[0-9A-F]{16}>"
                                                         "what\\(\\)<at start>")));
    m_log.clear();
    {
        Finishing worker;
        worker.start();
    }
    ASSERT_EQ(events().size(), 2u);
    EXPECT_NE(events()[0].find("what()<at end>"), std::string::npos);
    EXPECT_EQ(events()[1], "Thread finished.");
}

TEST_F(ThreadTest, ThreadWithoutMemoryForItsLinesEndsAllTheSame) {
    static std::atomic<bool> inCycle, goes;
    inCycle = goes = false;
    Worker worker([](Worker&) {
        inCycle = true;
        while (!goes)
            platform::yieldThread();
        throw 5;
    });
    worker.start();
    waitWhile(inCycle, false);
    {
        const FailingNew without(0, 1'000'000);
        goes = true;
        worker.end();
    }
    EXPECT_EQ(worker.cycles, 1);
    EXPECT_EQ(m_log.size(), 0u);
}

// ---- starting ----

TEST_F(ThreadTest, ThreadThatCannotBeMadeIsAnExhaustedResource) {
    libn::makeThread = [](unsigned (*)(void*), void*) -> std::thread {
        throw std::system_error(std::make_error_code(std::errc::not_enough_memory));
    };
    Worker worker;
    try {
        worker.start();
        ADD_FAILURE() << "started";
    } catch (const std::system_error& failure) {
        EXPECT_EQ(failure.code(), std::errc::resource_unavailable_try_again);
    }
    EXPECT_FALSE(worker.joinable());
    // And the next one works.
    libn::makeThread = m_makeThread;
    worker.start();
    waitWhile(worker.cycles, 0);
}

namespace {

class Plain : public libn::Thread {
  public:
    explicit Plain(void (*cycle)()) : m_cycle(cycle) {}
    ~Plain() override { stop(); }
    void run() override {
        if (!done)
            m_cycle(); // once: what it notes is read while the thread goes on
        done = true;
        platform::yieldThread();
    }
    std::atomic<bool> done{false};

  private:
    void (*m_cycle)();
};

} // namespace

TEST_F(ThreadTest, OnStartInstallsTheTranslatorAndOpensTheLogsWithTheTag) {
    m_folder.write("sarn.ini", "[Files]\nEventsLogFileName=e.log\nErrorsLogFileName=x.log\n");
    static std::atomic<bool> installed;
    static std::string mark;
    Plain thread([] {
        const sExceptionTranslator translator = util_set_se_translator(nullptr);
        installed = translator == seh_translator;
        util_set_se_translator(translator);
        mark = getsmark();
    });
    thread.setTag("TAGGED");
    thread.start();
    waitWhile(thread.done, false);
    EXPECT_TRUE(installed);
    EXPECT_EQ(mark, "TAGGED");
    EXPECT_TRUE(m_folder.has("e.log"));
    EXPECT_TRUE(m_folder.has("x.log"));
}

// The first of the two moves the process into the program's folder, where the second would find
// other settings.
TEST_F(ThreadTest, OnStartOpensTheErrorLogFirst) {
    m_folder.write("sarn.ini", "[Files]\nErrorsLogFileName=program.log\n");
    m_folder.enter("work");
    m_folder.write("work/sarn.ini", "[Files]\nErrorsLogFileName=working.log\n");
    Plain thread([] {});
    thread.start();
    waitWhile(thread.done, false);
    EXPECT_TRUE(m_folder.has("working.log"));
    EXPECT_FALSE(m_folder.has("program.log"));
    EXPECT_TRUE(m_folder.has("events.log"));
}

// ---- contracts that end the process ----

TEST(ThreadDeathTest, DeletingItFromItsOwnCycleEndsTheProcess) {
#ifdef VDREADER_SANITIZED
    GTEST_SKIP() << "a sanitizer does not survive the start of a child on a stack of its own";
#endif
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
        {
            static std::atomic<bool> started{false};
            auto* worker = new Worker([](Worker& self) {
                waitWhile(started, false); // the object holds its thread then
                delete &self;
            });
            worker->start();
            started = true;
            for (;;)
                platform::yieldThread();
        },
        "");
}

TEST(ThreadDeathTest, DerivedClassThatDoesNotStopItsThreadEndsTheProcess) {
#ifdef VDREADER_SANITIZED
    GTEST_SKIP() << "a sanitizer does not survive the start of a child on a stack of its own";
#endif
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    struct Careless : libn::Thread {
        void run() override { entered = true; }
        void onStart() override {}
        std::atomic<bool> entered{false};
    };
    EXPECT_DEATH(
        {
            Careless careless;
            careless.start();
            waitWhile(careless.entered, false);
        },
        "");
}

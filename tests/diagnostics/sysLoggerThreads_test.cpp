// The logger's worker, and many threads that post and drain.

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <memory>
#include <new>
#include <string>
#include <thread>
#include <vector>

#include "logs/SysLogger.h"
#include "platform/thread.h"
#include "support/countedNew.h"
#include "support/scopedCalls.h"
#include "support/tempFolder.h"
#include "support/testLogger.h"
#include "support/waitWhile.h"
#include "vdreader/log.h"

namespace {

using namespace std::chrono_literals;

// Waits until it holds, at most half a minute.
template <class Condition>
bool comesTrue(Condition holds) {
    const auto end = std::chrono::steady_clock::now() + 30s;
    while (!holds()) {
        if (std::chrono::steady_clock::now() > end)
            return false;
        std::this_thread::sleep_for(1ms);
    }
    return true;
}

// Appends of log files that wait for the test, or go in small pieces.
class AppendGate {
  public:
    AppendGate() {
        s_append = m_calls.saved().appendStorage;
        s_closed = false;
        s_inside = 0;
        platform::calls.appendStorage = [](platform::StorageHandle file, const void* data,
                                           std::uint32_t size, std::uint32_t* done) {
            ++s_inside;
            waitWhile(s_closed, true);
            const bool good = s_append(file, data, std::min<std::uint32_t>(size, s_piece), done);
            if (s_piece != kWhole)
                std::this_thread::yield();
            --s_inside;
            return good;
        };
    }
    ~AppendGate() {
        open();
        s_piece = kWhole;
    }
    void close() { s_closed = true; }
    void open() { s_closed = false; }
    // The system takes so many bytes at once.
    void takePieces(std::uint32_t size) { s_piece = size; }
    // Somebody stands in front of the gate.
    bool holdsSomebody() const { return s_inside > 0; }

  private:
    static constexpr std::uint32_t kWhole = 0xFFFFFFFF;
    static inline decltype(platform::Calls::appendStorage) s_append;
    static inline std::atomic<bool> s_closed;
    static inline std::atomic<int> s_inside;
    static inline std::atomic<std::uint32_t> s_piece = kWhole;
    ScopedCalls m_calls;
};

// "T003 N000042 xxxxx...|" without a line feed, of a length that its number decides.
std::string lineOf(int thread, int number) {
    char head[32];
    std::snprintf(head, sizeof head, "T%03d N%06d ", thread, number);
    return head + std::string(static_cast<std::size_t>(number % 60), 'x') + '|';
}

// The decimal number at a place of a line, -1 for none.
int numberAt(const std::string& line, std::size_t at) {
    int number = -1;
    if (at < line.size())
        std::from_chars(line.data() + at, line.data() + line.size(), number);
    return number;
}

// Each line whole, each thread's lines in order and all there.
void expectWhole(const std::string& text, int threads, int lines) {
    std::vector<int> next(static_cast<std::size_t>(threads), 0);
    std::size_t at = 0;
    while (at < text.size()) {
        const std::size_t end = text.find("\r\n", at);
        ASSERT_NE(end, std::string::npos);
        const std::string line = text.substr(at, end - at);
        const int thread = numberAt(line, 1);
        const int number = numberAt(line, 6);
        ASSERT_TRUE(thread >= 0 && thread < threads) << line;
        ASSERT_EQ(line, lineOf(thread, number));
        ASSERT_EQ(number, next[static_cast<std::size_t>(thread)]++) << line;
        at = end + 2;
    }
    for (const int count : next)
        EXPECT_EQ(count, lines);
}

// Finds lines in a file that grows; reads each byte once.
class Follower {
  public:
    explicit Follower(const std::string& path) : m_in(path, std::ios::binary) {}

    bool hasNow(const std::string& line) {
        m_in.clear();
        m_in.seekg(m_at);
        m_text.append(std::istreambuf_iterator<char>(m_in), {});
        m_at = static_cast<std::streamoff>(m_text.size());
        const std::size_t found = m_text.find(line, m_from);
        if (found == std::string::npos)
            return false;
        m_from = found;
        return true;
    }

  private:
    std::ifstream m_in;
    std::streamoff m_at = 0;
    std::string m_text;
    std::size_t m_from = 0; // lines are asked for in their order
};

#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
constexpr int kLines = 150;
#else
constexpr int kLines = 600;
#endif

class SysLoggerThreads : public testing::Test {
  protected:
    std::string path() const { return m_folder.name("x.log"); }
    std::string file() const { return m_folder.read("x.log"); }

    TempFolder m_folder;
};
using SysLoggerThreadsDeathTest = SysLoggerThreads;

// ---- a worker that looks at its flag before it is set ----

// Starts the loop and waits until it has ended, which it does at once.
std::thread startTooFast(SysLogger& logger) {
    std::atomic<bool> ended{false};
    std::thread worker([&] {
        logger.workerLoop();
        ended = true;
    });
    waitWhile(ended, false);
    return worker;
}

// The mark that the last worker had.
std::string workersMark;

std::thread startAndKeepMark(SysLogger& logger) {
    return std::thread([&logger] {
        logger.workerLoop();
        workersMark = getsmark();
    });
}

} // namespace

TEST_F(SysLoggerThreads, WorkerWritesWhatIsPosted) {
    GatedLogger logger(path(), 1);
    logger.openGate();
    logger->post(infoRecord("one\n"));
    EXPECT_TRUE(comesTrue([&] { return file() == "one\r\n"; }));
    // Long enough for the worker to fall asleep.
    std::this_thread::sleep_for(50ms);
    logger->post(infoRecord("two\n"));
    EXPECT_TRUE(comesTrue([&] { return file() == "one\r\ntwo\r\n"; }));
}

TEST_F(SysLoggerThreads, WorkerIsMarkedSyslog) {
    SysLogger(path(), 1, startAndKeepMark);
    EXPECT_EQ(workersMark, "SYSLOG");
}

TEST_F(SysLoggerThreads, DestructorHasTheWorkerWriteTheQueue) {
    std::string expected;
    GatedLogger logger(path(), 1);
    for (int i = 0; i < 5000; ++i) {
        logger->post(infoRecord(lineOf(0, i) + "\n"));
        expected += lineOf(0, i) + "\r\n";
    }
    EXPECT_EQ(file(), "");
    logger.finish();
    EXPECT_EQ(file(), expected);
}

TEST_F(SysLoggerThreads, DestructorOfASleepingWorkerReturns) {
    GatedLogger logger(path(), 1);
    logger.openGate();
    std::this_thread::sleep_for(50ms);
    logger.finish();
    EXPECT_EQ(file(), "");
}

TEST_F(SysLoggerThreads, RecordsPostedBehindTheStopAreDropped) {
    AppendGate gate;
    gate.close();
    GatedLogger owner(path(), 1);
    SysLogger* const logger = &*owner;
    owner.openGate();
    logger->post(infoRecord("in time\n"));
    ASSERT_TRUE(comesTrue([&] { return gate.holdsSomebody(); }));
    std::thread stopping([&] { owner.finish(); });
    // A record that leaves nothing in memory was dropped: the stop has begun, and waits for the
    // worker.
    EXPECT_TRUE(comesTrue([&] {
        const std::size_t before = liveNews();
        logger->post(infoRecord("late\n"));
        return liveNews() == before;
    }));
    for (int i = 0; i < 100; ++i)
        logger->post(infoRecord("later\n"));
    gate.open();
    stopping.join();
    EXPECT_EQ(file().find("in time\r\n"), 0u);
    EXPECT_EQ(file().find("later\r\n"), std::string::npos);
}

TEST_F(SysLoggerThreads, WorkerFasterThanItsFlagLeavesTheRecordsToADrain) {
    SysLogger logger(path(), 1, startTooFast);
    logger.post(infoRecord("one\n"));
    logger.post(infoRecord("two\n"));
    std::this_thread::sleep_for(50ms);
    EXPECT_EQ(file(), "");
    logger.drain();
    EXPECT_EQ(file(), "one\r\ntwo\r\n");
}

TEST_F(SysLoggerThreads, WorkerFasterThanItsFlagLosesWhatNoDrainWrites) {
    {
        SysLogger logger(path(), 1, startTooFast);
        logger.post(infoRecord("drained\n"));
        logger.drain();
        logger.post(infoRecord("lost, with a text that is not in the record itself\n"));
    }
    EXPECT_EQ(file(), "drained\r\n");
}

TEST_F(SysLoggerThreads, WorkerLeavesTheConstructorSomeTime) {
    SysLogger logger(path(), 1, [](SysLogger& made) {
        std::thread worker([&made] { made.workerLoop(); });
        std::this_thread::sleep_for(3ms);
        return worker;
    });
    logger.post(infoRecord("one\n"));
    EXPECT_TRUE(comesTrue([&] { return file() == "one\r\n"; }));
}

TEST_F(SysLoggerThreads, RecordThatIsPostedWithoutWakingIsTheDrainsOrTheNextOnes) {
    GatedLogger logger(path(), 1);
    logger.openGate();
    std::this_thread::sleep_for(50ms);
    logger->post(infoRecord("quiet\n"), SysLogger::Wake::no);
    logger->drain();
    EXPECT_EQ(file(), "quiet\r\n");
    logger->post(infoRecord("quiet too\n"), SysLogger::Wake::no);
    logger->post(infoRecord("loud\n"));
    EXPECT_TRUE(comesTrue([&] { return file() == "quiet\r\nquiet too\r\nloud\r\n"; }));
}

// What a drain could not finish is not left to a worker that sleeps.
TEST_F(SysLoggerThreads, WorkerGoesOnWhereADrainRaised) {
    GatedLogger logger(path(), 1);
    logger.openGate();
    int failures = 0;
    for (int i = 0; i < 20; ++i) {
        std::this_thread::sleep_for(5ms);
        const std::string huge(100'000 + 100'000 * static_cast<std::size_t>(i), 'h');
        logger->post(infoRecord(huge), SysLogger::Wake::no);
        logger->post(infoRecord("rest " + std::to_string(i) + "\n"), SysLogger::Wake::no);
        {
            const FailingNew failing(0, 1);
            try {
                logger->drain();
            } catch (const std::bad_alloc&) {
                ++failures;
            }
        }
        const std::string rest = "rest " + std::to_string(i) + "\r\n";
        ASSERT_TRUE(comesTrue([&] { return file().ends_with(rest); })) << i;
    }
    EXPECT_GT(failures, 0);
}

TEST_F(SysLoggerThreads, ExceptionOnTheWorkerIsReportedAndTheWorkerGoesOn) {
    testing::internal::CaptureStderr();
    {
        GatedLogger logger(path(), 1);
        logger->post(infoRecord("first\n"));
        logger->post(infoRecord(std::string(100'000, 'h')));
        logger->post(infoRecord("last\n"));
        const FailingNew failing(0, 1);
        logger.finish();
    }
    const std::string told = testing::internal::GetCapturedStderr();
    EXPECT_EQ(told.find("Unhandled STANDART exception caught in function SysLogger::workerLoop, "),
              0u)
        << told;
    EXPECT_EQ(file(), "first\r\nlast\r\n");
}

TEST_F(SysLoggerThreads, DrainWaitsForTheRecordInTheWorkersHand) {
    AppendGate gate;
    GatedLogger logger(path(), 1);
    gate.close();
    logger.openGate();
    logger->post(infoRecord("held\n"));
    ASSERT_TRUE(comesTrue([&] { return gate.holdsSomebody(); }));
    std::atomic<bool> drained{false};
    std::string seen;
    std::thread drainer([&] {
        logger->drain();
        seen = file();
        drained = true;
    });
    std::this_thread::sleep_for(100ms);
    EXPECT_FALSE(drained);
    gate.open();
    drainer.join();
    EXPECT_EQ(seen, "held\r\n");
}

TEST_F(SysLoggerThreads, DrainWaitsForTheRecordInAnotherDrainersHand) {
    AppendGate gate;
    SysLogger logger(path(), 1, startNoWorker);
    gate.close();
    logger.post(infoRecord("held\n"));
    std::thread first([&] { logger.drain(); });
    ASSERT_TRUE(comesTrue([&] { return gate.holdsSomebody(); }));
    std::atomic<bool> drained{false};
    std::string seen;
    std::thread second([&] {
        logger.drain();
        seen = file();
        drained = true;
    });
    std::this_thread::sleep_for(100ms);
    EXPECT_FALSE(drained);
    gate.open();
    first.join();
    second.join();
    EXPECT_EQ(seen, "held\r\n");
}

// A slow file holds up who writes, never who posts.
TEST_F(SysLoggerThreads, PostDoesNotWaitForTheFile) {
    AppendGate gate;
    GatedLogger logger(path(), 1);
    gate.close();
    logger.openGate();
    logger->post(infoRecord("held\n"));
    ASSERT_TRUE(comesTrue([&] { return gate.holdsSomebody(); }));
    for (int i = 0; i < 1000; ++i) // would hang here
        logger->post(infoRecord(lineOf(0, i) + "\n"));
    EXPECT_EQ(file(), "");
    gate.open();
    logger.finish();
    EXPECT_EQ(file().find("held\r\n"), 0u);
    expectWhole(file().substr(6), 1, 1000);
}

// Two threads post alone, six post and drain, the worker writes: what a thread posted before its
// drain stands in the file when the drain returns.
TEST_F(SysLoggerThreads, DrainReturnsWhenAllThatWasPostedBeforeIsInTheFile) {
    AppendGate pieces;
    pieces.takePieces(7); // a record that is not kept together would be torn
    GatedLogger logger(path(), 1);
    logger.openGate();
    constexpr int kThreads = 8;
    std::atomic<int> missing{0};
    std::vector<std::thread> threads;
    for (int thread = 0; thread < kThreads; ++thread)
        threads.emplace_back([&, thread] {
            Follower follower(path());
            for (int i = 0; i < kLines; ++i) {
                const std::string line = lineOf(thread, i);
                logger->post(infoRecord(line + "\n"),
                             thread < 2 ? SysLogger::Wake::yes : SysLogger::Wake::no);
                if (thread >= 2) {
                    logger->drain();
                    missing += !follower.hasNow(line + "\r\n");
                }
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(missing, 0);
    logger.finish();
    expectWhole(file(), kThreads, kLines);
}

TEST_F(SysLoggerThreads, RecordsWrittenDirectlyAreWholeToo) {
    AppendGate pieces;
    pieces.takePieces(5);
    GatedLogger logger(path(), 1);
    logger.openGate();
    constexpr int kThreads = 4;
    std::vector<std::thread> threads;
    for (int thread = 0; thread < kThreads; ++thread)
        threads.emplace_back([&, thread] {
            for (int i = 0; i < kLines; ++i) {
                std::unique_ptr<SysLogRecord, SysLogRecordFree> record(
                    infoRecord(lineOf(thread, i) + "\n"));
                if (thread % 2 == 0)
                    logger->writeRecord(record.get());
                else
                    logger->post(record.release());
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    logger.finish();
    expectWhole(file(), kThreads, kLines);
}

TEST_F(SysLoggerThreads, DateOfEachRecordIsItsOwn) {
    AppendGate pieces;
    pieces.takePieces(11);
    GatedLogger logger(path(), 0);
    logger.openGate();
    std::vector<std::thread> threads;
    for (std::uint32_t thread = 1; thread <= 4; ++thread)
        threads.emplace_back([&, thread] {
            const std::string text = std::to_string(thread);
            for (int i = 0; i < kLines; ++i) {
                SysLogRecord* record = textRecord(MsgLevel::Info, {text.c_str(), "-", "end"});
                record->date = thread | thread << 8 | thread << 16;
                logger->post(record);
                if (i % 16 == 0)
                    logger->drain();
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    logger.finish();
    std::size_t at = 0;
    int counts[4] = {};
    const std::string text = file();
    for (; at < text.size(); at += 33) {
        const std::string record = text.substr(at, 33);
        const int thread = record[27] - '0';
        ASSERT_TRUE(thread >= 1 && thread <= 4) << record;
        const std::string id = std::to_string(thread);
        ASSERT_EQ(record,
                  "\r\n0" + id + ".0" + id + ".   " + id + " 00:00:00.000 <" + id + "- end");
        ++counts[thread - 1];
    }
    for (const int count : counts)
        EXPECT_EQ(count, kLines);
}

// The deadlock error of a thread that would wait for itself, where nothing can be raised.
TEST_F(SysLoggerThreadsDeathTest, DestructionOnTheWorkerEndsTheProcess) {
    static std::atomic<SysLogger*> made;
    EXPECT_DEATH(
        {
            made = new SysLogger(path(), 1, [](SysLogger&) {
                return std::thread([] {
                    waitWhile(made, nullptr);
                    delete made.load();
                });
            });
            std::this_thread::sleep_for(20s);
            std::_Exit(0);
        },
        "system_error");
}

// Threads that open logs and write at once.

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <iostream>
#include <map>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "diagnostics/logLines.h"
#include "dw_util/threadLogState.h"
#include "logs/EVENTS.h"
#include "support/programFolder.h"
#include "vdreader/log.h"
#include "vdreader/logfiles.h"

namespace {

constexpr int kThreads = 8;
constexpr int kLines = 200;

template <class Body>
void onEachThread(Body body) {
    std::vector<std::thread> threads;
    std::atomic<int> ready{0};
    for (int i = 0; i < kThreads; ++i)
        threads.emplace_back([&, i] {
            for (++ready; ready < kThreads;)
                std::this_thread::yield();
            body(i);
        });
    for (std::thread& thread : threads)
        thread.join();
}

std::string lineOf(int thread, int line) {
    return "thread " + std::to_string(thread) + " line " + std::to_string(line);
}

void logLines(int thread) {
    for (int line = 0; line < kLines; ++line)
        error("%s", lineOf(thread, line).c_str());
}

// Every line of the threads is there once and whole, each thread's in its order.
void expectLines(const std::vector<std::string>& messages, const std::set<int>& threads) {
    std::map<int, int> next;
    for (const std::string& message : messages) {
        int thread = -1;
        for (const int candidate : threads)
            if (message == lineOf(candidate, next[candidate]))
                thread = candidate;
        ASSERT_NE(thread, -1) << message;
        ++next[thread];
    }
    for (const int thread : threads)
        EXPECT_EQ(next[thread], kLines) << thread;
}

std::set<int> everyThread() {
    std::set<int> all;
    for (int i = 0; i < kThreads; ++i)
        all.insert(i);
    return all;
}

} // namespace

TEST(LogFilesThreads, ThreadsThatShareAFileGetEveryLineIn) {
    const ProgramFolder folder;
    std::array<std::shared_ptr<EVENTS>, kThreads> files;
    onEachThread([&](int thread) {
        util_init("events.log", thread % 2 == 0 ? "shared.log" : "SHARED.LOG", "MARK", nullptr);
        files[thread] = threadLogState().errorsFile;
        logLines(thread);
    });
    shutdown_logs();
    for (const auto& file : files)
        EXPECT_EQ(file, files[0]);
    // One of the two names was first.
    const char* const made = folder.has("shared.log") ? "shared.log" : "SHARED.LOG";
    expectLines(messagesIn(folder.path() / made), everyThread());
    expectLines(messagesIn(folder.path() / "events.log"), everyThread());
}

TEST(LogFilesThreads, ThreadsWithTheirOwnFilesKeepThemApart) {
    const ProgramFolder folder;
    onEachThread([&](int thread) {
        const std::string own = "own" + std::to_string(thread) + ".log";
        util_init(own.c_str(), own.c_str(), nullptr, nullptr);
        // The event log is that of whoever came first; it must not be the error log of another.
        util_init(nullptr, ("errors" + own).c_str(), nullptr, nullptr);
        logLines(thread);
    });
    shutdown_logs();
    for (int thread = 0; thread < kThreads; ++thread)
        expectLines(messagesIn(folder.path() / ("errorsown" + std::to_string(thread) + ".log")),
                    {thread});
}

TEST(LogFilesThreads, ThreadsThatChangeFilesAllTheTimeLoseNothing) {
    const ProgramFolder folder;
    onEachThread([&](int thread) {
        for (int line = 0; line < kLines; ++line) {
            const std::string file = "file" + std::to_string((thread + line) % 3) + ".log";
            util_init(nullptr, file.c_str(), nullptr, nullptr);
            error("%s", lineOf(thread, line).c_str());
        }
    });
    std::multiset<std::string> found;
    for (const char* file : {"file0.log", "file1.log", "file2.log"})
        for (const std::string& message : messagesIn(folder.path() / file))
            found.insert(message);
    EXPECT_EQ(found.size(), static_cast<std::size_t>(kThreads * kLines));
    for (int thread = 0; thread < kThreads; ++thread)
        for (int line = 0; line < kLines; ++line)
            EXPECT_EQ(found.count(lineOf(thread, line)), 1u) << lineOf(thread, line);
}

TEST(LogFilesThreads, ThreadsThatEndLetGoOfTheirFilesWhichStayOpen) {
    const ProgramFolder folder;
    std::array<std::weak_ptr<EVENTS>, 3> files;
    for (int i = 0; i < 50; ++i)
        std::thread([&] {
            util_init("events.log", "errors.log", nullptr, nullptr);
            netutil_init();
            files = {threadLogState().eventsFile, threadLogState().errorsFile,
                     threadLogState().netEventsFile};
            error("line %d", i);
        }).join();
    for (const auto& file : files) {
        ASSERT_EQ(file.use_count(), 1); // the slot
        EXPECT_TRUE(file.lock()->provider->isGood());
    }
    EXPECT_EQ(messagesIn(folder.path() / "errors.log").size(), 50u);
    shutdown_logs();
}

TEST(LogFilesThreads, LinkMayBeSetWhileOthersLog) {
    const ProgramFolder folder;
    std::ostringstream text;
    std::streambuf* const former = std::cerr.rdbuf(text.rdbuf());
    onEachThread([&](int thread) {
        util_init(nullptr, "errors.log", nullptr, nullptr);
        for (int line = 0; line < kLines; ++line) {
            if (thread == 0 && line == kLines / 2) {
                EnableForwardLogToConsole();
                util_init(nullptr, "errors.log", nullptr, nullptr);
            }
            error("%s", lineOf(thread, line).c_str());
        }
    });
    std::cerr.rdbuf(former);
    expectLines(messagesIn(folder.path() / "errors.log"), everyThread());
    EXPECT_NE(text.str().find(lineOf(0, kLines - 1) + "\r\n"), std::string::npos);
}

// Reports of real stacks, as they reach the event log.

#include "diagnostics/stackReport.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <string>
#include <thread>
#include <vector>

#include "diagnostics/StackWalker.h"
#include "diagnostics/stackFixture.h"
#include "platform/process.h"
#include "platform/thread.h"
#include "support/capturedLog.h"
#include "support/victim.h"
#include "vdreader/postmortem.h"

// Neither inlined nor cloned.  Names have their parameters where symbols and not debug information
// tell them.
#define KNOWN_FRAME __attribute__((noipa))

namespace known {

// A chain of calls that no optimiser takes apart: work stands behind each of them.
volatile int depth = 0;
int innerLine = 0;
int middleLine = 0;
int outerLine = 0;

KNOWN_FRAME int innermost(const void* context, int) {
    innerLine = __LINE__ + 1;
    ServerStackWalk(context);
    depth = depth + 1;
    return depth;
}
struct Middle {
    KNOWN_FRAME int method(const void* context) {
        middleLine = __LINE__ + 1;
        return innermost(context, depth) + depth;
    }
};
template <class Number>
KNOWN_FRAME int outermost(Number number, const void* context) {
    outerLine = __LINE__ + 1;
    return Middle().method(context) + static_cast<int>(number);
}

// The same with a context of its own.
KNOWN_FRAME int captured(platform::ThreadContext& context) {
    platform::captureContext(context);
    ServerStackWalk(&context);
    depth = depth + 1;
    return depth;
}

} // namespace known

namespace {

std::vector<std::string> linesWith(const std::vector<std::string>& lines, const std::string& text) {
    std::vector<std::string> found;
    for (const std::string& line : lines)
        if (line.find(text) != std::string::npos)
            found.push_back(line);
    return found;
}

// The end of a frame's file name, and its line.
std::string sourceAt(int line) {
    return "stackReport_test.cpp\":" + std::to_string(line) + "]";
}

std::size_t indexOf(const std::vector<std::string>& lines, const std::string& text) {
    for (std::size_t i = 0; i < lines.size(); ++i)
        if (lines[i].find(text) != std::string::npos)
            return i;
    ADD_FAILURE() << "no line with " << text << " among " << testing::PrintToString(lines);
    return lines.size();
}

} // namespace

TEST(StackReport, KnownChainHasNamesFilesAndLines) {
    const CapturedLog log;
    known::outermost(2.5, nullptr);
    const auto lines = log.messages(CapturedLog::events);
    const std::size_t inner = indexOf(lines, "[Func=known::innermost");
    const std::size_t middle = indexOf(lines, "[Func=known::Middle::method");
    const std::size_t outer = indexOf(lines, "known::outermost<double>");
    ASSERT_LT(outer, lines.size());
    EXPECT_EQ(middle, inner + 1);
    EXPECT_EQ(outer, middle + 1);
    EXPECT_NE(lines[inner].find("stackReport_test.cpp"), std::string::npos) << lines[inner];
    // The library of the other system looks return addresses up, which may be of the next line.
    if (platform::pathForm.separator == '/') {
        EXPECT_NE(lines[inner].find(sourceAt(known::innerLine)), std::string::npos) << lines[inner];
        EXPECT_NE(lines[middle].find(sourceAt(known::middleLine)), std::string::npos)
            << lines[middle];
        EXPECT_NE(lines[outer].find(sourceAt(known::outerLine)), std::string::npos) << lines[outer];
    }
    EXPECT_NE(lines[inner].find("vdreader_unit_tests"), std::string::npos) << lines[inner];
}

// The start of a program comes without debug information, between functions that have some.
TEST(StackReport, FunctionWithoutDebugInformationHasNoSource) {
    if (platform::pathForm.separator != '/')
        GTEST_SKIP() << "the debug help library of the system decides";
    const CapturedLog log;
    ServerStackWalk(nullptr);
    const auto start = linesWith(log.messages(CapturedLog::events), "[Func=_start]");
    ASSERT_EQ(start.size(), 1u);
    EXPECT_TRUE(start[0].find("[Source=\"\":0]") != std::string::npos ||
                start[0].find("start.S\":") != std::string::npos)
        << start[0];
    const auto program = linesWith(log.messages(CapturedLog::events), "[Func=main]");
    ASSERT_EQ(program.size(), 1u);
    EXPECT_TRUE(program[0].find("[Source=\"\":0]") != std::string::npos ||
                program[0].find("gtest_main.cc\":") != std::string::npos)
        << program[0];
}

TEST(StackReport, ModulesComeInFrontOfTheStack) {
    const CapturedLog log;
    ServerStackWalk(nullptr);
    const auto lines = log.messages(CapturedLog::events);
    ASSERT_GT(lines.size(), 8u);
    EXPECT_EQ(lines.front(), "[ModuleList] ------------- Begin -------------");
    const std::size_t end = indexOf(lines, "[ModuleList] ------------- End ---------------");
    ASSERT_LT(end + 3, lines.size());
    for (std::size_t i = 1; i < end; ++i)
        EXPECT_EQ(lines[i].rfind("[ModuleList] ", 0), 0u) << lines[i];
    EXPECT_EQ(lines[end + 1], "[CallStack] ------------- Begin -------------");
    EXPECT_EQ(lines[end + 2], "[CallStack]            Address:              Frame:");
    EXPECT_EQ(lines[end + 3].rfind("[CallStack] 0x", 0), 0u) << lines[end + 3];
    EXPECT_EQ(lines.back(), "[CallStack] ------------- End ---------------");
    const auto program = linesWith(lines, "vdreader_unit_tests");
    ASSERT_FALSE(program.empty());
    EXPECT_NE(program.front().find("SymType: 'DIA'"), std::string::npos) << program.front();
    EXPECT_TRUE(linesWith(lines, "ERROR").empty()) << testing::PrintToString(lines);
}

TEST(StackReport, GivenContextBeginsAtItsFrame) {
    const CapturedLog log;
    platform::ThreadContext context = {};
    known::captured(context);
    const auto lines = log.messages(CapturedLog::events);
    const std::size_t begin = indexOf(lines, "Address:              Frame:");
    ASSERT_LT(begin + 1, lines.size());
    EXPECT_NE(lines[begin + 1].find("[Func=known::captured"), std::string::npos)
        << lines[begin + 1];
}

TEST(StackReport, EachReportHasTheWholeList) {
    const CapturedLog log;
    ServerStackWalk(nullptr);
    ServerStackWalk(nullptr);
    EXPECT_EQ(linesWith(log.messages(CapturedLog::events), "[ModuleList] ---").size(), 4u);
}

TEST(StackReport, ThreadsReportOneAfterTheOther) {
    const CapturedLog log;
    std::vector<std::thread> threads;
    constexpr int kThreads = 2; // a report takes seconds on one system
    for (int i = 0; i < kThreads; ++i)
        threads.emplace_back([] { ServerStackWalk(nullptr); });
    for (std::thread& thread : threads)
        thread.join();
    const auto lines = log.messages(CapturedLog::events);
    int inside = 0;
    int reports = 0;
    for (const std::string& line : lines) {
        if (line == "[ModuleList] ------------- Begin -------------") {
            EXPECT_EQ(inside, 0);
            inside = 1;
        } else if (line == "[CallStack] ------------- End ---------------") {
            EXPECT_EQ(inside, 1);
            inside = 0;
            ++reports;
        }
    }
    EXPECT_EQ(reports, kThreads);
}

TEST(StackReport, ThreadThatHoldsTheLockReports) {
    const CapturedLog log;
    const std::lock_guard outer(dumpLock());
    ServerStackWalk(nullptr);
    EXPECT_EQ(log.messages(CapturedLog::events).back(),
              "[CallStack] ------------- End ---------------");
}

TEST(StackReport, CallbackIsNotCalled) {
    const CapturedLog log;
    walkAndLog(nullptr, [](const char*) { ADD_FAILURE(); });
    EXPECT_GT(log.size(), 6u);
}

// The system's own context of a running thread ends after the first frame on one system; both have
// that one.
TEST(StackReport, CurrentStackHasAtLeastOneFrame) {
    const CapturedLog log;
    DrawCurrentStack();
    const auto lines = log.messages(CapturedLog::events);
    const std::size_t begin = indexOf(lines, "Address:              Frame:");
    ASSERT_LT(begin + 2, lines.size());
    EXPECT_EQ(lines[begin + 1].rfind("[CallStack] 0x", 0), 0u) << lines[begin + 1];
    EXPECT_EQ(lines.back(), "[CallStack] ------------- End ---------------");
}

// By the way of the system's own context, with nobody stopped and nobody let go.
TEST(StackReport, CurrentStackIsThatOfItsOneContext) {
    StackFixture stack; // puts the calls back too
    static std::vector<std::string> called;
    called.clear();
    platform::threadCalls.suspend = [](platform::ThreadHandle) {
        called.emplace_back("suspend");
        return 0u;
    };
    platform::threadCalls.resume = [](platform::ThreadHandle) {
        called.emplace_back("resume");
        return 0u;
    };
    platform::threadCalls.contextOf = [](platform::ThreadHandle thread, std::uint32_t flags,
                                         platform::ThreadContext* out) {
        EXPECT_EQ(thread, platform::currentThread());
        EXPECT_EQ(flags, 0x10001fu);
        called.emplace_back("context");
        *out = StackFixture::contextOf(0x1234, 0x2000);
        return true;
    };
    const CapturedLog log;
    DrawCurrentStack();
    EXPECT_EQ(called, std::vector<std::string>{"context"});
    const platform::Address64& start = stack.help().firstFrame.programCounter;
    EXPECT_EQ(start.offset, 0x1234u);
}

TEST(StackReport, OtherThreadIsWalkedAndRunsOn) {
    SKIP_WHERE_NO_THREAD_STOPS();
    std::atomic<std::uint64_t> turns{0};
    std::atomic<bool> stop{false};
    Victim victim([&] {
        while (!stop.load())
            turns.fetch_add(1);
    });
    const auto output = std::make_shared<RecordingOutput>();
    velt::callstack::StackWalker walker(platform::processId(),
                                        platform::debugCalls.currentProcess());
    walker.setOutput(output);
    EXPECT_TRUE(walker.walk(nullptr, victim.handle()));
    EXPECT_GE(linesWith(output->lines, "[CallStack] ").size(), 1u);
    const std::uint64_t seen = turns.load();
    while (turns.load() == seen)
        platform::yieldThread();
    stop.store(true);
    victim.join();
}

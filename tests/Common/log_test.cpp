#include "vdreader/log.h"

#include <gtest/gtest.h>

#include <cstdarg>
#include <cstring>
#include <limits>
#include <string>
#include <thread>
#include <vector>

#include "dw_util/logLine.h"
#include "dw_util/threadLogState.h"
#include "platform/error.h"
#include "platform/process.h"
#include "support/capturedLog.h"
#include "support/scopedCalls.h"
#include "vdreader/raise.h"

namespace {

std::string header(const char* letter) {
    beginLine();
    aputHeader(letter);
    return getabuf();
}

std::string program() {
    char path[261] = {};
    platform::calls.executablePath(path, sizeof path);
    return path;
}

std::string systemText(std::uint32_t code) {
    char text[512];
    platform::systemErrorText(code, text, sizeof text);
    return text;
}

// A clock that stands still, so that headers can be compared.
class StillClock {
  public:
    StillClock() {
        platform::calls.wallClock = [] { return platform::WallTime{1'700'000'000, 1}; };
    }

  private:
    ScopedCalls m_calls;
};

using VariadicLog = void (*)(const char* format, va_list arguments);

void callWith(VariadicLog log, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    log(format, arguments);
    va_end(arguments);
}

void callDebug(std::int32_t level, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    vdevent(level, format, arguments);
    va_end(arguments);
}

using Lines = std::vector<std::string>;

} // namespace

TEST(Log, NothingIsWrittenBeforeAnySinkIsSetUp) {
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    error("%s", "x");
    warning("x");
    event("x");
    devent(0, "x");
    exc_h_print("x");
    netevent("x");
    oserrori("x");
    socerrori("x");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(Log, ErrorAndWarningNameTheProgram) {
    const StillClock clock;
    const CapturedLog log;
    error("%d apples", 3);
    warning("%s", "pears");
    callWith(verror, "%d more", 4);
    callWith(vwarning, "%d fewer", 5);
    const std::string running = "Running " + program();
    EXPECT_EQ(log.lines(CapturedLog::errors),
              (Lines{header("E") + running + ": Error: 3 apples\n",
                     header("W") + running + ": Warning: pears\n",
                     header("E") + running + ": Error: 4 more\n",
                     header("W") + running + ": Warning: 5 fewer\n"}));
    EXPECT_TRUE(log.lines(CapturedLog::events).empty());
}

TEST(Log, EventIsHeaderAndMessage) {
    const StillClock clock;
    const CapturedLog log;
    event("%d%%", 7);
    callWith(vevent, "%s", "v");
    EXPECT_EQ(log.lines(CapturedLog::events), (Lines{header("V") + "7%\n", header("V") + "v\n"}));
    EXPECT_TRUE(log.lines(CapturedLog::errors).empty());
}

TEST(Log, DebugEventNeedsItsLevel) {
    const StillClock clock;
    const CapturedLog log;
    devent(1, "x");
    EXPECT_TRUE(log.lines(CapturedLog::events).empty());
    devent(0, "always");
    EXPECT_EQ(log.lines(CapturedLog::events), (Lines{header("0") + "always\n"}));
    SetDebugLevel(2);
    devent(2, "two");
    devent(-2, "minus two");
    devent(3, "three");
    devent(-3, "minus three");
    callDebug(1, "%d", 11);
    EXPECT_EQ(log.lines(CapturedLog::events),
              (Lines{header("0") + "always\n", header("2") + "two\n", header(".") + "minus two\n",
                     header("1") + "11\n"}));
}

TEST(Log, LetterOfADebugLevelIsItsLowByteAboveZero) {
    const CapturedLog log;
    SetDebugLevel(std::numeric_limits<std::int32_t>::max());
    devent(-1, "x");
    devent(0x1FF02, "x");
    ASSERT_EQ(log.lines(CapturedLog::events).size(), 2u);
    EXPECT_EQ(log.lines(CapturedLog::events)[0].substr(0, 3), "/: ");
    EXPECT_EQ(log.lines(CapturedLog::events)[1].substr(0, 3), "2: ");
}

TEST(Log, SmallestDebugLevelIsNeverReached) {
    const CapturedLog log;
    SetDebugLevel(std::numeric_limits<std::int32_t>::max());
    devent(std::numeric_limits<std::int32_t>::min(), "x");
    EXPECT_TRUE(log.lines(CapturedLog::events).empty());
}

TEST(Log, ExceptionReportAndNetEventHaveSinksOfTheirOwn) {
    const StillClock clock;
    const CapturedLog log;
    exc_h_print("%s", "fault");
    netevent("%s|", "raw");
    EXPECT_EQ(log.lines(CapturedLog::exceptions), (Lines{header("F") + "fault\n"}));
    EXPECT_EQ(log.lines(CapturedLog::netEvents), (Lines{"raw|"}));
    EXPECT_TRUE(log.lines(CapturedLog::events).empty());
}

TEST(Log, LongLineEndsInTheCutMark) {
    const CapturedLog log;
    event("%s", std::string(3000, 'x').c_str());
    error("%2500d", 1);
    netevent("%s", std::string(3000, 'n').c_str());
    for (const auto family : {CapturedLog::events, CapturedLog::errors, CapturedLog::netEvents}) {
        const std::string line = log.lines(family).at(0);
        EXPECT_EQ(line.size(), 2000u);
        EXPECT_EQ(line.substr(1995), line.substr(1995, 1) + "...\n");
    }
    EXPECT_EQ(log.lines(CapturedLog::events)[0][1995], 'x');
}

TEST(Log, LineFeedThatDoesNotFitIsTheCutMark) {
    const StillClock clock;
    const CapturedLog log;
    const std::string head = header("V");
    // Two bytes are wanted behind the message: its line feed and the end.
    event("%s", std::string(1998 - head.size(), 'x').c_str());
    event("%s", std::string(1999 - head.size(), 'x').c_str());
    EXPECT_EQ(log.lines(CapturedLog::events).at(0),
              head + std::string(1998 - head.size(), 'x') + "\n");
    EXPECT_EQ(log.lines(CapturedLog::events).at(1),
              head + std::string(1996 - head.size(), 'x') + "...\n");
}

TEST(Log, SystemFailureTellsPlaceNumberAndText) {
    const StillClock clock;
    const CapturedLog log;
    place("a\\b:c.cpp", 17);
    platform::setLastError(2);
    oserrori("open %s", "x");
    platform::setLastError(5);
    oserrori_ex("d:\\e.cpp", 18, "read");
    const std::string running = "Running " + program() + ": ";
    EXPECT_EQ(log.lines(CapturedLog::errors),
              (Lines{header("O") + running + "(c.cpp at 17) open x OS error description: [2] [" +
                         systemText(2) + "].\n",
                     header("O") + running + "(e.cpp at 18) read OS error description: [5] [" +
                         systemText(5) + "].\n"}));
}

TEST(Log, SocketFailureHasNoBlankInFrontOfTheSystemsText) {
    const StillClock clock;
    const CapturedLog log;
    place("c.cpp", 17);
    platform::setLastError(2);
    socerrori("open %s", "x");
    platform::setLastError(5);
    socerrori_ex("e.cpp", 18, "read");
    const std::string running = "Running " + program() + ": ";
    EXPECT_EQ(log.lines(CapturedLog::errors),
              (Lines{header("S") + running +
                         "(c.cpp at 17) open xOS error description: " + systemText(2) + ".\n",
                     header("S") + running +
                         "(e.cpp at 18) readOS error description: " + systemText(5) + ".\n"}));
}

TEST(Log, LastErrorIsReadBeforeTheBufferIsMade) {
    const CapturedLog log;
    std::thread([] {
        const ScopedCalls calls;
        platform::calls.wallClock = [] {
            platform::setLastError(13);
            return platform::WallTime{};
        };
        platform::setLastError(2);
        oserrori_ex("f", 1, "x");
        platform::setLastError(2);
        socerrori_ex("f", 1, "x");
    }).join();
    EXPECT_NE(log.lines(CapturedLog::errors).at(0).find("[2] ["), std::string::npos);
    EXPECT_NE(log.lines(CapturedLog::errors).at(1).find(systemText(2)), std::string::npos);
}

TEST(Log, FormsWithoutAPlaceReadTheLastErrorFirstToo) {
    const CapturedLog log;
    std::thread([] {
        const ScopedCalls calls;
        platform::calls.wallClock = [] {
            platform::setLastError(13);
            return platform::WallTime{};
        };
        platform::setLastError(2);
        oserrori("x");
        platform::setLastError(2);
        socerrori("x");
    }).join();
    EXPECT_NE(log.lines(CapturedLog::errors).at(0).find("[2] ["), std::string::npos);
    EXPECT_NE(log.lines(CapturedLog::errors).at(1).find(systemText(2)), std::string::npos);
}

TEST(Log, ThreadsAppendAboutTheProgramSideBySide) {
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i)
        threads.emplace_back([] {
            for (int k = 0; k < 500; ++k)
                appendappinfo("0123456789");
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(std::strlen(getappinfo()), 8u * 500u * 11u);
}

TEST(Log, DebugLevelIsReplacedUnlessItIsNegative) {
    EXPECT_EQ(GetDebugLevel(), 0);
    EXPECT_EQ(SetDebugLevel(3), 0);
    EXPECT_EQ(GetDebugLevel(), 3);
    EXPECT_EQ(SetDebugLevel(-1), 3);
    EXPECT_EQ(GetDebugLevel(), 3);
    EXPECT_EQ(SetDebugLevel(0), 3);
}

TEST(Log, BannerPointerWinsUntilItIsTakenAway) {
    const StillClock clock;
    const CapturedLog log;
    char text[] = "pointer ";
    setbanner("copied ");
    setbanner_ptr(text);
    text[0] = 'P';
    event("x");
    unsetbanner_ptr();
    event("x");
    EXPECT_NE(log.lines(CapturedLog::events).at(0).find("): Pointer x\n"), std::string::npos);
    EXPECT_NE(log.lines(CapturedLog::events).at(1).find("): copied x\n"), std::string::npos);
}

TEST(Log, BannerKeeps256Characters) {
    setbanner(std::string(300, 'b').c_str());
    EXPECT_EQ(std::string(threadLogState().banner), std::string(256, 'b'));
    std::thread([] { EXPECT_STREQ(threadLogState().banner, ""); }).join();
}

TEST(Log, MarkIsTheThreadsOwnAndStartsEmpty) {
    char* const mark = getsmark();
    EXPECT_EQ(getsmark(), mark);
    EXPECT_EQ(std::memcmp(mark, "\0\0\0\0\0\0\0\0", 8), 0);
    util_set_mark("0123456789");
    EXPECT_EQ(std::memcmp(mark, "0123456\0", 8), 0);
    util_set_mark("a");
    EXPECT_STREQ(mark, "a");
    std::thread([mark] { EXPECT_NE(getsmark(), mark); }).join();
}

TEST(Log, MarkAndBufferOutliveTheirThread) {
    char* mark = nullptr;
    char* buffer = nullptr;
    std::thread([&] {
        util_set_mark("gone");
        mark = getsmark();
        event("of the thread");
        buffer = getabuf();
    }).join();
    EXPECT_STREQ(mark, "gone");
    EXPECT_NE(std::strstr(buffer, "of the thread\n"), nullptr);
}

TEST(Log, AppInfoGrowsByLines) {
    EXPECT_STREQ(getappinfo(), "");
    appendappinfo("one");
    appendappinfo("");
    appendappinfo("two");
    EXPECT_STREQ(getappinfo(), "one\n\ntwo\n");
}

TEST(Log, ThreadsLogSideBySide) {
    const CapturedLog log;
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i)
        threads.emplace_back([i] {
            for (int k = 0; k < 200; ++k)
                event("thread %d line %d", i, k);
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(log.lines(CapturedLog::events).size(), 1600u);
    for (const std::string& line : log.lines(CapturedLog::events))
        EXPECT_EQ(line.find("thread "), line.rfind("thread "));
}

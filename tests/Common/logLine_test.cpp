#include "dw_util/logLine.h"

#include <gtest/gtest.h>

#include <cstring>
#include <ctime>
#include <string>
#include <thread>

#ifndef _WIN32
#  include <sys/wait.h>
#  include <unistd.h>
#endif

#include "dw_util/threadLogState.h"
#include "platform/clock.h"
#include "platform/thread.h"
#include "support/capturedLog.h"
#include "support/failingMalloc.h"
#include "support/raised.h"
#include "support/scopedCalls.h"
#include "support/timeZone.h"
#include "vdreader/errors.hpp"
#include "vdreader/log.h"

namespace {

std::string line() {
    return getabuf();
}

// Local time of 7 February 2026, 04:05:06.
std::int64_t earlyInFebruary() {
    std::tm local = {};
    local.tm_year = 126;
    local.tm_mon = 1;
    local.tm_mday = 7;
    local.tm_hour = 4;
    local.tm_min = 5;
    local.tm_sec = 6;
    local.tm_isdst = -1;
    return std::mktime(&local);
}

platform::WallTime clockOfTheTest() {
    static const std::int64_t seconds = earlyInFebruary();
    return {seconds, 9};
}

std::string identity() {
    return std::to_string(platform::processId()) + ":" + std::to_string(platform::threadId());
}

} // namespace

TEST(LogLine, AppendsPieceByPiece) {
    beginLine();
    EXPECT_EQ(aprintf("%d-", 5), 2);
    EXPECT_EQ(aprintf("%s", "abc"), 3);
    EXPECT_EQ(line(), "5-abc");
    EXPECT_EQ(getaptr(), getabuf() + 5);
    beginLine();
    EXPECT_EQ(line(), "");
    EXPECT_EQ(getaptr(), getabuf());
}

TEST(LogLine, BufferIsZeroedAndTheThreadsOwn) {
    char* const mine = getabuf();
    EXPECT_EQ(getabuf(), mine);
    std::thread([mine] {
        const std::string zeroes(kLineBufferSize, '\0');
        ASSERT_NE(getabuf(), mine);
        EXPECT_EQ(std::memcmp(getabuf(), zeroes.data(), zeroes.size()), 0);
    }).join();
}

TEST(LogLine, HeaderTellsTimeProcessThreadAndBanner) {
    const ScopedCalls calls;
    platform::calls.wallClock = clockOfTheTest;
    beginLine();
    aputHeader("V");
    EXPECT_EQ(line(), "V:  7 Feb 26 (Sat) 04:05:06.009 (" + identity() + "): ");
    setbanner("[banner]");
    beginLine();
    aputHeader("9");
    EXPECT_EQ(line(), "9:  7 Feb 26 (Sat) 04:05:06.009 (" + identity() + "): [banner]");
}

TEST(LogLine, HeaderTellsLocalTime) {
    setTimeZone("XYZ-3"); // three hours ahead
    const ScopedCalls calls;
    platform::calls.wallClock = [] { return platform::WallTime{1'700'000'000, 1}; };
    beginLine();
    aputHeader("V");
    EXPECT_EQ(line(), "V: 15 Nov 23 (Wed) 01:13:20.001 (" + identity() + "): ");
}

TEST(LogLine, HeaderHoldsTheMarkBehindAThirdColon) {
    const ScopedCalls calls;
    platform::calls.wallClock = clockOfTheTest;
    util_set_mark("ABCDEFGHI");
    beginLine();
    aputHeader("E");
    EXPECT_EQ(line(), "E:  7 Feb 26 (Sat) 04:05:06.009 (" + identity() + ":ABCDEFG): ");
    util_set_mark("");
    beginLine();
    aputHeader("E");
    EXPECT_EQ(line(), "E:  7 Feb 26 (Sat) 04:05:06.009 (" + identity() + "): ");
}

// Hosts may write to the mark; nothing ends it then.
TEST(LogLine, MarkThatFillsItsBytesIsReadNoFurther) {
    const ScopedCalls calls;
    platform::calls.wallClock = clockOfTheTest;
    std::memset(getsmark(), 'x', 8);
    beginLine();
    aputHeader("E");
    EXPECT_EQ(line(), "E:  7 Feb 26 (Sat) 04:05:06.009 (" + identity() + ":xxxxxxxx): ");
    util_set_mark("");
}

TEST(LogLine, HeaderFollowsTheClockInBothDirections) {
    const ScopedCalls calls;
    static platform::WallTime now = clockOfTheTest();
    platform::calls.wallClock = [] { return now; };
    const auto header = [](std::int64_t later, std::int32_t milliseconds) {
        now = {earlyInFebruary() + later, milliseconds};
        beginLine();
        aputHeader("V");
        return line().substr(3, 28);
    };
    EXPECT_EQ(header(0, 9), " 7 Feb 26 (Sat) 04:05:06.009");
    EXPECT_EQ(header(0, 10), " 7 Feb 26 (Sat) 04:05:06.010");
    EXPECT_EQ(header(0, 999), " 7 Feb 26 (Sat) 04:05:06.999");
    EXPECT_EQ(header(1, 0), " 7 Feb 26 (Sat) 04:05:07.000");
    EXPECT_EQ(header(0, 321), " 7 Feb 26 (Sat) 04:05:06.321");
    EXPECT_EQ(header(-10, 7), " 7 Feb 26 (Sat) 04:04:56.007");
    EXPECT_EQ(header(86'400, 7), " 8 Feb 26 (Sun) 04:05:06.007");
    EXPECT_EQ(header(4 * 86'400, 7), "11 Feb 26 (Wed) 04:05:06.007");
}

TEST(LogLine, HeaderOfTheFirstSecondOfTheClockIsWhole) {
    const ScopedCalls calls;
    platform::calls.wallClock = [] { return platform::WallTime{0, 5}; };
    const std::tm local = platform::localTime(0);
    char date[64];
    std::strftime(date, sizeof date, "%b %y (%a) %H:%M:%S", &local);
    std::thread([&date] {
        beginLine();
        aputHeader("V");
        EXPECT_NE(line().find(std::string(date) + ".005 (" + identity() + "): "),
                  std::string::npos);
    }).join();
}

TEST(LogLine, HeaderFollowsTheMarkWithinOneSecond) {
    const ScopedCalls calls;
    platform::calls.wallClock = clockOfTheTest;
    const auto header = [] {
        beginLine();
        aputHeader("E");
        return line().substr(line().find('('));
    };
    const std::string ids = "(Sat) 04:05:06.009 (" + identity();
    EXPECT_EQ(header(), ids + "): ");
    util_set_mark("one");
    EXPECT_EQ(header(), ids + ":one): ");
    util_set_mark("two");
    EXPECT_EQ(header(), ids + ":two): ");
    getsmark()[2] = 'p';
    EXPECT_EQ(header(), ids + ":twp): ");
    util_set_mark("");
    EXPECT_EQ(header(), ids + "): ");
}

TEST(LogLine, HeadersOfTwoThreadsKeepApart) {
    const ScopedCalls calls;
    platform::calls.wallClock = clockOfTheTest;
    const auto header = [] {
        beginLine();
        aputHeader("E");
        return line();
    };
    const std::string date = "E:  7 Feb 26 (Sat) 04:05:06.009 (";
    const std::string mine = identity();
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(header(), date + mine + "): ");
        std::thread([&] {
            ASSERT_NE(identity(), mine);
            EXPECT_EQ(header(), date + identity() + "): ");
            util_set_mark("other");
            EXPECT_EQ(header(), date + identity() + ":other): ");
        }).join();
    }
    EXPECT_EQ(header(), date + mine + "): ");
}

TEST(LogLine, LongBannerCutsTheHeader) {
    const std::string banner(3000, 'b');
    setbanner_ptr(banner.c_str());
    beginLine();
    aputHeader("V");
    unsetbanner_ptr();
    EXPECT_EQ(line().size(), kLineSize);
    EXPECT_EQ(line().substr(1995), "b...\n");
}

TEST(LogLine, TextOfTheExactRoomIsCut) {
    beginLine();
    const std::string fits(kLineSize - 1, 'x');
    EXPECT_EQ(aprintf("%s", fits.c_str()), static_cast<int>(kLineSize - 1));
    EXPECT_EQ(line(), fits);
    beginLine();
    EXPECT_EQ(aprintf("%s", (fits + "y").c_str()), static_cast<int>(kLineSize));
    EXPECT_EQ(line(), fits.substr(0, 1996) + "...\n");
}

TEST(LogLine, FullLineKeepsItsEndAndTakesNothingMore) {
    beginLine();
    aprintf("%s", std::string(3000, 'x').c_str());
    getabuf()[kLineSize - 1] = '#';
    EXPECT_EQ(aprintf("more"), 0);
    EXPECT_EQ(line(), std::string(1996, 'x') + "...\n");
    EXPECT_EQ(getaptr(), getabuf() + kLineSize);
}

TEST(LogLine, ConversionThatFailsLeavesTheLineWithItsEnd) {
    const CapturedLog log;
    event("before %ls behind", L"\x416\xD800");
    const std::string written = log.lines(CapturedLog::events).at(0);
    EXPECT_NE(written.find("before "), std::string::npos);
    EXPECT_EQ(written.back(), '\n');
}

TEST(LogLine, ByteBehindAFullLineStaysZero) {
    for (int i = 0; i < 3; ++i) {
        beginLine();
        aputHeader("V");
        aprintf("%s", std::string(3990, 'x').c_str());
        aprintf("%s", std::string(3990, 'y').c_str());
        appendText(std::string(3990, 'z'));
    }
    EXPECT_EQ(getabuf()[kLineSize], '\0');
    EXPECT_EQ(line().substr(1995), "x...\n");
}

TEST(LogLine, PlainTextIsCutAsAFormattedOneIs) {
    const std::string fits(kLineSize - 1, 'x');
    beginLine();
    EXPECT_EQ(appendText("a%d"), 3);
    EXPECT_EQ(appendText(""), 0);
    EXPECT_EQ(line(), "a%d");
    beginLine();
    EXPECT_EQ(appendText(fits), static_cast<int>(kLineSize - 1));
    EXPECT_EQ(line(), fits);
    EXPECT_EQ(appendText(""), 0);
    EXPECT_EQ(line(), fits);
    EXPECT_EQ(appendText("y"), 1);
    EXPECT_EQ(line(), fits.substr(0, 1996) + "...\n");
    getabuf()[kLineSize - 1] = '#';
    EXPECT_EQ(appendText("more"), 0);
    EXPECT_EQ(line(), fits.substr(0, 1996) + "...\n");
    beginLine();
    EXPECT_EQ(appendText(fits + "yz"), static_cast<int>(kLineSize));
    EXPECT_EQ(line(), fits.substr(0, 1996) + "...\n");
    EXPECT_EQ(getaptr(), getabuf() + kLineSize);
}

TEST(LogLine, LineThatWasNotBegunIsAFailedAssertion) {
    const CapturedLog log;
    testing::internal::CaptureStderr();
    std::thread([] { EXPECT_EQ(aprintf("x"), 0); }).join();
    const std::string text =
        "Assertion Failed (predefined): \"Invalid getaptr or getabuf call result\" in file "
        "Common/src/dw_util, line 274.";
    EXPECT_EQ(testing::internal::GetCapturedStderr(), text + "\n");
    ASSERT_EQ(log.lines(CapturedLog::errors).size(), 1u);
    EXPECT_NE(log.lines(CapturedLog::errors)[0].find(text), std::string::npos);
}

TEST(LogLine, BufferThatCannotBeHadIsRaisedAndTheNextCallWorks) {
    std::thread([] {
        {
            const FailingMalloc failing(kLineBufferSize);
            const auto error = raised<COSError>([] { event("x"); });
            ASSERT_TRUE(error);
            EXPECT_NE(
                std::string(error->what()).find("Can't allocate memory at Common/src/dw_util:"),
                std::string::npos);
            EXPECT_NE(std::string(error->what()).find("Required size 4000."), std::string::npos);
            EXPECT_STREQ(error->file, "libn/src/dwmini");
            EXPECT_EQ(error->line, 151);
        }
        const CapturedLog log;
        event("x");
        EXPECT_EQ(log.lines(CapturedLog::events).size(), 1u);
    }).join();
}

TEST(LogLine, MarkThatCannotBeHadIsRaisedAndTheNextCallWorks) {
    std::thread([] {
        for (void (*const call)() : {+[] { getsmark(); }, +[] { util_set_mark("x"); }}) {
            const FailingMalloc failing(8);
            const auto error = raised<COSError>(call);
            ASSERT_TRUE(error);
            EXPECT_NE(
                std::string(error->what()).find("Can't allocate memory at Common/src/dw_util:"),
                std::string::npos);
            EXPECT_NE(std::string(error->what()).find("Required size 8."), std::string::npos);
            EXPECT_STREQ(error->file, "libn/src/dwmini");
            EXPECT_EQ(error->line, 151);
        }
        util_set_mark("x");
        EXPECT_STREQ(getsmark(), "x");
    }).join();
}

TEST(LogLine, ProgramIsNamedByWhoeverIsAskedNow) {
    const ScopedCalls calls;
    platform::calls.executablePath = [](char* out, std::size_t size) {
        EXPECT_EQ(size, 261u);
        std::memcpy(out, "/first", 7);
        return std::size_t{6};
    };
    EXPECT_EQ(getappname(), "/first");
    EXPECT_STREQ(threadLogState().appName, "/first");
    platform::calls.executablePath = [](char* out, std::size_t) {
        std::memcpy(out, "/2", 3);
        return std::size_t{2};
    };
    EXPECT_EQ(getappname(), "/2");
    EXPECT_EQ(getappname(), "/2");
    EXPECT_STREQ(threadLogState().appName, "/2");
    std::thread([] { EXPECT_EQ(getappname(), "/2"); }).join();
}

TEST(LogLine, ProgramThatCannotBeNamedIsAskedForAgain) {
    const ScopedCalls calls;
    static int asked = 0;
    platform::calls.executablePath = [](char* out, std::size_t) {
        if (++asked < 3)
            return std::size_t{0};
        std::memcpy(out, "/third", 7);
        return std::size_t{6};
    };
    EXPECT_EQ(getappname(), "");
    EXPECT_STREQ(threadLogState().appName, "");
    EXPECT_EQ(getappname(), "");
    EXPECT_EQ(getappname(), "/third");
    EXPECT_EQ(getappname(), "/third");
    EXPECT_EQ(asked, 3);
}

#ifndef _WIN32
TEST(LogLine, ForkedChildShowsItsOwnNumbers) {
    const ScopedCalls calls;
    platform::calls.wallClock = clockOfTheTest;
    beginLine();
    aputHeader("V");
    const std::string parent = line();
    int ends[2];
    ASSERT_EQ(::pipe(ends), 0);
    const pid_t child = ::fork();
    if (child == 0) {
        beginLine();
        aputHeader("V");
        const std::string text = line();
        ::_exit(::write(ends[1], text.data(), text.size()) == static_cast<ssize_t>(text.size())
                    ? 0
                    : 1);
    }
    ::close(ends[1]);
    char text[kLineSize];
    const ssize_t length = ::read(ends[0], text, sizeof text);
    ::close(ends[0]);
    int status = -1;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    ASSERT_EQ(status, 0);
    const std::string number = std::to_string(child);
    EXPECT_EQ(std::string(text, static_cast<std::size_t>(length)),
              parent.substr(0, parent.rfind('(')) + "(" + number + ":" + number + "): ");
    beginLine();
    aputHeader("V");
    EXPECT_EQ(line(), parent);
}
#endif

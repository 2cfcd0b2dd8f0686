// The log functions as a host meets them first: no log is open, lines go nowhere, and what is set
// by a call is kept.

#include <gtest/gtest.h>

#include <cstdarg>
#include <cstring>
#include <string>
#include <thread>

#include "vdreader/log.h"

namespace {

void callWithList(void (*log)(const char*, std::va_list), const char* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    log(format, arguments);
    va_end(arguments);
}

void debugLine(const char* format, std::va_list arguments) {
    vdevent(0, format, arguments);
}

// A line of each kind.
void logAll(const char* text) {
    error("%s %d", text, 1);
    vdreader_error("%s %d", text, 2);
    callWithList(verror, "%s %d", text, 3);
    warning("%s %d", text, 4);
    callWithList(vwarning, "%s %d", text, 5);
    oserrori("%s %d", text, 6);
    oserrori_ex("folder\\file.cpp", 7, "%s", text);
    socerrori("%s %d", text, 8);
    socerrori_ex(__FILE__, __LINE__, "%s", text);
    event("%s %d", text, 9);
    callWithList(vevent, "%s %d", text, 10);
    devent(0, "%s %d", text, 11);
    devent(3, "%s %d", text, 12);
    callWithList(debugLine, "%s %d", text, 13);
    exc_h_print("%s %d", text, 14);
    netevent("%s %d\n", text, 15);
}

// Runs `body` and returns what it wrote to the standard streams.
template <class Body>
std::string written(Body body) {
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    body();
    std::string text = testing::internal::GetCapturedStdout();
    return text += testing::internal::GetCapturedStderr();
}

} // namespace

TEST(LogInterface, LinesGoNowhereBeforeALogIsOpen) {
    EXPECT_EQ(written([] { logAll("text"); }), "");
}

TEST(LogInterface, LongLinesGoNowhereToo) {
    EXPECT_EQ(written([] { logAll(std::string(3000, 'x').c_str()); }), "");
}

TEST(LogInterface, OtherThreadsMayLogAtOnce) {
    const auto both = [] {
        std::thread other([] {
            for (int i = 0; i < 100; ++i)
                logAll("other");
        });
        for (int i = 0; i < 100; ++i)
            logAll("first");
        other.join();
    };
    EXPECT_EQ(written(both), "");
}

TEST(LogInterface, DecorationKeepsTheLinesSilent) {
    const auto decorated = [] {
        setbanner("banner ");
        setbanner(std::string(400, 'b').c_str());
        setbanner_ptr("shown instead ");
        util_set_mark("MARK");
        logAll("text");
        unsetbanner_ptr();
        logAll("text");
    };
    EXPECT_EQ(written(decorated), "");
    EXPECT_STREQ(getsmark(), "MARK");
}

TEST(LogInterface, DebugLevelIsKeptUnlessItIsNegative) {
    EXPECT_EQ(GetDebugLevel(), 0);
    EXPECT_EQ(SetDebugLevel(4), 0);
    EXPECT_EQ(SetDebugLevel(-1), 4);
    EXPECT_EQ(GetDebugLevel(), 4);
    EXPECT_EQ(written([] { logAll("text"); }), "");
    EXPECT_EQ(SetDebugLevel(0), 4);
    EXPECT_EQ(GetDebugLevel(), 0);
}

TEST(LogInterface, MarkIsEmptyAtFirstAndKeepsSevenCharacters) {
    char* const mark = getsmark();
    EXPECT_STREQ(mark, "");
    util_set_mark("123456789");
    EXPECT_EQ(getsmark(), mark);
    EXPECT_STREQ(mark, "1234567");
    std::memcpy(mark, "written", 8);
    EXPECT_STREQ(getsmark(), "written");
    util_set_mark("");
    EXPECT_STREQ(getsmark(), "");
}

TEST(LogInterface, MarkBelongsToItsThread) {
    util_set_mark("FIRST");
    std::string seen = "none";
    std::thread other([&] {
        seen = getsmark();
        util_set_mark("OTHER");
    });
    other.join();
    EXPECT_EQ(seen, "");
    EXPECT_STREQ(getsmark(), "FIRST");
}

TEST(LogInterface, TextAboutTheProgramGrowsByLines) {
    EXPECT_STREQ(getappinfo(), "");
    appendappinfo("first");
    appendappinfo("");
    appendappinfo("100% third");
    EXPECT_STREQ(getappinfo(), "first\n\n100% third\n");
}

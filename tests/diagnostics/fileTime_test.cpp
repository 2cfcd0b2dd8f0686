#include "diagnostics/fileTime.h"

#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "diagnostics/dumpFixture.h"
#include "diagnostics/errorTexts.h"

namespace {

FileTime asFileTime(std::uint64_t units) {
    return {static_cast<std::uint32_t>(units), static_cast<std::uint32_t>(units >> 32)};
}

std::string textOf(std::uint64_t units) {
    const FileTime fileTime = asFileTime(units);
    SystemTime time = {};
    if (!FileTimeToSystemTimeImpl(&fileTime, &time))
        return "failed";
    char text[64];
    std::snprintf(text, sizeof text, "%d-%d-%d (%d) %d:%d:%d.%d", time.year, time.month, time.day,
                  time.dayOfWeek, time.hour, time.minute, time.second, time.milliseconds);
    return text;
}

} // namespace

TEST(FileTime, FieldsOfAMoment) {
    EXPECT_EQ(textOf(fileTimeOf(2026, 11, 21, 12, 34, 56, 789)), "2026-11-21 (6) 12:34:56.789");
}

TEST(FileTime, FirstMoment) {
    EXPECT_EQ(textOf(0), "1601-1-1 (1) 0:0:0.0");
}

TEST(FileTime, LastMilliseconds) {
    EXPECT_EQ(textOf(fileTimeOf(2000, 2, 29, 23, 59, 59, 999) + 9999),
              "2000-2-29 (2) 23:59:59.999");
    EXPECT_EQ(textOf(fileTimeOf(9999, 12, 31, 23, 59, 59, 999)), "9999-12-31 (5) 23:59:59.999");
}

TEST(FileTime, EveryFieldComesBack) {
    std::mt19937 random(1);
    for (int i = 0; i < 2000; ++i) {
        const auto pick = [&random](int low, int high) {
            return std::uniform_int_distribution<int>(low, high)(random);
        };
        const int year = pick(1601, 9999);
        const int month = pick(1, 12);
        const int day = pick(1, 28);
        const int hour = pick(0, 23);
        const int minute = pick(0, 59);
        const int second = pick(0, 59);
        const int millisecond = pick(0, 999);
        const FileTime fileTime =
            asFileTime(fileTimeOf(year, static_cast<unsigned>(month), static_cast<unsigned>(day),
                                  hour, minute, second, millisecond));
        SystemTime time = {};
        ASSERT_TRUE(FileTimeToSystemTimeImpl(&fileTime, &time));
        ASSERT_EQ((std::vector<int>{time.year, time.month, time.day, time.hour, time.minute,
                                    time.second, time.milliseconds}),
                  (std::vector<int>{year, month, day, hour, minute, second, millisecond}));
    }
}

TEST(FileTime, NullArgumentsAreTold) {
    const CapturedLog log;
    const FileTime fileTime = {};
    SystemTime time = {};
    EXPECT_FALSE(FileTimeToSystemTimeImpl(nullptr, &time));
    EXPECT_FALSE(FileTimeToSystemTimeImpl(&fileTime, nullptr));
    EXPECT_EQ(errorTexts(log), (std::vector<std::string>{"Invalid params", "Invalid params"}));
}

TEST(FileTime, YearBehindTheCalendarIsTold) {
    const CapturedLog log;
    const FileTime fileTime = {17, 0xffffffff};
    SystemTime time = {};
    time.year = 7;
    EXPECT_FALSE(FileTimeToSystemTimeImpl(&fileTime, &time));
    EXPECT_EQ(time.year, 7);
    EXPECT_EQ(errorTexts(log),
              (std::vector<std::string>{"FileTimeToSystemTimeImpl(4294967295:17) failed Year is "
                                        "out of valid range: 1400..9999"}));
}

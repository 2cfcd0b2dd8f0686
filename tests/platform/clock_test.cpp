#include "platform/clock.h"

#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#ifndef _WIN32
#  include <sys/wait.h>
#  include <unistd.h>
#endif

#include "platform/thread.h"

TEST(Clock, IsTheWallClock) {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    const platform::WallTime time = platform::calls.wallClock();
    const std::int64_t expected =
        std::chrono::duration_cast<std::chrono::milliseconds>(now).count();
    EXPECT_NEAR(static_cast<double>(time.seconds * 1000 + time.milliseconds),
                static_cast<double>(expected), 5000.0);
    EXPECT_GE(time.milliseconds, 0);
    EXPECT_LT(time.milliseconds, 1000);
}

TEST(Clock, LocalTimeIsThatOfTheRunTime) {
    std::tm expected = {};
    expected.tm_year = 126;
    expected.tm_mon = 1;
    expected.tm_mday = 7;
    expected.tm_hour = 13;
    expected.tm_min = 14;
    expected.tm_sec = 15;
    expected.tm_isdst = -1;
    const std::tm local = platform::localTime(std::mktime(&expected));
    EXPECT_EQ(local.tm_year, 126);
    EXPECT_EQ(local.tm_mon, 1);
    EXPECT_EQ(local.tm_mday, 7);
    EXPECT_EQ(local.tm_hour, 13);
    EXPECT_EQ(local.tm_min, 14);
    EXPECT_EQ(local.tm_sec, 15);
    EXPECT_EQ(local.tm_wday, 6);
    EXPECT_EQ(local.tm_yday, 37);
}

TEST(Clock, ImpossibleTimeIsAllZero) {
    EXPECT_EQ(platform::localTime(INT64_MAX).tm_year, 0);
    EXPECT_EQ(platform::localTime(INT64_MAX).tm_mday, 0);
}

TEST(Thread, NumbersTellThreadsApart) {
    EXPECT_EQ(platform::threadId(), platform::threadId());
    std::uint32_t other = platform::threadId();
    std::uint32_t process = 0;
    std::thread([&] {
        other = platform::threadId();
        process = platform::processId();
    }).join();
    EXPECT_NE(other, platform::threadId());
    EXPECT_EQ(process, platform::processId());
    EXPECT_NE(process, 0u);
}

#ifndef _WIN32
TEST(Thread, ForkedChildHasNumbersOfItsOwn) {
    const std::uint32_t process = platform::processId(), thread = platform::threadId();
    std::thread([=] {
        const std::uint32_t forking = platform::threadId();
        const pid_t child = ::fork();
        if (child == 0) {
            const bool own = platform::processId() == static_cast<std::uint32_t>(::getpid()) &&
                             platform::threadId() == static_cast<std::uint32_t>(::gettid());
            const bool fresh = platform::processId() != process && platform::threadId() != forking;
            ::_exit(own && fresh ? 0 : 1);
        }
        ASSERT_GT(child, 0);
        int status = -1;
        ASSERT_EQ(::waitpid(child, &status, 0), child);
        EXPECT_EQ(status, 0);
        EXPECT_EQ(platform::threadId(), forking);
    }).join();
    EXPECT_EQ(platform::processId(), process);
    EXPECT_EQ(platform::threadId(), thread);
}
#endif

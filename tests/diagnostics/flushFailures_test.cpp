// Lines that find no memory or no room on the disk.

#include <gtest/gtest.h>

#include <string>

#include "diagnostics/flushFixture.h"
#include "support/countedNew.h"
#include "support/faults.h"
#include "vdreader/log.h"
#include "vdreader/postmortem.h"

namespace {

using FlushFailures = Flush;

// Text of the report of a hand-over that failed.
const char kReport[] =
    "Unhandled STANDART exception caught in function aflushSysLog, file Common/src/dw_util, line "
    "348: \"std::bad_alloc\".";
const char kCaught[] = "aflushSysLog:: caught std::bad_alloc(std::bad_alloc)\n";

// The same of what is no std::exception.
std::string foreignReport(const char* type, const char* text) {
    return std::string("Unhandled ") + type +
           " exception caught in function aflushSysLog, file Common/src/dw_util, line 353: \"" +
           text + "\".";
}

// Logs an error whose hand-over ends by `raise`; what that leaves on standard error.
std::string toldOfError(void (*raise)()) {
    testing::internal::CaptureStderr();
    {
        const FailingNew failing(0, 1, raise);
        error("the line");
    }
    return testing::internal::GetCapturedStderr();
}

} // namespace

TEST_F(FlushFailures, LineThatFindsNoMemoryIsReportedAndStillReachesTheErrorFile) {
    testing::internal::CaptureStderr();
    {
        const FailingNew failing(0, 1);
        error("the line");
    }
    const std::string told = testing::internal::GetCapturedStderr();
    EXPECT_EQ(told, std::string(kCaught) + kReport + "\n");
    ASSERT_EQ(m_errors.recorder->texts.size(), 2u);
    EXPECT_TRUE(m_errors.recorder->texts[0].ends_with(std::string("Error: ") + kReport + "\r\n"));
    EXPECT_TRUE(m_errors.recorder->texts[1].ends_with("Error: the line\r\n"));
    EXPECT_EQ(eventFile(), m_errors.recorder->texts[0]);
    EXPECT_EQ(lastLine(), m_errors.recorder->texts[1]);
    error("next");
    EXPECT_EQ(eventFile(), m_errors.recorder->texts[0] + lastLine());
}

TEST_F(FlushFailures, LongLineIsTheSameAfterTheReport) {
    const std::string text = std::string(3000, 'y');
    testing::internal::CaptureStderr();
    {
        const FailingNew failing(1, 1); // the text of the record
        error("%s", text.c_str());
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), std::string(kCaught) + kReport + "\n");
    ASSERT_EQ(m_errors.recorder->texts.size(), 2u);
    EXPECT_EQ(m_errors.recorder->texts[1].size(), 2001u);
    EXPECT_TRUE(m_errors.recorder->texts[1].ends_with("yyy...\r\n"));
}

TEST_F(FlushFailures, EventThatFindsNoMemoryIsReportedAsAnErrorAndLost) {
    testing::internal::CaptureStderr();
    {
        const FailingNew failing(0, 1);
        event("the line");
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), std::string(kCaught) + kReport + "\n");
    ASSERT_EQ(m_errors.recorder->texts.size(), 1u);
    EXPECT_EQ(drained(), m_errors.recorder->texts[0]);
}

TEST_F(FlushFailures, ReportThatFindsNoMemoryEitherIsAFailedAssertion) {
    testing::internal::CaptureStderr();
    {
        const FailingNew failing(0, 2);
        error("the line");
    }
    const std::string told = testing::internal::GetCapturedStderr();
    EXPECT_EQ(told.find(std::string(kCaught) + "Assertion Failed (predefined): \"Unhandled"), 0u)
        << told;
    ASSERT_EQ(m_errors.recorder->texts.size(), 2u);
    EXPECT_TRUE(m_errors.recorder->texts[1].ends_with("Error: the line\r\n"));
}

TEST_F(FlushFailures, WhatIsNoStandardExceptionHasAReportOfItsOwnLineAndNoOther) {
    struct Thrown {
        void (*raise)();
        const char* type;
        const char* text;
    };
    const Thrown all[] = {{[] { throw 5; }, "INTEGER", "Code: 5"},
                          {[] { throw "words"; }, "C-STRING", "words"}};
    std::string reports;
    for (const Thrown& thrown : all) {
        m_errors.recorder->texts.clear();
        const std::string report = foreignReport(thrown.type, thrown.text);
        EXPECT_EQ(toldOfError(thrown.raise), report + "\n");
        ASSERT_EQ(m_errors.recorder->texts.size(), 2u) << thrown.type;
        EXPECT_TRUE(m_errors.recorder->texts[0].ends_with("Error: " + report + "\r\n"));
        EXPECT_TRUE(m_errors.recorder->texts[1].ends_with("Error: the line\r\n"));
        EXPECT_EQ(m_errors.recorder->texts[1], lastLine());
        reports += m_errors.recorder->texts[0];
        EXPECT_EQ(eventFile(), reports);
    }
    EXPECT_TRUE(toldOfError([] {
                    throw Thrown{};
                }).ends_with("\n" + foreignReport("UNKNOWN", "Unresolved Exception") + "\n"));
    EXPECT_EQ(m_errors.recorder->texts.back(), lastLine());
}

TEST_F(FlushFailures, FaultThatTheHostMakesANumberOfIsReportedAndTheLineIsInTheErrorFile) {
    const sExceptionTranslator former =
        util_set_se_translator([](unsigned int, sExceptionPointers*) { throw 7; });
    const std::string told = toldOfError(faults::writeNull);
    util_set_se_translator(former);
    EXPECT_EQ(told, foreignReport("INTEGER", "Code: 7") + "\n");
    ASSERT_EQ(m_errors.recorder->texts.size(), 2u);
    EXPECT_TRUE(m_errors.recorder->texts[1].ends_with("Error: the line\r\n"));
    EXPECT_EQ(m_errors.recorder->texts[1], lastLine());
}

// Every allocation of a line fails once, in the hand-over, in the queue and in its drain.
TEST_F(FlushFailures, LineOutlivesAFailureOfAnyAllocation) {
    threadLogState().errorsFile = fileTarget("errors.log");
    const std::string text(500, 'z');
    int failures = 0;
    for (int after = 0; after < 4; ++after)
        for (int i = 0; i < 130; ++i) { // as many as the queue needs to grow now and then
            testing::internal::CaptureStderr();
            {
                const FailingNew failing(after, 1);
                error("%s %d %d", text.c_str(), after, i);
            }
            const std::string told = testing::internal::GetCapturedStderr();
            failures += !told.empty();
            EXPECT_TRUE(told.empty() || told == std::string(kCaught) + kReport + "\n") << told;
            const std::string line = lastLine();
            ASSERT_TRUE(
                line.ends_with(" " + std::to_string(after) + " " + std::to_string(i) + "\r\n"));
            ASSERT_TRUE(m_folder.read("errors.log").ends_with(line));
            ASSERT_TRUE(eventFile().ends_with(told.empty() ? line : std::string(kReport) + "\r\n"));
        }
    EXPECT_GT(failures, 0);
}

TEST_F(FlushFailures, FullDiskEndsTheEventLogAndNotTheErrorFile) {
    error("in time");
    const std::string kept = lastLine();
    EXPECT_EQ(eventFile(), kept);
    platform::calls.appendStorage = [](platform::StorageHandle, const void*, std::uint32_t,
                                       std::uint32_t* done) {
        *done = 0;
        return false;
    };
    error("lost");
    std::string errors = kept + lastLine();
    platform::calls.appendStorage = [](platform::StorageHandle, const void*, std::uint32_t size,
                                       std::uint32_t* done) {
        ADD_FAILURE() << "the stream went on";
        *done = size;
        return true;
    };
    error("lost too");
    errors += lastLine();
    event("lost as well");
    EXPECT_EQ(drained(), kept);
    EXPECT_EQ(m_errors.recorder->all(), errors);
}

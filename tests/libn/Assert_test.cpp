#include "libn/Assert.h"

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <stdexcept>
#include <string>

#include "dw_util/logLine.h"
#include "support/capturedLog.h"
#include "support/countedNew.h"
#include "support/field.h"
#include "vdreader/errors.hpp"
#include "vdreader/raise.h"

namespace {

struct Reported {
    std::string standardError;
    std::vector<std::string> errors; // messages
};

Reported reported(const std::function<void()>& call) {
    const CapturedLog log;
    testing::internal::CaptureStderr();
    call();
    Reported result;
    result.standardError = testing::internal::GetCapturedStderr();
    result.errors = log.messages(CapturedLog::errors);
    return result;
}

template <class Thrown>
std::string unhandled(const Thrown& thrown) {
    const Reported result = reported([&] {
        try {
            throw thrown;
        } catch (...) {
            libn::reportUnhandled("some::function", "dir\\file.cpp", 9);
        }
    });
    EXPECT_EQ(result.errors.size(), 1u);
    const std::string& error = result.errors.at(0);
    const std::string text = result.standardError.substr(0, result.standardError.size() - 1);
    EXPECT_EQ(result.standardError.back(), '\n');
    EXPECT_NE(error.find(": Error: " + text), std::string::npos) << error;
    return text;
}

} // namespace

TEST(Assert, FailedAssertionIsReportedAndReturns) {
    bool behind = false;
    const Reported result = reported([&] {
        libn::assertionFailed("a < b", "dir\\sub/file.cpp", 33);
        behind = true;
    });
    EXPECT_TRUE(behind);
    const std::string text =
        "Assertion Failed (predefined): \"a < b\" in file dir\\sub/file.cpp, line 33.";
    EXPECT_EQ(result.standardError, text + "\n");
    ASSERT_EQ(result.errors.size(), 1u);
    EXPECT_NE(result.errors[0].find(": Error: " + text), std::string::npos);
}

TEST(Assert, ReportThatCannotBeMadeEndsTheProcessDeathTest) {
    EXPECT_DEATH(
        {
            const FailingNew failing(0, 1 << 20);
            libn::assertionFailed("a text that is too long to be kept without an allocation", "f",
                                  1);
        },
        "terminate called");
    EXPECT_DEATH(
        {
            logSinks.errors = [](const char*) { throw std::runtime_error("full"); };
            libn::assertionFailed("x", "f", 1);
        },
        "Assertion Failed .predefined.: \"x\" in file f, line 1\\.\nterminate called");
}

TEST(Assert, PercentSignsInAReportStand) {
    EXPECT_NE(reported([] { libn::assertionFailed("100%s %n", "f", 1); })
                  .errors.at(0)
                  .find("\"100%s %n\""),
              std::string::npos);
}

TEST(ReportUnhandled, FailureOfTheFamilyIsLocal) {
    EXPECT_EQ(unhandled(sarn::Exception("mine")),
              "Unhandled LOCAL exception caught in function some::function, file dir\\file.cpp, "
              "line 9: \"mine\".");
    CError error;
    setField(error.text, "formatted");
    EXPECT_EQ(unhandled(error),
              "Unhandled LOCAL exception caught in function some::function, file dir\\file.cpp, "
              "line 9: \"formatted\".");
}

TEST(ReportUnhandled, StandardExceptionIsSpeltWithT) {
    EXPECT_EQ(unhandled(std::runtime_error("std")),
              "Unhandled STANDART exception caught in function some::function, file "
              "dir\\file.cpp, line 9: \"std\".");
}

TEST(ReportUnhandled, TextsAndNumbersAreTold) {
    EXPECT_EQ(unhandled(static_cast<const char*>("a text")),
              "Unhandled C-STRING exception caught in function some::function, file "
              "dir\\file.cpp, line 9: \"a text\".");
    EXPECT_EQ(unhandled(-17),
              "Unhandled INTEGER exception caught in function some::function, file "
              "dir\\file.cpp, line 9: \"Code: -17\".");
}

TEST(ReportUnhandled, AnythingElseIsUnknownAndAFailedAssertionToo) {
    const Reported result = reported([] {
        try {
            throw 1.5;
        } catch (...) {
            libn::reportUnhandled("f", "g", 1);
        }
    });
    EXPECT_EQ(result.standardError,
              "Assertion Failed (predefined): \"Unhandled exception caught\" in file "
              "libn/src/Assert, line 173.\n"
              "Unhandled UNKNOWN exception caught in function f, file g, line 1: \"Unresolved "
              "Exception\".\n");
    EXPECT_EQ(result.errors.size(), 2u);
}

TEST(ReportUnhandled, NullTextIsAnEmptyOne) {
    EXPECT_EQ(unhandled(static_cast<const char*>(nullptr)),
              "Unhandled C-STRING exception caught in function some::function, file "
              "dir\\file.cpp, line 9: \"\".");
}

TEST(ReportUnhandled, IsWrittenAlsoWhenAHandlerFails) {
#ifdef _WIN32
    GTEST_SKIP() << "texts of the run-time take memory that a test cannot refuse";
#endif
    const Reported result = reported([] {
        try {
            throw std::runtime_error("a text that is too long to be kept without an allocation");
        } catch (...) {
            // The first allocation is that of the default text, the second that of the failure's.
            const FailingNew failing(1, 1);
            libn::reportUnhandled("f", "g", 1);
        }
    });
    EXPECT_EQ(result.standardError,
              "Unhandled STANDART exception caught in function f, file g, line 1: \"Unresolved "
              "Exception\".\n"
              "Assertion Failed (predefined): \"Unhandled exception caught\" in file "
              "libn/src/Assert, line 176.\n");
}

TEST(ReportUnhandled, SinkThatRaisesIsAFailedAssertion) {
    testing::internal::CaptureStderr();
    const LogSinks saved = logSinks;
    static int calls = 0;
    logSinks.errors = [](const char*) {
        if (calls++ == 0)
            throw std::runtime_error("full");
    };
    try {
        throw 5;
    } catch (...) {
        libn::reportUnhandled("f", "g", 1);
    }
    logSinks = saved;
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "Unhandled INTEGER exception caught in function f, file g, line 1: \"Code: 5\".\n"
              "Assertion Failed (predefined): \"Unhandled exception caught\" in file "
              "libn/src/Assert, line 176.\n");
    EXPECT_EQ(calls, 2);
}

// The translator of the family: what it leaves behind, tells and throws.  Each case is a process of
// its own, since the service is looked for once and the logs stay open.

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "diagnostics/logLines.h"
#include "dw_util/logLine.h"
#include "libn/Thread.h"
#include "support/capturedLog.h"
#include "support/faults.h"
#include "support/programFolder.h"
#include "support/raised.h"
#include "svctl/service.h"
#include "vdreader/dll.hpp"
#include "vdreader/errors.hpp"
#include "vdreader/log.h"
#include "vdreader/logfiles.h"
#include "vdreader/postmortem.h"

namespace {

constexpr char kMissing[] =
    "Can't send extended error notification: SVCTL SendInfo function is missing";

// The logs go into a folder of the test; the service is there unless a test leaves it out.
class SeTranslator : public testing::Test {
  protected:
    SeTranslator() { std::filesystem::current_path(m_program.path()); }
    ~SeTranslator() {
        util_set_se_translator(nullptr);
        shutdown_logs();
    }

    void loadService() {
        m_library = std::make_unique<libn::Dll>(SVCTL_SERVICE);
        m_taken = reinterpret_cast<TakenNotices>(m_library->getFunction("takenNotices"));
    }
    std::vector<Notice> notices() {
        std::vector<Notice> all(16);
        all.resize(m_taken(all.data()));
        return all;
    }
    std::vector<std::string> lines() {
        shutdown_logs();
        return messagesIn(m_program.path() / "events.log");
    }
    static std::ptrdiff_t count(const std::vector<std::string>& lines, const std::string& part) {
        return std::count_if(lines.begin(), lines.end(), [&](const std::string& line) {
            return line.find(part) != std::string::npos;
        });
    }

    static std::optional<CSEHError> translated(std::uint32_t code) {
        sExceptionRecord record = {};
        record.code = code;
        sExceptionPointers pointers = {&record, nullptr};
        return raised<CSEHError>([&] { seh_translator(code, &pointers); });
    }

  private:
    ProgramFolder m_program;
    std::unique_ptr<libn::Dll> m_library;
    TakenNotices m_taken = nullptr;
};

template <class Field>
Field at(const Notice& notice, std::size_t offset) {
    Field value;
    std::memcpy(&value, notice.record + offset, sizeof value);
    return value;
}

} // namespace

TEST(ConvertError, EachCodeHasItsNumber) {
    constexpr std::uint32_t kCodes[] = {0xC0000005, 0x80000002, 0x80000003, 0x80000004, 0xC000008C,
                                        0xC000008D, 0xC000008E, 0xC000008F, 0xC0000090, 0xC0000091,
                                        0xC0000092, 0xC0000093, 0xC0000094, 0xC0000095, 0xC0000096,
                                        0xC0000006, 0xC000001D, 0xC0000025, 0xC00000FD, 0xC0000026,
                                        0x80000001, 0xC0000008};
    std::uint32_t expected = 60000;
    for (const std::uint32_t code : kCodes)
        EXPECT_EQ(convert_error(code), expected++) << std::hex << code;
    EXPECT_EQ(expected, 60022u);
}

TEST(ConvertError, OtherCodesKeepTheirLowSixteenBits) {
    EXPECT_EQ(convert_error(0x12345678), 0x5678u);
    EXPECT_EQ(convert_error(0), 0u);
    EXPECT_EQ(convert_error(0xFFFFFFFF), 0xFFFFu);
    EXPECT_EQ(convert_error(1723), 1723u);
    EXPECT_EQ(convert_error(0x00000005), 5u);
    EXPECT_EQ(convert_error(0xC0000007), 7u);
}

TEST_F(SeTranslator, ReportsNotifiesAndThrows) {
    loadService();
    const auto error = translated(0xC0000094);
    ASSERT_TRUE(error);
    EXPECT_EQ(static_cast<std::uint32_t>(error->code), 0xC0000094u);
    EXPECT_STREQ(error->what(),
                 "Exception 0xC0000094 occurred at address 0x00000000. Parameters:.");
    const std::vector<Notice> told = notices();
    ASSERT_EQ(told.size(), 1u);
    EXPECT_EQ(told[0].destination, 20u);
    EXPECT_EQ(at<std::uint16_t>(told[0], 0), 5u);
    EXPECT_EQ(at<std::uint32_t>(told[0], 4), 0x20000u | 60012u);
    EXPECT_EQ(at<std::uint32_t>(told[0], 8), 0u);
    EXPECT_EQ(at<std::uint32_t>(told[0], 12), 0u);
    EXPECT_EQ(at<std::uint16_t>(told[0], 16), 0u);
    EXPECT_EQ(told[0].record[18], 0u);
    const std::vector<std::string> written = lines();
    EXPECT_EQ(count(written, "SEH exception catched. Exception report: "), 1);
    EXPECT_EQ(count(written, "Exception 0xC0000094 occurred at address 0x"), 1);
}

TEST_F(SeTranslator, RpcErrorLeavesAWarningAlone) {
    loadService();
    const CapturedLog log;
    const auto error = translated(1723);
    ASSERT_TRUE(error);
    EXPECT_EQ(error->code, 1723);
    EXPECT_TRUE(notices().empty());
    EXPECT_EQ(log.messages(CapturedLog::errors),
              (std::vector<std::string>{"Running " + std::string(getappname()) +
                                        ": Warning: RPC error 0x000006BB"}));
    for (const std::string& line : log.lines(CapturedLog::errors))
        EXPECT_EQ(line.rfind("W: ", 0), 0u) << line;
    EXPECT_EQ(log.size(), 1u);
}

TEST_F(SeTranslator, OtherRpcCodesAreReported) {
    loadService();
    for (const std::uint32_t code : {1722u, 1724u})
        EXPECT_TRUE(translated(code));
    EXPECT_EQ(notices().size(), 2u);
    EXPECT_EQ(count(lines(), "Exception report"), 2);
}

TEST_F(SeTranslator, MissingServiceLeavesInPlaceOfTheFirstError) {
    sExceptionRecord record = {};
    record.code = 0xC0000094;
    sExceptionPointers pointers = {&record, nullptr};
    EXPECT_TRUE(raised<libn::Dll::LoadError>([&] { seh_translator(record.code, &pointers); }));
    EXPECT_TRUE(translated(0xC0000094));
    const std::vector<std::string> written = lines();
    EXPECT_EQ(count(written, "Exception report"), 2);
    EXPECT_EQ(count(written, kMissing), 1);
}

TEST_F(SeTranslator, FaultOfAThreadBecomesAnError) {
    loadService();
    const auto fault = [] {
        std::string text;
        EXPECT_EQ(util_set_se_translator(seh_translator), nullptr);
        text = raisedText(faults::writeNull);
        EXPECT_EQ(util_set_se_translator(nullptr), seh_translator);
        return text;
    };
    const std::string start = "Exception 0xC0000005 occurred at address 0x";
    const std::string end = ". Parameters: 0x0000000000000001 0x0000000000000000.";
    const std::string here = fault();
    EXPECT_EQ(here.substr(0, start.size()), start);
    EXPECT_EQ(here.substr(here.size() - end.size()), end);
    std::string there;
    std::thread([&] { there = fault(); }).join();
    EXPECT_EQ(there, here);
    EXPECT_EQ(notices().size(), 2u);
    const std::vector<std::string> written = lines();
    EXPECT_EQ(count(written, "Exception report"), 2);
    EXPECT_GE(count(written, "[CallStack]"), 2);
}

namespace {

class FaultingThread : public libn::Thread {
  public:
    ~FaultingThread() override { stop(); }
    void run() override { faults::divideByZero(); }
    const void* tagAddress() const { return &data->tag; }
};

} // namespace

TEST_F(SeTranslator, FaultEndsAThreadOfTheLibraryWithItsReport) {
    loadService();
    SetDebugLevel(5);
    char tag[17];
    {
        FaultingThread thread;
        std::snprintf(
            tag, sizeof tag, "%016llX",
            static_cast<unsigned long long>(reinterpret_cast<std::uintptr_t>(thread.tagAddress())));
        thread.start();
        while (notices().empty()) // the translator has reported
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    SetDebugLevel(0);
    const std::vector<std::string> written = lines();
    EXPECT_EQ(count(written, "Exception report"), 1);
    const std::string failure = "libn::threadFunc:m_tag<" + std::string(tag) +
                                ">e.GetErrorDesc()<Exception 0xC0000094 occurred at address 0x";
    EXPECT_EQ(count(written, failure), 1);
    ASSERT_FALSE(written.empty());
    EXPECT_EQ(written.back(), "Thread finished.");
}

TEST_F(SeTranslator, StackOverflowIsReportedToo) {
    loadService();
    std::string text;
    std::thread([&text] {
        util_set_se_translator(seh_translator);
        text = raisedText(faults::overflow);
    }).join();
    EXPECT_EQ(text.substr(0, 20), "Exception 0xC00000FD");
    EXPECT_EQ(count(lines(), "Exception 0xC00000FD occurred"), 1);
}

TEST_F(SeTranslator, ThreadsThatFaultAtOnceAreReportedOneAfterAnother) {
    loadService();
    std::atomic<int> caught{0}, ready{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([&] {
            util_set_se_translator(seh_translator);
            for (++ready; ready < 4;)
                std::this_thread::yield();
            if (raised<CSEHError>(faults::divideByZero))
                ++caught;
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(caught, 4);
    EXPECT_EQ(notices().size(), 4u);
    EXPECT_EQ(count(lines(), "Exception report"), 4);
}

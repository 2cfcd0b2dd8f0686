// The filter of a crash: order and texts of its lines.

#include <algorithm>
#include <fstream>
#include <string>
#include <vector>

#include "diagnostics/dumpFixture.h"
#include "diagnostics/logLines.h"
#include "dw_util/threadLogState.h"
#include "support/programFolder.h"
#include "vdreader/log.h"
#include "vdreader/logfiles.h"

namespace {

const std::string kHead =
    "************** SEH exception catched. Exception report: " + std::string(60, '*');
const std::string kEnd(122, '*');

// Lines go into the logs of a folder, with the writer of the fixture.
class ExcFilter : public DumpFixtureWithLogs {
  protected:
    ExcFilter() { std::filesystem::current_path(m_program.path()); }
    ~ExcFilter() { shutdown_logs(); }

    std::vector<std::string> lines() {
        shutdown_logs();
        return messagesIn(m_program.path() / "events.log");
    }

    ProgramFolder m_program;
};

std::vector<std::string> withoutStack(const std::vector<std::string>& lines) {
    std::vector<std::string> kept;
    for (const std::string& line : lines) {
        if (line.rfind("[CallStack]", 0) != 0 && line.rfind("[ModuleList]", 0) != 0)
            kept.push_back(line);
    }
    return kept;
}

std::ptrdiff_t indexOf(const std::vector<std::string>& lines, const std::string& start) {
    return std::find_if(lines.begin(), lines.end(),
                        [&](const std::string& line) { return line.rfind(start, 0) == 0; }) -
           lines.begin();
}

} // namespace

TEST_F(ExcFilter, ReportComesInOrder) {
    m_program.write("sarn.ini", "[dumps]\nauto=1\n");
    MadeException exception(0xC0000094);
    exception.record.address = reinterpret_cast<void*>(16);
    sExceptionPointers pointers = {&exception.record, nullptr};
    EXPECT_EQ(ExcFilterI(&pointers), 1);

    const std::vector<std::string> written = lines();
    const std::string text = exceptionText(&pointers);
    EXPECT_EQ(text.rfind("Exception 0xC0000094 occurred at address 0x", 0), 0u) << text;
    std::vector<std::string> kept = withoutStack(written);
    ASSERT_GE(kept.size(), 3u);
    EXPECT_EQ(kept.front(), kHead);
    EXPECT_EQ(kept[1], text);
    EXPECT_EQ(kept.back(), kEnd);
    // The stack stands between the text and the end.
    EXPECT_EQ(indexOf(written, "[ModuleList] ------------- Begin"), 2);
    EXPECT_EQ(indexOf(written, "[CallStack] ------------- End"),
              static_cast<std::ptrdiff_t>(written.size()) - 2);
}

// Other than the stack between them: an event may be lost with the process.
TEST_F(ExcFilter, HeadTextAndEndAreWrittenThrough) {
    const CapturedLog log;
    MadeException exception(0xC0000094);
    sExceptionPointers pointers = {&exception.record, nullptr};
    ExcFilterI(&pointers);
    EXPECT_EQ(log.messages(CapturedLog::exceptions),
              (std::vector<std::string>{kHead, exceptionText(&pointers), kEnd}));
    for (const std::string& line : log.lines(CapturedLog::exceptions))
        EXPECT_EQ(line.rfind("F: ", 0), 0u) << line;
    EXPECT_FALSE(log.lines(CapturedLog::events).empty());
    EXPECT_EQ(withoutStack(log.messages(CapturedLog::events)), std::vector<std::string>{});
}

TEST_F(ExcFilter, LinesOfTheDumpComeFirstWhereALogIsOpen) {
    m_program.write("sarn.ini", "[dumps]\nauto=1\n");
    init_eventlog(nullptr, nullptr, nullptr);
    MadeException exception(0xC0000094);
    sExceptionPointers pointers = {&exception.record, nullptr};
    ExcFilterI(&pointers);
    const std::vector<std::string> written = lines();
    const auto begin = indexOf(written, "DUMP:: <CreateProcessCrashDump:Beginning crash dump");
    EXPECT_LT(begin, static_cast<std::ptrdiff_t>(written.size()));
    EXPECT_EQ(indexOf(written, "DUMP:: CreateProcessCrashDump>:Crash dump ["), begin + 1);
    EXPECT_EQ(indexOf(written, kHead), begin + 2);
    EXPECT_EQ(dumps().size(), 1u);
}

TEST_F(ExcFilter, WithoutAutoDumpsThereIsNoFileAndNoLineOfIt) {
    init_eventlog(nullptr, nullptr, nullptr);
    MadeException exception(0xC0000005);
    sExceptionPointers pointers = {&exception.record, nullptr};
    EXPECT_EQ(ExcFilterI(&pointers), 1);
    const std::vector<std::string> written = lines();
    EXPECT_EQ(indexOf(written, "DUMP::"), static_cast<std::ptrdiff_t>(written.size()));
    EXPECT_LT(indexOf(written, kHead), static_cast<std::ptrdiff_t>(written.size()));
    EXPECT_FALSE(std::filesystem::exists(m_program.path() / "Dumps"));
}

TEST_F(ExcFilter, NullPointersLeaveAReportWhereDumpsAreOff) {
    EXPECT_EQ(ExcFilterI(nullptr), 1);
    const std::vector<std::string> written = lines();
    ASSERT_GE(written.size(), 4u);
    EXPECT_EQ(written.front(), kHead);
    EXPECT_EQ(written[1], ""); // the text of null
    EXPECT_EQ(written.back(), kEnd);
    EXPECT_LT(indexOf(written, "[CallStack] ------------- Begin"),
              static_cast<std::ptrdiff_t>(written.size()));
}

TEST_F(ExcFilter, ThreadKeepsTheMark) {
    ExcFilterI(nullptr);
    event("behind it");
    shutdown_logs();
    const std::string bytes = bytesOf(m_program.path() / "events.log");
    EXPECT_NE(bytes.find(":ECTCH): behind it"), std::string::npos) << bytes;
    EXPECT_NE(bytes.find(":ECTCH): " + kHead), std::string::npos);
}

TEST_F(ExcFilter, RemoteCallCodesLeaveALineInsteadOfADump) {
    m_program.write("sarn.ini", "[dumps]\nauto=1\n");
    init_eventlog(nullptr, nullptr, nullptr);
    MadeException exception(1700);
    sExceptionPointers pointers = {&exception.record, nullptr};
    ExcFilterI(&pointers);
    const std::vector<std::string> written = lines();
    const auto skipped =
        indexOf(written, "ExcFilterI: Skipping dump creation for RPC exception 0x000006A4");
    EXPECT_EQ(indexOf(written, kHead), skipped + 1);
    EXPECT_TRUE(s_written.empty());
}

// The first of the two moves the process into the program's folder, where the second would find
// other settings.
TEST_F(ExcFilter, ErrorLogIsOpenedFirst) {
    m_program.write("sarn.ini", "[Files]\nErrorsLogFileName=program.log\n");
    m_program.enter("work");
    m_program.write("work/sarn.ini", "[Files]\nErrorsLogFileName=working.log\n");
    ExcFilterI(nullptr);
    EXPECT_TRUE(m_program.has("working.log"));
    EXPECT_FALSE(m_program.has("program.log"));
    EXPECT_TRUE(m_program.has("events.log"));
}

TEST_F(ExcFilter, BothLogsAreOpened) {
    ExcFilterI(nullptr);
    EXPECT_NE(threadLogState().errorsFile, nullptr);
    EXPECT_NE(threadLogState().eventsFile, nullptr);
    EXPECT_TRUE(m_program.has("errors.log"));
}

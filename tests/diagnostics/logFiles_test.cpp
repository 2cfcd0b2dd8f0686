// The functions that open the logs by an ini file: which file, which ini file, which folder, and
// what they leave.

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "diagnostics/errorTexts.h"
#include "diagnostics/logFilesFixture.h"
#include "logs/logger.h"
#include "platform/process.h"
#include "support/raised.h"
#include "support/waitWhile.h"

namespace {

using Texts = std::vector<std::string>;
using std::filesystem::current_path;
using std::string_literals::operator""s;

class LogFiles : public LogFilesFixture {};

} // namespace

// ---- names ----

TEST_F(LogFiles, WithoutSettingsTheDefaultsStandBesideTheProgram) {
    EXPECT_EQ(eventLog(""), "events.log");
    EXPECT_EQ(errorLog(""), "errors.log");
    EXPECT_EQ(eventsFile(), m_folder.name("events.log"));
    EXPECT_TRUE(m_folder.has("events.log"));
    EXPECT_TRUE(m_folder.has("errors.log"));
}

TEST_F(LogFiles, MissingOrDamagedIniFileGivesTheDefaults) {
    const CapturedLog log;
    init_eventlog(nullptr, nullptr, m_folder.name("none.ini").c_str());
    init_errorlog(nullptr, nullptr, ini("[Files\nErrorsLogFileName=x\n\0\xFF"s).c_str());
    EXPECT_EQ(eventsFile(), m_folder.name("events.log"));
    EXPECT_EQ(errorsFile(), m_folder.name("errors.log"));
    EXPECT_EQ(log.size(), 0u); // nobody waits for the file, and nobody reports it
}

TEST_F(LogFiles, ValuesNameTheFiles) {
    EXPECT_EQ(eventLog("EventsLogFileName=a.log\nErrorsLogFileName=b.log\n"), "a.log");
    EXPECT_EQ(errorLog("EventsLogFileName=a.log\nErrorsLogFileName=b.log\n"), "b.log");
}

TEST_F(LogFiles, SectionAndKeysAreFolded) {
    init_eventlog("My.Key", nullptr, ini("[fILES]\nmy.KEY=a.log\nLOGFILESFOLDERNAME=L\n").c_str());
    EXPECT_EQ(relative(eventsFile()), "L/a.log");
}

TEST_F(LogFiles, KeyOfTheCallerReplacesTheDefaultKey) {
    const char* const settings = "EventsLogFileName=a.log\nErrorsLogFileName=b.log\nmine=c.log\n";
    EXPECT_EQ(eventLog(settings, "mine"), "c.log");
    EXPECT_EQ(errorLog(settings, "mine"), "c.log");
    EXPECT_EQ(eventLog(settings, ""), "a.log");
    EXPECT_EQ(errorLog(settings, ""), "b.log");
    EXPECT_EQ(eventLog(settings, "none"), "events.log");
    EXPECT_EQ(errorLog(settings, "none"), "errors.log");
}

TEST_F(LogFiles, BareNameStandsInTheConfiguredFolder) {
    EXPECT_EQ(eventLog("LogFilesFolderName=logs\n"), "logs/events.log");
    EXPECT_EQ(eventLog("EventsLogFileName=my.log\nLogFilesFolderName=logs\n"), "logs/my.log");
    EXPECT_EQ(errorLog("LogFilesFolderName=logs\\deep\n"), "logs/deep/errors.log");
    EXPECT_TRUE(m_folder.has("logs/deep/errors.log"));
}

TEST_F(LogFiles, SeparatorBehindTheFolderIsNotDoubled) {
    EXPECT_EQ(eventLog("LogFilesFolderName=logs\\\n"), "logs/events.log");
    EXPECT_EQ(eventsFile(), m_folder.name("logs/events.log"));
}

TEST_F(LogFiles, ValueWithAFolderIgnoresTheConfiguredOne) {
    EXPECT_EQ(eventLog("EventsLogFileName=logs\\my.log\nLogFilesFolderName=other\n"),
              "logs/my.log");
    EXPECT_EQ(errorLog("ErrorsLogFileName=.\\my.log\nLogFilesFolderName=other\n"), "my.log");
    EXPECT_FALSE(m_folder.has("other"));
}

TEST_F(LogFiles, SlashIsASeparatorWhereTheSystemsPathsHaveIt) {
    if (!platform::pathForm.isSeparator('/'))
        GTEST_SKIP() << "this system's own separator is another";
    EXPECT_EQ(eventLog("EventsLogFileName=logs/my.log\nLogFilesFolderName=other\n"), "logs/my.log");
    EXPECT_EQ(eventLog("LogFilesFolderName=logs/\n"), "logs/events.log");
    EXPECT_EQ(eventsFile(), m_folder.name("logs/events.log"));
    EXPECT_EQ(errorLog("ErrorsLogFileName=" + m_folder.name("abs.log") + "\n"), "abs.log");
}

TEST_F(LogFiles, FullNamesStay) {
    EXPECT_EQ(eventLog("EventsLogFileName=" + m_folder.name("a/b.log") + "\n"), "a/b.log");
    EXPECT_EQ(eventLog("LogFilesFolderName=" + m_folder.name("c") + "\n"), "c/events.log");
}

TEST_F(LogFiles, DotsCountFromTheProgram) {
    m_folder.enter("elsewhere");
    EXPECT_EQ(errorLog("LogFilesFolderName=..\\sibling\n"), "../sibling/errors.log");
    std::error_code ignored;
    std::filesystem::remove_all(m_folder.path().parent_path() / "sibling", ignored);
    EXPECT_EQ(errorLog("LogFilesFolderName=.\n"), "errors.log");
}

// ---- ini files and folders ----

TEST_F(LogFiles, EventLogMovesTheCurrentFolderToTheProgram) {
    m_folder.enter("elsewhere");
    init_eventlog(nullptr, nullptr, m_folder.name("none.ini").c_str());
    EXPECT_TRUE(std::filesystem::equivalent(current_path(), m_folder.path()));
}

TEST_F(LogFiles, ErrorLogKeepsTheCurrentFolder) {
    const auto folder = m_folder.enter("elsewhere");
    init_errorlog(nullptr, nullptr, m_folder.name("none.ini").c_str());
    EXPECT_TRUE(std::filesystem::equivalent(current_path(), folder));
}

TEST_F(LogFiles, FileSettingsComeFromTheCurrentFolderBeforeTheCall) {
    const char* const mine = "[Files]\nEventsLogFileName=a.log\nErrorsLogFileName=b.log\n";
    const char* const other = "[Files]\nEventsLogFileName=x.log\nErrorsLogFileName=y.log\n";
    m_folder.write("elsewhere/sarn.ini", mine);
    m_folder.write("sarn.ini", other);
    for (const char* path : {static_cast<const char*>(nullptr), ""}) {
        m_folder.enter("elsewhere");
        init_eventlog(nullptr, nullptr, path);
        EXPECT_EQ(relative(eventsFile()), "a.log");
        init_errorlog(nullptr, nullptr, path); // the current folder has moved
        EXPECT_EQ(relative(errorsFile()), "y.log");
    }
}

TEST_F(LogFiles, BothLogsGoByTheFolderBeforeTheCall) {
    m_folder.write("elsewhere/sarn.ini",
                   "[Files]\nEventsLogFileName=a.log\nErrorsLogFileName=b.log\n");
    m_folder.write("sarn.ini", "[Files]\nEventsLogFileName=x.log\nErrorsLogFileName=y.log\n");
    m_folder.enter("elsewhere");
    init_logs("BOTH");
    EXPECT_EQ(relative(eventsFile()), "a.log");
    EXPECT_EQ(relative(errorsFile()), "b.log");
    EXPECT_STREQ(getsmark(), "BOTH");
    EXPECT_TRUE(std::filesystem::equivalent(current_path(), m_folder.path()));
}

TEST_F(LogFiles, RelativeIniPathOfTheEventLogCountsFromTheProgram) {
    m_folder.write("elsewhere/my.ini", "[Files]\nEventsLogFileName=x.log\n");
    m_folder.write("my.ini", "[Files]\nEventsLogFileName=a.log\n[logfile]\nrotate=a.log,4\n");
    m_folder.enter("elsewhere");
    init_eventlog(nullptr, nullptr, "my.ini");
    EXPECT_EQ(relative(eventsFile()), "a.log");
    EXPECT_EQ(threadLogState().eventsFile->rotateDepth, 4);
}

TEST_F(LogFiles, RelativeIniPathOfTheErrorLogHasItsNameFromHereAndItsRotationFromTheProgram) {
    m_folder.write("elsewhere/my.ini", "[Files]\nErrorsLogFileName=a.log\nlogdepth=7\n");
    m_folder.write("my.ini", "[Files]\nErrorsLogFileName=x.log\nlogdepth=4\n");
    m_folder.enter("elsewhere");
    init_errorlog(nullptr, nullptr, "my.ini");
    EXPECT_EQ(relative(errorsFile()), "a.log");
    EXPECT_EQ(threadLogState().errorsFile->rotateDepth, 4);
}

TEST_F(LogFiles, RotationSettingsComeFromTheSameFile) {
    EXPECT_EQ(eventLog("logdepth=3\n"), "events.log");
    EXPECT_EQ(threadLogState().eventsFile->rotateDepth, 3);
    EXPECT_TRUE(threadLogState().eventsFile->isRotate);
    m_folder.write("elsewhere/sarn.ini", "[logfile]\nrotate=errors.log,2\n");
    m_folder.enter("elsewhere");
    init_errorlog(nullptr, nullptr, nullptr);
    EXPECT_EQ(threadLogState().errorsFile->rotateDepth, 2);
}

TEST_F(LogFiles, FailedReadOfTheIniFileReachesTheCaller) {
    const std::string path = files("EventsLogFileName=a.log\n");
    platform::calls.readAt = [](platform::FileHandle, std::uint64_t, void*,
                                std::size_t) -> std::ptrdiff_t { return -1; };
    const std::string text = "Read ini file error. File" + path + " line:1";
    EXPECT_EQ(raisedText([&] { init_eventlog(nullptr, "M", path.c_str()); }), text);
    EXPECT_EQ(raisedText([&] { init_errorlog(nullptr, "M", path.c_str()); }), text);
    EXPECT_EQ(eventsFile(), "(none)");
    EXPECT_EQ(errorsFile(), "(none)");
    EXPECT_STREQ(getsmark(), "");
}

TEST_F(LogFiles, ProgramFolderThatCannotBeEnteredIsNoFailure) {
    static std::string asked;
    asked.clear();
    platform::calls.setCurrentFolder = [](const char* path) {
        asked = path;
        return false;
    };
    m_folder.enter("elsewhere");
    EXPECT_EQ(eventLog("EventsLogFileName=a.log\n"), "a.log");
    EXPECT_TRUE(std::filesystem::equivalent(asked, m_folder.path()));
}

TEST_F(LogFiles, UnknownProgramLeavesFullNamesAsTheyAre) {
    const std::string path = files("EventsLogFileName=" + m_folder.name("a.log") + "\n");
    const auto folder = m_folder.enter("elsewhere");
    platform::calls.executablePath = [](char*, std::size_t) -> std::size_t { return 0; };
    init_eventlog(nullptr, nullptr, path.c_str());
    EXPECT_EQ(eventsFile(), m_folder.name("a.log"));
    EXPECT_TRUE(std::filesystem::equivalent(current_path(), folder));
}

TEST_F(LogFiles, CurrentFolderThatIsGoneIsRaised) {
    if (platform::pathForm.drives)
        GTEST_SKIP() << "this system keeps the current folder";
    std::filesystem::remove(m_folder.enter("elsewhere"));
    EXPECT_NE(raisedText([] { init_logs(nullptr); }), "(nothing)");
    EXPECT_EQ(errorsFile(), "(none)");
    EXPECT_EQ(errorLog(""), "errors.log"); // one with a full name does not ask for it
}

// ---- marks ----

TEST_F(LogFiles, MarkIsSetUnlessItIsNull) {
    init_eventlog(nullptr, "EVENTS", files("").c_str());
    EXPECT_STREQ(getsmark(), "EVENTS");
    init_errorlog(nullptr, nullptr, files("").c_str());
    EXPECT_STREQ(getsmark(), "EVENTS");
    init_errorlog(nullptr, "ERRORS", files("").c_str());
    EXPECT_STREQ(getsmark(), "ERRORS");
    EXPECT_EQ(util_init(nullptr, nullptr, "UTIL", nullptr), 0);
    EXPECT_STREQ(getsmark(), "UTIL");
    util_init(nullptr, nullptr, nullptr, nullptr);
    EXPECT_STREQ(getsmark(), "UTIL");
    std::string other = "none";
    std::thread([&] { other = getsmark(); }).join();
    EXPECT_EQ(other, "");
    init_errorlog(nullptr, "", files("").c_str());
    EXPECT_STREQ(getsmark(), "");
}

// ---- the event log of the process ----

TEST_F(LogFiles, EventsOfAllThreadsReachTheFirstEventLog) {
    EXPECT_EQ(sysLogger.load(), nullptr);
    EXPECT_EQ(eventLog("EventsLogFileName=a.log\n"), "a.log");
    const SysLogger* const logger = sysLogger;
    EXPECT_NE(logger, nullptr);
    EXPECT_EQ(logger->scheme(), 1u);
    event("first");
    std::thread([] { event("other thread"); }).join();
    EXPECT_EQ(eventLog("EventsLogFileName=b.log\n"), "b.log");
    EXPECT_EQ(sysLogger.load(), logger);
    event("second");
    shutdown_logs();
    EXPECT_EQ(sysLogger.load(), nullptr);
    EXPECT_EQ(messages("a.log"), (Texts{"first", "other thread", "second"}));
    EXPECT_EQ(bytesOf(m_folder.path() / "b.log"), "");
}

TEST_F(LogFiles, EventLogOpensAnewBehindAShutDown) {
    eventLog("EventsLogFileName=a.log\n");
    event("first");
    shutdown_logs();
    shutdown_logs(); // nothing is there
    event("nowhere");
    EXPECT_EQ(eventsFile(), m_folder.name("a.log"));
    EXPECT_TRUE(threadLogState().eventsFile->provider->isGood());
    eventLog("EventsLogFileName=b.log\n");
    event("second");
    shutdown_logs();
    eventLog("EventsLogFileName=a.log\n");
    event("third");
    shutdown_logs();
    EXPECT_EQ(messages("a.log"), (Texts{"first", "third"}));
    EXPECT_EQ(messages("b.log"), Texts{"second"});
}

TEST_F(LogFiles, ErrorLogOutlivesTheShutDown) {
    eventLog("");
    errorLog("");
    error("first");
    shutdown_logs();
    error("second");
    EXPECT_EQ(messages("errors.log"), (Texts{"first", "second"}));
    EXPECT_EQ(messages("events.log"), Texts{"first"});
}

TEST_F(LogFiles, EventLogThatDoesNotOpenIsReportedAndRaised) {
    m_folder.write("dir/x", "");
    errorLog("");
    const std::string path = files("EventsLogFileName=.\\dir\n");
    EXPECT_EQ(raisedText([&] { init_eventlog(nullptr, "MARK", path.c_str()); }),
              "Failed to init logger.");
    EXPECT_EQ(messages("errors.log"),
              (Texts{"Failed to create file '" + m_folder.name("dir") + "'.",
                     "Failed to create file " + m_folder.name("dir") + "."}));
    EXPECT_STREQ(getsmark(), "");
    EXPECT_EQ(sysLogger.load(), nullptr);
    EXPECT_EQ(eventLog("EventsLogFileName=good.log\n"), "good.log");
}

TEST_F(LogFiles, RotationOfTheEventLogIsToldInTheErrorLog) {
    const std::string path = files("logdepth=2\n");
    m_folder.write("events.log", "old\r\n");
    platform::calls.creationTime = [](const char*, std::int64_t* seconds, int*) {
        *seconds = platform::calls.wallClock().seconds;
        return true;
    };
    init_errorlog(nullptr, nullptr, path.c_str());
    init_eventlog(nullptr, nullptr, path.c_str());
    ASSERT_EQ(messages("errors.log").size(), 1u);
    EXPECT_EQ(messages("errors.log")[0].find("Info: Rotation is not started. The creation day of "
                                             "the " +
                                             m_folder.name("events.log") + " is "),
              0u);
    EXPECT_EQ(bytesOf(m_folder.path() / "events.log"), "old\r\n");
}

TEST_F(LogFiles, RotationThatFailsReachesTheCaller) {
    const std::string path = files("logdepth=2\n");
    m_folder.write("events.log", "old\r\n");
    m_folder.write("errors.log", "old\r\n");
    platform::calls.creationTime = [](const char*, std::int64_t* seconds, int*) {
        *seconds = 0;
        return true;
    };
    platform::calls.moveFile = [](const char*, const char*) { return false; };
    platform::calls.sleep = [](std::uint32_t) {};
    using std::filesystem::filesystem_error;
    EXPECT_THROW(init_eventlog(nullptr, "M", path.c_str()), filesystem_error);
    EXPECT_THROW(init_errorlog(nullptr, "M", path.c_str()), filesystem_error);
    EXPECT_EQ(eventsFile(), "(none)");
    EXPECT_EQ(errorsFile(), "(none)");
    EXPECT_EQ(sysLogger.load(), nullptr);
    EXPECT_STREQ(getsmark(), "");
    // The slots stay taken: a further try opens nothing and raises nothing.
    init_errorlog(nullptr, "M", path.c_str());
    EXPECT_EQ(errorsFile(), m_folder.name("errors.log"));
    error("dropped");
    EXPECT_EQ(bytesOf(m_folder.path() / "errors.log"), "old\r\n");
    // The logger opens the event log by itself and finds the file as it is.
    init_eventlog(nullptr, "M", path.c_str());
    ASSERT_NE(sysLogger.load(), nullptr);
    error("kept");
    const std::string events = bytesOf(m_folder.path() / "events.log");
    EXPECT_TRUE(events.starts_with("old\r\n")) << events;
    EXPECT_TRUE(events.ends_with("kept\r\n")) << events;
}

TEST_F(LogFiles, OtherThreadsLogWhileALogRotates) {
    const std::string path = files("logdepth=2\n");
    init_errorlog(nullptr, nullptr, path.c_str());
    m_folder.write("other.log", "old\r\n");
    platform::calls.creationTime = [](const char*, std::int64_t* seconds, int*) {
        *seconds = 0;
        return true;
    };
    platform::calls.moveFile = [](const char*, const char*) { return false; };
    static std::atomic<bool> rotates, logged;
    rotates = logged = false;
    platform::calls.sleep = [](std::uint32_t) {
        rotates = true;
        waitWhile(logged, false); // the rotation does not go on before the line is written
    };
    std::thread opening([&] {
        EXPECT_THROW(util_init(nullptr, "other.log", nullptr, path.c_str()),
                     std::filesystem::filesystem_error);
    });
    while (!rotates)
        std::this_thread::yield();
    error("meanwhile");
    const std::string errors = bytesOf(m_folder.path() / "errors.log");
    EXPECT_TRUE(errors.ends_with("meanwhile\r\n")) << errors;
    logged = true;
    opening.join();
}

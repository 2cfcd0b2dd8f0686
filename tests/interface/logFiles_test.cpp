// The log files as a host meets them: files that it names, what it finds in them, and what is
// raised into it.

#include <cxxabi.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <thread>
#include <typeinfo>
#include <vector>

#include "vdreader/log.h"
#include "vdreader/logfiles.h"

namespace {

namespace fs = std::filesystem;
using Texts = std::vector<std::string>;

// Where relative names point; asked for before the current folder moves.
const fs::path& programFolder() {
    static const fs::path folder =
        fs::absolute(testing::internal::GetArgvs().front()).parent_path();
    return folder;
}

std::string bytesOf(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

// What stands behind the header of each line, with its line end.
Texts textsOf(const std::string& bytes) {
    Texts texts;
    for (std::size_t at = 0; at < bytes.size();) {
        const std::size_t feed = bytes.find('\n', at);
        const std::size_t end = feed == std::string::npos ? bytes.size() : feed + 1;
        const std::string line = bytes.substr(at, end - at);
        const std::size_t header = line.find("): ");
        texts.push_back(header == std::string::npos ? line : line.substr(header + 3));
        at = end;
    }
    return texts;
}

// The message of an error line that stands behind the program's name.
std::string errorIn(const std::string& text) {
    const std::size_t lead = text.find(": Error: ");
    return lead == std::string::npos ? "(no error) " + text : text.substr(lead + 9);
}

// A folder of its own in front of each test, beside the program: logs stay open to the end.
class LogFilesInterface : public testing::Test {
  protected:
    LogFilesInterface() {
        fs::remove_all(m_folder);
        fs::create_directories(m_folder);
        util_set_mark("");
    }
    ~LogFilesInterface() {
        shutdown_logs();
        std::error_code ignored;
        fs::current_path(m_former, ignored);
        fs::remove_all(m_folder, ignored);
    }

    std::string name(const char* file) const { return (m_folder / file).string(); }
    Texts texts(const char* file) const { return textsOf(bytesOf(m_folder / file)); }
    std::string write(const char* file, const std::string& bytes) const {
        std::ofstream(m_folder / file, std::ios::binary) << bytes;
        return name(file);
    }

    const fs::path m_former = fs::current_path();
    const std::string m_test = testing::UnitTest::GetInstance()->current_test_info()->name();
    const fs::path m_folder = programFolder() / "logs" / m_test;
};

// What a call raises: the type's name and the text.
struct Raised {
    std::string type;
    std::string text;
};
template <class Call>
Raised raisedBy(Call call) {
    try {
        call();
    } catch (const std::exception& failure) {
        const std::type_info* const type = abi::__cxa_current_exception_type();
        int status = 0;
        char* const name = abi::__cxa_demangle(type->name(), nullptr, nullptr, &status);
        Raised raised = {name != nullptr ? name : type->name(), failure.what()};
        std::free(name);
        return raised;
    }
    return {"(nothing)", ""};
}

} // namespace

TEST_F(LogFilesInterface, NamedFilesTakeTheLines) {
    EXPECT_EQ(util_init(name("e.log").c_str(), name("r.log").c_str(), "MARK", nullptr), 0);
    EXPECT_STREQ(getsmark(), "MARK");
    event("event %d", 1);
    devent(0, "debug");
    error("error %s", "100%");
    exc_h_print("exception");
    netevent("nowhere");
    const Texts events = texts("e.log");
    ASSERT_EQ(events.size(), 4u);
    EXPECT_EQ(events[0], "event 1\r\n");
    EXPECT_EQ(events[1], "debug\r\n");
    EXPECT_EQ(errorIn(events[2]), "error 100%\r\n");
    EXPECT_EQ(events[3], "exception\r\n");
    ASSERT_EQ(texts("r.log").size(), 1u);
    EXPECT_EQ(texts("r.log")[0], events[2]);
    EXPECT_NE(bytesOf(m_folder / "r.log").find(":MARK): Running "), std::string::npos);
}

TEST_F(LogFilesInterface, ErrorOfAThreadWithoutAFileReachesTheEventLogAlone) {
    util_init(name("e.log").c_str(), name("r.log").c_str(), nullptr, nullptr);
    std::thread([] { error("elsewhere"); }).join();
    EXPECT_EQ(texts("e.log").size(), 1u);
    EXPECT_EQ(bytesOf(m_folder / "r.log"), "");
}

TEST_F(LogFilesInterface, RelativeNamesStandBesideTheProgram) {
    fs::create_directory(m_folder / "elsewhere");
    fs::current_path(m_folder / "elsewhere");
    util_init(nullptr, ("logs\\" + m_test + "\\deep\\r.log").c_str(), nullptr, nullptr);
    error("text");
    EXPECT_EQ(textsOf(bytesOf(m_folder / "deep" / "r.log")).size(), 1u);
    EXPECT_TRUE(fs::equivalent(fs::current_path(), m_folder / "elsewhere"));
}

TEST_F(LogFilesInterface, SettingsComeFromTheCurrentFolderWhichThenMoves) {
    write("sarn.ini",
          "[Files]\nEventsLogFileName=e.log\nErrorsLogFileName=r.log\n"
          "LogFilesFolderName=logs\\" +
              m_test + "\n");
    fs::current_path(m_folder);
    init_logs("MARK");
    error("text");
    EXPECT_EQ(texts("e.log").size(), 1u);
    EXPECT_EQ(texts("r.log").size(), 1u);
    EXPECT_STREQ(getsmark(), "MARK");
    EXPECT_TRUE(fs::equivalent(fs::current_path(), programFolder()));
}

TEST_F(LogFilesInterface, KeysAndIniPathsOfTheCaller) {
    const std::string ini = write("my.ini", "[files]\nA=logs\\" + m_test + "\\a.log\nB=logs\\" +
                                                m_test + "\\b.log\n[logfile]\nrotate=a.log\n");
    fs::current_path(m_folder);
    init_errorlog("b", nullptr, ini.c_str());
    EXPECT_TRUE(fs::equivalent(fs::current_path(), m_folder));
    init_eventlog("a", "M", ini.c_str());
    EXPECT_TRUE(fs::equivalent(fs::current_path(), programFolder()));
    const Texts errors = texts("b.log");
    ASSERT_EQ(errors.size(), 1u);
    EXPECT_EQ(errorIn(errors[0]),
              "!Invalid rotate option 'a.log'. Expected format is '<filename>,<rotate_times>' e.g. "
              "'events.log,3'\r\n");
    EXPECT_EQ(bytesOf(m_folder / "a.log"), "");
}

TEST_F(LogFilesInterface, FileOfTodayIsNotRotatedAndSaysSo) {
    const std::string ini = write("my.ini", "[files]\nlogdepth=2\n");
    write("r.log", "old\r\n");
    util_init(nullptr, name("r.log").c_str(), nullptr, ini.c_str());
    error("text");
    const Texts errors = texts("r.log");
    ASSERT_EQ(errors.size(), 3u);
    EXPECT_EQ(errors[0], "old\r\n");
    EXPECT_EQ(errorIn(errors[1]).find("Info: Rotation is not started. The creation day of the " +
                                      name("r.log") + " is "),
              0u);
    EXPECT_EQ(errorIn(errors[2]), "text\r\n");
    EXPECT_FALSE(fs::exists(m_folder / "r.log.1"));
}

TEST_F(LogFilesInterface, EventLogOpensAnewBehindAShutDown) {
    util_init(name("e.log").c_str(), nullptr, nullptr, nullptr);
    exc_h_print("first");
    util_init(name("f.log").c_str(), nullptr, nullptr, nullptr);
    exc_h_print("still the first file");
    shutdown_logs();
    exc_h_print("nowhere");
    util_init(name("f.log").c_str(), nullptr, nullptr, nullptr);
    exc_h_print("second");
    shutdown_logs();
    shutdown_logs();
    EXPECT_EQ(texts("e.log"), (Texts{"first\r\n", "still the first file\r\n"}));
    EXPECT_EQ(texts("f.log"), Texts{"second\r\n"});
}

TEST_F(LogFilesInterface, ConsoleShowsTheLinesOfLogsThatAreOpenedLater) {
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    util_init(name("e.log").c_str(), name("r.log").c_str(), nullptr, nullptr);
    EXPECT_EQ(EnableForwardLogToConsole(), 0);
    event("silent");
    error("silent");
    util_init(name("e.log").c_str(), name("r.log").c_str(), nullptr, nullptr);
    EXPECT_EQ(EnableForwardLogToConsole(), 1);
    event("seen");
    error("seen");
    const Texts out = textsOf(testing::internal::GetCapturedStdout());
    const Texts err = textsOf(testing::internal::GetCapturedStderr());
    ASSERT_EQ(out.size(), 1u);
    EXPECT_EQ(out[0].find("seen\r"), 0u);
    ASSERT_EQ(err.size(), 1u);
    EXPECT_EQ(errorIn(err[0]).find("seen\r"), 0u);
}

TEST_F(LogFilesInterface, NetLogStandsBesideTheProgram) {
    const fs::path file = programFolder() / "stats" / "netevent.log";
    const std::string before = bytesOf(file);
    netevent("nowhere");
    EXPECT_EQ(bytesOf(file), before);
    netutil_init();
    netevent("bytes %d\n", 1);
    netevent("more");
    EXPECT_EQ(bytesOf(file), before + "bytes 1\r\nmore");
}

TEST_F(LogFilesInterface, NothingIsOpenedForNobody) {
    init_dealliblog();
    EXPECT_EQ(util_init(nullptr, "", nullptr, ""), 0);
    error("nowhere");
    EXPECT_TRUE(fs::is_empty(m_folder));
    EXPECT_STREQ(getsmark(), "");
}

// ---- what is raised ----

TEST_F(LogFilesInterface, FolderThatCannotBeMadeIsRaised) {
    util_init(nullptr, name("r.log").c_str(), nullptr, nullptr);
    fs::current_path(m_folder);
    create_tree(".\\x.log");
    create_tree("..\\x.log");
    create_tree(name("made").append("/x.log").c_str());
    EXPECT_TRUE(fs::is_directory(m_folder / "made"));
    EXPECT_EQ(bytesOf(m_folder / "r.log"), "");
    const char* const paths[] = {"x.log", "", nullptr};
    for (std::size_t i = 0; i < std::size(paths); ++i) {
        const Raised raised = raisedBy([&] { create_tree(paths[i]); });
        EXPECT_EQ(raised.type, "boost::filesystem::filesystem_error");
        const Texts errors = texts("r.log");
        ASSERT_EQ(errors.size(), i + 1);
        EXPECT_EQ(errorIn(errors[i]), std::string("create_tree(") +
                                          (paths[i] != nullptr ? paths[i] : "null") + ") failed. " +
                                          raised.text + "\r\n");
    }
}

TEST_F(LogFilesInterface, LogInAFolderThatIsAFileIsRaisedOnce) {
    write("file", "text");
    const std::string inside = (m_folder / "file" / "r.log").string();
    const auto open = [&] { util_init(nullptr, inside.c_str(), "MARK", nullptr); };
    EXPECT_EQ(raisedBy(open).type, "boost::filesystem::filesystem_error");
    EXPECT_STREQ(getsmark(), "");
    EXPECT_EQ(raisedBy(open).type, "(nothing)"); // the name keeps its place, and stays closed
    error("dropped");
    EXPECT_EQ(bytesOf(m_folder / "file"), "text");
}

TEST_F(LogFilesInterface, EventLogThatDoesNotOpenIsRaised) {
    fs::create_directory(m_folder / "e.log");
    util_init(nullptr, name("r.log").c_str(), nullptr, nullptr);
    bool caught = false;
    try {
        util_init(name("e.log").c_str(), nullptr, "MARK", nullptr);
    } catch (const std::runtime_error& failure) {
        caught = true;
        EXPECT_STREQ(failure.what(), "Failed to init logger.");
    }
    EXPECT_TRUE(caught);
    ASSERT_EQ(texts("r.log").size(), 2u);
    EXPECT_EQ(errorIn(texts("r.log")[0]), "Failed to create file '" + name("e.log") + "'.\r\n");
    EXPECT_EQ(errorIn(texts("r.log")[1]), "Failed to create file " + name("e.log") + ".\r\n");
    EXPECT_STREQ(getsmark(), "");
}

TEST_F(LogFilesInterface, ErrorLogThatDoesNotOpenIsNot) {
    fs::create_directory(m_folder / "r.log");
    EXPECT_EQ(util_init(name("e.log").c_str(), name("r.log").c_str(), "MARK", nullptr), 0);
    EXPECT_STREQ(getsmark(), "MARK");
    error("text");
    EXPECT_EQ(texts("e.log").size(), 1u);
}

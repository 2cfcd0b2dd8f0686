// Logs that the programs write on request.

#include <gtest/gtest.h>

#include <filesystem>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "sample/output.h"
#include "support/process.h"
#include "support/tempFolder.h"

using namespace toolTest;

namespace {

class ToolLog : public testing::Test {
  protected:
    ToolLog() { sample::writeMarket(folder.path(), sample::makeMarket({.maxSecs = 2'000})); }

    // The lines of a log, each checked for its header and reduced to "LETTER MARK MESSAGE".
    std::vector<std::string> lines(const std::string& log) const {
        static const std::regex form(R"((.): [ \d]\d \w{3} \d\d \(\w{3}\) \d\d:\d\d:\d\d\.\d{3} )"
                                     R"(\(\d+:\d+(?::(\w+))?\): (.*)\r)");
        std::istringstream text(readFile(logs / log));
        std::vector<std::string> found;
        for (std::string line; std::getline(text, line);) {
            std::smatch match;
            EXPECT_TRUE(std::regex_match(line, match, form)) << line;
            found.push_back(match[1].str() + " " + match[2].str() + " " + match[3].str());
        }
        return found;
    }

    TempFolder folder;
    const std::filesystem::path logs = folder.path() / "some" / "logs";
};

using Lines = std::vector<std::string>;

} // namespace

TEST_F(ToolLog, ServerTellsItsBeginningAndItsEnd) {
    const RunResult result = vdsample(
        {folder.name(), "--live", "--rate", "40", "--seconds", "1", "--log", logs.string()});
    ASSERT_EQ(result.code, 0) << result.err;
    const std::string counts = result.out.substr(result.out.find('\n') + 1);
    EXPECT_EQ(lines("events.log"),
              (Lines{"V SERVER serving " + folder.name() + ", 40 changes a second",
                     "V SERVER " + counts.substr(0, counts.size() - 1) + ", the end"}));
    EXPECT_EQ(lines("errors.log"), Lines{});
}

TEST_F(ToolLog, ReaderTellsWhatItShowsAndWhatFails) {
    ASSERT_EQ(vdcat({"classes", folder.name(), "--log", logs.string()}).code, 0);
    ASSERT_EQ(vdcat({"limits", folder.file("gone"), "--log", logs.string()}).code, 3);
    const Lines events = lines("events.log");
    const Lines errors = lines("errors.log");
    ASSERT_EQ(events.size(), 4u);
    ASSERT_EQ(errors.size(), 1u);
    EXPECT_EQ(events[0], "V VDCAT showing classes of " + folder.name());
    EXPECT_EQ(events[1], "V VDCAT done, exit code 0");
    EXPECT_EQ(events[2], "V VDCAT showing limits of " + folder.file("gone"));
    EXPECT_EQ(events[3], errors[0]);
    EXPECT_TRUE(errors[0].starts_with("E VDCAT Running ")) << errors[0];
    EXPECT_TRUE(errors[0].ends_with(": Error: there is no folder " + folder.file("gone")))
        << errors[0];
}

TEST_F(ToolLog, SettingsOfRotationStandInTheFolder) {
    std::filesystem::create_directories(logs);
    sample::writeFile((logs / "sarn.ini").string(), "[files]\nlogdepth=2\n");
    sample::writeFile((logs / "events.log").string(), "of today\r\n");
    ASSERT_EQ(vdcat({"classes", folder.name(), "--log", logs.string()}).code, 0);
    const Lines errors = lines("errors.log");
    ASSERT_EQ(errors.size(), 1u);
    EXPECT_NE(errors[0].find("Info: Rotation is not started. The creation day of the " +
                             (logs / "events.log").string()),
              std::string::npos)
        << errors[0];
}

TEST_F(ToolLog, UnusableFolderGives7) {
    sample::writeFile(folder.file("file"), "x");
    const std::string inside = (std::filesystem::path(folder.file("file")) / "x").string();
    for (const RunResult& result :
         {vdcat({"classes", folder.name(), "--log", inside}),
          vdsample({folder.name(), "--live", "--seconds", "1", "--log", inside})}) {
        EXPECT_EQ(result.code, 7);
        EXPECT_EQ(result.out, "");
        EXPECT_NE(result.err.find("cannot log to " + inside), std::string::npos) << result.err;
    }
    std::filesystem::create_directories(logs / "errors.log"); // a folder in the place of the file
    const std::string tooLong = folder.file(std::string(250, 'x'));
    for (const std::string& where : {logs.string(), tooLong}) {
        const RunResult result = vdcat({"classes", folder.name(), "--log", where});
        EXPECT_EQ(result.code, 7);
        EXPECT_NE(result.err.find("cannot log to " + where), std::string::npos) << result.err;
    }
    const RunResult notLive = vdsample({folder.file("new"), "--log", logs.string()});
    EXPECT_EQ(notLive.code, 2);
    EXPECT_NE(notLive.err.find("--log goes with --live alone"), std::string::npos) << notLive.err;
}

#ifndef _WIN32
TEST_F(ToolLog, OutputThatFailsIsLogged) {
    const std::vector<std::string> reading = {"classes", folder.name(), "--log", logs.string()};
    ASSERT_EQ(toolTest::run(VDCAT_PROGRAM, reading, StandardOutput::FullDevice).code, 7);
    ASSERT_EQ(lines("errors.log").size(), 1u);
    ASSERT_EQ(lines("events.log").size(), 2u);
    EXPECT_EQ(lines("events.log")[1], lines("errors.log")[0]) << "no word of an end";
    const std::vector<std::string> serving = {folder.name(), "--live", "--seconds",
                                              "1",           "--log",  logs.string()};
    ASSERT_EQ(toolTest::run(VDSAMPLE_PROGRAM, serving, StandardOutput::FullDevice).code, 7);
    EXPECT_EQ(lines("errors.log").size(), 2u);
}
#endif

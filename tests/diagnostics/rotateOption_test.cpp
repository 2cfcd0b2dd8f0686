// The settings of rotation: values of "rotate" and the depth for all logs.

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

#include "diagnostics/errorTexts.h"
#include "diagnostics/rotation.h"
#include "dw_util/cutCopy.h"
#include "platform/process.h"
#include "support/raised.h"
#include "support/scopedCalls.h"
#include "support/tempFolder.h"

namespace {

using Texts = std::vector<std::string>;
using std::string_literals::operator""s;

// The result of settings, with what they reported.
struct Settings {
    bool isRotate = false;
    std::int32_t depth = 0;
    Texts errors;
    bool operator==(const Settings&) const = default;
};
const Settings kNone = {};

std::ostream& operator<<(std::ostream& to, const Settings& settings) {
    to << (settings.isRotate ? "rotates, depth " : "stays, depth ") << settings.depth;
    for (const std::string& text : settings.errors)
        to << " [" << text << "]";
    return to;
}

Settings rotates(std::int32_t depth) {
    return {true, depth, {}};
}

Settings invalid(const std::string& value) {
    return {false,
            0,
            {"!Invalid rotate option '" + value +
             "'. Expected format is '<filename>,<rotate_times>' e.g. 'events.log,3'"}};
}

std::string inFolder(const char* folder, const char* name) {
    return std::string(folder) + platform::pathForm.separator + name;
}

Settings settingsOf(const EVENTS& entry, const CapturedLog& log) {
    return {entry.isRotate, entry.rotateDepth, errorTexts(log)};
}

// What one value makes of a log of this name.
Settings option(const std::string& value, const std::string& fileName) {
    const CapturedLog log;
    EVENTS entry;
    copyCut(entry.fileName, fileName.c_str());
    parseRotateOption(value, entry);
    return settingsOf(entry, log);
}

Settings option(const std::string& value) {
    return option(value, inFolder("logs", "events.log"));
}

// What an ini file makes of it.  The entry holds other settings before.
Settings load(const char* iniPath, const char* fileName = "events.log") {
    const CapturedLog log;
    EVENTS entry;
    copyCut(entry.fileName, fileName);
    entry.isRotate = true;
    entry.rotateDepth = 99;
    loadRotateSettings(entry, iniPath);
    return settingsOf(entry, log);
}

Settings loadText(const std::string& text, const char* fileName = "events.log") {
    const TempFolder folder;
    return load(folder.write("test.ini", text).c_str(), fileName);
}

} // namespace

// ---- one value ----

TEST(RotateOption, EmptyValueIsForNoLog) {
    EXPECT_EQ(option(""), kNone);
    EXPECT_EQ(option(","), kNone);
    EXPECT_EQ(option(",3"), kNone);
    EXPECT_EQ(option(" \t"), kNone);
}

TEST(RotateOption, NameAndDepthSetBoth) {
    EXPECT_EQ(option("events.log,3"), rotates(3));
    EXPECT_EQ(option("events.log,1"), rotates(1));
}

TEST(RotateOption, DepthZeroRotatesToo) {
    EXPECT_EQ(option("events.log,0"), rotates(0));
}

TEST(RotateOption, BlanksAroundTheNameAndInFrontOfTheDepthDoNotCount) {
    EXPECT_EQ(option(" \t\r\nevents.log \t\r\n, \t3"), rotates(3));
    EXPECT_EQ(option("\vevents.log,3"), kNone);
    EXPECT_EQ(option("events.log,\v3"), rotates(3));
    EXPECT_EQ(option("events.log,\f 3"), rotates(3));
}

TEST(RotateOption, CaseOfTheNameDoesNotCount) {
    EXPECT_EQ(option("EVENTS.LOG,2"), rotates(2));
    EXPECT_EQ(option("events.log,2", inFolder("c", "Events.Log")), rotates(2));
}

TEST(RotateOption, FoldersAreNotCompared) {
    EXPECT_EQ(option("b\\events.log,2", inFolder("a", "events.log")), rotates(2));
    EXPECT_EQ(option("c:\\x\\y\\events.log,2", "events.log"), rotates(2));
    EXPECT_EQ(option("events.log,2", inFolder("a", "events.log")), rotates(2));
}

TEST(RotateOption, SlashSeparatesWhereTheSystemsPathsHaveIt) {
    const bool separates = platform::pathForm.isSeparator('/');
    EXPECT_EQ(option("b/events.log,2"), separates ? rotates(2) : kNone);
}

TEST(RotateOption, LongerNameInTheOptionMatches) {
    EXPECT_EQ(option("events.log.old,3"), rotates(3));
    EXPECT_EQ(option("events.logs,3"), rotates(3));
}

TEST(RotateOption, ShorterOrOtherNameDoesNotMatch) {
    EXPECT_EQ(option("events.lo,3"), kNone);
    EXPECT_EQ(option("errors.log,3"), kNone);
    EXPECT_EQ(option("xevents.log,3"), kNone);
    EXPECT_EQ(option("events.log\\,3"), kNone);
}

TEST(RotateOption, LogWhoseNameEndsInASeparatorMatchesAll) {
    EXPECT_EQ(option("anything,3", inFolder("logs", "")), rotates(3));
}

TEST(RotateOption, MissingOrNegativeDepthIsReportedWithTheValueAsItStands) {
    for (const char* value : {"events.log", "events.log,", " Events.log ,-1", "a\\events.log;3",
                              "events.log.old", "events.log,-2147483648", "events.log,-1 %s%n"})
        EXPECT_EQ(option(value), invalid(value)) << value;
}

TEST(RotateOption, MalformedValueForAnotherLogIsNotReported) {
    EXPECT_EQ(option("errors.log"), kNone);
    EXPECT_EQ(option("errors.log,-5"), kNone);
}

// A slip of the pen must not delete a log.
TEST(RotateOption, WordForADepthIsReportedAndNothingIsRotated) {
    for (const std::string value :
         {"events.log,abc", "events.log, ", "events.log,-", "events.log,x3", "events.log,\v"})
        EXPECT_EQ(option(value), invalid(value)) << value;
}

TEST(RotateOption, NumberEndsWhereItsDigitsDo) {
    EXPECT_EQ(option("events.log, 3"), rotates(3));
    EXPECT_EQ(option("events.log,3x"), rotates(3));
    EXPECT_EQ(option("events.log,3,4"), rotates(3));
}

TEST(RotateOption, DepthIsCutTo16BitsWithItsSign) {
    EXPECT_EQ(option("events.log,32767"), rotates(32767));
    EXPECT_EQ(option("events.log,32768"), rotates(-32768));
    EXPECT_EQ(option("events.log,65535"), rotates(-1));
    EXPECT_EQ(option("events.log,65536"), rotates(0));
    EXPECT_EQ(option("events.log,65537"), rotates(1));
    EXPECT_EQ(option("events.log,99999999999"), rotates(-1)); // the nearest number is 0x7FFFFFFF
}

TEST(RotateOption, ReportLeavesWhatAFormerValueSet) {
    const CapturedLog log;
    EVENTS entry;
    copyCut(entry.fileName, "events.log");
    parseRotateOption("events.log,3", entry);
    parseRotateOption("events.log", entry);
    EXPECT_EQ(settingsOf(entry, log), (Settings{true, 3, invalid("events.log").errors}));
}

TEST(RotateOption, VeryLongValueIsTakenWhole) {
    const std::string name = "events.log" + std::string(5000, 'x');
    EXPECT_EQ(option(name + ",3"), rotates(3));
    EXPECT_EQ(option(std::string(5000, 'x') + "\\events.log,3"), rotates(3));
}

// ---- ini files ----

TEST(RotateSettings, NoIniPathMeansNoRotation) {
    EXPECT_EQ(load(nullptr), kNone);
    EXPECT_EQ(load(""), kNone);
}

TEST(RotateSettings, MissingOrEmptyIniFileMeansNoRotation) {
    const TempFolder folder;
    EXPECT_EQ(load(folder.name("none.ini").c_str()), kNone);
    EXPECT_EQ(load(folder.path().string().c_str()), kNone);
    EXPECT_EQ(loadText(""), kNone);
    EXPECT_EQ(loadText("[logfile]\n[files]\n"), kNone);
}

TEST(RotateSettings, DamagedIniFileMeansNoRotation) {
    EXPECT_EQ(loadText("[logfile\nrotate=events.log,3\n[files\nlogdepth=2\n"), kNone);
    EXPECT_EQ(loadText("\0\xFF\xFE[\0]=\n=\n"s), kNone);
}

TEST(RotateSettings, SectionsAndKeysAreFolded) {
    EXPECT_EQ(loadText("[LogFile]\nROTATE=events.log,3\n"), rotates(3));
    EXPECT_EQ(loadText("[FILES]\nLogDepth=4\n"), rotates(4));
}

TEST(RotateSettings, EachLogTakesItsOwnValue) {
    const char* const text = "[logfile]\nrotate=events.log,3\nrotate=errors.log,5\n";
    EXPECT_EQ(loadText(text, "events.log"), rotates(3));
    EXPECT_EQ(loadText(text, "errors.log"), rotates(5));
    EXPECT_EQ(loadText(text, "net.log"), kNone);
}

TEST(RotateSettings, LaterMatchOverwritesAnEarlierOne) {
    EXPECT_EQ(loadText("[logfile]\nrotate=events.log,3\nrotate=x\\EVENTS.log,7\n"), rotates(7));
    EXPECT_EQ(loadText("[logfile]\nrotate=events.log,3\nrotate=events.log,0\n"), rotates(0));
}

TEST(RotateSettings, DepthForAllLogsCountsWithoutValues) {
    EXPECT_EQ(loadText("[files]\nlogdepth=2\n"), rotates(2));
    EXPECT_EQ(loadText("[files]\nlogdepth=0\n"), kNone);
    EXPECT_EQ(loadText("[files]\nlogdepth=\n"), kNone);
    EXPECT_EQ(loadText("[files]\nlogdepth=many\n"), kNone);
}

TEST(RotateSettings, DepthForAllLogsIsCutTo16BitsWithItsSign) {
    EXPECT_EQ(loadText("[files]\nlogdepth=65537\n"), rotates(1));
    EXPECT_EQ(loadText("[files]\nlogdepth=-1\n"), rotates(-1));
    EXPECT_EQ(loadText("[files]\nlogdepth=40000\n"), rotates(-25536));
    // It is not 0, so the log rotates, and nothing of it is left, so nothing is kept.
    EXPECT_EQ(loadText("[files]\nlogdepth=65536\n"), rotates(0));
}

TEST(RotateSettings, AnyValueHidesTheDepthForAllLogs) {
    const std::string depth = "[files]\nlogdepth=2\n";
    EXPECT_EQ(loadText("[logfile]\nrotate=errors.log,3\n" + depth), kNone);
    EXPECT_EQ(loadText("[logfile]\nrotate=\n" + depth), kNone);
    EXPECT_EQ(loadText("[logfile]\nrotate=events.log\n" + depth), invalid("events.log"));
    EXPECT_EQ(loadText("[logfile]\nother=events.log,3\n" + depth), rotates(2));
}

TEST(RotateSettings, FailedReadOfTheIniFileIsRaised) {
    const TempFolder folder;
    const std::string path = folder.write("test.ini", "[files]\nlogdepth=2\n");
    const ScopedCalls scope;
    platform::calls.readAt = [](platform::FileHandle, std::uint64_t, void*,
                                std::size_t) -> std::ptrdiff_t { return -1; };
    EXPECT_EQ(raisedText([&] { load(path.c_str()); }),
              "Read ini file error. File" + path + " line:1");
}

// Exit codes and messages of vdcat.

#include <gtest/gtest.h>

#include <iterator>

#include "sample/bytes.h"
#include "sample/output.h"
#include "support/process.h"
#include "support/tempFolder.h"

using namespace toolTest;

namespace {

class VdcatFailures : public testing::Test {
  protected:
    VdcatFailures() { sample::writeMarket(folder.path(), sample::makeMarket({.maxSecs = 2'000})); }

    // Expects the exit code, no output and one line on standard error that holds the text.
    void expectFailure(const std::vector<std::string>& arguments, int code,
                       const std::string& text) {
        const RunResult result = vdcat(arguments);
        EXPECT_EQ(result.code, code) << result.err;
        EXPECT_EQ(result.out, "");
        EXPECT_NE(result.err.find(text), std::string::npos) << result.err;
        const std::size_t last = result.err.rfind("vdcat: ");
        ASSERT_NE(last, std::string::npos) << result.err;
        EXPECT_EQ(result.err.find('\n', last), result.err.size() - 1) << result.err;
    }

    void damage(std::size_t offset, char byte) {
        std::string bytes = sample::encodeClassFile(sample::makeMarket({.maxSecs = 2'000}).classes);
        bytes.at(offset) = byte;
        sample::writeFile(folder.path() / "class.vd", bytes);
    }

    TempFolder folder;
};

TEST_F(VdcatFailures, WrongUsageGives2) {
    const std::string dir = folder.name();
    const std::string ini = folder.file("vdreader.ini");
    expectFailure({}, 2, "KIND");
    expectFailure({"classes"}, 2, "either a folder or --ini is needed");
    expectFailure({"classes", dir, "--ini", ini}, 2, "either a folder or --ini is needed");
    expectFailure({"things", dir}, 2, "there is no kind 'things'; there are info, classes");
    expectFailure({"classes", dir, "--frobnicate"}, 2, "--frobnicate");
    expectFailure({"classes", dir, dir}, 2, "try --help");
    expectFailure({"classes", dir, "--section", "x"}, 2, "--section goes with --ini alone");
    expectFailure({"classes", dir, "--csv", "--json"}, 2, "exclude one another");
    expectFailure({"classes", dir, "--limit", "-1"}, 2, "'-1' is no whole number");
    expectFailure({"classes", dir, "--limit", "x"}, 2, "'x' is no whole number");
    expectFailure({"securities", dir, "--lang", "65536"}, 2, "'65536' is no whole number");
    expectFailure({"limits", dir, "--class", "A"}, 2, "--class does not go with limits");
    expectFailure({"classes", dir, "--sec", "A"}, 2, "--sec does not go with classes");
    expectFailure({"positions", dir, "--lang", "1"}, 2, "--lang does not go with positions");
    expectFailure({"last", dir, "--lang", "1"}, 2, "--lang does not go with last");
    expectFailure({"alerts", dir, "--class", "A"}, 2, "--class does not go with alerts");
    expectFailure({"alerts", dir, "--sec", "A"}, 2, "--sec does not go with alerts");
}

TEST_F(VdcatFailures, WrongUsageOfTheLiveOptionsGives2) {
    const std::string dir = folder.name();
    for (const char* kind : {"classes", "securities", "params", "limits", "positions"}) {
        const std::string ending = std::string(" does not go with ") + kind;
        expectFailure({kind, dir, "--live"}, 2, "--live" + ending);
        expectFailure({kind, dir, "--follow"}, 2, "--follow" + ending);
    }
    expectFailure({"info", dir, "--live", "--follow"}, 2, "--follow does not go with info");
    for (const char* kind : {"last", "journal", "alerts"}) {
        expectFailure({kind, dir, "--follow"}, 2,
                      "--follow needs --live, since a copy does not change");
        expectFailure({kind, dir, "--live", "--new"}, 2, "--new goes with --follow alone");
        expectFailure({kind, dir, "--seconds", "1"}, 2, "--seconds goes with --follow alone");
        expectFailure({kind, dir, "--interval", "5"}, 2, "--interval goes with --follow alone");
    }
    expectFailure({"last", dir, "--live", "--follow", "--interval", "x"}, 2, "no whole number");
}

TEST_F(VdcatFailures, UnknownFieldListsTheFields) {
    expectFailure({"classes", folder.name(), "--fields", "class_code,nothing"}, 2,
                  "no field 'nothing' in classes; there are class_code, params, securities, ch, "
                  "cl, fh, fl\n");
    expectFailure({"limits", folder.name(), "--fields", "kgo,"}, 2, "no field '' in limits");
}

TEST_F(VdcatFailures, WhatIsMissingGives3) {
    const std::string absent = folder.file("absent");
    for (const char* kind : {"info", "classes", "securities", "params", "last", "journal", "alerts",
                             "limits", "positions"}) {
        expectFailure({kind, absent}, 3, "there is no folder " + absent);
        expectFailure({kind, folder.file("class.vd")}, 3, "there is no folder ");
        expectFailure({kind, "--ini", absent}, 3, "cannot open ini file " + absent);
        expectFailure({kind, "--ini", folder.name()}, 3, "cannot open ini file ");
    }
    const TempFolder empty;
    expectFailure({"classes", empty.name()}, 3,
                  empty.name() + ": reader for classes can not be initialized");
    expectFailure({"securities", empty.name()}, 3, "reader for classes can not be initialized");
    expectFailure({"params", empty.name()}, 3, "reader for classes can not be initialized");
    expectFailure({"limits", empty.name()}, 3, "can not be opened");
    expectFailure({"positions", empty.name()}, 3, "can not be opened");
}

TEST_F(VdcatFailures, FolderThatTheReadersWouldTakeForAnotherGives3) {
#ifdef _WIN32
    GTEST_SKIP() << "a backslash is the separator here";
#else
    const std::string other = folder.name() + "/x\\y";
    std::filesystem::create_directories(other);
    expectFailure({"limits", other}, 3, "the path holds a backslash: " + other);
#endif
}

TEST_F(VdcatFailures, PathTooLongForTheLibraryGives3) {
    std::string deep = folder.name();
    while (deep.size() < 260)
        deep +=
            static_cast<char>(std::filesystem::path::preferred_separator) + std::string(50, 'd');
    std::error_code error;
    std::filesystem::create_directories(deep, error);
    if (error)
        GTEST_SKIP() << "no folder of that length here: " << error.message();
    expectFailure({"classes", deep}, 3, "the path is too long: " + deep);
}

TEST_F(VdcatFailures, DamagedClassFileGives4) {
    const std::string dir = folder.name();
    damage(0, 'X');
    expectFailure({"classes", dir}, 4, "has invalid head");
    damage(sample::kVersionOffset, 14);
    expectFailure({"securities", dir}, 4, "has invalid format version 0xe");
    damage(sample::kRecordsOffset, 1);
    expectFailure({"params", dir}, 4,
                  dir + ": STORE_CLASS_DESC has an invalid record magic (index=0)");
    sample::writeFile(folder.path() / "class.vd", "CLASS");
    expectFailure({"classes", dir}, 4, "has invalid format");
    sample::writeFile(folder.path() / "class.vd", sample::encodeClassFile({}));
    expectFailure({"classes", dir}, 4, "classes storage is empty");
}

TEST_F(VdcatFailures, InfoReportsAllAndGivesTheFirstCode) {
    damage(0, 'X');
    std::filesystem::remove(folder.path() / "fclipos.vd");
    const RunResult result = vdcat({"info", folder.name(), "--csv"});
    EXPECT_EQ(result.code, 4);
    EXPECT_EQ(result.err, "");
    EXPECT_NE(result.out.find("classes,failed,0,vd-file '"), std::string::npos) << result.out;
    EXPECT_NE(result.out.find("securities,failed,0,classes storage is not initialized\r\n"),
              std::string::npos);
    EXPECT_NE(result.out.find("limits,ready,1000,\r\n"), std::string::npos) << result.out;
    EXPECT_NE(result.out.find("positions,failed,0,alerts file "), std::string::npos);
    sample::writeMarket(folder.path(), sample::makeMarket({.maxSecs = 2'000}));
    std::filesystem::remove(folder.path() / "flimit.vd");
    EXPECT_EQ(vdcat({"info", folder.name()}).code, 3);
}

TEST_F(VdcatFailures, ClosedPipeIsSilent) {
    for (const char* form : {"--json", "--csv", "--table"})
        for (const char* kind : {"info", "classes", "securities", "last", "journal", "alerts",
                                 "limits", "positions"}) {
            const RunResult result = vdcat({kind, folder.name(), form}, StandardOutput::NoReader);
            EXPECT_EQ(result.code, 0) << kind << form;
            EXPECT_EQ(result.err, "") << kind << form;
        }
}

TEST_F(VdcatFailures, FullDeviceGives7) {
#ifdef _WIN32
    GTEST_SKIP() << "there is no device here that is always full";
#endif
    for (const std::vector<std::string>& arguments :
         {std::vector<std::string>{"securities", folder.name()},
          {"info", folder.name()},
          {"--help"},
          {"--version"}}) {
        const RunResult result = vdcat(arguments, StandardOutput::FullDevice);
        EXPECT_EQ(result.code, 7);
        EXPECT_EQ(result.err, "vdcat: cannot write to standard output: No space left on device\n");
    }
}

TEST_F(VdcatFailures, HelpAndVersionGoToStandardOutput) {
    const RunResult help = vdcat({"--help"});
    EXPECT_EQ(help.code, 0);
    EXPECT_EQ(help.err, "");
    for (const char* word :
         {"info",   "classes",   "securities", "params",    "last",   "journal",    "alerts",
          "limits", "positions", "--live",     "--follow",  "--new",  "--interval", "--seconds",
          "--ini",  "--section", "--fields",   "--limit",   "--lang", "--class",    "--sec",
          "--csv",  "--json",    "--table",    "Exit codes"})
        EXPECT_NE(help.out.find(word), std::string::npos) << word;
    EXPECT_EQ(vdcat({"--version"}).out, "vdcat " VDREADER_TOOL_VERSION "\n");
}

TEST_F(VdcatFailures, FilesAreOnlyRead) {
    const char* names[] = {"class.vd", "data.vd", "alert.vd", "flimit.vd", "fclipos.vd"};
    std::vector<std::filesystem::file_time_type> times;
    std::vector<std::string> bytes;
    for (const char* name : names) {
        times.push_back(std::filesystem::last_write_time(folder.path() / name));
        bytes.push_back(readFile(folder.path() / name));
    }
    for (const char* kind : {"info", "last", "journal", "alerts"})
        EXPECT_EQ(vdcat({kind, folder.name()}).code, 0);
    for (std::size_t i = 0; i < std::size(names); ++i) {
        EXPECT_EQ(std::filesystem::last_write_time(folder.path() / names[i]), times[i]) << names[i];
        EXPECT_TRUE(readFile(folder.path() / names[i]) == bytes[i]) << names[i];
    }
    std::size_t entries = 0;
    for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(folder.path()))
        ++entries;
    EXPECT_EQ(entries, 6u);
}

} // namespace

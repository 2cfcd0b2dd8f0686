// What vdcat reads in copies and what it does in place, which files it refuses, and that nothing is
// left behind.

#include <gtest/gtest.h>

#include <cstdlib>
#include <iterator>

#include "sample/output.h"
#include "support/process.h"
#include "support/tempFolder.h"

#ifndef _WIN32
#  include <csignal>
#endif

using namespace toolTest;
namespace fs = std::filesystem;

namespace {

// Sets the folder for temporary files until the object goes.
class TemporaryPlace {
  public:
    TemporaryPlace() {
        for (const char* name : kNames) {
            const char* value = std::getenv(name);
            m_former.emplace_back(value ? value : "");
            set(name, m_folder.name());
        }
    }
    ~TemporaryPlace() {
        for (std::size_t i = 0; i < std::size(kNames); ++i)
            set(kNames[i], m_former[i]);
    }

    // Whether nothing is there but the tests' own folders.
    bool isEmpty() const {
        for (const auto& entry : fs::directory_iterator(m_folder.path()))
            if (!entry.path().filename().string().starts_with("vdtools-"))
                return false;
        return true;
    }

  private:
#ifdef _WIN32
    static constexpr const char* kNames[] = {"TMP", "TEMP"};
    static void set(const char* name, const std::string& value) {
        _putenv((std::string(name) + "=" + value).c_str());
    }
#else
    static constexpr const char* kNames[] = {"TMPDIR"};
    static void set(const char* name, const std::string& value) {
        if (value.empty())
            unsetenv(name);
        else
            setenv(name, value.c_str(), 1);
    }
#endif

    TempFolder m_folder;
    std::vector<std::string> m_former;
};

class VdcatCopies : public testing::Test {
  protected:
    VdcatCopies() {
        sample::writeMarket(
            folder.path(),
            sample::makeMarket({.securities = 40, .changes = 30, .alerts = 20, .maxSecs = 2'000}));
    }

    void expectFailure(const std::vector<std::string>& arguments, int code,
                       const std::string& text) {
        const RunResult result = vdcat(arguments);
        EXPECT_EQ(result.code, code) << result.err;
        EXPECT_EQ(result.out, "");
        EXPECT_NE(result.err.find(text), std::string::npos) << result.err;
    }

    std::string data() const { return folder.file("data.vd"); }
    std::string alerts() const { return folder.file("alert.vd"); }

    TempFolder folder;
};

TEST_F(VdcatCopies, NothingIsLeftBehind) {
    const TemporaryPlace place;
    for (const char* kind : {"info", "last", "journal", "alerts"}) {
        EXPECT_EQ(vdcat({kind, folder.name()}).code, 0);
        EXPECT_TRUE(place.isEmpty()) << kind;
        EXPECT_EQ(vdcat({kind, folder.name(), "--limit", "1"}).err, "");
        EXPECT_TRUE(place.isEmpty()) << kind;
        EXPECT_EQ(vdcat({kind, folder.name()}, StandardOutput::NoReader).code, 0);
        EXPECT_TRUE(place.isEmpty()) << kind;
        EXPECT_EQ(vdcat({kind, "--ini", folder.file("vdreader.ini")}).code, 0);
        EXPECT_TRUE(place.isEmpty()) << kind;
    }
    fs::resize_file(data(), 50);
    fs::resize_file(alerts(), 10);
    for (const char* kind : {"info", "last", "journal", "alerts"}) {
        EXPECT_EQ(vdcat({kind, folder.name()}).code, 4) << kind;
        EXPECT_TRUE(place.isEmpty()) << kind;
    }
}

TEST_F(VdcatCopies, SignalRemovesTheCopiesToo) {
#ifdef _WIN32
    GTEST_SKIP() << "no signals are sent from process to process here";
#else
    // More than a pipe holds, so that the program waits for its reader.
    sample::writeMarket(folder.path(), sample::makeMarket({.maxSecs = 2'000}));
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
        const TemporaryPlace place;
        Child child(VDCAT_PROGRAM, {"last", folder.name()}, StandardOutput::IdleReader);
        EXPECT_TRUE(Child::waitUntil([&] { return !place.isEmpty(); }));
        EXPECT_EQ(child.endBy(number), 1000 + number);
        EXPECT_TRUE(place.isEmpty()) << number;
    }
#endif
}

TEST_F(VdcatCopies, WhatIsMissingGives3AndIsNotMade) {
    const char* kinds[][2] = {{"last", "data.vd"}, {"journal", "data.vd"}, {"alerts", "alert.vd"}};
    for (const auto& [kind, name] : kinds) {
        fs::remove(folder.path() / name);
        expectFailure({kind, folder.name()}, 3, folder.file(name) + " can not be opened");
        expectFailure({kind, folder.name(), "--live"}, 3, folder.file(name) + " can not be opened");
        expectFailure({kind, "--ini", folder.file("vdreader.ini")}, 3,
                      folder.file(name) + " can not be opened");
        EXPECT_FALSE(fs::exists(folder.path() / name)) << name;
    }
    EXPECT_EQ(vdcat({"info", folder.name()}).code, 3);
    EXPECT_FALSE(fs::exists(alerts()));
}

// The library takes a file of another kind for one to lay out anew, or stamps it.
TEST_F(VdcatCopies, ForeignFilesAreRefusedAndKept) {
    const std::string foreign(100'000, 'x');
    sample::writeFile(data(), foreign);
    sample::writeFile(alerts(), foreign);
    for (const char* kind : {"last", "journal", "alerts"}) {
        expectFailure({kind, folder.name()}, 4, "is none of its kind");
        expectFailure({kind, folder.name(), "--live"}, 4, "is none of its kind");
    }
    EXPECT_EQ(vdcat({"info", folder.name(), "--live"}).code, 4);
    EXPECT_TRUE(readFile(data()) == foreign);
    EXPECT_TRUE(readFile(alerts()) == foreign);
}

TEST_F(VdcatCopies, EmptyFilesHoldNothingAndStayEmpty) {
    const TemporaryPlace place;
    sample::writeFile(data(), "");
    sample::writeFile(alerts(), "");
    const RunResult last = vdcat({"last", folder.name(), "--limit", "1", "--fields", "values"});
    EXPECT_EQ(last.code, 0) << last.err;
    EXPECT_EQ(last.out, "{\"values\":null}\n");
    for (const char* kind : {"journal", "alerts"}) {
        const RunResult result = vdcat({kind, folder.name()});
        EXPECT_EQ(result.code, 0) << result.err;
        EXPECT_EQ(result.out, "");
    }
    for (const char* kind : {"last", "journal", "alerts"})
        expectFailure({kind, folder.name(), "--live"}, 4, "no server has laid it out yet");
    EXPECT_EQ(fs::file_size(data()), 0u);
    EXPECT_EQ(fs::file_size(alerts()), 0u);
    EXPECT_TRUE(place.isEmpty());
}

TEST_F(VdcatCopies, LiveShowsTheSameAndSaysSoOnce) {
    for (const char* kind : {"last", "journal", "alerts"}) {
        const RunResult copied = vdcat({kind, folder.name()});
        const RunResult live = vdcat({kind, folder.name(), "--live"});
        EXPECT_EQ(live.code, 0);
        EXPECT_TRUE(live.out == copied.out) << kind;
        EXPECT_FALSE(live.out.empty());
        EXPECT_TRUE(live.err.starts_with("vdcat: reads the server's files in place")) << live.err;
        EXPECT_EQ(live.err.find('\n'), live.err.size() - 1) << live.err;
    }
    EXPECT_EQ(readFile(data()).substr(24 + 96, 4), "\xDD\xDF\xFD\xDD");
}

TEST_F(VdcatCopies, RecordThatBreaksTheContractGives4) {
    const TemporaryPlace place;
    sample::Record record;
    record.sec_id = 1;
    record.class_id = 1000; // of the first class
    record.mask.assign(17, 1);
    sample::DataFile file;
    file.header.maxSecs = 100;
    file.eventPages.resize(1);
    file.eventPages[0].records = {record};
    sample::writeDataFile(folder.path() / "data.vd", file);
    expectFailure({"journal", folder.name()}, 4,
                  "vdcat: a record of data.vd has an impossible mask");
#ifndef _WIN32
    EXPECT_TRUE(place.isEmpty());
#endif
}

// A copy of the program in a folder of its own, since names count from where it stands.
class MovedProgram {
  public:
    MovedProgram(const fs::path& folder, const std::string& classFile) {
        const fs::path program(VDCAT_PROGRAM);
        fs::create_directories(folder);
        for (const auto& entry : fs::directory_iterator(program.parent_path()))
            if (entry.path() == program || entry.path().extension() == ".dll")
                fs::copy_file(entry.path(), folder / entry.path().filename());
        // Found without a setting.
        fs::copy_file(classFile, folder / "class.vd");
        m_program = (folder / program.filename()).string();
    }

    int run(const char* kind, const std::string& ini) const {
        return toolTest::run(m_program, {kind, "--ini", ini, "--section", "s"}).code;
    }

  private:
    std::string m_program;
};

// The readers of the futures find their files by themselves: where they find one the alerts are
// found, and where not, not.
TEST_F(VdcatCopies, SettingsAreFoundAsTheReadersFindThem) {
    const MovedProgram program(folder.path() / "bin", folder.file("class.vd"));
    const std::string limits = folder.file("flimit.vd");
    const std::string alert = folder.file("alert.vd");
    const std::string both = "flimits=" + limits + "\nalerts=" + alert + "\n";
    const std::vector<std::pair<std::string, int>> cases = {
        {"[s]\n" + both, 0},
        {"[S ]  ; \n\t FLimits \t= " + limits + " \t\r\n Alerts = " + alert + "\r\n", 0},
        {both + "[s]\n", 0}, // keys in front of the first header belong to it
        {both + "[s]\nother=1\n", 0},
        {both, 3}, // keys without any header
        {"[x]\nk=1\n[broken\n" + both + "[s]\nk=1\n", 0},
        {"[s]\nk=1\n[s]\n" + both, 3},          // the first section of a name counts
        {"[s]\n[s]\n" + both, 0},               // unless it has no key
        {"[s]\nflimits=\nalerts=\n" + both, 3}, // the first value of a key counts
        {"[s]\n" + both + "flimits=x\nalerts=x\n", 0},
        {"[s]\n;flimits=" + limits + "\n#alerts=" + alert + "\nk=1\n", 3},
        {"[s]\nflimits=" + limits + " ;x\nalerts=" + alert + " ;x\n", 3},
        {"[t]\n" + both, 3},
        {"[s]\n" + both.substr(0, both.size() - 1), 0},
        {"[s]\nflimits=flimit.vd\nalerts=alert.vd\n", 3}, // beside the program
        {"[s]\nflimits=..\\flimit.vd\nalerts=..\\alert.vd\n", 0},
        {"[s]\nflimits=.\\flimit.vd\nalerts=.\\alert.vd\n", 3},
        {"[s]\nflimits=.\\..\\flimit.vd\nalerts=.\\..\\alert.vd\n", 0},
        {"[s]\nflimits=..x\\flimit.vd\nalerts=..x\\alert.vd\n", 0},
        {"[s]\nflimits=in\\flimit.vd\nalerts=in\\alert.vd\n", 3},
        {"[s]\nflimits=..\nalerts=..\n", 3}, // a folder
    };
    for (const auto& [text, code] : cases) {
        const std::string ini = folder.file("case.ini");
        sample::writeFile(ini, text);
        EXPECT_EQ(program.run("limits", ini), code) << text;
        EXPECT_EQ(program.run("alerts", ini), code) << text;
    }
    fs::create_directory(folder.path() / "bin" / "in");
    fs::copy_file(limits, folder.path() / "bin" / "in" / "flimit.vd");
    fs::copy_file(alert, folder.path() / "bin" / "in" / "alert.vd");
    const std::string ini = folder.file("case.ini");
    sample::writeFile(ini, "[s]\nflimits=in\\flimit.vd\nalerts=in\\alert.vd\n");
    EXPECT_EQ(program.run("limits", ini), 0);
    EXPECT_EQ(program.run("alerts", ini), 0);
}

} // namespace

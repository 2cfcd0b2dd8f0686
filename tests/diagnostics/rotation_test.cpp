// When a log rotates, how its copies move, and what becomes of moves that fail.

#include "diagnostics/rotation.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <limits>
#include <map>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

#include "diagnostics/errorTexts.h"
#include "diagnostics/rotatingFolder.h"
#include "dw_util/cutCopy.h"
#include "platform/process.h"
#include "support/raised.h"
#include "support/timeZone.h"

namespace {

using Files = std::map<std::string, std::string>;
using Moves = std::vector<std::pair<std::string, std::string>>;
using Texts = std::vector<std::string>;
using std::filesystem::filesystem_error;

constexpr std::int64_t kDay = 24 * 60 * 60;

std::string systemText(std::uint32_t code) {
    char text[512];
    platform::systemErrorText(code, text, sizeof text);
    return text;
}

class Rotation : public testing::Test {
  protected:
    // Opens log.txt with these settings; whether it rotated.
    bool open(const std::string& ini) {
        EVENTS entry;
        copyCut(entry.fileName, m_path.c_str());
        return rotateOnOpen(entry, m_folder.files().write("i", ini).c_str());
    }
    bool openWithDepth(int depth) {
        return open("[files]\nlogdepth=" + std::to_string(depth) + "\n");
    }

    // The files but the ini file.
    Files files() const {
        Files found = m_folder.all();
        found.erase("i");
        return found;
    }

    void write(const std::string& suffix) { m_folder.files().write("log.txt" + suffix, suffix); }

    std::string renameText(const char* from, const char* to) const {
        return "rename(" + m_path + from + " -> " + m_path + to + ") failed. " +
               systemText(RotatingFolder::kReason);
    }

    RotatingFolder m_folder;
    CapturedLog m_log;
    const std::string m_path = m_folder.name("log.txt");
};

void expectFailure(const std::optional<filesystem_error>& failure, const char* operation,
                   const std::string& path, const std::string& other) {
    ASSERT_TRUE(failure.has_value());
    EXPECT_EQ(failure->code(), std::error_code(RotatingFolder::kReason, std::system_category()));
    EXPECT_EQ(failure->path1(), std::filesystem::path(path));
    EXPECT_EQ(failure->path2(), std::filesystem::path(other));
    EXPECT_NE(std::string(failure->what()).find(std::string(" ") + operation + ": "),
              std::string::npos)
        << failure->what();
}

} // namespace

// ---- the copies ----

TEST_F(Rotation, NullNameIsReported) {
    rotate_file(nullptr, 3);
    EXPECT_EQ(errorTexts(m_log), Texts{"rotate_file failed. Invalid param: name is null."});
    EXPECT_TRUE(RotatingFolder::moves().empty());
}

TEST_F(Rotation, CopiesMoveUpFromTheOldest) {
    for (const char* suffix : {"", ".1", ".2", ".3", ".4"})
        write(suffix);
    rotate_file(m_path.c_str(), 3);
    EXPECT_EQ(
        files(),
        (Files{{"log.txt.1", ""}, {"log.txt.2", ".1"}, {"log.txt.3", ".2"}, {"log.txt.4", ".4"}}));
    EXPECT_EQ(
        RotatingFolder::moves(),
        (Moves{{"log.txt.2", "log.txt.3"}, {"log.txt.1", "log.txt.2"}, {"log.txt", "log.txt.1"}}));
    EXPECT_EQ(m_log.size(), 0u);
    EXPECT_TRUE(RotatingFolder::sleeps().empty());
}

TEST_F(Rotation, CopiesAboveAGapStay) {
    for (const char* suffix : {"", ".1", ".4"})
        write(suffix);
    rotate_file(m_path.c_str(), 5);
    EXPECT_EQ(files(), (Files{{"log.txt.1", ""}, {"log.txt.2", ".1"}, {"log.txt.5", ".4"}}));
    EXPECT_EQ(
        RotatingFolder::moves(),
        (Moves{{"log.txt.4", "log.txt.5"}, {"log.txt.1", "log.txt.2"}, {"log.txt", "log.txt.1"}}));
}

TEST_F(Rotation, DepthOneAndNegativeDepthsMoveTheFileAlone) {
    for (const int depth : {1, -1, -32768, std::numeric_limits<std::int32_t>::min()}) {
        for (const char* suffix : {"", ".1", ".2"})
            write(suffix);
        rotate_file(m_path.c_str(), depth);
        EXPECT_EQ(files(), (Files{{"log.txt.1", ""}, {"log.txt.2", ".2"}})) << depth;
    }
}

TEST_F(Rotation, DepthZeroDeletesTheFile) {
    for (const char* suffix : {"", ".1"})
        write(suffix);
    rotate_file(m_path.c_str(), 0);
    EXPECT_EQ(files(), (Files{{"log.txt.1", ".1"}}));
    rotate_file(m_path.c_str(), 0); // one that is not there is a success
    EXPECT_EQ(m_log.size(), 0u);
}

TEST_F(Rotation, GreatestDepthTakesEveryCopy) {
    for (const char* suffix : {"", ".32766", ".9999"})
        write(suffix);
    rotate_file(m_path.c_str(), 32767);
    EXPECT_EQ(files(),
              (Files{{"log.txt.1", ""}, {"log.txt.10000", ".9999"}, {"log.txt.32767", ".32766"}}));
}

TEST_F(Rotation, NamesOfCopiesAreCutAt260Characters) {
    Texts tried;
    static Texts* all = &tried;
    platform::calls.moveFile = [](const char* from, const char* to) {
        *all = {from, to};
        return true;
    };
    const std::string name(259, 'n');
    rotate_file(name.c_str(), 1);
    EXPECT_EQ(tried, (Texts{name, name + "."}));
    rotate_file(name.substr(1).c_str(), 1);
    EXPECT_EQ(tried, (Texts{name.substr(1), name.substr(1) + ".1"}));
}

// ---- the day ----

TEST_F(Rotation, FileOfAnEarlierDayRotates) {
    m_folder.write("log.txt", "old", 1'700'000'000 - kDay);
    EXPECT_TRUE(openWithDepth(2));
    EXPECT_EQ(files(), (Files{{"log.txt.1", "old"}}));
    EXPECT_EQ(m_log.size(), 0u);
}

TEST_F(Rotation, FileOfALaterDayRotatesToo) {
    m_folder.write("log.txt", "new", 1'700'000'000 + kDay);
    EXPECT_TRUE(openWithDepth(2));
    EXPECT_EQ(files(), (Files{{"log.txt.1", "new"}}));
}

TEST_F(Rotation, FileOfTodayStaysAndTheErrorLogTellsTheDay) {
    setTimeZone("UTC0");
    m_folder.write("log.txt", "old", midnight(2026, 321)); // the 17th of November
    for (const std::int64_t now : {midnight(2026, 321), midnight(2026, 322) - 1}) {
        m_log.clear();
        RotatingFolder::setClock(now);
        EXPECT_FALSE(openWithDepth(2));
        EXPECT_EQ(errorTexts(m_log),
                  Texts{"Info: Rotation is not started. The creation day of the " + m_path +
                        " is 17(today)."});
        EXPECT_EQ(files(), (Files{{"log.txt", "old"}}));
    }
    RotatingFolder::setClock(midnight(2026, 322));
    EXPECT_TRUE(openWithDepth(2));
}

TEST_F(Rotation, YearAndMonthCountAsWellAsTheDay) {
    setTimeZone("UTC0");
    RotatingFolder::setClock(midnight(2026, 45));
    for (const std::int64_t made : {midnight(2025, 45), midnight(2026, 45 - 31)}) {
        m_folder.write("log.txt", "old", made); // the 14th of February and of January
        EXPECT_TRUE(openWithDepth(1)) << made;
    }
}

TEST_F(Rotation, DaysAreThoseOfLocalTime) {
    setTimeZone("XYZ-3");
    const std::int64_t start = midnight(2026, 321);
    m_folder.write("log.txt", "old", start - 1);
    RotatingFolder::setClock(start);
    EXPECT_TRUE(openWithDepth(1));
    setTimeZone("UTC0");
    m_folder.write("log.txt", "old", start - 1);
    // The same two seconds are one day elsewhere.
    EXPECT_EQ(openWithDepth(1), start % kDay == 0);
}

TEST_F(Rotation, FileThatIsNotThereDoesNotRotateWithoutAWord) {
    write(".1");
    EXPECT_FALSE(openWithDepth(2));
    EXPECT_EQ(files(), (Files{{"log.txt.1", ".1"}}));
    EXPECT_EQ(m_log.size(), 0u);
}

TEST_F(Rotation, FileWithoutSettingsStays) {
    m_folder.write("log.txt", "old", 0);
    EXPECT_FALSE(open(""));
    EXPECT_FALSE(open("[logfile]\nrotate=other.txt,2\n[files]\nlogdepth=2\n"));
    EXPECT_EQ(files(), (Files{{"log.txt", "old"}}));
    EXPECT_EQ(m_log.size(), 0u);
}

TEST_F(Rotation, DepthsOfTheSettingsReachTheCopies) {
    m_folder.write("log.txt", "old", 0);
    EXPECT_TRUE(open("[logfile]\nrotate=LOG.TXT,0\n"));
    EXPECT_EQ(files(), Files{});
    m_folder.write("log.txt", "old", 0);
    write(".1");
    EXPECT_TRUE(open("[files]\nlogdepth=-1\n"));
    EXPECT_EQ(files(), (Files{{"log.txt.1", "old"}}));
}

TEST_F(Rotation, FileWhoseAgeCannotBeToldStays) {
    m_folder.write("log.txt", "old", 0);
    platform::calls.creationTime = [](const char*, std::int64_t*, int* error) {
        *error = 13;
        platform::setLastError(2); // what the last error holds does not count
        return false;
    };
    EXPECT_FALSE(openWithDepth(2));
    EXPECT_EQ(errorTexts(m_log),
              Texts{"GetFileCreationUtcTime(" + m_path + ") failed. " + systemText(13)});
    EXPECT_EQ(files(), (Files{{"log.txt", "old"}}));
}

// ---- the system's own calls ----

TEST(RotationCalls, NewFileWasMadeNow) {
    const TempFolder folder;
    const std::int64_t before = platform::calls.wallClock().seconds;
    const std::string path = folder.write("log.txt", "");
    std::int64_t made = 0;
    int reason = 0;
    ASSERT_TRUE(platform::calls.creationTime(path.c_str(), &made, &reason));
    EXPECT_GE(made, before - 2);
    EXPECT_LE(made, platform::calls.wallClock().seconds + 2);
    EXPECT_FALSE(platform::calls.creationTime(folder.name("none").c_str(), &made, &reason));
    EXPECT_EQ(reason, ENOENT);
}

TEST(RotationCalls, MoveReplacesAndDeleteMissesNothing) {
    const TempFolder folder;
    const std::string from = folder.write("from", "new");
    const std::string to = folder.write("to", "old");
    rename_with_retry(from, to);
    EXPECT_EQ(folder.read("to"), "new");
    EXPECT_FALSE(std::filesystem::exists(from));
    delete_with_retry(to);
    EXPECT_FALSE(std::filesystem::exists(to));
    delete_with_retry(to);
}

TEST(RotationCalls, MoveOfAMissingFileIsRaisedWithTheSystemsReason) {
    const TempFolder folder;
    const ScopedCalls scope;
    const CapturedLog log;
    platform::calls.sleep = [](std::uint32_t) {};
    const auto failure = raised<filesystem_error>(
        [&] { rename_with_retry(folder.name("none"), folder.name("to")); });
    ASSERT_TRUE(failure.has_value());
    EXPECT_EQ(failure->code().value(), 2); // the same number on both systems
    EXPECT_EQ(errorTexts(log), Texts(4, "rename(" + folder.name("none") + " -> " +
                                            folder.name("to") + ") failed. " + systemText(2)));
}

TEST(RotationCalls, FourPausesTakeTwoSeconds) {
    const TempFolder folder;
    const CapturedLog log;
    const auto start = std::chrono::steady_clock::now();
    EXPECT_THROW(rename_with_retry(folder.name("none"), folder.name("to")), filesystem_error);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(1900));
}

// On Linux, where an open file is no hindrance, a stand-in refuses.
TEST_F(Rotation, FileThatAnotherHoldsWithoutDeleteSharingIsNotMoved) {
    const bool refuses = platform::pathForm.drives;
    const std::uint32_t reason = refuses ? 32 : RotatingFolder::kReason;
    m_folder.write("log.txt", "old", 0);
    if (!refuses)
        RotatingFolder::fail(5);
    {
        const std::ofstream held(m_path, std::ios::app);
        const auto failure = raised<filesystem_error>([&] { openWithDepth(2); });
        ASSERT_TRUE(failure.has_value());
        EXPECT_EQ(failure->code().value(), static_cast<int>(reason));
    }
    EXPECT_EQ(RotatingFolder::sleeps(), std::vector<std::uint32_t>(4, 500));
    EXPECT_EQ(errorTexts(m_log).size(), 4u);
    EXPECT_EQ(files(), (Files{{"log.txt", "old"}}));
    EXPECT_TRUE(openWithDepth(2));
    EXPECT_EQ(files(), (Files{{"log.txt.1", "old"}}));
}

TEST_F(Rotation, FileThatAnotherHoldsWithoutDeleteSharingIsNotDeleted) {
    m_folder.write("log.txt", "old", 0);
    if (!platform::pathForm.drives)
        RotatingFolder::fail(5);
    {
        const std::ofstream held(m_path, std::ios::app);
        EXPECT_THROW(delete_with_retry(m_path), filesystem_error);
    }
    EXPECT_EQ(errorTexts(m_log).size(), 4u);
    delete_with_retry(m_path);
    EXPECT_EQ(files(), Files{});
}

// ---- failures ----

TEST(RotationRetries, MoveThatFailsUpToFourTimesIsReportedAndTriedAgain) {
    for (int failures = 1; failures <= 4; ++failures) {
        const RotatingFolder fresh;
        const CapturedLog log;
        const std::string from = fresh.write("a", "x", 0);
        const std::string to = fresh.name("b");
        RotatingFolder::fail(failures);
        rename_with_retry(from, to);
        const std::string text =
            "rename(" + from + " -> " + to + ") failed. " + systemText(RotatingFolder::kReason);
        EXPECT_EQ(errorTexts(log), Texts(failures, text));
        EXPECT_EQ(RotatingFolder::sleeps(), std::vector<std::uint32_t>(failures, 500));
        EXPECT_EQ(RotatingFolder::moves().size(), failures + 1u);
        EXPECT_EQ(fresh.all(), (Files{{"b", "x"}}));
    }
}

TEST_F(Rotation, MoveThatFailsFiveTimesIsRaised) {
    write("");
    RotatingFolder::fail(5);
    const std::string to = m_path + ".1";
    expectFailure(raised<filesystem_error>([&] { rename_with_retry(m_path, to); }), "rename",
                  m_path, to);
    EXPECT_EQ(errorTexts(m_log), Texts(4, renameText("", ".1")));
    EXPECT_EQ(RotatingFolder::sleeps(), std::vector<std::uint32_t>(4, 500));
    EXPECT_EQ(RotatingFolder::moves().size(), 5u);
    EXPECT_EQ(files(), (Files{{"log.txt", ""}}));
}

TEST(RotationRetries, DeletionThatFailsUpToFourTimesIsReportedAndTriedAgain) {
    for (int failures = 1; failures <= 4; ++failures) {
        const RotatingFolder fresh;
        const CapturedLog log;
        const std::string path = fresh.write("a", "x", 0);
        RotatingFolder::fail(failures);
        delete_with_retry(path);
        EXPECT_EQ(errorTexts(log), Texts(failures, "delete(" + path + ") failed. " +
                                                       systemText(RotatingFolder::kReason)));
        EXPECT_EQ(RotatingFolder::sleeps(), std::vector<std::uint32_t>(failures, 500));
        EXPECT_EQ(fresh.all(), Files{});
    }
}

TEST_F(Rotation, DeletionThatFailsFiveTimesIsRaised) {
    write("");
    RotatingFolder::fail(5);
    expectFailure(raised<filesystem_error>([&] { delete_with_retry(m_path); }), "remove", m_path,
                  "");
    EXPECT_EQ(errorTexts(m_log),
              Texts(4, "delete(" + m_path + ") failed. " + systemText(RotatingFolder::kReason)));
    EXPECT_EQ(RotatingFolder::sleeps(), std::vector<std::uint32_t>(4, 500));
    EXPECT_EQ(files(), (Files{{"log.txt", ""}}));
}

TEST_F(Rotation, FailureInTheMiddleLeavesTheMovesThatWereDone) {
    // Each of the three moves of depth 3 fails in its turn.
    const Files left[] = {
        {{"log.txt", ""}, {"log.txt.1", ".1"}, {"log.txt.2", ".2"}, {"log.txt.3", ".3"}},
        {{"log.txt", ""}, {"log.txt.1", ".1"}, {"log.txt.3", ".2"}},
        {{"log.txt", ""}, {"log.txt.2", ".1"}, {"log.txt.3", ".2"}},
    };
    for (int done = 0; done < 3; ++done) {
        for (const char* suffix : {"", ".1", ".2", ".3"})
            write(suffix);
        RotatingFolder::fail(5, done);
        EXPECT_THROW(rotate_file(m_path.c_str(), 3), filesystem_error);
        EXPECT_EQ(files(), left[done]) << done;
    }
}

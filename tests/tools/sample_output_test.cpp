// Files on the disk: whole, replaced at once, and nothing left behind after a failure.

#include "sample/output.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "support/tempFolder.h"

#include <sys/stat.h>

using toolTest::readFile;
using toolTest::TempFolder;

namespace fs = std::filesystem;

namespace {

std::size_t entriesOf(const fs::path& folder) {
    std::size_t count = 0;
    for ([[maybe_unused]] const auto& entry : fs::directory_iterator(folder))
        ++count;
    return count;
}

TEST(SampleOutput, WritesAndReplacesWholeFiles) {
    const TempFolder folder;
    const fs::path file = folder.path() / "x.vd";
    sample::writeFile(file, std::string("a\n\0b", 4));
    EXPECT_EQ(readFile(file), std::string("a\n\0b", 4));
    sample::writeFile(file, "");
    EXPECT_EQ(readFile(file), "");
    EXPECT_EQ(entriesOf(folder.path()), 1u);
}

TEST(SampleOutput, FailureNamesThePathAndLeavesNothing) {
    const TempFolder folder;
    const fs::path file = folder.path() / "absent" / "x.vd";
    try {
        sample::writeFile(file, "text");
        FAIL() << "written into a folder that is not there";
    } catch (const sample::OutputError& error) {
        EXPECT_TRUE(std::string(error.what()).starts_with("cannot write " + file.string()))
            << error.what();
    }
    fs::create_directory(folder.path() / "taken.vd");
    fs::create_directory(folder.path() / "taken.vd" / "inside");
    EXPECT_THROW(sample::writeFile(folder.path() / "taken.vd", "text"), sample::OutputError);
    EXPECT_EQ(entriesOf(folder.path()), 1u);
}

TEST(SampleOutput, IniNamesTheFilesInFull) {
    const TempFolder folder;
    const std::string ini = sample::encodeIni(folder.path());
    EXPECT_NE(ini.find("\n[vdreader]\nclasses = " + folder.file("class.vd") + "\ndynparams = " +
                       folder.file("data.vd") + "\nalerts = " + folder.file("alert.vd") +
                       "\nflimits = " + folder.file("flimit.vd") +
                       "\nfclipos = " + folder.file("fclipos.vd") + "\n"),
              std::string::npos)
        << ini;
}

TEST(SampleOutput, WritesTheFilesOfAMarket) {
    const TempFolder folder;
    const sample::Market market = sample::makeMarket(
        {.limits = 7, .positions = 9, .changes = 11, .alerts = 13, .maxSecs = 2'000});
    const fs::path made = folder.path() / "a" / "b";
    const auto written = sample::writeMarket(made, market);
    ASSERT_EQ(written.size(), 6u);
    const std::string bytes[] = {sample::encodeClassFile(market.classes),
                                 sample::encodeDataFile(sample::makeDataFile(market)),
                                 sample::encodeAlertFile(market.alerts),
                                 sample::encodeFutLimits(market.limits),
                                 sample::encodeFutPositions(market.positions),
                                 sample::encodeIni(made)};
    const char* names[] = {"class.vd",  "data.vd",    "alert.vd",
                           "flimit.vd", "fclipos.vd", "vdreader.ini"};
    const std::uint64_t records[] = {market.classes.size(), 11, 13, 7, 9, 0};
    for (std::size_t i = 0; i < 6; ++i) {
        EXPECT_EQ(written[i].path.filename(), names[i]);
        EXPECT_EQ(written[i].records, records[i]) << names[i];
        EXPECT_EQ(written[i].bytes, bytes[i].size()) << names[i];
        EXPECT_TRUE(readFile(written[i].path) == bytes[i]) << names[i];
    }
    EXPECT_EQ(entriesOf(made), 6u);
}

TEST(SampleOutput, PartsGoToTheirPlacesAndTheRestIsZero) {
    const TempFolder folder;
    const fs::path file = folder.path() / "x.vd";
    sample::writeFileInParts(file, [](const auto& part) {
        part(2, "ab");
        part(4, "c");
        part(7, "d");
        part(3, "B");
        return std::uint64_t{10};
    });
    EXPECT_EQ(readFile(file), std::string("\0\0aBc\0\0d\0\0", 10));
    sample::writeFileInParts(file, [](const auto& part) {
        part(0, "abc");
        return std::uint64_t{1};
    });
    EXPECT_EQ(readFile(file), "a");
    EXPECT_THROW(
        sample::writeFileInParts(
            file, [](const auto&) -> std::uint64_t { throw std::length_error("none of ours"); }),
        std::length_error);
    EXPECT_EQ(readFile(file), "a");
    EXPECT_EQ(entriesOf(folder.path()), 1u);
}

// The usual file holds 54 MB of which little is not zero.
TEST(SampleOutput, DataFileHasHoles) {
#ifdef _WIN32
    GTEST_SKIP() << "a seek leaves no holes in the files of this system";
#else
    const TempFolder folder;
    const fs::path file = folder.path() / "data.vd";
    const std::uint64_t size = sample::writeDataFile(file, {});
    EXPECT_EQ(size, 54'075'032u + 2 * 81'948u);
    struct stat facts;
    ASSERT_EQ(stat(file.c_str(), &facts), 0);
    EXPECT_LT(facts.st_blocks * 512, 4'000'000);
#endif
}

} // namespace

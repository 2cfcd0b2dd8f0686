// Files on the disk: whole, replaced at once, and nothing left behind after a failure.

#include "sample/output.h"

#include <gtest/gtest.h>

#include "support/tempFolder.h"

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
    EXPECT_NE(ini.find("\n[vdreader]\nclasses = " + folder.file("class.vd") +
                       "\nflimits = " + folder.file("flimit.vd") +
                       "\nfclipos = " + folder.file("fclipos.vd") + "\n"),
              std::string::npos)
        << ini;
}

TEST(SampleOutput, WritesTheFilesOfAMarket) {
    const TempFolder folder;
    const sample::Market market = sample::makeMarket({.limits = 7, .positions = 9});
    const auto written = sample::writeMarket(folder.path() / "a" / "b", market);
    ASSERT_EQ(written.size(), 4u);
    EXPECT_EQ(readFile(written[0].path), sample::encodeClassFile(market.classes));
    EXPECT_EQ(readFile(written[1].path), sample::encodeFutLimits(market.limits));
    EXPECT_EQ(readFile(written[2].path), sample::encodeFutPositions(market.positions));
    EXPECT_EQ(readFile(written[3].path), sample::encodeIni(folder.path() / "a" / "b"));
    EXPECT_EQ(written[0].path.filename(), "class.vd");
    EXPECT_EQ(written[1].bytes, 7 * 216u);
    EXPECT_EQ(written[2].records, 9u);
    EXPECT_EQ(entriesOf(folder.path() / "a" / "b"), 4u);
}

} // namespace

// Files, output and exit codes of vdsample.

#include <gtest/gtest.h>

#include <filesystem>

#include "sample/output.h"
#include "support/process.h"
#include "support/tempFolder.h"

using namespace toolTest;

namespace {

constexpr const char* kFiles[] = {"class.vd", "data.vd", "alert.vd", "flimit.vd", "fclipos.vd"};

TEST(Vdsample, WritesOneLineForEachFile) {
    const TempFolder folder;
    const std::string dir = folder.file("new");
    const RunResult result =
        vdsample({dir, "--securities", "50", "--classes", "5", "--records", "7", "--alerts", "3"});
    EXPECT_EQ(result.code, 0) << result.err;
    EXPECT_EQ(result.err, "");
    const std::filesystem::path made(dir);
    const auto size = [&](const char* name) {
        return std::to_string(std::filesystem::file_size(made / name)) + " bytes, ";
    };
    EXPECT_EQ(result.out, (made / "class.vd").string() + ": " + size("class.vd") +
                              "5 classes, 50 securities\n" + (made / "data.vd").string() + ": " +
                              size("data.vd") + "7 records\n" + (made / "alert.vd").string() +
                              ": " + size("alert.vd") + "3 records\n" +
                              (made / "flimit.vd").string() + ": 1512 bytes, 7 records\n" +
                              (made / "fclipos.vd").string() + ": 1176 bytes, 7 records\n" +
                              (made / "vdreader.ini").string() + ": " + size("vdreader.ini") +
                              "section vdreader\n");
}

TEST(Vdsample, OptionsReachTheMarket) {
    const TempFolder folder;
    ASSERT_EQ(vdsample({folder.name(), "--securities", "30", "--classes", "4", "--records", "6",
                        "--alerts", "5", "--params", "3", "--seed", "18446744073709551615"})
                  .code,
              0);
    const sample::Market market = sample::makeMarket({.seed = UINT64_MAX,
                                                      .classes = 4,
                                                      .securities = 30,
                                                      .params = 3,
                                                      .limits = 6,
                                                      .positions = 6,
                                                      .changes = 6,
                                                      .alerts = 5});
    EXPECT_EQ(readFile(folder.path() / "class.vd"), sample::encodeClassFile(market.classes));
    EXPECT_TRUE(readFile(folder.path() / "data.vd") ==
                sample::encodeDataFile(sample::makeDataFile(market)));
    EXPECT_TRUE(readFile(folder.path() / "alert.vd") == sample::encodeAlertFile(market.alerts));
    EXPECT_EQ(readFile(folder.path() / "flimit.vd"), sample::encodeFutLimits(market.limits));
    EXPECT_EQ(readFile(folder.path() / "fclipos.vd"), sample::encodeFutPositions(market.positions));
}

TEST(Vdsample, SameSeedSameBytes) {
    const TempFolder folder;
    ASSERT_EQ(vdsample({folder.file("a"), "--seed", "9"}).code, 0);
    ASSERT_EQ(vdsample({folder.file("b"), "--seed", "9"}).code, 0);
    ASSERT_EQ(vdsample({folder.file("c"), "--seed", "10"}).code, 0);
    for (const char* name : kFiles) {
        const std::string bytes = readFile(folder.path() / "a" / name);
        EXPECT_TRUE(bytes == readFile(folder.path() / "b" / name)) << name;
        EXPECT_TRUE(bytes != readFile(folder.path() / "c" / name)) << name;
    }
}

TEST(Vdsample, ReplacesAnEarlierSet) {
    const TempFolder folder;
    ASSERT_EQ(vdsample({folder.name()}).code, 0);
    ASSERT_EQ(vdsample({folder.name(), "--records", "1"}).code, 0);
    EXPECT_EQ(readFile(folder.path() / "flimit.vd").size(), 216u);
}

void expectFailure(const std::vector<std::string>& arguments, int code, const std::string& text) {
    const RunResult result = vdsample(arguments);
    EXPECT_EQ(result.code, code);
    EXPECT_EQ(result.out, "");
    EXPECT_TRUE(result.err.starts_with("vdsample: ")) << result.err;
    EXPECT_EQ(result.err.find('\n'), result.err.size() - 1) << result.err;
    EXPECT_NE(result.err.find(text), std::string::npos) << result.err;
}

TEST(Vdsample, WrongUsageGives2) {
    const TempFolder folder;
    const std::string dir = folder.file("none");
    expectFailure({}, 2, "DIR is required");
    expectFailure({dir, "--frobnicate"}, 2, "--frobnicate");
    expectFailure({dir, "--seed", "-1"}, 2, "'-1' is no whole number");
    expectFailure({dir, "--securities", "4000001"}, 2, "from 0 to 4000000");
    expectFailure({dir, "--classes", "0"}, 2, "--classes 0 needs --securities 0");
    expectFailure({dir, "other"}, 2, "other");
    EXPECT_FALSE(std::filesystem::exists(dir));
}

TEST(Vdsample, FolderThatCannotBeMadeGives7) {
    const TempFolder folder;
    sample::writeFile(folder.path() / "file", "");
    expectFailure({folder.file("file")}, 7, "cannot write " + folder.file("file"));
    expectFailure({(folder.path() / "file" / "below").string()}, 7, "cannot write ");
}

TEST(Vdsample, HelpAndVersion) {
    const RunResult help = vdsample({"--help"});
    EXPECT_EQ(help.code, 0);
    for (const char* word : {"DIR", "--securities", "--classes", "--records", "--alerts",
                             "--params", "--seed", "--live", "--rate", "--seconds"})
        EXPECT_NE(help.out.find(word), std::string::npos) << word;
    EXPECT_EQ(vdsample({"--version"}).out, "vdsample " VDREADER_TOOL_VERSION "\n");
}

TEST(Vdsample, ClosedPipeIsSilent) {
    const TempFolder folder;
    const RunResult result = vdsample({folder.name()}, StandardOutput::NoReader);
    EXPECT_EQ(result.code, 0);
    EXPECT_EQ(result.err, "");
    EXPECT_TRUE(std::filesystem::exists(folder.path() / "vdreader.ini"));
}

TEST(Vdsample, FullDeviceGives7) {
#ifdef _WIN32
    GTEST_SKIP() << "there is no device here that is always full";
#endif
    const TempFolder folder;
    const RunResult result = vdsample({folder.name()}, StandardOutput::FullDevice);
    EXPECT_EQ(result.code, 7);
    EXPECT_EQ(result.err, "vdsample: cannot write to standard output: No space left on device\n");
}

} // namespace

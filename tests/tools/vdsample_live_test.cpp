// vdsample as the server: its output, end and exit codes.

#include <gtest/gtest.h>

#include "sample/output.h"
#include "support/cursor.h"
#include "support/process.h"
#include "support/tempFolder.h"

#ifndef _WIN32
#  include <csignal>
#endif

using namespace toolTest;

namespace {

class VdsampleLive : public testing::Test {
  protected:
    VdsampleLive() {
        sample::writeMarket(folder.path(),
                            sample::makeMarket({.securities = 30, .changes = 5, .maxSecs = 2'000}));
    }

    void expectFailure(const std::vector<std::string>& arguments, int code,
                       const std::string& text) {
        const RunResult result = vdsample(arguments);
        EXPECT_EQ(result.code, code);
        EXPECT_EQ(result.out, "");
        EXPECT_TRUE(result.err.starts_with("vdsample: ")) << result.err;
        EXPECT_NE(result.err.find(text), std::string::npos) << result.err;
    }

    // Number of records in the first event page.
    std::uint32_t elements() const {
        const std::string bytes = readFile(folder.path() / "data.vd");
        return Cursor(bytes, header.eventPoint(0) + 20).number<std::uint32_t>();
    }

    TempFolder folder;
    const sample::DataHeader header{.maxSecs = 2'000};
};

TEST_F(VdsampleLive, PlaysAtItsRateUntilTheSecondsAreOver) {
    const RunResult result = vdsample({folder.name(), "--live", "--rate", "40", "--seconds", "1"});
    EXPECT_EQ(result.code, 0);
    EXPECT_EQ(result.err, "");
    const std::string begin = "serving " + folder.name() + "\n";
    ASSERT_TRUE(result.out.starts_with(begin)) << result.out;
    const std::uint32_t made = elements() - 5;
    EXPECT_GT(made, 0u);
    EXPECT_LE(made, 40u);
    EXPECT_EQ(result.out.substr(begin.size()), std::to_string(made) + " changes, " +
                                                   std::to_string((made + 15) / 16) +
                                                   " alerts, 0 new pages\n");
}

TEST_F(VdsampleLive, RateOf0IsAsFastAsItGoes) {
    // Pages of less than the 256 changes that come between two looks at the clock.
    sample::DataFile file = sample::makeDataFile(
        sample::makeMarket({.securities = 30, .changes = 5, .maxSecs = 2'000}));
    file.header.eventPageSize = 8'000;
    sample::writeDataFile(folder.path() / "data.vd", file);
    const RunResult result = vdsample({folder.name(), "--live", "--rate", "0", "--seconds", "1"});
    EXPECT_EQ(result.code, 0) << result.err;
    EXPECT_EQ(result.out.find(" 0 new pages"), std::string::npos) << result.out;
}

TEST_F(VdsampleLive, LeavesTheFileStampedAndNoLockHeld) {
    ASSERT_EQ(vdsample({folder.name(), "--live", "--rate", "0", "--seconds", "0"}).code, 0);
    const std::string bytes = readFile(folder.path() / "data.vd");
    EXPECT_EQ(Cursor(bytes, 24 + 96).number<std::uint32_t>(), 0xDDFDDFDDu);
    ASSERT_EQ(vdsample({folder.name(), "--live", "--rate", "500", "--seconds", "1"}).code, 0);
    const std::string after = readFile(folder.path() / "data.vd");
    for (std::uint32_t i = 0; i < 100; ++i)
        EXPECT_EQ(Cursor(after, header.slotOffset(i)).number<std::uint32_t>(), 0u);
}

TEST_F(VdsampleLive, SignalEndsItInGoodOrder) {
#ifdef _WIN32
    GTEST_SKIP() << "no signals are sent from process to process here";
#else
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
        Child server(VDSAMPLE_PROGRAM, {folder.name(), "--live"});
        ASSERT_TRUE(Child::waitUntil([&] { return !server.out().empty(); }));
        server.signal(number);
        EXPECT_EQ(server.wait(), 0);
        EXPECT_NE(server.out().find(" changes, "), std::string::npos) << server.out();
        const std::string bytes = readFile(folder.path() / "data.vd");
        EXPECT_EQ(Cursor(bytes, 24 + 96).number<std::uint32_t>(), 0xDDFDDFDDu);
    }
#endif
}

TEST_F(VdsampleLive, WrongUsageGives2) {
    const std::string dir = folder.name();
    for (const char* option : {"--securities", "--classes", "--records", "--alerts", "--params"})
        expectFailure({dir, "--live", option, "1"}, 2, std::string(option) + " does not go");
    expectFailure({dir, "--rate", "1"}, 2, "--rate goes with --live alone");
    expectFailure({dir, "--seconds", "1"}, 2, "--seconds goes with --live alone");
    expectFailure({dir, "--live", "--rate", "-1"}, 2, "no whole number");
}

TEST_F(VdsampleLive, WhatIsMissingGives3AndWhatIsDamaged4) {
    const std::string dir = folder.name();
    for (const char* name : {"alert.vd", "data.vd", "class.vd"}) {
        const std::string bytes = readFile(folder.path() / name);
        std::filesystem::remove(folder.path() / name);
        expectFailure({dir, "--live"}, 3, "cannot open " + folder.file(name));
        EXPECT_FALSE(std::filesystem::exists(folder.path() / name));
        sample::writeFile(folder.path() / name, std::string(100'000, 'x'));
        expectFailure({dir, "--live"}, 4, folder.file(name));
        sample::writeFile(folder.path() / name, bytes);
    }
    expectFailure({folder.file("absent"), "--live"}, 3, "cannot open ");
}

} // namespace

// A server that plays and vdcat that follows it, in two processes.

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <thread>

#include "live/alertWriter.h"
#include "live/dataWriter.h"
#include "sample/output.h"
#include "support/json.h"
#include "support/process.h"
#include "support/tempFolder.h"

#ifndef _WIN32
#  include <csignal>
#endif

using namespace toolTest;

namespace {

class VdcatFollow : public testing::Test {
  protected:
    VdcatFollow()
        : market(sample::makeMarket({.classes = 2,
                                     .securities = 20,
                                     .params = 12,
                                     .changes = 10,
                                     .alerts = 4,
                                     .maxSecs = 2'000})) {
        sample::writeMarket(folder.path(), market);
    }

    std::vector<std::string> follow(const char* kind, std::vector<std::string> more = {}) const {
        std::vector<std::string> arguments{kind,       folder.name(), "--live",
                                           "--follow", "--interval",  "50"};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return arguments;
    }

    static std::size_t lineCount(const std::string& text) {
        return static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
    }

    // Waits until the child has written so many lines.
    static bool hasLines(const Child& child, std::size_t count) {
        return Child::waitUntil([&] { return lineCount(child.out()) >= count; });
    }

    TempFolder folder;
    sample::Market market;
};

TEST_F(VdcatFollow, JournalShowsEveryNewRecordOnce) {
    const Child server(VDSAMPLE_PROGRAM, {folder.name(), "--live", "--rate", "2000"});
    const RunResult result = vdcat(follow("journal", {"--limit", "2000"})); // several pages
    EXPECT_EQ(result.code, 0);
    EXPECT_EQ(lineCount(result.err), 1u) << result.err;
    const auto lines = parseLines(result.out);
    ASSERT_EQ(lines.size(), 2000u);
    for (std::size_t i = 0; i < lines.size(); ++i)
        ASSERT_EQ(lines[i].at("dataField1"), i + 1);
    for (const auto& line : lines)
        EXPECT_TRUE(line.at("values").is_object());
}

TEST_F(VdcatFollow, AlertsShowEveryNewRecordOnce) {
    const Child server(VDSAMPLE_PROGRAM, {folder.name(), "--live", "--rate", "800"});
    const RunResult result = vdcat(follow("alerts", {"--limit", "60"}));
    EXPECT_EQ(result.code, 0) << result.err;
    const auto lines = parseLines(result.out);
    ASSERT_EQ(lines.size(), 60u);
    for (std::size_t i = 0; i < lines.size(); ++i)
        ASSERT_EQ(lines[i].at("number"), i);
}

// The last round shows what was there when the time was over.
TEST_F(VdcatFollow, SecondsEndItAfterItsLastRound) {
    using Clock = std::chrono::steady_clock;
    live::DataWriter writer(folder.file("data.vd"));
    sample::Record record;
    record.sec_id = 1;
    record.class_id = market.classes[0].classId;
    // The program's second begins behind this one: what is there by its end must come out.
    const Clock::time_point end = Clock::now() + std::chrono::seconds(1);
    Child child(VDCAT_PROGRAM, follow("journal", {"--seconds", "1"}));
    std::size_t shown = 0;
    for (int i = 1;; ++i) {
        const auto number = static_cast<std::size_t>(writer.appendRecord(record));
        if (Clock::now() >= end)
            break; // perhaps too late
        shown = number;
        if (i % 5 == 0) // more than a page in the second
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    EXPECT_EQ(child.wait(), 0);
    const auto lines = parseLines(child.out());
    ASSERT_GE(lines.size(), shown);
    for (std::size_t i = 0; i < lines.size(); ++i)
        ASSERT_EQ(lines[i].at("dataField1"), i + 1);
}

TEST_F(VdcatFollow, LastShowsTheSecuritiesThatChange) {
    Child child(VDCAT_PROGRAM, follow("last", {"--fields", "sec_code,values"}));
    ASSERT_TRUE(hasLines(child, 20));
    const sample::ListedSecurity listed = sample::listedSecurities(market)[13];
    sample::Slot slot;
    slot.class_id = listed.owner->classId;
    slot.setLong(11, 0);
    slot.values[11] = 0;
    {
        live::DataWriter writer(folder.file("data.vd"));
        writer.writeSlot(listed.security->sec_id, slot);
    }
    ASSERT_TRUE(hasLines(child, 21));
    const auto lines = parseLines(child.out());
    ASSERT_EQ(lines.size(), 21u);
    EXPECT_EQ(lines[20].at("sec_code").as_string(), listed.security->sec_code);
    EXPECT_EQ(lines[20].at("values").as_object().size(), 1u);
}

TEST_F(VdcatFollow, LastInRowsShowsTheValuesThatChange) {
    const sample::ListedSecurity listed = sample::listedSecurities(market)[3];
    live::DataWriter writer(folder.file("data.vd"));
    sample::Slot slot;
    slot.class_id = listed.owner->classId;
    slot.setLong(0, 1);
    slot.setLong(1, 2);
    slot.setLong(2, 3);
    writer.writeSlot(listed.security->sec_id, slot);
    Child child(VDCAT_PROGRAM, follow("last", {"--csv", "--sec", listed.security->sec_code,
                                               "--fields", "index,value"}));
    ASSERT_TRUE(hasLines(child, 4));
    slot.setDouble(1, 0.5);
    slot.mask[0] = 3;
    slot.values[1] = ~slot.values[1];
    writer.writeSlot(listed.security->sec_id, slot);
    ASSERT_TRUE(hasLines(child, 6));
    const std::string out = child.out();
    EXPECT_TRUE(out.starts_with("index,value\r\n0,")) << out;
    const std::string news = out.substr(out.find("\r\n1,", out.find("\r\n2,")));
    EXPECT_TRUE(news.starts_with("\r\n1,")) << out;
    EXPECT_TRUE(news.ends_with("\r\n2,\r\n")) << out; // gone
}

TEST_F(VdcatFollow, NewLeavesOutWhatIsThere) {
    for (const bool late : {false, true}) {
        Child child(VDCAT_PROGRAM, late ? follow("alerts", {"--new", "--fields", "number"})
                                        : follow("journal", {"--new", "--fields", "dataField1"}));
        // Once it tells that it reads in place it is about to look for the first time.
        ASSERT_TRUE(Child::waitUntil([&] { return !child.err().empty(); }));
        live::DataWriter data(folder.file("data.vd"));
        live::AlertWriter alerts(folder.file("alert.vd"));
        sample::Record record;
        record.sec_id = 1;
        record.class_id = market.classes[0].classId;
        ASSERT_TRUE(Child::waitUntil([&] {
            data.appendRecord(record);
            alerts.append({});
            return lineCount(child.out()) >= 3;
        }));
        const std::string out = child.out();
        const auto lines = parseLines(out.substr(0, out.rfind('\n') + 1));
        const char* field = late ? "number" : "dataField1";
        EXPECT_GT(lines[0].at(field).as_int64(), late ? 3 : 10);
        for (std::size_t i = 1; i < lines.size(); ++i)
            EXPECT_EQ(lines[i].at(field).as_int64(), lines[i - 1].at(field).as_int64() + 1);
    }
}

TEST_F(VdcatFollow, SecondsAndLimitEndIt) {
    for (const char* kind : {"last", "journal", "alerts"}) {
        const RunResult bySeconds = vdcat(follow(kind, {"--seconds", "0"}));
        EXPECT_EQ(bySeconds.code, 0);
        const RunResult once = vdcat({kind, folder.name()});
        EXPECT_TRUE(bySeconds.out == once.out) << kind;
        const RunResult byLimit = vdcat(follow(kind, {"--limit", "3"}));
        EXPECT_EQ(byLimit.code, 0);
        EXPECT_EQ(lineCount(byLimit.out), 3u) << kind;
        EXPECT_EQ(vdcat(follow(kind, {"--limit", "0"})).out, "");
    }
}

TEST_F(VdcatFollow, TableComesOutRoundByRound) {
    Child child(VDCAT_PROGRAM, follow("journal", {"--table", "--fields", "dataField1,sec_id"}));
    ASSERT_TRUE(hasLines(child, 11));
    live::DataWriter writer(folder.file("data.vd"));
    sample::Record record;
    record.sec_id = 1;
    record.class_id = market.classes[0].classId;
    writer.appendRecord(record);
    ASSERT_TRUE(hasLines(child, 12));
    EXPECT_TRUE(child.out().ends_with("\n        11       1\n")) << child.out();
}

TEST_F(VdcatFollow, ReaderThatIsGoneEndsIt) {
    for (const char* kind : {"last", "journal", "alerts"}) {
        const RunResult result = vdcat(follow(kind), StandardOutput::NoReader);
        EXPECT_EQ(result.code, 0);
        EXPECT_EQ(lineCount(result.err), 1u) << result.err;
    }
}

TEST_F(VdcatFollow, ReaderThatIsGoneEndsItWithoutNews) {
#ifdef _WIN32
    GTEST_SKIP() << "nothing tells here of a pipe's reader without a write";
#else
    EXPECT_EQ(vdcat(follow("journal", {"--new"}), StandardOutput::NoReader).code, 0);
#endif
}

TEST_F(VdcatFollow, SignalEndsItInGoodOrder) {
#ifdef _WIN32
    GTEST_SKIP() << "no signals are sent from process to process here";
#else
    for (const int number : {SIGINT, SIGTERM}) {
        Child child(VDCAT_PROGRAM, follow("journal"));
        ASSERT_TRUE(hasLines(child, 10));
        child.signal(number);
        EXPECT_EQ(child.wait(), 0);
        EXPECT_EQ(parseLines(child.out()).size(), 10u);
    }
#endif
}

} // namespace

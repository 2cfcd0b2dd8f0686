#include "diagnostics/trafficTracer.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "diagnostics/tracerFixture.h"
#include "vdreader/tracing.h"

namespace {

class TrafficTracer : public TracerFixture {
  protected:
    TrafficTracer() { SetDebugLevel(0); }
    ~TrafficTracer() {
        SetDebugLevel(0);
        cycle("enable=0");
    }
    Lines cycle(const std::string& settings) {
        return cycleOf<TrafficMonitorThread>("[traffic_trace]\nperiod=0\n" + settings + "\n");
    }
};

const std::string kZeros = "Traffic report:incoming<0>outgoing<0>";

} // namespace

TEST_F(TrafficTracer, IsOffWithoutSettingsAndThenSilent) {
    TrafficTrace(1, 2, true);
    EXPECT_EQ(cycle(""), Lines{});
    EXPECT_FALSE(trafficEnabled);
    EXPECT_TRUE(incomingTraffic().empty());
}

TEST_F(TrafficTracer, EveryNumberButZeroSwitchesItOn) {
    for (const char* const value : {"1", "2", "-1", "01", "7x"}) {
        EXPECT_EQ(cycle(std::string("enable=") + value), (Lines{kZeros})) << value;
        EXPECT_TRUE(trafficEnabled);
        cycle("enable=0");
        EXPECT_FALSE(trafficEnabled);
    }
    EXPECT_EQ(cycle("enable=true"), Lines{});
}

TEST_F(TrafficTracer, SumsComeByDirectionInTheOrderOfTheirCodes) {
    cycle("enable=1");
    TrafficTrace(77, 31, true);
    TrafficTrace(5, 2000, true);
    TrafficTrace(5, 222, true);
    TrafficTrace(5, 64, false);
    EXPECT_EQ(cycle("enable=1"), (Lines{"Traffic report:incoming<2253>outgoing<64>", "I 5 2222",
                                        "I 77 31", "O 5 64"}));
    EXPECT_EQ(m_log.lines(CapturedLog::events).at(0).substr(0, 3), "0: ");
    EXPECT_EQ(m_log.lines(CapturedLog::events).at(1).substr(0, 3), "V: ");
}

TEST_F(TrafficTracer, EachReportBeginsAnew) {
    cycle("enable=1");
    TrafficTrace(1, 5, false);
    cycle("enable=1");
    EXPECT_EQ(cycle("enable=1"), (Lines{kZeros}));
    TrafficTrace(1, 6, false);
    EXPECT_EQ(cycle("enable=1"), (Lines{"Traffic report:incoming<0>outgoing<6>", "O 1 6"}));
}

TEST_F(TrafficTracer, LargestCodesAndSumsArePrintedWhole) {
    cycle("enable=1");
    TrafficTrace(65535, SIZE_MAX, true);
    TrafficTrace(0, 1, false);
    EXPECT_EQ(cycle("enable=1"), (Lines{"Traffic report:incoming<18446744073709551615>outgoing<1>",
                                        "I 65535 18446744073709551615", "O 0 1"}));
}

TEST_F(TrafficTracer, EntryOfNoBytesIsThereAndPrintsNoLine) {
    cycle("enable=1");
    TrafficTrace(3, 0, true);
    EXPECT_EQ(incomingTraffic(), (TrafficSums{{3, 0}}));
    EXPECT_EQ(cycle("enable=1"), (Lines{kZeros}));
}

TEST_F(TrafficTracer, SwitchedOffItDropsTheSumsWithoutAReport) {
    cycle("enable=1");
    TrafficTrace(3, 9, true);
    TrafficTrace(3, 9, false);
    EXPECT_EQ(cycle("enable=0"), (Lines{"Traffic tracing disabled"}));
    EXPECT_EQ(cycle("enable=0"), Lines{});
    TrafficTrace(3, 9, true);
    EXPECT_EQ(cycle("enable=1"), (Lines{kZeros}));
}

TEST_F(TrafficTracer, WithTheFlagOffDebugLevelOnePrintsZeros) {
    SetDebugLevel(1);
    cycle("enable=1");
    TrafficTrace(3, 9, true);
    EXPECT_EQ(cycle("enable=0"), (Lines{"Traffic tracing disabled", kZeros}));
    EXPECT_EQ(cycle("enable=0"), (Lines{kZeros}));
}

TEST_F(TrafficTracer, PeriodIsKeptAndWaitedForInStepsOfASecond) {
    static std::vector<std::uint32_t> slept;
    slept.clear();
    platform::calls.sleep = [](std::uint32_t milliseconds) { slept.push_back(milliseconds); };
    cycleOf<TrafficMonitorThread>("[traffic_trace]\nperiod=2\n");
    EXPECT_EQ(slept, (std::vector<std::uint32_t>{1000, 1000}));
    EXPECT_EQ(trafficPeriod, 2);
    slept.clear();
    cycleOf<TrafficMonitorThread>("[traffic_trace]\nperiod=-3\n");
    EXPECT_EQ(trafficPeriod, -3);
    EXPECT_TRUE(slept.empty());
    cycleOf<TrafficMonitorThread>("");
    EXPECT_EQ(slept.size(), 600u);
}

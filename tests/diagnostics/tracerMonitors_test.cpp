#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <string>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "diagnostics/memTracer.h"
#include "diagnostics/tracerFixture.h"
#include "diagnostics/trafficTracer.h"
#include "libn/memTraceTable.h"
#include "support/waitWhile.h"
#include "vdreader/memtrace.h"
#include "vdreader/tracing.h"

namespace {

std::atomic<int> sleeps;
std::atomic<bool> held; // sleeps last until it is false

// The monitors of both tracers; a pause of one second lasts as long as the test wants.
class Monitors : public TracerFixture {
  protected:
    Monitors() {
        ++s_tests;
        sleeps = 0;
        held = false;
        platform::calls.sleep = [](std::uint32_t) {
            ++sleeps;
            do
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            while (held);
        };
    }
    ~Monitors() {
        held = false;
        libn::makeThread = m_makeThread;
        MemTraceShutDown();
        TrafficTraceShutDown();
        cycleOf<MemMonitorThread>("[mem_trace]\nperiod=0\n");
        cycleOf<TrafficMonitorThread>("[traffic_trace]\nperiod=0\n");
    }

    std::size_t count(const std::string& begin) const {
        const Lines lines = events();
        return static_cast<std::size_t>(
            std::count_if(lines.begin(), lines.end(),
                          [&](const std::string& line) { return line.rfind(begin, 0) == 0; }));
    }
    void waitForLines(const std::string& begin, std::size_t least) const {
        while (count(begin) < least)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    void noThreads() const {
        libn::makeThread = [](unsigned (*)(void*), void*) -> std::thread {
            throw std::system_error(
                std::make_error_code(std::errc::resource_unavailable_try_again));
        };
    }
    // Threads are made when s_mayMake says so.
    void holdThreads() const {
        s_making = false;
        s_mayMake = false;
        libn::makeThread = [](unsigned (*entry)(void*), void* argument) {
            s_making = true;
            waitWhile(s_mayMake, false);
            return std::thread(entry, argument);
        };
    }

    static inline int s_tests = 0; // of this process
    static inline std::atomic<bool> s_making{false};
    static inline std::atomic<bool> s_mayMake{false};
    std::thread (*m_makeThread)(unsigned (*)(void*), void*) = libn::makeThread;
    void* (*m_allocateLarge)(std::size_t) = platform::calls.allocateLarge;
};

// The first start of a process: each suite has a process of its own.
class FirstTrafficStart : public Monitors {};

char place[100];

template <class Call>
std::error_code codeOf(Call call) {
    try {
        call();
    } catch (const std::system_error& failure) {
        return failure.code();
    }
    return {};
}

} // namespace

TEST_F(Monitors, MemoryMonitorReportsUnderItsTag) {
    ini("[mem_trace]\nenable=1\nperiod=1\n");
    MemTraceInit();
    waitForLines("Memory report:", 1);
    waitWhile(sleeps, 0);
    EXPECT_TRUE(memTraceEnabled);
    EXPECT_STREQ(libn::currentThreadTag, "MEMM");
    EXPECT_NE(m_log.lines(CapturedLog::events).back().find(":MEMM)"), std::string::npos);
    memTraceAddPtr(place, 5, "a", 1);
    waitForLines("5 1 a:1", 1);
    EXPECT_EQ(memMonitorPeriod, 1);
}

TEST_F(Monitors, TrafficMonitorReportsUnderItsTag) {
    ini("[traffic_trace]\nenable=1\nperiod=1\n");
    TrafficTraceInit();
    waitForLines("Traffic report:", 1);
    EXPECT_STREQ(libn::currentThreadTag, "TRAF");
    EXPECT_NE(m_log.lines(CapturedLog::events).back().find(":TRAF)"), std::string::npos);
}

// The first of the two moves the process into the program's folder, where the second would find
// other settings.
TEST_F(Monitors, ErrorLogIsOpenedFirst) {
    m_folder.write("sarn.ini", "[Files]\nErrorsLogFileName=program.log\n");
    // Logs stay open, so each monitor has one of its own.
    using Monitor = std::pair<void (*)(), const char*>;
    for (const auto& [start, log] :
         {Monitor(MemTraceInit, "memory.log"), Monitor(TrafficTraceInit, "traffic.log")}) {
        m_folder.enter("work");
        m_folder.write("work/sarn.ini", std::string("[Files]\nErrorsLogFileName=") + log + "\n");
        sleeps = 0;
        start();
        waitWhile(sleeps, 0);
        EXPECT_TRUE(m_folder.has(log)) << log;
        EXPECT_FALSE(m_folder.has("program.log")) << log;
        MemTraceShutDown();
        TrafficTraceShutDown();
    }
}

TEST_F(Monitors, SettingsAreReadAnewInEveryCycle) {
    ini("[mem_trace]\nperiod=1\n");
    MemTraceInit();
    waitForLines("Memory report:space<0>", 2);
    EXPECT_FALSE(memTraceEnabled);
    ini("[mem_trace]\nenable=1\nperiod=1\n");
    waitWhile(memTraceEnabled, false);
    ini("[mem_trace]\nenable=0\nperiod=1\n");
    waitForLines("Memory tracing disabled", 1);
}

TEST_F(Monitors, SecondStartDoesNothing) {
    MemTraceInit();
    MemMonitorThread* const first = memMonitor;
    ASSERT_NE(first, nullptr);
    MemTraceInit();
    EXPECT_EQ(memMonitor, first);
    TrafficTraceInit();
    TrafficMonitorThread* const firstTraffic = trafficMonitor;
    TrafficTraceInit();
    EXPECT_EQ(trafficMonitor, firstTraffic);
}

TEST_F(Monitors, ShutDownWithoutAMonitorDoesNothing) {
    MemTraceShutDown();
    TrafficTraceShutDown();
    MemTraceInit();
    MemTraceShutDown();
    MemTraceShutDown();
    EXPECT_EQ(memMonitor, nullptr);
    EXPECT_FALSE(memInitStarted);
    EXPECT_FALSE(memInitDone);
}

TEST_F(Monitors, ShutDownEndsWithTheSecondThatIsSlept) {
    constexpr int kPeriod = 1'000'000; // more than is slept while a machine holds this thread up
    const std::string period = "period=" + std::to_string(kPeriod) + "\n";
    ini("[mem_trace]\n" + period + "[traffic_trace]\n" + period);
    MemTraceInit();
    waitWhile(sleeps, 0);
    MemTraceShutDown();
    const int slept = sleeps;
    EXPECT_LT(slept, kPeriod);
    TrafficTraceInit();
    waitWhile(sleeps, slept);
    TrafficTraceShutDown();
    EXPECT_LT(sleeps, kPeriod);
    EXPECT_EQ(count("Memory report:"), 1u);
}

TEST_F(Monitors, PeriodOfZeroRunsBackToBack) {
    ini("[mem_trace]\nperiod=0\n[traffic_trace]\nenable=1\nperiod=0\n");
    MemTraceInit();
    TrafficTraceInit();
    waitForLines("Memory report:", 5);
    waitForLines("Traffic report:", 5);
    EXPECT_EQ(sleeps, 0);
}

TEST_F(Monitors, TracingGoesOnBehindTheShutDownAndTheNextMonitorReportsIt) {
    ini("[mem_trace]\nenable=1\nperiod=1\n");
    MemTraceInit();
    waitWhile(memTraceEnabled, false);
    MemTraceShutDown();
    EXPECT_TRUE(memTraceEnabled);
    memTraceAddPtr(place, 11, "between", 1);
    m_log.clear();
    MemTraceInit();
    waitForLines("11 1 between:1", 1);
}

TEST_F(Monitors, TrafficBetweenTwoMonitorsIsInTheFirstReportOfTheSecond) {
    ini("[traffic_trace]\nenable=1\nperiod=1\n");
    TrafficTraceInit();
    waitForLines("Traffic report:", 1);
    TrafficTraceShutDown();
    EXPECT_TRUE(trafficEnabled);
    TrafficTrace(8, 30, true);
    m_log.clear();
    TrafficTraceInit();
    waitForLines("I 8 30", 1);
    EXPECT_EQ(events().at(0), "Traffic report:incoming<30>outgoing<0>");
}

// ---- the first start of the traffic tracer ----

TEST_F(FirstTrafficStart, SwitchesAtOnceAndLaterOnesLeaveItToTheMonitor) {
    if (s_tests > 1)
        GTEST_SKIP() << "another test of this process may have been the first to start it";
    held = true;
    ini("[traffic_trace]\nenable=3\nperiod=1\n");
    TrafficTraceInit();
    EXPECT_TRUE(trafficEnabled);
    waitWhile(sleeps, 0);
    held = false;
    TrafficTraceShutDown();
    cycleOf<TrafficMonitorThread>("[traffic_trace]\nperiod=0\n");
    ASSERT_FALSE(trafficEnabled);
    ini("[traffic_trace]\nenable=3\nperiod=1\n");
    noThreads(); // the monitor cannot switch it either
    EXPECT_EQ(codeOf(TrafficTraceInit), std::errc::resource_unavailable_try_again);
    EXPECT_FALSE(trafficEnabled);
}

TEST_F(Monitors, MemoryTracingWaitsForTheMonitor) {
    noThreads();
    ini("[mem_trace]\nenable=1\n");
    EXPECT_EQ(codeOf(MemTraceInit), std::errc::resource_unavailable_try_again);
    EXPECT_FALSE(memTraceEnabled);
}

// ---- failures ----

TEST_F(Monitors, MemoryMonitorThatCannotStartIsTriedAgainBehindAShutDown) {
    noThreads();
    EXPECT_EQ(codeOf(MemTraceInit), std::errc::resource_unavailable_try_again);
    EXPECT_EQ(memMonitor, nullptr);
    libn::makeThread = m_makeThread;
    ini("[mem_trace]\nperiod=1\n");
    MemTraceInit();
    EXPECT_EQ(memMonitor, nullptr);
    MemTraceShutDown();
    MemTraceInit();
    waitForLines("Memory report:", 1);
}

TEST_F(Monitors, TrafficMonitorThatCannotStartIsTriedAgain) {
    noThreads();
    EXPECT_EQ(codeOf(TrafficTraceInit), std::errc::resource_unavailable_try_again);
    EXPECT_EQ(trafficMonitor, nullptr);
    EXPECT_EQ(codeOf(TrafficTraceInit), std::errc::resource_unavailable_try_again);
    libn::makeThread = m_makeThread;
    ini("[traffic_trace]\nenable=1\nperiod=1\n");
    TrafficTraceInit();
    waitForLines("Traffic report:", 1);
}

TEST_F(Monitors, CycleThatRaisesEndsTheReportsUntilTheMonitorIsStartedAnew) {
    ini("[mem_trace]\nenable=1\nperiod=1\n");
    SetDebugLevel(5);
    platform::calls.allocateLarge = [](std::size_t) -> void* { return nullptr; };
    MemTraceInit();
    waitForLines("Thread finished.", 1);
    SetDebugLevel(0);
    EXPECT_EQ(count("libn::threadFunc:m_tag<"), 1u);
    EXPECT_NE(events().front().find(">what()<std::bad_alloc>"), std::string::npos);
    EXPECT_EQ(count("Memory report:"), 0u);
    EXPECT_FALSE(memTraceEnabled);
    platform::calls.allocateLarge = m_allocateLarge;
    MemTraceInit(); // there is a monitor still, which has ended
    EXPECT_EQ(count("Memory report:"), 0u);
    MemTraceShutDown(); // the thread is joined
    MemTraceInit();
    waitForLines("Memory report:", 1);
}

// ---- at once ----

TEST_F(Monitors, StartsAndShutDownsOfManyThreadsLeaveOneMonitorOrNone) {
    ini("[mem_trace]\nenable=1\nperiod=1\n[traffic_trace]\nenable=1\nperiod=1\n");
    std::vector<std::thread> threads;
    for (int i = 0; i < 6; ++i)
        threads.emplace_back([i] {
            for (int n = 0; n < 15; ++n) {
                if ((i + n) % 2 == 0) {
                    MemTraceInit();
                    TrafficTraceInit();
                } else {
                    MemTraceShutDown();
                    TrafficTraceShutDown();
                }
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    MemTraceInit();
    TrafficTraceInit();
    EXPECT_NE(memMonitor, nullptr);
    EXPECT_NE(trafficMonitor, nullptr);
    MemTraceShutDown();
    TrafficTraceShutDown();
    EXPECT_EQ(memMonitor, nullptr);
    EXPECT_EQ(trafficMonitor, nullptr);
}

TEST_F(Monitors, TrafficStartThatMeetsAnotherWaitsForTheThread) {
    ini("[traffic_trace]\nenable=1\nperiod=1\n");
    holdThreads();
    std::thread first(TrafficTraceInit);
    waitWhile(s_making, false);
    std::atomic<bool> called{false};
    std::atomic<bool> hadMonitor{false};
    std::thread second([&] {
        called = true;
        TrafficTraceInit();
        hadMonitor = trafficMonitor != nullptr;
    });
    waitWhile(called, false);
    std::this_thread::sleep_for(std::chrono::milliseconds(50)); // time to come back too early
    s_mayMake = true;
    second.join();
    first.join();
    EXPECT_TRUE(hadMonitor);
}

TEST_F(Monitors, MemoryStartThatMeetsAnotherReturnsWhenThatHasBegun) {
    ini("[mem_trace]\nperiod=1\n");
    holdThreads();
    std::thread first(MemTraceInit);
    waitWhile(s_making, false);
    MemTraceInit();
    EXPECT_EQ(memMonitor, nullptr);
    s_mayMake = true;
    first.join();
    EXPECT_NE(memMonitor, nullptr);
}

TEST(MonitorsDeathTest, ProcessEndsWithBothAlive) {
#ifdef VDREADER_SANITIZED
    GTEST_SKIP() << "a sanitizer does not survive the start of a child on a stack of its own";
#endif
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            const ProgramFolder folder; // of the process that ends
            folder.write("sarn.ini",
                         "[mem_trace]\nenable=1\nperiod=1\n"
                         "[traffic_trace]\nenable=1\nperiod=1\n");
            folder.enter("");
            MemTraceInit();
            TrafficTraceInit();
            waitWhile(memTraceEnabled, false);
            std::exit(17);
        },
        testing::ExitedWithCode(17), "");
}

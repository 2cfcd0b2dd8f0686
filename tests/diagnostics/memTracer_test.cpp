#include "diagnostics/memTracer.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "diagnostics/tracerFixture.h"
#include "libn/memTraceTable.h"
#include "platform/threadCounts.h"
#include "support/countedNew.h"
#include "support/failingMalloc.h"
#include "support/raised.h"
#include "vdreader/memtrace.h"

namespace {

const std::string kEmptySpace = "120000264";

class MemTracer : public TracerFixture {
  protected:
    ~MemTracer() {
        cycle("enable=0");
        EXPECT_EQ(memSites, nullptr);
        EXPECT_EQ(memPointers, nullptr);
    }

    // The lines of a cycle with these settings; without a limit where none is given.
    Lines cycle(const std::string& settings) {
        return cycleOf<MemMonitorThread>("[mem_trace]\nperiod=0\n" + settings + "\n");
    }
    // With tracing on, the lines behind the one of the figures.
    Lines sites() {
        Lines lines = cycle("enable=1");
        lines.erase(lines.begin());
        return lines;
    }

    static std::string report(const std::string& space, const std::string& limit) {
        return "Memory report:space<" + space + ">memLimit<" + limit + ">memCountMalloc<" +
               std::to_string(memCountMalloc) + ">memCountFree<" + std::to_string(memCountFree) +
               ">memCountRealloc<" + std::to_string(memCountRealloc) + ">";
    }
};

// Memory that nobody allocated, for the entry points that only enter.
char place[100];

} // namespace

// ---- settings ----

TEST_F(MemTracer, IsOffWithoutSettings) {
    EXPECT_EQ(cycleOf<MemMonitorThread>("[mem_trace]\nperiod=0\n"),
              (Lines{report("0", "200000000")}));
    EXPECT_FALSE(memTraceEnabled);
}

TEST_F(MemTracer, OtherValuesThanOneLeaveItOff) {
    for (const char* const value : {"true", "2", "yes", "-1", "01"}) {
        EXPECT_EQ(cycle(std::string("enable=") + value), (Lines{report("0", "200000000")}));
        EXPECT_FALSE(memTraceEnabled) << value;
    }
    cycle("enable=1");
    EXPECT_TRUE(memTraceEnabled);
}

TEST_F(MemTracer, PeriodOfTheLastReadingIsKept) {
    cycleOf<MemMonitorThread>("[mem_trace]\nperiod=-7\n");
    EXPECT_EQ(memMonitorPeriod, -7);
}

TEST_F(MemTracer, WaitsInStepsOfASecond) {
    static std::vector<std::uint32_t> slept;
    slept.clear();
    platform::calls.sleep = [](std::uint32_t milliseconds) { slept.push_back(milliseconds); };
    cycleOf<MemMonitorThread>("[mem_trace]\nperiod=3\n");
    EXPECT_EQ(slept, (std::vector<std::uint32_t>{1000, 1000, 1000}));
    slept.clear();
    cycleOf<MemMonitorThread>("");
    EXPECT_EQ(slept.size(), 60u);
}

TEST_F(MemTracer, PeriodOfZeroAndBelowDoesNotWait) {
    platform::calls.sleep = [](std::uint32_t) { ADD_FAILURE() << "slept"; };
    cycleOf<MemMonitorThread>("[mem_trace]\nperiod=0\n");
    cycleOf<MemMonitorThread>("[mem_trace]\nperiod=-1\n");
}

// ---- reports ----

TEST_F(MemTracer, FirstCycleWithTracingOnReportsTheEmptyTable) {
    EXPECT_EQ(cycle("enable=1"), (Lines{report(kEmptySpace, "200000000")}));
}

TEST_F(MemTracer, SitesComeLargestFirst) {
    cycle("enable=1");
    memTraceAddPtr(place, 10, "small", 1);
    memTraceAddPtr(place + 1, 3000, "large", 2);
    memTraceAddPtr(place + 2, 200, "middle", 3);
    memTraceAddPtr(place + 3, 200, "middle", 3);
    const Lines lines = cycle("enable=1");
    EXPECT_EQ(lines, (Lines{report("120000360", "200000000"), "3000 1 large:2", "400 2 middle:3",
                            "10 1 small:1"}));
    EXPECT_EQ(m_log.lines(CapturedLog::events).at(0).substr(0, 3), "0: ");
    EXPECT_EQ(m_log.lines(CapturedLog::events).at(1).substr(0, 3), "V: ");
}

TEST_F(MemTracer, NamesAreCutToWhatFollowsTheLastSeparator) {
    cycle("enable=1");
    memTraceAddPtr(place, 5, "a/b\\c.cpp", 1);
    memTraceAddPtr(place + 1, 4, "a\\b/d.cpp", 2);
    memTraceAddPtr(place + 2, 3, "whole:name", 3);
    memTraceAddPtr(place + 3, 2, "folder/", 4);
    EXPECT_EQ(sites(), (Lines{"5 1 c.cpp:1", "4 1 d.cpp:2", "3 1 whole:name:3", "2 1 :4"}));
}

TEST_F(MemTracer, EqualTextsAtTwoAddressesSumIntoOneLine) {
    cycle("enable=1");
    const std::string one = "same.cpp";
    const std::string other = one;
    memTraceAddPtr(place, 5, one.c_str(), 1);
    memTraceAddPtr(place + 1, 4, other.c_str(), 1);
    EXPECT_EQ(sites(), (Lines{"9 2 same.cpp:1"}));
}

TEST_F(MemTracer, AddressThatIsEnteredTwiceCountsItsNewestSizeOnce) {
    cycle("enable=1");
    memTraceAddPtr(place, 5, "a", 1);
    memTraceAddPtr(place, 70, "b", 2);
    EXPECT_EQ(sites(), (Lines{"70 1 b:2"}));
}

TEST_F(MemTracer, SiteWithoutBlocksIsNotPrintedAndOneOfNoBytesIs) {
    cycle("enable=1");
    memTraceAddPtr(place, 5, "gone", 1);
    memTraceDelPtr(place);
    memTraceAddPtr(place + 1, 0, "empty", 2);
    EXPECT_EQ(sites(), (Lines{"0 1 empty:2"}));
}

TEST_F(MemTracer, SitesPastTheLastNumberAreNotReported) {
    cycle("enable=1");
    memTraceAddPtr(place, 7, "first", 1);
    for (int line = 0; line < 40'000; ++line) {
        memTraceAddPtr(place + 1, 1, "many", line);
        memTraceDelPtr(place + 1);
    }
    memTraceAddPtr(place + 1, 50, "late", 1);
    memTraceAddPtr(place + 2, 60, "many", 39'999);
    memTraceAddPtr(place + 3, 3, "many", 5);
    EXPECT_EQ(sites(), (Lines{"7 1 first:1", "3 1 many:5"}));
}

// ---- blocks ----

TEST_F(MemTracer, BlocksAreEnteredAndTakenOut) {
    cycle("enable=1");
    void* const block = memTraceMalloc(100, "host.cpp", 1);
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(sites(), (Lines{"100 1 host.cpp:1"}));
    memTraceFree(block, "elsewhere", 9);
    EXPECT_EQ(sites(), Lines{});
}

TEST_F(MemTracer, BlockFromBeforeTracingIsFreedUnnoticed) {
    void* const block = memTraceMalloc(100, "host.cpp", 1);
    cycle("enable=1");
    void* const other = memTraceMalloc(8, "host.cpp", 2);
    EXPECT_EQ(sites(), (Lines{"8 1 host.cpp:2"}));
    const std::uint32_t frees = memCountFree;
    memTraceFree(block, "host.cpp", 3);
    EXPECT_EQ(memCountFree, frees + 1);
    EXPECT_EQ(sites(), (Lines{"8 1 host.cpp:2"}));
    memTraceFree(other, "host.cpp", 3);
}

TEST_F(MemTracer, FailedAllocationStandsUnderNullWithItsSize) {
    cycle("enable=1");
    {
        const FailingMalloc failing(4321);
        EXPECT_EQ(memTraceMalloc(4321, "host.cpp", 1), nullptr);
    }
    EXPECT_EQ(sites(), (Lines{"4321 1 host.cpp:1"}));
    // Null is not taken out again.
    memTraceFree(nullptr, "host.cpp", 2);
    EXPECT_EQ(sites(), (Lines{"4321 1 host.cpp:1"}));
    memTraceDelPtr(nullptr);
    EXPECT_EQ(sites(), Lines{});
}

TEST_F(MemTracer, BlockThatMovesLeavesItsOldEntry) {
    cycle("enable=1");
    void* const block = memTraceMalloc(64, "host.cpp", 1);
    void* const wall = memTraceMalloc(64, "host.cpp", 2); // so that the first cannot grow
    void* const moved = memTraceRealloc(block, 1 << 20, "host.cpp", 3);
    ASSERT_NE(moved, nullptr);
    if (moved == block)
        GTEST_SKIP() << "the block grew where it stands";
    EXPECT_EQ(sites(), (Lines{"1048576 1 host.cpp:3", "64 1 host.cpp:1", "64 1 host.cpp:2"}));
    memTraceFree(moved, "", 0);
    memTraceFree(wall, "", 0);
    EXPECT_EQ(sites(), (Lines{"64 1 host.cpp:1"}));
}

TEST_F(MemTracer, ReallocationsOfNothingAndToNothingCountAsTheOtherTwo) {
    cycle("enable=1");
    const std::uint32_t mallocs = memCountMalloc;
    const std::uint32_t frees = memCountFree;
    const std::uint32_t reallocs = memCountRealloc;
    void* const block = memTraceRealloc(nullptr, 24, "host.cpp", 1);
    EXPECT_EQ(sites(), (Lines{"24 1 host.cpp:1"}));
    EXPECT_EQ(memTraceRealloc(block, 0, "host.cpp", 2), nullptr);
    EXPECT_EQ(memTraceRealloc(nullptr, 0, "host.cpp", 2), nullptr);
    EXPECT_EQ(sites(), Lines{});
    EXPECT_EQ(memCountMalloc, mallocs + 1);
    EXPECT_EQ(memCountFree, frees + 1);
    EXPECT_EQ(memCountRealloc, reallocs);
}

// ---- switching ----

TEST_F(MemTracer, SwitchedOffItForgetsAndSaysSo) {
    cycle("enable=1");
    memTraceAddPtr(place, 5, "a", 1);
    EXPECT_EQ(cycle("enable=0"), (Lines{"Memory tracing disabled", report("0", "200000000")}));
    EXPECT_EQ(cycle("enable=0"), (Lines{report("0", "200000000")}));
    memTraceAddPtr(place + 1, 6, "b", 1);
    EXPECT_EQ(cycle("enable=1"), (Lines{report(kEmptySpace, "200000000")}));
    memTraceAddPtr(place + 2, 7, "c", 1);
    EXPECT_EQ(sites(), (Lines{"7 1 c:1"}));
}

TEST_F(MemTracer, CountersSurviveTheSwitch) {
    cycle("enable=1");
    const std::uint32_t mallocs = memCountMalloc;
    void* const block = memTraceMalloc(1, "a", 1);
    cycle("enable=0");
    memTraceFree(memTraceMalloc(1, "a", 1), "", 0);
    memTraceFree(block, "", 0);
    EXPECT_EQ(memCountMalloc, mallocs + 2);
}

TEST_F(MemTracer, SwitchedOffItGivesAllItsMemoryBack) {
    // Two addresses of one bucket, whose records stand in a block.
    std::uintptr_t other = 0x10010;
    void* const first = reinterpret_cast<void*>(std::uintptr_t{0x10000});
    while (MemPointers::bucketOf(reinterpret_cast<void*>(other)) != MemPointers::bucketOf(first))
        other += 16;
    // What tracing leaves that is switched on and off, in blocks.
    const auto left = [&](bool enters) {
        const std::size_t before = liveNews();
        cycle("enable=1");
        if (enters) {
            memTraceAddPtr(first, 1, "a", 1);
            memTraceAddPtr(reinterpret_cast<void*>(other), 1, "a", 2);
        }
        cycle("enable=0");
        m_log.clear();
        return static_cast<std::ptrdiff_t>(liveNews() - before);
    };
    left(false);
    const std::ptrdiff_t ofACycle = left(false);
#ifndef _WIN32 // where some of a cycle's blocks are the run-time's own and given back by us
    EXPECT_EQ(ofACycle, 0);
#endif
    EXPECT_EQ(left(true), ofACycle);
}

// An allocation that waited for the lock while the monitor switched off.
TEST_F(MemTracer, SwitchIsLookedAtAgainUnderTheLock) {
    cycle("enable=1");
    void* block = nullptr;
    {
        const WatchedHeap watch([](WatchedHeap::Call, void*, std::size_t size) {
            if (size != 4711)
                return;
            memTraceEnabled = false;
            delete std::exchange(memSites, nullptr);
            delete std::exchange(memPointers, nullptr);
        });
        block = memTraceMalloc(4711, "host.cpp", 1);
    }
    EXPECT_NE(block, nullptr);
    EXPECT_EQ(memSites, nullptr);
    EXPECT_EQ(memPointers, nullptr);
    memTraceFree(block, "", 0);
    EXPECT_EQ(cycle("enable=1"), (Lines{report(kEmptySpace, "200000000")}));
}

#ifndef _WIN32 // where a thread has no counters of its own to begin with
TEST_F(MemTracer, CountersPastTwoThousandMillionHaveNoSign) {
    memTraceFree(nullptr, "", 0); // the thread has its counters from now on
    auto* const line = platform::detail::threadCountLine;
    ASSERT_NE(line, nullptr);
    for (auto& count : line->counts)
        count += 0x80000000U;
    const Lines lines = cycle("");
    EXPECT_GE(memCountMalloc, 0x80000000U);
    EXPECT_GE(memCountFree, 0x80000000U);
    EXPECT_GE(memCountRealloc, 0x80000000U);
    EXPECT_EQ(lines, (Lines{report("0", "200000000")}));
    for (auto& count : line->counts)
        count -= 0x80000000U;
}
#endif

// ---- the limit ----

TEST_F(MemTracer, LimitBelowTheEmptyTableWipesInEveryCycle) {
    for (int i = 0; i < 2; ++i)
        EXPECT_EQ(cycle("enable=1\nmem_limit=120000263"),
                  (Lines{"Trace mem limit exceeded:space<120000264>memLimit<120000263>",
                         report(kEmptySpace, "120000263")}));
    EXPECT_EQ(m_log.lines(CapturedLog::events).at(0).substr(0, 3), "0: ");
}

TEST_F(MemTracer, LimitOfExactlyTheTablesIsKept) {
    EXPECT_EQ(cycle("enable=1\nmem_limit=120000264"), (Lines{report(kEmptySpace, "120000264")}));
}

TEST_F(MemTracer, WipeReportsTheFiguresFromBeforeAndKeepsTheSites) {
    cycle("enable=1");
    memTraceAddPtr(place, 5, "a", 1);
    EXPECT_EQ(cycle("enable=1\nmem_limit=1"),
              (Lines{"Trace mem limit exceeded:space<120000288>memLimit<1>",
                     report("120000288", "1"), "5 1 a:1"}));
    ASSERT_NE(memSites, nullptr);
    EXPECT_EQ(memSites->all().size(), 1u);
    EXPECT_EQ(cycle("enable=1"), (Lines{report(kEmptySpace, "200000000")}));
}

TEST_F(MemTracer, NegativeLimitIsBelowEverything) {
    EXPECT_EQ(cycle("enable=1\nmem_limit=-1").at(0),
              "Trace mem limit exceeded:space<120000264>memLimit<-1>");
}

TEST_F(MemTracer, WithoutALimitTheSpaceStaysZero) {
    cycle("enable=1");
    memTraceAddPtr(place, 5, "a", 1);
    EXPECT_EQ(cycle("enable=1\nmem_limit=0"), (Lines{report("0", "0"), "5 1 a:1"}));
}

// ---- failures ----

TEST_F(MemTracer, TablesThatCannotBeMadeLeaveTracingOffAndTheLockFree) {
    auto* const allocate = platform::calls.allocateLarge;
    platform::calls.allocateLarge = [](std::size_t) -> void* { return nullptr; };
    EXPECT_THROW(cycle("enable=1"), std::bad_alloc);
    EXPECT_FALSE(memTraceEnabled);
    ASSERT_TRUE(memTraceLock().try_lock());
    memTraceLock().unlock();
    platform::calls.allocateLarge = allocate;
    cycle("enable=1");
    void* const block = memTraceMalloc(8, "host.cpp", 1);
    EXPECT_EQ(sites(), (Lines{"8 1 host.cpp:1"}));
    memTraceFree(block, "", 0);
}

TEST_F(MemTracer, BlockWhoseEntryFindsNoMemoryIsFreed) {
    cycle("enable=1");
    static std::atomic<int> live;
    live = 0;
    const WatchedHeap watch([](WatchedHeap::Call call, void*, std::size_t size) {
        if (call == WatchedHeap::allocation && size == 77)
            ++live;
        else if (call == WatchedHeap::release)
            --live;
    });
    {
        const FailingNew failing(0, 1);
        EXPECT_THROW(memTraceMalloc(77, "never seen before", 1), std::bad_alloc);
    }
    EXPECT_EQ(live, 0);
}

TEST_F(MemTracer, BlockWhoseReallocationCannotBeEnteredIsFreedAndForgotten) {
    cycle("enable=1");
    static std::atomic<void*> former;
    static std::atomic<int> releases;
    for (const bool moves : {true, false}) {
        void* const block = memTraceMalloc(77, "host.cpp", 1);
        ASSERT_NE(block, nullptr);
        // Any block that the heap gives back, the former one where there is no other.
        former = moves ? nullptr : block;
        releases = 0;
        {
            const WatchedHeap watch([](WatchedHeap::Call call, void* released, std::size_t) {
                if (call == WatchedHeap::release && released != nullptr &&
                    (former == nullptr || released == former))
                    ++releases;
            });
            const FailingMalloc failing(moves ? 1 : 777); // 1: none of this test
            const FailingNew without(0, 1);
            EXPECT_THROW(memTraceRealloc(block, 777, moves ? "never seen" : "nor this", 1),
                         std::bad_alloc);
        }
        EXPECT_EQ(releases, 1) << moves;
        EXPECT_EQ(sites(), Lines{}) << moves;
    }
}

TEST_F(MemTracer, WithoutAnIniFileTheDefaultsCount) {
    ASSERT_FALSE(m_folder.has("sarn.ini"));
    platform::calls.sleep = [](std::uint32_t) {};
    MemMonitorThread monitor;
    monitor.run();
    EXPECT_EQ(events(), (Lines{report("0", "200000000")}));
    EXPECT_EQ(memMonitorPeriod, 60);
}

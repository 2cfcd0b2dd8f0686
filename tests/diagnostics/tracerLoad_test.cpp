// The tracers under load from eight threads, while they are switched on and off.

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "diagnostics/memTracer.h"
#include "diagnostics/tracerFixture.h"
#include "diagnostics/trafficTracer.h"
#include "libn/memTraceTable.h"
#include "vdreader/memtrace.h"
#include "vdreader/tracing.h"

namespace {

constexpr int kThreads = 8;

class TracerLoad : public TracerFixture {
  protected:
    ~TracerLoad() {
        memory("enable=0");
        traffic("enable=0");
    }
    Lines memory(const std::string& settings) {
        return cycleOf<MemMonitorThread>("[mem_trace]\nperiod=0\n" + settings + "\n");
    }
    Lines traffic(const std::string& settings) {
        return cycleOf<TrafficMonitorThread>("[traffic_trace]\nperiod=0\n" + settings + "\n");
    }
};

// Eight threads that run `work(number)` until the object says so.
class Load {
  public:
    template <class Work>
    explicit Load(Work work) {
        for (int number = 0; number < kThreads; ++number)
            m_threads.emplace_back([this, work, number] {
                while (!m_ends)
                    work(number);
            });
    }
    ~Load() { finish(); }
    Load(const Load&) = delete;
    Load& operator=(const Load&) = delete;

    void finish() {
        m_ends = true;
        for (std::thread& thread : m_threads)
            thread.join();
        m_threads.clear();
    }

  private:
    std::atomic<bool> m_ends{false};
    std::vector<std::thread> m_threads;
};

// Bytes of a block that is entered at each line of the load.
constexpr std::uint64_t kSizes[] = {0, 64, 5000, 1};

// The figures of each line: as many bytes as so many blocks of its place have.
void expectFiguresAddUp(const Lines& lines) {
    std::uint64_t views = 0;
    for (const std::string& line : lines) {
        std::uint64_t total = 0, count = 0;
        std::string file;
        std::istringstream words(line);
        if (!(words >> total >> count >> file))
            continue;                       // the head
        ASSERT_EQ(file.size(), 4U) << line; // "t0:1"
        const int place = file.back() - '0';
        ASSERT_TRUE(place >= 1 && place <= 3) << line;
        EXPECT_GT(count, 0U) << line;
        EXPECT_EQ(total, count * kSizes[place]) << line;
        views += place == 3 ? count : 0;
    }
    EXPECT_LE(views, std::uint64_t{kThreads}); // each has one at a time, at one address
}

const char* const kFiles[kThreads] = {"t0", "t1", "t2", "t3", "t4", "t5", "t6", "t7"};

} // namespace

TEST_F(TracerLoad, FiguresAddUpWhileTracingIsSwitchedOnAndOff) {
    static std::atomic<std::uint32_t> mallocs, frees, reallocs;
    mallocs = frees = reallocs = 0;
    const std::uint32_t before[] = {memCountMalloc, memCountFree, memCountRealloc};
    Load load([](int number) {
        void* blocks[4];
        for (void*& block : blocks)
            block = memTraceMalloc(kSizes[1], kFiles[number], 1);
        blocks[0] = memTraceRealloc(blocks[0], kSizes[2], kFiles[number], 2);
        char place = 0;
        memTraceAddPtr(&place, kSizes[3], kFiles[number], 3);
        for (void* const block : blocks)
            memTraceFree(block, "", 0);
        memTraceDelPtr(&place);
        mallocs += 4;
        frees += 4;
        ++reallocs;
    });
    std::size_t sites = 0;
    for (int i = 0; i < 6; ++i) {
        memory("enable=1");
        const Lines wiped = memory("enable=1\nmem_limit=1");
        EXPECT_EQ(wiped.at(0).rfind("Trace mem limit exceeded:", 0), 0u);
        expectFiguresAddUp(wiped);
        const Lines next = memory("enable=1");
        expectFiguresAddUp(next);
        sites += wiped.size() + next.size() - 3;
        memory("enable=0");
    }
    EXPECT_GT(sites, 0U);
    load.finish();
    EXPECT_EQ(memCountMalloc - before[0], mallocs);
    EXPECT_EQ(memCountFree - before[1], frees);
    EXPECT_EQ(memCountRealloc - before[2], reallocs);
}

TEST_F(TracerLoad, EveryBlockIsInTheReport) {
    memory("enable=1\nmem_limit=0");
    constexpr std::size_t kBlocks = 5000;
    std::vector<std::vector<void*>> blocks(kThreads);
    std::vector<std::thread> threads;
    for (int number = 0; number < kThreads; ++number)
        threads.emplace_back([&blocks, number] {
            for (std::size_t i = 0; i < kBlocks; ++i) {
                blocks[number].push_back(memTraceMalloc(32, kFiles[number], 7));
                memTraceFree(memTraceMalloc(8, kFiles[number], 8), "", 0);
            }
        });
    for (int i = 0; i < 3; ++i)
        memory("enable=1\nmem_limit=0");
    for (std::thread& thread : threads)
        thread.join();
    Lines lines = memory("enable=1\nmem_limit=0");
    ASSERT_EQ(lines.size(), 1u + kThreads);
    std::sort(lines.begin(), lines.end());
    for (int number = 0; number < kThreads; ++number)
        EXPECT_EQ(lines[number], "160000 5000 " + std::string(kFiles[number]) + ":7");
    for (const auto& ofThread : blocks)
        for (void* const block : ofThread)
            memTraceFree(block, "", 0);
    EXPECT_EQ(memory("enable=1\nmem_limit=0").size(), 1u);
}

TEST_F(TracerLoad, TrafficOfAllThreadsIsInTheReports) {
    traffic("enable=1");
    static std::atomic<std::uint64_t> incoming, outgoing;
    incoming = outgoing = 0;
    Load load([](int number) {
        TrafficTrace(static_cast<std::uint16_t>(number), 3, true);
        TrafficTrace(static_cast<std::uint16_t>(number), 5, false);
        incoming += 3;
        outgoing += 5;
    });
    std::uint64_t reported[2] = {0, 0};
    const auto add = [&] {
        for (const std::string& line : traffic("enable=1"))
            if (line[0] != 'T')
                reported[line[0] == 'O'] += std::stoull(line.substr(line.rfind(' ')));
    };
    for (int i = 0; i < 50; ++i)
        add();
    load.finish();
    add();
    EXPECT_EQ(reported[0], incoming);
    EXPECT_EQ(reported[1], outgoing);
}

TEST_F(TracerLoad, TrafficTracingIsSwitchedUnderLoad) {
    Load load([](int number) { TrafficTrace(static_cast<std::uint16_t>(number), 1, true); });
    for (int i = 0; i < 50; ++i) {
        traffic("enable=1");
        traffic("enable=0");
        EXPECT_EQ(events().at(0), "Traffic tracing disabled");
    }
}

// The entry points of the tracers with tracing on.
//
// "heap on": a block of 64 bytes taken and freed.  "heap on live": the same while 100,000 blocks
// are live, in an order that cannot be guessed.
//   limit      malloc and free
//   ours       memTraceMalloc and memTraceFree
//   heaptrack  malloc and free in a process that it follows
// "traffic on": bytes for one of eight codes.
//   limit  a lock that nobody else holds, and a look-up in an ordered map
//   ours   TrafficTrace

#include <benchmark/benchmark.h>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <mutex>
#include <string>

#include "diagnostics/memTracer.h"
#include "diagnostics/trafficTracer.h"
#include "heapLoops.h"
#include "support.h"
#include "vdreader/memtrace.h"
#include "vdreader/tracing.h"

namespace {

constexpr unsigned kCodes = 8;

// Runs one cycle of each monitor, which read sarn.ini in the folder of the data.
void switchTracers(int enable) {
    std::filesystem::current_path(std::filesystem::path(bench::outputFile("")));
    std::ofstream("sarn.ini") << "[mem_trace]\nperiod=0\nmem_limit=0\nenable=" << enable
                              << "\n[traffic_trace]\nperiod=0\nenable=" << enable << "\n";
    MemMonitorThread().run();
    TrafficMonitorThread().run();
}

class Tracing {
  public:
    Tracing() { switchTracers(1); }
    ~Tracing() { switchTracers(0); }
};

void* tracedAllocate(std::size_t size) {
    return memTraceMalloc(size, "host/src/cache.cpp", 17);
}
void tracedFree(void* block) {
    memTraceFree(block, "host/src/cache.cpp", 18);
}

template <class Allocate, class Free>
void hot(benchmark::State& state, Allocate allocate, Free release) {
    bench::HotBlock block;
    for (auto _ : state)
        block.step(allocate, release);
}

template <class Allocate, class Free>
void live(benchmark::State& state, Allocate allocate, Free release) {
    bench::LiveBlocks blocks;
    blocks.fill(allocate);
    for (std::size_t i = 0; i < blocks.kBlocks; ++i)
        blocks.step(allocate, release);
    for (auto _ : state)
        blocks.step(allocate, release);
    blocks.empty(release);
}

// The time that a process under it tells.
void heaptrack(benchmark::State& state, const std::string& loop) {
    const std::string command = HEAPTRACK " -o '" + bench::outputFile("heaptrack") +
                                "' " HEAP_PEER " " + loop + " 2>/dev/null";
    for (auto _ : state) {
        std::FILE* const output = ::popen(command.c_str(), "r");
        if (output == nullptr)
            bench::stop("heaptrack does not start");
        double time = 0;
        for (char line[256]; std::fgets(line, sizeof line, output) != nullptr;) {
            char* end = line;
            const double number = std::strtod(line, &end);
            if (end != line && *end == '\n')
                time = number;
        }
        if (::pclose(output) != 0 || time == 0)
            bench::stop("the process under heaptrack gave no time");
        state.SetIterationTime(time * 1e-9);
    }
}

void trafficLimit(benchmark::State& state) {
    std::mutex lock;
    std::map<std::uint16_t, std::uint64_t> sums;
    unsigned code = 0;
    for (auto _ : state) {
        const std::lock_guard guard(lock);
        sums[static_cast<std::uint16_t>(code++ % kCodes)] += 100;
    }
    benchmark::DoNotOptimize(sums);
}

void trafficOurs(benchmark::State& state) {
    const Tracing tracing;
    unsigned code = 0;
    for (auto _ : state)
        TrafficTrace(static_cast<std::uint16_t>(code++ % kCodes), 100, true);
}

void add(const char* name, void (*run)(benchmark::State&)) {
    benchmark::RegisterBenchmark(name, run)->UseRealTime()->Unit(benchmark::kNanosecond);
}
void addPeer(const char* name, void (*run)(benchmark::State&)) {
    benchmark::RegisterBenchmark(name, run)->UseManualTime()->Iterations(1)->Unit(
        benchmark::kNanosecond);
}

const bool added = [] {
    add("heap on/limit", [](benchmark::State& s) { hot(s, std::malloc, std::free); });
    add("heap on/ours", [](benchmark::State& s) {
        const Tracing tracing;
        hot(s, tracedAllocate, tracedFree);
    });
    addPeer("heap on/heaptrack", [](benchmark::State& s) { heaptrack(s, "hot"); });
    add("heap on live/limit", [](benchmark::State& s) { live(s, std::malloc, std::free); });
    add("heap on live/ours", [](benchmark::State& s) {
        const Tracing tracing;
        live(s, tracedAllocate, tracedFree);
    });
    addPeer("heap on live/heaptrack", [](benchmark::State& s) { heaptrack(s, "live"); });
    add("traffic on/limit", trafficLimit);
    add("traffic on/ours", trafficOurs);
    return true;
}();

} // namespace

// The entry points of the tracers with tracing off, as every process has them that starts none.
//
// "heap off", "heap off 2": a block of 64 bytes taken and freed, on one thread and on two at once.
//   limit  malloc and free
//   ours   memTraceMalloc and memTraceFree
// "traffic off": one call.
//   limit  a call of a function that reads one byte
//   ours   TrafficTrace

#include <benchmark/benchmark.h>
#include <atomic>
#include <cstdlib>

#include "heapLoops.h"
#include "support.h"
#include "vdreader/memtrace.h"
#include "vdreader/tracing.h"

namespace {

std::atomic<bool> byteOfTheLimit{false};

[[gnu::noinline]] void readsAByte(unsigned code, std::size_t bytes, bool incoming) {
    if (!byteOfTheLimit.load(std::memory_order_relaxed))
        return;
    benchmark::DoNotOptimize(code);
    benchmark::DoNotOptimize(bytes);
    benchmark::DoNotOptimize(incoming);
}

void heapLimit(benchmark::State& state) {
    bench::HotBlock hot;
    for (auto _ : state)
        hot.step(std::malloc, std::free);
}

void heapOurs(benchmark::State& state) {
    bench::HotBlock hot;
    for (auto _ : state)
        hot.step([](std::size_t size) { return memTraceMalloc(size, "host.cpp", 1); },
                 [](void* block) { memTraceFree(block, "host.cpp", 2); });
}

void trafficLimit(benchmark::State& state) {
    for (auto _ : state)
        readsAByte(12, 100, true);
}

void trafficOurs(benchmark::State& state) {
    for (auto _ : state)
        TrafficTrace(12, 100, true);
}

benchmark::internal::Benchmark* add(const char* name, void (*run)(benchmark::State&)) {
    return benchmark::RegisterBenchmark(name, run)->UseRealTime()->Unit(benchmark::kNanosecond);
}

const bool added = [] {
    add("heap off/limit", heapLimit);
    add("heap off/ours", heapOurs);
    add("heap off 2/limit", heapLimit)->Threads(2);
    add("heap off 2/ours", heapOurs)->Threads(2);
    add("traffic off/limit", trafficLimit);
    add("traffic off/ours", trafficOurs);
    return true;
}();

} // namespace

// Lines that the debug level keeps out of the log.
//
// "devent off": a call of the exported function.  "TraceLine off": an object with four insertions.
//   limit   a call of a function with variable arguments that compares its level with one in memory
//   ours    devent, TraceLine
//   spdlog  a call of its logger below its level

#include <benchmark/benchmark.h>
#include <spdlog/logger.h>
#include <spdlog/sinks/null_sink.h>
#include <atomic>
#include <memory>

#include "libn/TraceLine.h"
#include "support.h"
#include "vdreader/log.h"
#include "watch.h"

namespace {

constexpr std::size_t kWatched = 100;

std::atomic<int> levelOfTheLimit{0};

[[gnu::noinline]] void comparesLevels(int level, const char* format, ...) {
    if (levelOfTheLimit.load(std::memory_order_relaxed) >= level)
        benchmark::DoNotOptimize(format);
}

template <class Call>
void run(benchmark::State& state, Call call) {
    int number = 0;
    for (auto _ : state)
        call(number++);
    bench::report(state, bench::watch(kWatched, [&](std::size_t i) { call(static_cast<int>(i)); }));
}

void limit(benchmark::State& state) {
    run(state, [](int number) { comparesLevels(3, "step %d of %s", number, "one"); });
}

void deventOff(benchmark::State& state) {
    run(state, [](int number) { devent(3, "step %d of %s", number, "one"); });
}

void traceLineOff(benchmark::State& state) {
    run(state, [](int number) {
        libn::TraceLine("bench()", 3) << "step<" << number << '>' << static_cast<void*>(&number);
    });
}

void spdlogOff(benchmark::State& state) {
    spdlog::logger logger("off", std::make_shared<spdlog::sinks::null_sink_mt>());
    logger.set_level(spdlog::level::info);
    run(state, [&](int number) { logger.debug("step {} of {}", number, "one"); });
}

void add(const char* name, void (*run)(benchmark::State&)) {
    benchmark::RegisterBenchmark(name, run)->UseRealTime()->Unit(benchmark::kNanosecond);
}

const bool added = [] {
    add("devent off/limit", limit);
    add("devent off/ours", deventOff);
    add("devent off/spdlog", spdlogOff);
    add("TraceLine off/limit", limit);
    add("TraceLine off/ours", traceLineOff);
    add("TraceLine off/spdlog", spdlogOff);
    return true;
}();

} // namespace

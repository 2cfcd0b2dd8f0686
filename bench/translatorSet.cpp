// What a translator costs where nothing faults, and what a fault costs.
//
// "translator set": a call with a cleanup and a handler around it.
//   limit   the thread has no translator
//   ours    the thread has one
// "fault caught": from the faulting instruction to the handler.
//   limit   the same exception, thrown by hand
//   ours    a null read and a translator that throws

#include <benchmark/benchmark.h>
#include <cstdint>

#include "support.h"
#include "vdreader/postmortem.h"
#include "watch.h"

namespace {

constexpr std::size_t kWatched = 100;

struct Caught {
    unsigned int code;
};

void translate(unsigned int code, sExceptionPointers*) {
    throw Caught{code};
}

std::uint64_t cleaned = 0;
struct Cleanup {
    ~Cleanup() { benchmark::DoNotOptimize(++cleaned); }
};

int value = 5;
int* volatile readable = &value;
int* volatile unreadable = nullptr;

[[gnu::noinline]] int guardedRead(const int* from) {
    const Cleanup cleanup;
    return *static_cast<const volatile int*>(from);
}

[[gnu::noinline]] void guardedThrow() {
    const Cleanup cleanup;
    throw Caught{1};
}

void read() {
    benchmark::DoNotOptimize(guardedRead(readable));
}
void fault() {
    benchmark::DoNotOptimize(guardedRead(unreadable));
}

void run(benchmark::State& state, sExceptionTranslator translator, void (*call)()) {
    util_set_se_translator(translator);
    const auto once = [&] {
        try {
            call();
        } catch (const Caught& caught) {
            benchmark::DoNotOptimize(caught.code);
        }
    };
    for (auto _ : state)
        once();
    // The way out of a fault's signal is a system call that the watch must not hold up.
    if (call != fault)
        bench::report(state, bench::watch(kWatched, [&](std::size_t) { once(); }));
    util_set_se_translator(nullptr);
}

void add(const char* name, void (*run)(benchmark::State&)) {
    benchmark::RegisterBenchmark(name, run)->UseRealTime()->Unit(benchmark::kNanosecond);
}

const bool added = [] {
    add("translator set/limit", [](benchmark::State& state) { run(state, nullptr, read); });
    add("translator set/ours", [](benchmark::State& state) { run(state, translate, read); });
    add("fault caught/limit", [](benchmark::State& state) { run(state, nullptr, guardedThrow); });
    add("fault caught/ours", [](benchmark::State& state) { run(state, translate, fault); });
    return true;
}();

} // namespace

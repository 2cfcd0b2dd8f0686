// What a piece of code asks of the heap and of the system, counted for the thread that runs it.
// Linking watch.cpp puts counting entry points in front of the heap of the whole program.

#pragma once

#include <benchmark/benchmark.h>
#include <cstdint>

namespace bench {

struct Asked {
    std::uint64_t allocations = 0;
    std::uint64_t systemCalls = 0; // runs of the code with at least one
};

namespace watching {
void begin();
void end(Asked& asked);
} // namespace watching

// Runs call(i) for i from 0 to `times` - 1.
template <class Call>
Asked watch(std::size_t times, Call call) {
    Asked asked;
    for (std::size_t i = 0; i < times; ++i) {
        watching::begin();
        call(i);
        watching::end(asked);
    }
    return asked;
}

// Into the benchmark's result, from where table.py takes it.
inline void report(benchmark::State& state, const Asked& asked) {
    state.counters["allocations"] = static_cast<double>(asked.allocations);
    state.counters["system calls"] = static_cast<double>(asked.systemCalls);
}

} // namespace bench

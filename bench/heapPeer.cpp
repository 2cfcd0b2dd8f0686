// One loop of heapLoops.h on malloc and free: bench_heap_peer hot|live prints nanoseconds a step.
// The benchmarks run it under a heap profiler.

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "heapLoops.h"

namespace {

constexpr std::size_t kBatches = 41;
constexpr int kSteps = 10'000;

// The median of many short runs, which others that use the processor do not lengthen.
template <class Step>
double nanosecondsOf(Step step) {
    std::array<double, kBatches> times;
    for (double& time : times) {
        const auto begin = std::chrono::steady_clock::now();
        for (int i = 0; i < kSteps; ++i)
            step();
        const std::chrono::duration<double, std::nano> taken =
            std::chrono::steady_clock::now() - begin;
        time = taken.count() / kSteps;
    }
    std::nth_element(times.begin(), times.begin() + kBatches / 2, times.end());
    return times[kBatches / 2];
}

} // namespace

int main(int count, char** arguments) {
    bench::HotBlock hot;
    bench::LiveBlocks live;
    if (count == 2 && std::strcmp(arguments[1], "hot") == 0) {
        std::printf("%f\n", nanosecondsOf([&] { hot.step(std::malloc, std::free); }));
        return 0;
    }
    live.fill(std::malloc);
    std::printf("%f\n", nanosecondsOf([&] { live.step(std::malloc, std::free); }));
    return 0;
}

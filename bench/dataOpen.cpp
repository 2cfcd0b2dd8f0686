// Opening of data.vd through the shared library, and letting it go: "data open" with slots of
// 50,000 securities and one page of the journal, "journal open" with 1,000 pages behind them, each
// of which is looked at for its first number.
//
//   limit  open, fstat, one mmap of the whole file, close, munmap
//   ours   a TCurrentData, Init and LoadData, its destructor
//
// The bytes that are mapped stand beside the times, as the system tells them.

#include <benchmark/benchmark.h>
#include <charconv>
#include <cstdint>
#include <fstream>
#include <string>

#include "data.h"
#include "mappedFile.h"
#include "support.h"
#include "vdreader/curdata.hpp"

namespace {

using bench::dataFile;

// Of all mappings of the file in this process.  A line of the list begins with both addresses.
double mappedBytes(const std::string& file) {
    std::ifstream maps("/proc/self/maps");
    std::uint64_t total = 0;
    for (std::string line; std::getline(maps, line);) {
        if (!line.ends_with(file))
            continue;
        std::uint64_t begin = 0, end = 0;
        const char* const last = line.data() + line.size();
        const char* const dash = std::from_chars(line.data(), last, begin, 16).ptr;
        std::from_chars(dash + 1, last, end, 16);
        total += end - begin;
    }
    return static_cast<double>(total);
}

void limit(benchmark::State& state, const char* name) {
    const std::string file = dataFile(name);
    {
        const bench::MappedFile mapped(file.c_str());
        state.counters["mapped bytes"] = mappedBytes(file);
    }
    for (auto _ : state) {
        const bench::MappedFile mapped(file.c_str());
        benchmark::DoNotOptimize(mapped.at(0));
    }
}

void ours(benchmark::State& state, const char* name) {
    const std::string file = dataFile(name);
    {
        TCurrentData data;
        data.Init(file.c_str(), false);
        data.LoadData();
        if (data.GetMaxSecs() != bench::kSecurities ||
            data.GetDataCust(bench::kSecurities - 1) == nullptr)
            return state.SkipWithError("the load is not whole");
        state.counters["mapped bytes"] = mappedBytes(file);
    }
    for (auto _ : state) {
        TCurrentData data;
        data.Init(file.c_str(), false);
        data.LoadData();
        benchmark::DoNotOptimize(data.GetDataCust(0));
    }
}

void addBenchmarks(const std::string& path, const char* file) {
    const auto add = [&](const char* name, auto function) {
        benchmark::RegisterBenchmark((path + name).c_str(), function, file)
            ->UseRealTime()
            ->Unit(benchmark::kMicrosecond);
    };
    add("/limit", limit);
    add("/ours", ours);
}

const bool added = [] {
    addBenchmarks("data open", bench::kAllValuesFile);
    addBenchmarks("journal open", bench::kJournalFile);
    return true;
}();

} // namespace

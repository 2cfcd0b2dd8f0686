// Walks of flimit.vd and fclipos.vd, 1,000,000 records each, through the shared library; a double
// is taken from each record.
//
//   ours      for_each_futlimit and for_each_futposition with a callback that calls one getter
//   limit     fopen, fread in blocks of 1 MiB (whole records), and the same callback with each
//   record
//             where it stands in the block
//   inline    the same blocks with the field taken in the loop itself: no callback, no getter
//   ifstream  std::ifstream::read for each record
//   fread     fread for each record
//
// A walk leaves its stream open by design, so the number of walks is fixed.

#include <benchmark/benchmark.h>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <memory>

#include "data.h"
#include "support.h"
#include "vdreader/futures.h"
#include "vdreader/readers.h"

namespace {

using bench::dataFile;

constexpr int kWalks = 10; // in each repetition

struct Sum {
    double value = 0;
    std::uint64_t count = 0;

    void add(double more) {
        value += more;
        ++count;
    }
};

Sum sum;

std::int32_t useLimit(sFutLimit* limit) {
    sum.add(get_sFutLimit_cbplused(limit));
    return 1;
}

std::int32_t usePosition(sFutPosition* position) {
    sum.add(get_sFutPosition_varmargin(position));
    return 1;
}

// A file of the readers: its name, the size of a record and the place of the field in it.
struct LimitsFile {
    using Record = sFutLimit;
    static constexpr const char* kName = bench::kLimitsFile;
    static constexpr std::size_t kSize = 216;
    static constexpr std::size_t kField = 64;
    static constexpr auto kCallback = useLimit;

    static std::int32_t init(const char* ini) { return init_vdreader_futlimits(ini, "vdreader"); }
    static std::int32_t walk() { return for_each_futlimit(kCallback); }
};

struct PositionsFile {
    using Record = sFutPosition;
    static constexpr const char* kName = bench::kPositionsFile;
    static constexpr std::size_t kSize = 168;
    static constexpr std::size_t kField = 104;
    static constexpr auto kCallback = usePosition;

    static std::int32_t init(const char* ini) {
        return init_vdreader_futpositions(ini, "vdreader");
    }
    static std::int32_t walk() { return for_each_futposition(kCallback); }
};

template <class File>
void use(const char* record) {
    double value = 0;
    std::memcpy(&value, record + File::kField, sizeof value);
    sum.add(value);
}

template <class Walk>
void run(benchmark::State& state, Walk walk) {
    for (auto _ : state) {
        sum = {};
        walk();
        benchmark::DoNotOptimize(sum);
        if (sum.count != bench::kFlatRecords || sum.value == 0)
            state.SkipWithError("the walk is not whole");
    }
}

template <class File, class Use>
void readBlocks(const char* path, Use use) {
    constexpr std::size_t kRecords = (std::size_t{1} << 20) / File::kSize;
    std::FILE* file = std::fopen(path, "rb");
    const auto block = std::make_unique_for_overwrite<char[]>(kRecords * File::kSize);
    std::size_t count = 0;
    while ((count = std::fread(block.get(), File::kSize, kRecords, file)) > 0)
        for (std::size_t i = 0; i < count; ++i)
            use(block.get() + i * File::kSize);
    std::fclose(file);
}

template <class File>
void limit(benchmark::State& state) {
    const char* path = dataFile(File::kName).c_str();
    auto* callback = File::kCallback;
    benchmark::DoNotOptimize(callback); // a pointer that the compiler knows nothing about
    run(state, [=] {
        readBlocks<File>(path, [=](char* record) {
            return callback(reinterpret_cast<typename File::Record*>(record)) == 1;
        });
    });
}

template <class File>
void inlinePeer(benchmark::State& state) {
    const char* path = dataFile(File::kName).c_str();
    run(state, [=] { readBlocks<File>(path, use<File>); });
}

template <class File>
void ours(benchmark::State& state) {
    if (File::init(dataFile(bench::kReaderIni).c_str()) != 1)
        bench::stop(get_vdreader_error());
    run(state, [&] {
        if (File::walk() != 1)
            state.SkipWithError(get_vdreader_error());
    });
}

template <class File>
void ifstreamPeer(benchmark::State& state) {
    const char* path = dataFile(File::kName).c_str();
    run(state, [=] {
        std::ifstream file(path, std::ios::binary);
        char record[File::kSize];
        while (file.read(record, sizeof record))
            use<File>(record);
    });
}

template <class File>
void freadPeer(benchmark::State& state) {
    const char* path = dataFile(File::kName).c_str();
    run(state, [=] {
        std::FILE* file = std::fopen(path, "rb");
        char record[File::kSize];
        while (std::fread(record, sizeof record, 1, file) == 1)
            use<File>(record);
        std::fclose(file);
    });
}

template <class File>
void addBenchmarks(const std::string& path) {
    const auto add = [&](const char* name, void (*function)(benchmark::State&)) {
        benchmark::RegisterBenchmark((path + name).c_str(), function)
            ->UseRealTime()
            ->Unit(benchmark::kMicrosecond)
            ->Iterations(kWalks);
    };
    add("/limit", limit<File>);
    add("/ours", ours<File>);
    add("/inline", inlinePeer<File>);
    add("/ifstream", ifstreamPeer<File>);
    add("/fread", freadPeer<File>);
}

const bool added = [] {
    addBenchmarks<LimitsFile>("limits walk");
    addBenchmarks<PositionsFile>("positions walk");
    return true;
}();

} // namespace

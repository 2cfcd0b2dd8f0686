// Reads of 480 bytes, as much as a reader of alerts fetches at once, from places in pages that are
// mapped: one place in each iteration, at random.  In "page hit" the places lie in the four pages
// that were last turned to, in "page hit 40" in 40 pages, most of which are found by their offset.
//
//   limit  memcpy of the same bytes from a mapping of the whole file
//   ours   libn::NewFileMap::read
//   pread  pread of the same bytes
//
// "ours" is watched in a pass of its own.

#include <benchmark/benchmark.h>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "data.h"
#include "libn/fileMap.h"
#include "mappedFile.h"
#include "support.h"
#include "watch.h"

namespace {

using bench::dataFile;

constexpr std::size_t kUnit = 65536, kSize = 480, kPlaces = 4096;
constexpr std::uint64_t kMaxMemUsage = 3276800;

// None passes the end of a page.
std::vector<std::size_t> placesIn(std::size_t pages) {
    std::mt19937_64 random(pages);
    std::vector<std::size_t> places(kPlaces);
    for (std::size_t& place : places)
        place = random() % pages * kUnit + random() % (kUnit - kSize);
    return places;
}

template <class Read>
void run(benchmark::State& state, std::size_t pages, Read read) {
    const std::vector<std::size_t> places = placesIn(pages);
    char out[kSize];
    for (const std::size_t place : places)
        read(place, out);
    std::size_t next = 0;
    for (auto _ : state) {
        read(places[next], out);
        benchmark::DoNotOptimize(out);
        benchmark::ClobberMemory();
        next = (next + 1) % kPlaces;
    }
}

void limit(benchmark::State& state, std::size_t pages) {
    const bench::MappedFile file(dataFile(bench::kAlertsFile).c_str());
    run(state, pages,
        [&](std::size_t place, char* out) { std::memcpy(out, file.at(place), kSize); });
}

void ours(benchmark::State& state, std::size_t pages) {
    const bench::MappedFile file(dataFile(bench::kAlertsFile).c_str());
    libn::NewFileMap map;
    map.open(dataFile(bench::kAlertsFile), kMaxMemUsage);
    const std::vector<std::size_t> places = placesIn(pages);
    char out[kSize];
    for (const std::size_t place : places) {
        map.read(0, 1, place, kSize, out);
        if (std::memcmp(out, file.at(place), kSize) != 0)
            return state.SkipWithError("the bytes are wrong");
    }
    bench::report(state, bench::watch(kPlaces, [&](std::size_t i) {
                      map.read(0, 1, places[i], kSize, out);
                  }));
    run(state, pages, [&](std::size_t place, char* to) { map.read(0, 1, place, kSize, to); });
}

void preadPeer(benchmark::State& state, std::size_t pages) {
    const int file = ::open(dataFile(bench::kAlertsFile).c_str(), O_RDONLY | O_CLOEXEC);
    run(state, pages, [&](std::size_t place, char* out) {
        if (::pread(file, out, kSize, static_cast<off_t>(place)) != kSize)
            state.SkipWithError("bytes are missing");
    });
    ::close(file);
}

void addBenchmarks(const std::string& path, std::size_t pages) {
    const auto add = [&](const char* name, auto function) {
        benchmark::RegisterBenchmark((path + name).c_str(), function, pages)->UseRealTime();
    };
    add("/limit", limit);
    add("/ours", ours);
    add("/pread", preadPeer);
}

const bool added = [] {
    addBenchmarks("page hit", 4);
    addBenchmarks("page hit 40", 40);
    return true;
}();

} // namespace

// The latest values of 50,000 securities, one in each iteration, through the shared library; the
// classes have 128 parameters.  The securities are taken in the order of the class file, in which
// their numbers, and so their slots, stand at random.  In "last values 40" as many of each slot's
// values are set, at random, in "last values 128" all.
//
//   limit  memcpy of the 1,072 bytes behind the slot's lock word, from a mapping of the whole file
//          at a known place, in the same order
//   ours   get_sSecurityDesc_last_dynamic_params
//   LMDB   mdb_get by an integer key in a transaction that stays open, and memcpy of the value, the
//          same 1,072 bytes; nothing is sorted into integers and doubles
//   pread  the same bytes by pread at a known place
//
// Everything is in memory and was touched before.  "ours" is watched in a pass of its own.

#include <benchmark/benchmark.h>
#include <cstring>
#include <vector>

#include "data.h"
#include "database.h"
#include "mappedFile.h"
#include "support.h"
#include "vdreader/curdata.hpp"
#include "vdreader/descriptors.hpp"
#include "vdreader/dynparams.h"
#include "vdreader/readers.h"
#include "watch.h"

namespace {

using bench::dataFile;

constexpr std::size_t kFirstDataPage = 132, kDataPage = 0x30000, kBlockHead = 24, kBlockTail = 4;

struct Place {
    const sSecurityDesc* security;
    std::uint32_t secId;
    std::size_t offset; // of the slot in the file
};

std::vector<Place> places;

std::int32_t notePlace(sClassParUnitedDesc*, sSecurityDesc* security) {
    constexpr std::size_t kSlots = kDataPage / sizeof(VD_DATA_CUST);
    const std::uint32_t id = security->sec_id;
    if (id < bench::kSecurities)
        places.push_back({security, id,
                          kFirstDataPage + id / kSlots * (kBlockHead + kDataPage + kBlockTail) +
                              kBlockHead + id % kSlots * sizeof(VD_DATA_CUST)});
    return 1;
}

void load() {
    if (!places.empty())
        return;
    if (init_vdreader_classes_file(dataFile(bench::kWideClassFile).c_str()) != 1 ||
        for_each_security(notePlace) != 1)
        bench::stop(get_vdreader_error());
}

// One place in each iteration, all of them in turn.
template <class Take>
void run(benchmark::State& state, Take take) {
    load();
    for (const Place& place : places)
        take(place);
    std::size_t next = 0;
    for (auto _ : state) {
        take(places[next]);
        benchmark::ClobberMemory();
        next = next + 1 == places.size() ? 0 : next + 1;
    }
}

using Slot = char[bench::kSlotSize];

void limit(benchmark::State& state, const char* file) {
    const bench::MappedFile mapped(dataFile(file).c_str());
    Slot out;
    run(state, [&](const Place& place) {
        std::memcpy(out, mapped.at(place.offset) + bench::kSlotStart, sizeof out);
        benchmark::DoNotOptimize(out);
    });
}

// Every value that is set must have come, and nothing else.
bool isRight(const char* stored, const sLastDynParams& out) {
    VD_DATA_CUST slot;
    std::memcpy(&slot, stored, sizeof slot);
    bool right = std::memcmp(out.mask, slot.mask, sizeof out.mask) == 0;
    for (std::size_t i = 0; i < 128; ++i) {
        std::uint64_t asDouble = 0;
        std::memcpy(&asDouble, reinterpret_cast<const char*>(&out.doubles) + i * 8, 8);
        const bool isSet = (slot.mask[i / 8] >> (i % 8) & 1) != 0;
        const auto low = static_cast<std::int32_t>(slot.values[i]);
        const bool isDouble = asDouble == slot.values[i] && out.longs[i] == 0;
        const bool isLong = asDouble == 0 && out.longs[i] == low;
        right &= isSet ? isDouble || isLong : asDouble == 0 && out.longs[i] == 0;
    }
    return right;
}

void ours(benchmark::State& state, const char* file) {
    load();
    if (init_vdreader_dyn_params_file(dataFile(file).c_str()) != 1)
        bench::stop(get_vdreader_error());
    {
        const bench::MappedFile mapped(dataFile(file).c_str());
        for (const Place& place : places) {
            sLastDynParams out = {};
            if (get_sSecurityDesc_last_dynamic_params(place.security, &out) != 1 ||
                !isRight(mapped.at(place.offset), out))
                return state.SkipWithError("the values are wrong");
        }
    }
    sLastDynParams out = {};
    bench::report(state, bench::watch(places.size(), [&](std::size_t i) {
                      get_sSecurityDesc_last_dynamic_params(places[i].security, &out);
                  }));
    run(state, [&](const Place& place) {
        if (get_sSecurityDesc_last_dynamic_params(place.security, &out) != 1)
            state.SkipWithError(get_vdreader_error());
    });
}

void lmdbPeer(benchmark::State& state, const char* file) {
    bench::Database database(dataFile(file).c_str(), MDB_INTEGERKEY);
    Slot out;
    run(state, [&](const Place& place) {
        const std::string_view value = database.get(place.secId);
        if (value.size() != sizeof out)
            return state.SkipWithError("a slot is missing");
        std::memcpy(out, value.data(), sizeof out);
        benchmark::DoNotOptimize(out);
    });
}

void preadPeer(benchmark::State& state, const char* file) {
    const int opened = ::open(dataFile(file).c_str(), O_RDONLY | O_CLOEXEC);
    Slot out;
    run(state, [&](const Place& place) {
        if (::pread(opened, out, sizeof out,
                    static_cast<off_t>(place.offset + bench::kSlotStart)) != sizeof out)
            state.SkipWithError("a slot is missing");
        benchmark::DoNotOptimize(out);
    });
    ::close(opened);
}

void addBenchmarks(const std::string& path, const char* file, const char* database) {
    const auto add = [&](const char* name, auto function, const char* of) {
        benchmark::RegisterBenchmark((path + name).c_str(), function, of)->UseRealTime();
    };
    add("/limit", limit, file);
    add("/ours", ours, file);
    add("/LMDB", lmdbPeer, database);
    add("/pread", preadPeer, file);
}

const bool added = [] {
    addBenchmarks("last values 40", bench::kFewValuesFile, bench::kFewValuesDatabase);
    addBenchmarks("last values 128", bench::kAllValuesFile, bench::kAllValuesDatabase);
    return true;
}();

} // namespace

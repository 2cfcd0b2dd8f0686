// Walk of a journal of 1,000,000 change records of 80 bytes through the shared library.  Each
// record is joined to the codes of its class and security and put into the buffer of 1,597 bytes,
// from which the callback takes a letter of each code and a number of each kind.
//
//   limit  a mapping of the whole file, its pages one after the other; class codes and security
//          codes in arrays by id; the whole buffer cleared, the same fields and values copied, the
//          same callback
//   ours   for_each_dynamic_params
//   LMDB   a cursor over the records as values of a database that is kept open; a hash table of the
//          classes, in each a hash table of its securities; the same buffer and callback
//
// A walk leaves its iterator behind by design, so the number of walks is fixed.

#include <benchmark/benchmark.h>
#include <algorithm>
#include <cstring>
#include <string>
#include <unordered_map>
#include <vector>

#include "data.h"
#include "database.h"
#include "mappedFile.h"
#include "support.h"
#include "vdreader/classes.h"
#include "vdreader/curdata.hpp"
#include "vdreader/descriptors.hpp"
#include "vdreader/dynparams.h"
#include "vdreader/securities.h"

namespace {

using bench::dataFile;

constexpr int kWalks = 3; // in each repetition

// ---- callback ----

struct Sum {
    std::uint64_t letters = 0;
    std::int64_t longs = 0;
    double doubles = 0;
    std::uint64_t count = 0;

    bool operator==(const Sum&) const = default;
};

Sum sum;

std::int32_t useChange(sDynParams* change) {
    sum.letters += static_cast<unsigned char>(change->class_code[1]) +
                   static_cast<unsigned char>(change->sec_code[3]);
    sum.longs += change->longs[3];
    sum.doubles += change->doubles[1];
    ++sum.count;
    return 1;
}

// ---- codes, as the peers have them ----

struct Code {
    char text[16] = {};

    Code() = default;
    explicit Code(const char* from) { std::memcpy(text, from, ::strnlen(from, 12)); }
};

struct Codes {
    struct OfClass {
        Code code;
        std::unordered_map<std::uint32_t, Code> securities;
    };

    std::vector<Code> classes, securities; // by id
    std::unordered_map<std::int32_t, OfClass> byId;
};

Codes codes;
std::vector<Code> ownerCodes; // the class code of each security, by its id

std::int32_t noteCodes(sClassParUnitedDesc* owner, sSecurityDesc* security) {
    const std::size_t end = security->sec_id + std::size_t{1};
    codes.securities.resize(std::max(codes.securities.size(), end));
    ownerCodes.resize(codes.securities.size());
    codes.securities[security->sec_id] = Code(get_sSecurityDesc_sec_code(security));
    ownerCodes[security->sec_id] = Code(get_sClassParUnitedDesc_class_code(owner));
    return 1;
}

// No getter gives the id of a class; the records have it.
void noteClass(const ENC_DATA& head) {
    const auto classId = static_cast<std::size_t>(head.class_id);
    codes.classes.resize(std::max(codes.classes.size(), classId + 1));
    codes.classes[classId] = ownerCodes[head.sec_id];
    Codes::OfClass& found = codes.byId[head.class_id];
    found.code = ownerCodes[head.sec_id];
    found.securities[head.sec_id] = codes.securities[head.sec_id];
}

// ---- the peers' buffer ----

ENC_DATA headOf(const char* record) {
    ENC_DATA head;
    std::memcpy(&head, record, sizeof head);
    return head;
}

void fill(const char* record, const ENC_DATA& head, const Code& classCode, const Code& secCode,
          sDynParams& out) {
    std::memset(&out, 0, sizeof out);
    out.dataField1 = head.dataField1;
    out.dataField2 = head.dataField2;
    std::memcpy(out.class_code, classCode.text, 12);
    std::memcpy(out.sec_code, secCode.text, 12);
    out.dataField3 = head.dataField3;
    out.longCount = head.longCount;
    out.doubleCount = head.doubleCount;
    out.maskSize = head.maskSize;
    out.sec_id = head.sec_id;
    const char* at = record + sizeof head;
    std::memcpy(out.mask, at, std::min<std::size_t>(head.maskSize, sizeof out.mask));
    at += head.maskSize;
    std::memcpy(out.longs, at, std::min<std::size_t>(head.longCount * 4u, sizeof out.longs));
    at += head.longCount * 4u;
    std::memcpy(out.doubles, at, std::min<std::size_t>(head.doubleCount * 8u, sizeof out.doubles));
}

std::size_t sizeOf(const ENC_DATA& head) {
    return sizeof head + head.maskSize + head.longCount * 4u + head.doubleCount * 8u;
}

// ---- limit ----

// Places in the file: the first page of the journal, a page, and what a page's head tells.
constexpr std::size_t kFirstEventPage = 24 + 80, kEventPageSize = 24 + 72;
constexpr std::size_t kUsed = 8, kHead = 24, kOverhead = 28;

template <class T>
T number(const char* place) {
    T value;
    std::memcpy(&value, place, sizeof value);
    return value;
}

// Calls use(record, head) for each record, while it gives true.
template <class Use>
void walkMapped(const bench::MappedFile& file, Use use) {
    const auto size = number<std::uint32_t>(file.at(kEventPageSize));
    for (auto page = number<std::uint64_t>(file.at(kFirstEventPage));
         page + kOverhead + size <= file.size(); page += kOverhead + size) {
        const char* at = file.at(page + kHead);
        const char* const end = at + number<std::uint32_t>(file.at(page + kUsed));
        if (at == end)
            break;
        while (at != end) {
            const ENC_DATA head = headOf(at);
            if (!use(at, head))
                return;
            at += sizeOf(head);
        }
    }
}

void walkArrays(const bench::MappedFile& file, DynParamsCallback callback) {
    sDynParams buffer;
    walkMapped(file, [&](const char* record, const ENC_DATA& head) {
        const auto classId = static_cast<std::size_t>(head.class_id);
        if (classId >= codes.classes.size() || head.sec_id >= codes.securities.size())
            return true;
        fill(record, head, codes.classes[classId], codes.securities[head.sec_id], buffer);
        return callback(&buffer) == 1;
    });
}

// ---- database ----

void walkDatabase(bench::Database& database, DynParamsCallback callback) {
    sDynParams buffer;
    database.walk([&](const char* record) {
        const ENC_DATA head = headOf(record);
        const auto owner = codes.byId.find(head.class_id);
        if (owner == codes.byId.end())
            return true;
        const auto security = owner->second.securities.find(head.sec_id);
        if (security == owner->second.securities.end())
            return true;
        fill(record, head, owner->second.code, security->second, buffer);
        return callback(&buffer) == 1;
    });
}

// ---- benchmarks ----

// What every walk must come to.
Sum expected;

void load() {
    if (expected.count != 0)
        return;
    const char* journal = dataFile(bench::kJournalFile).c_str();
    if (init_vdreader_classes_file(dataFile(bench::kClassFile).c_str()) != 1 ||
        init_vdreader_dyn_params_file(journal) != 1 || for_each_security(noteCodes) != 1)
        bench::stop(get_vdreader_error());
    const bench::MappedFile file(journal);
    walkMapped(file, [](const char*, const ENC_DATA& head) {
        noteClass(head);
        return true;
    });
    sum = {};
    walkArrays(file, useChange);
    expected = sum;
}

template <class Walk>
void run(benchmark::State& state, Walk walk) {
    load();
    DynParamsCallback callback = useChange;
    benchmark::DoNotOptimize(callback); // a pointer that the compiler knows nothing about
    walk(callback); // so that nobody pays for the first touch of a mapping that stays
    for (auto _ : state) {
        sum = {};
        walk(callback);
        benchmark::DoNotOptimize(sum);
        if (sum != expected || sum.count != bench::kChanges)
            state.SkipWithError("the walk is not whole");
    }
}

void limit(benchmark::State& state) {
    const bench::MappedFile file(dataFile(bench::kJournalFile).c_str());
    run(state, [&](DynParamsCallback callback) { walkArrays(file, callback); });
}

void ours(benchmark::State& state) {
    run(state, [](DynParamsCallback callback) { for_each_dynamic_params(callback); });
}

void lmdbPeer(benchmark::State& state) {
    bench::Database database(dataFile(bench::kJournalDatabase).c_str(), MDB_INTEGERKEY);
    run(state, [&](DynParamsCallback callback) { walkDatabase(database, callback); });
}

void add(const char* name, void (*function)(benchmark::State&)) {
    benchmark::RegisterBenchmark(name, function)
        ->UseRealTime()
        ->Unit(benchmark::kMicrosecond)
        ->Iterations(kWalks);
}

const bool added = [] {
    add("change walk/limit", limit);
    add("change walk/ours", ours);
    add("change walk/LMDB", lmdbPeer);
    return true;
}();

} // namespace

// Walks of 50,000 loaded securities through the shared library, with three getters for each.
//
// "security walk" takes what a list of instruments shows: the code, the name in one language and
// the lot size; the texts are read to their ends.  "number walk" takes three plain numbers, so that
// next to nothing but the calls themselves is left.
//
//   limit  a loop over the very same structures, class by class, that reads the same three fields
//   as
//          members of SECURITY_DESC: no callback, no getter, no library
//   ours   for_each_security with a callback that calls the three getters
//   LMDB   a cursor over a database that holds the securities as values in their stored form, kept
//          open; the same three fields straight from the map

#include <benchmark/benchmark.h>
#include <lmdb.h>
#include <cstring>
#include <string>
#include <vector>

#include "data.h"
#include "support.h"
#include "vdreader/descriptors.hpp"
#include "vdreader/readers.h"
#include "vdreader/securities.h"

namespace {

using bench::dataFile;

// What is taken from the securities.
struct Sum {
    std::uint64_t letters = 0;
    double numbers = 0;
    std::uint64_t count = 0;

    void add(const char* code, const char* name, std::uint32_t lot) {
        letters += std::strlen(code) + std::strlen(name);
        numbers += lot;
        ++count;
    }
    void add(std::uint32_t lot, std::uint32_t scale, double face) {
        numbers += lot + scale + face;
        ++count;
    }

    bool operator==(const Sum&) const = default;
};

constexpr std::uint16_t kLanguage = 1;

// Securities that stand next to each other in memory: those of one class.
struct Run {
    const sClassParUnitedDesc* owner = nullptr;
    const SECURITY_DESC* first = nullptr;
    std::size_t count = 0;
};

Sum sum;
std::vector<Run> runs;

std::int32_t useTexts(sClassParUnitedDesc*, sSecurityDesc* security) {
    sum.add(get_sSecurityDesc_sec_code(security), get_sSecurityDesc_short_name(security, kLanguage),
            get_sSecurityDesc_lot_size(security));
    return 1;
}

std::int32_t useNumbers(sClassParUnitedDesc*, sSecurityDesc* security) {
    sum.add(get_sSecurityDesc_lot_size(security), get_sSecurityDesc_scale(security),
            get_sSecurityDesc_face_value(security));
    return 1;
}

std::int32_t noteRun(sClassParUnitedDesc* owner, sSecurityDesc* security) {
    if (runs.empty() || runs.back().owner != owner)
        runs.push_back({owner, security, 0});
    ++runs.back().count;
    return 1;
}

void load() {
    static bool loaded = false;
    if (loaded)
        return;
    if (init_vdreader_classes_file(dataFile(bench::kClassFile).c_str()) != 1 ||
        for_each_security(noteRun) != 1)
        bench::stop(get_vdreader_error());
    loaded = true;
}

const char* shortName(const SECURITY_DESC& security) {
    for (const SECURITY_NAME& name : security.names)
        if (name.lang == kLanguage)
            return name.short_name.c_str();
    return "";
}

void directTexts() {
    for (const Run& run : runs)
        for (const SECURITY_DESC *at = run.first, *end = at + run.count; at != end; ++at)
            sum.add(at->sec_code, shortName(*at), at->lot_size);
}

void directNumbers() {
    for (const Run& run : runs)
        for (const SECURITY_DESC *at = run.first, *end = at + run.count; at != end; ++at)
            sum.add(at->lot_size, at->scale, at->face_value);
}

// `direct` tells what every walk must come to.
template <class Walk>
void run(benchmark::State& state, void (*direct)(), Walk walk) {
    load();
    sum = {};
    direct();
    const Sum expected = sum;
    for (auto _ : state) {
        sum = {};
        walk();
        benchmark::DoNotOptimize(sum);
    }
    if (sum != expected || sum.count != bench::kSecurities)
        state.SkipWithError("the walk is not whole");
}

// ---- database ----

void check(int result) {
    if (result != MDB_SUCCESS)
        bench::stop(std::string("database: ") + mdb_strerror(result));
}

template <class T>
T number(const char* place) {
    T value;
    std::memcpy(&value, place, sizeof value);
    return value;
}

// Places in the stored form of a security.
constexpr std::size_t kCode = 4, kNameCount = 68, kNames = 72;
constexpr std::size_t kFaceValue = 40, kScale = 61, kLotSize = 67; // behind the names

void useStoredTexts(const char* stored) {
    const char *at = stored + kNames, *shortName = "";
    for (auto count = number<std::uint32_t>(stored + kNameCount); count > 0; --count) {
        const auto language = number<std::uint16_t>(at);
        at += sizeof language;
        at += sizeof(std::uint32_t) + number<std::uint32_t>(at);
        if (language == kLanguage)
            shortName = at + sizeof(std::uint32_t);
        at += sizeof(std::uint32_t) + number<std::uint32_t>(at);
    }
    sum.add(stored + kCode, shortName, number<std::uint32_t>(at + kLotSize));
}

void useStoredNumbers(const char* stored) {
    const char* at = stored + kNames;
    for (auto count = number<std::uint32_t>(stored + kNameCount); count > 0; --count) {
        at += sizeof(std::uint16_t);
        at += sizeof(std::uint32_t) + number<std::uint32_t>(at);
        at += sizeof(std::uint32_t) + number<std::uint32_t>(at);
    }
    sum.add(number<std::uint32_t>(at + kLotSize), number<std::uint16_t>(at + kScale),
            number<double>(at + kFaceValue));
}

class Database {
  public:
    explicit Database(const char* path) {
        check(mdb_env_create(&m_environment));
        check(mdb_env_open(m_environment, path, MDB_NOSUBDIR | MDB_RDONLY, 0644));
        check(mdb_txn_begin(m_environment, nullptr, MDB_RDONLY, &m_transaction));
        check(mdb_dbi_open(m_transaction, nullptr, 0, &m_database));
        check(mdb_cursor_open(m_transaction, m_database, &m_cursor));
    }
    Database(const Database&) = delete;
    Database& operator=(const Database&) = delete;
    ~Database() {
        mdb_cursor_close(m_cursor);
        mdb_txn_abort(m_transaction);
        mdb_env_close(m_environment);
    }

    template <class Use>
    void walk(Use use) {
        MDB_val key = {}, value = {};
        int result = mdb_cursor_get(m_cursor, &key, &value, MDB_FIRST);
        for (; result == MDB_SUCCESS; result = mdb_cursor_get(m_cursor, &key, &value, MDB_NEXT)) {
            const auto kind = static_cast<const std::uint8_t*>(key.mv_data)[1];
            if (kind == static_cast<std::uint8_t>(bench::ValueKind::Security))
                use(static_cast<const char*>(value.mv_data));
        }
    }

  private:
    MDB_env* m_environment = nullptr;
    MDB_txn* m_transaction = nullptr;
    MDB_dbi m_database = 0;
    MDB_cursor* m_cursor = nullptr;
};

void addBenchmarks(const std::string& path, void (*direct)(), SecurityCallback callback,
                   void (*useStored)(const char*)) {
    const auto add = [&](const char* name, auto function) {
        benchmark::RegisterBenchmark((path + name).c_str(), function)
            ->UseRealTime()
            ->Unit(benchmark::kMicrosecond);
    };
    add("/limit", [=](benchmark::State& state) { run(state, direct, direct); });
    add("/ours",
        [=](benchmark::State& state) { run(state, direct, [=] { for_each_security(callback); }); });
    add("/LMDB", [=](benchmark::State& state) {
        Database database(dataFile(bench::kDatabase).c_str());
        run(state, direct, [&] { database.walk(useStored); });
    });
}

const bool added = [] {
    addBenchmarks("security walk", directTexts, useTexts, useStoredTexts);
    addBenchmarks("number walk", directNumbers, useNumbers, useStoredNumbers);
    return true;
}();

} // namespace

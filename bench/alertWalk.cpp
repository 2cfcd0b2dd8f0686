// Walk of 100,000 alerts through the shared library; the callback takes four fields of each through
// the getters.
//
//   limit   the file opened and mapped whole, walked and unmapped: tables, heads and bodies by
//   their
//           word indexes, each alert decoded into a structure of its own, whose parts take memory
//           anew; the same callback
//   ours    for_each_alert, which opens and closes the file as well
//   kept    the limit with a mapping that stays
//   reused  the same, and one structure for all alerts, whose parts keep their memory
//   LMDB    a cursor over a database that holds the same bodies as values and is kept open; decoded
//           as in the limit
//   SQLite  one row an alert with the body in one column, a statement that is kept; decoded as in
//           the limit
//   columns one row an alert with a column for each field, a blob for each of the four parts of
//           variable size; the same structure

#include <benchmark/benchmark.h>
#include <sqlite3.h>
#include <algorithm>
#include <cstring>

#include "Alerts/sAlertDesc.h"
#include "data.h"
#include "database.h"
#include "mappedFile.h"
#include "support.h"
#include "vdreader/alerts.h"

namespace {

using bench::dataFile;

// ---- callback ----

struct Sum {
    std::uint64_t numbers = 0;
    std::uint64_t bytes = 0;
    std::uint64_t count = 0;

    bool operator==(const Sum&) const = default;
};

Sum sum;

std::int32_t useAlert(sAlertDesc* alert) {
    sum.numbers += get_sAlertDesc_type(alert) + get_sAlertDesc_send_type(alert);
    sum.bytes += get_sAlertDesc_body_size(alert) +
                 static_cast<std::uint64_t>(get_sAlertDesc_user_id_size(alert));
    ++sum.count;
    return 1;
}

// ---- the peers' decoder ----

class Cursor {
  public:
    explicit Cursor(const char* body) : m_at(body) {}

    template <class T>
    void get(T& value) {
        std::memcpy(&value, m_at, sizeof value);
        m_at += sizeof value;
    }

    template <class T>
    void get(AlertPart<T>& elements) {
        std::uint64_t count = 0;
        get(count);
        elements.resize(count);
        if (count != 0)
            std::memcpy(elements.data(), m_at, count * sizeof(T));
        m_at += count * sizeof(T);
    }

  private:
    const char* m_at;
};

void decode(const char* body, sAlertDesc& a) {
    Cursor in(body);
    in.get(a.word0), in.get(a.word1), in.get(a.word2), in.get(a.send_type), in.get(a.firm_id);
    in.get(a.type), in.get(a.perms), in.get(a.perms_ex), in.get(a.perms_ex2), in.get(a.flags);
    in.get(a.client_code), in.get(a.data_id), in.get(a.short0), in.get(a.body);
    in.get(a.body_size), in.get(a.word4), in.get(a.word3), in.get(a.word6), in.get(a.word5);
    in.get(a.quad0), in.get(a.class_codes), in.get(a.user_ids), in.get(a.quad1);
    a.send_type = std::min<std::uint8_t>(a.send_type, 7);
}

// ---- limit ----

constexpr std::uint64_t kRootWord = 3, kCountWord = 4, kTableBits = 14;

std::uint64_t word(const bench::MappedFile& file, std::uint64_t index) {
    std::uint64_t value = 0;
    std::memcpy(&value, file.at(index * sizeof value), sizeof value);
    return value;
}

// Calls use(body) for each alert, while it gives true.
template <class Use>
void walkMapped(const bench::MappedFile& file, Use use) {
    const std::uint64_t root = word(file, kRootWord), count = word(file, kCountWord);
    for (std::uint64_t i = 0; i < count; ++i) {
        const std::uint64_t table = word(file, root + (i >> kTableBits));
        const std::uint64_t head = word(file, table + (i & ((1u << kTableBits) - 1)));
        if (!use(file.at(word(file, head) * sizeof(std::uint64_t))))
            break;
    }
}

void walkFresh(const bench::MappedFile& file, AlertCallback callback) {
    walkMapped(file, [=](const char* body) {
        sAlertDesc alert;
        decode(body, alert);
        return callback(&alert) == 1;
    });
}

// ---- tables ----

class Tables {
  public:
    explicit Tables(const char* query) {
        if (sqlite3_open_v2(dataFile(bench::kAlertsTables).c_str(), &m_tables, SQLITE_OPEN_READONLY,
                            nullptr) != SQLITE_OK ||
            sqlite3_exec(m_tables, "pragma mmap_size = 1073741824", nullptr, nullptr, nullptr) !=
                SQLITE_OK ||
            sqlite3_prepare_v2(m_tables, query, -1, &m_rows, nullptr) != SQLITE_OK)
            bench::stop(std::string("database: ") + sqlite3_errmsg(m_tables));
    }
    Tables(const Tables&) = delete;
    Tables& operator=(const Tables&) = delete;
    ~Tables() {
        sqlite3_finalize(m_rows);
        sqlite3_close(m_tables);
    }

    // Calls use(row) for all rows, while it gives true.
    template <class Use>
    void walk(Use use) {
        while (sqlite3_step(m_rows) == SQLITE_ROW && use(m_rows)) {
        }
        sqlite3_reset(m_rows);
    }

  private:
    sqlite3* m_tables = nullptr;
    sqlite3_stmt* m_rows = nullptr;
};

class Columns {
  public:
    explicit Columns(sqlite3_stmt* row) : m_row(row) {}

    template <class T>
    void get(T& value) {
        value = static_cast<T>(sqlite3_column_int64(m_row, m_next++));
    }

    template <std::size_t Size>
    void get(char (&text)[Size]) {
        const unsigned char* stored = sqlite3_column_text(m_row, m_next);
        const auto size = static_cast<std::size_t>(sqlite3_column_bytes(m_row, m_next++));
        std::memset(text, 0, Size);
        std::memcpy(text, stored, std::min(size, Size));
    }

    template <class T>
    void get(AlertPart<T>& elements) {
        const void* bytes = sqlite3_column_blob(m_row, m_next);
        const auto size = static_cast<std::size_t>(sqlite3_column_bytes(m_row, m_next++));
        elements.resize(size / sizeof(T));
        if (size != 0)
            std::memcpy(elements.data(), bytes, size);
    }

  private:
    sqlite3_stmt* m_row;
    int m_next = 0;
};

void decodeColumns(sqlite3_stmt* row, sAlertDesc& a) {
    Columns in(row);
    std::uint16_t sendType = 0;
    in.get(a.word0), in.get(a.word1), in.get(a.word2), in.get(sendType), in.get(a.firm_id);
    in.get(a.type), in.get(a.perms), in.get(a.perms_ex), in.get(a.perms_ex2), in.get(a.flags);
    in.get(a.client_code), in.get(a.data_id), in.get(a.short0), in.get(a.body);
    in.get(a.body_size), in.get(a.word4), in.get(a.word3), in.get(a.word6), in.get(a.word5);
    in.get(a.quad0), in.get(a.class_codes), in.get(a.user_ids), in.get(a.quad1);
    a.send_type = static_cast<std::uint8_t>(std::min<std::uint16_t>(sendType, 7));
}

// ---- benchmarks ----

template <class Walk>
void run(benchmark::State& state, Walk walk) {
    static Sum expected;
    if (expected.count == 0) {
        sum = {};
        walkFresh(bench::MappedFile(dataFile(bench::kAlertsFile).c_str()), useAlert);
        expected = sum;
    }
    AlertCallback callback = useAlert;
    benchmark::DoNotOptimize(callback); // a pointer that the compiler knows nothing about
    bench::keepFreedMemory();
    walk(callback); // so that nobody pays for the first touch of a mapping that stays
    for (auto _ : state) {
        sum = {};
        walk(callback);
        benchmark::DoNotOptimize(sum);
        if (sum != expected || sum.count != bench::kAlerts)
            state.SkipWithError("the walk is not whole");
    }
}

void limit(benchmark::State& state) {
    run(state, [](AlertCallback callback) {
        walkFresh(bench::MappedFile(dataFile(bench::kAlertsFile).c_str()), callback);
    });
}

void kept(benchmark::State& state) {
    const bench::MappedFile file(dataFile(bench::kAlertsFile).c_str());
    run(state, [&](AlertCallback callback) { walkFresh(file, callback); });
}

void reused(benchmark::State& state) {
    const bench::MappedFile file(dataFile(bench::kAlertsFile).c_str());
    run(state, [&](AlertCallback callback) {
        sAlertDesc alert;
        walkMapped(file, [&](const char* body) {
            decode(body, alert);
            return callback(&alert) == 1;
        });
    });
}

void ours(benchmark::State& state) {
    if (init_vdreader_classes_file(dataFile(bench::kOneClassFile).c_str()) != 1 ||
        init_vdreader_alerts(dataFile(bench::kReaderIni).c_str(), "vdreader") != 1)
        bench::stop(get_vdreader_error());
    run(state, [](AlertCallback callback) { for_each_alert(callback); });
}

void lmdbPeer(benchmark::State& state) {
    bench::Database database(dataFile(bench::kAlertsDatabase).c_str(), MDB_INTEGERKEY);
    run(state, [&](AlertCallback callback) {
        database.walk([=](const char* body) {
            sAlertDesc alert;
            decode(body, alert);
            return callback(&alert) == 1;
        });
    });
}

void sqlitePeer(benchmark::State& state) {
    Tables tables("select body from stored order by number");
    run(state, [&](AlertCallback callback) {
        tables.walk([=](sqlite3_stmt* row) {
            sAlertDesc alert;
            decode(static_cast<const char*>(sqlite3_column_blob(row, 0)), alert);
            return callback(&alert) == 1;
        });
    });
}

void columnsPeer(benchmark::State& state) {
    Tables tables(
        "select word0, word1, word2, send_type, firm_id, type, perms, perms_ex, perms_ex2, flags, "
        "client_code, data_id, short0, body, body_size, word4, word3, word6, word5, quad0, "
        "class_codes, user_ids, quad1 from fields order by number");
    run(state, [&](AlertCallback callback) {
        tables.walk([=](sqlite3_stmt* row) {
            sAlertDesc alert;
            decodeColumns(row, alert);
            return callback(&alert) == 1;
        });
    });
}

void add(const char* name, void (*function)(benchmark::State&)) {
    benchmark::RegisterBenchmark(name, function)->UseRealTime()->Unit(benchmark::kMicrosecond);
}

const bool added = [] {
    add("alert walk/limit", limit);
    add("alert walk/ours", ours);
    add("alert walk/kept", kept);
    add("alert walk/reused", reused);
    add("alert walk/LMDB", lmdbPeer);
    add("alert walk/SQLite", sqlitePeer);
    add("alert walk/columns", columnsPeer);
    return true;
}();

} // namespace

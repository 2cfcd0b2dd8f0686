// From the store of one process to the eye of another: this process on the first processor stores a
// number, the other one on the second waits until it sees it and stores the same number elsewhere,
// and this one waits for that.  The time is half of such a round, the median of many, so that it
// stays the same where others use the processors too.  Stores go, as a server's, through a mapping
// of the whole file; how the other side sees them differs:
//
//   limit  each number in a cache line of its own in a plain shared mapping, read there
//   ours   in a slot of data.vd, read in place through TCurrentData::GetDataCust at each look
//   last   the same slots, read by get_sSecurityDesc_last_dynamic_params, which copies all values
//   pread  the same slots, pread at each look
//   LMDB   two keys of a database without syncing, each store a transaction, each look another

#include <benchmark/benchmark.h>
#include <sched.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>

#include "data.h"
#include "database.h"
#include "mappedFile.h"
#include "support.h"
#include "vdreader/curdata.hpp"
#include "vdreader/descriptors.hpp"
#include "vdreader/dynparams.h"
#include "vdreader/readers.h"

namespace {

using bench::dataFile;

// The two sides: each stores in its own place and looks at that of the other.
enum Side { kHere = 0, kThere = 1 };

constexpr std::uint32_t kEnd = ~std::uint32_t{0};
constexpr int kIterations = 10, kBatches = 401, kRounds = 8;

// ---- ways to store and to look ----

volatile std::uint32_t* wordAt(char* place) {
    return reinterpret_cast<volatile std::uint32_t*>(place);
}

class CacheLine {
  public:
    CacheLine(Side side, char* shared)
        : m_own(wordAt(shared + 4096 * side)), m_other(wordAt(shared + 4096 * !side)) {}

    void store(std::uint32_t number) { *m_own = number; }
    std::uint32_t look() { return *m_other; }

  private:
    volatile std::uint32_t* m_own;
    volatile std::uint32_t* m_other;
};

// The places of a slot's values in the file.
constexpr std::size_t kFirstDataPage = 132, kBlockHead = 24, kParam = 3;
constexpr std::int32_t kSlots[] = {20, 40};

constexpr std::size_t valueOffset(Side side) {
    return kFirstDataPage + kBlockHead + kSlots[side] * sizeof(VD_DATA_CUST) +
           offsetof(VD_DATA_CUST, values) + kParam * sizeof(std::uint64_t);
}
static_assert(valueOffset(kHere) % 4 == 0 && valueOffset(kThere) % 4 == 0);

// The storing half of those that work on data.vd.
class Slots {
  public:
    explicit Slots(Side side) : m_file(path()), m_own(wordAt(m_file.at(valueOffset(side)))) {}

    void store(std::uint32_t number) { *m_own = number; }
    static const char* path() { return dataFile(bench::kAllValuesFile).c_str(); }

  private:
    bench::MappedFile m_file;
    volatile std::uint32_t* m_own;
};

class InPlace : public Slots {
  public:
    InPlace(Side side, char*) : Slots(side), m_slot(kSlots[!side]) {
        m_data.Init(path(), false);
        m_data.LoadData();
    }

    std::uint32_t look() {
        char* slot = reinterpret_cast<char*>(m_data.GetDataCust(m_slot));
        return *wordAt(slot + offsetof(VD_DATA_CUST, values) + kParam * sizeof(std::uint64_t));
    }

  private:
    TCurrentData m_data;
    std::int32_t m_slot;
};

class LastValues : public Slots {
  public:
    LastValues(Side side, char*) : Slots(side) {
        if (init_vdreader_classes_file(dataFile(bench::kWideClassFile).c_str()) != 1 ||
            init_vdreader_dyn_params_file(path()) != 1)
            bench::stop(get_vdreader_error());
        wanted = static_cast<std::uint32_t>(kSlots[!side]);
        for_each_security(find);
        if (found == nullptr)
            bench::stop("the security is missing");
    }

    std::uint32_t look() {
        get_sSecurityDesc_last_dynamic_params(found, &m_out);
        // Either of them stays 0: the parameter has one kind.
        std::uint32_t asLong = 0, asDouble = 0;
        std::memcpy(&asLong, reinterpret_cast<const char*>(&m_out.longs) + kParam * 4, 4);
        std::memcpy(&asDouble, reinterpret_cast<const char*>(&m_out.doubles) + kParam * 8, 4);
        return asLong | asDouble;
    }

  private:
    static std::int32_t find(sClassParUnitedDesc*, sSecurityDesc* security) {
        if (security->sec_id != wanted)
            return 1;
        found = security;
        return 2;
    }

    static std::uint32_t wanted;
    static const sSecurityDesc* found;

    sLastDynParams m_out = {};
};

std::uint32_t LastValues::wanted = 0;
const sSecurityDesc* LastValues::found = nullptr;

class Pread : public Slots {
  public:
    Pread(Side side, char*)
        : Slots(side),
          m_file(::open(path(), O_RDONLY | O_CLOEXEC)),
          m_place(static_cast<off_t>(valueOffset(static_cast<Side>(!side)))) {}
    Pread(const Pread&) = delete;
    Pread& operator=(const Pread&) = delete;
    ~Pread() { ::close(m_file); }

    std::uint32_t look() {
        std::uint32_t number = 0;
        if (::pread(m_file, &number, sizeof number, m_place) != sizeof number)
            bench::stop("a slot is missing");
        return number;
    }

  private:
    int m_file;
    off_t m_place;
};

class Transactions {
  public:
    Transactions(Side side, char*) : m_side(side) {
        using bench::checkDatabase;
        checkDatabase(mdb_env_create(&m_environment));
        checkDatabase(mdb_env_open(m_environment, path().c_str(),
                                   MDB_NOSUBDIR | MDB_NOSYNC | MDB_WRITEMAP, 0644));
        MDB_txn* opening = nullptr;
        checkDatabase(mdb_txn_begin(m_environment, nullptr, 0, &opening));
        checkDatabase(mdb_dbi_open(opening, nullptr, MDB_INTEGERKEY, &m_table));
        checkDatabase(mdb_txn_commit(opening));
        checkDatabase(mdb_txn_begin(m_environment, nullptr, MDB_RDONLY, &m_looking));
        mdb_txn_reset(m_looking);
        store(0);
    }
    Transactions(const Transactions&) = delete;
    Transactions& operator=(const Transactions&) = delete;
    ~Transactions() {
        mdb_txn_abort(m_looking);
        mdb_env_close(m_environment);
    }

    void store(std::uint32_t number) {
        MDB_txn* storing = nullptr;
        bench::checkDatabase(mdb_txn_begin(m_environment, nullptr, 0, &storing));
        MDB_val name = key(m_side), value = {sizeof number, &number};
        bench::checkDatabase(mdb_put(storing, m_table, &name, &value, 0));
        bench::checkDatabase(mdb_txn_commit(storing));
    }

    std::uint32_t look() {
        std::uint32_t number = 0;
        MDB_val name = key(!m_side), value = {};
        bench::checkDatabase(mdb_txn_renew(m_looking));
        if (mdb_get(m_looking, m_table, &name, &value) == MDB_SUCCESS)
            std::memcpy(&number, value.mv_data, sizeof number);
        mdb_txn_reset(m_looking);
        return number;
    }

    // Made anew by the first process.
    static std::string path() { return dataFile(bench::kAllValuesDatabase) + ".stored"; }

  private:
    static MDB_val key(int side) {
        static std::uint32_t keys[] = {0, 1};
        return {sizeof keys[0], &keys[side]};
    }

    Side m_side;
    MDB_env* m_environment = nullptr;
    MDB_dbi m_table = 0;
    MDB_txn* m_looking = nullptr;
};

// ---- the two processes ----

void pinTo(int processor) {
    cpu_set_t set;
    CPU_ZERO(&set);
    CPU_SET(processor, &set);
    if (::sched_setaffinity(0, sizeof set, &set) != 0)
        bench::stop("two processors are needed");
}

struct Shared {
    char lines[2 * 4096];
    std::atomic<int> isReady;
};

// The other process: says every number again.
template <class Way>
[[noreturn]] void answer(Shared* shared) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    pinTo(1);
    try {
        Way way(kThere, shared->lines);
        way.store(0);
        shared->isReady = 1;
        while (shared->isReady != 2) {
        }
        std::uint32_t last = 0;
        while (last != kEnd) {
            const std::uint32_t seen = way.look();
            if (seen != last) {
                way.store(seen);
                last = seen;
            }
        }
    } catch (const std::exception& failure) {
        bench::stop(failure.what());
    }
    ::_exit(0);
}

// In seconds.
template <class Way>
double medianRound(Way& way, std::uint32_t& number) {
    using Clock = std::chrono::steady_clock;
    std::array<double, kBatches> times;
    for (double& time : times) {
        const Clock::time_point start = Clock::now();
        for (int round = 0; round < kRounds; ++round) {
            way.store(++number);
            while (way.look() != number) {
            }
        }
        time = std::chrono::duration<double>(Clock::now() - start).count() / kRounds;
    }
    std::nth_element(times.begin(), times.begin() + kBatches / 2, times.end());
    return times[kBatches / 2];
}

template <class Way>
void run(benchmark::State& state) {
    pinTo(0);
    void* memory =
        ::mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    auto* shared = new (memory) Shared{};
    std::filesystem::remove(Transactions::path());
    std::filesystem::remove(Transactions::path() + "-lock");
    const pid_t other = ::fork();
    if (other == 0)
        answer<Way>(shared);
    {
        while (shared->isReady != 1)
            if (::waitpid(other, nullptr, WNOHANG) != 0)
                bench::stop("the other process has ended");
        Way way(kHere, shared->lines);
        way.store(0);
        shared->isReady = 2;
        std::uint32_t number = 0;
        for (auto _ : state)
            state.SetIterationTime(medianRound(way, number) / 2);
        way.store(kEnd);
        ::waitpid(other, nullptr, 0);
    }
    ::munmap(memory, sizeof(Shared));
}

void add(const char* name, void (*function)(benchmark::State&)) {
    benchmark::RegisterBenchmark(name, function)->UseManualTime()->Iterations(kIterations);
}

const bool added = [] {
    add("store to eye/limit", run<CacheLine>);
    add("store to eye/ours", run<InPlace>);
    add("store to eye/last", run<LastValues>);
    add("store to eye/pread", run<Pread>);
    add("store to eye/LMDB", run<Transactions>);
    return true;
}();

} // namespace

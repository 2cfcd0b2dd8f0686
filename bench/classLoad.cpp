// Load of class.vd: 50,000 securities in 20 classes, two names each, 40 parameters a class.
//
//   limit     the whole file read into a buffer that is at hand, and copied once into new memory
//   ours      init_vdreader_classes_file
//   ifstream  the same structures and indexes, one std::ifstream::read for each field
//   LMDB      the same structures and indexes, from a database that holds every class, security and
//             parameter as one value in its stored form: environment opened, one cursor over all
//             values, fields copied out of the map, environment closed
//
// Every load starts with a fresh heap and an empty model.  Releasing what was loaded is not timed.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <lmdb.h>
#include <sys/stat.h>
#include <unistd.h>
#include <cstring>
#include <fstream>
#include <memory>

#include "Classes/classModel.h"
#include "data.h"
#include "fieldReader.h"
#include "support.h"
#include "vdreader/readers.h"

namespace {

using bench::dataFile;

// ---- limit ----

using Bytes = std::unique_ptr<char[]>;

Bytes readAndCopy(const char* path, std::vector<char>& buffer) {
    const int file = ::open(path, O_RDONLY | O_CLOEXEC);
    struct stat status = {};
    if (file < 0 || ::fstat(file, &status) != 0)
        bench::stop(std::string("cannot read ") + path);
    const auto size = static_cast<std::size_t>(status.st_size);
    buffer.resize(size);
    for (std::size_t done = 0; done < size;) {
        const ssize_t count = ::read(file, buffer.data() + done, size - done);
        if (count <= 0)
            bench::stop(std::string("cannot read ") + path);
        done += static_cast<std::size_t>(count);
    }
    ::close(file);
    Bytes memory = std::make_unique_for_overwrite<char[]>(size);
    std::memcpy(memory.get(), buffer.data(), size);
    return memory;
}

// ---- the peers' model: that of the library ----

struct Model {
    std::vector<sClassParUnitedDesc> classes;
    boost::unordered_flat_map<std::int32_t, std::uint32_t> index;

    void append(sClassParUnitedDesc&& loaded) {
        loaded.securityIndex.reserve(loaded.securities.size());
        for (std::uint32_t i = 0; i < loaded.securities.size(); ++i)
            loaded.securityIndex.try_emplace(loaded.securities[i].sec_id, i);
        index.try_emplace(loaded.desc.classId, static_cast<std::uint32_t>(classes.size()));
        classes.push_back(std::move(loaded));
    }
};

// What every load must have brought; a peer that reads less is no peer.
void checkLoaded(benchmark::State& state, const std::vector<sClassParUnitedDesc>& classes) {
    std::size_t securities = 0, params = 0, names = 0;
    for (const sClassParUnitedDesc& loaded : classes) {
        securities += loaded.securityIndex.size();
        params += loaded.params.size();
        for (const SECURITY_DESC& security : loaded.securities)
            names += security.names.size() == 2 && !security.names[1].long_name.empty();
    }
    if (securities != bench::kSecurities || names != securities || params != 40 * bench::kClasses)
        state.SkipWithError("the load is not whole");
}

// ---- one read for each field ----

class FieldStream {
  public:
    explicit FieldStream(const char* path) : m_stream(path, std::ios::binary) {}

    template <class T>
    void get(T& value) {
        m_stream.read(reinterpret_cast<char*>(&value), sizeof value);
    }

    void text(std::string& out) {
        std::uint32_t length = 0;
        get(length);
        if (length == 0)
            return;
        char bytes[4096];
        m_stream.read(bytes, std::min<std::size_t>(length, sizeof bytes));
        if (m_stream)
            out.assign(bytes, ::strnlen(bytes, length));
    }

    void seek(std::uint64_t position) { m_stream.seekg(static_cast<std::streamoff>(position)); }
    void skip(std::size_t size) { m_stream.ignore(static_cast<std::streamsize>(size)); }

  private:
    std::ifstream m_stream;
};

Model loadByFields(const char* path) {
    FieldStream stream(path);
    stream.skip(ClassStorage::kHeadSize + sizeof(std::uint32_t));
    std::uint32_t count = 0;
    stream.get(count);
    const std::uint64_t records =
        ClassStorage::kHeadSize + sizeof(std::uint32_t) + ClassStorage::kInfoSize;
    Model model;
    for (std::uint32_t i = 0; i < count; ++i) {
        sClassParUnitedDesc loaded;
        stream.seek(records + i * sizeof(STORE_CLASS_DESC));
        stream.get(loaded.desc);
        std::uint32_t size = 0;
        stream.seek(loaded.desc.securitiesOffset);
        stream.get(size);
        loaded.securities.reserve(static_cast<std::size_t>(loaded.desc.securitiesCount));
        for (std::int32_t n = 0; n < loaded.desc.securitiesCount; ++n)
            bench::readSecurity(stream, loaded.securities.emplace_back());
        stream.seek(loaded.desc.paramsOffset);
        stream.get(size);
        loaded.params.reserve(static_cast<std::size_t>(loaded.desc.paramsCount));
        for (std::int32_t n = 0; n < loaded.desc.paramsCount; ++n)
            bench::readParam(stream, loaded.params.emplace_back());
        model.append(std::move(loaded));
    }
    return model;
}

// ---- database ----

void check(int result) {
    if (result != MDB_SUCCESS)
        bench::stop(std::string("database: ") + mdb_strerror(result));
}

// The bytes of one value.
class ValueCursor {
  public:
    explicit ValueCursor(const MDB_val& value) : m_at(static_cast<const char*>(value.mv_data)) {}

    template <class T>
    void get(T& value) {
        std::memcpy(&value, m_at, sizeof value);
        m_at += sizeof value;
    }

    void text(std::string& out) {
        std::uint32_t length = 0;
        get(length);
        if (length != 0)
            out.assign(m_at, ::strnlen(m_at, length));
        m_at += length;
    }

  private:
    const char* m_at;
};

void readValue(const MDB_val& key, const MDB_val& value, sClassParUnitedDesc& current) {
    ValueCursor in(value);
    switch (static_cast<bench::ValueKind>(static_cast<const std::uint8_t*>(key.mv_data)[1])) {
        case bench::ValueKind::Class:
            in.get(current.desc);
            current.securities.reserve(static_cast<std::size_t>(current.desc.securitiesCount));
            current.params.reserve(static_cast<std::size_t>(current.desc.paramsCount));
            break;
        case bench::ValueKind::Security:
            bench::readSecurity(in, current.securities.emplace_back());
            break;
        case bench::ValueKind::Param:
            bench::readParam(in, current.params.emplace_back());
            break;
    }
}

Model loadFromDatabase(const char* path) {
    MDB_env* environment = nullptr;
    MDB_txn* transaction = nullptr;
    MDB_dbi database = 0;
    MDB_cursor* cursor = nullptr;
    check(mdb_env_create(&environment));
    check(mdb_env_open(environment, path, MDB_NOSUBDIR | MDB_RDONLY, 0644));
    check(mdb_txn_begin(environment, nullptr, MDB_RDONLY, &transaction));
    check(mdb_dbi_open(transaction, nullptr, 0, &database));
    check(mdb_cursor_open(transaction, database, &cursor));

    Model model;
    sClassParUnitedDesc current;
    int classNumber = 0;
    MDB_val key = {}, value = {};
    int result = mdb_cursor_get(cursor, &key, &value, MDB_FIRST);
    for (; result == MDB_SUCCESS; result = mdb_cursor_get(cursor, &key, &value, MDB_NEXT)) {
        if (const int number = *static_cast<const std::uint8_t*>(key.mv_data);
            number != classNumber) {
            model.append(std::move(current));
            current = {};
            classNumber = number;
        }
        readValue(key, value, current);
    }
    model.append(std::move(current));

    mdb_cursor_close(cursor);
    mdb_txn_abort(transaction);
    mdb_env_close(environment);
    return model;
}

// ---- benchmarks ----

// Times one call of `load`; what it gives is checked by `finish` and released outside the time.
template <class Load, class Finish>
void run(benchmark::State& state, Load load, Finish finish) {
    for (auto _ : state) {
        state.PauseTiming();
        bench::startWithFreshHeap();
        state.ResumeTiming();
        auto loaded = load();
        benchmark::DoNotOptimize(loaded);
        benchmark::ClobberMemory();
        state.PauseTiming();
        finish(loaded);
        { const auto released = std::move(loaded); }
        state.ResumeTiming();
    }
}

void limit(benchmark::State& state) {
    const char* path = dataFile(bench::kClassFile).c_str();
    std::vector<char> buffer;
    readAndCopy(path, buffer);
    run(
        state, [&] { return readAndCopy(path, buffer); }, [](const Bytes&) {});
}

void ours(benchmark::State& state) {
    const char* path = dataFile(bench::kClassFile).c_str();
    const char* oneClass = dataFile(bench::kOneClassFile).c_str();
    for (auto _ : state) {
        state.PauseTiming();
        init_vdreader_classes_file(oneClass); // takes the place of the model loaded before
        bench::startWithFreshHeap();
        state.ResumeTiming();
        if (init_vdreader_classes_file(path) != 1)
            state.SkipWithError(get_vdreader_error());
    }
}

void ifstreamPeer(benchmark::State& state) {
    const char* path = dataFile(bench::kClassFile).c_str();
    run(
        state, [=] { return loadByFields(path); },
        [&](const Model& model) { checkLoaded(state, model.classes); });
}

void lmdbPeer(benchmark::State& state) {
    const char* path = dataFile(bench::kDatabase).c_str();
    run(
        state, [=] { return loadFromDatabase(path); },
        [&](const Model& model) { checkLoaded(state, model.classes); });
}

BENCHMARK(limit)->Name("class load/limit")->UseRealTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(ours)->Name("class load/ours")->UseRealTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(ifstreamPeer)->Name("class load/ifstream")->UseRealTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(lmdbPeer)->Name("class load/LMDB")->UseRealTime()->Unit(benchmark::kMicrosecond);

} // namespace

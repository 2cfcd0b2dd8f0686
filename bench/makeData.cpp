// vdreader_bench_data FOLDER: writes the files that the benchmarks read, unless they are there.
//
// class.vd, flimit.vd and fclipos.vd come from the sample writer; the ini file is made here; the
// database holds the classes, securities and parameters of class.vd, each as one value in its
// stored form.

#include <lmdb.h>
#include <filesystem>
#include <iostream>
#include <stdexcept>

#include "data.h"
#include "sample/classFile.h"
#include "sample/futuresFiles.h"
#include "sample/market.h"
#include "sample/output.h"

namespace {

namespace fs = std::filesystem;

std::string encodeSettings() {
    std::string text = "; settings of many servers\r\n";
    for (int section = 0; section < bench::kIniSections; ++section) {
        text += "\r\n[" + bench::iniSection(section) + "]\r\n";
        for (int key = 0; key < bench::kIniKeys; ++key)
            text += bench::iniKey(key) + " = D:\\Servers\\" + std::to_string(section) +
                    "\\Data\\Store" + std::to_string(key) + "\r\n";
    }
    return text;
}

void check(int result) {
    if (result != MDB_SUCCESS)
        throw std::runtime_error(std::string("database: ") + mdb_strerror(result));
}

class DatabaseWriter {
  public:
    explicit DatabaseWriter(const fs::path& path) {
        check(mdb_env_create(&m_environment));
        check(mdb_env_set_mapsize(m_environment, std::size_t{256} << 20));
        check(mdb_env_open(m_environment, path.c_str(), MDB_NOSUBDIR, 0644));
        check(mdb_txn_begin(m_environment, nullptr, 0, &m_transaction));
        check(mdb_dbi_open(m_transaction, nullptr, 0, &m_database));
    }
    DatabaseWriter(const DatabaseWriter&) = delete;
    DatabaseWriter& operator=(const DatabaseWriter&) = delete;
    ~DatabaseWriter() { mdb_env_close(m_environment); }

    // Keys come in ascending order, so the pages are filled whole.
    void add(bench::DatabaseKey key, const std::string& bytes) {
        MDB_val name = {sizeof key.bytes, key.bytes};
        MDB_val value = {bytes.size(), const_cast<char*>(bytes.data())};
        check(mdb_put(m_transaction, m_database, &name, &value, MDB_APPEND));
    }

    void commit() { check(mdb_txn_commit(m_transaction)); }

  private:
    MDB_env* m_environment = nullptr;
    MDB_txn* m_transaction = nullptr;
    MDB_dbi m_database = 0;
};

void writeDatabase(const fs::path& path, const std::vector<sample::ClassRecord>& classes,
                   const std::string& classFile) {
    using bench::ValueKind;
    DatabaseWriter writer(path);
    for (std::uint8_t number = 0; number < classes.size(); ++number) {
        const std::size_t record = sample::kRecordsOffset + number * sample::kClassRecordSize;
        writer.add({number, ValueKind::Class, 0},
                   classFile.substr(record, sample::kClassRecordSize));
        std::uint32_t i = 0;
        for (const sample::Security& security : classes[number].securities)
            writer.add({number, ValueKind::Security, i++}, sample::encodeSecurity(security));
        i = 0;
        for (const sample::Param& param : classes[number].params)
            writer.add({number, ValueKind::Param, i++}, sample::encodeParam(param));
    }
    writer.commit();
}

void writeAll(const fs::path& folder) {
    sample::MarketOptions options;
    options.classes = bench::kClasses;
    options.securities = bench::kSecurities;
    options.params = 40;
    options.names = 2;
    options.limits = bench::kFlatRecords;
    options.positions = bench::kFlatRecords;
    const sample::Market market = sample::makeMarket(options);

    const std::string classFile = sample::encodeClassFile(market.classes);
    sample::writeFile(folder / bench::kClassFile, classFile);
    sample::ClassRecord one = market.classes.front();
    one.securities.clear();
    sample::writeFile(folder / bench::kOneClassFile, sample::encodeClassFile({one}));
    sample::writeFile(folder / bench::kLimitsFile, sample::encodeFutLimits(market.limits));
    sample::writeFile(folder / bench::kPositionsFile, sample::encodeFutPositions(market.positions));
    sample::writeFile(folder / bench::kReaderIni, sample::encodeIni(fs::absolute(folder)));
    sample::writeFile(folder / bench::kIniFile, encodeSettings());
    writeDatabase(folder / bench::kDatabase, market.classes, classFile);
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::cerr << "usage: vdreader_bench_data FOLDER\n";
        return 2;
    }
    try {
        // Written last: data of an earlier or broken run are not taken for whole ones.
        const fs::path folder = argv[1], done = folder / "done";
        if (fs::exists(done) && fs::last_write_time(done) >= fs::last_write_time(argv[0]))
            return 0;
        fs::remove_all(folder);
        fs::create_directories(folder);
        writeAll(folder);
        sample::writeFile(done, "");
    } catch (const std::exception& failure) {
        std::cerr << failure.what() << '\n';
        return 1;
    }
    return 0;
}

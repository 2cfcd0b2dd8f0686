// vdreader_bench_data FOLDER: writes the files that the benchmarks read, unless they are there.
//
// class.vd, flimit.vd and fclipos.vd come from the sample writer; the ini file is made here; the
// database holds the classes, securities and parameters of class.vd, each as one value in its
// stored form.  makeMappedData.cpp writes the files that are mapped.

#include <filesystem>
#include <iostream>

#include "data.h"
#include "database.h"
#include "makeData.h"
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

void writeDatabase(const fs::path& path, const std::vector<sample::ClassRecord>& classes,
                   const std::string& classFile) {
    using bench::ValueKind;
    using Key = bench::DatabaseKey;
    bench::DatabaseWriter writer(path.c_str());
    for (std::uint8_t number = 0; number < classes.size(); ++number) {
        const std::size_t record = sample::kRecordsOffset + number * sample::kClassRecordSize;
        writer.add(Key{number, ValueKind::Class, 0},
                   classFile.substr(record, sample::kClassRecordSize));
        std::uint32_t i = 0;
        for (const sample::Security& security : classes[number].securities)
            writer.add(Key{number, ValueKind::Security, i++}, sample::encodeSecurity(security));
        i = 0;
        for (const sample::Param& param : classes[number].params)
            writer.add(Key{number, ValueKind::Param, i++}, sample::encodeParam(param));
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
    options.slots = false;
    options.changes = 0;
    options.alerts = bench::kAlerts;
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
    bench::writeMappedFiles(folder, market);
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

// The journal of data.vd, appended to and walked at the same time.

#include <cstdio>
#include <cstring>
#include <exception>
#include <limits>
#include <string>
#include <string_view>
#include <thread>

#include "live/dataWriter.h"
#include "live/pattern.h"
#include "roles.h"
#include "vdreader/curdata.hpp"
#include "vdreader/vdreader.h"

namespace {

constexpr int kRecordsEachPause = 30;

// The pauses become a millisecond longer each time that so many records stand: a walk goes on for
// as long as there is more, so a machine of any speed must come to the end of the journal.
constexpr std::uint64_t kRecordsBetweenPaces = 10'000;

// At least three pages of the size that servers use, and hundreds of small ones.
constexpr std::int32_t kEnoughRecords = 5'000;

// The walk that is going on.  Records up to `known` were there when it began and come without a
// gap.  A page is read as a copy: what the server puts behind that copy before it opens the next
// page is left out by this walk and seen by the next one.
struct Walk {
    std::int32_t known = 0;
    std::int32_t first = 0;
    std::int32_t last = 0;
    std::uint64_t records = 0;
    const char* failure = nullptr;

    void take(const live::SeenRecord& record) {
        if (!live::isPattern(record))
            failure = "a record that is not whole";
        else if (records != 0 && record.dataField1 <= last)
            failure = "a record twice or out of its order";
        else if (records != 0 && record.dataField1 != last + 1 && last < known)
            failure = "a record was left out in front of";
        if (records++ == 0)
            first = record.dataField1;
        last = record.dataField1;
    }
};

Walk walk;

std::int32_t takeJoined(sDynParams* record) {
    walk.take({record->dataField1, record->dataField2, record->dataField3, record->maskSize,
               record->longCount, record->doubleCount, record->mask, record->longs,
               record->doubles});
    return walk.failure == nullptr ? 1 : 0;
}

void walkIterator(TCurrentData& data) {
    DwDataIFaces::ICurDataIterator iterator(new ICurData{&data});
    for (const ENC_DATA* record = iterator.Begin(0); record != nullptr && walk.failure == nullptr;
         record = iterator.Next()) {
        const char* payload = reinterpret_cast<const char*>(record) + sizeof *record;
        walk.take({record->dataField1, record->dataField2, record->dataField3, record->maskSize,
                   record->longCount, record->doubleCount, payload, payload + record->maskSize,
                   payload + record->maskSize + 4 * record->longCount});
    }
}

// Both readers of the journal, open.  A load that the writer's growth of the file overtakes fails;
// the next one finds the file as it is.
bool load(TCurrentData& data, const std::string& folder) {
    constexpr int kMostLoads = 10;
    const std::string name = folder + "/data.vd";
    const auto overtaken = [](std::string_view text) {
        return text.find("MappableStorageFile mapPtr") != std::string_view::npos;
    };
    if (init_vdreader_classes_file((folder + "/class.vd").c_str()) != 1)
        return false;
    for (int loads = 1; init_vdreader_dyn_params_file(name.c_str()) != 1; ++loads)
        if (loads == kMostLoads || !overtaken(get_vdreader_error()))
            return false;
    for (int loads = 1;; ++loads) {
        try {
            data.Init(name.c_str(), false);
            data.LoadData();
            return true;
        } catch (const std::exception& failure) {
            if (loads == kMostLoads || !overtaken(failure.what()))
                throw;
            data.Close();
        }
    }
}

} // namespace

int appendRecords(const std::string& file, double seconds) {
    live::DataWriter writer(file);
    Writing writing(file, seconds);
    std::uint64_t records = 0;
    while (writing.goesOn()) {
        for (int i = 0; i < kRecordsEachPause; ++i, ++records)
            writer.appendRecord(live::patternRecord(writer.nextNumber(), 1, 1));
        std::this_thread::sleep_for(std::chrono::milliseconds(1 + records / kRecordsBetweenPaces));
    }
    std::printf("records %llu pages %llu\n", static_cast<unsigned long long>(records),
                static_cast<unsigned long long>(writer.pagesOpened()));
    return writer.pagesOpened() >= 3 ? writing.result() : 1;
}

int walkJournal(const std::string& folder, double seconds, bool still) {
    TCurrentData data;
    if (!load(data, folder)) {
        std::fprintf(stderr, "%s\n", get_vdreader_error());
        return 1;
    }

    const Reading reading(seconds);
    unsigned long long walks = 0;
    unsigned long long records = 0;
    unsigned long long further = 0;
    std::int32_t furthest = 0;
    std::int32_t start = 0;
    // Both ways of walking are tried on a still file.
    const auto sawEnough = [&] {
        return walks >= 2 && furthest >= kEnoughRecords && (still || further >= 4);
    };
    while (reading.goesOn(sawEnough())) {
        walk = {};
        walk.known = still ? std::numeric_limits<std::int32_t>::max() : furthest;
        // The walk of the C interface leaves its page behind, so it takes turns.
        if (walks % 4 == 0)
            for_each_dynamic_params(takeJoined);
        else
            walkIterator(data);
        if (walk.failure == nullptr && walk.last < furthest)
            walk.failure = "a walk that ends before an earlier one did";
        if (walk.failure == nullptr && start != 0 && walk.first != start)
            walk.failure = "a walk that begins elsewhere";
        if (walk.failure != nullptr) {
            std::fprintf(stderr, "%s: number %d in walk %llu, record %llu\n", walk.failure,
                         static_cast<int>(walk.last), walks,
                         static_cast<unsigned long long>(walk.records));
            return 1;
        }
        if (walk.records != 0)
            start = walk.first;
        further += walk.last > furthest;
        furthest = walk.last;
        ++walks;
        records += walk.records;
    }
    std::printf("walks %llu records %llu further %llu\n", walks, records, further);
    return sawEnough() ? 0 : 1;
}

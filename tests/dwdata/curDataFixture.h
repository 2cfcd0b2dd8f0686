// A data.vd on disk and a TCurrentData over it, for the tests of the current data.

#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "dwdata/dw_curdata.h"
#include "sample/dataFile.h"
#include "support/capturedLog.h"
#include "support/tempFolder.h"
#include "vdreader/curdata.hpp"

// A record of 80 bytes: 16 of mask, 2 integers and 3 doubles that tell its number.
inline sample::Record recordOf(std::int32_t number) {
    sample::Record made;
    made.dataField1 = number;
    made.dataField2 = 1000 + number;
    made.dataField3 = 2000 + number;
    made.sec_id = static_cast<std::uint32_t>(3000 + number);
    made.class_id = 4000 + number;
    made.mask.assign(16, static_cast<std::uint8_t>(number));
    made.longs = {number, -number};
    made.doubles = {number + 0.25, number + 0.5, number + 0.75};
    return made;
}
inline constexpr std::uint32_t kRecordSize = 80;

// `count` pages of the same number of records, numbered from `first` on.
inline std::vector<sample::EventPage> pagesOf(int count, int recordsEach, int first = 1) {
    std::vector<sample::EventPage> pages(static_cast<std::size_t>(count));
    for (auto& page : pages)
        for (int i = 0; i < recordsEach; ++i)
            page.records.push_back(recordOf(first++));
    return pages;
}

// Ten slots in pages of two, and pages of the journal with room for five records and 24 bytes.
inline sample::DataFile smallFile(std::vector<sample::EventPage> pages = {}) {
    sample::DataFile file;
    file.header.maxSecs = 8;
    file.header.dataPageSize = 2 * 1080 + 8;
    file.header.eventPageSize = 5 * kRecordSize + 24;
    file.eventPages = std::move(pages);
    return file;
}

class CurDataFile {
  public:
    explicit CurDataFile(const sample::DataFile& file)
        : path(m_folder.write("data.vd", sample::encodeDataFile(file, &layout))) {}
    // No file yet, or one with these bytes.
    CurDataFile() : path(m_folder.name("data.vd")) {}
    explicit CurDataFile(const std::string& bytes) : path(m_folder.write("data.vd", bytes)) {}

    std::string bytes() const { return m_folder.read("data.vd"); }
    void write(const std::string& bytes) const { m_folder.write("data.vd", bytes); }
    std::uint64_t size() const { return std::filesystem::file_size(path); }

    std::uint32_t numberAt(std::uint64_t offset) const {
        std::uint32_t number = 0;
        const std::string all = bytes();
        if (offset + sizeof number <= all.size())
            std::memcpy(&number, all.data() + offset, sizeof number);
        return number;
    }
    std::uint32_t closeStamp() const { return numberAt(24 + 96); }

  private:
    TempFolder m_folder;

  public:
    sample::DataFileLayout layout;
    std::string path;
};

// Opened and loaded.
inline std::unique_ptr<TCurrentData> loaded(const CurDataFile& file) {
    auto data = std::make_unique<TCurrentData>();
    data->Init(file.path.c_str(), false);
    data->LoadData();
    return data;
}

inline std::unique_ptr<DwDataIFaces::ICurDataIterator> iteratorOf(TCurrentData& data) {
    return std::make_unique<DwDataIFaces::ICurDataIterator>(new ICurData{&data});
}

inline TCurrentDataAccess::Storage& storageOf(TCurrentData& data) {
    return *TCurrentDataAccess::storage(data);
}

// The record's number, INT32_MIN for none.
inline std::int32_t numberOf(const ENC_DATA* record) {
    return record != nullptr ? record->dataField1 : INT32_MIN;
}

// The numbers of a walk until it yields null, at most `limit`.
inline std::vector<std::int32_t> numbersFrom(DwDataIFaces::ICurDataIterator& iterator,
                                             std::uint32_t number, std::size_t limit = 10'000) {
    std::vector<std::int32_t> numbers;
    for (const ENC_DATA* record = iterator.Begin(number); record && numbers.size() < limit;
         record = iterator.Next())
        numbers.push_back(numberOf(record));
    return numbers;
}

inline std::vector<std::int32_t> range(int first, int last) {
    std::vector<std::int32_t> numbers;
    for (int i = first; i <= last; ++i)
        numbers.push_back(i);
    return numbers;
}

// Whether nobody holds any lock of the object.
inline bool allLocksFree(TCurrentData& data) {
    bool free = true;
    for (auto* lock :
         {&TCurrentDataAccess::pagesLock(data), &TCurrentDataAccess::newPagesLock(data),
          &TCurrentDataAccess::paramsLock(data)}) {
        if (lock->try_lock())
            lock->unlock();
        else
            free = false;
    }
    return free;
}

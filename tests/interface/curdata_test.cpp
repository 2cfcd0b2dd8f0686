// The current data through the shared library, as a component of the family uses it.

#include "vdreader/curdata.hpp"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "sample/dataFile.h"
#include "support/tempFolder.h"
#include "vdreader/errors.hpp"

namespace {

sample::Record recordOf(std::int32_t number) {
    sample::Record made;
    made.dataField1 = number;
    made.class_id = -number;
    made.mask.assign(16, 1);
    made.longs = {number};
    made.doubles = {number / 2.0};
    return made;
}

sample::DataFile smallFile() {
    sample::DataFile file;
    file.header.maxSecs = 8;
    file.header.elements = 6;
    file.header.dataPageSize = 2 * 1080 + 8;
    file.header.eventPageSize = 200;
    file.slots[3].class_id = 33;
    file.slots[3].setDouble(5, 0.5);
    file.slots[3].setLong(6, -6);
    std::vector<sample::Record> records;
    for (int number = 1; number <= 5; ++number)
        records.push_back(recordOf(number));
    file.eventPages = sample::packRecords(records, file.header.eventPageSize);
    return file;
}

class CurrentData : public testing::Test {
  protected:
    std::string write(const sample::DataFile& file) const {
        return m_folder.write("data.vd", sample::encodeDataFile(file));
    }
    std::uint32_t closeStamp() const {
        std::uint32_t stamp = 0;
        std::memcpy(&stamp, m_folder.read("data.vd").data() + 24 + 96, sizeof stamp);
        return stamp;
    }

    TempFolder m_folder;
};

} // namespace

TEST_F(CurrentData, SlotsAreReadInPlaceAndCopied) {
    const std::string path = write(smallFile());
    TCurrentData data;
    data.Init(path.c_str(), false);
    data.LoadData();
    EXPECT_EQ(data.GetMaxSecs(), 8);
    std::int32_t elements = 0;
    data.GetElements(&elements);
    EXPECT_EQ(elements, 6);
    EXPECT_EQ(data.GetDataCust(3)->class_id, 33);
    EXPECT_EQ(data.GetDoubleParam(3, 5), 0.5);
    EXPECT_EQ(data.GetLongParam(3, 6), -6);
    char out[1072];
    ASSERT_EQ(data.GetData4Reading(3, out, 0), out);
    EXPECT_EQ(out[20], 33);
    EXPECT_EQ(data.GetData4Reading(50'000, out, 0), nullptr);
    EXPECT_EQ(data.GetDataCust(1'000), nullptr);
}

TEST_F(CurrentData, RecordsAreWalkedFromPageToPage) {
    const std::string path = write(smallFile());
    TCurrentData data;
    data.Init(path.c_str(), false);
    data.LoadData();
    std::vector<std::int32_t> numbers;
    std::unique_ptr<DwDataIFaces::IDwDataInterface> owner;
    auto* const iterator = new DwDataIFaces::ICurDataIterator(new ICurData{&data});
    owner.reset(iterator);
    for (const ENC_DATA* record = iterator->Begin(1); record; record = iterator->Next()) {
        EXPECT_EQ(record->class_id, -record->dataField1);
        numbers.push_back(record->dataField1);
    }
    EXPECT_EQ(numbers, (std::vector<std::int32_t>{1, 2, 3, 4, 5}));
    EXPECT_EQ(iterator->Current(), nullptr);
    // Through the base's table of operations, with the library's own delete.
    owner.reset();
    delete new DwDataIFaces::ICurDataCust(new ICurData{&data});
    delete new DwDataIFaces::IDwDataInterface;
}

TEST_F(CurrentData, ObjectsOfInterfacesComeZeroed) {
    static_assert(sizeof(DwDataIFaces::ICurDataIterator) == 2 * sizeof(void*));
    void* const block = DwDataIFaces::IDwDataInterface::operator new(64);
    for (int i = 0; i < 64; ++i)
        EXPECT_EQ(static_cast<const char*>(block)[i], 0);
    EXPECT_EQ(DwDataIFaces::IDwDataInterface::operator new(64, block), block);
    EXPECT_EQ(DwDataIFaces::IDwDataInterface::operator new[](64, block), block);
    // These two free nothing, which the compiler does not believe.
    void* volatile kept = block;
    DwDataIFaces::IDwDataInterface::operator delete(kept, kept);
    DwDataIFaces::IDwDataInterface::operator delete[](kept, kept);
    DwDataIFaces::IDwDataInterface::operator delete(kept);
    DwDataIFaces::IDwDataInterface::operator delete[](
        DwDataIFaces::IDwDataInterface::operator new[](3));
    memutil::Redefine_NewDelete_<13> one;
    const memutil::Redefine_NewDelete_<13> other;
    EXPECT_EQ(&(one = other), &one);
    EXPECT_EQ(&(one = memutil::Redefine_NewDelete_<13>()), &one);
}

TEST_F(CurrentData, EmptyFileIsLaidOut) {
    const std::string path = m_folder.write("data.vd", "");
    {
        TCurrentData data;
        data.Init(path.c_str(), false);
        data.LoadData();
        EXPECT_EQ(data.GetMaxSecs(), 50'000);
        EXPECT_NE(data.GetDataCust(49'999), nullptr);
        DwDataIFaces::ICurDataIterator iterator(new ICurData{&data});
        EXPECT_EQ(iterator.Begin(0), nullptr);
        EXPECT_EQ(closeStamp(), 0u);
    }
    EXPECT_EQ(closeStamp(), 0xDDFDDFDDu);
}

TEST_F(CurrentData, FailuresAreCaughtByTypeInTheHost) {
    auto parts = smallFile();
    parts.header.signature[0] = 'x';
    const std::string path = write(parts);
    TCurrentData data;
    data.Init(path.c_str(), false);
    try {
        data.LoadData();
        FAIL();
    } catch (const CError& failure) {
        EXPECT_STREQ(failure.what(), "File type is incorrect");
        EXPECT_STREQ(failure.file, "dwdata/src/dw_curdata");
    }
    data.Close();
    const std::string good = write(smallFile());
    data.Init(good.c_str(), false);
    // From another thread: every lock is free.
    std::thread([&] { data.LoadData(); }).join();
    EXPECT_EQ(data.GetMaxSecs(), 8);
    data.Close();
    EXPECT_EQ(data.GetMaxSecs(), 0);
    EXPECT_EQ(data.GetDataCust(0), nullptr);
    EXPECT_EQ(data.GetLongParam(3, 6), 0);
    EXPECT_EQ(closeStamp(), 0xDDFDDFDDu);
}

TEST_F(CurrentData, OperationsAreReachedThroughTheBase) {
    const std::string path = write(smallFile());
    auto* const data = new TCurrentData;
    data->Init(path.c_str(), false);
    std::unique_ptr<TAbstractStorage> storage(data);
    storage->LoadData();
    std::int32_t elements = 0;
    storage->GetElements(&elements);
    EXPECT_EQ(elements, 6);
    char out[1072];
    EXPECT_EQ(storage->GetData4Reading(3, out, 7), out);
    storage->ResetData();
    EXPECT_EQ(data->GetMaxSecs(), 50'000);
    storage->Close();
    EXPECT_EQ(data->GetMaxSecs(), 0);
    storage.reset();
    EXPECT_EQ(closeStamp(), 0xDDFDDFDDu);
}

TEST_F(CurrentData, IllegalOperationsTellTheirTags) {
    static constexpr const char* kTags[] = {
        "2",  "1",  nullptr, "4",  "3",     nullptr, nullptr, nullptr, "Seq", "Seq1", "8",
        "9",  "10", "11",    "12", "21",    "22",    "23",    "24",    "14",  "15",   "15",
        "16", "17", "18",    "25", nullptr, "21",    "22",    "23",    "24"};
    TCurrentData data;
    using Operation = void (*)(void*);
    auto* const table = *reinterpret_cast<Operation* const*>(&data);
    for (std::size_t place = 0; place < std::size(kTags); ++place) {
        if (kTags[place] == nullptr)
            continue;
        try {
            table[place](&data);
            ADD_FAILURE() << place;
        } catch (const CError& failure) {
            EXPECT_EQ(failure.what(), std::string("ILLEGAL CALL ") + kTags[place]) << place;
            EXPECT_STREQ(failure.file, "Common/include/AbstractStorage");
        }
    }
}

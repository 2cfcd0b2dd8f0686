// Current data in damaged files: nothing outside the mapped pages is touched, every walk ends.

#include <initializer_list>

#include "curDataFixture.h"
#include "dwdata/curDataPage.h"
#include "support/raised.h"
#include "support/scopedCalls.h"
#include "vdreader/errors.hpp"

namespace {

template <class Number>
std::string bytesOf(Number number) {
    return {reinterpret_cast<const char*>(&number), sizeof number};
}

// A file with damage at `place` of the header's payload.
template <class Number>
sample::DataFile headerWith(std::size_t place, Number number) {
    auto parts = smallFile(pagesOf(3, 5));
    parts.damage.emplace_back(24 + place, bytesOf(number));
    return parts;
}

std::string loadFailure(const sample::DataFile& parts) {
    const CurDataFile file(parts);
    TCurrentData data;
    data.Init(file.path.c_str(), false);
    const auto failure = raised<CError>([&] { data.LoadData(); });
    EXPECT_TRUE(allLocksFree(data));
    EXPECT_EQ(data.GetDataCust(0), nullptr);
    EXPECT_EQ(storageOf(data).mappedCount(), 1u);
    return failure ? failure->what() : "(nothing)";
}

// Everything that a host may do, short of endless.
void useAll(const std::string& path) {
    TCurrentData data;
    try {
        data.Init(path.c_str(), false);
        data.LoadData();
    } catch (const std::exception&) {
    }
    char out[1072];
    std::uint64_t sum = 0;
    for (const std::int32_t index : {0, 1, 2, 9, 10, 1000, 49'999, 60'000, INT32_MAX, -1}) {
        if (const VD_DATA_CUST* slot = data.GetDataCust(index))
            sum += slot->class_id + slot->values[127];
        // A slot that looks held would be waited for.
        if (VD_DATA_CUST* slot = data.GetDataCust(index))
            if (std::uint32_t{slot->lock} == 1)
                continue;
        data.GetData4Reading(index, out, 0);
        data.GetDoubleParam(index, 127);
        data.GetLongParam(index, 128);
    }
    data.GetMaxSecs();
    for (const std::uint32_t number : {0u, 6u, UINT32_MAX}) {
        const auto iterator = iteratorOf(data);
        std::size_t count = 0;
        for (ENC_DATA* record = iterator->Begin(number); record; record = iterator->Next()) {
            for (std::uint32_t i = 0; i < recordLength(*record); ++i)
                sum += static_cast<unsigned char>(reinterpret_cast<const char*>(record)[i]);
            ASSERT_LT(++count, 1'000'000u) << path;
        }
        iterator->Current();
        iterator->Next();
    }
    volatile std::uint64_t kept = sum;
    static_cast<void>(kept);
    ASSERT_TRUE(allLocksFree(data));
}

constexpr std::uint64_t kMostGrowth = 2'000'000;

// As on a full disk: no file grows beyond a few megabytes.
class SmallDisk {
  public:
    SmallDisk() {
        s_real = m_calls.saved().createMapping;
        platform::calls.createMapping = [](platform::StorageHandle file, std::uint64_t size,
                                           bool writes) -> platform::MappingHandle {
            return size > kMostGrowth ? nullptr : s_real(file, size, writes);
        };
    }

  private:
    static inline platform::MappingHandle (*s_real)(platform::StorageHandle, std::uint64_t, bool);
    ScopedCalls m_calls;
};

} // namespace

// ---- impossible headers ----

TEST(CurDataDamage, PageWithoutRoomForASlot) {
    EXPECT_EQ(loadFailure(headerWith(56, std::uint32_t{1079})),
              "TCurrentData load:dataPageSize<1079>");
    EXPECT_EQ(loadFailure(headerWith(56, std::uint32_t{0})), "TCurrentData load:dataPageSize<0>");
}

TEST(CurDataDamage, NegativeCounts) {
    EXPECT_EQ(loadFailure(headerWith(52, std::int32_t{-1})), "TCurrentData load:dataPageCount<-1>");
    EXPECT_EQ(loadFailure(headerWith(100, INT32_MIN)),
              "TCurrentData load:eventPageCount<-2147483648>");
}

TEST(CurDataDamage, PagesThatReachPastTheLimit) {
    EXPECT_EQ(loadFailure(headerWith(52, INT32_MAX)),
              "TCurrentData load:firstDataPage<132>dataPageSize<2168>dataPageCount<2147483647>");
    EXPECT_EQ(loadFailure(headerWith(64, std::int64_t{-1})),
              "TCurrentData load:firstDataPage<-1>dataPageSize<2168>dataPageCount<5>");
    auto many = headerWith(100, INT32_MAX);
    many.header.eventPageSize = 1'000;
    EXPECT_EQ(loadFailure(many),
              "TCurrentData load:firstEventPage<11112>eventPageSize<1000>"
              "eventPageCount<2147483647>");
    EXPECT_EQ(loadFailure(headerWith(80, std::uint64_t{1} << 40)),
              "TCurrentData load:firstEventPage<1099511627776>eventPageSize<424>eventPageCount<3>");
    EXPECT_EQ(loadFailure(headerWith(88, std::int64_t{-2})),
              "TCurrentData load:currentEventPage<-2>eventPageSize<424>");
    EXPECT_EQ(loadFailure(headerWith(88, (std::uint64_t{1} << 40) - 451)),
              "TCurrentData load:currentEventPage<1099511627325>eventPageSize<424>");
}

TEST(CurDataDamage, RefusedFileCanBeMendedAndLoadedByTheSameObject) {
    const CurDataFile file(headerWith(52, std::int32_t{-1}));
    const CurDataFile good(smallFile(pagesOf(3, 5)));
    TCurrentData data;
    data.Init(file.path.c_str(), false);
    EXPECT_NE(raisedText([&] { data.LoadData(); }), "(nothing)");
    storageOf(data).header->dataPageCount = 5;
    data.LoadData();
    EXPECT_EQ(numbersFrom(*iteratorOf(data), 1), range(1, 15));
    EXPECT_EQ(storageOf(data).mappedCount(), 7u);
    data.Close();
    EXPECT_EQ(file.closeStamp(), 0xDDFDDFDDu);
}

TEST(CurDataDamage, JournalOverTheSlotsLeavesTheSlotsMapped) {
    auto parts = smallFile();
    parts.header.firstEventPage = 132;
    parts.header.currentEventPage = 132;
    parts.header.eventPageSize = 2168;
    parts.header.eventPageCount = 5;
    parts.fileSize = 132 + 6 * 2196;
    parts.slots[9].class_id = 9;
    // Zeroed pages only: the sample writer cannot lay pages over each other.
    parts.header.firstEventPage.reset();
    parts.header.currentEventPage.reset();
    parts.damage.emplace_back(24 + 80, bytesOf(std::uint64_t{132}));
    parts.damage.emplace_back(24 + 88, bytesOf(std::uint64_t{0}));
    parts.fileSize = 200'000;
    const CurDataFile file(parts);
    TCurrentData data;
    data.Init(file.path.c_str(), false);
    data.LoadData();
    EXPECT_EQ(data.GetDataCust(9)->class_id, 9);
    for (std::int32_t index = 0; index < 10; ++index)
        EXPECT_EQ(std::uint64_t{data.GetDataCust(index)->values[127]}, 0u);
    useAll(file.path);
}

// ---- damaged pages of the journal ----

TEST(CurDataDamage, RecordThatRunsPastTheBytesInUseEndsItsPage) {
    auto pages = pagesOf(3, 3);
    pages[1].storedUsed = 2 * kRecordSize + 79;
    const CurDataFile file(smallFile(pages));
    const auto data = loaded(file);
    EXPECT_EQ(numbersFrom(*iteratorOf(*data), 1),
              (std::vector<std::int32_t>{1, 2, 3, 4, 5, 7, 8, 9}));
}

TEST(CurDataDamage, HeadThatRunsPastTheBytesInUseEndsItsPage) {
    auto pages = pagesOf(3, 3);
    pages[0].storedUsed = kRecordSize + 31;
    const CurDataFile file(smallFile(pages));
    const auto data = loaded(file);
    const auto iterator = iteratorOf(*data);
    EXPECT_EQ(numberOf(iterator->Begin(1)), 1);
    EXPECT_EQ(iterator->Current(), nullptr);
    EXPECT_EQ(numberOf(iterator->Next()), 4);
}

TEST(CurDataDamage, DamagedFirstRecordBeginsWithNullAndGoesOnWithTheNextPage) {
    auto pages = pagesOf(2, 3);
    pages[0].records[0].storedDoubleCount = 255;
    const CurDataFile file(smallFile(pages));
    const auto data = loaded(file);
    const auto iterator = iteratorOf(*data);
    EXPECT_EQ(iterator->Begin(1), nullptr);
    EXPECT_EQ(iterator->Current(), nullptr);
    EXPECT_EQ(numberOf(iterator->Next()), 4);
}

TEST(CurDataDamage, RecordsEndAtTheCapacityWhateverIsInUse) {
    for (const std::uint32_t used : {425u, 100'000u, UINT32_MAX}) {
        auto pages = pagesOf(2, 5);
        pages[0].storedUsed = used;
        pages[1].storedUsed = used;
        auto parts = smallFile(pages);
        parts.header.eventPageSize = 5 * kRecordSize + 31;
        const CurDataFile file(parts);
        const auto data = loaded(file);
        EXPECT_EQ(numbersFrom(*iteratorOf(*data), 1), range(1, 10)) << used;
    }
}

TEST(CurDataDamage, CapacityThatPromisesMoreIsNotBelieved) {
    auto pages = pagesOf(2, 5);
    pages[0].storedUsed = UINT32_MAX;
    auto parts = smallFile(pages);
    parts.header.eventPageSize = 5 * kRecordSize + 31;
    const CurDataFile file(parts);
    const auto data = loaded(file);
    // Behind the load, which puts the heads right.
    std::fstream live(file.path, std::ios::in | std::ios::out | std::ios::binary);
    live.seekp(static_cast<std::streamoff>(file.layout.eventPages[0].point + 4));
    live.write("\xFF\xFF\xFF\x7F", 4);
    live.close();
    EXPECT_EQ(numbersFrom(*iteratorOf(*data), 1), range(1, 10));
}

TEST(CurDataDamage, PageThatLiesAboutItsPlaceLeadsNobodyInCircles) {
    const CurDataFile file(smallFile(pagesOf(4, 5)));
    for (const std::uint64_t lie :
         {file.layout.eventPages[0].point, std::uint64_t{0}, file.layout.eventPages[1].point - 1,
          std::uint64_t{1} << 62, std::uint64_t{1} << 63}) {
        const auto data = loaded(file);
        std::fstream live(file.path, std::ios::in | std::ios::out | std::ios::binary);
        live.seekp(static_cast<std::streamoff>(file.layout.eventPages[1].point + 12));
        live.write(bytesOf(lie).data(), 8);
        live.close();
        EXPECT_EQ(numbersFrom(*iteratorOf(*data), 1), range(1, 20)) << lie;
    }
}

TEST(CurDataDamage, PageThatTheFileEndsInsideComesTwice) {
    auto parts = smallFile(pagesOf(2, 2));
    parts.header.currentEventPage = parts.header.eventPoint(0);
    parts.header.eventPageCount = 1;
    const std::uint64_t second = CurDataFile(parts).layout.eventPages[1].point;
    parts.fileSize = second + 24 + kRecordSize + 40;
    const CurDataFile file(parts);
    const auto data = loaded(file);
    const CapturedLog log;
    // What the file has of the page stands in the buffer; the rest is what the page before left.
    const auto numbers = numbersFrom(*iteratorOf(*data), 1, 100);
    EXPECT_EQ(numbers, (std::vector<std::int32_t>{1, 2, 3, 4, 3, 4}));
}

TEST(CurDataDamage, SizeOfPagesThatChangesUnderAWalkEndsIt) {
    const CurDataFile file(smallFile(pagesOf(3, 5)));
    const auto data = loaded(file);
    const auto iterator = iteratorOf(*data);
    ASSERT_NE(iterator->Begin(1), nullptr);
    for (const std::uint32_t size : {0u, 1u, 100'000u}) {
        storageOf(*data).header->eventPageSize = size;
        std::size_t count = 0;
        while (iterator->Next() != nullptr)
            ASSERT_LT(++count, 1'000u);
        EXPECT_LT(numbersFrom(*iteratorOf(*data), 1).size(), 1'000u);
    }
}

// ---- anything at all ----

TEST(CurDataDamage, EveryByteOfTheHeaderMayBeWrong) {
    const CurDataFile file(smallFile(pagesOf(3, 5)));
    const std::string good = file.bytes();
    const SmallDisk disk;
    const CapturedLog log;
    for (std::size_t at = 0; at < 132; ++at)
        for (const int value : {0x00, 0x01, 0x7F, 0x80, 0xFF, good[at] ^ 4}) {
            std::string bytes = good;
            bytes[at] = static_cast<char>(value);
            file.write(bytes);
            useAll(file.path);
        }
}

TEST(CurDataDamage, EveryByteOfTheJournalMayBeWrong) {
    const CurDataFile file(smallFile(pagesOf(3, 2)));
    const std::string good = file.bytes();
    const SmallDisk disk;
    const CapturedLog log;
    for (std::uint64_t at = file.layout.eventPages[0].point;
         at < file.layout.eventPages[1].point + 24 + 32; at += at % kRecordSize < 56 ? 1 : 11)
        for (const int value : {0x80, 0xFF}) {
            std::string bytes = good;
            bytes[at] = static_cast<char>(value);
            file.write(bytes);
            useAll(file.path);
        }
}

TEST(CurDataDamage, FileMayEndAnywhere) {
    const CurDataFile file(smallFile(pagesOf(3, 5)));
    const std::string good = file.bytes();
    const CapturedLog log;
    for (std::size_t size = 1; size < good.size(); size += size < 140 ? 1 : 53) {
        file.write(good.substr(0, size));
        useAll(file.path);
    }
}

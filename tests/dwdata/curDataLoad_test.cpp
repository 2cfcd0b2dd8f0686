// TCurrentData: opening, loading, laying out, closing, and what each does to the file.

#include <algorithm>
#include <cstddef>

#include "curDataFixture.h"
#include "support/raised.h"
#include "support/scopedCalls.h"
#include "vdreader/errors.hpp"

namespace {

template <class Number>
void put(std::string& bytes, std::uint64_t offset, Number number) {
    std::memcpy(bytes.data() + offset, &number, sizeof number);
}

// The head of a block without records.
void putHead(std::string& bytes, std::uint64_t point, std::uint32_t capacity) {
    put<std::uint16_t>(bytes, point, 0xFFED);
    put<std::uint32_t>(bytes, point + 4, capacity);
    put<std::uint64_t>(bytes, point + 12, point);
}

// What a file grows to where something ends at `end`.
std::uint64_t grown(std::uint64_t size, std::uint64_t end) {
    if (end <= size)
        return size;
    return std::max(end, size < 100'000'000 ? size * 2 : size + 100'000'000);
}

// A fresh file, byte for byte, by the numbers of the format alone.
std::string freshFile(std::uint32_t closeStamp) {
    std::uint64_t size = grown(0, 132);
    for (std::uint64_t page = 0; page < 275; ++page)
        size = grown(size, 132 + (page + 1) * 196'636);
    size = grown(size, 54'075'032 + 81'948);
    std::string bytes(size, '\0');
    putHead(bytes, 0, 104);
    std::memcpy(bytes.data() + 24, "0B6C6676-8C6E-4807-B8CA-60367206277A", 36);
    put<std::uint32_t>(bytes, 24 + 48, 50'000);
    put<std::uint32_t>(bytes, 24 + 52, 275);
    put<std::uint32_t>(bytes, 24 + 56, 196'608);
    put<std::uint64_t>(bytes, 24 + 64, 132);
    put<std::uint32_t>(bytes, 24 + 72, 81'920);
    put<std::uint64_t>(bytes, 24 + 80, 54'075'032);
    put<std::uint64_t>(bytes, 24 + 88, 54'075'032);
    put<std::uint32_t>(bytes, 24 + 96, closeStamp);
    put<std::uint32_t>(bytes, 24 + 100, 1);
    for (std::uint64_t page = 0; page < 275; ++page)
        putHead(bytes, 132 + page * 196'636, 196'608);
    putHead(bytes, 54'075'032, 81'920);
    return bytes;
}

// Offsets at which two files differ, at most 20; -1 for another size.
std::vector<std::int64_t> differences(const std::string& was, const std::string& is) {
    std::vector<std::int64_t> found;
    if (was.size() != is.size())
        found.push_back(-1);
    for (std::size_t i = 0; i < std::min(was.size(), is.size()) && found.size() < 20; ++i)
        if (was[i] != is[i])
            found.push_back(static_cast<std::int64_t>(i));
    return found;
}

using Offsets = std::vector<std::int64_t>;
const Offsets kStamp = {120, 121, 122, 123};

} // namespace

// ---- constructed and initialised ----

TEST(CurDataLoad, WithoutAFileEverythingIsNothing) {
    TCurrentData data;
    char out[1072] = {'x'};
    std::int32_t elements = 5;
    EXPECT_EQ(data.GetMaxSecs(), 0);
    EXPECT_EQ(data.GetDataCust(0), nullptr);
    EXPECT_EQ(data.GetData4Reading(0, out, 0), nullptr);
    EXPECT_EQ(out[0], 'x');
    EXPECT_EQ(data.GetDoubleParam(0, 0), 0.0);
    EXPECT_EQ(data.GetLongParam(0, 0), 0);
    data.GetElements(nullptr);
    data.GetElements(&elements);
    EXPECT_EQ(elements, 0);
    EXPECT_EQ(iteratorOf(data)->Begin(0), nullptr);
    data.Close();
    EXPECT_TRUE(allLocksFree(data));
}

TEST(CurDataLoad, WithoutInitNothingCanBeLoadedOrReset) {
    TCurrentData data;
    EXPECT_EQ(raisedText([&] { data.LoadData(); }), "Can't load data from file ''");
    EXPECT_EQ(raisedText([&] { data.ResetData(); }), "Can't reset data for file ''");
    EXPECT_TRUE(allLocksFree(data));
}

TEST(CurDataLoad, InitMapsNothingYet) {
    const CurDataFile file(smallFile());
    TCurrentData data;
    data.Init(file.path.c_str(), false);
    EXPECT_EQ(storageOf(data).mappedCount(), 0u);
    EXPECT_EQ(storageOf(data).pageIndex.nodeCount(), 0u);
    EXPECT_EQ(storageOf(data).pageIndex.greatestDepth(), -1);
    EXPECT_EQ(TCurrentDataAccess::lastPoint(data), 0);
    EXPECT_FALSE(storageOf(data).create);
    EXPECT_EQ(data.GetMaxSecs(), 0);
    EXPECT_EQ(data.GetDataCust(0), nullptr);
    EXPECT_EQ(iteratorOf(data)->Begin(0), nullptr);
}

TEST(CurDataLoad, InitWithCreateEmptiesTheFile) {
    const CurDataFile file(smallFile());
    TCurrentData data;
    data.Init(file.path.c_str(), true);
    EXPECT_EQ(file.size(), 0u);
    EXPECT_TRUE(storageOf(data).create);
}

TEST(CurDataLoad, NameIsKeptUpTo260Characters) {
    const CapturedLog log;
    TCurrentData data;
    const std::string name = "no/such/folder/" + std::string(300, 'n');
    data.Init(name.c_str(), false);
    EXPECT_EQ(TCurrentDataAccess::fileName(data), name.substr(0, 260));
    data.Init(nullptr, false);
    EXPECT_STREQ(TCurrentDataAccess::fileName(data), "");
}

TEST(CurDataLoad, SecondInitLetsTheFirstFileGo) {
    const CurDataFile first(smallFile());
    const CurDataFile second(smallFile());
    const auto data = loaded(first);
    EXPECT_EQ(first.closeStamp(), 0u);
    data->Init(second.path.c_str(), false);
    EXPECT_EQ(first.closeStamp(), 0xDDFDDFDDu);
    data->LoadData();
    EXPECT_EQ(data->GetMaxSecs(), 8);
}

TEST(CurDataLoad, MissingFileIsToldInTheEventLogAndMadeByTheLoad) {
    const CurDataFile file;
    const CapturedLog log;
    TCurrentData data;
    data.Init(file.path.c_str(), false);
    ASSERT_EQ(log.messages(CapturedLog::events).size(), 1u);
    EXPECT_EQ(log.messages(CapturedLog::events)[0].rfind("Allocating error: ", 0), 0u);
    data.LoadData();
    EXPECT_EQ(data.GetMaxSecs(), 50'000);
    EXPECT_EQ(file.size(), 100'745'216u);
}

// ---- layout ----

TEST(CurDataLoad, EmptyFileIsLaidOutByteForByte) {
    const CurDataFile file(std::string{});
    const auto data = loaded(file);
    EXPECT_EQ(file.size(), 100'745'216u);
    EXPECT_TRUE(file.bytes() == freshFile(0));
    EXPECT_EQ(data->GetMaxSecs(), 50'000);
    EXPECT_EQ(TCurrentDataAccess::lastPoint(*data), 54'075'032);
    EXPECT_EQ(storageOf(*data).pageIndex.nodeCount(), 1u);
    EXPECT_EQ(storageOf(*data).dataPages.length(), 275u);
    EXPECT_EQ(storageOf(*data).slotsPerPage, 182u);
    EXPECT_EQ(storageOf(*data).mappedCount(), 277u);
    data->Close();
    EXPECT_TRUE(file.bytes() == freshFile(0xDDFDDFDD));
}

TEST(CurDataLoad, FreshFileHasAPageWithoutRecords) {
    const CurDataFile file(std::string{});
    const auto data = loaded(file);
    const CapturedLog log;
    const auto iterator = iteratorOf(*data);
    EXPECT_EQ(iterator->Begin(0), nullptr);
    EXPECT_EQ(iterator->Current(), nullptr);
    EXPECT_EQ(log.size(), 0u);
    EXPECT_EQ(iterator->Next(), nullptr);
    EXPECT_EQ(log.messages(CapturedLog::events), std::vector<std::string>{"Reset page on next"});
}

TEST(CurDataLoad, ResetMakesAFreshFileOfAnyOther) {
    const CurDataFile file(smallFile(pagesOf(3, 5)));
    const auto data = loaded(file);
    data->GetDataCust(1)->filled = 1;
    data->ResetData();
    EXPECT_TRUE(file.bytes() == freshFile(0));
    EXPECT_EQ(data->GetMaxSecs(), 50'000);
    EXPECT_EQ(data->GetDataCust(1)->filled, 0);
    EXPECT_EQ(data->GetDataCust(274 * 182 + 181) - data->GetDataCust(274 * 182), 181);
    EXPECT_EQ(data->GetDataCust(275 * 182), nullptr);
    EXPECT_EQ(iteratorOf(*data)->Begin(1), nullptr);
    EXPECT_EQ(TCurrentDataAccess::lastPoint(*data), 54'075'032);
    EXPECT_EQ(storageOf(*data).mappedCount(), 277u);
}

// ---- load ----

TEST(CurDataLoad, LoadMapsSlotsAndTheNewestPageAndIndexesAllPages) {
    sample::DataFile parts = smallFile(pagesOf(3, 5));
    parts.header.elements = 7;
    const CurDataFile file(parts);
    const auto data = loaded(file);
    const auto& storage = storageOf(*data);
    EXPECT_EQ(data->GetMaxSecs(), 8);
    std::int32_t elements = 0;
    data->GetElements(&elements);
    EXPECT_EQ(elements, 7);
    EXPECT_EQ(storage.slotsPerPage, 2u);
    EXPECT_EQ(storage.dataPages.length(), 5u);
    EXPECT_EQ(storage.mappedCount(), 7u); // header, five data pages, the newest page
    EXPECT_EQ(storage.currentPage->point().offset(), file.layout.eventPages[2].point);
    EXPECT_EQ(storage.pageIndex.nodeCount(), 3u);
    for (int page = 0; page < 3; ++page) {
        const auto found = storage.pageIndex.find(static_cast<unsigned>(1 + 5 * page));
        ASSERT_NE(found.node, nullptr) << page;
        EXPECT_EQ(found.node->value.offset(),
                  file.layout.eventPages[static_cast<std::size_t>(page)].point);
    }
    EXPECT_EQ(static_cast<std::uint64_t>(TCurrentDataAccess::lastPoint(*data)),
              file.layout.eventPages[2].point);
}

TEST(CurDataLoad, PageOfAKnownFirstNumberTakesItsPlace) {
    auto pages = pagesOf(3, 2);
    pages[2].records[0].dataField1 = 1;
    const CurDataFile file(smallFile(pages));
    const auto data = loaded(file);
    const auto& index = storageOf(*data).pageIndex;
    EXPECT_EQ(index.nodeCount(), 2u);
    EXPECT_EQ(index.find(1).node->value.offset(), file.layout.eventPages[2].point);
}

TEST(CurDataLoad, SizesComeFromTheHeader) {
    sample::DataFile parts = smallFile({{{recordOf(9)}, {}, {}}});
    parts.header.dataPageSize = 3 * 1080 + 1079;
    parts.header.firstDataPage = 500;
    parts.header.eventPageSize = 111;
    parts.header.firstEventPage = 40'000;
    parts.slots[8] = {.class_id = 77};
    const CurDataFile file(parts);
    const auto data = loaded(file);
    EXPECT_EQ(std::int32_t{data->GetDataCust(8)->class_id}, 77);
    EXPECT_EQ(numberOf(iteratorOf(*data)->Begin(9)), 9);
}

TEST(CurDataLoad, SizeOfAFileThatCannotBeToldCountsAsEmpty) {
    sample::DataFile parts = smallFile();
    parts.slots[1] = {};
    const CurDataFile file(parts);
    TCurrentData data;
    data.Init(file.path.c_str(), false);
    const ScopedCalls calls;
    platform::calls.storageSize = [](platform::StorageHandle) { return std::int64_t{-1}; };
    data.LoadData();
    EXPECT_EQ(data.GetMaxSecs(), 50'000);
    EXPECT_EQ(data.GetDataCust(1)->filled, 0);
}

// ---- what a load changes ----

TEST(CurDataLoad, GoodFileChangesInItsCloseStampAlone) {
    sample::DataFile parts = smallFile(pagesOf(3, 5));
    parts.header.closeStamp = 0xDDFDDFDD;
    parts.slots[3].setDouble(4, 1.5);
    const CurDataFile file(parts);
    const std::string before = file.bytes();
    {
        const auto data = loaded(file);
        EXPECT_EQ(differences(before, file.bytes()), kStamp);
        EXPECT_EQ(file.closeStamp(), 0u);
        EXPECT_EQ(numbersFrom(*iteratorOf(*data), 1), range(1, 15));
        char out[1072];
        data->GetData4Reading(3, out, 0);
        EXPECT_EQ(data->GetDoubleParam(3, 4), 1.5);
        EXPECT_EQ(differences(before, file.bytes()), kStamp);
    }
    EXPECT_TRUE(file.bytes() == before);
}

TEST(CurDataLoad, PureReaderStampsTheFileAsClosed) {
    const CurDataFile file(smallFile());
    const std::string before = file.bytes();
    loaded(file).reset();
    EXPECT_EQ(differences(before, file.bytes()), kStamp);
    EXPECT_EQ(file.closeStamp(), 0xDDFDDFDDu);
}

TEST(CurDataLoad, StorageThatWasNeverLoadedStampsNothing) {
    const CurDataFile file(smallFile());
    const std::string before = file.bytes();
    {
        TCurrentData data;
        data.Init(file.path.c_str(), false);
    }
    EXPECT_TRUE(file.bytes() == before);
}

TEST(CurDataLoad, HeadsOfBlocksAreRewritten) {
    const CurDataFile file(smallFile(pagesOf(2, 1)));
    const std::string before = file.bytes();
    std::string damaged = before;
    std::vector<std::uint64_t> points = file.layout.dataPages;
    for (const auto& page : file.layout.eventPages)
        points.push_back(page.point);
    points.push_back(0);
    for (const std::uint64_t point : points)
        for (const int byte : {0, 1, 4, 5, 6, 7, 12, 15, 16, 19})
            damaged[point + static_cast<std::size_t>(byte)] ^= 0x55;
    file.write(damaged);
    loaded(file)->GetMaxSecs();
    EXPECT_EQ(differences(before, file.bytes()), kStamp);
}

TEST(CurDataLoad, FileThatEndsBeforeItsPagesGrows) {
    sample::DataFile parts = smallFile(pagesOf(3, 5));
    const std::uint64_t whole = CurDataFile(parts).size();
    const std::uint64_t cut = CurDataFile(parts).layout.eventPages[0].point;
    parts.fileSize = cut;
    const CurDataFile file(parts);
    const auto data = loaded(file);
    EXPECT_EQ(file.size(), cut * 2);
    EXPECT_GE(file.size(), whole - 452);
    EXPECT_EQ(iteratorOf(*data)->Begin(1), nullptr);
}

// ---- again and again ----

TEST(CurDataLoad, ClosedObjectAnswersNothingAndOpensAgain) {
    sample::DataFile parts = smallFile(pagesOf(1, 2));
    parts.slots[1].setLong(2, 5);
    const CurDataFile file(parts);
    const auto data = loaded(file);
    EXPECT_EQ(data->GetLongParam(1, 2), 5);
    data->Close();
    EXPECT_EQ(file.closeStamp(), 0xDDFDDFDDu);
    EXPECT_EQ(data->GetMaxSecs(), 0);
    EXPECT_EQ(data->GetDataCust(1), nullptr);
    EXPECT_EQ(data->GetLongParam(1, 2), 0);
    EXPECT_EQ(data->GetDoubleParam(1, 2), 0.0);
    EXPECT_EQ(TCurrentDataAccess::storage(*data), nullptr);
    EXPECT_TRUE(allLocksFree(*data));
    data->Close();
    data->Init(file.path.c_str(), false);
    data->LoadData();
    EXPECT_EQ(data->GetLongParam(1, 2), 5);
    EXPECT_EQ(file.closeStamp(), 0u);
}

TEST(CurDataLoad, SecondLoadSeesTheFileAsItIsNow) {
    const CurDataFile file(smallFile(pagesOf(2, 5)));
    const auto data = loaded(file);
    // Other pages under the same header, as a server leaves that has started over.
    std::string bytes = file.bytes();
    const std::string other = CurDataFile(smallFile(pagesOf(2, 5, 101))).bytes();
    const std::uint64_t start = file.layout.eventPages[0].point;
    std::fstream live(file.path, std::ios::in | std::ios::out | std::ios::binary);
    live.seekp(static_cast<std::streamoff>(start));
    live.write(other.data() + start, static_cast<std::streamsize>(other.size() - start));
    live.close();
    data->LoadData();
    EXPECT_EQ(storageOf(*data).pageIndex.nodeCount(), 2u);
    EXPECT_EQ(storageOf(*data).mappedCount(), 7u);
    EXPECT_EQ(numbersFrom(*iteratorOf(*data), 101), range(101, 110));
}

// ---- failures ----

TEST(CurDataLoad, OtherSignatureIsRefused) {
    sample::DataFile parts = smallFile();
    parts.header.signature = "0B6C6676-8C6E-4807-B8CA-60367206277B";
    const CurDataFile file(parts);
    const std::string before = file.bytes();
    TCurrentData data;
    data.Init(file.path.c_str(), false);
    const auto failure = raised<CError>([&] { data.LoadData(); });
    ASSERT_TRUE(failure);
    EXPECT_STREQ(failure->what(), "File type is incorrect");
    EXPECT_STREQ(failure->file, "dwdata/src/dw_curdata");
    EXPECT_TRUE(allLocksFree(data));
    EXPECT_EQ(storageOf(data).mappedCount(), 1u);
    EXPECT_EQ(storageOf(data).dataPages.length(), 0u);
    EXPECT_EQ(data.GetDataCust(0), nullptr);
    EXPECT_TRUE(file.bytes() == before);
    data.Close();
    EXPECT_EQ(differences(before, file.bytes()), kStamp);
}

TEST(CurDataLoad, SignatureThatGoesOnIsRefused) {
    sample::DataFile parts = smallFile();
    parts.damage.emplace_back(24 + 36, "x");
    const CurDataFile file(parts);
    EXPECT_EQ(raisedText([&] { loaded(file); }), "File type is incorrect");
}

TEST(CurDataLoad, ForeignFileCanBeFollowedByAGoodOne) {
    const CurDataFile foreign(std::string(1000, 'f'));
    const CurDataFile good(smallFile());
    TCurrentData data;
    data.Init(foreign.path.c_str(), false);
    EXPECT_EQ(raisedText([&] { data.LoadData(); }), "File type is incorrect");
    EXPECT_EQ(raisedText([&] { data.LoadData(); }), "File type is incorrect");
    EXPECT_EQ(storageOf(data).mappedCount(), 1u);
    data.Init(good.path.c_str(), false);
    data.LoadData();
    EXPECT_EQ(data.GetMaxSecs(), 8);
}

TEST(CurDataLoad, FailedLayoutIsToldTwice) {
    const TempFolder folder;
    const CapturedLog log;
    TCurrentData data;
    // A folder opens in no mode.
    const std::string path = folder.path().string();
    data.Init(path.c_str(), false);
    const auto load = raised<CError>([&] { data.LoadData(); });
    ASSERT_TRUE(load);
    EXPECT_EQ(load->what(), "Can't load data from file '" + path + "'");
    EXPECT_STREQ(load->file, "dwdata/src/dw_curdata");
    const auto reset = raised<CError>([&] { data.ResetData(); });
    ASSERT_TRUE(reset);
    EXPECT_EQ(reset->what(), "Can't reset data for file '" + path + "'");
    EXPECT_STREQ(reset->file, "dwdata/src/dw_curdata");
    const auto events = log.messages(CapturedLog::events);
    ASSERT_EQ(events.size(), 5u); // the open, and twice its repetition and the layout
    EXPECT_EQ(events[2].rfind("Error while reseting current data: MappableStorageFile "
                              "createMapping:",
                              0),
              0u)
        << events[2];
    EXPECT_EQ(events[4], events[2]);
    EXPECT_TRUE(allLocksFree(data));
}

TEST(CurDataLoad, ResetThatCannotUnmapHasNoTextOfItsOwn) {
    const CurDataFile file(smallFile());
    const auto data = loaded(file);
    const CapturedLog log;
    {
        const ScopedCalls calls;
        platform::calls.unmapView = [](void*) { return false; };
        EXPECT_EQ(raisedText([&] { data->ResetData(); }),
                  "Can't reset data for file '" + file.path + "'");
    }
    const auto events = log.messages(CapturedLog::events);
    ASSERT_EQ(events.size(), 2u);
    EXPECT_EQ(events[0].rfind("Error while reseting data: MappableStorageFile unmapPtr:", 0), 0u);
    EXPECT_EQ(events[1], "Error while reseting current data: Unknown error while reseting data.");
    EXPECT_TRUE(allLocksFree(*data));
    EXPECT_EQ(data->GetMaxSecs(), 0);
    data->ResetData();
    EXPECT_EQ(data->GetMaxSecs(), 50'000);
}

TEST(CurDataLoad, ResetThatFailsTellsTheLastErrorOfTheFile) {
    const CurDataFile file;
    const CapturedLog log;
    TCurrentData data;
    data.Init(file.path.c_str(), false);
    const std::string opening = log.messages(CapturedLog::events).at(0);
    data.LoadData();
    const ScopedCalls calls;
    platform::calls.unmapView = [](void*) { return false; };
    EXPECT_EQ(raisedText([&] { data.ResetData(); }),
              "Can't reset data for file '" + file.path + "'");
    EXPECT_EQ(
        log.messages(CapturedLog::events).back(),
        "Error while reseting current data: " + opening.substr(std::strlen("Allocating error: ")));
}

namespace {

// A storage whose stamp cannot be written.
class Unwritable : public TCurrentDataAccess::Storage {
  public:
    explicit Unwritable(const std::string& path)
        : TCurrentDataFileStorage(path.c_str(), false, s_last) {}
    void stampClosed() override { throw 1; }

  private:
    static inline std::atomic<std::int64_t> s_last{0};
};

} // namespace

TEST(CurDataLoad, FailureInTheDestructorGoesToTheErrorLog) {
    const CurDataFile file(smallFile());
    const CapturedLog log;
    {
        TCurrentData data;
        TCurrentDataAccess::storage(data) = new Unwritable(file.path);
    }
    const auto lines = log.messages(CapturedLog::errors);
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_NE(lines[0].find("Error: Unknown error in ~TCurrentData()"), std::string::npos);
}

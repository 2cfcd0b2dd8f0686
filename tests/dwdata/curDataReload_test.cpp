// Loads of an object that has been loaded: files that a server has made longer meanwhile, what the
// system is asked for, calls that fail; and what is left to an object whose file did not open.

#include "curDataFixture.h"
#include "libn/MappableStorage.h"
#include "platform/error.h"
#include "support/raised.h"
#include "support/scopedCalls.h"

namespace {

// Makes `file` that of `to`, which is longer, as a server does that has it open: by a mapping.
void growInPlace(const CurDataFile& file, const sample::DataFile& to) {
    const std::string bytes = sample::encodeDataFile(to);
    WinMappableStorageFile server(file.path.c_str());
    std::error_code error;
    ASSERT_TRUE(server.open(0, error)) << error.message();
    server.createMapping(bytes.size());
    void* const view = server.mapPtr(0, bytes.size());
    std::memcpy(view, bytes.data(), bytes.size());
    server.unmapPtr(view, bytes.size());
}

// Ten slots, of which number 3 tells the count of records.
sample::DataFile fileOf(int pages) {
    sample::DataFile parts = smallFile(pagesOf(pages, 5));
    parts.slots[3].setLong(1, 5 * pages);
    return parts;
}

void expectFileOf(TCurrentData& data, int pages) {
    EXPECT_EQ(storageOf(data).pageIndex.nodeCount(), static_cast<std::uint32_t>(pages));
    EXPECT_EQ(storageOf(data).mappedCount(), 7u); // header, five data pages, the newest page
    EXPECT_EQ(data.GetLongParam(3, 1), 5 * pages);
    EXPECT_EQ(numbersFrom(*iteratorOf(data), 1), range(1, 5 * pages));
    const int newest = 5 * pages - 4;
    EXPECT_EQ(numbersFrom(*iteratorOf(data), static_cast<std::uint32_t>(newest)),
              range(newest, 5 * pages));
}

// Counts what the system is asked for of mappings, and fails the next call where that is wanted.
struct MappingCalls {
    static inline platform::Calls real;
    static inline int made;
    static inline int closed;
    static inline bool failsToMake;
    static inline bool failsToClose;

    MappingCalls() {
        real = m_calls.saved();
        made = closed = 0;
        failsToMake = failsToClose = false;
        platform::calls.createMapping = [](platform::StorageHandle file, std::uint64_t size,
                                           bool writes) -> platform::MappingHandle {
            if (std::exchange(failsToMake, false))
                return nullptr;
            ++made;
            return real.createMapping(file, size, writes);
        };
        platform::calls.closeMapping = [](platform::MappingHandle mapping) {
            if (std::exchange(failsToClose, false))
                return false;
            ++closed;
            return real.closeMapping(mapping);
        };
    }

  private:
    ScopedCalls m_calls;
};

} // namespace

// ---- a file that has grown ----

TEST(CurDataReload, SecondLoadReachesPagesBehindTheOldEnd) {
    const CurDataFile file(fileOf(2));
    const auto data = loaded(file);
    std::uint64_t size = file.size();
    for (const int pages : {6, 40, 41, 300}) {
        growInPlace(file, fileOf(pages));
        EXPECT_GE(file.size(), size);
        size = file.size();
        data->LoadData();
        expectFileOf(*data, pages);
        EXPECT_EQ(file.size(), size);
    }
    EXPECT_GT(size, 4 * CurDataFile(fileOf(2)).size());
    data->Close();
    EXPECT_EQ(file.closeStamp(), 0xDDFDDFDDu);
}

TEST(CurDataReload, SecondLoadReachesPagesBehindTheOldEndAlsoAfterALayout) {
    const CurDataFile file(std::string{});
    const auto data = loaded(file);
    ASSERT_EQ(file.size(), 100'745'216u);
    sample::DataFile parts;
    parts.eventPages = pagesOf(601, 1);
    sample::DataFileLayout layout;
    {
        WinMappableStorageFile server(file.path.c_str());
        std::error_code error;
        ASSERT_TRUE(server.open(0, error)) << error.message();
        server.createMapping(file.size() + 1);
        ASSERT_EQ(file.size(), 200'745'216u);
        void* const view = server.mapPtr(0, file.size());
        sample::encodeDataParts(
            parts,
            [&](std::uint64_t offset, std::string_view bytes) {
                std::memcpy(static_cast<char*>(view) + offset, bytes.data(), bytes.size());
            },
            &layout);
        server.unmapPtr(view, file.size());
    }
    ASSERT_GT(layout.eventPages.back().point, 100'745'216u);
    data->LoadData();
    EXPECT_EQ(storageOf(*data).pageIndex.nodeCount(), 601u);
    EXPECT_EQ(numbersFrom(*iteratorOf(*data), 590), range(590, 601));
    EXPECT_EQ(file.size(), 200'745'216u);
}

TEST(CurDataReload, FileThatALoadMakesLongerIsLoadedAgain) {
    sample::DataFile parts = fileOf(3);
    parts.fileSize = CurDataFile(parts).layout.eventPages[0].point;
    const CurDataFile file(parts);
    const auto data = loaded(file);
    const std::uint64_t size = file.size();
    EXPECT_EQ(size, 2 * *parts.fileSize);
    data->LoadData();
    EXPECT_EQ(file.size(), size);
    EXPECT_EQ(data->GetLongParam(3, 1), 15);
}

// ---- what it asks the system for ----

TEST(CurDataReload, EveryLoadOfAGoodFileMakesOneMapping) {
    const CurDataFile file(fileOf(3));
    const MappingCalls calls;
    const auto data = loaded(file);
    for (int loads = 1; loads <= 3; ++loads) {
        EXPECT_EQ(calls.made, loads);
        EXPECT_EQ(calls.closed, loads - 1);
        data->LoadData();
    }
    data->Close();
    EXPECT_EQ(calls.closed, calls.made);
}

TEST(CurDataReload, MappingThatCannotBeMadeAnewIsMadeByTheNextLoad) {
    const CurDataFile file(fileOf(2));
    const MappingCalls calls;
    const auto data = loaded(file);
    growInPlace(file, fileOf(6));
    for (int i = 0; i < 2; ++i) {
        calls.failsToMake = true;
        const std::string start = "MappableStorageFile createMapping:name().c_str()<" + file.path +
                                  ">end<" + std::to_string(file.size()) + ">GetLastError()<";
        const std::string text = raisedText([&] { data->LoadData(); });
        EXPECT_TRUE(text.starts_with(start)) << text;
        EXPECT_TRUE(allLocksFree(*data));
        EXPECT_EQ(data->GetMaxSecs(), 0);
        EXPECT_EQ(data->GetDataCust(3), nullptr);
        EXPECT_EQ(iteratorOf(*data)->Begin(1), nullptr);
    }
    data->LoadData();
    expectFileOf(*data, 6);
    data->Close();
    EXPECT_EQ(calls.closed, calls.made);
}

TEST(CurDataReload, MappingThatCannotBeClosedIsClosedByTheNextLoad) {
    const CurDataFile file(fileOf(2));
    const MappingCalls calls;
    const auto data = loaded(file);
    growInPlace(file, fileOf(6));
    for (int i = 0; i < 2; ++i) {
        calls.failsToClose = true;
        const std::string text = raisedText([&] { data->LoadData(); });
        EXPECT_TRUE(
            text.starts_with("MappableStorageFile closeHanle:m_filePath.c_str()<" + file.path))
            << text;
        EXPECT_TRUE(allLocksFree(*data));
        EXPECT_EQ(data->GetDataCust(3), nullptr);
    }
    data->LoadData();
    expectFileOf(*data, 6);
    data->Close();
    EXPECT_EQ(calls.closed, calls.made);
}

// ---- a file that did not open ----

namespace {

// Lets a server, an object of its own, give slot 7 a value and append record 5 to the fresh file.
// `data` has its slots and not its journal, until another Init.
void expectSlotsWithoutAJournal(TCurrentData& data, const CurDataFile& file) {
    const auto server = loaded(file);
    VD_DATA_CUST& slot = *server->GetDataCust(7);
    slot.filled = 1;
    slot.values[2] = 42;
    const std::string record = sample::encodeRecord(recordOf(5));
    ASSERT_EQ(storageOf(*server).currentPage->append(record.data(), kRecordSize), 0);
    ASSERT_EQ(numbersFrom(*iteratorOf(*server), 0), range(5, 5));

    const auto iterator = iteratorOf(data);
    // The page is indexed under 0, as it had no record; after another load under its number.
    for (const std::uint32_t first : {0u, 5u}) {
        EXPECT_EQ(data.GetMaxSecs(), 50'000);
        EXPECT_EQ(data.GetLongParam(7, 2), 42);
        EXPECT_NE(storageOf(data).pageIndex.find(first).node, nullptr);
        EXPECT_EQ(iterator->Begin(first), nullptr);
        EXPECT_EQ(iterator->Current(), nullptr);
        EXPECT_EQ(iterator->Next(), nullptr);
        data.LoadData();
    }
    data.Init(file.path.c_str(), false);
    data.LoadData();
    EXPECT_EQ(data.GetLongParam(7, 2), 42);
    EXPECT_EQ(numbersFrom(*iterator, 5), range(5, 5));
}

platform::StorageHandle openNothing(const char*, platform::StorageAccess) {
    platform::setLastError(5);
    return platform::kInvalidStorage;
}

} // namespace

TEST(CurDataReload, FileThatALoadHasMadeIsWalkedOnlyAfterAnotherInit) {
    const CurDataFile file;
    const CapturedLog log;
    TCurrentData data;
    data.Init(file.path.c_str(), false);
    data.LoadData();
    expectSlotsWithoutAJournal(data, file);
}

TEST(CurDataReload, FileThatAResetHasMadeIsWalkedOnlyAfterAnotherInit) {
    const CurDataFile file;
    const CapturedLog log;
    TCurrentData data;
    data.Init(file.path.c_str(), false);
    data.ResetData();
    expectSlotsWithoutAJournal(data, file);
}

TEST(CurDataReload, AfterAResetThatCouldNotOpenFilesAreWalkedOnlyAfterAnotherInit) {
    const CapturedLog log;
    for (void (TCurrentData::*again)() : {&TCurrentData::ResetData, &TCurrentData::LoadData}) {
        const CurDataFile file(fileOf(2));
        const auto data = loaded(file);
        const auto held = iteratorOf(*data);
        EXPECT_EQ(numberOf(held->Begin(6)), 6);
        {
            const ScopedCalls calls;
            platform::calls.openStorage = openNothing;
            EXPECT_EQ(raisedText([&] { data->ResetData(); }),
                      "Can't reset data for file '" + file.path + "'");
        }
        (data.get()->*again)();
        EXPECT_EQ(numbersFrom(*held, 0), range(6, 10)) << "the page that it holds";
        expectSlotsWithoutAJournal(*data, file);
    }
}

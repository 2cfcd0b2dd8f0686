// TCurrentData: what its fields hold on the way through a layout, a load and a walk, which locks
// are held meanwhile, and what the ways to a slot cost.

#include <atomic>
#include <cstring>
#include <string>
#include <vector>

#include "curDataFixture.h"
#include "dwdata/curDataPage.h"
#include "dwdata/rwLock.h"
#include "libn/memTraceTable.h"
#include "support/countedNew.h"
#include "support/failingMalloc.h"
#include "support/raised.h"
#include "support/scopedCalls.h"

namespace {

// What the calls below look at, and the calls behind them.
TCurrentData* watched;
platform::Calls real;

// The number of pages that the header tells of, whenever a view is made.
std::vector<std::int32_t> pagesTold;

void* noteEventPages(platform::MappingHandle mapping, std::uint64_t offset, std::uint64_t size,
                     bool writes) {
    if (const CURDATA_HEADER* const header = storageOf(*watched).header)
        pagesTold.push_back(header->eventPageCount);
    return real.mapView(mapping, offset, size, writes);
}

// Resets the object; what the header told while its 276 pages were mapped.
std::vector<std::int32_t> pagesToldInAReset(TCurrentData& data) {
    watched = &data;
    pagesTold.clear();
    const ScopedCalls calls;
    platform::calls.mapView = noteEventPages;
    data.ResetData();
    return pagesTold;
}

} // namespace

// ---- layout ----

TEST(CurDataState, NewFileTellsOfNoJournalPageUntilThatIsMapped) {
    const CurDataFile file(smallFile(pagesOf(3, 2)));
    const auto data = loaded(file);
    const ScopedCalls calls;
    real = calls.saved();
    EXPECT_EQ(pagesToldInAReset(*data), std::vector<std::int32_t>(276, 0));
    EXPECT_EQ(storageOf(*data).header->eventPageCount, 1);
    // The same where the file could not be emptied, and so has the bytes of before.
    const std::string fresh(reinterpret_cast<const char*>(storageOf(*data).header),
                            sizeof(CURDATA_HEADER));
    std::memset(static_cast<void*>(storageOf(*data).header), 0x5A, sizeof(CURDATA_HEADER));
    storageOf(*data).header->eventPageCount = 3;
    platform::calls.openStorage = [](const char* path, platform::StorageAccess access) {
        access.disposition = platform::Disposition::openExisting;
        return real.openStorage(path, access);
    };
    EXPECT_EQ(pagesToldInAReset(*data), std::vector<std::int32_t>(276, 0));
    EXPECT_TRUE(std::memcmp(storageOf(*data).header, fresh.data(), fresh.size()) == 0);
}

TEST(CurDataState, ResetForgetsThePagesOfTheOldJournal) {
    const CurDataFile file(smallFile(pagesOf(3, 5)));
    const auto data = loaded(file);
    ASSERT_EQ(storageOf(*data).pageIndex.nodeCount(), 3u);
    data->ResetData();
    const auto& index = storageOf(*data).pageIndex;
    EXPECT_EQ(index.nodeCount(), 1u);
    ASSERT_NE(index.find(0).node, nullptr);
    EXPECT_EQ(index.find(0).node->value.offset(), 54'075'032u);
    EXPECT_EQ(index.find(1).node, nullptr);
}

TEST(CurDataState, LastPageIsNoneAgainAfterAnotherInit) {
    const CurDataFile file(smallFile(pagesOf(3, 5)));
    const auto data = loaded(file);
    ASSERT_NE(TCurrentDataAccess::lastPoint(*data), 0);
    data->Init(file.path.c_str(), false);
    EXPECT_EQ(TCurrentDataAccess::lastPoint(*data), 0);
}

TEST(CurDataState, FileOfAnotherTypeLosesItsCloseStampAtOnce) {
    sample::DataFile parts = smallFile();
    parts.header.signature = "0B6C6676-8C6E-4807-B8CA-60367206277B";
    parts.header.closeStamp = 0xDDFDDFDD;
    const CurDataFile file(parts);
    const std::string before = file.bytes();
    TCurrentData data;
    data.Init(file.path.c_str(), false);
    EXPECT_EQ(raisedText([&] { data.LoadData(); }), "File type is incorrect");
    EXPECT_EQ(file.closeStamp(), 0u);
    data.Close();
    EXPECT_TRUE(file.bytes() == before) << "closed again";
}

// ---- the end of a storage ----

TEST(CurDataState, StorageByItselfStampsTheFileAtItsEnd) {
    const CurDataFile file(smallFile());
    std::atomic<std::int64_t> last{0};
    {
        TCurrentDataAccess::Storage storage(file.path.c_str(), false, last);
        EXPECT_TRUE(storage.load());
        EXPECT_EQ(file.closeStamp(), 0u);
    }
    EXPECT_EQ(file.closeStamp(), 0xDDFDDFDDu);
}

TEST(CurDataState, PagesOfALoadGoWithItsFileAndWithTheNextLoad) {
    const CurDataFile file(smallFile(pagesOf(3, 2)));
    const auto data = loaded(file);
    data->Close(); // with what the thread makes once
    for (const std::uint32_t loads : {1u, 2u}) {
        const std::uint32_t mallocs = memCountMalloc, frees = memCountFree;
        data->Init(file.path.c_str(), false);
        for (std::uint32_t i = 0; i < loads; ++i)
            data->LoadData();
        const std::uint32_t views = storageOf(*data).mappedCount();
        data->Close();
        // The allocator leaves its own page of each view behind when all go at once.
        EXPECT_EQ((memCountMalloc - mallocs) - (memCountFree - frees), loads * views);
    }
}

// ---- walks ----

TEST(CurDataState, BeginKeepsTheNumberThatWasAskedFor) {
    const CurDataFile file(smallFile(pagesOf(2, 2)));
    const auto data = loaded(file);
    auto* const inside = new ICurData{data.get()};
    DwDataIFaces::ICurDataIterator iterator(inside);
    EXPECT_NE(iterator.Begin(3), nullptr);
    EXPECT_EQ(inside->inner->number, 3u);
    EXPECT_NE(iterator.Begin(0xFFFFFFFF), nullptr);
    EXPECT_EQ(inside->inner->number, 0xFFFFFFFF);
    // Also where no page can be found.
    storageOf(*data).pageIndex.clear();
    EXPECT_EQ(iterator.Begin(17), nullptr);
    EXPECT_EQ(inside->inner->number, 17u);
}

TEST(CurDataState, PageThatABeginCannotLoadLeavesTheOldOneWithoutAPlace) {
    const CurDataFile file(smallFile(pagesOf(4, 2)));
    const auto data = loaded(file);
    auto* const inside = new ICurData{data.get()};
    DwDataIFaces::ICurDataIterator iterator(inside);
    EXPECT_EQ(numberOf(iterator.Begin(1)), 1);
    {
        const ScopedCalls calls;
        platform::calls.readStorage = [](platform::StorageHandle, void*, std::uint32_t,
                                         std::uint32_t* done) {
            *done = 0;
            return false;
        };
        EXPECT_EQ(numberOf(iterator.Begin(3)), 1);
    }
    EXPECT_EQ(inside->inner->page.point(), FileWorkLibrary::file_point::none());
    EXPECT_EQ(numberOf(iterator.Next()), 2);
    EXPECT_EQ(iterator.Next(), nullptr) << "nothing follows a page without a place";
    EXPECT_EQ(numbersFrom(iterator, 3), range(3, 8));
}

// ---- locks ----

namespace {

using Lock = TCurrentDataAccess::Lock;

// Whether a writer has the lock, and no readers.
bool isTakenWhole(const Lock& lock) {
    std::uint32_t word = 0;
    static_assert(sizeof lock == sizeof word);
    std::memcpy(&word, &lock, sizeof word);
    return (word & rwLock::kWriter) != 0;
}

int looks;
int looksWithoutALock;

void lookAtLocks() {
    ++looks;
    looksWithoutALock += !(isTakenWhole(TCurrentDataAccess::pagesLock(*watched)) &&
                           isTakenWhole(TCurrentDataAccess::newPagesLock(*watched)) &&
                           isTakenWhole(TCurrentDataAccess::paramsLock(*watched)));
}

// Looks at the locks at each call of the system that a whole operation makes.
class LocksAtCalls {
  public:
    explicit LocksAtCalls(TCurrentData& data) {
        watched = &data;
        real = m_calls.saved();
        platform::calls.openStorage = [](const char* path, platform::StorageAccess access) {
            lookAtLocks();
            return real.openStorage(path, access);
        };
        platform::calls.closeStorage = [](platform::StorageHandle file) {
            lookAtLocks();
            return real.closeStorage(file);
        };
        platform::calls.mapView = [](platform::MappingHandle mapping, std::uint64_t offset,
                                     std::uint64_t size, bool writes) {
            lookAtLocks();
            return real.mapView(mapping, offset, size, writes);
        };
        platform::calls.unmapView = [](void* view) {
            lookAtLocks();
            return real.unmapView(view);
        };
    }

    // How often they were looked at in the call, -1 if a lock was not taken whole.
    template <class Call>
    static int during(Call call) {
        looks = looksWithoutALock = 0;
        call();
        return looksWithoutALock == 0 ? looks : -1;
    }

  private:
    ScopedCalls m_calls;
};

} // namespace

TEST(CurDataState, WholeOperationsKeepReadersOut) {
    const CurDataFile file(smallFile(pagesOf(1, 1)));
    auto data = std::make_unique<TCurrentData>();
    const LocksAtCalls calls(*data);
    EXPECT_GT(LocksAtCalls::during([&] { data->Init(file.path.c_str(), false); }), 0);
    EXPECT_GT(LocksAtCalls::during([&] { data->LoadData(); }), 0);
    EXPECT_GT(LocksAtCalls::during([&] { data->ResetData(); }), 0);
    EXPECT_GT(LocksAtCalls::during([&] { data->Close(); }), 0);
    data->Init(file.path.c_str(), false);
    data->LoadData();
    EXPECT_GT(LocksAtCalls::during([&] { data.reset(); }), 0);
}

// ---- the ways to a slot ----

TEST(CurDataState, ValuesOfASlotNeedNoMemoryAndNoCall) {
    sample::DataFile parts = smallFile();
    parts.slots[3].setDouble(4, 1.5);
    parts.slots[3].setLong(5, -7);
    const CurDataFile file(parts);
    const auto data = loaded(file);
    char copy[1072] = {};
    std::int32_t elements = -1;
    const ScopedCalls calls;
    platform::calls = {}; // any call would fault
    const std::size_t news = countedNews();
    const FailingMalloc failing;
    static int heapCalls;
    heapCalls = 0;
    {
        const WatchedHeap heap([](WatchedHeap::Call, void*, std::size_t) { ++heapCalls; });
        EXPECT_EQ(data->GetData4Reading(3, copy, 0), copy);
        EXPECT_EQ(data->GetData4Reading(-1, copy, 0), nullptr);
        EXPECT_EQ(data->GetDoubleParam(3, 4), 1.5);
        EXPECT_EQ(data->GetLongParam(3, 5), -7);
        EXPECT_EQ(data->GetLongParam(9, 5), 0);
        EXPECT_NE(data->GetDataCust(3), nullptr);
        EXPECT_EQ(data->GetMaxSecs(), 8);
        data->GetElements(&elements);
    }
    EXPECT_EQ(heapCalls, 0);
    EXPECT_EQ(countedNews(), news);
    EXPECT_EQ(elements, 0);
}

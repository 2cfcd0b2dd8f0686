// Walks over the change records of the current data.

#include <bit>
#include <thread>

#include "curDataFixture.h"
#include "dwdata/curDataPage.h"
#include "libn/memTraceTable.h"
#include "support/raised.h"
#include "support/scopedCalls.h"

namespace {

const std::string kReset = "Reset page on next";

// What stands behind the head of a record.
std::string payloadOf(const ENC_DATA* record) {
    return {reinterpret_cast<const char*>(record + 1), recordLength(*record) - sizeof *record};
}

double lastDouble(const ENC_DATA* record) {
    double value = 0;
    std::memcpy(&value, reinterpret_cast<const char*>(record) + kRecordSize - sizeof value,
                sizeof value);
    return value;
}

} // namespace

// ---- records ----

TEST(CurDataIterator, RecordComesAsItIsStored) {
    const CurDataFile file(smallFile({{{recordOf(7)}, {}, {}}}));
    const auto data = loaded(file);
    const auto iterator = iteratorOf(*data);
    const ENC_DATA* const record = iterator->Begin(0);
    ASSERT_NE(record, nullptr);
    EXPECT_EQ(record->dataField1, 7);
    EXPECT_EQ(record->dataField2, 1007);
    EXPECT_EQ(record->dataField3, 2007);
    EXPECT_EQ(record->sec_id, 3007u);
    EXPECT_EQ(record->class_id, 4007);
    EXPECT_EQ(record->maskSize, 16);
    EXPECT_EQ(record->longCount, 2);
    EXPECT_EQ(record->doubleCount, 3);
    EXPECT_EQ(recordLength(*record), 80u);
    EXPECT_TRUE(payloadOf(record) == sample::encodeRecord(recordOf(7)).substr(32));
}

TEST(CurDataIterator, LengthCountsMaskLongsAndDoubles) {
    ENC_DATA head{};
    EXPECT_EQ(recordLength(head), 32u);
    head.maskSize = 255;
    head.longCount = 255;
    head.doubleCount = 255;
    EXPECT_EQ(recordLength(head), 32u + 255 + 4 * 255 + 8 * 255);
}

TEST(CurDataIterator, RecordsOfAllLengthsFollowWithoutAGap) {
    std::vector<sample::EventPage> pages(1);
    for (int i = 0; i < 6; ++i) {
        sample::Record record;
        record.dataField1 = i;
        record.mask.resize(static_cast<std::size_t>(i));
        record.longs.resize(static_cast<std::size_t>(i % 3));
        record.doubles.resize(static_cast<std::size_t>(5 - i));
        pages[0].records.push_back(record);
    }
    // The last one is a head alone, up to the last byte in use.
    pages[0].records.push_back({});
    pages[0].records.back().dataField1 = 6;
    const CurDataFile file(smallFile(pages));
    const auto data = loaded(file);
    EXPECT_EQ(numbersFrom(*iteratorOf(*data), 0), range(0, 6));
}

TEST(CurDataIterator, WithoutBeginThereIsNothing) {
    const CurDataFile file(smallFile(pagesOf(1, 2)));
    const auto data = loaded(file);
    const auto iterator = iteratorOf(*data);
    EXPECT_EQ(iterator->Current(), nullptr);
    EXPECT_EQ(iterator->Next(), nullptr);
    EXPECT_EQ(DwDataIFaces::ICurDataIterator(nullptr).Begin(0), nullptr);
    EXPECT_EQ(DwDataIFaces::ICurDataIterator(nullptr).Next(), nullptr);
    EXPECT_EQ(DwDataIFaces::ICurDataIterator(new ICurData).Begin(0), nullptr);
    const DwDataIFaces::ICurDataCust owner(new ICurData{data.get()});
}

TEST(CurDataIterator, CurrentBehindBeginIsTheSecondRecord) {
    const CurDataFile file(smallFile(pagesOf(1, 2)));
    const auto data = loaded(file);
    const auto iterator = iteratorOf(*data);
    EXPECT_EQ(numberOf(iterator->Begin(1)), 1);
    EXPECT_EQ(numberOf(iterator->Current()), 2);
    EXPECT_EQ(numberOf(iterator->Current()), 2);
    EXPECT_EQ(numberOf(iterator->Next()), 2);
    EXPECT_EQ(iterator->Current(), nullptr);
}

// ---- Begin ----

TEST(CurDataIterator, BeginFindsThePageOfAFirstNumber) {
    const CurDataFile file(smallFile(pagesOf(3, 5)));
    const auto data = loaded(file);
    const auto iterator = iteratorOf(*data);
    EXPECT_EQ(numbersFrom(*iterator, 6), range(6, 15));
    EXPECT_EQ(numbersFrom(*iterator, 11), range(11, 15));
    EXPECT_EQ(numbersFrom(*iterator, 1), range(1, 15));
}

TEST(CurDataIterator, BeginElsewhereGivesTheFirstRecordOfANeighbour) {
    const CurDataFile file(smallFile(pagesOf(3, 5)));
    const auto data = loaded(file);
    const auto iterator = iteratorOf(*data);
    EXPECT_EQ(numberOf(iterator->Begin(0)), 1);
    EXPECT_EQ(numberOf(iterator->Begin(UINT32_MAX)), 11);
    for (unsigned number = 2; number < 6; ++number) {
        const std::int32_t first = numberOf(iterator->Begin(number));
        EXPECT_TRUE(first == 1 || first == 6) << number;
    }
}

TEST(CurDataIterator, PageWithoutRecordsBeginsWithNull) {
    const CurDataFile file(smallFile());
    const auto data = loaded(file);
    const CapturedLog log;
    const auto iterator = iteratorOf(*data);
    EXPECT_EQ(iterator->Begin(0), nullptr);
    EXPECT_EQ(log.size(), 0u);
}

TEST(CurDataIterator, NewWalkSeesWhatWasAppended) {
    const CurDataFile file(smallFile(pagesOf(2, 2)));
    const auto data = loaded(file);
    const auto server = loaded(file);
    const auto iterator = iteratorOf(*data);
    EXPECT_EQ(numberOf(iterator->Begin(3)), 3);
    const std::string bytes = sample::encodeRecord(recordOf(5));
    ASSERT_EQ(storageOf(*server).currentPage->append(bytes.data(), kRecordSize), 0);
    EXPECT_EQ(numberOf(iterator->Next()), 4);
    EXPECT_EQ(iterator->Next(), nullptr);
    EXPECT_EQ(numbersFrom(*iterator, 3), range(3, 5));
}

// ---- Next ----

TEST(CurDataIterator, EndOfTheJournalIsToldOnce) {
    const CurDataFile file(smallFile(pagesOf(2, 3)));
    const auto data = loaded(file);
    const CapturedLog log;
    const auto iterator = iteratorOf(*data);
    EXPECT_EQ(numbersFrom(*iterator, 1), range(1, 6));
    EXPECT_EQ(log.messages(CapturedLog::events), std::vector<std::string>{kReset});
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(iterator->Next(), nullptr);
    EXPECT_EQ(iterator->Current(), nullptr);
    EXPECT_EQ(log.size(), 1u);
    EXPECT_TRUE(allLocksFree(*data));
}

TEST(CurDataIterator, PageMayBeFullToItsLastByte) {
    auto parts = smallFile(pagesOf(3, 5));
    parts.header.eventPageSize = 5 * kRecordSize;
    parts.header.currentEventPage = parts.header.eventPoint(0); // all but the first are read
    const CurDataFile file(parts);
    const auto data = loaded(file);
    const auto iterator = iteratorOf(*data);
    int number = 0;
    for (ENC_DATA* record = iterator->Begin(6); record; record = iterator->Next()) {
        number = record->dataField1;
        EXPECT_EQ(lastDouble(record), number + 0.75);
    }
    EXPECT_EQ(number, 15);
}

TEST(CurDataIterator, MappedPageComesWithoutItsLast24Bytes) {
    auto parts = smallFile(pagesOf(2, 5));
    parts.header.eventPageSize = 5 * kRecordSize;
    const CurDataFile file(parts);
    const auto data = loaded(file);
    // The newest page is mapped.  A new buffer has zeroes where the copy ends.
    const auto fresh = iteratorOf(*data);
    ENC_DATA* record = fresh->Begin(6);
    for (int number = 6; number <= 10; ++number, record = fresh->Next()) {
        ASSERT_EQ(numberOf(record), number);
        EXPECT_EQ(lastDouble(record), number < 10 ? number + 0.75 : 0.0);
    }
    // A used one has what the page before left there.
    const auto used = iteratorOf(*data);
    record = used->Begin(1);
    for (int number = 1; number <= 10; ++number, record = used->Next()) {
        ASSERT_EQ(numberOf(record), number);
        EXPECT_EQ(lastDouble(record), number < 10 ? number + 0.75 : 5.75);
    }
}

TEST(CurDataIterator, MappedPageWithAFreeTailComesWhole) {
    const CurDataFile file(smallFile(pagesOf(2, 5)));
    const auto data = loaded(file);
    const auto iterator = iteratorOf(*data);
    for (ENC_DATA* record = iterator->Begin(1); record; record = iterator->Next())
        EXPECT_EQ(lastDouble(record), record->dataField1 + 0.75);
}

TEST(CurDataIterator, LastPageOfTheFileIsWalkedTwice) {
    auto parts = smallFile(pagesOf(2, 3));
    parts.zeroBlockBehind = false;
    const CurDataFile file(parts);
    const std::uint64_t size = file.size();
    const auto data = loaded(file);
    const CapturedLog log;
    const auto iterator = iteratorOf(*data);
    auto numbers = range(1, 6);
    for (const int again : {4, 5, 6})
        numbers.push_back(again);
    EXPECT_EQ(numbersFrom(*iterator, 1), numbers);
    EXPECT_EQ(log.size(), 0u);
    EXPECT_EQ(file.size(), size);
    // The page is still there, so it comes for whoever goes on.
    EXPECT_EQ(numberOf(iterator->Next()), 4);
}

TEST(CurDataIterator, PagesBehindThoseOfTheLoadAreReached) {
    auto parts = smallFile(pagesOf(4, 5));
    parts.header.eventPageCount = 1;
    parts.header.currentEventPage = parts.header.eventPoint(0);
    const CurDataFile file(parts);
    const auto data = loaded(file);
    EXPECT_EQ(storageOf(*data).pageIndex.nodeCount(), 1u);
    EXPECT_EQ(numbersFrom(*iteratorOf(*data), 1), range(1, 20));
}

TEST(CurDataIterator, BufferIsKeptFromPageToPage) {
    const CurDataFile file(smallFile(pagesOf(3, 5)));
    const auto data = loaded(file);
    const auto iterator = iteratorOf(*data);
    const ENC_DATA* const first = iterator->Begin(1);
    for (int i = 0; i < 5; ++i)
        iterator->Next();
    EXPECT_EQ(iterator->Begin(11), first);
}

TEST(CurDataIterator, LogFileOfAHostSeesNothingOfOrdinarySteps) {
    const CurDataFile file(smallFile(pagesOf(3, 5)));
    const auto data = loaded(file);
    const CapturedLog log;
    const auto iterator = iteratorOf(*data);
    iterator->Begin(1);
    for (int i = 0; i < 14; ++i)
        iterator->Next();
    EXPECT_EQ(log.size(), 0u);
}

TEST(CurDataIterator, ClosedDataEndsAWalk) {
    const CurDataFile file(smallFile(pagesOf(2, 2)));
    const auto data = loaded(file);
    const auto iterator = iteratorOf(*data);
    ASSERT_NE(iterator->Begin(1), nullptr);
    data->Close();
    // The private page stays.
    EXPECT_EQ(numberOf(iterator->Next()), 2);
    EXPECT_EQ(iterator->Next(), nullptr);
    EXPECT_EQ(iterator->Next(), nullptr);
    EXPECT_EQ(iterator->Current(), nullptr);
    EXPECT_EQ(iterator->Begin(1), nullptr);
    data->Init(file.path.c_str(), false);
    EXPECT_EQ(iterator->Begin(1), nullptr) << "open and not loaded";
    data->LoadData();
    EXPECT_EQ(numbersFrom(*iterator, 1), range(1, 4));
}

TEST(CurDataIterator, FileThatIsOpenAndNotLoadedEndsAWalk) {
    const CurDataFile file(smallFile(pagesOf(2, 1)));
    const auto data = loaded(file);
    const auto iterator = iteratorOf(*data);
    EXPECT_EQ(numberOf(iterator->Begin(1)), 1);
    data->Init(file.path.c_str(), false);
    EXPECT_EQ(iterator->Next(), nullptr);
    EXPECT_EQ(iterator->Current(), nullptr);
    EXPECT_TRUE(allLocksFree(*data));
}

TEST(CurDataIterator, EndOfTheIteratorReleasesItsPage) {
    const CurDataFile file(smallFile(pagesOf(2, 2)));
    const auto data = loaded(file);
    for (const bool walked : {false, true}) {
        const std::uint32_t mallocs = memCountMalloc, frees = memCountFree;
        auto iterator = iteratorOf(*data);
        EXPECT_EQ(walked && iterator->Begin(1) != nullptr, walked);
        EXPECT_EQ(memCountMalloc - mallocs, walked ? 2u : 1u);
        iterator.reset();
        EXPECT_EQ(memCountFree - frees, memCountMalloc - mallocs);
    }
}

// ---- which lock a page is loaded under ----

namespace {

// What a read of the file finds locked: 'p' for pagesLock, 'n' for newPagesLock, '!' for both or
// exclusively, '-' for none.
TCurrentData* watched;
std::string heldAtReads;
bool (*realRead)(platform::StorageHandle, void*, std::uint32_t, std::uint32_t*);

bool isHeld(TCurrentDataAccess::Lock& lock) {
    const bool free = lock.try_lock();
    if (free)
        lock.unlock();
    return !free;
}

bool noteLocks(platform::StorageHandle file, void* out, std::uint32_t size, std::uint32_t* done) {
    const bool pages = isHeld(TCurrentDataAccess::pagesLock(*watched));
    const bool newPages = isHeld(TCurrentDataAccess::newPagesLock(*watched));
    heldAtReads += pages && newPages ? '!' : pages ? 'p' : newPages ? 'n' : '-';
    // Shared alone: others get in.
    if (pages || newPages) {
        auto& lock = pages ? TCurrentDataAccess::pagesLock(*watched)
                           : TCurrentDataAccess::newPagesLock(*watched);
        std::thread([&] {
            lock.lock_shared();
            lock.unlock_shared();
        }).join();
    }
    return realRead(file, out, size, done);
}

} // namespace

TEST(CurDataIterator, PagesBehindTheLastKnownOneAreLeftUnderALockOfTheirOwn) {
    auto parts = smallFile(pagesOf(5, 2));
    parts.header.eventPageCount = 2;
    parts.header.currentEventPage = parts.header.eventPoint(4) + 480; // the zeroed block
    const CurDataFile file(parts);
    const auto data = loaded(file);
    const auto iterator = iteratorOf(*data);
    const ScopedCalls calls;
    watched = data.get();
    heldAtReads.clear();
    realRead = calls.saved().readStorage;
    platform::calls.readStorage = noteLocks;
    EXPECT_EQ(numberOf(iterator->Begin(1)), 1); // no page yet
    for (int i = 0; i < 9; ++i)
        iterator->Next();
    // Left: none, page 0, page 1 (the last one known), page 2, page 3.
    EXPECT_EQ(heldAtReads, "pppnn");
    // A Begin looks at the page that is left, too.
    EXPECT_EQ(numberOf(iterator->Begin(1)), 1);
    EXPECT_EQ(numberOf(iterator->Begin(3)), 3);
    EXPECT_EQ(heldAtReads, "pppnnnp");
    EXPECT_TRUE(allLocksFree(*data));
}

namespace {

bool allLocksHeld(TCurrentData& data) {
    return isHeld(TCurrentDataAccess::pagesLock(data)) &&
           isHeld(TCurrentDataAccess::newPagesLock(data)) &&
           isHeld(TCurrentDataAccess::paramsLock(data));
}

} // namespace

TEST(CurDataIterator, WholeOperationsHoldAllLocks) {
    const CurDataFile file(smallFile(pagesOf(1, 1)));
    TCurrentData data;
    const ScopedCalls calls;
    static platform::MappingHandle (*realMap)(platform::StorageHandle, std::uint64_t, bool);
    static bool (*realClose)(platform::StorageHandle);
    static int seen;
    static int free;
    seen = free = 0;
    watched = &data;
    realMap = calls.saved().createMapping;
    realClose = calls.saved().closeStorage;
    platform::calls.createMapping = [](platform::StorageHandle handle, std::uint64_t size,
                                       bool writes) {
        ++seen;
        free += !allLocksHeld(*watched);
        return realMap(handle, size, writes);
    };
    platform::calls.closeStorage = [](platform::StorageHandle handle) {
        ++seen;
        free += !allLocksHeld(*watched);
        return realClose(handle);
    };
    data.Init(file.path.c_str(), false);
    data.LoadData();
    EXPECT_GE(seen, 1);
    const int loads = seen;
    data.ResetData();
    EXPECT_GT(seen, loads);
    const int resets = seen;
    data.Close();
    EXPECT_GT(seen, resets);
    EXPECT_EQ(free, 0);
    EXPECT_TRUE(allLocksFree(data));

    const int closes = seen;
    {
        TCurrentData gone;
        watched = &gone;
        gone.Init(file.path.c_str(), false);
        gone.LoadData();
    }
    EXPECT_GT(seen, closes);
    EXPECT_EQ(free, 0);
}

TEST(CurDataIterator, EightWalksAtATime) {
    const CurDataFile file(smallFile(pagesOf(6, 5)));
    const auto data = loaded(file);
    std::atomic<int> whole{0};
    std::vector<std::thread> threads;
    for (int number = 0; number < 8; ++number)
        threads.emplace_back([&] {
            for (int round = 0; round < 20; ++round)
                whole += numbersFrom(*iteratorOf(*data), 1) == range(1, 30);
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(whole, 160);
    EXPECT_TRUE(allLocksFree(*data));
}

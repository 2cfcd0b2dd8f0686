// TCurrentData: values of slots, and their lock.

#include <atomic>
#include <bit>
#include <chrono>
#include <thread>

#include "curDataFixture.h"
#include "dwdata/slotLock.h"

namespace {

// A slot whose every byte tells its security.
sample::Slot slotOf(std::uint32_t security) {
    sample::Slot made;
    made.class_id = static_cast<std::int32_t>(100 + security);
    made.setDouble(0, security + 0.5);
    made.setLong(1, -static_cast<std::int32_t>(security));
    made.setDouble(127, security * 2.0);
    return made;
}

sample::DataFile filledFile(std::vector<std::uint32_t> securities) {
    sample::DataFile parts = smallFile();
    for (const std::uint32_t security : securities)
        parts.slots[security] = slotOf(security);
    return parts;
}

struct Copy {
    char bytes[1072];
    std::string text() const { return {bytes, sizeof bytes}; }
};

} // namespace

// ---- finding a slot ----

TEST(CurDataSlots, EverySlotStandsAtItsPlace) {
    const CurDataFile file(filledFile({0, 1, 2, 3, 4, 5, 6, 7, 8, 9}));
    const auto data = loaded(file);
    for (std::int32_t security = 0; security < 10; ++security) {
        const VD_DATA_CUST* const slot = data->GetDataCust(security);
        ASSERT_NE(slot, nullptr) << security;
        EXPECT_EQ(slot->class_id, 100 + security);
        EXPECT_EQ(std::bit_cast<double>(std::uint64_t{slot->values[0]}), security + 0.5);
        EXPECT_EQ(data->GetDoubleParam(security, 127), security * 2.0);
        EXPECT_EQ(data->GetLongParam(security, 1), -security);
    }
}

TEST(CurDataSlots, Security182BeginsTheSecondPageOfAUsualFile) {
    const CurDataFile file(std::string{});
    const auto data = loaded(file);
    auto& list = storageOf(*data).dataPages;
    EXPECT_EQ(reinterpret_cast<char*>(data->GetDataCust(182)), list[1]->payload());
    EXPECT_EQ(reinterpret_cast<char*>(data->GetDataCust(181)), list[0]->payload() + 181 * 1080);
    for (std::int32_t index = 0; index < 275 * 182; ++index)
        ASSERT_EQ(reinterpret_cast<char*>(data->GetDataCust(index)),
                  list[static_cast<std::uint32_t>(index / 182)]->payload() + index % 182 * 1080);
}

TEST(CurDataSlots, EveryNumberOfSlotsOnAPageIsDividedExactly) {
    for (const std::uint32_t each : {1u, 2u, 3u, 7u, 64u, 181u, 1000u}) {
        sample::DataFile parts;
        parts.header.dataPageSize = each * 1080 + 4;
        parts.header.dataPageCount = 4;
        parts.header.eventPageSize = 100;
        const CurDataFile file(parts);
        const auto data = loaded(file);
        for (std::uint32_t index = 0; index < 4 * each; ++index)
            ASSERT_EQ(reinterpret_cast<char*>(data->GetDataCust(static_cast<std::int32_t>(index))),
                      storageOf(*data).dataPages[index / each]->payload() + index % each * 1080)
                << each;
        EXPECT_EQ(data->GetDataCust(static_cast<std::int32_t>(4 * each)), nullptr);
    }
}

TEST(CurDataSlots, SlotsThatAreNotMappedAnswerNothing) {
    const CurDataFile file(filledFile({0}));
    const auto data = loaded(file);
    Copy copy = {};
    for (const std::int32_t index : {10, 11, 49'999, 50'000, INT32_MAX, -1, INT32_MIN}) {
        EXPECT_EQ(data->GetDataCust(index), nullptr) << index;
        EXPECT_EQ(data->GetData4Reading(index, &copy, 0), nullptr) << index;
        EXPECT_EQ(data->GetDoubleParam(index, 0), 0.0) << index;
        EXPECT_EQ(data->GetLongParam(index, 0), 0) << index;
    }
    EXPECT_EQ(copy.text(), std::string(1072, '\0'));
    EXPECT_EQ(storageOf(*data).dataPages.length(), 5u);
}

// ---- copies ----

TEST(CurDataSlots, CopyIsTheSlotBehindItsFirstEightBytes) {
    const CurDataFile file(filledFile({3}));
    const auto data = loaded(file);
    Copy copy;
    EXPECT_EQ(data->GetData4Reading(3, &copy, 12345), &copy);
    EXPECT_TRUE(copy.text() == sample::encodeSlot(slotOf(3)).substr(8));
    EXPECT_EQ(data->GetData4Reading(3, nullptr, 0), nullptr);
}

TEST(CurDataSlots, CopiesEndBefore50000WhateverTheFileIsMadeFor) {
    sample::DataFile parts;
    parts.header.maxSecs = 60'000;
    parts.slots[49'999] = slotOf(49'999);
    parts.slots[50'000] = slotOf(50'000);
    const TempFolder folder;
    const std::string path = folder.name("data.vd");
    sample::writeDataFile(path, parts);
    TCurrentData data;
    data.Init(path.c_str(), false);
    data.LoadData();
    EXPECT_EQ(data.GetMaxSecs(), 60'000);
    Copy copy;
    EXPECT_EQ(data.GetData4Reading(49'999, &copy, 0), &copy);
    EXPECT_TRUE(copy.text() == sample::encodeSlot(slotOf(49'999)).substr(8));
    EXPECT_EQ(data.GetData4Reading(50'000, &copy, 0), nullptr);
    EXPECT_EQ(data.GetData4Reading(-1, &copy, 0), nullptr);
    EXPECT_TRUE(copy.text() == sample::encodeSlot(slotOf(49'999)).substr(8));
    EXPECT_EQ(data.GetDataCust(50'000)->class_id, 50'100);
}

// ---- parameters ----

TEST(CurDataSlots, SlotThatIsNotFilledHasNoValues) {
    sample::DataFile parts = filledFile({2});
    parts.slots[2].filled = 0;
    const CurDataFile file(parts);
    const auto data = loaded(file);
    EXPECT_EQ(data->GetDoubleParam(2, 0), 0.0);
    EXPECT_EQ(data->GetLongParam(2, 1), 0);
    data->GetDataCust(2)->filled = 0x100;
    EXPECT_EQ(data->GetDoubleParam(2, 0), 2.5);
    EXPECT_EQ(data->GetLongParam(2, 1), -2);
}

TEST(CurDataSlots, MaskIsNotLookedAt) {
    sample::DataFile parts = filledFile({2});
    parts.slots[2].mask = {};
    const CurDataFile file(parts);
    EXPECT_EQ(loaded(file)->GetDoubleParam(2, 0), 2.5);
}

TEST(CurDataSlots, LongIsTheLowHalf) {
    sample::DataFile parts = filledFile({2});
    parts.slots[2].values[9] = 0x7FFFFFFF80000001;
    const CurDataFile file(parts);
    EXPECT_EQ(loaded(file)->GetLongParam(2, 9), INT32_MIN + 1);
}

TEST(CurDataSlots, ParametersAbove127AreZero) {
    sample::DataFile parts = filledFile({2, 3});
    const CurDataFile file(parts);
    const auto data = loaded(file);
    EXPECT_EQ(data->GetDoubleParam(2, 127), 4.0);
    for (const std::uint64_t param :
         {std::uint64_t{128}, std::uint64_t{1} << 32, ~std::uint64_t{0}}) {
        EXPECT_EQ(data->GetDoubleParam(2, param), 0.0);
        EXPECT_EQ(data->GetLongParam(2, param), 0);
    }
}

TEST(CurDataSlots, WritesOfTheServerAreSeenAtOnce) {
    const CurDataFile file(filledFile({1}));
    const auto data = loaded(file);
    const auto server = loaded(file);
    server->GetDataCust(1)->values[5] = std::bit_cast<std::uint64_t>(6.25);
    EXPECT_EQ(data->GetDoubleParam(1, 5), 6.25);
    storageOf(*server).header->elements = 17;
    std::int32_t elements = 0;
    data->GetElements(&elements);
    EXPECT_EQ(elements, 17);
    storageOf(*server).header->maxSecs = 5;
    EXPECT_EQ(data->GetMaxSecs(), 5);
}

// ---- the slot's lock ----

TEST(CurDataSlots, LockIsGivenBackAfterEveryAccess) {
    const CurDataFile file(filledFile({1}));
    const auto data = loaded(file);
    VD_DATA_CUST* const slot = data->GetDataCust(1);
    // Anything but 1 is free.
    slot->lock = 5;
    Copy copy;
    data->GetData4Reading(1, &copy, 0);
    EXPECT_EQ(slot->lock, 0u);
    slot->lock = 0xFFFFFFFF;
    EXPECT_EQ(data->GetDoubleParam(1, 0), 1.5);
    EXPECT_EQ(slot->lock, 0u);
    slot->filled = 0;
    EXPECT_EQ(data->GetLongParam(1, 1), 0);
    EXPECT_EQ(slot->lock, 0u);
}

TEST(CurDataSlots, HeldSlotIsWaitedForUnderTheParametersLock) {
    const CurDataFile file(filledFile({1}));
    const auto data = loaded(file);
    for (int getter = 0; getter < 3; ++getter) {
        VD_DATA_CUST* const slot = data->GetDataCust(1);
        EXPECT_EQ(platform::exchangeWord(&slot->lock, 1), 0u);
        std::atomic<bool> done{false};
        double got = 0;
        std::thread reader([&] {
            Copy copy = {};
            if (getter == 0)
                got = data->GetDoubleParam(1, 0);
            else if (getter == 1)
                got = data->GetLongParam(1, 1);
            else
                got = data->GetData4Reading(1, &copy, 0) == &copy ? 7 : 0;
            done = true;
        });
        auto& paramsLock = TCurrentDataAccess::paramsLock(*data);
        while (paramsLock.try_lock()) {
            paramsLock.unlock();
            std::this_thread::yield();
        }
        EXPECT_TRUE(TCurrentDataAccess::pagesLock(*data).try_lock());
        TCurrentDataAccess::pagesLock(*data).unlock();
        for (int i = 0; i < 100; ++i)
            std::this_thread::yield();
        EXPECT_FALSE(done);
        // Other slots are not stalled, and the bare slot is never.
        EXPECT_EQ(data->GetLongParam(0, 1), 0);
        EXPECT_EQ(data->GetDataCust(1)->class_id, 101);
        platform::exchangeWord(&slot->lock, 0);
        reader.join();
        EXPECT_EQ(got, getter == 0 ? 1.5 : getter == 1 ? -1.0 : 7.0);
        EXPECT_EQ(slot->lock, 0u);
        EXPECT_TRUE(allLocksFree(*data));
    }
}

TEST(CurDataSlots, LockWordsMayStandAnywhere) {
    sample::DataFile parts = filledFile({0, 1, 2, 3, 4, 5, 6, 7, 8});
    parts.header.dataPageSize = 2 * 1080 + 5;
    parts.header.firstDataPage = 135;
    const CurDataFile file(parts);
    const auto data = loaded(file);
    for (std::int32_t security = 0; security < 9; ++security) {
        Copy copy;
        EXPECT_EQ(data->GetDoubleParam(security, 0), security + 0.5);
        EXPECT_EQ(data->GetLongParam(security, 1), -security);
        ASSERT_EQ(data->GetData4Reading(security, &copy, 0), &copy);
        EXPECT_TRUE(copy.text() ==
                    sample::encodeSlot(slotOf(static_cast<std::uint32_t>(security))).substr(8));
        EXPECT_EQ(std::uint32_t{data->GetDataCust(security)->lock}, 0u);
    }
    char word[12] = {};
    for (int at = 0; at < 8; ++at) {
        EXPECT_EQ(platform::exchangeWord(word + at, 0x01020304), 0u) << at;
        EXPECT_EQ(word[at], 4);
        EXPECT_EQ(word[at + 3], 1);
        EXPECT_EQ(platform::exchangeWord(word + at, 0), 0x01020304u) << at;
    }
}

// ---- threads ----

namespace {

constexpr int kRounds = 2'000;

// What a server does: takes the lock, makes all values of the slot the same, gives it back.
void writeSlot(TCurrentData& data, std::int32_t security, std::int32_t value) {
    VD_DATA_CUST* const slot = data.GetDataCust(security);
    const SlotLock held(reinterpret_cast<char*>(slot));
    slot->filled = 1;
    for (int param = 0; param < 128; ++param)
        slot->values[param] = static_cast<std::uint32_t>(value);
}

bool isWhole(const Copy& copy) {
    return std::memcmp(copy.bytes + 48, copy.bytes + 56, 127 * 8) == 0;
}

} // namespace

TEST(CurDataSlots, EightThreadsReadWhatTwoWriteWithoutATornSlot) {
    const CurDataFile file(smallFile());
    const auto data = loaded(file);
    for (std::int32_t security = 0; security < 4; ++security)
        writeSlot(*data, security, 1);
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int number = 0; number < 8; ++number)
        threads.emplace_back([&, number] {
            for (int round = 0; round < kRounds; ++round) {
                const std::int32_t security = (number + round) % 4;
                Copy copy;
                if (data->GetData4Reading(security, &copy, 0) != &copy || !isWhole(copy))
                    ++wrong;
                if (data->GetLongParam(security, 127) < 1)
                    ++wrong;
                if (std::bit_cast<std::uint64_t>(data->GetDoubleParam(security, 64)) == 0)
                    ++wrong;
            }
        });
    for (int writer = 0; writer < 2; ++writer)
        threads.emplace_back([&] {
            for (int round = 0; round < kRounds; ++round)
                writeSlot(*data, round % 4, 2 + round);
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(wrong, 0);
    EXPECT_TRUE(allLocksFree(*data));
}

TEST(CurDataSlots, LoadsResetsAndClosesMeetReadersInOrder) {
    const CurDataFile file(filledFile({1}));
    const auto data = loaded(file);
    std::atomic<bool> stop{false};
    std::atomic<int> wrong{0};
    std::vector<std::thread> readers;
    for (int number = 0; number < 3; ++number)
        readers.emplace_back([&] {
            while (!stop) {
                const double value = data->GetDoubleParam(1, 0);
                if (value != 0.0 && value != 1.5)
                    ++wrong;
                const auto iterator = iteratorOf(*data);
                if (iterator->Begin(1) != nullptr || iterator->Current() != nullptr)
                    ++wrong;
            }
        });
    for (int round = 0; round < 50; ++round) {
        data->LoadData();
        data->Close();
        data->Init(file.path.c_str(), false);
    }
    stop = true;
    for (std::thread& thread : readers)
        thread.join();
    EXPECT_EQ(wrong, 0);
}

TEST(CurDataSlots, WriterWaitsForTheLastReader) {
    TCurrentData data;
    auto& lock = TCurrentDataAccess::paramsLock(data);
    lock.lock_shared();
    std::atomic<bool> comes{false};
    std::atomic<int> step{0};
    std::thread writer([&] {
        comes = true;
        lock.lock();
        step = 1;
        lock.unlock();
    });
    std::thread reader([&] {
        while (step == 0 && lock.try_lock())
            lock.unlock();
        lock.lock_shared();
        lock.unlock_shared();
    });
    while (!comes)
        std::this_thread::yield();
    // Long enough for one that would not wait.
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    // One reader holds the lock, so the writer waits.
    EXPECT_EQ(step, 0);
    EXPECT_FALSE(lock.try_lock());
    lock.unlock_shared();
    writer.join();
    reader.join();
    EXPECT_EQ(step, 1);
    EXPECT_TRUE(allLocksFree(data));
}

TEST(CurDataSlots, WritersAndReadersOfALockExcludeEachOther) {
    TCurrentData data;
    auto& lock = TCurrentDataAccess::pagesLock(data);
    int first = 0; // guarded
    int second = 0;
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int number = 0; number < 6; ++number)
        threads.emplace_back([&, number] {
            for (int round = 0; round < kRounds; ++round) {
                if (number < 2) {
                    lock.lock();
                    ++first;
                    ++second;
                    lock.unlock();
                } else {
                    lock.lock_shared();
                    if (first != second)
                        ++wrong;
                    lock.unlock_shared();
                }
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(first, 2 * kRounds);
}

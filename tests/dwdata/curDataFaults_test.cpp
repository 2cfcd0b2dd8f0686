// Current data while calls of the system or allocations fail: what is raised, what stays behind,
// and that the next call works.

#include <algorithm>
#include <fstream>
#include <functional>
#include <map>
#include <set>
#include <thread>

#include "curDataFixture.h"
#include "support/failingMalloc.h"
#include "support/raised.h"
#include "support/scopedCalls.h"
#include "vdreader/errors.hpp"

namespace {

// Counts the calls of one kind and fails some of them; keeps the books of what is open.
class Faults {
  public:
    enum Kind { open, close, size, read, makeMapping, closeMapping, map, unmap, kKinds };

    // Fails call number `at` of `kind`, counted from 0, and with `all` every later one.
    Faults(Kind kind, int at, bool all) {
        s_kind = kind;
        s_at = at;
        s_all = all;
        s_count = 0;
        s_real = m_calls.saved();
        s_files = s_mappings = 0;
        s_views.clear();
        platform::calls.openStorage = openStorage;
        platform::calls.closeStorage = closeStorage;
        platform::calls.storageSize = storageSize;
        platform::calls.readStorage = readStorage;
        platform::calls.createMapping = createMapping;
        platform::calls.closeMapping = closeTheMapping;
        platform::calls.mapView = mapView;
        platform::calls.unmapView = unmapView;
    }

    // Whether any call failed.
    static bool failed() { return s_count > s_at; }
    static void stop() { s_kind = kKinds; }
    static bool nothingIsOpen() { return s_files == 0 && s_mappings == 0 && s_views.empty(); }

  private:
    static bool fails(Kind kind) {
        if (kind != s_kind)
            return false;
        const int number = s_count++;
        return number == s_at || (s_all && number > s_at);
    }
    static platform::StorageHandle openStorage(const char* path, platform::StorageAccess access) {
        if (fails(open))
            return platform::kInvalidStorage;
        const auto file = s_real.openStorage(path, access);
        s_files += file != platform::kInvalidStorage;
        return file;
    }
    static bool closeStorage(platform::StorageHandle file) {
        if (fails(close))
            return false;
        s_files -= file != platform::kInvalidStorage;
        return s_real.closeStorage(file);
    }
    static std::int64_t storageSize(platform::StorageHandle file) {
        return fails(size) ? -1 : s_real.storageSize(file);
    }
    static bool readStorage(platform::StorageHandle file, void* out, std::uint32_t count,
                            std::uint32_t* done) {
        if (fails(read)) {
            *done = 0;
            return false;
        }
        return s_real.readStorage(file, out, count, done);
    }
    static platform::MappingHandle createMapping(platform::StorageHandle file, std::uint64_t bytes,
                                                 bool writes) {
        if (fails(makeMapping))
            return nullptr;
        const auto mapping = s_real.createMapping(file, bytes, writes);
        s_mappings += mapping != nullptr;
        return mapping;
    }
    static bool closeTheMapping(platform::MappingHandle mapping) {
        if (fails(closeMapping))
            return false;
        --s_mappings;
        return s_real.closeMapping(mapping);
    }
    static void* mapView(platform::MappingHandle mapping, std::uint64_t offset, std::uint64_t bytes,
                         bool writes) {
        if (fails(map))
            return nullptr;
        void* const view = s_real.mapView(mapping, offset, bytes, writes);
        if (view != nullptr)
            s_views.insert(view);
        return view;
    }
    static bool unmapView(void* view) {
        if (fails(unmap))
            return false;
        s_views.erase(view);
        return s_real.unmapView(view);
    }

    static inline Kind s_kind;
    static inline int s_at;
    static inline bool s_all;
    static inline int s_count;
    static inline int s_files;
    static inline int s_mappings;
    static inline std::set<void*> s_views;
    static inline platform::Calls s_real;

    ScopedCalls m_calls;
};

bool beginsWith(const std::string& text, const std::string& start) {
    return text.rfind(start, 0) == 0;
}

// Whether another thread can take every lock.
bool locksAreFree(TCurrentData& data) {
    bool free = false;
    std::thread([&] { free = allLocksFree(data); }).join();
    return free;
}

// Runs `use` on an object that it may load, with each call of `kind` failing once and then for
// good, until no call fails any more.  What is raised begins with one of `texts`.  Afterwards the
// same object works, and when it is gone nothing is open.
void failEach(Faults::Kind kind, const std::vector<std::string>& texts,
              const std::function<void(TCurrentData&, const std::string&)>& use) {
    const CapturedLog log;
    int failures = 0;
    for (const bool all : {false, true}) {
        bool failed = true;
        for (int at = 0; failed; ++at) {
            const CurDataFile file(smallFile(pagesOf(3, 5)));
            const Faults faults(kind, at, all);
            {
                TCurrentData data;
                const std::string text = raisedText([&] { use(data, file.path); });
                failed = Faults::failed();
                Faults::stop();
                EXPECT_TRUE(locksAreFree(data));
                if (text != "(nothing)") {
                    ++failures;
                    EXPECT_TRUE(std::any_of(
                        texts.begin(), texts.end(),
                        [&](const std::string& start) { return beginsWith(text, start); }))
                        << at << ": " << text;
                }
                const CurDataFile good(smallFile(pagesOf(3, 5)));
                data.Init(good.path.c_str(), false);
                data.LoadData();
                EXPECT_EQ(numbersFrom(*iteratorOf(data), 1), range(1, 15)) << at;
                EXPECT_NE(data.GetDataCust(9), nullptr);
            }
            EXPECT_TRUE(Faults::nothingIsOpen()) << at << (all ? " and all later ones" : "");
        }
    }
    EXPECT_EQ(failures > 0, !texts.empty());
}

void loadAndWalk(TCurrentData& data, const std::string& path) {
    data.Init(path.c_str(), false);
    data.LoadData();
    numbersFrom(*iteratorOf(data), 1);
}

void loadTwiceAndWalk(TCurrentData& data, const std::string& path) {
    data.Init(path.c_str(), false);
    data.LoadData();
    data.LoadData();
    EXPECT_EQ(numbersFrom(*iteratorOf(data), 1), range(1, 15));
}

} // namespace

TEST(CurDataFaults, FileThatDoesNotOpen) {
    failEach(Faults::open, {"Can't load data from file '"}, loadAndWalk);
}

TEST(CurDataFaults, MappingsThatCannotBeMade) {
    failEach(Faults::makeMapping, {"MappableStorageFile createMapping:name().c_str()<"},
             loadAndWalk);
}

TEST(CurDataFaults, ViewsThatCannotBeMade) {
    failEach(Faults::map,
             {"MappableStorageFile mapPtr. Ensure offset is n multiple memory page "
              "size.:name()<"},
             loadAndWalk);
}

TEST(CurDataFaults, SecondLoadWhoseMappingOrViewsCannotBeMade) {
    failEach(Faults::makeMapping, {"MappableStorageFile createMapping:name().c_str()<"},
             loadTwiceAndWalk);
    failEach(Faults::map,
             {"MappableStorageFile mapPtr. Ensure offset is n multiple memory page "
              "size.:name()<"},
             loadTwiceAndWalk);
}

TEST(CurDataFaults, SecondLoadWhoseOldMappingCannotBeClosed) {
    failEach(Faults::closeMapping, {"MappableStorageFile closeHanle:m_filePath.c_str()<"},
             loadTwiceAndWalk);
}

TEST(CurDataFaults, ViewsThatCannotBeTakenAway) {
    // One that stays once is taken away in the end; here none stays for good.
    const CapturedLog log;
    for (int at = 0; at < 3; ++at) {
        const CurDataFile file(smallFile(pagesOf(3, 5)));
        const Faults faults(Faults::unmap, at, false);
        {
            TCurrentData data;
            EXPECT_TRUE(beginsWith(raisedText([&] { loadAndWalk(data, file.path); }),
                                   "MappableStorageFile unmapPtr:name()<"));
            EXPECT_TRUE(locksAreFree(data));
            data.LoadData();
            EXPECT_EQ(numbersFrom(*iteratorOf(data), 1), range(1, 15));
        }
        EXPECT_TRUE(Faults::nothingIsOpen()) << at;
    }
}

TEST(CurDataFaults, ReadsThatFailWalkThePageBeforeAgain) {
    failEach(Faults::read, {}, loadAndWalk);
    const CurDataFile file(smallFile(pagesOf(3, 2)));
    const auto data = loaded(file);
    const CapturedLog log;
    const Faults faults(Faults::read, 1, false);
    EXPECT_EQ(numbersFrom(*iteratorOf(*data), 1), (std::vector<std::int32_t>{1, 2, 1, 2}));
    const auto events = log.messages(CapturedLog::events);
    ASSERT_EQ(events.size(), 1u);
    EXPECT_TRUE(beginsWith(events[0], "Allocating error: "));
    EXPECT_EQ(numbersFrom(*iteratorOf(*data), 1), range(1, 6));
}

TEST(CurDataFaults, FileThatDoesNotCloseStays) {
    const CapturedLog log;
    const CurDataFile file(smallFile(pagesOf(3, 5)));
    const Faults faults(Faults::close, 0, false);
    {
        const auto data = loaded(file);
        EXPECT_TRUE(beginsWith(raisedText([&] { data->Close(); }),
                               "MappableStorageFile closeHanle:m_filePath.c_str()<"));
        EXPECT_TRUE(locksAreFree(*data));
        EXPECT_EQ(numbersFrom(*iteratorOf(*data), 1), range(1, 15));
        data->Close();
        EXPECT_EQ(data->GetMaxSecs(), 0);
    }
    EXPECT_TRUE(Faults::nothingIsOpen());
    EXPECT_EQ(file.closeStamp(), 0xDDFDDFDDu);
}

TEST(CurDataFaults, MappingThatDoesNotCloseStays) {
    const CapturedLog log;
    const CurDataFile file(smallFile(pagesOf(3, 5)));
    const Faults faults(Faults::closeMapping, 0, false);
    {
        const auto data = loaded(file);
        EXPECT_TRUE(beginsWith(raisedText([&] { data->Close(); }),
                               "MappableStorageFile closeHanle:m_filePath.c_str()<"));
        EXPECT_TRUE(locksAreFree(*data));
        data->Close();
    }
    EXPECT_TRUE(Faults::nothingIsOpen());
}

TEST(CurDataFaults, ResetThatFailsAnywhereIsToldByItsText) {
    for (const Faults::Kind kind :
         {Faults::open, Faults::close, Faults::makeMapping, Faults::map, Faults::unmap}) {
        const CapturedLog log;
        const CurDataFile file(smallFile(pagesOf(3, 5)));
        const auto data = loaded(file);
        {
            const Faults faults(kind, 0, false);
            EXPECT_EQ(raisedText([&] { data->ResetData(); }),
                      "Can't reset data for file '" + file.path + "'")
                << kind;
            EXPECT_TRUE(Faults::failed());
        }
        EXPECT_TRUE(beginsWith(log.messages(CapturedLog::events).back(),
                               "Error while reseting current data: "))
            << kind;
        EXPECT_TRUE(locksAreFree(*data));
        EXPECT_EQ(data->GetDataCust(0), nullptr);
        data->ResetData();
        EXPECT_EQ(data->GetMaxSecs(), 50'000);
        EXPECT_NE(data->GetDataCust(49'999), nullptr);
    }
}

// ---- memory ----

TEST(CurDataFaults, LoadWithoutMemory) {
    const CurDataFile file(smallFile(pagesOf(3, 5)));
    TCurrentData data;
    data.Init(file.path.c_str(), false);
    const std::size_t sizes[] = {
        sizeof(FileWorkLibrary::TMappedPage), sizeof(ServantsLibrary::pbuffer),
        sizeof(FileWorkLibrary::TPointNode), TCurrentDataAccess::Storage::PageList::kChunkBytes};
    for (const std::size_t size : sizes) {
        {
            const FailingMalloc failing(size);
            const auto failure = raised<COSError>([&] { data.LoadData(); });
            ASSERT_TRUE(failure) << size;
            EXPECT_NE(std::string(failure->what()).find("Can't allocate memory at "),
                      std::string::npos)
                << failure->what();
        }
        EXPECT_TRUE(locksAreFree(data));
        data.LoadData();
        EXPECT_EQ(numbersFrom(*iteratorOf(data), 1), range(1, 15));
    }
}

TEST(CurDataFaults, WalkWithoutMemory) {
    const CurDataFile file(smallFile(pagesOf(3, 5)));
    const auto data = loaded(file);
    const auto iterator = iteratorOf(*data);
    {
        const FailingMalloc failing(5 * kRecordSize + 24 + 28);
        EXPECT_TRUE(raised<COSError>([&] { iterator->Begin(1); }));
    }
    EXPECT_TRUE(locksAreFree(*data));
    EXPECT_EQ(iterator->Current(), nullptr);
    EXPECT_EQ(iterator->Next(), nullptr);
    EXPECT_EQ(numbersFrom(*iterator, 1), range(1, 15));
}

TEST(CurDataFaults, InitWithoutMemoryLeavesAClosedObject) {
    const CurDataFile file(smallFile());
    TCurrentData data;
    {
        const FailingMalloc failing(sizeof(TCurrentDataAccess::Storage));
        EXPECT_TRUE(raised<COSError>([&] { data.Init(file.path.c_str(), false); }));
    }
    EXPECT_TRUE(locksAreFree(data));
    EXPECT_EQ(data.GetMaxSecs(), 0);
    EXPECT_EQ(raisedText([&] { data.LoadData(); }),
              "Can't load data from file '" + file.path + "'");
    data.Init(file.path.c_str(), false);
    data.LoadData();
    EXPECT_EQ(data.GetMaxSecs(), 8);
}

TEST(CurDataFaults, ResetWithoutMemoryIsTold) {
    const CurDataFile file(smallFile());
    const auto data = loaded(file);
    const CapturedLog log;
    {
        const FailingMalloc failing(sizeof(FileWorkLibrary::TPointNode));
        EXPECT_EQ(raisedText([&] { data->ResetData(); }),
                  "Can't reset data for file '" + file.path + "'");
    }
    EXPECT_NE(log.messages(CapturedLog::events).back().find("Can't allocate memory at "),
              std::string::npos);
    EXPECT_TRUE(locksAreFree(*data));
    data->ResetData();
    EXPECT_EQ(data->GetMaxSecs(), 50'000);
}

// ---- a server that goes on meanwhile ----

namespace {

// What a server makes of its file once the load has looked at the size.
struct Growth {
    static inline std::string path;
    static inline std::string bytes;
    static inline decltype(platform::calls.mapView) mapView;

    static void* growAndMap(platform::MappingHandle mapping, std::uint64_t offset,
                            std::uint64_t size, bool writes) {
        if (!bytes.empty())
            std::fstream(path, std::ios::in | std::ios::out | std::ios::binary)
                << std::exchange(bytes, {});
        return mapView(mapping, offset, size, writes);
    }
};

} // namespace

TEST(CurDataFaults, LoadThatTheServersGrowthOvertakesFailsAndTheNextOneGoes) {
    const CurDataFile file(smallFile(pagesOf(2, 5)));
    const CurDataFile later(smallFile(pagesOf(6, 5)));
    const ScopedCalls calls;
    Growth::path = file.path;
    Growth::bytes = later.bytes();
    Growth::mapView = calls.saved().mapView;
    platform::calls.mapView = Growth::growAndMap;
    TCurrentData data;
    data.Init(file.path.c_str(), false);
    const std::string text = raisedText([&] { data.LoadData(); });
    EXPECT_TRUE(
        text.starts_with("MappableStorageFile mapPtr. Ensure offset is n multiple memory "
                         "page size.:name()<"))
        << text;
    EXPECT_TRUE(locksAreFree(data));
    const auto expectWhole = [&] {
        data.LoadData();
        EXPECT_EQ(numbersFrom(*iteratorOf(data), 1), range(1, 30));
        EXPECT_EQ(file.size(), later.size());
    };
    expectWhole();
    data.Close();
    data.Init(file.path.c_str(), false);
    expectWhole();
}

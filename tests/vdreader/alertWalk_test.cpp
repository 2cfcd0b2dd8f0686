// Walks over alerts from inside the library: failing calls of the system, logs, growth.

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <new>
#include <string>
#include <vector>

#include "libn/MappableStorage.h"
#include "libn/storage.h"
#include "readerFrame.h"
#include "readerSettings.h"
#include "readerState.h"
#include "sample/alertFile.h"
#include "support/capturedLog.h"
#include "support/failingStorage.h"
#include "support/tempFolder.h"
#include "vdreader/vdreader.h"

namespace {

constexpr std::uint64_t kLimit = 3276800;

int calls = 0;

std::int32_t count(sAlertDesc*) {
    ++calls;
    return 1;
}

std::string lastError() {
    return get_vdreader_error();
}

std::vector<sample::Alert> alerts(std::uint32_t number, std::size_t bodySize = 10) {
    std::vector<sample::Alert> all(number);
    for (std::uint32_t i = 0; i < number; ++i) {
        all[i].type = i;
        all[i].body.assign(bodySize, 'b');
    }
    return all;
}

class AlertWalk : public testing::Test {
  protected:
    AlertWalk() {
        calls = 0;
        readerState().alertsFile = m_folder.name("alert.vd");
    }

    void write(const std::vector<sample::Alert>& all,
               const sample::AlertFileOptions& options = {}) const {
        m_folder.write("alert.vd", sample::encodeAlertFile(all, options));
    }
    std::uint64_t fileSize() const {
        return std::filesystem::file_size(m_folder.path() / "alert.vd");
    }

    TempFolder m_folder;
};

} // namespace

TEST(AlertSetting, KeyDefaultAndText) {
    EXPECT_STREQ(kAlertsSetting.key, "alerts");
    EXPECT_STREQ(kAlertsSetting.defaultName, "alert.vd");
    EXPECT_STREQ(kAlertsSetting.emptyFailure,
                 "vdreader can not find 'alerts' setting or setting is empty");
    EXPECT_EQ(readerState().alertsFile, "alert.vd");
}

// ---- the event log ----

TEST_F(AlertWalk, NewFileIsMadeWithoutALogLine) {
    const CapturedLog log;
    EXPECT_EQ(for_each_alert(count), 1);
    EXPECT_EQ(log.size(), 0u);
}

TEST_F(AlertWalk, ForeignFileIsNoted) {
    m_folder.write("alert.vd", "AAAAAAAABBBBBBBBCCC");
    const CapturedLog log;
    EXPECT_EQ(for_each_alert(count), 1);
    EXPECT_EQ(calls, 0);
    EXPECT_EQ(log.messages(CapturedLog::events),
              std::vector<std::string>{"storage::aux::initFile wrongMagic:"
                                       "m[0]<4702111234474983745>m[1]<4774451407313060418>"});
    EXPECT_EQ(log.size(), 1u);
}

TEST_F(AlertWalk, ForeignFileThatAnotherHasMappedIsToldOnWindowsAndEmptiedElsewhere) {
    m_folder.write("alert.vd", "AAAAAAAABBBBBBBBCCC");
    WinMappableStorageFile other(m_folder.name("alert.vd").c_str());
    other.open();
    other.createMapping(1);
#ifdef _WIN32
    EXPECT_EQ(for_each_alert(count), 0);
    EXPECT_EQ(lastError(), "MappableStorageFile clear SetEndOfFile:name()<" +
                               m_folder.name("alert.vd") + ">GetLastError()<1224>");
    // Reading the magic numbers made it grow.
    EXPECT_EQ(m_folder.read("alert.vd").substr(0, 19), "AAAAAAAABBBBBBBBCCC");
    other.close();
#endif
    EXPECT_EQ(for_each_alert(count), 1) << lastError();
    EXPECT_EQ(calls, 0);
    EXPECT_EQ(m_folder.read("alert.vd").substr(0, 16), sample::encodeAlertFile({}).substr(0, 16));
}

TEST_F(AlertWalk, UsageIsReportedUnderTheLastPartOfTheName) {
    write(alerts(12000, 600));
    const CapturedLog log;
    EXPECT_EQ(for_each_alert(count), 1) << lastError();
    EXPECT_EQ(calls, 12000);
    const std::vector<std::string> lines = log.messages(CapturedLog::events);
    ASSERT_GT(lines.size(), 20u) << "the file is more than twice the limit";
    EXPECT_EQ(lines[0], "MappableStorage: alert.vd pagesCount: 5 size: 393216");
    EXPECT_EQ(lines[1], "MappableStorage: alert.vd pagesCount: 11 size: 786432");
    // 50 pages fill the limit; the next one finds none and leaves one.
    EXPECT_EQ(std::count(lines.begin(), lines.end(),
                         "MappableStorage: alert.vd pagesCount: 0 size: 65536"),
              2);
}

// ---- what a walk cannot reach ----

TEST_F(AlertWalk, FileThatGrowsBehindTheOpeningEndsTheWalkAndTheNextIsWhole) {
    const std::string whole = sample::encodeAlertFile(alerts(2000, 600));
    // The tables and the first alerts: whole units, so that the walk itself makes nothing grow.
    constexpr std::size_t kCut = 8 * 65536;
    ASSERT_GT(whole.size(), 2 * kCut);
    m_folder.write("alert.vd", whole.substr(0, kCut));
    const FailingStorage storage;
    static const std::string* server;
    static std::string name;
    static platform::Calls real;
    server = &whole;
    name = m_folder.name("alert.vd");
    real = platform::calls;
    platform::calls.createMapping = [](platform::StorageHandle file, std::uint64_t size,
                                       bool writes) {
        const platform::MappingHandle mapping = real.createMapping(file, size, writes);
        std::ofstream grown(name, std::ios::binary | std::ios::in | std::ios::out);
        grown.seekp(kCut);
        grown.write(server->data() + kCut, static_cast<std::streamsize>(server->size() - kCut));
        return mapping;
    };
    static std::vector<std::uint32_t> types;
    types.clear();
    const AlertCallback note = [](sAlertDesc* alert) -> std::int32_t {
        types.push_back(get_sAlertDesc_type(alert));
        return 1;
    };
    EXPECT_EQ(for_each_alert(note), 0);
    EXPECT_EQ(lastError().rfind("MappableStorageFile mapPtr. Ensure offset is n multiple memory "
                                "page size.:name()<" +
                                    name + ">offset<524288>n<65536>GetLastError()<",
                                0),
              0u)
        << lastError();
    ASSERT_GT(types.size(), 100u);
    ASSERT_LT(types.size(), 1000u);
    for (std::uint32_t i = 0; i < types.size(); ++i)
        ASSERT_EQ(types[i], i);
    EXPECT_EQ(FailingStorage::held(), HeldStorage{});
    EXPECT_TRUE(m_folder.read("alert.vd") == whole);
    types.clear();
    EXPECT_EQ(for_each_alert(note), 1) << lastError();
    EXPECT_EQ(types.size(), 2000u);
    EXPECT_TRUE(m_folder.read("alert.vd") == whole);
}

// A walk comes to this number behind 268,435,456 alerts, so the frame is given the record itself.
TEST_F(AlertWalk, NumberThatNoTableReachesIsToldThroughTheFrame) {
    write(alerts(3));
    const auto read = [this](std::uint64_t number) {
        return catchFrame([&] {
            libn::storage::RecordFile file(m_folder.path() / "alert.vd", 888888888, kLimit);
            std::uint32_t word = 0;
            file.readRecord(number, word, [](auto&) { ++calls; });
            return 1;
        });
    };
    EXPECT_EQ(read(2), 1);
    EXPECT_EQ(read(268'435'456), 0);
    EXPECT_EQ(lastError(), "libn::storage::RecNo index overflow:recNo<268435456>");
    EXPECT_EQ(read(268'435'455), 0);
    EXPECT_EQ(lastError(), "libn::storage::Array::getPos:recNo<268435455>");
    EXPECT_EQ(calls, 1);
}

// ---- memory ----

TEST_F(AlertWalk, NoMoreIsMappedThanTheLimit) {
    write(alerts(12000, 600));
    const ScopedCalls scope;
    static platform::Calls real;
    static std::uint64_t mapped, most;
    static std::map<void*, std::uint64_t> views;
    real = scope.saved();
    mapped = most = 0;
    platform::calls.mapView = [](platform::MappingHandle mapping, std::uint64_t offset,
                                 std::uint64_t size, bool writes) {
        void* view = real.mapView(mapping, offset, size, writes);
        views[view] = size;
        most = std::max(most, mapped += size);
        return view;
    };
    platform::calls.unmapView = [](void* view) {
        mapped -= views.at(view);
        return real.unmapView(view);
    };
    EXPECT_EQ(for_each_alert(count), 1);
    EXPECT_EQ(most, kLimit);
    EXPECT_EQ(mapped, 0u);
}

TEST_F(AlertWalk, AbsurdLengthTakesOnlyWhatTheReadsRequire) {
    // 100 MB are told, the file has 1: it grows as the reads go on, and the zeroes that it grows
    // by are read as the rest.
    sample::AlertFileOptions options;
    options.fileSize = 1 << 20;
    std::vector<sample::Alert> all = alerts(1);
    all[0].storedBodyLength = 100 << 20;
    write(all, options);
    EXPECT_EQ(for_each_alert([](sAlertDesc* alert) -> std::int32_t {
                  EXPECT_EQ(get_sAlertDesc_body_size(alert), 0u) << "a zero of the growth";
                  return count(alert);
              }),
              1)
        << lastError();
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(fileSize(), 128u << 20) << "doubled until the last read fits";
}

TEST_F(AlertWalk, LengthOfMoreThanAGibibyteIsTold) {
    sample::AlertFileOptions options;
    std::vector<sample::Alert> all = alerts(2);
    all[1].storedDataIdLength = (std::uint64_t{1} << 30) + 1;
    write(all, options);
    EXPECT_EQ(for_each_alert(count), 0);
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(lastError(), "vector too long");
}

// ---- failing calls of the system ----

TEST_F(AlertWalk, NothingIsHeldAfterAWalk) {
    const FailingStorage storage;
    write(alerts(12000, 600));
    EXPECT_EQ(for_each_alert(count), 1);
    EXPECT_EQ(for_each_alert([](sAlertDesc*) -> std::int32_t { return 2; }), 1);
    EXPECT_EQ(for_each_alert([](sAlertDesc*) -> std::int32_t { return 0; }), 0);
    EXPECT_EQ(for_each_alert([](sAlertDesc*) -> std::int32_t { throw std::bad_alloc(); }), 0);
    EXPECT_THROW(for_each_alert([](sAlertDesc*) -> std::int32_t { throw 5; }), int);
    EXPECT_EQ(FailingStorage::held(), HeldStorage{});
}

TEST_F(AlertWalk, EachFailingCallIsToldAndTheNextWalkWorks) {
    const FailingStorage storage;
    struct Case {
        const char* call;
        const char* text;
    };
    for (const bool foreign : {false, true})
        for (const Case& c :
             {Case{"openStorage", "MappableStorageFile open CreateFile:name()<"},
              {"closeStorage", "MappableStorageFile closeHanle:m_filePath.c_str()<"},
              {"seekStorage", "MappableStorageFile clear SetFilePointer:name()<"},
              {"truncateStorage", "MappableStorageFile clear SetEndOfFile:name()<"},
              {"createMapping", "MappableStorageFile createMapping:name().c_str()<"},
              {"closeMapping", "MappableStorageFile closeHanle:m_filePath.c_str()<"},
              {"mapView", "MappableStorageFile mapPtr. Ensure offset is n multiple memory page"},
              {"unmapView", "MappableStorageFile unmapPtr:name()<"}}) {
            if (!foreign && std::string(c.text).find(" clear ") != std::string::npos)
                continue; // a good file is not cleared
            int result = 0, n = 1;
            for (; result == 0; ++n) {
                ASSERT_LT(n, 200) << c.call;
                m_folder.write("alert.vd",
                               foreign ? "foreign" : sample::encodeAlertFile(alerts(200, 600)));
                FailingStorage::fail(c.call, n, n);
                result = for_each_alert(count);
                if (result == 0) {
                    EXPECT_EQ(lastError().rfind(c.text, 0), 0u) << c.call << n << lastError();
                }
                EXPECT_EQ(FailingStorage::held(), HeldStorage{}) << c.call << " " << n;
                FailingStorage::failNothing();
                calls = 0;
                EXPECT_EQ(for_each_alert(count), 1) << lastError();
                EXPECT_EQ(calls, foreign ? 0 : 200) << c.call << " " << n;
            }
            EXPECT_GT(n, 2) << c.call << " was never made";
        }
}

TEST_F(AlertWalk, CallsThatAlwaysFailAreTold) {
    const FailingStorage storage;
    for (const char* call : {"openStorage", "createMapping", "mapView"}) {
        write(alerts(3));
        FailingStorage::fail(call, 1, 1 << 20);
        EXPECT_EQ(for_each_alert(count), 0) << call;
        EXPECT_EQ(lastError().rfind("MappableStorageFile ", 0), 0u);
        EXPECT_EQ(FailingStorage::held(), HeldStorage{}) << call;
        FailingStorage::failNothing();
        EXPECT_EQ(for_each_alert(count), 1) << call;
    }
    EXPECT_EQ(calls, 9);
}

TEST_F(AlertWalk, FileWhoseSizeCannotBeToldCountsAsEmpty) {
    write(alerts(3));
    const std::string before = m_folder.read("alert.vd");
    const FailingStorage storage;
    FailingStorage::fail("storageSize", 1, 1 << 20);
    EXPECT_EQ(for_each_alert(count), 1) << lastError();
    EXPECT_EQ(calls, 3) << "its magic numbers are good all the same";
    EXPECT_EQ(m_folder.read("alert.vd"), before);
}

TEST_F(AlertWalk, FileThatCannotBeReleasedEndsTheProcessDeathTest) {
    write(alerts(3));
    EXPECT_DEATH(
        {
            const FailingStorage storage;
            FailingStorage::fail("unmapView", 1, 1 << 20);
            for_each_alert(count);
        },
        "Unhandled LOCAL exception caught in function libn::NewFileMap::~NewFileMap, file "
        "libn/src/fileMap, line ");
}

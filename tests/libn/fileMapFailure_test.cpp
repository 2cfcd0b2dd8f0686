// The file map under failing calls of the system, and what other modules rely on.

#include <gtest/gtest.h>

#include <new>
#include <string>
#include <vector>

#include "../libn/src/fileMapState.h"
#include "dw_util/logSinks.h"
#include "support/capturedLog.h"
#include "support/failingStorage.h"
#include "support/raised.h"
#include "support/slot.h"
#include "support/tempFolder.h"

namespace {

using libn::NewFileMap;
using libn::stateOf;

constexpr std::uint64_t kUnit = 65536;

class FileMapFailure : public testing::Test {
  protected:
    TempFolder m_folder;
    std::string m_file = m_folder.write("f", std::string(20 * kUnit, 'x'));
    FailingStorage m_calls;
};

void read(NewFileMap& map, std::uint64_t unit) {
    char bytes[8];
    map.read(unit * kUnit, 1, 0, sizeof bytes, bytes);
}

// Sum of the pages, which is what the usage must be.
std::uint64_t mapped(NewFileMap& map) {
    std::uint64_t sum = 0;
    for (const libn::Page& page : stateOf(map).m_pages) {
        EXPECT_NE(page.ptr, nullptr);
        sum += page.size;
    }
    return sum;
}

// Uses every operation of a map.
void useAll(const std::string& file) {
    NewFileMap map;
    map.open(file, 2 * kUnit);
    for (const std::uint64_t unit : {0, 1, 2, 3, 2, 40})
        read(map, unit);
    map.write(0, 1, 0, 5, "bytes");
    map.fill(0, 1, 9, 5, 1);
    map.clear();
    read(map, 1);
    map.close();
}

} // namespace

TEST_F(FileMapFailure, NothingIsHeldAfterClose) {
    useAll(m_file);
    EXPECT_EQ(FailingStorage::held(), HeldStorage{});
}

TEST_F(FileMapFailure, EachFailingCallIsToldAndNothingLeaks) {
    struct Case {
        const char* call;
        const char* text;
    };
    for (const Case& c :
         {Case{"openStorage", "MappableStorageFile open CreateFile:name()<"},
          {"closeStorage", "MappableStorageFile closeHanle:m_filePath.c_str()<"},
          {"seekStorage", "MappableStorageFile clear SetFilePointer:name()<"},
          {"truncateStorage", "MappableStorageFile clear SetEndOfFile:name()<"},
          {"createMapping", "MappableStorageFile createMapping:name().c_str()<"},
          {"closeMapping", "MappableStorageFile closeHanle:m_filePath.c_str()<"},
          {"mapView", "MappableStorageFile mapPtr. Ensure offset is n multiple memory page size."},
          {"unmapView", "MappableStorageFile unmapPtr:name()<"}}) {
        int n = 1;
        for (std::string text; text != "(nothing)"; ++n) {
            ASSERT_LT(n, 50) << c.call;
            m_folder.write("f", std::string(20 * kUnit, 'x'));
            FailingStorage::fail(c.call, n, n);
            text = raisedText([&] { useAll(m_file); });
            if (text != "(nothing)") {
                EXPECT_EQ(text.rfind(c.text, 0), 0u) << c.call << " " << n << ": " << text;
                EXPECT_NE(text.find(m_file), std::string::npos) << text;
            }
            EXPECT_EQ(FailingStorage::held(), HeldStorage{}) << c.call << " " << n;
            FailingStorage::failNothing();
            EXPECT_EQ(raisedText([&] { useAll(m_file); }), "(nothing)") << "the next one works";
        }
        EXPECT_GT(n, 2) << c.call << " was never made";
    }
}

TEST_F(FileMapFailure, CallsThatAlwaysFailAreTold) {
    for (const char* call : {"openStorage", "createMapping", "mapView"}) {
        FailingStorage::fail(call, 1, 1000);
        EXPECT_NE(raisedText([&] { useAll(m_file); }), "(nothing)") << call;
        EXPECT_EQ(FailingStorage::held(), HeldStorage{}) << call;
    }
}

TEST_F(FileMapFailure, SizeThatCannotBeToldCountsAsAnEmptyFile) {
    NewFileMap map;
    FailingStorage::fail("storageSize", 1, 1);
    EXPECT_TRUE(map.open(m_file, 2 * kUnit));
}

TEST_F(FileMapFailure, ViewThatCannotBeMadeLeavesUsageAndPages) {
    NewFileMap map;
    map.open(m_file, 3 * kUnit);
    read(map, 0);
    read(map, 1);
    read(map, 1);
    FailingStorage::fail("mapView", 1, 1);
    EXPECT_NE(raisedText([&] { read(map, 2); }), "(nothing)");
    EXPECT_EQ(stateOf(map).m_pages.size(), 2u);
    EXPECT_EQ(stateOf(map).m_memUsage, mapped(map));
    EXPECT_EQ(stateOf(map).m_tick, 3u);
    read(map, 1);
    read(map, 2);
    EXPECT_EQ(stateOf(map).m_memUsage, 3 * kUnit);
}

TEST_F(FileMapFailure, PagesDroppedForAViewThatFailsStayDropped) {
    NewFileMap map;
    map.open(m_file, 2 * kUnit);
    for (const std::uint64_t unit : {0, 1, 0, 1})
        read(map, unit);
    FailingStorage::fail("mapView", 1, 1);
    EXPECT_NE(raisedText([&] { read(map, 2); }), "(nothing)");
    EXPECT_EQ(stateOf(map).m_memUsage, 0u);
    EXPECT_TRUE(stateOf(map).m_pages.empty());
    EXPECT_TRUE(stateOf(map).m_recentPages.empty());
    read(map, 0);
}

TEST_F(FileMapFailure, ViewThatCannotBeTakenAwayStaysAPage) {
    for (const int nth : {1, 2, 3}) {
        NewFileMap map;
        map.open(m_file, 3 * kUnit);
        for (const std::uint64_t unit : {0, 1, 2, 0, 1, 2})
            read(map, unit);
        FailingStorage::fail("unmapView", nth, nth);
        EXPECT_NE(raisedText([&] { read(map, 5); }), "(nothing)");
        EXPECT_EQ(stateOf(map).m_pages.size(), static_cast<std::size_t>(4 - nth));
        EXPECT_EQ(stateOf(map).m_memUsage, mapped(map));
        EXPECT_EQ(FailingStorage::held().views.size(), stateOf(map).m_pages.size());
        for (const std::uint64_t unit : {0, 1, 2, 5})
            read(map, unit);
        map.close();
        EXPECT_EQ(FailingStorage::held(), HeldStorage{});
    }
}

TEST_F(FileMapFailure, CloseThatFailsCanBeRepeated) {
    NewFileMap map;
    map.open(m_file, 3 * kUnit);
    for (const std::uint64_t unit : {0, 1, 2})
        read(map, unit);
    FailingStorage::fail("unmapView", 2, 2);
    EXPECT_NE(raisedText([&] { map.close(); }), "(nothing)");
    EXPECT_EQ(stateOf(map).m_memUsage, 2 * kUnit);
    map.close();
    EXPECT_EQ(FailingStorage::held(), HeldStorage{});
}

TEST_F(FileMapFailure, ReportThatRaisesLeavesNoView) {
    NewFileMap map;
    map.open(m_file, 10 * kUnit);
    const CapturedLog scope;
    logSinks.events = [](const char*) { throw std::bad_alloc(); };
    std::string bytes(2 * kUnit, '?');
    EXPECT_EQ(raisedText([&] { map.read(0, 1, 0, bytes.size(), bytes.data()); }), "std::bad_alloc");
    EXPECT_TRUE(FailingStorage::held().views.empty());
    EXPECT_EQ(stateOf(map).m_memUsage, 0u);
}

TEST_F(FileMapFailure, DestructorThatCannotCloseReportsAndEndsTheProcessDeathTest) {
    EXPECT_DEATH(
        {
            NewFileMap map;
            map.open(m_file, 3 * kUnit);
            read(map, 0);
            FailingStorage::fail("unmapView", 1, 1000);
        },
        "Unhandled LOCAL exception caught in function libn::NewFileMap::~NewFileMap, file "
        "libn/src/fileMap, line ");
}

// ---- what other modules rely on ----

TEST(FileMapInterface, VirtualOperationsStandInTheirOrder) {
    using libn::FileMap;
    // Two slots belong to the destructor.
    EXPECT_EQ(slotOf(&FileMap::open), 2);
    EXPECT_EQ(slotOf(&FileMap::close), 3);
    EXPECT_EQ(slotOf(&FileMap::isOpen), 4);
    EXPECT_EQ(slotOf(&FileMap::clear), 5);
    EXPECT_EQ(slotOf(&FileMap::write), 6);
    EXPECT_EQ(slotOf(&FileMap::read), 7);
    EXPECT_EQ(slotOf(&FileMap::readBytes), 8);
    EXPECT_EQ(slotOf(&FileMap::fill), 9);
}

TEST(FileMapInterface, HoldsOnePointerAndIsNotCopied) {
    EXPECT_EQ(sizeof(NewFileMap), 2 * sizeof(void*));
    EXPECT_FALSE(std::is_copy_constructible_v<NewFileMap>);
    EXPECT_FALSE(std::is_copy_assignable_v<NewFileMap>);
    EXPECT_TRUE(std::has_virtual_destructor_v<libn::FileMap>);
    EXPECT_TRUE(std::is_abstract_v<libn::FileMap>);
}

// The file map's limit of memory: evictions, growth, reports, and storages without overlap.

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "../libn/src/fileMapState.h"
#include "support/capturedLog.h"
#include "support/fakeStorage.h"
#include "support/raised.h"
#include "support/tempFolder.h"

namespace {

using libn::NewFileMap;
using libn::stateOf;

constexpr std::uint64_t kUnit = 65536;

using Calls = std::vector<std::string>;

// A map on a storage in memory.
class FileMapLimit : public testing::Test {
  protected:
    explicit FileMapLimit(std::uint64_t limit = 4 * kUnit) {
        auto storage = std::make_unique<FakeStorage>();
        m_storage = storage.get();
        stateOf(m_map).m_storage = std::move(storage);
        stateOf(m_map).m_maxMemUsage = limit;
        stateOf(m_map).m_reportUsage = false;
    }

    void read(std::uint64_t unit, std::uint64_t size = 8) {
        std::vector<char> bytes(size);
        m_map.read(unit * kUnit, 1, 0, size, bytes.data());
    }
    std::string pages() {
        std::string all;
        for (const libn::Page& page : stateOf(m_map).m_pages)
            all += std::to_string(static_cast<std::uint64_t>(page.offset) / kUnit) + " ";
        return all;
    }
    static std::string unmap(std::uint64_t unit) { return "unmap " + std::to_string(unit * kUnit); }
    static std::string view(std::uint64_t unit, std::uint64_t units = 1) {
        return "view " + std::to_string(unit * kUnit) + " " + std::to_string(units * kUnit);
    }

    NewFileMap m_map;
    FakeStorage* m_storage;
};

// A map on a file.
class FileMapGrowth : public testing::Test {
  protected:
    void open(std::uint64_t size, std::uint64_t limit = 50 * kUnit) {
        m_folder.write("f", "");
        std::filesystem::resize_file(m_folder.path() / "f", size);
        m_map.open(m_folder.path() / "f", limit);
    }
    void read(std::uint64_t pos, std::uint64_t size) {
        std::vector<char> bytes(size);
        m_map.read(pos, 1, 0, size, bytes.data());
    }
    std::uint64_t fileSize() const { return std::filesystem::file_size(m_folder.path() / "f"); }

    TempFolder m_folder;
    NewFileMap m_map;
};

} // namespace

// ---- evictions ----

TEST_F(FileMapLimit, PagesStayUpToTheLimit) {
    for (const std::uint64_t unit : {7, 5, 3, 1})
        read(unit);
    EXPECT_EQ(pages(), "1 3 5 7 ");
    EXPECT_EQ(stateOf(m_map).m_memUsage, 4 * kUnit);
    EXPECT_EQ(m_storage->taken(), (Calls{view(7), view(5), view(3), view(1)}));
}

TEST_F(FileMapLimit, PageThatPassesTheLimitMakesAllOthersGoOldestFirst) {
    for (const std::uint64_t unit : {1, 2, 3, 4})
        read(unit);
    for (const std::uint64_t unit : {4, 2, 1, 3})
        read(unit);
    m_storage->taken();
    read(9);
    EXPECT_EQ(m_storage->taken(), (Calls{unmap(4), unmap(2), unmap(1), unmap(3), view(9)}));
    EXPECT_EQ(pages(), "9 ");
    EXPECT_EQ(stateOf(m_map).m_memUsage, kUnit);
    EXPECT_TRUE(stateOf(m_map).m_recentPages.empty());
}

TEST_F(FileMapLimit, PagesThatWereNeverFoundAgainAreTheOldest) {
    for (const std::uint64_t unit : {3, 2, 1})
        read(unit);
    read(3);
    read(4);
    m_storage->taken();
    read(9);
    EXPECT_EQ(m_storage->taken(), (Calls{unmap(1), unmap(2), unmap(4), unmap(3), view(9)}));
}

TEST_F(FileMapLimit, EvictionMakesRoomAlsoForWhatNeedsLittle) {
    read(0, 2 * kUnit);
    read(5);
    read(6);
    m_storage->taken();
    read(7);
    EXPECT_EQ(m_storage->taken(), (Calls{unmap(0), unmap(5), unmap(6), view(7)}));
    EXPECT_EQ(stateOf(m_map).m_memUsage, kUnit);
}

TEST_F(FileMapLimit, PageMayFillTheLimit) {
    read(0, 4 * kUnit);
    EXPECT_EQ(stateOf(m_map).m_memUsage, 4 * kUnit);
    read(0, 4 * kUnit);
    EXPECT_EQ(m_storage->taken(), Calls{view(0, 4)});
}

TEST_F(FileMapLimit, LargerPageRaisesAndChangesNothing) {
    read(1);
    read(1);
    const std::uint64_t tick = stateOf(m_map).m_tick;
    m_storage->taken();
    EXPECT_EQ(raisedText([&] { read(2, 4 * kUnit + 1); }),
              "libn::FileMap memory limit exceeded:name()<fake>newPage.size<327680>"
              "m_maxMemUsage<262144>");
    EXPECT_EQ(m_storage->taken(), Calls{});
    EXPECT_EQ(pages(), "1 ");
    EXPECT_EQ(stateOf(m_map).m_recentPages.size(), 1u);
    EXPECT_EQ(stateOf(m_map).m_tick, tick);
    EXPECT_EQ(stateOf(m_map).m_memUsage, kUnit);
}

TEST_F(FileMapLimit, LengthThatNoNumberHoldsRoundedRaises) {
    char byte = 0;
    stateOf(m_map).m_maxMemUsage = ~std::uint64_t{0} - kUnit;
    EXPECT_EQ(raisedText([&] { m_map.read(1, 1, 0, ~std::uint64_t{0}, &byte); }),
              "libn::FileMap memory limit exceeded:name()<fake>newPage.size<18446744073709486080>"
              "m_maxMemUsage<18446744073709486079>");
    EXPECT_EQ(m_storage->taken(), Calls{});
    // It would go into a number but for the bytes in front of it on its page.
    EXPECT_EQ(raisedText([&] { m_map.read(kUnit - 1, 1, 0, ~kUnit, &byte); }),
              "libn::FileMap memory limit exceeded:name()<fake>newPage.size<18446744073709486080>"
              "m_maxMemUsage<18446744073709486079>");
    EXPECT_EQ(m_storage->taken(), Calls{});
}

TEST_F(FileMapLimit, UsageNeverFallsBelowZero) {
    read(1);
    stateOf(m_map).m_memUsage = kUnit - 1;
    stateOf(m_map).clearPages();
    EXPECT_EQ(stateOf(m_map).m_memUsage, kUnit - 1);
    EXPECT_EQ(pages(), "");
}

TEST_F(FileMapLimit, GrowthDropsEveryPage) {
    m_storage->fileSize = 3 * kUnit;
    read(0);
    read(1);
    m_storage->taken();
    read(3);
    EXPECT_EQ(m_storage->taken(),
              (Calls{unmap(0), unmap(1), "map " + std::to_string(4 * kUnit), view(3)}));
    EXPECT_EQ(pages(), "3 ");
}

// ---- a storage whose views may not overlap ----

TEST_F(FileMapLimit, OverlappedPagesGoWhereViewsMayNotOverlap) {
    m_storage->overlap = false;
    stateOf(m_map).m_maxMemUsage = 100 * kUnit;
    for (const std::uint64_t unit : {1, 3, 5, 7})
        read(unit);
    read(2);
    m_storage->taken();
    read(4, 2 * kUnit);
    EXPECT_EQ(m_storage->taken(), (Calls{unmap(5), view(4, 2)}));
    EXPECT_EQ(pages(), "1 2 3 4 7 ");
    read(6, 3 * kUnit + 1);
    EXPECT_EQ(m_storage->taken(), (Calls{unmap(7), view(6, 4)}));
    EXPECT_EQ(pages(), "1 2 3 4 6 ");
    EXPECT_EQ(stateOf(m_map).m_memUsage, 9 * kUnit);
    read(0, kUnit);
    EXPECT_EQ(m_storage->taken(), Calls{view(0)});
}

TEST_F(FileMapLimit, EarlierPageThatReachesIntoTheNewOneGoesToo) {
    m_storage->overlap = false;
    read(0);
    // Pages of whole units that reach so far also hold the position; a longer one need not.
    stateOf(m_map).m_pages[0].size = kUnit + 10;
    m_storage->views.begin()->second.size = kUnit + 10;
    stateOf(m_map).m_memUsage = kUnit + 10;
    m_storage->taken();
    char bytes[8];
    m_map.read(kUnit + 10, 1, 0, sizeof bytes, bytes);
    EXPECT_EQ(m_storage->taken(), (Calls{unmap(0), view(1)}));
    EXPECT_EQ(pages(), "1 ");
    EXPECT_EQ(stateOf(m_map).m_memUsage, kUnit);
}

// ---- growth of a file ----

TEST_F(FileMapGrowth, ReadAtTheEndDoublesTheFile) {
    open(100000);
    read(99000, 480);
    EXPECT_EQ(fileSize(), 200000u);
}

TEST_F(FileMapGrowth, ReadInFrontOfTheLastUnitDoesNot) {
    open(100000);
    read(65000, 536);
    EXPECT_EQ(fileSize(), 100000u);
    read(65000, 537);
    EXPECT_EQ(fileSize(), 200000u);
}

TEST_F(FileMapGrowth, ReadFarPastTheEndGrowsToTheEndOfItsPage) {
    open(100000);
    read(1000000, 8);
    EXPECT_EQ(fileSize(), 16 * kUnit);
}

TEST_F(FileMapGrowth, WriteAndFillGrowToo) {
    open(1);
    m_map.write(0, 1, 0, 1, "w");
    EXPECT_EQ(fileSize(), kUnit);
    m_map.fill(0, 1, kUnit, 1, 'f');
    EXPECT_EQ(fileSize(), 2 * kUnit);
    std::string expected(2 * kUnit, '\0');
    expected[0] = 'w';
    expected[kUnit] = 'f';
    EXPECT_EQ(m_folder.read("f"), expected);
}

TEST_F(FileMapGrowth, LimitOfOneUnitRefusesALongerRead) {
    open(10 * kUnit, kUnit);
    const std::string name = m_folder.name("f");
    EXPECT_EQ(raisedText([&] { read(0, kUnit + 1); }),
              "libn::FileMap memory limit exceeded:name()<" + name +
                  ">newPage.size<131072>m_maxMemUsage<65536>");
    read(0, kUnit);
    EXPECT_EQ(stateOf(m_map).m_memUsage, kUnit);
}

TEST_F(FileMapGrowth, LimitOfTwoUnitsHoldsOneAfterTheThird) {
    open(10 * kUnit, 2 * kUnit);
    read(0, 8);
    read(kUnit, 8);
    EXPECT_EQ(stateOf(m_map).m_memUsage, 2 * kUnit);
    read(2 * kUnit, 8);
    EXPECT_EQ(stateOf(m_map).m_memUsage, kUnit);
}

TEST_F(FileMapGrowth, FileThatAnotherMadeLongerCannotBeReadThere) {
    open(2 * kUnit);
    read(0, 8);
    std::filesystem::resize_file(m_folder.path() / "f", 10 * kUnit);
    const std::string text = raisedText([&] { read(4 * kUnit, 8); });
    EXPECT_EQ(text.rfind("MappableStorageFile mapPtr. Ensure offset is n multiple memory page "
                         "size.:name()<" +
                             m_folder.name("f") + ">offset<262144>n<65536>GetLastError()<",
                         0),
              0u)
        << text;
    EXPECT_EQ(stateOf(m_map).m_memUsage, kUnit);
    read(kUnit, 8);
    m_map.close();
    m_map.open(m_folder.path() / "f", 50 * kUnit);
    read(4 * kUnit, 8);
}

// ---- usage reports ----

TEST_F(FileMapGrowth, UsageIsReportedAfterAMoveOfMoreThanATenth) {
    open(100 * kUnit);
    const CapturedLog log;
    for (std::uint64_t unit = 0; unit < 5; ++unit)
        read(unit * kUnit, 8);
    EXPECT_EQ(log.size(), 0u) << "327,680 is not more than a tenth of 3,276,800";
    read(5 * kUnit, 8);
    EXPECT_EQ(log.messages(CapturedLog::events),
              std::vector<std::string>{"MappableStorage: f pagesCount: 5 size: 393216"});
    EXPECT_EQ(stateOf(m_map).m_lastReportedUsage, 6 * kUnit);
    for (std::uint64_t unit = 6; unit < 11; ++unit)
        read(unit * kUnit, 8);
    EXPECT_EQ(log.size(), 1u);
    read(11 * kUnit, 8);
    EXPECT_EQ(log.messages(CapturedLog::events).back(),
              "MappableStorage: f pagesCount: 11 size: 786432");
}

TEST_F(FileMapGrowth, TenthOfTheLimitIsCutToAWholeNumber) {
    for (const std::uint64_t limit : {10 * kUnit - 1, 10 * kUnit, 10 * kUnit + 9}) {
        libn::NewFileMap map;
        map.open(m_folder.write("g", std::string(2 * kUnit, 'x')), limit);
        const CapturedLog log;
        char byte = 0;
        map.read(0, 1, 0, 1, &byte);
        EXPECT_EQ(log.size(), limit < 10 * kUnit ? 1u : 0u) << limit;
    }
}

TEST_F(FileMapGrowth, NextReportIsMeasuredFromTheLastOneAcrossAnotherOpen) {
    open(100 * kUnit);
    for (std::uint64_t unit = 0; unit < 6; ++unit)
        read(unit * kUnit, 8);
    m_map.close();
    m_map.open(m_folder.name("f"), 50 * kUnit);
    EXPECT_EQ(stateOf(m_map).m_lastReportedUsage, 6 * kUnit);
    const CapturedLog log;
    for (std::uint64_t unit = 0; unit < 11; ++unit)
        read(unit * kUnit, 8);
    EXPECT_EQ(log.size(), 0u) << "no further than five units from the six of before";
    read(11 * kUnit, 8);
    EXPECT_EQ(log.messages(CapturedLog::events),
              std::vector<std::string>{"MappableStorage: f pagesCount: 11 size: 786432"});
}

TEST_F(FileMapGrowth, FallOfTheUsageIsReportedToo) {
    open(100 * kUnit);
    read(0, 50 * kUnit);
    const CapturedLog log;
    read(60 * kUnit, 8);
    EXPECT_EQ(log.messages(CapturedLog::events),
              std::vector<std::string>{"MappableStorage: f pagesCount: 0 size: 65536"});
}

TEST_F(FileMapGrowth, ReportNamesTheMemoryMappedByOtherMeansIfTheFlagIsSet) {
    open(100 * kUnit);
    stateOf(m_map).m_awe = true;
    libn::aweTotalSize = 12345;
    const CapturedLog log;
    read(0, 10 * kUnit);
    libn::aweTotalSize = 0;
    EXPECT_EQ(
        log.messages(CapturedLog::events),
        std::vector<std::string>{"MappableStorage: f pagesCount: 0 size: 655360 aweTotalSize: "
                                 "12345"});
}

TEST_F(FileMapGrowth, NoReportWhereItIsSwitchedOff) {
    open(100 * kUnit);
    EXPECT_TRUE(stateOf(m_map).m_reportUsage);
    stateOf(m_map).m_reportUsage = false;
    const CapturedLog log;
    read(0, 10 * kUnit);
    EXPECT_EQ(log.size(), 0u);
    EXPECT_EQ(stateOf(m_map).m_lastReportedUsage, 0u);
}

TEST_F(FileMapGrowth, PercentSignInTheNameIsNoConversionInTheReport) {
    m_map.open(m_folder.write("%d%n.vd", std::string(20 * kUnit, 'x')), 50 * kUnit);
    const CapturedLog log;
    read(0, 10 * kUnit);
    EXPECT_EQ(log.messages(CapturedLog::events),
              std::vector<std::string>{"MappableStorage: %d%n.vd pagesCount: 0 size: 655360"});
}

#include "libn/fileMap.h"

#include <gtest/gtest.h>

#include <cstring>
#include <numeric>
#include <string>

#include "../libn/src/fileMapState.h"
#include "support/capturedLog.h"
#include "support/countedNew.h"
#include "support/failingMalloc.h"
#include "support/raised.h"
#include "support/scopedCalls.h"
#include "support/tempFolder.h"

namespace {

using libn::FileMapState;
using libn::NewFileMap;
using libn::stateOf;

constexpr std::uint64_t kUnit = 65536;
constexpr std::uint64_t kAlertLimit = 3276800;

// A map on a file whose byte i is pattern(i).
class FileMap : public testing::Test {
  protected:
    static char pattern(std::uint64_t i) { return static_cast<char>(i * 131 + (i >> 8)); }
    static std::string patterns(std::uint64_t from, std::uint64_t size) {
        std::string bytes(size, '\0');
        for (std::uint64_t i = 0; i < size; ++i)
            bytes[i] = pattern(from + i);
        return bytes;
    }

    void openOn(std::uint64_t size, std::uint64_t limit) {
        m_map.open(m_folder.write("f", patterns(0, size)), limit);
    }
    std::string read(std::uint64_t pos, std::uint64_t size) {
        std::string bytes(size, '?');
        m_map.read(pos, 1, 0, size, bytes.data());
        return bytes;
    }
    FileMapState& state() { return stateOf(m_map); }
    std::uint64_t fileSize() const { return std::filesystem::file_size(m_folder.path() / "f"); }

    // "offset+size" of each page with a blank behind it.
    std::string pages() {
        std::string all;
        for (const libn::Page& page : state().m_pages)
            all += std::to_string(page.offset) + "+" + std::to_string(page.size) + " ";
        return all;
    }
    // Offsets of the recent pages.
    std::vector<std::int64_t> recent() {
        std::vector<std::int64_t> offsets;
        for (const libn::Page* page : state().m_recentPages)
            offsets.push_back(page->offset);
        return offsets;
    }

    TempFolder m_folder;
    NewFileMap m_map;
};

using Offsets = std::vector<std::int64_t>;

} // namespace

// ---- opening and closing ----

TEST_F(FileMap, IsClosedAtFirst) {
    EXPECT_FALSE(m_map.isOpen());
    m_map.close();
    EXPECT_FALSE(m_map.isOpen());
    EXPECT_EQ(state().m_storage, nullptr);
}

TEST_F(FileMap, NewFileIsMadeWithOneByte) {
    EXPECT_TRUE(m_map.open(m_folder.name("f"), kAlertLimit));
    EXPECT_EQ(m_folder.read("f"), std::string(1, '\0'));
    EXPECT_TRUE(m_map.isOpen());
    EXPECT_EQ(state().m_name, "f");
    EXPECT_EQ(state().m_maxMemUsage, kAlertLimit);
}

TEST_F(FileMap, EmptyFileCountsAsNew) {
    EXPECT_TRUE(m_map.open(m_folder.write("f", ""), kAlertLimit));
    EXPECT_EQ(fileSize(), 1u);
}

TEST_F(FileMap, FileWithContentIsNotNewAndStaysAsItIs) {
    EXPECT_FALSE(m_map.open(m_folder.write("f", "x"), kAlertLimit));
    m_map.close();
    EXPECT_EQ(m_folder.read("f"), "x");
}

TEST_F(FileMap, IsOpenStaysTrueAfterClose) {
    openOn(100, kAlertLimit);
    m_map.close();
    EXPECT_TRUE(m_map.isOpen());
    EXPECT_FALSE(state().m_storage->isMapped());
}

TEST_F(FileMap, CloseUnmapsAllPagesAndCanBeRepeated) {
    openOn(300000, kAlertLimit);
    read(0, 8);
    read(100000, 8);
    m_map.close();
    EXPECT_EQ(state().m_memUsage, 0u);
    EXPECT_TRUE(state().m_pages.empty());
    EXPECT_EQ(state().m_pages.capacity(), 0u) << "released";
    EXPECT_TRUE(state().m_recentPages.empty());
    m_map.close();
}

TEST_F(FileMap, OpensAgainAfterClose) {
    openOn(kUnit, kAlertLimit);
    EXPECT_EQ(read(0, 3), patterns(0, 3));
    m_map.close();
    state().m_awe = true;
    EXPECT_FALSE(m_map.open(m_folder.write("g", "other" + std::string(kUnit, '.')), 2 * kUnit));
    EXPECT_FALSE(state().m_awe);
    EXPECT_EQ(state().m_name, "g");
    EXPECT_EQ(state().m_maxMemUsage, 2 * kUnit);
    EXPECT_EQ(read(0, 5), "other");
}

TEST_F(FileMap, PagesOfAnEarlierOpenAreNotLookedAt) {
    openOn(kUnit, kAlertLimit);
    read(0, 8);
    m_map.open(m_folder.write("g", std::string(kUnit, 'g')), kAlertLimit);
    EXPECT_EQ(pages(), "0+65536 ");
    EXPECT_EQ(read(0, 3), patterns(0, 3));
    m_map.close();
    EXPECT_EQ(state().m_memUsage, 0u);
}

TEST_F(FileMap, FailedOpenRaisesAndLeavesAnObjectThatOpensAnother) {
    const std::string none = m_folder.name("no folder") + "/f";
    EXPECT_EQ(raisedText([&] {
                  m_map.open(none, kAlertLimit);
              }).rfind("MappableStorageFile open CreateFile:name()<" + none + ">", 0),
              0u);
    EXPECT_TRUE(m_map.isOpen());
    m_map.close();
    openOn(kUnit, kAlertLimit);
    EXPECT_EQ(read(5, 3), patterns(5, 3));
}

TEST_F(FileMap, ClearLeavesAnEmptyOpenFile) {
    openOn(300000, kAlertLimit);
    read(0, 8);
    m_map.clear();
    EXPECT_EQ(state().m_memUsage, 0u);
    EXPECT_EQ(pages(), "");
    EXPECT_EQ(fileSize(), 1u);
    EXPECT_EQ(read(0, 2), std::string(2, '\0'));
    EXPECT_EQ(fileSize(), kUnit);
}

// ---- which pages are mapped ----

TEST_F(FileMap, ReadOfAWordAtTheStartMapsOneUnit) {
    openOn(200000, kAlertLimit);
    EXPECT_EQ(read(0, 8), patterns(0, 8));
    EXPECT_EQ(pages(), "0+65536 ");
    EXPECT_EQ(state().m_memUsage, kUnit);
}

TEST_F(FileMap, PageBeginsAtTheUnitOfTheFirstByte) {
    openOn(200000, kAlertLimit);
    EXPECT_EQ(read(70000, 480), patterns(70000, 480));
    EXPECT_EQ(pages(), "65536+65536 ");
}

TEST_F(FileMap, ReadAcrossAUnitMapsBothInOnePage) {
    openOn(200000, kAlertLimit);
    EXPECT_EQ(read(131000, 1000), patterns(131000, 1000));
    EXPECT_EQ(pages(), "65536+131072 ");
    EXPECT_EQ(state().m_memUsage, 2 * kUnit);
}

TEST_F(FileMap, SpanThatEndsAtAUnitIsNotRoundedFurther) {
    openOn(3 * kUnit, kAlertLimit);
    read(1, kUnit - 1);
    EXPECT_EQ(pages(), "0+65536 ");
    m_map.close();
    openOn(3 * kUnit, kAlertLimit);
    read(1, kUnit);
    EXPECT_EQ(pages(), "0+131072 ");
}

TEST_F(FileMap, ReadAcrossTheEndOfAPageIsAnsweredFromTwo) {
    openOn(200000, kAlertLimit);
    read(0, 8);
    EXPECT_EQ(read(65000, 1000), patterns(65000, 1000));
    EXPECT_EQ(pages(), "0+65536 65536+65536 ");
}

TEST_F(FileMap, PagesMayOverlapAndStaySorted) {
    openOn(400000, kAlertLimit);
    read(200000, 8);
    read(65536, 8);
    EXPECT_EQ(read(10, 180000), patterns(10, 180000));
    EXPECT_EQ(pages(), "0+196608 65536+65536 196608+65536 ");
    EXPECT_EQ(read(65000, 70000), patterns(65000, 70000));
    EXPECT_EQ(pages(), "0+196608 65536+65536 196608+65536 ") << "the first page holds all of it";
    EXPECT_EQ(state().m_memUsage, 5 * kUnit);
}

TEST_F(FileMap, LastPageThatBeginsInFrontDecidesEvenIfAnEarlierOneReachesFurther) {
    openOn(400000, kAlertLimit);
    read(65536, 8);
    read(10, 180000);
    read(300000, 8); // empties the list of recent pages
    ASSERT_TRUE(recent().empty());
    EXPECT_EQ(read(140000, 8), patterns(140000, 8));
    EXPECT_EQ(pages(), "0+196608 65536+65536 131072+65536 262144+65536 ");
}

TEST_F(FileMap, NothingIsMappedForALengthOfZero) {
    openOn(100, kAlertLimit);
    m_map.read(0, 8, 5, 0, nullptr);
    m_map.write(0, 8, 5, 0, nullptr);
    m_map.fill(0, 8, 5, 0, 1);
    m_map.readBytes(0, 8, 5, 3, 0, nullptr);
    EXPECT_EQ(pages(), "");
    EXPECT_EQ(state().m_tick, 0u);
}

// ---- positions ----

TEST_F(FileMap, PositionIsBaseAndElementsBeforeTheIndex) {
    openOn(200000, kAlertLimit);
    std::string bytes(24, '?');
    m_map.read(100, 12, 9, 2, bytes.data());
    EXPECT_EQ(bytes, patterns(208, 24));
}

TEST_F(FileMap, WriteAndFillGoToTheFile) {
    openOn(200000, kAlertLimit);
    std::string expected = patterns(0, 200000);
    m_map.write(3, 5, 13000, 400, std::string(2000, 'w').data());
    m_map.fill(1, 2, 65000, 1000, 0xAB);
    expected.replace(3 + 5 * 13000, 2000, 2000, 'w');
    expected.replace(1 + 2 * 65000, 2000, 2000, '\xAB');
    EXPECT_EQ(read(0, 196608), expected.substr(0, 196608));
    EXPECT_EQ(m_folder.read("f"), expected) << "without a flush";
}

TEST_F(FileMap, WriteAndFillGoOnInTheNextPage) {
    openOn(300000, kAlertLimit);
    read(0, 8);
    const std::string written = patterns(7, 1000);
    m_map.write(65000, 1, 0, written.size(), written.data());
    m_map.fill(131000, 1, 0, 1000, 0xCD);
    EXPECT_EQ(pages(), "0+65536 65536+65536 131072+65536 ");
    std::string expected = patterns(0, 300000);
    expected.replace(65000, 1000, written);
    expected.replace(131000, 1000, 1000, '\xCD');
    EXPECT_EQ(m_folder.read("f"), expected);
}

TEST_F(FileMap, OtherProcessesWritesShow) {
    openOn(200000, kAlertLimit);
    read(0, 8);
    NewFileMap other;
    other.open(m_folder.path() / "f", kAlertLimit);
    other.write(0, 1, 4, 5, "other");
    EXPECT_EQ(read(4, 5), "other");
}

// ---- a range that starts inside an element ----

TEST_F(FileMap, ReadBytesFromTheStartOfAnElement) {
    openOn(200000, kAlertLimit);
    for (const std::uint64_t count : {1, 7, 8, 9, 16, 20}) {
        std::string bytes(24, '?');
        m_map.readBytes(100, 8, 2, 24, count, bytes.data());
        EXPECT_EQ(bytes, patterns(140, count) + std::string(24 - count, '?')) << count;
    }
}

TEST_F(FileMap, ReadBytesInsideAnElementComesUpShort) {
    openOn(200000, kAlertLimit);
    struct Case {
        std::uint64_t offset, count, copied;
    };
    for (const Case& c : {Case{3, 8, 5},
                          {3, 5, 5},
                          {3, 6, 5},
                          {3, 1, 1},
                          {7, 16, 9},
                          {11, 8, 5},
                          {7, 2, 1},
                          {4, 12, 12},
                          {4, 13, 12}}) {
        std::string bytes(24, '?');
        m_map.readBytes(100, 8, 2, c.offset, c.count, bytes.data());
        EXPECT_EQ(bytes, patterns(116 + c.offset, c.copied) + std::string(24 - c.copied, '?'))
            << c.offset << " " << c.count;
    }
}

TEST_F(FileMap, ReadBytesOverSeveralPagesSkipsOnce) {
    openOn(300000, kAlertLimit);
    read(0, 8);
    std::string bytes(100000, '?');
    // 536 bytes stand in the page that is there, the others in a new one.
    m_map.readBytes(0, 1000, 65, 36, 100000, bytes.data());
    EXPECT_EQ(pages(), "0+65536 65536+131072 ");
    EXPECT_EQ(bytes, patterns(65036, 99964) + std::string(36, '?'));
    // A part of the last element is wanted, and no byte more comes.
    bytes.assign(100000, '?');
    m_map.readBytes(0, 1000, 65, 36, 99950, bytes.data());
    EXPECT_EQ(bytes, patterns(65036, 99950) + std::string(50, '?'));
}

TEST_F(FileMap, ReadBytesSkipsAcrossTheEndOfAPage) {
    openOn(300000, kAlertLimit);
    read(0, 8);
    std::string bytes(20000, '?');
    m_map.readBytes(0, 20000, 3, 10000, 20000, bytes.data());
    EXPECT_EQ(bytes, patterns(70000, 10000) + std::string(10000, '?'));
}

#ifndef VDREADER_SANITIZED // which report the division first
TEST_F(FileMap, ReadBytesOfElementsWithoutASizeFaultsDeathTest) {
    openOn(100, kAlertLimit);
    EXPECT_DEATH(m_map.readBytes(0, 0, 0, 1, 1, &m_map), "");
}
#endif

// ---- recent pages, ticks ----

TEST_F(FileMap, NewPageCountsAsNeverUsedUntilItIsFoundAgain) {
    openOn(200000, kAlertLimit);
    read(0, 8);
    EXPECT_EQ(state().m_pages[0].lastUsed, 0u);
    EXPECT_EQ(state().m_tick, 1u);
    EXPECT_TRUE(recent().empty());
    read(8, 8);
    EXPECT_EQ(state().m_pages[0].lastUsed, 1u);
    EXPECT_EQ(state().m_tick, 2u);
    EXPECT_EQ(recent(), Offsets{0});
    read(16, 8);
    EXPECT_EQ(state().m_pages[0].lastUsed, 2u);
    EXPECT_EQ(recent(), Offsets{0});
}

TEST_F(FileMap, RecentPagesAreFiveInTheOrderOfPromotion) {
    openOn(10 * kUnit, kAlertLimit);
    for (std::uint64_t i = 0; i < 7; ++i)
        read(i * kUnit, 8);
    for (std::uint64_t i = 0; i < 7; ++i)
        read(i * kUnit, 8);
    const auto at = [](std::int64_t i) { return i * 65536; };
    EXPECT_EQ(recent(), (Offsets{at(6), at(5), at(4), at(3), at(2)}));
    read(3 * kUnit, 8);
    EXPECT_EQ(recent(), (Offsets{at(6), at(5), at(4), at(3), at(2)})) << "a hit moves nothing";
    EXPECT_EQ(state().m_pages[3].lastUsed, 14u);
    read(0, 8);
    EXPECT_EQ(recent(), (Offsets{at(0), at(6), at(5), at(4), at(3)}));
    read(8 * kUnit, 8);
    EXPECT_TRUE(recent().empty()) << "before every insertion";
}

TEST_F(FileMap, PageThatAnswersTwicePerRequestIsStampedTwice) {
    openOn(10 * kUnit, kAlertLimit);
    read(0, 8);
    read(kUnit, 8);
    read(kUnit - 4, 8);
    EXPECT_EQ(state().m_tick, 4u);
    EXPECT_EQ(state().m_pages[0].lastUsed, 2u);
    EXPECT_EQ(state().m_pages[1].lastUsed, 3u);
}

TEST_F(FileMap, HitCostsNoCallOfTheSystemAndNoAllocation) {
    openOn(10 * kUnit, kAlertLimit);
    for (int pass = 0; pass < 2; ++pass)
        for (std::uint64_t i = 0; i < 5; ++i)
            read(i * kUnit, 8);
    const ScopedCalls scope;
    platform::calls = {}; // any call would fault
    std::string bytes(480, '?');
    const std::size_t news = countedNews();
    const FailingMalloc failing;
    for (std::uint64_t i = 0; i < 1000; ++i)
        m_map.read(0, 8, i * 37, 60, bytes.data());
    EXPECT_EQ(countedNews(), news);
    EXPECT_EQ(bytes, patterns(999 * 37 * 8, 480));
}

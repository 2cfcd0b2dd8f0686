// The stream of a container file, and records read through it.

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <random>
#include <string>
#include <type_traits>
#include <vector>

#include "../libn/src/fileMapState.h"
#include "libn/storage.h"
#include "support/raised.h"
#include "support/tempFolder.h"

namespace {

using namespace libn::storage;
using Body = InputStream<479, 8>;
using Head = InputStream<1, 8>;

std::string pattern(std::size_t size) {
    std::string bytes(size, '\0');
    for (std::size_t i = 0; i < size; ++i)
        bytes[i] = static_cast<char>(i * 37 + (i >> 8));
    return bytes;
}

class InputStreams : public testing::Test {
  protected:
    InputStreams() { m_map.open(m_folder.write("f", m_bytes), 3276800); }

    static std::string read(Body& in, std::size_t size) {
        std::string bytes(size, '?');
        in.read(bytes.data(), size);
        return bytes;
    }
    std::uint64_t accesses() { return libn::stateOf(m_map).m_tick; }

    std::string m_bytes = pattern(300000);
    TempFolder m_folder;
    libn::NewFileMap m_map;
};

} // namespace

TEST(InputStreamInterface, BufferIsRoundedUpToWords) {
    EXPECT_EQ(Head::kWords, 1u);
    EXPECT_EQ(Head::kSize, 8u);
    EXPECT_EQ(Body::kWords, 60u);
    EXPECT_EQ(Body::kSize, 480u);
    EXPECT_EQ((InputStream<480, 8>::kSize), 480u);
    EXPECT_EQ((InputStream<481, 8>::kSize), 488u);
    EXPECT_EQ((InputStream<10, 4>::kWords), 3u);
}

TEST(InputStreamInterface, OnlyTheDestructorIsVirtual) {
    EXPECT_TRUE(std::has_virtual_destructor_v<Body>);
    EXPECT_TRUE((std::is_base_of_v<libn::Noncopyable, Body>));
    EXPECT_FALSE(std::is_copy_constructible_v<Body>);
}

TEST_F(InputStreams, OpeningFillsTheBuffer) {
    Body in(m_map, 100);
    EXPECT_EQ(accesses(), 1u);
    m_map.fill(0, 8, 100, 60, 0);
    EXPECT_EQ(read(in, 480), m_bytes.substr(800, 480));
    EXPECT_EQ(accesses(), 2u);
}

TEST_F(InputStreams, NextFillComesWithTheFirstByteThatNeedsIt) {
    Body in(m_map, 100);
    read(in, 480);
    EXPECT_EQ(accesses(), 1u);
    EXPECT_EQ(read(in, 0), "");
    EXPECT_EQ(accesses(), 1u);
    EXPECT_EQ(read(in, 1), m_bytes.substr(800 + 480, 1));
    EXPECT_EQ(accesses(), 2u);
}

TEST_F(InputStreams, ReadsOfAllSizesFollowOneAnother) {
    Body in(m_map, 1);
    std::size_t at = 8;
    for (const std::size_t size : {1, 7, 472, 1, 479, 480, 481, 959, 960, 961, 5000, 3, 100000}) {
        EXPECT_EQ(read(in, size), m_bytes.substr(at, size)) << at;
        at += size;
    }
}

TEST_F(InputStreams, LongReadIsOneFillAfterAnother) {
    Body in(m_map, 0);
    read(in, 480 * 10);
    EXPECT_EQ(accesses(), 10u) << "all in one page";
}

TEST_F(InputStreams, FieldsAreReadLikeBytes) {
    Body in(m_map, 0);
    std::size_t at = 0;
    for (int i = 0; i < 200; ++i) {
        char field[13];
        std::uint64_t number;
        std::uint8_t byte;
        in.get(field);
        in.get(number);
        in.get(byte);
        EXPECT_EQ(std::string(field, 13), m_bytes.substr(at, 13));
        EXPECT_EQ(std::memcmp(&number, m_bytes.data() + at + 13, 8), 0);
        EXPECT_EQ(static_cast<char>(byte), m_bytes[at + 21]);
        at += 22;
    }
    EXPECT_EQ(accesses(), 10u);
}

TEST_F(InputStreams, WordsCountFromTheBase) {
    Body in(m_map, 3, 1000);
    EXPECT_EQ(read(in, 500), m_bytes.substr(1024, 500));
    InputStream<10, 4> small(m_map, 3, 1000);
    char bytes[30];
    small.read(bytes, sizeof bytes);
    EXPECT_EQ(std::string(bytes, 30), m_bytes.substr(1012, 30));
}

TEST_F(InputStreams, HeadStreamReadsOneWord) {
    Head in(m_map, 50);
    std::uint32_t field;
    in.get(field);
    EXPECT_EQ(std::memcmp(&field, m_bytes.data() + 400, 4), 0);
    EXPECT_EQ(accesses(), 1u);
}

TEST_F(InputStreams, FillNearTheEndOfTheFileMakesItGrow) {
    m_map.close();
    m_folder.write("f", m_bytes.substr(0, 65536));
    m_map.open(m_folder.name("f"), 3276800);
    Body inside(m_map, (65536 - 480) / 8);
    EXPECT_EQ(std::filesystem::file_size(m_folder.name("f")), 65536u);
    Body in(m_map, (65536 - 472) / 8);
    EXPECT_EQ(std::filesystem::file_size(m_folder.name("f")), 131072u);
    EXPECT_EQ(read(in, 480), m_bytes.substr(65536 - 472, 472) + std::string(8, '\0'));
}

// ---- reading in place ----

namespace {

// All that can be told of a page cache.
std::string describe(libn::NewFileMap& map) {
    const libn::FileMapState& state = libn::stateOf(map);
    std::string all = std::to_string(state.m_tick) + " " + std::to_string(state.m_memUsage);
    for (const libn::Page& page : state.m_pages)
        all += " " + std::to_string(page.offset) + "+" + std::to_string(page.size) + "@" +
               std::to_string(page.lastUsed);
    for (const libn::Page* page : state.m_recentPages)
        all += " " + std::to_string(page->offset);
    return all;
}

} // namespace

TEST_F(InputStreams, InPlaceGivesTheSameBytesFromTheSamePages) {
    const TempFolder folder;
    libn::NewFileMap plain;
    const std::uint64_t limit = 3 * 65536;
    m_map.close();
    m_map.open(m_folder.name("f"), limit);
    plain.open(folder.write("f", m_bytes), limit);
    std::mt19937 random(7);
    for (int i = 0; i < 2000; ++i) {
        // Half of them near the border of two pages.
        const std::uint64_t border = 8192 * (1 + random() % 3);
        const std::uint64_t word = i % 2 == 0 ? random() % 36000 : border - random() % 70;
        const std::size_t size = random() % 1500;
        Body in(plain, word);
        Body inPlace(InPlace(), m_map, word);
        EXPECT_EQ(read(inPlace, size), read(in, size)) << word << " " << size;
        EXPECT_EQ(m_map.readWord(word), aux::readWord(plain, word)) << word;
        ASSERT_EQ(describe(m_map), describe(plain)) << word << " " << size;
    }
}

TEST_F(InputStreams, FieldsAheadAreThoseOfTheStream) {
    Body in(m_map, 0);
    Body copying(m_map, 0);
    Body inPlace(InPlace(), m_map, 0);
    std::string fields;
    std::string runs[2];
    for (int i = 0; i < 200; ++i) {
        char a[13], b[8];
        in.get(a);
        in.get(b);
        fields.append(a, sizeof a).append(b, sizeof b);
        for (const bool copies : {false, true}) {
            std::memset(a, '?', sizeof a);
            std::memset(b, '?', sizeof b);
            Body& stream = copies ? copying : inPlace;
            const auto get = [&](auto&& source) {
                source.get(a);
                source.get(b);
            };
            auto ahead = stream.ahead();
            if (21 <= ahead.left()) {
                ahead.run(21, get);
                stream.goOnAt(ahead);
            } else {
                get(stream);
            }
            runs[copies].append(a, sizeof a).append(b, sizeof b);
        }
    }
    EXPECT_EQ(fields, m_bytes.substr(0, 4200));
    EXPECT_EQ(runs[0], fields);
    EXPECT_EQ(runs[1], fields);
}

TEST_F(InputStreams, PlaceAheadIsNotTheStreamsUntilItIsGivenBack) {
    Body in(m_map, 0);
    auto ahead = in.ahead();
    EXPECT_EQ(ahead.left(), 480u);
    char room[128];
    std::size_t used = 0;
    for (const std::size_t size : {std::size_t{0}, std::size_t{1}, std::size_t{100}}) {
        ahead.readOf<128>(room, size);
        EXPECT_EQ(std::string(room, size), m_bytes.substr(used, size));
        used += size;
        EXPECT_EQ(ahead.left(), 480 - used);
    }
    EXPECT_EQ(in.ahead().left(), 480u);
    EXPECT_EQ(read(in, 3), m_bytes.substr(0, 3));
    in.goOnAt(ahead);
    EXPECT_EQ(in.ahead().left(), 379u);
    EXPECT_EQ(read(in, 380), m_bytes.substr(101, 380));
    EXPECT_EQ(in.ahead().left(), 479u);
}

// ---- records ----

namespace {

// A file with one table and a head for record 3, whose words are given.
class Records : public testing::Test {
  protected:
    std::string write(std::uint64_t body, std::uint64_t head = 40000) {
        std::vector<std::uint64_t> words(60000);
        words[0] = words[1] = 888888888;
        words[2] = 60000;
        words[3] = 200;
        words[4] = 4;
        words[200] = 20000;
        words[20003] = head;
        words[head] = body;
        words[head + 1] = 0x5555;
        words[head + 2] = 0xAAAAAAAA12345678;
        words[41000] = 41000;
        words[50000] = 50000;
        words[41060] = 41060;
        return m_folder.write("f", {reinterpret_cast<const char*>(words.data()), words.size() * 8});
    }

    TempFolder m_folder;
};

} // namespace

TEST_F(Records, RecordIsHeadFieldAndBody) {
    RecordFile file(write(41000), 888888888, 3276800);
    EXPECT_EQ(file.count, 4u);
    std::uint32_t headField = 0;
    std::uint64_t first = 0, next = 0;
    file.readRecord(3, headField, [&](auto& in) {
        EXPECT_EQ(headField, 0x12345678u) << "known to the decoder";
        in.get(first);
        char skipped[472];
        in.get(skipped);
        in.get(next);
    });
    EXPECT_EQ(first, 41000u);
    EXPECT_EQ(next, 41060u);
    EXPECT_EQ(file.records.records.root, 200);
}

// At the end of a page of the cache, and across it.
TEST_F(Records, HeadIsReadWhereverItLies) {
    const std::uint64_t pageEnd = 5 * libn::kPageUnit / 8;
    for (std::uint64_t head = pageEnd - 4; head <= pageEnd; ++head) {
        RecordFile file(write(50000, head), 888888888, 3276800);
        std::uint32_t headField = 0;
        std::uint64_t first = 0;
        file.readRecord(3, headField, [&](auto& in) { in.get(first); });
        EXPECT_EQ(headField, 0x12345678u) << head;
        EXPECT_EQ(first, 50000u) << head;
        for (const libn::Page& page : libn::stateOf(file).m_pages)
            EXPECT_EQ(page.size, libn::kPageUnit) << head;
    }
}

TEST_F(Records, RecordCostsTwoWordsTheHeadAndOneFill) {
    RecordFile file(write(41000), 888888888, 3276800);
    std::uint32_t headField = 0;
    const auto nothing = [](auto&) {};
    file.readRecord(3, headField, nothing);
    const std::uint64_t before = libn::stateOf(file).m_tick;
    file.readRecord(3, headField, nothing);
    EXPECT_EQ(libn::stateOf(file).m_tick - before, 4u);
}

TEST_F(Records, MissingRecordLeavesTheField) {
    RecordFile file(write(41000), 888888888, 3276800);
    std::uint32_t headField = 77;
    EXPECT_EQ(raisedText([&] { file.readRecord(2, headField, [](auto&) {}); }),
              "libn::storage::Array::getPos:recNo<2>");
    EXPECT_EQ(headField, 77u);
}

TEST_F(Records, BodyBeyondReachRaises) {
    RecordFile file(write((std::uint64_t{1} << 40) + 1), 888888888, 3276800);
    std::uint32_t headField = 0;
    EXPECT_EQ(raisedText([&] { file.readRecord(3, headField, [](auto&) {}); }),
              "libn::storage word beyond reach:body<1099511627777>");
    EXPECT_EQ(std::filesystem::file_size(m_folder.name("f")), 480000u);
}

// Container files: header, allocation and tables.

#include "libn/storage.h"

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "support/capturedLog.h"
#include "support/raised.h"
#include "support/tempFolder.h"
#include "vdreader/errors.hpp"

namespace {

using namespace libn::storage;
using Words = std::vector<std::uint64_t>;

constexpr std::int32_t kMagic = 888888888;
constexpr std::uint64_t kLimit = 3276800;

std::string bytesOf(const Words& words) {
    return {reinterpret_cast<const char*>(words.data()), words.size() * kWordSize};
}
Words wordsOf(const std::string& bytes) {
    Words words(bytes.size() / kWordSize);
    std::memcpy(words.data(), bytes.data(), words.size() * kWordSize);
    return words;
}

class Storage : public testing::Test {
  protected:
    // A file of `words` words that begin as given.
    std::string write(Words words, std::size_t count = 65536) const {
        words.resize(count);
        return m_folder.write("f", bytesOf(words));
    }
    Words read() const { return wordsOf(m_folder.read("f")); }
    std::string name() const { return m_folder.name("f"); }

    // Words that differ from those of an empty file: "index=value".
    static std::string changed(const Words& now, const Words& before) {
        std::string all;
        for (std::size_t i = 0; i < now.size(); ++i)
            if (now[i] != (i < before.size() ? before[i] : 0))
                all += std::to_string(i) + "=" + std::to_string(now[i]) + " ";
        return all;
    }

    TempFolder m_folder;
};

// An open map that has not looked at the file.
class StorageMap : public Storage {
  protected:
    void open(const Words& words) { m_isNew = m_map.open(write(words), kLimit); }
    std::uint64_t word(std::uint64_t index) { return aux::readWord(m_map, index); }

    libn::NewFileMap m_map;
    bool m_isNew = false;
};

} // namespace

// ---- the header ----

TEST_F(Storage, NewFileIsLaidOutWithoutALogLine) {
    const CapturedLog log;
    {
        RecordFile file(name(), kMagic, kLimit);
        EXPECT_EQ(file.count, 0u);
    }
    std::string expected(65536, '\0');
    expected.replace(0, 16, bytesOf({888888888, 888888888}));
    EXPECT_EQ(m_folder.read("f"), expected);
    EXPECT_EQ(log.size(), 0u);
}

TEST_F(Storage, EmptyFileIsLaidOutWithoutALogLine) {
    m_folder.write("f", "");
    const CapturedLog log;
    RecordFile(name(), kMagic, kLimit);
    EXPECT_EQ(m_folder.read("f").size(), 65536u);
    EXPECT_EQ(changed(read(), {}), "0=888888888 1=888888888 ");
    EXPECT_EQ(log.size(), 0u);
}

TEST_F(Storage, GoodFileStaysAsItIs) {
    Words words = {888888888, 888888888, 17, 18, 19};
    const std::string before = [&] {
        write(words);
        return m_folder.read("f");
    }();
    const CapturedLog log;
    EXPECT_EQ(RecordFile(name(), kMagic, kLimit).count, 19u);
    EXPECT_EQ(m_folder.read("f"), before);
    EXPECT_EQ(log.size(), 0u);
}

TEST_F(Storage, ForeignFileIsEmptiedWithALogLine) {
    struct Case {
        std::uint64_t m0, m1;
        const char* values;
    };
    for (const Case& c :
         {Case{1, 888888888, "m[0]<1>m[1]<888888888>"},
          {888888888, 2, "m[0]<888888888>m[1]<2>"},
          {~std::uint64_t{0}, 0, "m[0]<-1>m[1]<0>"},
          {(std::uint64_t{1} << 32) + 888888888, 888888888, "m[0]<5183856184>m[1]<888888888>"}}) {
        write({c.m0, c.m1, 200, 300, 5, 6}, 100000);
        const CapturedLog log;
        EXPECT_EQ(RecordFile(name(), kMagic, kLimit).count, 0u);
        ASSERT_EQ(log.size(), 1u);
        EXPECT_EQ(
            log.messages(CapturedLog::events),
            std::vector<std::string>{"storage::aux::initFile wrongMagic:" + std::string(c.values)});
        EXPECT_EQ(log.lines(CapturedLog::events)[0].substr(0, 3), "0: ");
        EXPECT_EQ(m_folder.read("f").size(), 65536u);
        EXPECT_EQ(changed(read(), {}), "0=888888888 1=888888888 ");
    }
}

TEST_F(Storage, FileShorterThanAHeaderIsForeign) {
    m_folder.write("f", "x");
    const CapturedLog log;
    RecordFile(name(), kMagic, kLimit);
    EXPECT_EQ(log.messages(CapturedLog::events),
              std::vector<std::string>{"storage::aux::initFile wrongMagic:m[0]<120>m[1]<0>"});
    EXPECT_EQ(changed(read(), {}), "0=888888888 1=888888888 ");
}

TEST_F(Storage, FileWithBothNumbersAndNothingElseGrowsAndStays) {
    m_folder.write("f", bytesOf({888888888, 888888888}));
    const CapturedLog log;
    EXPECT_EQ(RecordFile(name(), kMagic, kLimit).count, 0u);
    EXPECT_EQ(m_folder.read("f").size(), 65536u);
    EXPECT_EQ(changed(read(), {}), "0=888888888 1=888888888 ");
    EXPECT_EQ(log.size(), 0u);
}

TEST_F(Storage, CountIsReadOnceAtTheOpening) {
    write({888888888, 888888888, 0, 0, 7});
    const RecordFile file(name(), kMagic, kLimit);
    {
        RecordFile writer(name(), kMagic, kLimit);
        aux::writeWord(writer, kCountWord, 8);
    }
    EXPECT_EQ(file.count, 7u);
    EXPECT_EQ(RecordFile(name(), kMagic, kLimit).count, 8u);
}

TEST_F(StorageMap, NumbersAreComparedWithTheirSign) {
    open({static_cast<std::uint64_t>(-5), 6, 7});
    aux::initFile(m_map, -5, 6, false, false);
    EXPECT_EQ(word(2), 7u);
    aux::initFile(m_map, 5, 6, false, false);
    EXPECT_EQ(word(2), 0u);
    EXPECT_EQ(word(0), 5u);
}

TEST_F(StorageMap, ForceLaysAGoodFileOutAnewWithoutALogLine) {
    open({1, 2, 3, 4, 5});
    const CapturedLog log;
    aux::initFile(m_map, 1, 2, false, true);
    m_map.close();
    EXPECT_EQ(changed(read(), {}), "0=1 1=2 ");
    EXPECT_EQ(m_folder.read("f").size(), 65536u);
    EXPECT_EQ(log.size(), 0u);
}

TEST_F(StorageMap, ForceOnAForeignFileIsLoggedUnlessItIsNew) {
    open({1, 3});
    const CapturedLog log;
    aux::initFile(m_map, 1, 2, false, true);
    EXPECT_EQ(log.size(), 1u);
    aux::writeWord(m_map, 0, 9);
    aux::initFile(m_map, 1, 2, true, false);
    EXPECT_EQ(log.size(), 1u);
    EXPECT_EQ(word(0), 1u);
}

// ---- blocks without an arena ----

TEST_F(StorageMap, FirstBlockOfAFreshFileIsWord100) {
    open({});
    EXPECT_EQ(aux::allocate(m_map, 0, 10, false), 100u);
    EXPECT_EQ(word(2), 110u);
    EXPECT_EQ(aux::allocate(m_map, 0, 0, true), 110u);
    EXPECT_EQ(aux::allocate(m_map, 0, 1, false), 110u);
    EXPECT_EQ(word(2), 111u);
}

TEST_F(StorageMap, NextFreeWordBelowTheHeadersEndReadsAsItsEnd) {
    open({0, 0, 99});
    EXPECT_EQ(aux::allocate(m_map, 0, 1, false), 100u);
    aux::writeWord(m_map, 2, 101);
    EXPECT_EQ(aux::allocate(m_map, 0, 1, false), 101u);
}

TEST_F(StorageMap, BlockIsClearedOnlyIfAskedFor) {
    open(Words(300, 7));
    aux::writeWord(m_map, 2, 100);
    aux::allocate(m_map, 0, 50, true);
    aux::allocate(m_map, 0, 50, false);
    EXPECT_EQ(word(99), 7u);
    EXPECT_EQ(word(100), 0u);
    EXPECT_EQ(word(149), 0u);
    EXPECT_EQ(word(150), 7u);
}

TEST_F(StorageMap, BlockOfOneWordIsClearedToo) {
    open(Words(300, 7));
    aux::writeWord(m_map, 2, 100);
    EXPECT_EQ(aux::allocate(m_map, 0, 1, true), 100u);
    EXPECT_EQ(word(100), 0u);
    EXPECT_EQ(word(101), 7u);
}

// ---- what is asked of a map ----

namespace {

// Notes the calls of a map whose words are all 7.
class NotedMap : public libn::FileMap {
  public:
    bool open(const std::filesystem::path&, std::uint64_t) override { return false; }
    void close() override {}
    bool isOpen() const override { return true; }
    void clear() override { calls += "clear "; }
    void write(std::uint64_t base, std::uint64_t elemSize, std::uint64_t index, std::uint64_t count,
               const void* source) override {
        note("write", base, elemSize, index, count);
        const Words words = wordsOf({static_cast<const char*>(source), elemSize * count});
        for (const std::uint64_t word : words)
            calls += "=" + std::to_string(static_cast<std::int64_t>(word)) + " ";
    }
    void read(std::uint64_t, std::uint64_t elemSize, std::uint64_t, std::uint64_t count,
              void* destination) override {
        const std::string bytes = bytesOf(Words(count * elemSize / kWordSize, 7));
        std::memcpy(destination, bytes.data(), bytes.size());
    }
    void readBytes(std::uint64_t, std::uint64_t, std::uint64_t, std::uint64_t, std::uint64_t,
                   void*) override {}
    void fill(std::uint64_t base, std::uint64_t elemSize, std::uint64_t index, std::uint64_t count,
              std::uint8_t value) override {
        note("fill", base, elemSize, index, count);
        calls += "=" + std::to_string(value) + " ";
    }

    std::string calls;

  private:
    void note(const char* call, std::uint64_t base, std::uint64_t elemSize, std::uint64_t index,
              std::uint64_t count) {
        calls += std::string(call) + " " + std::to_string(base) + "+" + std::to_string(elemSize) +
                 "*" + std::to_string(index) + " " + std::to_string(count) + " ";
    }
};

} // namespace

TEST_F(Storage, LayoutClearsTheFileThenTheHeaderThenWritesBothNumbers) {
    NotedMap map;
    aux::initFile(map, 12, -3, true, false);
    EXPECT_EQ(map.calls, "clear fill 0+8*0 100 =0 write 0+8*0 2 =12 =-3 ");
}

TEST_F(Storage, BlockIsFilledAtItsPlaceAndAnEmptyOneNotAtAll) {
    NotedMap map;
    EXPECT_EQ(aux::allocate(map, 0, 5, true), 100u);
    EXPECT_EQ(map.calls, "write 0+8*2 1 =105 fill 0+8*100 5 =0 ");
    map.calls.clear();
    EXPECT_EQ(aux::allocate(map, 0, 0, true), 100u);
    EXPECT_EQ(map.calls, "write 0+8*2 1 =100 ");
}

// ---- blocks of an arena ----

namespace {

struct Arena {
    std::uint64_t nextFree, next, limit; // words 2, 50 and 51
    std::uint32_t words;
    std::uint64_t block, nextFreeAfter, nextAfter, limitAfter;
};

} // namespace

TEST_F(StorageMap, BlockOfAnArena) {
    for (const Arena& a : {
             // A new arena: at the next free word, its limit the next multiple of 16,384.
             Arena{0, 0, 0, 10, 100, 16384, 110, 16384},
             {0, 0, 0, 0, 100, 16384, 100, 16384},
             {99, 0, 0, 10, 100, 16384, 110, 16384},
             {4096, 0, 0, 10, 4096, 16384, 4106, 16384},
             {4097, 0, 0, 10, 16384, 32768, 16394, 32768},
             {16383, 0, 0, 10, 16384, 32768, 16394, 32768},
             {16384, 0, 0, 10, 16384, 32768, 16394, 32768},
             {16384 + 4096, 0, 0, 10, 20480, 32768, 20490, 32768},
             {16384 + 4097, 0, 0, 10, 32768, 49152, 32778, 49152},
             {0, 0, 0, 16284, 100, 32768, 16384, 32768}, // ends at a multiple: one more
             {0, 0, 0, 20000, 100, 32768, 20100, 32768},
             // In an arena as long as the block fits.
             {5000, 200, 16384, 10, 200, 5000, 210, 16384},
             {5000, 16374, 16384, 10, 16374, 5000, 16384, 16384},
             {5000, 16375, 16384, 10, 16384, 32768, 16394, 32768},
             {200, 16384, 16384, 1, 200, 16384, 201, 16384},
             {5000, 16384, 16384, 0, 16384, 5000, 16384, 16384},
         }) {
        Words words(100);
        words[2] = a.nextFree;
        words[50] = a.next;
        words[51] = a.limit;
        open(words);
        const std::string trace = testing::PrintToString(Words{a.nextFree, a.next, a.words});
        EXPECT_EQ(aux::allocate(m_map, 50, a.words, false), a.block) << trace;
        EXPECT_EQ(word(2), a.nextFreeAfter) << trace;
        EXPECT_EQ(word(50), a.nextAfter) << trace;
        EXPECT_EQ(word(51), a.limitAfter) << trace;
        m_map.close();
    }
}

TEST_F(StorageMap, BlockOfAnArenaIsClearedOnlyIfAskedFor) {
    open(Words(300, 7));
    aux::writeWord(m_map, 50, 200);
    aux::writeWord(m_map, 51, 16384);
    aux::allocate(m_map, 50, 10, true);
    aux::allocate(m_map, 50, 10, false);
    EXPECT_EQ(word(199), 7u);
    EXPECT_EQ(word(200), 0u);
    EXPECT_EQ(word(209), 0u);
    EXPECT_EQ(word(210), 7u);
}

// ---- tables ----

TEST_F(StorageMap, LookUpInAFreshFileMakesBothTables) {
    open({});
    RecNo records{&m_map, kRootWord};
    EXPECT_EQ(records.root, -1);
    EXPECT_EQ(records.getPos(5), 100u + 16384 + 5);
    EXPECT_EQ(records.root, 100);
    m_map.close();
    EXPECT_EQ(changed(read(), {}), "2=32868 3=100 100=16484 ");
    EXPECT_EQ(std::filesystem::file_size(name()), 524288u) << "no growth is needed";
}

TEST_F(StorageMap, TablesAreZeroWhateverStoodThere) {
    open(Words(60000, 7));
    aux::writeWord(m_map, 2, 0);
    aux::writeWord(m_map, 3, 0);
    RecNo records{&m_map, kRootWord};
    records.getPos(0);
    EXPECT_EQ(word(100), 16484u);
    for (const std::uint64_t index : {101, 16483, 16484, 32867})
        EXPECT_EQ(word(index), 0u) << index;
    EXPECT_EQ(word(32868), 7u);
}

TEST_F(StorageMap, PresentTablesAreUsedAndNothingIsWritten) {
    Words words(40000);
    words[2] = 40000;
    words[3] = 200;
    words[200] = 20000;
    words[201] = 38000;
    open(words);
    const std::string before = m_folder.read("f");
    RecNo records{&m_map, kRootWord};
    EXPECT_EQ(records.getPos(0), 20000u);
    EXPECT_EQ(records.getPos(16383), 36383u);
    EXPECT_EQ(records.getPos(16384), 38000u) << "slot 0 of the second entry";
    EXPECT_EQ(records.getPos(16385), 38001u);
    EXPECT_EQ(m_folder.read("f"), before);
}

TEST_F(StorageMap, RootIsReadOnce) {
    Words words(40000);
    words[3] = 200;
    words[200] = 20000;
    words[300] = 30000;
    open(words);
    RecNo records{&m_map, kRootWord};
    records.getPos(0);
    aux::writeWord(m_map, 3, 300);
    EXPECT_EQ(records.getPos(0), 20000u);
    EXPECT_EQ((RecNo{&m_map, kRootWord}.getPos(0)), 30000u);
}

TEST_F(StorageMap, RootMayStandInAnotherWord) {
    open({});
    EXPECT_EQ((RecNo{&m_map, 60}.getPos(0)), 16484u);
    EXPECT_EQ(word(60), 100u);
    EXPECT_EQ(word(3), 0u);
}

TEST_F(StorageMap, LastNumberThatTheTablesReach) {
    open({});
    RecNo records{&m_map, kRootWord};
    EXPECT_EQ(records.getPos(268435455), 16484u + 16383);
    EXPECT_EQ(word(100 + 16383), 16484u);
}

TEST_F(StorageMap, NumberBeyondTheTablesRaises) {
    open({});
    RecNo records{&m_map, kRootWord};
    const auto error = raised<CError>([&] { records.getPos(268435456); });
    ASSERT_TRUE(error);
    EXPECT_STREQ(error->what(), "libn::storage::RecNo index overflow:recNo<268435456>");
    EXPECT_EQ(raisedText([&] { records.getPos(~std::uint64_t{0}); }),
              "libn::storage::RecNo index overflow:recNo<18446744073709551615>");
    EXPECT_EQ(word(2), 100u + 16384) << "the first-level table is made before";
    EXPECT_EQ(word(3), 100u);
}

TEST_F(StorageMap, SlotWithoutARecordRaisesAndLeavesTheTables) {
    open({});
    Array array{{&m_map, kRootWord}};
    const auto error = raised<CError>([&] { array.getPos(16384); });
    ASSERT_TRUE(error);
    EXPECT_STREQ(error->what(), "libn::storage::Array::getPos:recNo<16384>");
    EXPECT_EQ(word(2), 100u + 2 * 16384);
    EXPECT_EQ(word(101), 16484u);
    EXPECT_EQ(raisedText([&] { array.getPos(16385); }),
              "libn::storage::Array::getPos:recNo<16385>");
    EXPECT_EQ(word(2), 100u + 2 * 16384) << "the table is there now";
}

TEST_F(StorageMap, SlotLeadsToTheHead) {
    Words words(40000);
    words[3] = 200;
    words[200] = 20000;
    words[20007] = 39000;
    open(words);
    Array array{{&m_map, kRootWord}};
    EXPECT_EQ(array.getPos(7), 39000u);
}

// ---- damaged words ----

TEST_F(StorageMap, WordsBeyondReachRaiseAndNothingIsWritten) {
    constexpr std::uint64_t kFar = (std::uint64_t{1} << 40) + 1;
    struct Case {
        std::uint64_t index;
        const char* name;
    };
    for (const Case& c : {Case{2, "nextFree"}, {3, "root"}, {200, "table"}, {20000, "head"}})
        for (const std::uint64_t value :
             {kFar, std::uint64_t{1} << 61, ~std::uint64_t{0} - 1, ~std::uint64_t{0}}) {
            Words words(40000);
            words[3] = c.index == 2 ? 0 : 200;
            words[200] = 20000;
            words[20000] = 300;
            words[c.index] = value;
            open(words);
            const std::string before = m_folder.read("f");
            Array array{{&m_map, kRootWord}};
            const std::string text = "libn::storage word beyond reach:" + std::string(c.name) +
                                     "<" + std::to_string(value) + ">";
            EXPECT_EQ(raisedText([&] { array.getPos(0); }), text);
            EXPECT_EQ(raisedText([&] { array.getPos(0); }), text) << "again";
            m_map.close();
            EXPECT_EQ(m_folder.read("f"), before) << c.name;
        }
}

TEST_F(StorageMap, FarthestWordIsWithinReach) {
    EXPECT_EQ(aux::withinReach("x", std::uint64_t{1} << 40), std::uint64_t{1} << 40);
}

TEST_F(StorageMap, DamagedWordsOfAnArenaRaise) {
    Words words(100);
    words[50] = std::uint64_t{1} << 62;
    words[51] = ~std::uint64_t{0};
    open(words);
    EXPECT_EQ(raisedText([&] { aux::allocate(m_map, 50, 1, true); }),
              "libn::storage word beyond reach:arena<4611686018427387904>");
}

#include "libn/Ini.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <clocale>
#include <iterator>
#include <stdexcept>
#include <type_traits>

#include "support/raised.h"
#include "support/scopedCalls.h"
#include "support/scopedLocale.h"
#include "support/tempFolder.h"

namespace {

using libn::Ini;
using Pairs = std::map<std::string, std::string>;

libn::Ini parse(const std::string& text) {
    const TempFolder folder;
    return Ini(folder.write("test.ini", text));
}

std::string stringOf(const Ini& ini, const std::string& section, const std::string& key,
                     const std::string& fallback) {
    std::string out = "former";
    ini.getString(section.data(), section.size(), key.data(), key.size(), fallback.data(),
                  fallback.size(), out);
    return out;
}

Pairs pairsOf(Ini ini, const std::string& section, Pairs pairs = {}) {
    ini.getSection(section, pairs);
    return pairs;
}

std::vector<std::string> valuesOf(const Ini& ini, const char* section, const char* key) {
    std::vector<std::string> values;
    ini.getValues(section, key, values);
    return values;
}

} // namespace

// ---- empty ----

TEST(Ini, EmptyFileHasNothing) {
    const Ini ini = parse("");
    EXPECT_TRUE(ini.sections.empty());
    EXPECT_EQ(ini.getValue("s", "k"), "");
    EXPECT_EQ(stringOf(ini, "s", "k", "default"), "default");
    EXPECT_EQ(ini.getInt("s", "k", 7), 7);
    EXPECT_TRUE(ini.getBool("s", "k", true));
    EXPECT_TRUE(valuesOf(ini, "s", "k").empty());
}

TEST(Ini, MissingFileIsEmpty) {
    const TempFolder folder;
    const Ini ini(folder.name("none.ini"));
    EXPECT_TRUE(ini.sections.empty());
    EXPECT_EQ(ini.fileName, folder.name("none.ini"));
    EXPECT_TRUE(ini.lowerCaseKeys);
    EXPECT_EQ(ini.keyPrefix, "");
    EXPECT_TRUE(Ini(folder.path().string()).sections.empty());
}

// ---- normal ----

TEST(Ini, SectionsAndKeysAreFoundWhateverTheirCase) {
    const Ini ini = parse("[S ]\nKey = Value X\n");
    EXPECT_EQ(ini.sections.count("s"), 1u);
    EXPECT_EQ(ini.getValue("s", "key"), "Value X");
    EXPECT_EQ(ini.getValue("S", "KEY"), "Value X");
    EXPECT_EQ(ini.getValue("s ", "key"), "");
}

TEST(Ini, CommentsAndBlankLinesAreSkipped) {
    const Ini ini = parse("; a=1\n# b=2\n\n   \t\r\n[s]\n;c=3\n  # d=4\nk=v\n");
    EXPECT_EQ(pairsOf(ini, "s"), (Pairs{{"k", "v"}}));
}

TEST(Ini, OnlyTheFirstCharacterMakesAComment) {
    const Ini ini = parse("[s]\nk=1 ; note\n");
    EXPECT_EQ(ini.getValue("s", "k"), "1 ; note");
    EXPECT_EQ(ini.getInt("s", "k", 5), 1);
    EXPECT_TRUE(ini.getBool("s", "k", true));
    EXPECT_FALSE(ini.getBool("s", "k", false));
}

TEST(Ini, FirstEqualsSignIsTheBorder) {
    EXPECT_EQ(parse("[s]\nx=a=b\n").getValue("s", "x"), "a=b");
}

TEST(Ini, LinesWithoutAKeyAreSkipped) {
    const Ini ini = parse("[s]\nword\n=x\n =y\nk=v\n");
    EXPECT_EQ(ini.sections.at("s").size(), 1u);
}

TEST(Ini, KeyOfBlanksAloneIsAnEmptyKey) {
    // The line is trimmed first, so blanks in front of the "=" leave it at the start.
    EXPECT_TRUE(parse("[s]\n  =v\n").sections.empty());
}

TEST(Ini, CarriageReturnsAndTabsAreBlanks) {
    const Ini ini = parse("[s]\r\n\tk\t=\tv w\t\r\n");
    EXPECT_EQ(ini.getValue("s", "k"), "v w");
}

TEST(Ini, OtherControlCharactersAreNoBlanks) {
    EXPECT_EQ(parse("[s]\nk=\vv\f\n").getValue("s", "k"), "\vv\f");
}

TEST(Ini, LastLineNeedsNoLineEnd) {
    EXPECT_EQ(parse("[s]\nk=v").getValue("s", "k"), "v");
}

TEST(Ini, TextBehindAHeaderIsIgnored) {
    EXPECT_EQ(parse("[ S] x=y ] z\nk=v\n").getValue("s", "k"), "v");
    EXPECT_EQ(parse("[a]b]\nk=v\n").getValue("a", "k"), "v");
}

TEST(Ini, VeryLongLinesAreWhole) {
    const std::string value(300000, 'v');
    EXPECT_EQ(parse("[s]\nk=" + value + "\nl=2").getValue("s", "k"), value);
}

TEST(Ini, FileEndsAtTheSystemsTextEnd) {
#ifdef _WIN32
    EXPECT_EQ(parse("[s]\nk=v\n\x1a\nl=w\n").getValue("s", "l"), "");
#else
    EXPECT_EQ(parse("[s]\nk=v\n\x1a\nl=w\n").getValue("s", "l"), "w");
#endif
}

// ---- sections ----

TEST(Ini, KeysAboveTheFirstHeaderBelongToTheFirstSection) {
    const Ini ini = parse("a=1\n[s]\nb=2\n");
    EXPECT_EQ(pairsOf(ini, "s"), (Pairs{{"a", "1"}, {"b", "2"}}));
    EXPECT_EQ(ini.sections.size(), 1u);
}

TEST(Ini, KeysWithoutAnyHeaderAreLost) {
    EXPECT_TRUE(parse("a=1\nb=2\n").sections.empty());
}

TEST(Ini, KeysBehindAMalformedHeaderJoinTheNextSection) {
    const Ini ini = parse("[a]\nk=1\n[b\nl=2\n[c]\nm=3\n");
    EXPECT_EQ(pairsOf(ini, "a"), (Pairs{{"k", "1"}}));
    EXPECT_EQ(pairsOf(ini, "c"), (Pairs{{"l", "2"}, {"m", "3"}}));
    EXPECT_EQ(ini.sections.size(), 2u);
}

TEST(Ini, KeysBehindAnEmptyHeaderJoinTheNextSection) {
    const Ini ini = parse("[a]\nk=1\n[ \t]\nl=2\n[c]\nm=3\n");
    EXPECT_EQ(pairsOf(ini, "a"), (Pairs{{"k", "1"}}));
    EXPECT_EQ(pairsOf(ini, "c"), (Pairs{{"l", "2"}, {"m", "3"}}));
}

TEST(Ini, MalformedHeaderLeavesASectionThatHasNoKeyYet) {
    EXPECT_EQ(parse("[a]\n[b\nk=1\n").getValue("a", "k"), "1");
}

TEST(Ini, FirstOfTwoSectionsOfOneNameWins) {
    const Ini ini = parse("[s]\nk=1\n[s]\nk=2\nm=3\n");
    EXPECT_EQ(pairsOf(ini, "s"), (Pairs{{"k", "1"}}));
    const Ini apart = parse("[s]\nk=1\n[t]\nx=y\n[S]\nm=3\n[u]\nn=4\n");
    EXPECT_EQ(pairsOf(apart, "s"), (Pairs{{"k", "1"}}));
    EXPECT_EQ(pairsOf(apart, "u"), (Pairs{{"n", "4"}}));
}

TEST(Ini, SectionThatLosesIsClosedAllTheSame) {
    const Ini ini = parse("[s]\nk=1\n[s]\nk=2\n[bad\nm=3\n[c]\nn=4\n");
    EXPECT_EQ(pairsOf(ini, "s"), (Pairs{{"k", "1"}}));
    EXPECT_EQ(pairsOf(ini, "c"), (Pairs{{"m", "3"}, {"n", "4"}}));
}

TEST(Ini, SectionWithoutAKeyDoesNotShadowALaterOne) {
    const Ini ini = parse("[s]\n[t]\nx=1\n[s]\nk=2\n");
    EXPECT_EQ(ini.getValue("s", "k"), "2");
    EXPECT_EQ(parse("[s]\n").sections.size(), 0u);
}

// ---- look-up ----

TEST(Ini, EqualKeysKeepTheFilesOrder) {
    const Ini ini = parse("[s]\nk=1\na=0\nK=2\nz=9\nk=3\n");
    EXPECT_EQ(ini.getValue("s", "k"), "1");
    EXPECT_EQ(valuesOf(ini, "s", "K"), (std::vector<std::string>{"1", "2", "3"}));
    EXPECT_EQ(pairsOf(ini, "s"), (Pairs{{"a", "0"}, {"k", "1"}, {"z", "9"}}));
}

TEST(Ini, EmptyValueCountsAsAbsent) {
    const Ini ini = parse("[s]\nk=\nb=\n");
    EXPECT_EQ(ini.getInt("s", "k", 7), 7);
    EXPECT_TRUE(ini.getBool("s", "b", true));
    EXPECT_EQ(stringOf(ini, "s", "k", "d"), "d");
    EXPECT_EQ(valuesOf(ini, "s", "k"), (std::vector<std::string>{""}));
}

TEST(Ini, EmptyFirstOfEqualKeysHidesTheOthers) {
    EXPECT_EQ(parse("[s]\nk=\nk=2\n").getInt("s", "k", 7), 7);
}

TEST(Ini, NumbersAreDecimal) {
    const Ini ini = parse("[s]\na=abc\nb= -12x\nc=010\nd=0x10\ne=99999999999\nf=-99999999999\n");
    EXPECT_EQ(ini.getInt("s", "a", 7), 0);
    EXPECT_EQ(ini.getInt("s", "b", 7), -12);
    EXPECT_EQ(ini.getInt("s", "c", 7), 10);
    EXPECT_EQ(ini.getInt("s", "d", 7), 0);
    EXPECT_EQ(ini.getInt("s", "e", 7), 2147483647);
    EXPECT_EQ(ini.getInt("s", "f", 7), -2147483647 - 1);
}

TEST(Ini, TruthIsExactlyOneAndZero) {
    const Ini ini = parse("[s]\na=1\nb=0\nc=true\nd=01\ne=2\n");
    EXPECT_TRUE(ini.getBool("s", "a", false));
    EXPECT_FALSE(ini.getBool("s", "b", true));
    for (const char* key : {"c", "d", "e", "none"}) {
        EXPECT_FALSE(ini.getBool("s", key, false)) << key;
        EXPECT_TRUE(ini.getBool("s", key, true)) << key;
    }
}

TEST(Ini, LengthsOfNamesDoNotCount) {
    const Ini ini = parse("[s]\nkey=v\n");
    std::string out;
    ini.getString("s", 0, "key", 1, "default", 3, out);
    EXPECT_EQ(out, "v");
    ini.getString("s", 1, "none", 4, "default", 3, out);
    EXPECT_EQ(out, "def");
    EXPECT_EQ(stringOf(ini, std::string("s\0x", 3), std::string("key\0y", 5), "d"), "v");
}

TEST(Ini, NearbyKeysAreNotTheKey) {
    const Ini ini = parse("[s]\nkey2=v\n");
    EXPECT_EQ(ini.getValue("s", "key"), "");
    EXPECT_EQ(ini.getValue("s", "key3"), "");
    EXPECT_EQ(ini.getValue("sx", "key2"), "");
}

TEST(Ini, PrefixStandsInFrontOfTheFoldedKey) {
    Ini ini = parse("[s]\nnode1.key=v\nkey=w\n");
    ini.keyPrefix = "node1.";
    EXPECT_EQ(ini.getValue("s", "KEY"), "v");
    EXPECT_EQ(valuesOf(ini, "s", "key"), (std::vector<std::string>{"w"}));
    ini.keyPrefix = "Node1.";
    EXPECT_EQ(ini.getValue("s", "key"), "");
}

TEST(Ini, LongNamesAreFoldedToo) {
    const std::string section(300, 'S');
    const std::string key(200, 'K');
    const Ini ini = parse("[" + section + "]\n" + key + "=v\n");
    EXPECT_EQ(ini.getValue(section.c_str(), key.c_str()), "v");
}

TEST(Ini, SectionIsAddedToWhatTheMapHolds) {
    const Ini ini = parse("[s]\na=1\nb=2\n");
    EXPECT_EQ(pairsOf(ini, "S", {{"a", "mine"}, {"z", "0"}}),
              (Pairs{{"a", "mine"}, {"b", "2"}, {"z", "0"}}));
    EXPECT_EQ(pairsOf(ini, "none", {{"a", "mine"}}), (Pairs{{"a", "mine"}}));
}

TEST(Ini, ValuesAreAppendedToWhatTheVectorHolds) {
    const Ini ini = parse("[s]\nk=1\na=2\nb=3\n");
    std::vector<std::string> values = {"mine"};
    ini.getValues("s", "k", values);
    EXPECT_EQ(values, (std::vector<std::string>{"mine", "1"}));
    EXPECT_GE(values.capacity(), 3u);
}

TEST(Ini, ObjectIsASnapshot) {
    const TempFolder folder;
    const Ini ini(folder.write("f.ini", "[s]\nk=1\n"));
    folder.write("f.ini", "[s]\nk=2\n");
    EXPECT_EQ(ini.getValue("s", "k"), "1");
}

TEST(Ini, SectionCanBeReadAfresh) {
    const TempFolder folder;
    Ini ini(folder.write("f.ini", "[s]\nk=1\n"));
    folder.write("f.ini", "[s]\nk=2\nl=3\n");
    Pairs pairs;
    ini.getSection("S", pairs, true);
    EXPECT_EQ(pairs, (Pairs{{"k", "2"}, {"l", "3"}}));
    EXPECT_EQ(pairsOf(ini, "s"), (Pairs{{"k", "1"}}));
}

TEST(Ini, BytesAboveAsciiAreFoldedByTheLocale) {
    const ScopedLocale scoped(LC_CTYPE);
    const char* const names[] = {"en_US.ISO-8859-1", "de_DE.ISO-8859-1", ".1252", "English.1252"};
    const bool found = std::any_of(std::begin(names), std::end(names), [](const char* name) {
        return std::setlocale(LC_CTYPE, name) != nullptr && std::tolower(0xC9) == 0xE9;
    });
    if (!found)
        GTEST_SKIP() << "this machine has no locale with letters above ASCII in single bytes";
    const Ini ini = parse("[S\xC9]\nK\xC9=v\n");
    EXPECT_EQ(ini.sections.count("s\xE9"), 1u);
    EXPECT_EQ(ini.getValue("S\xC9", "k\xE9"), "v");
    EXPECT_EQ(ini.getValue("s\xE9", "K\xC9"), "v");
    EXPECT_EQ(valuesOf(ini, "s\xE9", "K\xC9"), (std::vector<std::string>{"v"}));
}

TEST(Ini, HasNoVirtualDestructor) {
    static_assert(std::is_polymorphic_v<Ini>);
    static_assert(!std::has_virtual_destructor_v<Ini>);
    SUCCEED();
}

TEST(Ini, LowerCaseString) {
    EXPECT_EQ(libn::toLowerString("MiXed 1[]_\xC9"), "mixed 1[]_\xC9");
    EXPECT_EQ(libn::toLowerString(""), "");
}

// ---- fault ----

namespace {

int readsUntilFailure = 0;
constexpr std::size_t kStep = 8;

// Reads in steps of 8 bytes and fails at the given read.
std::ptrdiff_t failingRead(platform::FileHandle file, std::uint64_t offset, void* out,
                           std::size_t size);
const platform::Calls* realCalls = nullptr;

std::ptrdiff_t failingRead(platform::FileHandle file, std::uint64_t offset, void* out,
                           std::size_t size) {
    if (readsUntilFailure-- == 0)
        return -1;
    return realCalls->readAt(file, offset, out, std::min(size, kStep));
}

} // namespace

TEST(Ini, FailedReadTellsFileAndLineWithoutASeparator) {
    const TempFolder folder;
    const std::string name = folder.write("f.ini", "[sect]\nk=1\nlonger=2\n");
    const ScopedCalls scope;
    realCalls = &scope.saved();
    platform::calls.readAt = failingRead;
    const char* const lines[] = {"1", "2", "3"}; // after 0, 8 and 16 bytes
    for (int fails = 0; fails < 3; ++fails) {
        readsUntilFailure = fails;
        EXPECT_EQ(raisedText([&] { const Ini ini(name); }),
                  "Read ini file error. File" + name + " line:" + lines[fails]);
    }
    readsUntilFailure = -1;
    EXPECT_EQ(Ini(name).getValue("sect", "longer"), "2");
}

TEST(Ini, FailedReadIsARuntimeError) {
    const TempFolder folder;
    const std::string name = folder.write("f.ini", "[s]\nk=1\n");
    const ScopedCalls scope;
    platform::calls.readAt = [](platform::FileHandle, std::uint64_t, void*, std::size_t) {
        return std::ptrdiff_t{-1};
    };
    EXPECT_THROW(Ini{name}, std::runtime_error);
}

TEST(Ini, FileOfManyBlocksIsReadWhole) {
    std::string text = "[s]\n";
    for (int i = 0; i < 20000; ++i)
        text += "key" + std::to_string(i) + "=" + std::to_string(i) + "\n";
    const Ini ini = parse(text);
    EXPECT_EQ(ini.sections.at("s").size(), 20000u);
    for (int i = 0; i < 20000; i += 37)
        EXPECT_EQ(ini.getInt("s", ("key" + std::to_string(i)).c_str(), -1), i);
}

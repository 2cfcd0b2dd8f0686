#include "Classes/classFilter.h"

#include <gtest/gtest.h>

#include "support/tempFolder.h"

namespace {

using Codes = std::vector<std::string>;

ClassFilter filterOf(const char* text) {
    ClassFilter filter;
    filter.add(text);
    return filter;
}

} // namespace

TEST(ClassFilter, StartsByKeepingEverything) {
    const ClassFilter filter;
    EXPECT_TRUE(filter.include);
    EXPECT_TRUE(filter.keeps("A"));
    EXPECT_TRUE(filter.keeps(""));
}

TEST(ClassFilter, CodesAreSortedByBytesWithoutDuplicates) {
    EXPECT_EQ(filterOf("B,A,B,AB,\x80,a").codes, (Codes{"A", "AB", "B", "a", "\x80"}));
}

TEST(ClassFilter, EveryPieceIsACode) {
    EXPECT_EQ(filterOf("A,,B").codes, (Codes{"", "A", "B"}));
    EXPECT_EQ(filterOf(",").codes, (Codes{""}));
    EXPECT_EQ(filterOf(",A").codes, (Codes{"", "A"}));
    EXPECT_EQ(filterOf("A,").codes, (Codes{"A"})) << "an empty piece behind the last comma";
    EXPECT_EQ(filterOf("A,,").codes, (Codes{"", "A"}));
    EXPECT_EQ(filterOf("").codes, Codes{});
}

TEST(ClassFilter, NothingIsTrimmed) {
    EXPECT_EQ(filterOf("A, B").codes, (Codes{" B", "A"}));
}

TEST(ClassFilter, FirstMinusTurnsAndDropsWhatIsInFront) {
    const ClassFilter filter = filterOf("x,y-A,B-C");
    EXPECT_FALSE(filter.include);
    EXPECT_EQ(filter.codes, (Codes{"A", "B-C"}));
}

TEST(ClassFilter, NegativeFilterReadTwiceIncludes) {
    ClassFilter filter = filterOf("-A");
    EXPECT_FALSE(filter.include);
    filter.add("-B");
    EXPECT_TRUE(filter.include);
    EXPECT_EQ(filter.codes, (Codes{"A", "B"}));
}

TEST(ClassFilter, TableOfDirectionsAndCodes) {
    EXPECT_TRUE(filterOf("A").keeps("A"));
    EXPECT_FALSE(filterOf("A").keeps("B"));
    EXPECT_FALSE(filterOf("-A").keeps("A"));
    EXPECT_TRUE(filterOf("-A").keeps("B"));
    EXPECT_FALSE(filterOf("-").keeps("A"));
    EXPECT_FALSE(filterOf("-").keeps(""));
    EXPECT_TRUE(filterOf(",").keeps(""));
    EXPECT_FALSE(filterOf(",").keeps("A"));
}

TEST(ClassFilter, MatchesAreExactAndCaseSensitive) {
    EXPECT_FALSE(filterOf("ABC").keeps("abc"));
    EXPECT_FALSE(filterOf("ABC").keeps("AB"));
    EXPECT_FALSE(filterOf("AB").keeps("ABC"));
}

TEST(ClassFilter, TextComesFromItsKey) {
    const TempFolder folder;
    const std::string ini = folder.write("f.ini", "[S]\nClass_Filter = A,B \n[t]\nx=1\n");
    ClassFilter filter;
    filter.read(ini.c_str(), "s");
    EXPECT_EQ(filter.codes, (Codes{"A", "B"}));
    filter.codes.clear();
    filter.read(ini.c_str(), "t");
    filter.read(folder.name("none").c_str(), "s");
    EXPECT_EQ(filter.codes, Codes{});
    EXPECT_TRUE(filter.include);
}

// Bytes of flimit.vd and fclipos.vd, against the offsets of the formats.

#include "sample/futuresFiles.h"

#include <gtest/gtest.h>

#include "sample/bytes.h"
#include "support/cursor.h"

using toolTest::Cursor;

namespace {

struct Place {
    std::size_t offset;
    double value;
};

void expectFill(const std::string& bytes, std::size_t from, std::size_t count) {
    for (std::size_t at = from; at < from + count; ++at)
        EXPECT_EQ(bytes[at], sample::fillByte(at)) << at;
}

TEST(SampleFutures, LimitFieldsStandAtTheirOffsets) {
    const sample::FutLimit limit{"firm", "account", 40000,       1.5,  2.5,  3.5,  4.5,  5.5,
                                 6.5,    7.5,       8.5,         9.5,  10.5, 11.5, 12.5, 13.5,
                                 "curr", 14.5,      4000000000u, 15.5, 16.5, 17.5};
    const std::string bytes = sample::encodeFutLimits({limit});
    ASSERT_EQ(bytes.size(), 216u);
    EXPECT_EQ(Cursor(bytes, 8).text(13), "firm");
    EXPECT_EQ(Cursor(bytes, 21).text(13), "account");
    EXPECT_EQ(Cursor(bytes, 34).number<std::uint16_t>(), 40000);
    EXPECT_EQ(Cursor(bytes, 152).text(13), "curr");
    EXPECT_EQ(Cursor(bytes, 180).number<std::uint32_t>(), 4000000000u);
    const Place places[] = {{40, 1.5},   {48, 2.5},   {56, 3.5},   {64, 4.5},   {72, 5.5},
                            {80, 6.5},   {88, 7.5},   {96, 8.5},   {112, 9.5},  {120, 10.5},
                            {128, 11.5}, {136, 12.5}, {144, 13.5}, {168, 14.5}, {184, 15.5},
                            {192, 16.5}, {200, 17.5}};
    for (const Place& place : places)
        EXPECT_EQ(Cursor(bytes, place.offset).number<double>(), place.value) << place.offset;
    expectFill(bytes, 0, 8);
    expectFill(bytes, 36, 4);
    expectFill(bytes, 104, 8);
    expectFill(bytes, 165, 3);
    expectFill(bytes, 176, 4);
    expectFill(bytes, 208, 8);
}

TEST(SampleFutures, PositionFieldsStandAtTheirOffsets) {
    const sample::FutPosition position{"firm", "account", "code", -1,  2,   -3,  4,   -5,  6,
                                       -7,     8,         1.5,    2.5, 3.5, 4.5, 5.5, 6.5, 7.5};
    const std::string bytes = sample::encodeFutPositions({position});
    ASSERT_EQ(bytes.size(), 168u);
    EXPECT_EQ(Cursor(bytes, 8).text(13), "firm");
    EXPECT_EQ(Cursor(bytes, 21).text(13), "account");
    EXPECT_EQ(Cursor(bytes, 34).text(13), "code");
    for (int i = 0; i < 8; ++i)
        EXPECT_EQ(Cursor(bytes, 52 + 4 * i).number<std::int32_t>(), i % 2 ? i + 1 : -i - 1) << i;
    const Place places[] = {{96, 1.5},  {104, 2.5}, {120, 3.5}, {128, 4.5},
                            {136, 5.5}, {144, 6.5}, {160, 7.5}};
    for (const Place& place : places)
        EXPECT_EQ(Cursor(bytes, place.offset).number<double>(), place.value) << place.offset;
    expectFill(bytes, 0, 8);
    expectFill(bytes, 47, 5);
    expectFill(bytes, 84, 12);
    expectFill(bytes, 112, 8);
    expectFill(bytes, 152, 8);
}

TEST(SampleFutures, RecordsFollowOneAnother) {
    EXPECT_EQ(sample::encodeFutLimits({}), "");
    EXPECT_EQ(sample::encodeFutPositions({}), "");
    std::vector<sample::FutLimit> limits(2);
    limits[1].firmid = "second";
    EXPECT_EQ(Cursor(sample::encodeFutLimits(limits), 216 + 8).text(13), "second");
    std::vector<sample::FutPosition> positions(3);
    positions[2].seccode = "third";
    const std::string bytes = sample::encodeFutPositions(positions);
    EXPECT_EQ(bytes.size(), 3 * 168u);
    EXPECT_EQ(Cursor(bytes, 2 * 168 + 34).text(13), "third");
}

TEST(SampleFutures, LongTextFillsItsFieldWithoutTerminator) {
    sample::FutPosition position;
    position.seccode = "ABCDEFGHIJKLMN";
    EXPECT_EQ(sample::encodeFutPositions({position}).substr(34, 13), "ABCDEFGHIJKLM");
}

} // namespace

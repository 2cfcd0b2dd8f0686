// Bytes of alert.vd as the sample writer makes them, against the numbers of the format.

#include "sample/alertFile.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "sample/bytes.h"
#include "support/cursor.h"

using toolTest::Cursor;

namespace {

std::uint64_t wordAt(const std::string& bytes, std::uint64_t word) {
    return Cursor(bytes, word * 8).number<std::uint64_t>();
}

sample::Alert fullAlert() {
    sample::Alert made;
    made.word0 = 1;
    made.word1 = 2;
    made.word2 = 3;
    made.send_type = 4;
    made.firm_id = "FIRM";
    made.type = 5;
    made.perms = 6;
    made.perms_ex = 7;
    made.perms_ex2 = 8;
    made.flags = 0x900000001;
    made.client_code = "CLIENT";
    made.data_id = std::string("\0id", 3);
    made.short0 = 10;
    made.body = "body";
    made.body_size = 11;
    made.word4 = 12;
    made.word3 = 13;
    made.word6 = 14;
    made.word5 = 15;
    made.quad0 = 16;
    made.class_codes = {"FIRST", "SECOND"};
    made.user_ids = {17, 18, 19};
    made.quad1 = 20;
    return made;
}

TEST(SampleAlertFile, BodyOfAnEmptyAlert) {
    sample::AlertBodyLayout layout;
    const std::string bytes = sample::encodeAlert({}, &layout);
    EXPECT_EQ(bytes, std::string(137, '\0'));
    EXPECT_EQ(layout.dataId, 63u);
    EXPECT_EQ(layout.body, 73u);
    EXPECT_EQ(layout.bodySize, 81u);
    EXPECT_EQ(layout.classCodes, 113u);
    EXPECT_EQ(layout.userIds, 121u);
    EXPECT_EQ(layout.size, 137u);
}

TEST(SampleAlertFile, BodyFieldsInStoredOrder) {
    const std::string bytes = sample::encodeAlert(fullAlert());
    Cursor at(bytes);
    for (const std::uint32_t word : {1u, 2u, 3u})
        EXPECT_EQ(at.number<std::uint32_t>(), word);
    EXPECT_EQ(at.number<std::uint8_t>(), 4u);
    EXPECT_EQ(at.text(13), "FIRM");
    EXPECT_EQ(at.at(), 26u);
    for (const std::uint32_t word : {5u, 6u, 7u, 8u})
        EXPECT_EQ(at.number<std::uint32_t>(), word);
    EXPECT_EQ(at.number<std::uint64_t>(), 0x900000001u);
    EXPECT_EQ(at.at(), 50u);
    EXPECT_EQ(at.text(13), "CLIENT");
    EXPECT_EQ(at.number<std::uint64_t>(), 3u);
    EXPECT_EQ(at.bytes(3), std::string("\0id", 3));
    EXPECT_EQ(at.number<std::uint16_t>(), 10u);
    EXPECT_EQ(at.number<std::uint64_t>(), 4u);
    EXPECT_EQ(at.bytes(4), "body");
    EXPECT_EQ(at.number<std::uint64_t>(), 11u);
    for (const std::uint32_t word : {12u, 13u, 14u, 15u})
        EXPECT_EQ(at.number<std::uint32_t>(), word);
    EXPECT_EQ(at.number<std::uint64_t>(), 16u);
    EXPECT_EQ(at.number<std::uint64_t>(), 2u);
    EXPECT_EQ(at.text(13), "FIRST");
    EXPECT_EQ(at.text(13), "SECOND");
    EXPECT_EQ(at.number<std::uint64_t>(), 3u);
    for (const std::uint32_t id : {17u, 18u, 19u})
        EXPECT_EQ(at.number<std::uint32_t>(), id);
    EXPECT_EQ(at.number<std::uint64_t>(), 20u);
    EXPECT_TRUE(at.atEnd());
}

TEST(SampleAlertFile, BodySizeIsTheLengthUnlessGiven) {
    sample::Alert alert;
    alert.body = "twelve bytes";
    sample::AlertBodyLayout layout;
    std::string bytes = sample::encodeAlert(alert, &layout);
    EXPECT_EQ(Cursor(bytes, layout.bodySize).number<std::uint64_t>(), 12u);
    alert.body_size = 0;
    bytes = sample::encodeAlert(alert);
    EXPECT_EQ(Cursor(bytes, layout.bodySize).number<std::uint64_t>(), 0u);
    EXPECT_EQ(Cursor(bytes, layout.body).number<std::uint64_t>(), 12u);
}

TEST(SampleAlertFile, StoredLengthsReplaceWhatWouldStandThere) {
    sample::Alert alert = fullAlert();
    sample::AlertBodyLayout layout;
    const std::string honest = sample::encodeAlert(alert, &layout);
    alert.storedDataIdLength = 1;
    alert.storedBodyLength = 2;
    alert.storedClassCodes = UINT64_MAX;
    alert.storedUserIds = 1ull << 40;
    const std::string bytes = sample::encodeAlert(alert);
    EXPECT_EQ(bytes.size(), honest.size());
    EXPECT_EQ(Cursor(bytes, layout.dataId).number<std::uint64_t>(), 1u);
    EXPECT_EQ(Cursor(bytes, layout.body).number<std::uint64_t>(), 2u);
    EXPECT_EQ(Cursor(bytes, layout.classCodes).number<std::uint64_t>(), UINT64_MAX);
    EXPECT_EQ(Cursor(bytes, layout.userIds).number<std::uint64_t>(), 1ull << 40);
}

TEST(SampleAlertFile, EmptyFileIsTheHeaderAlone) {
    sample::AlertFileLayout layout;
    const std::string bytes = sample::encodeAlertFile({}, {}, &layout);
    ASSERT_EQ(bytes.size(), 65'536u);
    EXPECT_EQ(wordAt(bytes, 0), 888888888u);
    EXPECT_EQ(wordAt(bytes, 1), 888888888u);
    EXPECT_EQ(bytes.find_first_not_of('\0', 16), std::string::npos);
    EXPECT_EQ(layout.root, 0u);
    EXPECT_EQ(layout.count, 0u);
    EXPECT_EQ(layout.fileSize, bytes.size());
}

TEST(SampleAlertFile, TablesLeadToHeadsAndBodies) {
    sample::Alert second = fullAlert();
    second.word1 = 77;
    sample::AlertFileLayout layout;
    const std::string bytes = sample::encodeAlertFile({fullAlert(), second}, {}, &layout);
    EXPECT_EQ(wordAt(bytes, 3), 100u);
    EXPECT_EQ(wordAt(bytes, 4), 2u);
    EXPECT_EQ(wordAt(bytes, 100), 100u + 16'384u);
    EXPECT_EQ(layout.root, 100u);
    EXPECT_EQ(layout.tables.at(0), 16'484u);
    ASSERT_EQ(layout.alerts.size(), 2u);
    EXPECT_EQ(layout.alerts[0].slot, 16'484u);
    EXPECT_EQ(layout.alerts[1].slot, 16'485u);
    EXPECT_EQ(layout.alerts[0].head, 16'484u + 16'384u);
    EXPECT_EQ(layout.alerts[0].body, layout.alerts[0].head + 3);
    const sample::AlertPlace& place = layout.alerts[1];
    EXPECT_EQ(wordAt(bytes, place.slot), place.head);
    EXPECT_EQ(wordAt(bytes, place.head), place.body);
    EXPECT_EQ(Cursor(bytes, (place.head + 2) * 8).number<std::uint32_t>(), 77u);
    EXPECT_EQ(Cursor(bytes, place.body * 8).bytes(place.bodySize), sample::encodeAlert(second));
    EXPECT_EQ(place.head, layout.alerts[0].body + (layout.alerts[0].bodySize + 7) / 8);
    EXPECT_EQ(wordAt(bytes, 2), place.body + (place.bodySize + 7) / 8);
    EXPECT_EQ(wordAt(bytes, 2), layout.nextFree);
    EXPECT_EQ(wordAt(bytes, place.slot + 1), 0u);
}

TEST(SampleAlertFile, UnusedBytesOfAHeadHoldThePattern) {
    sample::AlertFileLayout layout;
    const std::string bytes = sample::encodeAlertFile({fullAlert()}, {.headField = 5}, &layout);
    const std::size_t head = layout.alerts[0].head * 8;
    EXPECT_EQ(bytes[head + 8], sample::fillByte(8));
    EXPECT_EQ(bytes[head + 15], sample::fillByte(15));
    EXPECT_EQ(Cursor(bytes, head + 16).number<std::uint32_t>(), 5u);
    EXPECT_EQ(bytes[head + 20], sample::fillByte(20));
    EXPECT_EQ(bytes[head + 23], sample::fillByte(23));
}

TEST(SampleAlertFile, NumbersChooseSlotsAndTables) {
    sample::AlertFileLayout layout;
    const std::string bytes =
        sample::encodeAlertFile({{}, {}, {}}, {.numbers = {1, 16'384, 268'435'455}}, &layout);
    EXPECT_EQ(wordAt(bytes, 4), 268'435'456u);
    EXPECT_EQ(layout.tables.size(), 3u);
    EXPECT_EQ(wordAt(bytes, layout.root), layout.tables.at(0));
    EXPECT_EQ(wordAt(bytes, layout.root + 1), layout.tables.at(1));
    EXPECT_EQ(wordAt(bytes, layout.root + 16'383), layout.tables.at(16'383));
    EXPECT_EQ(wordAt(bytes, layout.tables.at(0)), 0u);
    EXPECT_EQ(layout.alerts[0].slot, layout.tables.at(0) + 1);
    EXPECT_EQ(layout.alerts[1].slot, layout.tables.at(1));
    EXPECT_EQ(layout.alerts[2].slot, layout.tables.at(16'383) + 16'383);
    EXPECT_EQ(wordAt(bytes, layout.alerts[2].slot), layout.alerts[2].head);
}

TEST(SampleAlertFile, NumbersThatDoNotFitAreRefused) {
    EXPECT_THROW(sample::encodeAlertFile({{}}, {.numbers = {268'435'456}}), std::length_error);
    EXPECT_THROW(sample::encodeAlertFile({{}, {}}, {.numbers = {3, 3}}), std::invalid_argument);
    EXPECT_THROW(sample::encodeAlertFile({{}}, {.numbers = {1, 2}}), std::invalid_argument);
}

TEST(SampleAlertFile, GapsStandBetweenBlocks) {
    sample::AlertFileLayout layout;
    const std::string bytes = sample::encodeAlertFile({fullAlert()}, {.gapWords = 7}, &layout);
    EXPECT_EQ(layout.root, 107u);
    EXPECT_EQ(layout.tables.at(0), 107u + 16'384u + 7u);
    EXPECT_EQ(layout.alerts[0].head, layout.tables.at(0) + 16'384u + 7u);
    EXPECT_EQ(layout.alerts[0].body, layout.alerts[0].head + 3u + 7u);
    EXPECT_EQ(wordAt(bytes, 3), 107u);
    for (std::size_t at = 800; at < 107 * 8; ++at)
        ASSERT_EQ(bytes[at], sample::fillByte(at - 800)) << at;
}

TEST(SampleAlertFile, OptionsReplaceWordsAndSize) {
    sample::AlertFileLayout layout;
    const std::string bytes = sample::encodeAlertFile({{}},
                                                      {.magic0 = 1,
                                                       .magic1 = 2,
                                                       .storedNextFree = 3,
                                                       .storedRoot = 4,
                                                       .storedCount = 5,
                                                       .damage = {{6, 7}, {100, 8}},
                                                       .fileSize = 300'000},
                                                      &layout);
    ASSERT_EQ(bytes.size(), 300'000u);
    const std::uint64_t words[] = {1, 2, 3, 4, 5, 0, 7};
    for (std::uint64_t word = 0; word < 7; ++word)
        EXPECT_EQ(wordAt(bytes, word), words[word]) << word;
    EXPECT_EQ(wordAt(bytes, 100), 8u);
    EXPECT_EQ(layout.root, 100u);
    EXPECT_THROW(sample::encodeAlertFile({}, {.damage = {{8192, 1}}}), std::out_of_range);
}

// Who reads the last body fetches 480 bytes from its start, a multiple of 65,536 from the start of
// the file, and shall find them all.
TEST(SampleAlertFile, UsualSizeLeavesRoomForTheLastFetch) {
    for (std::size_t length = 0; length < 70'000; length += 211) {
        sample::Alert alert;
        alert.body.assign(length, 'x');
        sample::AlertFileLayout layout;
        const std::string bytes = sample::encodeAlertFile({alert}, {}, &layout);
        EXPECT_EQ(bytes.size() % 65'536, 0u);
        EXPECT_GE(bytes.size(), layout.nextFree * 8 + 480);
        EXPECT_LT(bytes.size(), layout.nextFree * 8 + 480 + 65'536);
    }
}

} // namespace

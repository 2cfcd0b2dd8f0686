// Bytes of data.vd as the sample writer makes them, against the numbers of the format.

#include "sample/dataFile.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "sample/bytes.h"
#include "support/cursor.h"
#include "support/tempFolder.h"

using toolTest::Cursor;

namespace {

template <typename Number>
Number numberAt(const std::string& bytes, std::uint64_t offset) {
    return Cursor(bytes, offset).number<Number>();
}

// Two slots a page, five pages, 200 bytes of records a page.
sample::DataFile smallFile() {
    sample::DataFile file;
    file.header.maxSecs = 8;
    file.header.dataPageSize = 2 * 1080 + 5;
    file.header.eventPageSize = 200;
    return file;
}

sample::Record recordOf(std::int32_t number) {
    sample::Record made;
    made.dataField1 = number;
    return made;
}

void expectBlock(const std::string& bytes, std::uint64_t point, std::uint32_t capacity,
                 std::uint32_t used, std::uint32_t elements) {
    EXPECT_EQ(numberAt<std::uint16_t>(bytes, point), 0xFFED) << point;
    EXPECT_EQ(bytes[point + 2], sample::fillByte(2));
    EXPECT_EQ(numberAt<std::uint32_t>(bytes, point + 4), capacity) << point;
    EXPECT_EQ(numberAt<std::uint32_t>(bytes, point + 8), used) << point;
    EXPECT_EQ(numberAt<std::uint64_t>(bytes, point + 12), point);
    EXPECT_EQ(numberAt<std::uint32_t>(bytes, point + 20), elements) << point;
}

TEST(SampleDataFile, HeaderOfTheUsualSizes) {
    const std::string bytes = sample::encodeDataHeader({});
    ASSERT_EQ(bytes.size(), 104u);
    EXPECT_EQ(bytes.substr(0, 37), std::string("0B6C6676-8C6E-4807-B8CA-60367206277A\0", 37));
    EXPECT_EQ(numberAt<std::int32_t>(bytes, 44), 0);
    EXPECT_EQ(numberAt<std::uint32_t>(bytes, 48), 50'000u);
    EXPECT_EQ(numberAt<std::uint32_t>(bytes, 52), 275u);
    EXPECT_EQ(numberAt<std::uint32_t>(bytes, 56), 196'608u);
    EXPECT_EQ(numberAt<std::uint64_t>(bytes, 64), 132u);
    EXPECT_EQ(numberAt<std::uint32_t>(bytes, 72), 81'920u);
    EXPECT_EQ(numberAt<std::uint64_t>(bytes, 80), 54'075'032u);
    EXPECT_EQ(numberAt<std::uint64_t>(bytes, 88), 54'075'032u);
    EXPECT_EQ(numberAt<std::uint32_t>(bytes, 96), 0u);
    EXPECT_EQ(numberAt<std::uint32_t>(bytes, 100), 1u);
    for (const std::size_t free : {37u, 40u, 43u, 60u, 63u, 76u, 79u})
        EXPECT_EQ(bytes[free], '\0') << free;
}

TEST(SampleDataFile, HeaderValuesCanBeGiven) {
    sample::DataFile file;
    file.header.signature = "0B6C6676-other";
    file.header.elements = -3;
    file.header.closeStamp = sample::kClosedStamp;
    file.header.dataPageCount = 1;
    file.header.firstEventPage = 1ull << 41;
    file.header.currentEventPage = 77;
    file.header.eventPageCount = 9;
    const std::string bytes = sample::encodeDataHeader(file);
    EXPECT_EQ(Cursor(bytes).text(44), "0B6C6676-other");
    EXPECT_EQ(numberAt<std::int32_t>(bytes, 44), -3);
    EXPECT_EQ(numberAt<std::uint32_t>(bytes, 52), 1u);
    EXPECT_EQ(numberAt<std::uint64_t>(bytes, 80), 1ull << 41);
    EXPECT_EQ(numberAt<std::uint64_t>(bytes, 88), 77u);
    EXPECT_EQ(numberAt<std::uint32_t>(bytes, 96), 0xDDFDDFDDu);
    EXPECT_EQ(numberAt<std::uint32_t>(bytes, 100), 9u);
}

TEST(SampleDataFile, SlotFieldsStandAtTheirOffsets) {
    sample::Slot slot;
    slot.lock = 1;
    slot.filled = 2;
    slot.class_id = -7;
    slot.setDouble(0, 1.5);
    slot.setLong(127, -2);
    const std::string bytes = sample::encodeSlot(slot);
    ASSERT_EQ(bytes.size(), 1080u);
    EXPECT_EQ(numberAt<std::uint32_t>(bytes, 0), 1u);
    EXPECT_EQ(numberAt<std::uint16_t>(bytes, 8), 2u);
    EXPECT_EQ(numberAt<std::int32_t>(bytes, 28), -7);
    EXPECT_EQ(bytes.substr(36, 16), std::string("\1\0\0\0\0\0\0\0\0\0\0\0\0\0\0\x80", 16));
    EXPECT_EQ(numberAt<double>(bytes, 56), 1.5);
    EXPECT_EQ(numberAt<std::int32_t>(bytes, 56 + 127 * 8), -2);
    EXPECT_EQ(numberAt<std::int32_t>(bytes, 56 + 127 * 8 + 4), 0);
    for (const std::size_t free : {4u, 7u, 10u, 27u, 32u, 35u, 52u, 55u})
        EXPECT_EQ(bytes[free], sample::fillByte(free)) << free;
    EXPECT_EQ(slot.doubleAt(0), 1.5);
    EXPECT_EQ(slot.longAt(127), -2);
    EXPECT_TRUE(slot.has(127));
    EXPECT_FALSE(slot.has(126));
}

TEST(SampleDataFile, RecordFieldsStandAtTheirOffsets) {
    sample::Record record;
    record.dataField2 = 2;
    record.dataField1 = -1;
    record.dataField3 = 3;
    record.sec_id = 4;
    record.class_id = -5;
    record.mask.assign(16, 0xAA);
    record.longs = {6, -7};
    record.doubles = {8.5, -9.5, 10.5};
    const std::string bytes = sample::encodeRecord(record);
    ASSERT_EQ(bytes.size(), 80u);
    EXPECT_EQ(numberAt<std::int32_t>(bytes, 4), 2);
    EXPECT_EQ(numberAt<std::int32_t>(bytes, 8), -1);
    EXPECT_EQ(numberAt<std::int32_t>(bytes, 12), 3);
    EXPECT_EQ(numberAt<std::uint8_t>(bytes, 16), 16u);
    EXPECT_EQ(numberAt<std::uint8_t>(bytes, 17), 2u);
    EXPECT_EQ(numberAt<std::uint8_t>(bytes, 18), 3u);
    EXPECT_EQ(numberAt<std::uint32_t>(bytes, 20), 4u);
    EXPECT_EQ(numberAt<std::int32_t>(bytes, 24), -5);
    EXPECT_EQ(bytes.substr(32, 16), std::string(16, '\xAA'));
    EXPECT_EQ(numberAt<std::int32_t>(bytes, 48), 6);
    EXPECT_EQ(numberAt<std::int32_t>(bytes, 52), -7);
    EXPECT_EQ(numberAt<double>(bytes, 56), 8.5);
    EXPECT_EQ(numberAt<double>(bytes, 72), 10.5);
    for (const std::size_t free : {0u, 3u, 19u, 28u, 31u})
        EXPECT_EQ(bytes[free], sample::fillByte(free)) << free;
}

TEST(SampleDataFile, StoredCountsReplaceThoseOfTheRecord) {
    sample::Record record;
    record.longs = {1};
    record.storedMaskSize = 17;
    record.storedLongCount = 255;
    record.storedDoubleCount = 129;
    const std::string bytes = sample::encodeRecord(record);
    EXPECT_EQ(bytes.size(), 36u);
    EXPECT_EQ(numberAt<std::uint8_t>(bytes, 16), 17u);
    EXPECT_EQ(numberAt<std::uint8_t>(bytes, 17), 255u);
    EXPECT_EQ(numberAt<std::uint8_t>(bytes, 18), 129u);
}

TEST(SampleDataFile, EmptyFileHasItsPagesAndAZeroBlock) {
    sample::DataFileLayout layout;
    const std::string bytes = sample::encodeDataFile(smallFile(), &layout);
    expectBlock(bytes, 0, 104, 0, 0);
    EXPECT_EQ(bytes.substr(24, 36), sample::kDataSignature);
    EXPECT_EQ(numberAt<std::uint32_t>(bytes, 24 + 52), 5u); // (2 + 8) / 2
    ASSERT_EQ(layout.dataPages.size(), 5u);
    for (std::size_t i = 0; i < 5; ++i) {
        EXPECT_EQ(layout.dataPages[i], 132 + i * (2165 + 28));
        expectBlock(bytes, layout.dataPages[i], 2165, 0, 0);
    }
    ASSERT_EQ(layout.eventPages.size(), 1u);
    EXPECT_EQ(layout.eventPages[0].point, 132u + 5 * 2193u);
    expectBlock(bytes, layout.eventPages[0].point, 200, 0, 0);
    EXPECT_EQ(layout.endOfPages, layout.eventPages[0].point + 228);
    ASSERT_EQ(bytes.size(), layout.endOfPages + 228);
    EXPECT_EQ(bytes.find_first_not_of('\0', layout.endOfPages), std::string::npos);
    EXPECT_EQ(layout.fileSize, bytes.size());
}

TEST(SampleDataFile, SlotsStandInTheirPages) {
    sample::DataFile file = smallFile();
    file.slots[0].class_id = 10;
    file.slots[3].class_id = 13;
    file.slots[9].class_id = 19;
    const std::string bytes = sample::encodeDataFile(file);
    EXPECT_EQ(numberAt<std::int32_t>(bytes, 132 + 24 + 28), 10);
    EXPECT_EQ(numberAt<std::int32_t>(bytes, 132 + 2193 + 24 + 1080 + 28), 13);
    EXPECT_EQ(numberAt<std::int32_t>(bytes, 132 + 4 * 2193 + 24 + 1080 + 28), 19);
    EXPECT_EQ(file.header.slotOffset(3), 132u + 2193u + 24u + 1080u);
    EXPECT_EQ(bytes.substr(132 + 24 + 1080, 1085), std::string(1085, '\0'));
    file.slots[10];
    EXPECT_THROW(sample::encodeDataFile(file), std::out_of_range);
}

TEST(SampleDataFile, SecurityNumber182OpensTheSecondPage) {
    const sample::DataHeader usual;
    EXPECT_EQ(usual.slotsPerPage(), 182u);
    EXPECT_EQ(usual.countDataPages(), 275u);
    EXPECT_EQ(usual.slotOffset(181), 132u + 24 + 181 * 1080u);
    EXPECT_EQ(usual.slotOffset(182), 132u + 196'636u + 24);
    EXPECT_EQ(usual.firstEventPoint(), 54'075'032u);
    EXPECT_EQ(usual.eventPoint(2), 54'075'032u + 2 * 81'948u);
}

TEST(SampleDataFile, RecordsFollowOneAnotherInTheirPage) {
    sample::DataFile file = smallFile();
    sample::Record second = recordOf(2);
    second.doubles = {1.0};
    file.eventPages = {{{recordOf(1), second}, {}, {}}, {{recordOf(3)}, 99, 7}};
    sample::DataFileLayout layout;
    const std::string bytes = sample::encodeDataFile(file, &layout);
    ASSERT_EQ(layout.eventPages.size(), 2u);
    const std::uint64_t first = layout.eventPages[0].point;
    expectBlock(bytes, first, 200, 72, 2);
    EXPECT_EQ(layout.eventPages[0].records, (std::vector<std::uint64_t>{first + 24, first + 56}));
    EXPECT_EQ(numberAt<std::int32_t>(bytes, first + 24 + 8), 1);
    EXPECT_EQ(numberAt<std::int32_t>(bytes, first + 56 + 8), 2);
    EXPECT_EQ(layout.eventPages[1].point, first + 228);
    expectBlock(bytes, first + 228, 200, 99, 7);
    EXPECT_EQ(numberAt<std::uint32_t>(bytes, 24 + 100), 2u);
    EXPECT_EQ(numberAt<std::uint64_t>(bytes, 24 + 88), first + 228);
    EXPECT_EQ(bytes.size(), first + 3 * 228);
}

TEST(SampleDataFile, PackingLeavesTheTailFree) {
    const std::vector<sample::Record> records(12, recordOf(1)); // 32 bytes each
    auto pages = sample::packRecords(records, 200);
    ASSERT_EQ(pages.size(), 3u); // 176 / 32 = 5
    EXPECT_EQ(pages[0].records.size(), 5u);
    EXPECT_EQ(pages[2].records.size(), 2u);
    pages = sample::packRecords(records, 200, false);
    ASSERT_EQ(pages.size(), 2u); // 200 / 32 = 6
    EXPECT_EQ(pages[0].records.size(), 6u);
    EXPECT_TRUE(sample::packRecords({}, 200).empty());
    sample::Record large = recordOf(1);
    large.longs.resize(37);
    EXPECT_EQ(sample::packRecords({large}, 204).size(), 1u);
    EXPECT_THROW(sample::packRecords({large}, 203), std::length_error);
}

TEST(SampleDataFile, PagesThatAreTooFullAreRefused) {
    sample::DataFile file = smallFile();
    file.eventPages.resize(1);
    file.eventPages[0].records.assign(7, recordOf(1));
    EXPECT_THROW(sample::encodeDataFile(file), std::length_error);
}

TEST(SampleDataFile, ZeroBlockSizeAndDamageCanBeChosen) {
    sample::DataFile file = smallFile();
    const std::size_t whole = sample::encodeDataFile(file).size();
    file.zeroBlockBehind = false;
    EXPECT_EQ(sample::encodeDataFile(file).size(), whole - 228);
    file.damage = {{24, "X"}, {whole - 229, "Y"}};
    std::string bytes = sample::encodeDataFile(file);
    EXPECT_EQ(bytes[24], 'X');
    EXPECT_EQ(bytes[25], 'B');
    EXPECT_EQ(bytes.back(), 'Y');
    file.damage = {{whole - 228, "Z"}};
    EXPECT_THROW(sample::encodeDataFile(file), std::out_of_range);
    file.damage.clear();
    file.fileSize = 200;
    bytes = sample::encodeDataFile(file);
    ASSERT_EQ(bytes.size(), 200u);
    expectBlock(bytes, 132, 2165, 0, 0);
}

TEST(SampleDataFile, PageWithoutRoomForASlotIsRefused) {
    sample::DataHeader header;
    header.dataPageSize = 1079;
    EXPECT_THROW((void)header.slotsPerPage(), std::invalid_argument);
}

TEST(SampleDataFile, WrittenFileHasTheSameBytes) {
    sample::DataFile file = smallFile();
    file.slots[8].setLong(5, 6);
    file.eventPages = sample::packRecords(std::vector<sample::Record>(9, recordOf(4)), 200);
    file.damage = {{40, "damaged"}};
    const toolTest::TempFolder folder;
    sample::DataFileLayout layout;
    const std::uint64_t size = sample::writeDataFile(folder.path() / "data.vd", file, &layout);
    const std::string bytes = toolTest::readFile(folder.path() / "data.vd");
    EXPECT_EQ(bytes.size(), size);
    EXPECT_EQ(layout.fileSize, size);
    EXPECT_EQ(bytes, sample::encodeDataFile(file));
}

} // namespace

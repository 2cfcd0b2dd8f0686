// Bytes of class.vd as the sample writer makes them, against the numbers of the format.

#include "sample/classFile.h"

#include <gtest/gtest.h>

#include "sample/bytes.h"
#include "support/cursor.h"

using toolTest::Cursor;

namespace {

sample::ClassRecord classOf(std::int32_t id, const char* code) {
    sample::ClassRecord made;
    made.classId = id;
    made.classCode = code;
    made.fh = "text fh";
    made.fl = "text fl";
    made.ch = "text ch";
    made.cl = "text cl";
    return made;
}

template <typename Number>
Number numberAt(const std::string& bytes, std::size_t offset) {
    return Cursor(bytes, offset).number<Number>();
}

TEST(SampleClassFile, EmptyFileIsTheHeadAlone) {
    const std::string bytes = sample::encodeClassFile({});
    ASSERT_EQ(bytes.size(), 145u);
    EXPECT_EQ(bytes.substr(0, 8), std::string("CLASSES\0", 8));
    EXPECT_EQ(numberAt<std::uint32_t>(bytes, 13), 15u);
    EXPECT_EQ(numberAt<std::uint32_t>(bytes, 17), 0u);
}

TEST(SampleClassFile, UnusedBytesHoldThePattern) {
    const std::string bytes = sample::encodeClassFile({classOf(7, "A")});
    ASSERT_EQ(bytes.size(), 145u + 3464u);
    const std::size_t free[] = {8,          12,         21,         144,        145 + 2,
                                145 + 21,   145 + 2327, 145 + 3356, 145 + 3387, 145 + 3396,
                                145 + 3439, 145 + 3448, 145 + 3463};
    for (const std::size_t at : free)
        EXPECT_GE(static_cast<unsigned char>(bytes[at]), 0xC0) << at;
    EXPECT_EQ(bytes[145 + 2], sample::fillByte(2));
    EXPECT_EQ(bytes[145 + 3463], sample::fillByte(3463));
    EXPECT_NE(sample::fillByte(10), sample::fillByte(11));
}

TEST(SampleClassFile, RecordFieldsStandAtTheirOffsets) {
    const std::string bytes = sample::encodeClassFile({classOf(-5, "FIRST"), classOf(9, "SECOND")});
    ASSERT_EQ(bytes.size(), 145u + 2 * 3464u);
    EXPECT_EQ(numberAt<std::uint32_t>(bytes, 17), 2u);
    const std::size_t second = 145 + 3464;
    EXPECT_EQ(numberAt<std::uint16_t>(bytes, second), 8261u);
    EXPECT_EQ(numberAt<std::int32_t>(bytes, 145 + 4), -5);
    EXPECT_EQ(numberAt<std::int32_t>(bytes, second + 4), 9);
    EXPECT_EQ(Cursor(bytes, second + 8).text(13), "SECOND");
    EXPECT_EQ(Cursor(bytes, second + 2328).text(257), "text fh");
    EXPECT_EQ(Cursor(bytes, second + 2585).text(257), "text fl");
    EXPECT_EQ(Cursor(bytes, second + 2842).text(257), "text ch");
    EXPECT_EQ(Cursor(bytes, second + 3099).text(257), "text cl");
    EXPECT_EQ(numberAt<std::int32_t>(bytes, second + 3388), 0);
    EXPECT_EQ(numberAt<std::int32_t>(bytes, second + 3392), 0);
    EXPECT_EQ(numberAt<std::uint32_t>(bytes, second + 3440), 0xFFFFFFFFu);
    EXPECT_EQ(numberAt<std::uint32_t>(bytes, second + 3444), 0xFFFFFFFFu);
}

TEST(SampleClassFile, BlocksStandWhereTheRecordsSay) {
    sample::ClassRecord full = classOf(1, "FULL");
    full.params.resize(2);
    full.params[1].par_id = 77;
    full.securities.resize(3);
    full.securities[2].sec_id = 4242;
    sample::ClassFileLayout layout;
    const std::string bytes = sample::encodeClassFile({classOf(2, "BARE"), full}, &layout);

    ASSERT_EQ(layout.classes.size(), 2u);
    EXPECT_EQ(layout.fileSize, bytes.size());
    EXPECT_EQ(layout.classes[0].securitiesBlock, sample::kNoBlock);
    EXPECT_EQ(layout.classes[0].paramsBlock, sample::kNoBlock);
    const sample::ClassRecordLayout& places = layout.classes[1];
    EXPECT_EQ(places.record, 145u + 3464u);
    EXPECT_EQ(numberAt<std::int32_t>(bytes, places.record + 3388), 2);
    EXPECT_EQ(numberAt<std::int32_t>(bytes, places.record + 3392), 3);
    EXPECT_EQ(numberAt<std::uint32_t>(bytes, places.record + 3440), places.securitiesBlock);
    EXPECT_EQ(numberAt<std::uint32_t>(bytes, places.record + 3444), places.paramsBlock);
    EXPECT_EQ(places.securitiesBlock, 145u + 2 * 3464u);
    EXPECT_EQ(numberAt<std::uint32_t>(bytes, places.securitiesBlock), 3 * 500u);
    EXPECT_EQ(numberAt<std::uint32_t>(bytes, places.paramsBlock), 2 * 35u);
    ASSERT_EQ(places.securities.size(), 3u);
    EXPECT_EQ(numberAt<std::uint32_t>(bytes, places.securities[2]), 4242u);
    ASSERT_EQ(places.params.size(), 2u);
    EXPECT_EQ(numberAt<std::uint16_t>(bytes, places.params[1]), 77u);
    EXPECT_EQ(places.params[1] + 35, bytes.size());
}

TEST(SampleClassFile, StoredValuesReplaceWhatWouldStandThere) {
    sample::ClassRecord odd = classOf(1, "ODD");
    odd.securities.resize(1);
    odd.params.resize(1);
    odd.magic = sample::kFreeMagic;
    odd.storedSecuritiesCount = -1;
    odd.storedSecuritiesOffset = sample::kNoBlock;
    odd.storedSecuritiesSize = 1;
    odd.storedParamsCount = 0;
    odd.storedParamsOffset = 12;
    odd.storedParamsSize = 2;
    sample::ClassFileLayout layout;
    const std::string bytes = sample::encodeClassFile({odd}, &layout);
    EXPECT_EQ(numberAt<std::uint16_t>(bytes, 145), 0u);
    EXPECT_EQ(numberAt<std::int32_t>(bytes, 145 + 3392), -1);
    EXPECT_EQ(numberAt<std::uint32_t>(bytes, 145 + 3440), 0xFFFFFFFFu);
    EXPECT_EQ(numberAt<std::uint32_t>(bytes, layout.classes[0].securitiesBlock), 1u);
    EXPECT_EQ(numberAt<std::int32_t>(bytes, 145 + 3388), 0);
    EXPECT_EQ(numberAt<std::uint32_t>(bytes, 145 + 3444), 12u);
    EXPECT_EQ(numberAt<std::uint32_t>(bytes, layout.classes[0].paramsBlock), 2u);
    EXPECT_EQ(bytes.size(), 145u + 3464u + 4 + 500 + 4 + 35);
}

TEST(SampleClassFile, LongTextFillsItsFieldWithoutTerminator) {
    sample::ClassRecord filled = classOf(1, "ABCDEFGHIJKLM and more");
    filled.cl.assign(300, 'c');
    const std::string bytes = sample::encodeClassFile({filled});
    EXPECT_EQ(bytes.substr(145 + 8, 13), "ABCDEFGHIJKLM");
    EXPECT_EQ(bytes[145 + 21], sample::fillByte(21));
    EXPECT_EQ(bytes.substr(145 + 3099, 257), std::string(257, 'c'));
    EXPECT_EQ(bytes[145 + 3356], sample::fillByte(3356));
}

TEST(SampleClassFile, ParamFieldsStandInStoredOrder) {
    sample::Param param{1, 2, 3, "DBNAME", {}, 4, 5};
    param.names.push_back({6, "short", "long", "enum"});
    param.names.push_back({7, "", std::string("a\0b", 3), ""});
    const std::string bytes = sample::encodeParam(param);
    Cursor at(bytes);
    EXPECT_EQ(at.number<std::uint16_t>(), 1);
    EXPECT_EQ(at.number<std::uint16_t>(), 2);
    EXPECT_EQ(at.number<std::uint16_t>(), 3);
    EXPECT_EQ(at.text(17), "DBNAME");
    EXPECT_EQ(at.number<std::uint32_t>(), 2u);
    EXPECT_EQ(at.number<std::uint16_t>(), 6);
    EXPECT_EQ(at.counted(), "long");
    EXPECT_EQ(at.counted(), "short");
    EXPECT_EQ(at.counted(), "enum");
    EXPECT_EQ(at.number<std::uint16_t>(), 7);
    EXPECT_EQ(at.counted(), std::string("a\0b", 3));
    EXPECT_EQ(at.number<std::uint32_t>(), 0u);
    EXPECT_EQ(at.number<std::uint32_t>(), 0u);
    EXPECT_EQ(at.number<std::uint32_t>(), 4u);
    EXPECT_EQ(at.number<std::uint32_t>(), 5u);
    EXPECT_TRUE(at.atEnd());
    EXPECT_EQ(bytes.size(),
              sample::kParamBaseSize + 2 * sample::kParamNameBaseSize + 6 + 5 + 5 + 4);
}

// Each field holds a value of its own: texts their name, numbers their place.
sample::Security distinctSecurity() {
    return {1,
            "sec_code",
            "ISIN",
            "reg_number",
            "CFI",
            {{2, "short", "long"}},
            "base_sec",
            "base_class",
            3,
            4,
            5,
            6,
            7,
            8.5,
            "face_unit",
            9,
            10,
            11,
            12,
            -13,
            "trade_cur",
            -14,
            "CCY1",
            "CCY2",
            15.5,
            16,
            17,
            18,
            -19,
            20.5,
            "step_cur",
            21,
            {{"code1", "code2", "code3", -22, -23, -24}},
            "stock_code",
            "sedol",
            "ric_code",
            "cusip",
            "stock_name",
            "bsid",
            25,
            26,
            27,
            -28,
            29,
            "settleCode",
            "tickSize",
            30,
            -31,
            -32,
            -33,
            34,
            "benchmark"};
}

void expectFirstHalf(Cursor& at) {
    EXPECT_EQ(at.number<std::uint32_t>(), 1u);
    EXPECT_EQ(at.text(13), "sec_code");
    EXPECT_EQ(at.text(13), "ISIN");
    EXPECT_EQ(at.text(31), "reg_number");
    EXPECT_EQ(at.text(7), "CFI");
    EXPECT_EQ(at.number<std::uint32_t>(), 1u);
    EXPECT_EQ(at.number<std::uint16_t>(), 2);
    EXPECT_EQ(at.counted(), "long");
    EXPECT_EQ(at.counted(), "short");
    EXPECT_EQ(at.text(13), "base_sec");
    EXPECT_EQ(at.text(13), "base_class");
    EXPECT_EQ(at.number<std::uint16_t>(), 3);
    EXPECT_EQ(at.number<std::uint16_t>(), 4);
    EXPECT_EQ(at.number<std::uint16_t>(), 5);
    EXPECT_EQ(at.number<std::uint32_t>(), 6u);
    EXPECT_EQ(at.number<std::uint32_t>(), 7u);
    EXPECT_EQ(at.number<double>(), 8.5);
    EXPECT_EQ(at.text(13), "face_unit");
    EXPECT_EQ(at.number<std::uint16_t>(), 9);
    EXPECT_EQ(at.number<std::uint32_t>(), 10u);
    EXPECT_EQ(at.number<std::uint32_t>(), 11u);
    EXPECT_EQ(at.number<std::uint8_t>(), 12);
    EXPECT_EQ(at.number<std::int64_t>(), -13);
    EXPECT_EQ(at.text(13), "trade_cur");
    EXPECT_EQ(at.number<std::int64_t>(), -14);
    EXPECT_EQ(at.text(13), "CCY1");
    EXPECT_EQ(at.text(13), "CCY2");
    EXPECT_EQ(at.number<double>(), 15.5);
    EXPECT_EQ(at.number<std::uint16_t>(), 16);
    EXPECT_EQ(at.number<std::uint32_t>(), 17u);
    EXPECT_EQ(at.number<std::uint32_t>(), 18u);
    EXPECT_EQ(at.number<std::int64_t>(), -19);
    EXPECT_EQ(at.number<double>(), 20.5);
}

void expectSecondHalf(Cursor& at) {
    EXPECT_EQ(at.text(13), "step_cur");
    EXPECT_EQ(at.number<std::uint32_t>(), 21u);
    EXPECT_EQ(at.number<std::uint32_t>(), 1u);
    EXPECT_EQ(at.text(13), "code1");
    EXPECT_EQ(at.text(13), "code2");
    EXPECT_EQ(at.text(7), "code3");
    EXPECT_EQ(at.number<std::int64_t>(), -22);
    EXPECT_EQ(at.number<std::int16_t>(), -23);
    EXPECT_EQ(at.number<std::int32_t>(), -24);
    EXPECT_EQ(at.text(13), "stock_code");
    EXPECT_EQ(at.text(8), "sedol");
    EXPECT_EQ(at.text(33), "ric_code");
    EXPECT_EQ(at.text(10), "cusip");
    EXPECT_EQ(at.text(33), "stock_name");
    EXPECT_EQ(at.text(21), "bsid");
    EXPECT_EQ(at.number<std::uint16_t>(), 25);
    EXPECT_EQ(at.number<std::uint16_t>(), 26);
    EXPECT_EQ(at.number<std::uint16_t>(), 27);
    EXPECT_EQ(at.number<std::int64_t>(), -28);
    EXPECT_EQ(at.number<std::uint32_t>(), 29u);
    EXPECT_EQ(at.text(13), "settleCode");
    EXPECT_EQ(at.text(65), "tickSize");
    EXPECT_EQ(at.number<std::uint32_t>(), 30u);
    EXPECT_EQ(at.number<std::int16_t>(), -31);
    EXPECT_EQ(at.number<std::int64_t>(), -32);
    EXPECT_EQ(at.number<std::int32_t>(), -33);
    EXPECT_EQ(at.number<std::uint8_t>(), 34);
    EXPECT_EQ(at.text(13), "benchmark");
}

TEST(SampleClassFile, SecurityFieldsStandInStoredOrder) {
    const std::string bytes = sample::encodeSecurity(distinctSecurity());
    Cursor at(bytes);
    expectFirstHalf(at);
    expectSecondHalf(at);
    EXPECT_TRUE(at.atEnd());
    EXPECT_EQ(bytes.size(), sample::kSecurityBaseSize + sample::kSecurityNameBaseSize +
                                sample::kSubDescSize + 5 + 6);
}

TEST(SampleClassFile, DefaultsOfASecurity) {
    const std::string bytes = sample::encodeSecurity({});
    ASSERT_EQ(bytes.size(), 500u);
    EXPECT_EQ(numberAt<std::uint32_t>(bytes, 139), 1u); // lot_size
    EXPECT_EQ(numberAt<std::int64_t>(bytes, 378), 1);   // unnamedValue2
    EXPECT_EQ(numberAt<std::int32_t>(bytes, 482), -1);  // unnamedValue3
}

} // namespace

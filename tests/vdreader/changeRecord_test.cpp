// The buffer of the change records.

#include "CurData/changeRecord.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "sample/dataFile.h"
#include "support/scopedCalls.h"

namespace {

template <std::size_t Size>
JoinCode codeOf(const char (&text)[Size]) {
    char field[13] = {};
    std::memcpy(field, text, Size < sizeof field ? Size : sizeof field);
    return JoinCode(field);
}

// The record's bytes stand behind an odd one, as in a page.
sDynParams filled(const sample::Record& record, const std::string& behind = "") {
    const std::string bytes = "#" + sample::encodeRecord(record) + behind;
    sDynParams out;
    std::memset(&out, 0x77, sizeof out);
    fillDynParams(*reinterpret_cast<const ENC_DATA*>(bytes.data() + 1), codeOf("CLASS"),
                  codeOf("SECURITY1234"), out);
    return out;
}

int invalidParameters = 0;

} // namespace

TEST(ChangeRecord, FieldsComeFromTheRecordAndItsCodes) {
    sample::Record record;
    record.dataField1 = 11;
    record.dataField2 = -12;
    record.dataField3 = 13;
    record.sec_id = 0xFFFFFFFE;
    record.class_id = 5;
    record.mask = {1, 2, 3};
    record.longs = {-7, 8};
    record.doubles = {1.5, -2.5, 3.5};
    const sDynParams out = filled(record);
    EXPECT_EQ(+out.dataField1, 11);
    EXPECT_EQ(+out.dataField2, -12);
    EXPECT_EQ(+out.dataField3, 13);
    EXPECT_EQ(+out.sec_id, 0xFFFFFFFEu);
    EXPECT_STREQ(out.class_code, "CLASS");
    EXPECT_STREQ(out.sec_code, "SECURITY1234");
    EXPECT_EQ(+out.maskSize, 3);
    EXPECT_EQ(+out.longCount, 2);
    EXPECT_EQ(+out.doubleCount, 3);

    // All else is zero.
    sDynParams expected = {};
    std::memcpy(static_cast<void*>(&expected), &out, offsetof(sDynParams, mask));
    expected.mask[0] = 1;
    expected.mask[1] = 2;
    expected.mask[2] = 3;
    expected.longs[0] = -7;
    expected.longs[1] = 8;
    expected.doubles[0] = 1.5;
    expected.doubles[1] = -2.5;
    expected.doubles[2] = 3.5;
    EXPECT_EQ(std::memcmp(&out, &expected, sizeof out), 0);
}

TEST(ChangeRecord, CodesHoldTwelveCharactersAndATerminator) {
    char full[13];
    std::memset(full, 'x', sizeof full);
    const JoinCode code(full);
    const std::string bytes = sample::encodeRecord({});
    sDynParams out;
    std::memset(&out, 0x77, sizeof out);
    fillDynParams(*reinterpret_cast<const ENC_DATA*>(bytes.data()), code, code, out);
    EXPECT_EQ(std::string(out.class_code, 13), std::string(12, 'x') + '\0');
    EXPECT_EQ(std::string(out.sec_code, 13), std::string(12, 'x') + '\0');
}

TEST(ChangeRecord, CodeEndsAtItsTerminator) {
    const char field[13] = {'A', '\0', 'B', 'C'};
    const JoinCode code(field);
    EXPECT_EQ(std::memcmp(code.text, "A\0\0\0\0\0\0\0\0\0\0\0", sizeof code.text), 0);
}

TEST(ChangeRecord, FullRecordFillsTheBuffer) {
    sample::Record record;
    record.mask.assign(16, 0xFF);
    for (int i = 0; i < 128; ++i) {
        record.longs.push_back(i - 50);
        record.doubles.push_back(i + 0.25);
    }
    const sDynParams out = filled(record);
    EXPECT_EQ(+out.longCount, 128);
    EXPECT_EQ(+out.doubleCount, 128);
    for (int i = 0; i < 128; ++i) {
        EXPECT_EQ(+out.longs[i], i - 50);
        EXPECT_EQ(+out.doubles[i], i + 0.25);
    }
    EXPECT_EQ(out.mask[15], 0xFF);
}

TEST(ChangeRecord, CountsAbove128StandAndTheValuesAreCut) {
    sample::Record record;
    record.mask = {1};
    for (int i = 0; i < 255; ++i) {
        record.longs.push_back(i);
        record.doubles.push_back(i);
    }
    const sDynParams out = filled(record);
    EXPECT_EQ(+out.longCount, 255);
    EXPECT_EQ(+out.doubleCount, 255);
    EXPECT_EQ(+out.longs[127], 127);
    EXPECT_EQ(+out.doubles[0], 0.0);
    EXPECT_EQ(+out.doubles[127], 127.0);
    EXPECT_EQ(out.mask[0], 1);
}

TEST(ChangeRecord, MaskOf17BytesIsClearedAndABrokenContract) {
    const ScopedCalls calls;
    platform::calls.invalidParameter = [] { ++invalidParameters; };
    sample::Record record;
    record.mask.assign(17, 0xEE);
    record.longs = {4};
    record.doubles = {4.5};
    const sDynParams out = filled(record);
    EXPECT_EQ(invalidParameters, 1);
    EXPECT_EQ(+out.maskSize, 17);
    const unsigned char none[16] = {};
    EXPECT_EQ(std::memcmp(out.mask, none, 16), 0);
    EXPECT_EQ(+out.longs[0], 4);
    EXPECT_EQ(+out.doubles[0], 4.5);
    record.mask.assign(16, 0xEE);
    EXPECT_EQ(filled(record).mask[15], 0xEE);
    EXPECT_EQ(invalidParameters, 1);
}

#ifndef _WIN32
TEST(ChangeRecordDeathTest, BrokenContractEndsTheProcessWithALine) {
    sample::Record record;
    record.mask.assign(17, 1);
    EXPECT_DEATH(filled(record), "vdreader: invalid parameter");
}
#endif

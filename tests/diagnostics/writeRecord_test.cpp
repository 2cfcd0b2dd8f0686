// From a record to text: parameters and templates.

#include "logs/SysLogger.h"

#include <gtest/gtest.h>

#include <cstring>
#include <ctime>
#include <limits>
#include <locale>
#include <memory>
#include <string>
#include <thread>

#include "diagnostics/sysLoggerFixture.h"
#include "platform/clock.h"
#include "platform/thread.h"
#include "support/scopedCalls.h"

namespace {

using WriteRecord = SysLoggerTest;

// Scheme 0, of three parameters behind the date.
class WriteRecordDates : public SysLoggerTest {
  protected:
    WriteRecordDates() : SysLoggerTest(0) {}

    // A clock that stands at this local time.
    void setClock(int year, int month, int day, int hour, int minute, int second,
                  std::int32_t milliseconds) {
        std::tm local = {};
        local.tm_year = year - 1900;
        local.tm_mon = month - 1;
        local.tm_mday = day;
        local.tm_hour = hour;
        local.tm_min = minute;
        local.tm_sec = second;
        local.tm_isdst = -1;
        s_now = {std::mktime(&local), milliseconds};
        platform::calls.wallClock = [] { return s_now; };
    }

    // What a submitted record leaves.
    std::string submitted(SysLogRecord* record) {
        const std::string before = file();
        submit(record, *m_logger);
        m_logger->drain();
        return file().substr(before.size());
    }

  private:
    static inline platform::WallTime s_now;
    ScopedCalls m_calls;
};

class WriteRecordUnknownScheme : public SysLoggerTest {
  protected:
    WriteRecordUnknownScheme() : SysLoggerTest(2) {}
    void SetUp() override {
        testing::internal::CaptureStderr();
        open();
        m_complaint = testing::internal::GetCapturedStderr();
    }
};

} // namespace

// ---- the number of parameters ----

TEST_F(WriteRecord, OneParameterIsWhatScheme1Writes) {
    EXPECT_EQ(written(textRecord(MsgLevel::Info, {"one"})), "one");
    EXPECT_EQ(written(textRecord(MsgLevel::Info, {""})), "");
    EXPECT_EQ(written(textRecord(MsgLevel::Info, {})), "");
    EXPECT_EQ(written(textRecord(MsgLevel::Info, {"one", "two"})), "");
    EXPECT_EQ(written(textRecord(MsgLevel::Info, {"one", "two", "three"})), "");
    EXPECT_EQ(m_complaint, "");
    EXPECT_EQ(written(textRecord(MsgLevel::Error, {"e"})), "e");
    EXPECT_EQ(written(textRecord(MsgLevel::Warning, {"w"})), "w");
}

TEST_F(WriteRecord, NumberOfParametersWrapsAt16Bits) {
    const std::unique_ptr<SysLogRecord, SysLogRecordFree> record(
        textRecord(MsgLevel::Info, {"one", "two"}));
    record->overflowCount = 0xFFFF;
    m_logger->writeRecord(record.get());
    EXPECT_EQ(file(), "one");
}

TEST_F(WriteRecord, TextsAroundTheSizeOfARecordPrintAlike) {
    for (const std::size_t length : {0, 1, 30, 31, 32, 33, 1999, 5000}) {
        const std::string text(length, 't');
        EXPECT_EQ(written(infoRecord(text)), text) << length;
    }
}

// ---- types ----

TEST_F(WriteRecord, NumbersPrintByTheirTypes) {
    using Type = SysLogParamType;
    EXPECT_EQ(written(numberRecord(Type::character, 'c')), "c");
    EXPECT_EQ(written(numberRecord(Type::character2, 'd')), "d");
    EXPECT_EQ(written(numberRecord(Type::character, '\n')), "\r\n");
    EXPECT_EQ(written(numberRecord(Type::character2, '\0')), std::string(1, '\0'));
    EXPECT_EQ(written(numberRecord(Type::int32, std::numeric_limits<std::int32_t>::min())),
              "-2147483648");
    EXPECT_EQ(written(numberRecord(Type::int32, 2147483647)), "2147483647");
    EXPECT_EQ(written(numberRecord(Type::int16, std::int16_t{-32768})), "-32768");
    EXPECT_EQ(written(numberRecord(Type::int16, std::int16_t{32767})), "32767");
    EXPECT_EQ(written(numberRecord(Type::uint32, 4294967295u)), "4294967295");
    EXPECT_EQ(written(numberRecord(Type::uint16, std::uint16_t{65535})), "65535");
    EXPECT_EQ(written(numberRecord(Type::int64, std::numeric_limits<std::int64_t>::min())),
              "-9223372036854775808");
    EXPECT_EQ(written(numberRecord(Type::uint64, std::numeric_limits<std::uint64_t>::max())),
              "18446744073709551615");
    EXPECT_EQ(m_complaint, "");
}

TEST_F(WriteRecord, NumbersTakeNoMoreThanTheirWidth) {
    struct Row {
        SysLogParamType type;
        const char* text;
    };
    for (const Row& row : {Row{SysLogParamType::character, "A"},
                           {SysLogParamType::int16, "16705"},
                           {SysLogParamType::uint16, "16705"},
                           {SysLogParamType::int32, "1094795585"},
                           {SysLogParamType::uint32, "1094795585"},
                           {SysLogParamType::int64, "4702111234474983745"}}) {
        SysLogRecord* record = numberRecord(row.type, char{});
        std::memset(record->inlineParams[0].value, 'A', SysLogParam::kValueSize);
        EXPECT_EQ(written(record), row.text);
    }
}

TEST_F(WriteRecord, DoublesAreFixedWithSixDecimals) {
    using Type = SysLogParamType;
    EXPECT_EQ(written(numberRecord(Type::real, 0.0)), "0.000000");
    EXPECT_EQ(written(numberRecord(Type::real, -1.5)), "-1.500000");
    EXPECT_EQ(written(numberRecord(Type::real, 1e-9)), "0.000000");
    EXPECT_EQ(written(numberRecord(Type::real, 1e20)), "100000000000000000000.000000");
    EXPECT_EQ(written(numberRecord(Type::real, 2.0 / 3)), "0.666667");
    EXPECT_EQ(written(numberRecord(Type::real, std::numeric_limits<double>::max())).size(), 316u);
    EXPECT_EQ(written(numberRecord(Type::real, -std::numeric_limits<double>::max())).size(), 317u);
    EXPECT_EQ(written(numberRecord(Type::real, std::numeric_limits<double>::infinity())), "inf");
}

TEST_F(WriteRecord, BoolsAreYAndN) {
    EXPECT_EQ(written(numberRecord(SysLogParamType::boolean, std::uint8_t{0})), "N");
    EXPECT_EQ(written(numberRecord(SysLogParamType::boolean, std::uint8_t{1})), "Y");
    EXPECT_EQ(written(numberRecord(SysLogParamType::boolean, std::uint8_t{0x80})), "Y");
}

TEST_F(WriteRecord, UnknownTypesAreReportedAndPrintNothing) {
    for (const int type : {0, 12, 13, 255}) {
        EXPECT_EQ(written(numberRecord(static_cast<SysLogParamType>(type), 7)), "") << type;
        EXPECT_EQ(m_complaint, "Syslog parameter of unknown type.\n") << type;
    }
}

TEST_F(WriteRecord, LocaleOfTheHostChangesNoNumber) {
    struct Grouping : std::numpunct<char> {
        char do_thousands_sep() const override { return '\''; }
        char do_decimal_point() const override { return ','; }
        std::string do_grouping() const override { return "\3"; }
    };
    const std::locale former = std::locale::global(std::locale(std::locale(), new Grouping));
    const std::string whole = written(numberRecord(SysLogParamType::int32, 1234567));
    const std::string real = written(numberRecord(SysLogParamType::real, 1234.5));
    std::locale::global(former);
    EXPECT_EQ(whole, "1234567");
    EXPECT_EQ(real, "1234.500000");
}

// ---- dates of other schemes ----

TEST_F(WriteRecord, SubmittedRecordOfScheme1CarriesTheThreadAndNoTime) {
    SysLogRecord* record = infoRecord("x");
    submit(record, *m_logger); // queued, so still there
    EXPECT_EQ(record->threadId, platform::threadId());
    EXPECT_EQ(record->date, 0u);
    EXPECT_EQ(record->time, 0u);
    m_logger->drain();
}

TEST_F(WriteRecord, SubmittedRecordCarriesTheThreadThatSubmittedIt) {
    SysLogRecord* record = infoRecord("x");
    std::uint32_t id = 0;
    std::thread([&] {
        id = platform::threadId();
        submit(record, *m_logger);
    }).join();
    EXPECT_EQ(record->threadId, id);
    EXPECT_NE(record->threadId, platform::threadId());
    m_logger->drain();
}

TEST_F(WriteRecordDates, SubmittedRecordIsStampedWithLocalTime) {
    setClock(2026, 11, 22, 23, 58, 59, 999); // a Sunday
    SysLogRecord* record = textRecord(MsgLevel::Info, {"a", "b", "c"});
    submit(record, *m_logger);
    EXPECT_EQ(record->threadId, platform::threadId());
    EXPECT_EQ(record->date, 22u | 11u << 8 | 2026u << 16 | 0u << 28);
    EXPECT_EQ(record->time, 999u | 59u << 10 | 58u << 16 | 23u << 24);

    setClock(2000, 1, 1, 0, 0, 0, 0); // a Saturday
    record = textRecord(MsgLevel::Info, {"a", "b", "c"});
    submit(record, *m_logger);
    EXPECT_EQ(record->date, 1u | 1u << 8 | 2000u << 16 | 6u << 28);
    EXPECT_EQ(record->time, 0u);
    m_logger->drain();
}

#ifndef _WIN32 // whose calendar ends with the year 3000
TEST_F(WriteRecordDates, YearIsCutTo12BitsAndLeavesTheWeekday) {
    setClock(4097, 1, 1, 0, 0, 0, 0); // a Tuesday
    SysLogRecord* record = textRecord(MsgLevel::Info, {"a", "b", "c"});
    submit(record, *m_logger);
    EXPECT_EQ(record->date, 1u | 1u << 8 | 1u << 16 | 2u << 28);
    setClock(4095, 12, 31, 0, 0, 0, 0); // a Saturday, the last day that is whole
    record = textRecord(MsgLevel::Info, {"a", "b", "c"});
    submit(record, *m_logger);
    EXPECT_EQ(record->date, 31u | 12u << 8 | 4095u << 16 | 6u << 28);
    m_logger->drain();
}
#endif

TEST_F(WriteRecordDates, RecordsBeginALineWithTheirDate) {
    setClock(2026, 11, 21, 10, 40, 30, 123);
    EXPECT_EQ(submitted(textRecord(MsgLevel::Info, {"one", "two", "three"})),
              "\r\n21.11.2026 10:40:30.123 <onetwo three");
    setClock(1999, 1, 2, 3, 4, 5, 6);
    EXPECT_EQ(submitted(textRecord(MsgLevel::Error, {"1", "", "3\n"})),
              "\r\n02.01.1999 03:04:05.006 <1 3\r\n");
}

TEST_F(WriteRecordDates, FieldsOfARecordArePaddedAndWhole) {
    SysLogRecord* record = textRecord(MsgLevel::Warning, {"1", "2", "3"});
    record->date = 1u | 2u << 8 | 33u << 16 | 15u << 28;
    record->time = 1023u | 63u << 10 | 255u << 16 | 255u << 24;
    EXPECT_EQ(written(record), "\r\n01.02.  33 255:255:63.1023 <12 3");
    record = textRecord(MsgLevel::Warning, {"1", "2", "3"});
    record->date = 0xFFFFFFFF;
    EXPECT_EQ(written(record), "\r\n255.255.4095 00:00:00.000 <12 3");
}

TEST_F(WriteRecordDates, OtherNumbersOfParametersAreDropped) {
    EXPECT_EQ(written(textRecord(MsgLevel::Info, {})), "");
    EXPECT_EQ(written(textRecord(MsgLevel::Info, {"1"})), "");
    EXPECT_EQ(written(textRecord(MsgLevel::Info, {"1", "2"})), "");
    EXPECT_EQ(written(textRecord(MsgLevel::Info, {"1", "2", "3", "4"})), "");
}

TEST_F(WriteRecordDates, ParametersOfAllPlacesAndTypesMix) {
    SysLogRecord* record = textRecord(MsgLevel::Info, {"", "", ""});
    setNumber(record->inlineParams[0], SysLogParamType::int32, -5);
    setNumber(record->inlineParams[1], SysLogParamType::real, 2.5);
    setNumber(record->overflow->param, SysLogParamType::boolean, true);
    EXPECT_EQ(written(record), "\r\n00.00.   0 00:00:00.000 <-52.500000 Y");
}

TEST_F(WriteRecordDates, RestOfARecordFollowsAnUnknownType) {
    SysLogRecord* record = textRecord(MsgLevel::Info, {"one", "two", "three"});
    record->inlineParams[1].type = static_cast<SysLogParamType>(12);
    EXPECT_EQ(written(record), "\r\n00.00.   0 00:00:00.000 <one three");
    EXPECT_EQ(m_complaint, "Syslog parameter of unknown type.\n");
}

TEST_F(WriteRecordDates, MissingParameterCountsAsOneOfUnknownType) {
    SysLogRecord* record = textRecord(MsgLevel::Info, {"one", "two"});
    record->overflowCount = 1; // and no node
    EXPECT_EQ(written(record), "\r\n00.00.   0 00:00:00.000 <onetwo ");
    EXPECT_EQ(m_complaint, "Syslog parameter of unknown type.\n");
}

TEST_F(WriteRecordUnknownScheme, IsReportedAndWritesRecordsWithoutParametersAlone) {
    EXPECT_EQ(m_complaint, "Unknown log scheme type.\n");
    EXPECT_EQ(written(textRecord(MsgLevel::Info, {"x"})), "");
    EXPECT_EQ(m_complaint, "");
    EXPECT_EQ(written(textRecord(MsgLevel::Info, {})), "\r\n00.00.   0 00:00:00.000 ");
}

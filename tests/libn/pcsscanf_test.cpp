#include "libn/pcsscanf.h"

#include <gtest/gtest.h>

#include <clocale>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "libn/memTraceTable.h"
#include "support/capturedLog.h"
#include "support/failingMalloc.h"
#include "support/scopedLocale.h"
#include "vdreader/memtrace.h"

namespace {

constexpr std::int32_t kUnset = -1;

// An output of an "s", with bytes around what is stored.
struct Text {
    char bytes[40];
    Text() { std::memset(bytes, '#', sizeof bytes); }
    operator char*() { return bytes; }
    // All that changed, with terminators shown as "0".
    std::string stored() const {
        std::string all(bytes, sizeof bytes);
        for (char& c : all)
            c = c == '\0' ? '0' : c;
        return all.substr(0, all.find_last_not_of('#') + 1);
    }
};

// One conversion alone.
std::int32_t number(const std::string& text, const char* format) {
    std::int32_t value = kUnset;
    EXPECT_EQ(pcsscanf(text.c_str(), format, &value), 0);
    return value;
}
double fraction(const std::string& text, const char* format) {
    double value = kUnset;
    EXPECT_EQ(pcsscanf(text.c_str(), format, &value), 0);
    return value;
}
std::string field(const std::string& text, const char* format) {
    Text out;
    EXPECT_EQ(pcsscanf(text.c_str(), format, out.bytes), 0);
    return out.stored();
}
// The two fields of a format with two texts, " | " between them.
std::string fields(const std::string& text, const char* format) {
    Text first, second;
    EXPECT_EQ(pcsscanf(text.c_str(), format, first.bytes, second.bytes), 0);
    return first.stored() + " | " + second.stored();
}

} // namespace

// ---- empty ----

TEST(Pcsscanf, EmptyTextOrFormatStoresNothing) {
    Text name;
    std::int32_t value = kUnset;
    EXPECT_EQ(pcsscanf("", "%s,%d", name.bytes, &value), 0);
    EXPECT_EQ(pcsscanf("", "", name.bytes), 0);
    EXPECT_EQ(pcsscanf("abc", "", name.bytes), 0);
    EXPECT_EQ(pcsscanf("abc", "no conversion", name.bytes), 0);
    EXPECT_EQ(name.stored(), "");
    EXPECT_EQ(value, kUnset);
}

TEST(Pcsscanf, NullTextOrFormatIsAFailure) {
    Text name;
    EXPECT_EQ(pcsscanf(nullptr, "%s", name.bytes), 1);
    EXPECT_EQ(pcsscanf("abc", nullptr, name.bytes), 1);
    EXPECT_EQ(pcsscanf(nullptr, nullptr, name.bytes), 1);
    EXPECT_EQ(name.stored(), "");
}

// ---- fields ----

TEST(Pcsscanf, NameAndNumber) {
    Text name;
    std::int32_t value = kUnset;
    EXPECT_EQ(pcsscanf("events.log,3", "%s,%d", name.bytes, &value), 0);
    EXPECT_EQ(name.stored(), "events.log0");
    EXPECT_EQ(value, 3);
}

TEST(Pcsscanf, MissingDelimiterMakesTheFieldTheLast) {
    Text name;
    std::int32_t value = kUnset;
    EXPECT_EQ(pcsscanf("events.log", "%s,%d", name.bytes, &value), 0);
    EXPECT_EQ(name.stored(), "events.log0");
    EXPECT_EQ(value, kUnset);
    EXPECT_EQ(pcsscanf("1,2;3", "%d,%d,%d", &value, &value, nullptr), 0);
    EXPECT_EQ(value, 2);
}

TEST(Pcsscanf, TextThatEndsBehindADelimiterLeavesTheRestUnset) {
    Text name;
    std::int32_t value = kUnset;
    EXPECT_EQ(pcsscanf("events.log,", "%s,%d", name.bytes, &value), 0);
    EXPECT_EQ(name.stored(), "events.log0");
    EXPECT_EQ(value, kUnset);
}

TEST(Pcsscanf, EmptyFieldsAreStored) {
    EXPECT_EQ(fields(",b", "%s,%s"), "0 | b0");
    std::int32_t value = kUnset;
    std::int16_t half = kUnset;
    double real = kUnset;
    char letter = 'x';
    EXPECT_EQ(pcsscanf(",,,,", "%d,%h,%f,%c,", &value, &half, &real, &letter), 0);
    EXPECT_EQ(value, 0);
    EXPECT_EQ(half, 0);
    EXPECT_EQ(real, 0.0);
    EXPECT_EQ(letter, '\0');
}

TEST(Pcsscanf, BlanksGoInFrontOfAFieldWithADelimiterAlone) {
    EXPECT_EQ(fields(" \t\n\ra ,  b", "%s,%s"), "a 0 |   b0");
    EXPECT_EQ(field(" \t\n\ra ", "%s"), " \t\n\ra 0");
    EXPECT_EQ(field("\v\fa,", "%s,"), "\v\fa0") << "the four blanks alone";
    EXPECT_EQ(field("  ", "%s,"), "0") << "no delimiter behind them";
    EXPECT_EQ(fields("  , b", "%s,%s"), "0 |  b0");
}

TEST(Pcsscanf, BlankMayBeTheDelimiter) {
    EXPECT_EQ(fields("  one two three", "%s %s"), "one0 | two three0");
    EXPECT_EQ(fields("one\ntwo", "%s\n%s"), "one0 | two0");
}

TEST(Pcsscanf, DelimiterIsTheOneCharacterBehindTheLetter) {
    EXPECT_EQ(fields("a;b,c", "%s,;%s"), "a;b0 | c0") << "what follows it means nothing";
    EXPECT_EQ(fields("asb", "%ss%s"), "a0 | b0");
    EXPECT_EQ(fields("a\xFF"
                     "b",
                     "%s\xFF%s"),
              "a0 | b0");
}

TEST(Pcsscanf, PercentSignBehindTheLetterIsNoDelimiter) {
    EXPECT_EQ(fields("abcd", "%2s%s"), "ab0 | cd0");
    EXPECT_EQ(fields("abcd", "%s%s"), "abcd0 | ") << "the text ran out";
    EXPECT_EQ(field("ab%cd", "%s%"), "ab%cd0") << "the end of the format";
}

TEST(Pcsscanf, TwoPercentSignsAreADelimiter) {
    EXPECT_EQ(fields("50%60", "%s%%%s"), "500 | 600");
    EXPECT_EQ(fields("50% 60", "%s%% %s"), "500 |  600");
    EXPECT_EQ(field("50%", "%s%%"), "500");
    EXPECT_EQ(fields("50%60", "%s%%d%s"), "500 | 600") << "the d is text";
}

TEST(Pcsscanf, TextOfTheFormatMeansNothing) {
    EXPECT_EQ(fields("a,b", "name=%s, number=%s"), "a0 | b0");
    EXPECT_EQ(fields("name=a,b", "name=%s,%s"), "name=a0 | b0");
    EXPECT_EQ(number("7", "100 % sure: %d"), 7) << "no conversion either";
}

TEST(Pcsscanf, OtherFormsAreNoConversions) {
    EXPECT_EQ(number("7", "%x%u%ld%5%d"), 7);
    EXPECT_EQ(number("7", "%-5d%+d%*d%5.x%d"), 7);
    EXPECT_EQ(number("7", "%%d"), 7) << "nothing to be the delimiter of";
    EXPECT_EQ(number("7", "%5"), kUnset);
    EXPECT_EQ(number("7", "%5.3"), kUnset);
    EXPECT_EQ(number("7", "%."), kUnset);
    EXPECT_EQ(number("7", "%"), kUnset);
}

TEST(Pcsscanf, NullOutputTakesNoText) {
    Text second;
    EXPECT_EQ(pcsscanf("a,b", "%s,%s,", nullptr, second.bytes), 0);
    EXPECT_EQ(second.stored(), "a0");
    EXPECT_EQ(pcsscanf("a,b", "%s,%d", nullptr, nullptr), 0);
}

// ---- width ----

TEST(Pcsscanf, WidthEndsAFieldWithoutADelimiter) {
    EXPECT_EQ(fields("abcdef", "%3s%s"), "abc0 | def0");
    EXPECT_EQ(fields("ab", "%3s%s"), "ab0 | ");
    std::int32_t first = kUnset, second = kUnset;
    EXPECT_EQ(pcsscanf("20261121", "%4d%2d", &first, &second), 0);
    EXPECT_EQ(first, 2026);
    EXPECT_EQ(second, 11);
    char letters[3] = {'x', 'x', 'x'};
    EXPECT_EQ(pcsscanf("abc", "%1c%1c%1c", letters, letters + 1, letters + 2), 0);
    EXPECT_EQ(std::string(letters, 3), "abc");
}

TEST(Pcsscanf, WidthEndsAFieldWhoseDelimiterIsMissing) {
    EXPECT_EQ(fields("  abcdef", "%3s,%s"), "abc0 | ") << "and it is the last";
    EXPECT_EQ(number("12345", "%3d,"), 123);
}

TEST(Pcsscanf, WidthDoesNotEndAFieldWithADelimiter) {
    EXPECT_EQ(number("12345,", "%3d,"), 12345);
    EXPECT_EQ(fields("abcdef,g", "%3s,%s"), "abc | g0");
}

TEST(Pcsscanf, TextThatTheWidthCutsHasNoTerminator) {
    EXPECT_EQ(field("abcdef,", "%3s,"), "abc");
    EXPECT_EQ(field("abcdef,", "%5s,"), "abcde");
    EXPECT_EQ(field("abcdef,", "%6s,"), "abcdef0") << "not shorter";
    EXPECT_EQ(field("abcdef,", "%7S,"), "abcdef0");
}

TEST(Pcsscanf, WidthOfZeroTakesNothing) {
    EXPECT_EQ(fields("abc", "%0s%s"), "0 | abc0");
    EXPECT_EQ(field("abc,", "%0s,"), "");
    EXPECT_EQ(number("5", "%000d"), 0);
}

TEST(Pcsscanf, WidthWithManyDigitsIsALargeOne) {
    EXPECT_EQ(field("abc", "%99999999999999999999999999999999s"), "abc0");
    EXPECT_EQ(field("abc,", "%18446744073709551616s,"), "abc0") << "not 0";
    EXPECT_EQ(field("abc,", "%18446744073709551617s,"), "abc0") << "not 1";
    EXPECT_EQ(field("abc,", "%0000000000000000000000002s,"), "ab");
}

// ---- letters ----

TEST(Pcsscanf, CapitalsAreTheSameAsSmallLetters) {
    char letter = 'x';
    EXPECT_EQ(pcsscanf("ab", "%C", &letter), 0);
    EXPECT_EQ(letter, 'a');
    EXPECT_EQ(pcsscanf("\xE9,", "%c,", &letter), 0);
    EXPECT_EQ(letter, '\xE9');
    EXPECT_EQ(field("ab", "%S"), "ab0");
    EXPECT_EQ(number("7", "%D%F%H%d"), 7) << "of the others there are none";
}

TEST(Pcsscanf, CharacterTakesOneByteAndItsWholeField) {
    char letters[3] = {'x', 'x', 'x'};
    EXPECT_EQ(pcsscanf("abc,def", "%c,%c", letters, letters + 1), 0);
    EXPECT_EQ(std::string(letters, 3), "adx");
}

TEST(Pcsscanf, NumbersAreWhatStandsInFront) {
    EXPECT_EQ(number("12abc", "%d"), 12);
    EXPECT_EQ(number("abc", "%d"), 0);
    EXPECT_EQ(number(" -5", "%d"), -5);
    EXPECT_EQ(number("+5", "%d"), 5);
    EXPECT_EQ(number("0x10", "%d"), 0);
    EXPECT_EQ(number("1.9", "%.d"), 1);
}

TEST(Pcsscanf, NumbersOutOfRangeAreTheNearest) {
    using Limits = std::numeric_limits<std::int32_t>;
    EXPECT_EQ(number("2147483647", "%d"), Limits::max());
    EXPECT_EQ(number("2147483648", "%d"), Limits::max());
    EXPECT_EQ(number("-2147483649", "%d"), Limits::min());
    EXPECT_EQ(number("99999999999999999999999999", "%d"), Limits::max());
    EXPECT_EQ(number("-99999999999999999999999999", "%d"), Limits::min());
}

TEST(Pcsscanf, HalfNumberIsTheLowHalf) {
    struct Row {
        const char* text;
        std::int16_t value;
    };
    for (const Row& row : {Row{"7", 7}, Row{"-7", -7}, Row{"32768", -32768}, Row{"65537", 1},
                           Row{"9999999999", -1}, Row{"-9999999999", 0}}) {
        std::int16_t around[3] = {99, 99, 99};
        EXPECT_EQ(pcsscanf(row.text, "%h", around + 1), 0);
        EXPECT_EQ(around[1], row.value) << row.text;
        EXPECT_EQ(around[0], 99);
        EXPECT_EQ(around[2], 99) << "two bytes are stored";
    }
}

TEST(Pcsscanf, FractionIsADouble) {
    EXPECT_EQ(fraction("1.25", "%f"), 1.25);
    EXPECT_EQ(fraction("-1.5e3,", "%f,"), -1500.0);
    EXPECT_EQ(fraction("abc", "%f"), 0.0);
    EXPECT_EQ(fraction("1e999", "%f"), std::numeric_limits<double>::infinity());
    EXPECT_EQ(fraction("123456", "%3f"), 123.0);
}

TEST(Pcsscanf, PointInTheConversionCutsFractionsWhateverItsNumber) {
    for (const char* format : {"%.f", "%.0f", "%.1f", "%.2f", "%.99999999999999999999f", "%20.3f"})
        EXPECT_EQ(fraction("12.987", format), 12.0) << format;
    EXPECT_EQ(fraction(".5", "%.f"), 0.0);
    EXPECT_EQ(fraction("1e2.5", "%.f"), 100.0);
    EXPECT_EQ(fraction("12", "%.1f"), 12.0);
}

TEST(Pcsscanf, PointIsThatOfTheLocale) {
    const ScopedLocale scoped(LC_NUMERIC);
    const char* comma = nullptr;
    for (const char* name : {"de_DE.UTF-8", "ru_RU.UTF-8", "fr_FR.UTF-8", "German", "Russian"})
        if (std::setlocale(LC_NUMERIC, name) != nullptr &&
            std::strcmp(std::localeconv()->decimal_point, ",") == 0)
            comma = name;
    if (comma == nullptr)
        GTEST_SKIP() << "no locale with a decimal comma is installed";
    EXPECT_EQ(fraction("12,987", "%f"), 12.987);
    EXPECT_EQ(fraction("12,987", "%.2f"), 12.0);
    std::setlocale(LC_NUMERIC, "C");
    EXPECT_EQ(fraction("12,987", "%f"), 12.0);
}

TEST(Pcsscanf, PrecisionOfATextCutsNothing) {
    EXPECT_EQ(field("a.bcdef", "%.2s"), "a.bcdef0");
    EXPECT_EQ(field("a.bcdef,", "%3.2s,"), "a.b");
}

TEST(Pcsscanf, OutputsMayStandAnywhere) {
    char bytes[20] = {};
    EXPECT_EQ(pcsscanf("258,259,0.5", "%d,%h,%f", bytes + 1, bytes + 5, bytes + 7), 0);
    std::int32_t number;
    std::int16_t half;
    double real;
    std::memcpy(&number, bytes + 1, 4);
    std::memcpy(&half, bytes + 5, 2);
    std::memcpy(&real, bytes + 7, 8);
    EXPECT_EQ(number, 258);
    EXPECT_EQ(half, 259);
    EXPECT_EQ(real, 0.5);
}

TEST(Pcsscanf, ManyConversionsFindTheirPointers) {
    std::int32_t n[12] = {};
    EXPECT_EQ(pcsscanf("0,1,2,3,4,5,6,7,8,9,10,11", "%d,%d,%d,%d,%d,%d,%d,%d,%d,%d,%d,%d", n, n + 1,
                       n + 2, n + 3, n + 4, n + 5, n + 6, n + 7, n + 8, n + 9, n + 10, n + 11),
              0);
    for (int i = 0; i < 12; ++i)
        EXPECT_EQ(n[i], i);
}

TEST(Pcsscanf, OutputMayBeTheTextItself) {
    char text[] = "one,two,three";
    Text rest;
    EXPECT_EQ(pcsscanf(text, "%s,%s", text + 4, rest.bytes), 0);
    EXPECT_STREQ(text, "one,one");
    EXPECT_EQ(rest.stored(), "two,three0") << "the text was copied first";
}

// ---- copies and failures ----

namespace {

struct Entered {
    std::size_t size;
    std::string file;
    int line;
};
std::vector<Entered> entered;
int removed = 0;

class Tracing {
  public:
    Tracing() {
        entered.clear();
        removed = 0;
        memTraceTable = {[](void*, std::size_t size, const char* file, int line) {
                             entered.push_back({size, file, line});
                         },
                         [](void*) { ++removed; }};
        memTraceEnabled = true;
    }
    ~Tracing() {
        memTraceEnabled = false;
        memTraceTable = m_saved;
    }

  private:
    MemTraceTable m_saved = memTraceTable;
};

} // namespace

TEST(Pcsscanf, CopiesOfTextAndFormatAreTraced) {
    std::int32_t value = kUnset;
    {
        const Tracing tracing;
        EXPECT_EQ(pcsscanf("12345", "%d", &value), 0);
    }
    ASSERT_EQ(entered.size(), 2u);
    EXPECT_EQ(entered[0].size, 6u);
    EXPECT_EQ(entered[0].file, "libn/src/pcsscanf");
    EXPECT_EQ(entered[0].line, 237);
    EXPECT_EQ(entered[1].size, 3u);
    EXPECT_EQ(entered[1].file, "libn/src/pcsscanf");
    EXPECT_EQ(entered[1].line, 238);
    EXPECT_EQ(removed, 2);
}

TEST(Pcsscanf, FailedCopyIsAFailureAndLosesNothing) {
    const std::string text(99, '7');
    std::int32_t value = kUnset;
    for (const std::size_t size : {std::size_t{100}, std::size_t{3}, std::size_t{0}}) {
        const std::uint32_t allocated = memCountMalloc;
        const std::uint32_t freed = memCountFree;
        {
            const FailingMalloc failing(size);
            EXPECT_EQ(pcsscanf(text.c_str(), "%d", &value), 1) << size;
        }
        EXPECT_EQ(value, kUnset);
        const std::uint32_t made = size == 3 ? 1 : 0;
        EXPECT_EQ(memCountFree - freed, made) << size;
        EXPECT_EQ(memCountMalloc - allocated, 1 + made) << "asked for";
    }
    EXPECT_EQ(pcsscanf(text.c_str(), "%d", &value), 0);
    EXPECT_EQ(value, std::numeric_limits<std::int32_t>::max());
}

TEST(Pcsscanf, LargeTextIsNotedLikeAnyLargeBlock) {
    const CapturedLog log;
    std::int32_t value = kUnset;
    EXPECT_EQ(pcsscanf(("5," + std::string(3'000'000, 'x')).c_str(), "%d,", &value), 0);
    EXPECT_EQ(value, 5);
    EXPECT_EQ(log.messages(CapturedLog::events),
              std::vector<std::string>{
                  "Allocating big chunk of memory(3000003) at libn/src/pcsscanf:237"});
}

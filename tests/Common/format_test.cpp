#include "dw_util/format.h"

#include <gtest/gtest.h>

#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>

namespace {

std::string format(const char* text, ...) {
    char out[512];
    std::va_list arguments;
    va_start(arguments, text);
    const int length = formatText(out, sizeof out, text, arguments);
    va_end(arguments);
    EXPECT_EQ(length, static_cast<int>(std::string(out).size()));
    return out;
}

std::string zeroes(const char* text, std::size_t size = 512) {
    std::string out(size, '#');
    const int length = formatWithZeroes(out.data(), size, text);
    EXPECT_GE(length, 0);
    return out.c_str();
}

const void* const kPointer = reinterpret_cast<const void*>(std::uintptr_t{0xABCDEF});

} // namespace

TEST(Format, OrdinaryConversionsAreTheRunTimes) {
    EXPECT_EQ(format("plain"), "plain");
    EXPECT_EQ(format("%d%% %-4s| %05.1f %#x", 7, "ab", 2.25, 14), "7% ab  | 002.2 0xe");
    EXPECT_EQ(format("%llu %zu %*d", 5ull, sizeof(int), 4, 9), "5 4    9");
}

TEST(Format, PointersHaveOneForm) {
    EXPECT_EQ(format("%p", kPointer), "0000000000ABCDEF");
    EXPECT_EQ(format("<%20p>", kPointer), "<    0000000000ABCDEF>");
    EXPECT_EQ(format("<%-20p>", kPointer), "<0000000000ABCDEF    >");
    EXPECT_EQ(format("%p", static_cast<void*>(nullptr)), "0000000000000000");
}

TEST(Format, WideLengthModifiersAreUnderstood) {
    const std::int64_t wide = -0x100000000;
    EXPECT_EQ(format("%I64d", wide), "-4294967296");
    EXPECT_EQ(format("%I32d %I32u", -3, 3u), "-3 3");
    EXPECT_EQ(format("%08IX", std::size_t{0xBEEF}), "0000BEEF");
    EXPECT_EQ(format("%Ix", std::size_t{1} << 40), "10000000000");
    EXPECT_EQ(format("%*I64d|%d", 6, std::int64_t{42}, 1), "    42|1");
}

TEST(Format, CommonConversionsAreThoseOfTheRunTime) {
    const char* const none = nullptr;
    EXPECT_EQ(format("%d %i %d", 0, -17, std::numeric_limits<int>::min()), "0 -17 -2147483648");
    EXPECT_EQ(format("%u %x", std::numeric_limits<unsigned>::max(), 0xBEEFu), "4294967295 beef");
    EXPECT_EQ(format("%ld|%lu|%lx", -5L, 5UL, 0xFEL), "-5|5|fe");
    EXPECT_EQ(format("%lld %llu %llx", std::numeric_limits<long long>::min(),
                     std::numeric_limits<unsigned long long>::max(), 1ull << 63),
              "-9223372036854775808 18446744073709551615 8000000000000000");
    EXPECT_EQ(format("%zd %zu %zx", static_cast<std::ptrdiff_t>(-1), sizeof(char),
                     std::numeric_limits<std::size_t>::max()),
              "-1 1 ffffffffffffffff");
    EXPECT_EQ(format("%s%s|%c%%", "", "text", '!'), "text|!%");
    EXPECT_EQ(format("%s", none), format("%0s", none));
    EXPECT_EQ(format(""), "");
    EXPECT_EQ(format("%li %5d|%ls", 1L, 2, L"wide"), "1     2|wide");
}

TEST(Format, CommonConversionsAreCutAndCounted) {
    const auto cut = [](std::size_t size, const char* text, ...) {
        char out[16] = "###############";
        std::va_list arguments;
        va_start(arguments, text);
        const int length = formatText(out, size, text, arguments);
        va_end(arguments);
        return std::to_string(length) + ":" + out;
    };
    EXPECT_EQ(cut(4, "%d", 12345), "5:123");
    EXPECT_EQ(cut(4, "%s%s", "ab", "cdef"), "6:abc");
    EXPECT_EQ(cut(4, "abc%d%d", 1, 2), "5:abc");
    EXPECT_EQ(cut(6, "abc%d%d", 1, 2), "5:abc12");
    EXPECT_EQ(cut(1, "%s", "abc"), "3:");
    EXPECT_EQ(cut(0, "%s", "abc"), "3:###############");
}

TEST(Format, ZeroCharacterIsCounted) {
    char out[8];
    const auto put = [&out](const char* text, ...) {
        std::va_list arguments;
        va_start(arguments, text);
        const int length = formatText(out, sizeof out, text, arguments);
        va_end(arguments);
        return length;
    };
    EXPECT_EQ(put("a%cb", 0), 3);
    EXPECT_EQ(std::string(out, 4), std::string("a\0b\0", 4));
}

TEST(Format, RareConversionsAreFoundBehindCommonOnes) {
    EXPECT_EQ(format("%d %-5s|%05.1f%% %p", 1, "ab", 2.25, kPointer),
              "1 ab   |002.2% 0000000000ABCDEF");
    EXPECT_EQ(format("%s%%%lld%I64d", "x", 5ll, std::int64_t{6}), "x%56");
    EXPECT_EQ(format("%zu%08IX", sizeof(int), std::size_t{0xBEEF}), "40000BEEF");
    EXPECT_EQ(format("%%I64d%%p%%n"), "%I64d%p%n");
}

TEST(Format, StoreCountStoresNothingAndTakesItsArgument) {
    // The bytes are a text as well, since a checker of formats may look at them as one.
    int count[2] = {0x01010101, 0};
    EXPECT_EQ(format("ab%ncd %d", count, 5), "abcd 5");
    EXPECT_EQ(count[0], 0x01010101);
    EXPECT_EQ(format("ab%I64n %5n|%d", count, count, 6), "ab |6");
    EXPECT_EQ(count[0], 0x01010101);
}

TEST(Format, IsCutAndTerminated) {
    char out[4] = {'#', '#', '#', '#'};
    std::va_list none{};
    EXPECT_EQ(formatText(out, sizeof out, "abcdef", none), 6);
    EXPECT_STREQ(out, "abc");
}

TEST(Format, HugeWidthsAndPrecisionsAreBounded) {
    const std::string blanks(511, ' ');
    char out[512] = {};
    for (const char* text : {"%99999999d", "%1000000000s", "%123456.3f", "%99999I64d"}) {
        EXPECT_EQ(formatWithZeroes(out, sizeof out, text), 8192) << text;
        EXPECT_EQ(out, blanks) << text;
    }
    EXPECT_EQ(formatWithZeroes(out, sizeof out, "%.99999d"), 8192);
    EXPECT_EQ(out, std::string(511, '0'));
    EXPECT_EQ(formatWithZeroes(out, sizeof out, "%9999d|"), 10000);
    EXPECT_EQ(formatWithZeroes(out, sizeof out, "%92600.02000e"), 8192);
    EXPECT_EQ(formatWithZeroes(out, sizeof out, "%.02000f"), 2002);
    EXPECT_EQ(zeroes("%.000005d|%.00000d|%.0000p"), "00000||0000000000000000");
    const auto formatted = [&out](const char* text, ...) {
        std::va_list arguments;
        va_start(arguments, text);
        const int length = formatText(out, sizeof out, text, arguments);
        va_end(arguments);
        return length;
    };
    EXPECT_EQ(formatted("%99999999d|%.77777s", 5, "x"), 8194);
    EXPECT_EQ(out, blanks);
    EXPECT_EQ(formatted("%-99999p", kPointer), 8192);
    EXPECT_EQ(std::string(out), "0000000000ABCDEF" + blanks.substr(16));
}

TEST(Format, VeryLongPortableFormIsCut) {
    std::string text;
    for (int i = 0; i < 3000; ++i)
        text += "%%%%";
    text += "%p";
    char out[64] = {};
    std::va_list none{};
    formatText(out, sizeof out, text.c_str(), none);
    EXPECT_EQ(std::string(out), std::string(63, '%'));
}

TEST(FormatWithZeroes, TextWithoutConversionsStands) {
    EXPECT_EQ(zeroes(""), "");
    EXPECT_EQ(zeroes("name()<data.vd>"), "name()<data.vd>");
}

TEST(FormatWithZeroes, EveryConversionFindsZero) {
    EXPECT_EQ(zeroes("a%db%ic%ud%xe%Xf%og"), "a0b0c0d0e0f0g");
    EXPECT_EQ(zeroes("%lld %hhu %I64d %zx %08IX"), "0 0 0 0 00000000");
    EXPECT_EQ(zeroes("%f %.2e %g"), "0.000000 0.00e+00 0");
    EXPECT_EQ(zeroes("%Lf %a"), "0.000000 0x0p+0");
    EXPECT_EQ(zeroes("%s|%10s|%.3s"), "(null)|    (null)|(nu");
    EXPECT_EQ(zeroes("%p"), "0000000000000000");
    EXPECT_EQ(zeroes("%5d|%-5d|%05d|%+d"), "    0|0    |00000|+0");
}

TEST(FormatWithZeroes, NumbersAsArgumentsAreZero) {
    EXPECT_EQ(zeroes("[%*d][%.*f]"), "[0][0]");
}

TEST(FormatWithZeroes, StoreCountPrintsAndStoresNothing) {
    EXPECT_EQ(zeroes("a%nb%lln"), "ab");
}

TEST(FormatWithZeroes, PercentSignsAndUnknownConversions) {
    EXPECT_EQ(zeroes("100%%"), "100%");
    EXPECT_EQ(zeroes("100%"), "100%");
    EXPECT_EQ(zeroes("50% off"),
              "50"
              "0ff");
    EXPECT_EQ(zeroes("%y %k"), "%y %k");
    EXPECT_EQ(zeroes("%1$d"), "%1$d");
    EXPECT_EQ(zeroes("%30*****0x|%5.*.3d"), "%30*****0x|%5.*.3d") << "two widths are none";
}

TEST(FormatWithZeroes, ZeroCharacterEndsTheText) {
    std::string out(16, '#');
    EXPECT_EQ(formatWithZeroes(out.data(), out.size(), "a%cb"), 3);
    EXPECT_EQ(out.substr(0, 4), std::string("a\0b\0", 4));
}

TEST(FormatWithZeroes, IsCutAndTerminated) {
    EXPECT_EQ(zeroes("abcdef", 4), "abc");
    EXPECT_EQ(zeroes("ab%10d", 6), "ab   ");
    EXPECT_EQ(zeroes("%99999999d", 6), "     ");
    EXPECT_EQ(zeroes("abc", 1), "");
    const std::string pattern = "%" + std::string(100, '+') + "d";
    EXPECT_EQ(zeroes(pattern.c_str()), pattern) << "too long for any conversion";
}

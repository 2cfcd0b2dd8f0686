// The line that describes an exception.

#include <gtest/gtest.h>

#include <cinttypes>
#include <cstdio>
#include <string>

#include "diagnostics/crashDumps.h"
#include "platform/fault.h"

namespace {

std::string textOf(sExceptionRecord& record) {
    sExceptionPointers pointers = {&record, nullptr};
    return exceptionText(&pointers);
}

[[gnu::noinline]] void someCode() {
    asm volatile("");
}

} // namespace

TEST(ExceptionText, NullGivesAnEmptyText) {
    EXPECT_EQ(exceptionText(nullptr), "");
}

TEST(ExceptionText, AddressOutsideAllModulesHasSectionAndOffsetZero) {
    sExceptionRecord record = {};
    record.code = 0xC0000094;
    record.address = reinterpret_cast<void*>(16);
    EXPECT_EQ(textOf(record),
              "Exception 0xC0000094 occurred at address 0x0000000000000010 "
              "(00:00000000 ) params:");
}

TEST(ExceptionText, CodeHasNoWidthAndParametersHaveEightDigits) {
    sExceptionRecord record = {};
    record.code = 0x6BB;
    record.parameterCount = 3;
    record.parameters[0] = 1;
    record.parameters[1] = 0xABCDEF012345;
    EXPECT_EQ(textOf(record),
              "Exception 0x6BB occurred at address 0x0000000000000000 "
              "(00:00000000 ) params: 0x00000001, 0xABCDEF012345, 0x00000000");
}

TEST(ExceptionText, AddressOfCodeHasModuleSectionAndOffset) {
    someCode();
    sExceptionRecord record = {};
    record.code = 0xC0000005;
    record.address = reinterpret_cast<void*>(&someCode);
    const platform::AddressPlace place = platform::placeOfAddress(record.address);
    ASSERT_GT(place.section, 0u);
    char expected[600];
    std::snprintf(expected, sizeof expected,
                  "Exception 0xC0000005 occurred at address 0x%016" PRIXPTR " (%02" PRIX32
                  ":%08" PRIX64 " %s) params:",
                  reinterpret_cast<std::uintptr_t>(record.address), place.section, place.offset,
                  place.module);
    EXPECT_EQ(textOf(record), expected);
}

TEST(ExceptionText, CountOfABrokenRecordIsCutAtFifteen) {
    sExceptionRecord record = {};
    record.parameterCount = 15;
    const std::string whole = textOf(record);
    record.parameterCount = 0x10000;
    EXPECT_EQ(textOf(record), whole);
}

// The exception that stands for a structured one.

#include "se/sehError.h"

#include <gtest/gtest.h>

#include <string>
#include <type_traits>

namespace {

sExceptionRecord recordOf(std::uint32_t code, std::uint64_t address) {
    sExceptionRecord record = {};
    record.code = code;
    record.address = reinterpret_cast<void*>(address);
    return record;
}

} // namespace

TEST(SehError, TextOfARecordWithoutParametersEndsBehindTheColon) {
    EXPECT_STREQ(sehErrorOf(recordOf(0xC0000094, 0x1234)).what(),
                 "Exception 0xC0000094 occurred at address 0x00001234. Parameters:.");
}

TEST(SehError, NumbersHaveEightDigitsAtLeast) {
    EXPECT_STREQ(sehErrorOf(recordOf(1, 0x7F12345678AB)).what(),
                 "Exception 0x00000001 occurred at address 0x7F12345678AB. Parameters:.");
    EXPECT_STREQ(sehErrorOf(recordOf(0, 0)).what(),
                 "Exception 0x00000000 occurred at address 0x00000000. Parameters:.");
}

TEST(SehError, ParametersHaveSixteenDigits) {
    sExceptionRecord record = recordOf(0xC0000005, 0x10);
    record.parameterCount = 2;
    record.parameters[0] = 1;
    record.parameters[1] = 0xABCDEF;
    record.parameters[2] = 99; // not counted
    EXPECT_STREQ(sehErrorOf(record).what(),
                 "Exception 0xC0000005 occurred at address 0x00000010. Parameters: "
                 "0x0000000000000001 0x0000000000ABCDEF.");
}

TEST(SehError, AllFifteenParametersAreTold) {
    sExceptionRecord record = recordOf(0xE0000001, ~std::uint64_t{0});
    record.parameterCount = 15;
    std::string list;
    for (unsigned i = 0; i < 15; ++i) {
        record.parameters[i] = ~std::uint64_t{0} - i;
        list += std::string(" 0xFFFFFFFFFFFFFFF") + "FEDCBA9876543210"[i];
    }
    EXPECT_EQ(sehErrorOf(record).what(),
              "Exception 0xE0000001 occurred at address "
              "0xFFFFFFFFFFFFFFFF. Parameters:" +
                  list + ".");
}

TEST(SehError, CountOfABrokenRecordIsCutAtFifteen) {
    sExceptionRecord record = recordOf(0xE0000001, 0);
    record.parameterCount = 15;
    const std::string whole = sehErrorOf(record).what();
    record.parameterCount = 0xffffffff;
    EXPECT_EQ(sehErrorOf(record).what(), whole);
}

TEST(SehError, CarriesTheCodeAndNoPlace) {
    const CSEHError error = sehErrorOf(recordOf(0xC0000005, 0));
    EXPECT_EQ(static_cast<std::uint32_t>(error.code), 0xC0000005u);
    EXPECT_EQ(error.line, 0);
    EXPECT_STREQ(error.file, "");
    static_assert(std::is_base_of_v<CError, CSEHError>);
}

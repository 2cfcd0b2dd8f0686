#include "platform/error.h"

#include <gtest/gtest.h>

#include <string>
#include <system_error>

namespace {

std::string textOf(std::uint32_t code, std::size_t size = 512) {
    std::string text(size, '#');
    platform::systemErrorText(code, text.data(), size);
    return text.c_str();
}

} // namespace

TEST(SystemError, TextIsThatOfTheSystemCategory) {
    for (const std::uint32_t code : {1u, 2u, 5u, 13u, 32u})
        EXPECT_EQ(textOf(code), std::system_category().message(static_cast<int>(code))) << code;
    EXPECT_NE(textOf(2), textOf(5));
}

TEST(SystemError, UnknownNumberHasTheFamilysText) {
    EXPECT_EQ(textOf(123456789), "unknown error");
}

TEST(SystemError, TextIsCutAtTheSizeOfTheBuffer) {
    const std::string whole = textOf(2);
    ASSERT_GT(whole.size(), 5u);
    EXPECT_EQ(textOf(2, 5), whole.substr(0, 4));
    EXPECT_EQ(textOf(2, 1), "");
    char untouched = '#';
    platform::systemErrorText(2, &untouched, 0);
    EXPECT_EQ(untouched, '#');
}

TEST(SystemError, LastErrorIsKept) {
    platform::setLastError(5);
    EXPECT_EQ(platform::lastError(), 5u);
    {
        const platform::LastErrorKeeper keeper;
        platform::setLastError(2);
    }
    EXPECT_EQ(platform::lastError(), 5u);
}

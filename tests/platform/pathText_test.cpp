#include "platform/pathText.h"

#include <gtest/gtest.h>

#include <clocale>
#include <string>

#include "platform/process.h"

TEST(PathText, PlainNamesStay) {
    for (const char* name : {"", "a", "alert.vd", "some folder/alert 1.vd", "%d%n"}) {
        EXPECT_EQ(platform::pathOfName(name), std::filesystem::path(name)) << name;
        EXPECT_EQ(platform::narrowName(std::filesystem::path(name)), name) << name;
    }
}

TEST(PathText, LastPartOfAPath) {
    const std::string separator(1, platform::pathForm.separator);
    const auto path = platform::pathOfName("folder" + separator + "alert.vd");
    EXPECT_EQ(platform::narrowName(path.filename()), "alert.vd");
    EXPECT_EQ(platform::narrowName(path), "folder" + separator + "alert.vd");
}

#ifdef _WIN32
TEST(PathText, NameWithoutAPlaceInTheCodePageIsNoOtherName) {
    // The best fit of this letter would be "A", another file's name.
    const std::string name = platform::narrowName(std::filesystem::path(L"\x0100.vd"));
    EXPECT_NE(name, "A.vd");
    EXPECT_EQ(name.substr(name.size() - 3), ".vd");
}

TEST(PathText, LocaleOfTheProcessDecides) {
    ASSERT_NE(std::setlocale(LC_CTYPE, ".1251"), nullptr);
    EXPECT_EQ(platform::pathOfName("\xC0.vd").native(), L"\x0410.vd");
    ASSERT_NE(std::setlocale(LC_CTYPE, ".1252"), nullptr);
    EXPECT_EQ(platform::pathOfName("\xC0.vd").native(), L"\x00C0.vd");
    std::setlocale(LC_CTYPE, "C");
}

TEST(PathText, WithoutALocaleTheCodePageIsThatOfTheProcess) {
    const std::filesystem::path name(L"\x00E4.vd");
    EXPECT_EQ(platform::pathOfName(platform::narrowName(name)), name);
}
#else
TEST(PathText, BytesStayAsTheyAre) {
    const std::string name = "\xFF\xC3\xA4\x80.vd";
    EXPECT_EQ(platform::pathOfName(name).native(), name);
    EXPECT_EQ(platform::narrowName(platform::pathOfName(name)), name);
}
#endif

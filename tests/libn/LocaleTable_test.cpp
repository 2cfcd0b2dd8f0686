#include "libn/LocaleTable.h"

#include <gtest/gtest.h>

#include <map>

namespace {

// The table as an initialiser of another file sees it, whichever runs first.
const std::size_t sizeAtLoad = localeTable().size();

} // namespace

TEST(LocaleTable, HoldsTheLanguagesOfTheHosts) {
    const std::map<std::uint32_t, std::string> wanted = {
        {25, "ru_RU.UTF8"},    {1049, "ru_RU.UTF8"},

        {9, "en_US.UTF8"},     {1033, "en_US.UTF8"},  {2057, "en_GB.UTF8"},  {3081, "en_AU.UTF8"},
        {4105, "en_CA.UTF8"},  {5129, "en_NZ.UTF8"},  {6153, "en_IE.UTF8"},  {7177, "en_ZA.UTF8"},
        {8201, "en_JM.UTF8"},  {10249, "en_BZ.UTF8"}, {11273, "en_TT.UTF8"}, {12297, "en_ZW.UTF8"},
        {13321, "en_PH.UTF8"}, {15369, "en_HK.UTF8"}, {16393, "en_IN.UTF8"}, {17417, "en_MY.UTF8"},
        {18441, "en_SG.UTF8"}, {19465, "en_AE.UTF8"},
    };
    const LocaleTable& table = localeTable();
    EXPECT_EQ(table.size(), 20u);
    EXPECT_EQ((std::map<std::uint32_t, std::string>(table.begin(), table.end())), wanted);
}

TEST(LocaleTable, IsOneTableAndFullForInitialisers) {
    EXPECT_EQ(&localeTable(), &localeTable());
    EXPECT_EQ(sizeAtLoad, 20u);
}

// Every field of every kind comes out as the sample writer put it in, and filters choose.

#include <gtest/gtest.h>

#include "sample/output.h"
#include "support/expected.h"
#include "support/json.h"
#include "support/process.h"
#include "support/tempFolder.h"

using namespace toolTest;

namespace {

// A folder with a small market in it.
class VdcatRecords : public testing::Test {
  protected:
    VdcatRecords()
        : market(sample::makeMarket({.classes = 6,
                                     .securities = 60,
                                     .params = 26,
                                     .limits = 20,
                                     .positions = 30,
                                     .changes = 12,
                                     .alerts = 14,
                                     .maxSecs = 2'000})) {
        sample::writeMarket(folder.path(), market);
    }

    std::vector<boost::json::object> lines(std::vector<std::string> arguments) const {
        arguments.insert(arguments.begin() + 1, folder.name());
        const RunResult result = vdcat(arguments);
        EXPECT_EQ(result.code, 0);
        EXPECT_EQ(result.err, "");
        return parseLines(result.out);
    }

    TempFolder folder;
    sample::Market market;
};

TEST_F(VdcatRecords, ClassesShowAllFields) {
    const auto shown = lines({"classes"});
    ASSERT_EQ(shown.size(), 6u);
    for (std::size_t i = 0; i < shown.size(); ++i)
        expectSameFields(shown[i], expectedClass(market.classes[i]));
}

TEST_F(VdcatRecords, SecuritiesShowAllFields) {
    for (const std::uint16_t lang : {0, 1}) {
        const auto shown = lines({"securities", "--lang", std::to_string(lang)});
        ASSERT_EQ(shown.size(), 60u);
        std::size_t at = 0;
        for (const sample::ClassRecord& record : market.classes)
            for (const sample::Security& security : record.securities)
                expectSameFields(shown[at++], expectedSecurity(record, security, lang));
    }
}

TEST_F(VdcatRecords, ParamsShowAllFields) {
    for (const std::uint16_t lang : {0, 1, 2}) {
        const auto shown = lines({"params", "--lang", std::to_string(lang)});
        ASSERT_EQ(shown.size(), 6 * 26u);
        for (std::size_t i = 0; i < shown.size(); ++i)
            expectSameFields(shown[i], expectedParam(market.classes[i / 26], i % 26, lang));
    }
}

TEST_F(VdcatRecords, LimitsShowAllFields) {
    const auto shown = lines({"limits"});
    ASSERT_EQ(shown.size(), 20u);
    for (std::size_t i = 0; i < shown.size(); ++i)
        expectSameFields(shown[i], expectedLimit(market.limits[i]));
}

TEST_F(VdcatRecords, PositionsShowAllFields) {
    const auto shown = lines({"positions"});
    ASSERT_EQ(shown.size(), 30u);
    for (std::size_t i = 0; i < shown.size(); ++i)
        expectSameFields(shown[i], expectedPosition(market.positions[i]));
}

TEST_F(VdcatRecords, InfoCountsEachKind) {
    const auto shown = lines({"info"});
    ASSERT_EQ(shown.size(), 8u);
    const char* kinds[] = {"classes", "securities", "params", "last",
                           "journal", "alerts",     "limits", "positions"};
    const std::size_t counts[] = {6, 60, 6 * 26, market.slots.size(), 12, 14, 20, 30};
    EXPECT_LT(market.slots.size(), 60u);
    for (std::size_t i = 0; i < 8; ++i)
        expectSameFields(
            shown[i],
            {{"kind", kinds[i]}, {"state", "ready"}, {"count", counts[i]}, {"error", nullptr}});
}

TEST_F(VdcatRecords, IniFileGivesTheSameAsTheFolder) {
    for (const char* kind : {"info", "classes", "securities", "params", "last", "journal", "alerts",
                             "limits", "positions"}) {
        const RunResult byFolder = vdcat({kind, folder.name()});
        const RunResult byIni = vdcat({kind, "--ini", folder.file("vdreader.ini")});
        EXPECT_EQ(byIni.code, 0) << byIni.err;
        EXPECT_EQ(byIni.out, byFolder.out);
        EXPECT_FALSE(byIni.out.empty());
    }
}

TEST_F(VdcatRecords, RelativeNamesCountFromTheWorkingDirectory) {
    const auto former = std::filesystem::current_path();
    std::filesystem::current_path(folder.path().parent_path());
    const std::string name = folder.path().filename().string();
    const RunResult byName = vdcat({"info", name});
    const RunResult byDots = vdcat({"info", "./" + name + "/../" + name + "/"});
    const RunResult byIni = vdcat({"info", "--ini", name + "/vdreader.ini"});
    const RunResult bySample = vdsample({name + "/inner"});
    std::filesystem::current_path(former);
    EXPECT_EQ(byName.code, 0) << byName.out;
    EXPECT_EQ(byDots.code, 0) << byDots.out;
    EXPECT_EQ(byIni.code, 0) << byIni.out;
    EXPECT_EQ(bySample.code, 0) << bySample.err;
    EXPECT_EQ(vdcat({"info", "--ini", folder.file("inner") + "/vdreader.ini"}).code, 0);
}

TEST_F(VdcatRecords, SectionOfTheIniFileAndItsFilterCount) {
    sample::writeFile(folder.path() / "other.ini",
                      "[other]\nclasses = " + folder.file("class.vd") + "\nclass_filter = FX01\n");
    const RunResult result = vdcat({"classes", "--ini", folder.file("other.ini"), "--section",
                                    "other", "--fields", "class_code"});
    EXPECT_EQ(result.out, "{\"class_code\":\"FX01\"}\n") << result.err;
}

TEST_F(VdcatRecords, FieldsComeInTheOrderAsked) {
    const RunResult result =
        vdcat({"limits", "--fields", "kgo,firmid,kgo", folder.name(), "--limit", "1"});
    std::string line = result.out.substr(0, result.out.find('\n'));
    EXPECT_TRUE(line.starts_with("{\"kgo\":")) << line;
    EXPECT_NE(line.find(",\"firmid\":\"FIRM0001\",\"kgo\":"), std::string::npos) << line;
    EXPECT_EQ(result.code, 0);
}

TEST_F(VdcatRecords, ClassAndSecurityChoose) {
    for (const auto& line : lines({"securities", "--class", "BOND01"}))
        EXPECT_EQ(line.at("class_code"), "BOND01");
    EXPECT_EQ(lines({"securities", "--class", "BOND01"}).size(), 10u);
    EXPECT_EQ(lines({"params", "--class", "BOND01"}).size(), 26u);
    EXPECT_EQ(lines({"classes", "--class", "BOND01"}).size(), 1u);
    EXPECT_EQ(lines({"classes", "--class", "BOND"}).size(), 0u);
    EXPECT_EQ(lines({"securities", "--class", "NONE"}).size(), 0u);

    const std::string code = market.classes[3].securities[4].sec_code;
    const auto one = lines({"securities", "--sec", code});
    ASSERT_EQ(one.size(), 1u);
    expectSameFields(one[0],
                     expectedSecurity(market.classes[3], market.classes[3].securities[4], 0));
    EXPECT_EQ(lines({"securities", "--sec", code, "--class", "FX01"}).size(), 0u);

    const std::string held = market.positions[0].seccode;
    std::size_t count = 0;
    for (const sample::FutPosition& position : market.positions)
        count += position.seccode == held ? 1 : 0;
    EXPECT_EQ(lines({"positions", "--sec", held}).size(), count);
}

TEST_F(VdcatRecords, LimitStopsTheWalk) {
    for (const char* kind : {"classes", "securities", "params", "last", "journal", "alerts",
                             "limits", "positions", "info"}) {
        EXPECT_EQ(lines({kind, "--limit", "3"}).size(), 3u) << kind;
        EXPECT_EQ(lines({kind, "--limit", "0"}).size(), 0u) << kind;
        EXPECT_GE(lines({kind, "--limit", "18446744073709551615"}).size(), 5u) << kind;
    }
}

TEST_F(VdcatRecords, UnknownLanguageIsNull) {
    const auto shown = lines({"securities", "--lang", "9", "--limit", "1"});
    ASSERT_EQ(shown.size(), 1u);
    EXPECT_TRUE(shown[0].at("short_name").is_null());
    EXPECT_TRUE(shown[0].at("long_name").is_null());
}

TEST_F(VdcatRecords, EmptyFilesGiveNoRecords) {
    sample::writeFile(folder.path() / "flimit.vd", "");
    sample::writeFile(folder.path() / "fclipos.vd", std::string(167, 'x'));
    EXPECT_EQ(lines({"limits"}).size(), 0u);
    EXPECT_EQ(lines({"positions"}).size(), 0u);
}

} // namespace

// Latest values, change records and alerts come out as the sample writer put them in.

#include <gtest/gtest.h>

#include <algorithm>
#include <charconv>

#include "sample/output.h"
#include "support/expected.h"
#include "support/json.h"
#include "support/process.h"
#include "support/tempFolder.h"

using namespace toolTest;

namespace {

std::string digitsOf(double value) {
    char digits[40];
    return std::string(digits, std::to_chars(digits, digits + sizeof digits, value).ptr);
}

class VdcatMarket : public testing::Test {
  protected:
    VdcatMarket()
        : market(sample::makeMarket({.classes = 4,
                                     .securities = 80,
                                     .params = 30,
                                     .limits = 10,
                                     .positions = 0,
                                     .changes = 60,
                                     .alerts = 50,
                                     .maxSecs = 2'000})) {
        sample::writeMarket(folder.path(), market);
    }

    const sample::Slot* slotOf(const sample::Security& security) const {
        const auto found = market.slots.find(security.sec_id);
        return found == market.slots.end() ? nullptr : &found->second;
    }

    std::string show(std::vector<std::string> arguments) const {
        arguments.insert(arguments.begin() + 1, folder.name());
        const RunResult result = vdcat(arguments);
        EXPECT_EQ(result.code, 0);
        EXPECT_EQ(result.err, "");
        return result.out;
    }

    // One class with these parameters and one security of this slot.
    void writeOne(std::vector<sample::Param> params, const sample::Slot& slot,
                  const std::vector<sample::Record>& changes = {}) {
        sample::ClassRecord record;
        record.classId = 7;
        record.classCode = "A";
        record.params = std::move(params);
        record.securities.resize(1);
        record.securities[0].sec_id = 3;
        record.securities[0].sec_code = "S";
        sample::writeFile(folder.path() / "class.vd", sample::encodeClassFile({record}));
        sample::DataFile file;
        file.header.maxSecs = 100;
        file.slots[3] = slot;
        file.slots[3].class_id = 7;
        file.eventPages = sample::packRecords(changes, file.header.eventPageSize);
        sample::writeDataFile(folder.path() / "data.vd", file);
    }

    TempFolder folder;
    sample::Market market;
};

sample::Param paramOf(const char* name, bool isDouble) {
    sample::Param param;
    param.db_name = name;
    param.flags = isDouble;
    return param;
}

TEST_F(VdcatMarket, LastShowsTheValuesOfEverySecurity) {
    const auto shown = parseLines(show({"last"}));
    ASSERT_EQ(shown.size(), 80u);
    std::size_t at = 0;
    std::size_t without = 0;
    for (const sample::ClassRecord& record : market.classes)
        for (const sample::Security& security : record.securities) {
            without += !slotOf(security);
            expectSameFields(shown[at++], expectedLast(record, security, slotOf(security)));
        }
    EXPECT_GT(without, 0u);
}

TEST_F(VdcatMarket, LastInRowsHasOneForEachValue) {
    std::string expected = "class_code,sec_code,index,param,value\r\n";
    for (const sample::ClassRecord& record : market.classes)
        for (const sample::Security& security : record.securities)
            for (std::size_t i = 0; slotOf(security) && i < record.params.size(); ++i) {
                const sample::Slot& slot = *slotOf(security);
                if (slot.has(i))
                    expected += record.classCode + "," + security.sec_code + "," +
                                std::to_string(i) + "," + record.params[i].db_name + "," +
                                (record.params[i].flags & 1 ? digitsOf(slot.doubleAt(i))
                                                            : std::to_string(slot.longAt(i))) +
                                "\r\n";
            }
    EXPECT_EQ(show({"last", "--csv"}), expected);
}

TEST_F(VdcatMarket, ClassAndSecurityChooseAmongValues) {
    const sample::ClassRecord& record = market.classes[2];
    const sample::Security& security = record.securities[5];
    EXPECT_EQ(parseLines(show({"last", "--class", record.classCode})).size(), 20u);
    const auto one = parseLines(show({"last", "--sec", security.sec_code}));
    ASSERT_EQ(one.size(), 1u);
    expectSameFields(one[0], expectedLast(record, security, slotOf(security)));
    EXPECT_EQ(show({"last", "--class", "NONE"}), "");
    EXPECT_EQ(show({"last", "--class", "BOND01", "--sec", "NONE"}), "");
}

TEST_F(VdcatMarket, LimitCountsRowsOrSecurities) {
    EXPECT_EQ(parseLines(show({"last", "--limit", "7"})).size(), 7u);
    const std::string rows = show({"last", "--csv", "--limit", "7"});
    EXPECT_EQ(std::count(rows.begin(), rows.end(), '\n'), 8);
}

TEST_F(VdcatMarket, ParameterWithoutNameGoesByItsPlace) {
    sample::Slot slot;
    slot.setLong(0, 5);
    slot.setDouble(1, -0.25);
    slot.setLong(2, 9); // no such parameter
    writeOne({paramOf("", false), paramOf("x\"y", true)}, slot);
    EXPECT_EQ(show({"last"}),
              "{\"class_code\":\"A\",\"sec_code\":\"S\",\"values\":"
              "{\"#0\":5,\"x\\\"y\":-0.25}}\n");
    EXPECT_EQ(show({"last", "--csv", "--fields", "param,value"}),
              "param,value\r\n#0,5\r\n\"x\"\"y\",-0.25\r\n");
}

// The library counts the parameters of a class in eight bits.
TEST_F(VdcatMarket, ClassOf256ParametersShowsNoValues) {
    sample::Slot slot;
    slot.setLong(0, 5);
    slot.setLong(1, 6);
    writeOne(std::vector<sample::Param>(256, paramOf("P", false)), slot);
    EXPECT_EQ(show({"last", "--fields", "values"}), "{\"values\":{}}\n");
    writeOne(std::vector<sample::Param>(257, paramOf("P", false)), slot);
    EXPECT_EQ(show({"last", "--fields", "values"}), "{\"values\":{\"P\":5}}\n");
}

TEST_F(VdcatMarket, JournalShowsAllFields) {
    const auto shown = parseLines(show({"journal"}));
    ASSERT_EQ(shown.size(), 60u);
    for (std::size_t i = 0; i < shown.size(); ++i) {
        const sample::Record& change = market.changes[i];
        for (const sample::ListedSecurity& listed : sample::listedSecurities(market))
            if (listed.security->sec_id == change.sec_id)
                expectSameFields(shown[i], expectedChange(*listed.owner, *listed.security, change));
    }
}

TEST_F(VdcatMarket, JournalGoesOverPages) {
    std::vector<sample::Record> changes(6000);
    for (std::size_t i = 0; i < changes.size(); ++i) {
        changes[i].dataField1 = static_cast<std::int32_t>(i);
        changes[i].sec_id = 3;
        changes[i].class_id = 7;
    }
    writeOne({}, {}, changes);
    const auto shown = parseLines(show({"journal", "--fields", "dataField1"}));
    ASSERT_EQ(shown.size(), 6000u);
    for (std::size_t i = 0; i < shown.size(); ++i)
        ASSERT_EQ(shown[i].at("dataField1"), i);
}

TEST_F(VdcatMarket, ClassAndSecurityChooseAmongChanges) {
    const std::uint32_t wanted = market.changes[0].sec_id;
    std::size_t ofSecurity = 0;
    std::size_t ofClass = 0;
    for (const sample::Record& change : market.changes) {
        ofSecurity += change.sec_id == wanted;
        ofClass += change.class_id == market.changes[0].class_id;
    }
    const auto first = parseLines(show({"journal", "--limit", "1"}));
    const std::string classCode(first.at(0).at("class_code").as_string());
    const std::string secCode(first.at(0).at("sec_code").as_string());
    EXPECT_EQ(parseLines(show({"journal", "--class", classCode})).size(), ofClass);
    EXPECT_EQ(parseLines(show({"journal", "--sec", secCode})).size(), ofSecurity);
    EXPECT_LT(ofSecurity, ofClass);
    EXPECT_LT(ofClass, 60u);
}

TEST_F(VdcatMarket, ChangeWhoseMaskDoesNotFitItsCountsHasNoNames) {
    sample::Record record;
    record.sec_id = 3;
    record.class_id = 7;
    record.mask = {1};
    record.longs = {8, 9};
    sample::Record other = record;
    other.mask = {4}; // no such parameter
    other.longs = {8};
    sample::Record third = record;
    third.longs = {};
    sample::Record good = record;
    good.mask = {3};
    good.longs = {-1};
    good.doubles = {0.5};
    writeOne({paramOf("L", false), paramOf("D", true)}, {}, {record, other, third, good});
    EXPECT_EQ(show({"journal", "--fields", "values,longs,doubles,mask"}),
              "{\"values\":null,\"longs\":[8,9],\"doubles\":[],\"mask\":\"01\"}\n"
              "{\"values\":null,\"longs\":[8],\"doubles\":[],\"mask\":\"04\"}\n"
              "{\"values\":null,\"longs\":[],\"doubles\":[],\"mask\":\"01\"}\n"
              "{\"values\":{\"L\":-1,\"D\":0.5},\"longs\":[-1],\"doubles\":[0.5],"
              "\"mask\":\"03\"}\n");
    EXPECT_EQ(show({"journal", "--table", "--fields", "values,longs"}),
              "values      longs\n-           8 9\n-           8\n-\nL=-1 D=0.5  -1\n");
}

TEST_F(VdcatMarket, AlertsShowAllFields) {
    const auto shown = parseLines(show({"alerts"}));
    ASSERT_EQ(shown.size(), 50u);
    for (std::size_t i = 0; i < shown.size(); ++i)
        expectSameFields(shown[i], expectedAlert(market.alerts[i], i));
}

TEST_F(VdcatMarket, BodiesThatAreNoTextsComeAsDigits) {
    std::vector<sample::Alert> alerts(5);
    alerts[0].body = std::string("a\0b", 3);
    alerts[1].body = "line\r\n\tnext";
    alerts[2].body = "\x1b[2J";
    alerts[3].body = "hidden";
    alerts[3].body_size = 0;
    alerts[4].body = "shortened";
    alerts[4].body_size = 5;
    sample::writeFile(folder.path() / "alert.vd", sample::encodeAlertFile(alerts));
    EXPECT_EQ(show({"alerts", "--fields", "body,body_hex,body_size"}),
              "{\"body\":null,\"body_hex\":\"610062\",\"body_size\":3}\n"
              "{\"body\":\"line\\r\\n\\tnext\",\"body_hex\":\"6c696e650d0a096e657874\","
              "\"body_size\":11}\n"
              "{\"body\":null,\"body_hex\":\"1b5b324a\",\"body_size\":4}\n"
              "{\"body\":\"\",\"body_hex\":\"\",\"body_size\":0}\n"
              "{\"body\":\"short\",\"body_hex\":\"73686f7274\",\"body_size\":5}\n");
}

// A size that no file of this size can hold, and one without any bytes.
TEST_F(VdcatMarket, BodiesThatCannotBeAreNull) {
    std::vector<sample::Alert> alerts(2);
    alerts[0].body = "text";
    alerts[0].body_size = 1'000'000'000'000;
    alerts[1].body_size = 4;
    sample::writeFile(folder.path() / "alert.vd", sample::encodeAlertFile(alerts));
    EXPECT_EQ(show({"alerts", "--fields", "body,body_hex,body_size"}),
              "{\"body\":null,\"body_hex\":null,\"body_size\":1000000000000}\n"
              "{\"body\":null,\"body_hex\":null,\"body_size\":4}\n");
}

TEST_F(VdcatMarket, ListsAreOneCellInATable) {
    sample::Alert alert;
    alert.user_ids = {4'294'967'295u, 7};
    sample::writeFile(folder.path() / "alert.vd", sample::encodeAlertFile({alert}));
    EXPECT_EQ(show({"alerts", "--csv", "--fields", "user_ids,user_id_size"}),
              "user_ids,user_id_size\r\n4294967295 7,2\r\n");
    EXPECT_EQ(show({"alerts", "--fields", "user_ids"}), "{\"user_ids\":[4294967295,7]}\n");
}

} // namespace

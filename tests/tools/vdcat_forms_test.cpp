// JSON Lines, CSV and tables, for texts and numbers of every sort.

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>

#include "sample/output.h"
#include "support/json.h"
#include "support/process.h"
#include "support/tempFolder.h"

using namespace toolTest;

namespace {

class VdcatForms : public testing::Test {
  protected:
    // The folder's class file with one security of these names, under class A.
    void writeNames(const std::string& shortName, const std::string& longName) {
        sample::ClassRecord made;
        made.classCode = "A";
        made.securities.resize(1);
        made.securities[0].sec_code = "S";
        made.securities[0].names = {{0, shortName, longName}};
        sample::writeFile(folder.path() / "class.vd", sample::encodeClassFile({made}));
    }

    void writeLimits(const std::vector<sample::FutLimit>& limits) {
        sample::writeFile(folder.path() / "flimit.vd", sample::encodeFutLimits(limits));
    }

    std::string show(std::vector<std::string> arguments) const {
        arguments.insert(arguments.begin() + 1, folder.name());
        const RunResult result = vdcat(arguments);
        EXPECT_EQ(result.code, 0) << result.err;
        return result.out;
    }

    TempFolder folder;
};

TEST_F(VdcatForms, JsonEscapesWhatItMust) {
    writeNames("q\" b\\ n\n r\r t\t \x01\x1f\x7f", "");
    EXPECT_EQ(show({"securities", "--fields", "short_name"}),
              "{\"short_name\":\"q\\\" b\\\\ n\\n r\\r t\\t \\u0001\\u001f\\u007f\"}\n");
}

TEST_F(VdcatForms, JsonIsAlwaysUtf8) {
    // Good characters of two, three and four bytes, then each way of being none.
    const std::string good = "\xC3\xA9 \xE2\x82\xAC \xF0\x9F\x98\x80";
    const std::string bad = "\xE9 \xC3 \x80 \xC0\x80 \xED\xA0\x80 \xF4\x90\x80\x80 \xE2\x82 \xFF";
    writeNames(good, bad);
    const auto lines = parseLines(show({"securities"}));
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].at("short_name").as_string(), good);
    EXPECT_EQ(lines[0].at("long_name").as_string(),
              "\xC3\xA9 \xC3\x83 \xC2\x80 \xC3\x80\xC2\x80 \xC3\xAD\xC2\xA0\xC2\x80 "
              "\xC3\xB4\xC2\x90\xC2\x80\xC2\x80 \xC3\xA2\xC2\x82 \xC3\xBF");
}

TEST_F(VdcatForms, EverySingleByteGivesValidJson) {
    std::string all;
    for (int byte = 1; byte < 256; ++byte)
        all += std::string(1, static_cast<char>(byte)) + " ";
    writeNames(all, std::string(all.rbegin(), all.rend()));
    EXPECT_EQ(parseLines(show({"securities"})).size(), 1u);
}

TEST_F(VdcatForms, NumbersComeBackAsTheyWere) {
    sample::FutLimit limit;
    limit.kgo = 0.1;
    limit.varmargin = -1.0 / 3;
    limit.cbplimit = std::numeric_limits<double>::max();
    limit.cbplused = std::numeric_limits<double>::denorm_min();
    limit.accruedint = std::numeric_limits<double>::quiet_NaN();
    limit.go_planned = -std::numeric_limits<double>::infinity();
    limit.risk_level = 4294967295u;
    writeLimits({limit});
    const std::string fields = "kgo,varmargin,cbplimit,cbplused,accruedint,go_planned,risk_level";
    EXPECT_EQ(show({"limits", "--fields", fields}),
              "{\"kgo\":0.1,\"varmargin\":-0.3333333333333333,\"cbplimit\":1.7976931348623157e+308,"
              "\"cbplused\":5e-324,\"accruedint\":null,\"go_planned\":null,"
              "\"risk_level\":4294967295}\n");
    EXPECT_EQ(show({"limits", "--csv", "--fields", fields}),
              fields +
                  "\r\n0.1,-0.3333333333333333,1.7976931348623157e+308,5e-324,nan,-inf,"
                  "4294967295\r\n");
}

TEST_F(VdcatForms, FieldsWithoutTerminatorEndAtTheirSize) {
    sample::FutLimit limit;
    limit.firmid = "ABCDEFGHIJKLM";
    limit.trdaccid = "NOPQRSTUVWXYZ";
    writeLimits({limit});
    EXPECT_EQ(show({"limits", "--fields", "firmid,trdaccid"}),
              "{\"firmid\":\"ABCDEFGHIJKLM\",\"trdaccid\":\"NOPQRSTUVWXYZ\"}\n");
    sample::ClassRecord filled;
    filled.classCode = "ABCDEFGHIJKLM";
    filled.fh.assign(257, 'f');
    sample::writeFile(folder.path() / "class.vd", sample::encodeClassFile({filled}));
    EXPECT_EQ(show({"classes", "--fields", "class_code,fh"}),
              "{\"class_code\":\"ABCDEFGHIJKLM\",\"fh\":\"" + filled.fh + "\"}\n");
}

TEST_F(VdcatForms, CsvQuotesByTheRule) {
    writeNames("a,b", "say \"x\"\r\nand y");
    EXPECT_EQ(show({"securities", "--csv", "--fields", "sec_code,short_name,long_name"}),
              "sec_code,short_name,long_name\r\nS,\"a,b\",\"say \"\"x\"\"\r\nand y\"\r\n");
    EXPECT_EQ(show({"securities", "--csv", "--fields", "sec_code,short_name", "--lang", "5"}),
              "sec_code,short_name\r\nS,\r\n");
}

TEST_F(VdcatForms, CsvQuotesForEachOfTheFourCharacters) {
    for (const char* text : {",", "\r", "\n"}) {
        writeNames(text, " plain; 'text' ");
        EXPECT_EQ(show({"securities", "--csv", "--fields", "short_name,long_name"}),
                  std::string("short_name,long_name\r\n\"") + text + "\", plain; 'text' \r\n");
    }
    writeNames("\"", "");
    EXPECT_EQ(show({"securities", "--csv", "--fields", "short_name"}),
              "short_name\r\n\"\"\"\"\r\n");
}

TEST_F(VdcatForms, TableAlignsColumns) {
    std::vector<sample::FutLimit> limits(3);
    limits[0].firmid = "LONGFIRM";
    limits[0].kgo = 1.5;
    limits[1].firmid = "\xFC"; // one character, two bytes
    limits[1].kgo = -100.25;
    limits[2].currcode = "EUR";
    writeLimits(limits);
    EXPECT_EQ(show({"limits", "--table", "--fields", "firmid,kgo,currcode"}),
              "firmid        kgo  currcode\n"
              "LONGFIRM      1.5\n"
              "\xC3\xBC         -100.25\n"
              "                0  EUR\n");
}

TEST_F(VdcatForms, TableShowsAbsentTextsAndHidesControls) {
    writeNames("a\x1b[2Jb\n\xC2\x9B", "");
    EXPECT_EQ(show({"securities", "--table", "--fields", "short_name,sec_code"}),
              "short_name  sec_code\na.[2Jb..    S\n");
    EXPECT_EQ(show({"securities", "--table", "--lang", "3", "--fields", "short_name"}),
              "short_name\n-\n");
}

TEST_F(VdcatForms, TableKeepsItsWidthsWhenRowsAreMany) {
    std::vector<sample::FutLimit> limits(20'010);
    for (sample::FutLimit& limit : limits)
        limit.firmid = "F";
    limits.back().firmid = "LONGERTHAN";
    writeLimits(limits);
    const std::string text = show({"limits", "--table", "--fields", "firmid,risk_level"});
    EXPECT_TRUE(text.starts_with("firmid  risk_level\nF                0\n")) << text.substr(0, 80);
    EXPECT_TRUE(text.ends_with("F                0\nLONGERTHAN           0\n"))
        << text.substr(text.size() - 80);
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 20'011);
}

TEST_F(VdcatForms, TableShowsFewerFieldsThanJson) {
    writeLimits({{}});
    const std::string table = show({"limits", "--table"});
    EXPECT_EQ(table.substr(0, table.find('\n')),
              "firmid  trdaccid  limit_type  currcode  cbplimit  cbplused  cbplplanned  varmargin");
    EXPECT_EQ(parseLines(show({"limits"}))[0].size(), 22u);
    EXPECT_EQ(show({"limits", "--json"}), show({"limits"}));
}

TEST_F(VdcatForms, NothingToShowStillHasAHeadLine) {
    writeLimits({});
    EXPECT_EQ(show({"limits"}), "");
    EXPECT_EQ(show({"limits", "--csv", "--fields", "firmid,kgo"}), "firmid,kgo\r\n");
    EXPECT_EQ(show({"limits", "--table", "--fields", "firmid,kgo"}), "firmid  kgo\n");
}

} // namespace

#include <string>
#include <vector>

#include "diagnostics/dumpFixture.h"
#include "diagnostics/errorTexts.h"
#include "platform/process.h"

namespace {

std::string systemForm(std::string path) {
    std::replace(path.begin(), path.end(), '/', platform::pathForm.separator);
    return path;
}

class DumpPath : public DumpFixture {
  protected:
    static inline std::vector<std::string> s_made;
};

} // namespace

TEST_F(DumpPath, KindZeroIsMini) {
    makeDumpPath(0);
    EXPECT_EQ(std::string(dumpPath), systemForm("Dumps/20261121/mini123456_789.dmp"));
}

TEST_F(DumpPath, EveryOtherKindIsFull) {
    for (const int kind : {1, 2, 4, 6, -1}) {
        makeDumpPath(kind);
        EXPECT_EQ(std::string(dumpPath), systemForm("Dumps/20261121/full123456_789.dmp")) << kind;
    }
}

TEST_F(DumpPath, FieldsArePaddedWithZeroes) {
    s_now = fileTimeOf(1601, 1, 2, 3, 4, 5, 6);
    makeDumpPath(0);
    EXPECT_EQ(std::string(dumpPath), systemForm("Dumps/16010102/mini030405_006.dmp"));
}

TEST_F(DumpPath, FoldersAreMadeOneByOne) {
    s_made.clear();
    platform::dumpCalls.createFolder = [](const char* path) {
        s_made.push_back(path);
        return false;
    };
    makeDumpPath(0);
    EXPECT_EQ(s_made, (std::vector<std::string>{"Dumps", systemForm("Dumps/20261121/")}));
    EXPECT_EQ(std::string(dumpPath), systemForm("Dumps/20261121/mini123456_789.dmp"));
}

TEST_F(DumpPath, FoldersStandBelowTheWorkingFolder) {
    makeDumpPath(0);
    EXPECT_TRUE(std::filesystem::is_directory(m_folder.path() / "Dumps" / "20261121"));
    makeDumpPath(0); // they are there now
    EXPECT_TRUE(std::filesystem::is_directory(m_folder.path() / "Dumps" / "20261121"));
}

TEST_F(DumpPath, ClockBehindTheCalendarGivesZeroesAndALine) {
    s_now = ~std::uint64_t{0};
    makeDumpPath(2);
    EXPECT_EQ(std::string(dumpPath), systemForm("Dumps/00000000/full000000_000.dmp"));
    EXPECT_EQ(errorTexts(m_log).size(), 1u);
}

#include "Classes/classModel.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "Classes/classFilter.h"
#include "sample/classFile.h"
#include "support/besideTheProgram.h"
#include "support/raised.h"
#include "support/scopedCalls.h"
#include "support/tempFolder.h"
#include "vdreader/readers.h"

namespace {

sample::Security securityOf(std::uint32_t id, const std::string& code) {
    sample::Security security;
    security.sec_id = id;
    security.sec_code = code;
    return security;
}

sample::ClassRecord classOf(std::int32_t id, const std::string& code,
                            std::vector<sample::Security> securities = {}) {
    sample::ClassRecord record;
    record.classId = id;
    record.classCode = code;
    record.securities = std::move(securities);
    return record;
}

class ClassModelTest : public testing::Test {
  protected:
    void load(const std::vector<sample::ClassRecord>& classes, const char* filterText = "") {
        ClassFilter filter;
        filter.add(filterText);
        const std::string name = m_folder.write("class.vd", sample::encodeClassFile(classes));
        m_model.load(name.c_str(), filter);
    }

    std::string codes() {
        std::string all;
        for (const sClassParUnitedDesc& loaded : m_model.classes())
            all += std::string(loaded.code()) + ' ';
        return all;
    }

    std::string codeOf(std::int32_t classId) {
        const char* code = m_model.classCodeById(classId);
        return code != nullptr ? code : "(none)";
    }

    TempFolder m_folder;
    ClassModel m_model;
};

} // namespace

TEST_F(ClassModelTest, EmptyModelFindsNothing) {
    EXPECT_EQ(m_model.classCodeById(1), nullptr);
    EXPECT_EQ(m_model.securityCodeById(1, 1), nullptr);
    EXPECT_EQ(m_model.paramsByClassId(1), nullptr);
}

TEST_F(ClassModelTest, LookUpsById) {
    sample::ClassRecord second = classOf(-2, "B", {securityOf(5, "FIVE"), securityOf(6, "SIX")});
    sample::Param param;
    param.par_id = 9;
    second.params = {param};
    load({classOf(1, "A"), second});
    EXPECT_EQ(codeOf(1), "A");
    EXPECT_EQ(codeOf(-2), "B");
    EXPECT_EQ(codeOf(2), "(none)");
    EXPECT_STREQ(m_model.securityCodeById(-2, 6), "SIX");
    EXPECT_EQ(m_model.securityCodeById(-2, 7), nullptr);
    EXPECT_EQ(m_model.securityCodeById(1, 6), nullptr);
    EXPECT_EQ(m_model.securityCodeById(3, 6), nullptr);
    ASSERT_NE(m_model.paramsByClassId(-2), nullptr);
    EXPECT_EQ(m_model.paramsByClassId(-2)->at(0).par_id, 9);
    EXPECT_TRUE(m_model.paramsByClassId(1)->empty());
    EXPECT_EQ(m_model.paramsByClassId(3), nullptr);
}

TEST_F(ClassModelTest, JoinsOfIdsThatAreFarApartStandSideBySide) {
    load({classOf(5, "A", {securityOf(1, "ONE")}), classOf(5 + 64, "B", {securityOf(2, "TWO")}),
          classOf(5 - 128, "C", {securityOf(3, "THREE")})});
    const auto joined = [&](std::int32_t classId, std::uint32_t secId) {
        const ClassJoin* owner = m_model.classJoinById(classId);
        if (owner == nullptr)
            return std::string("(no class)");
        JoinCode room;
        const JoinCode* code = m_model.securityJoinCode(*owner, secId, room);
        return owner->code.text + std::string(":") + (code != nullptr ? code->text : "(none)");
    };
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(joined(5, 1), "A:ONE");
        EXPECT_EQ(joined(5 + 64, 2), "B:TWO");
        EXPECT_EQ(joined(5 + 64, 1), "B:(none)");
        EXPECT_EQ(joined(5 - 128, 3), "C:THREE");
        EXPECT_EQ(joined(5 - 64, 3), "(no class)");
        EXPECT_EQ(joined(0, 1), "(no class)");
    }
}

// Which security the model expects, by its place in the class; -1 is none.
class ExpectedSecurity : public ClassModelTest {
  protected:
    void loadOf(int count) {
        std::vector<sample::Security> securities;
        for (int i = 0; i < count; ++i)
            securities.push_back(securityOf(static_cast<std::uint32_t>(i), "S"));
        load({classOf(1, "A", securities), classOf(2, "B", securities)});
    }

    long expected(long place, std::int32_t classId = 1) {
        const SecurityVector& all = m_model.classes()[0].securities;
        const SECURITY_DESC* found =
            m_model.expected(all[static_cast<std::size_t>(place)], *m_model.classJoinById(classId));
        return found != nullptr ? found - all.data() : -1;
    }
};

TEST_F(ExpectedSecurity, IsAheadOfAWalkThatGoesOn) {
    loadOf(8);
    EXPECT_EQ(expected(0), -1) << "nothing was asked for before";
    EXPECT_EQ(expected(1), 5);
    EXPECT_EQ(expected(2), 6);
    EXPECT_EQ(expected(3), 7);
    EXPECT_EQ(expected(4), -1) << "behind the last one";
    EXPECT_EQ(expected(5), -1);
    EXPECT_EQ(expected(0), -1);
    EXPECT_EQ(expected(1), 5);
}

TEST_F(ExpectedSecurity, IsNoneForJumps) {
    loadOf(9);
    for (const long place : {3, 5, 5, 4, 0, 8, 2})
        EXPECT_EQ(expected(place), -1) << place;
    EXPECT_EQ(expected(3), 7);
}

TEST_F(ExpectedSecurity, IsNoneWhereTheSlotNamesAnotherClass) {
    loadOf(6);
    for (const long place : {0, 1, 2})
        EXPECT_EQ(expected(place, 2), -1) << place;
    EXPECT_EQ(expected(3), -1);
    EXPECT_EQ(expected(4), -1) << "behind the last one";
    EXPECT_EQ(expected(0), -1);
    EXPECT_EQ(expected(1), 5);
}

TEST_F(ExpectedSecurity, IsForgottenByALoad) {
    loadOf(6);
    expected(0);
    expected(1);
    const SECURITY_DESC* const former = m_model.classes()[0].securities.data() + 2;
    loadOf(3);
    const ClassJoin& owner = *m_model.classJoinById(1);
    EXPECT_EQ(m_model.expected(*former, owner), nullptr) << "only its place is looked at";
}

TEST_F(ClassModelTest, FirstOfTwoClassesOfOneIdIsFound) {
    load({classOf(1, "A"), classOf(1, "B")});
    EXPECT_EQ(codes(), "A B ");
    EXPECT_EQ(codeOf(1), "A");
}

TEST_F(ClassModelTest, FirstOfTwoSecuritiesOfOneIdIsFound) {
    load({classOf(1, "A", {securityOf(5, "ONE"), securityOf(5, "TWO")})});
    EXPECT_EQ(m_model.classes()[0].securities.size(), 2u);
    EXPECT_STREQ(m_model.securityCodeById(1, 5), "ONE");
}

TEST_F(ClassModelTest, IdKeepsItsPlaceAcrossLoads) {
    load({classOf(1, "A"), classOf(2, "B")});
    load({classOf(2, "B"), classOf(3, "C")});
    EXPECT_EQ(codes(), "B C ");
    EXPECT_EQ(codeOf(1), "B") << "whichever class stands at the old place";
    EXPECT_EQ(codeOf(2), "C");
    EXPECT_EQ(codeOf(3), "C");
}

TEST_F(ClassModelTest, PlaceBehindTheClassesFindsNothing) {
    load({classOf(1, "A"), classOf(2, "B")});
    load({classOf(1, "A")});
    EXPECT_EQ(codeOf(2), "(none)");
    EXPECT_EQ(m_model.paramsByClassId(2), nullptr);
    EXPECT_EQ(m_model.securityCodeById(2, 1), nullptr);
}

TEST_F(ClassModelTest, FilteredClassesTakeNoPlace) {
    sample::ClassRecord damaged = classOf(1, "A", {securityOf(1, "X")});
    damaged.storedSecuritiesOffset = 0xFFFFFFF0; // nothing of its blocks is read
    load({damaged, classOf(2, "B"), classOf(3, "C")}, "-A");
    EXPECT_EQ(codes(), "B C ");
    EXPECT_EQ(codeOf(1), "(none)");
    EXPECT_EQ(codeOf(2), "B");
}

TEST_F(ClassModelTest, CodeWithoutATerminatorIsItsThirteenCharacters) {
    load({classOf(1, "ABCDEFGHIJKLMNOP")}, "ABCDEFGHIJKLM");
    EXPECT_EQ(codes(), "ABCDEFGHIJKLM ");
}

TEST_F(ClassModelTest, FreshClassStandsOnItsFirstParameter) {
    load({classOf(1, "A")});
    EXPECT_EQ(m_model.classes()[0].paramCursor, 0u);
}

TEST_F(ClassModelTest, FailureBeforeTheHeadIsReadKeepsTheModel) {
    load({classOf(1, "A")});
    const std::string none = m_folder.name("none.vd");
    EXPECT_EQ(raisedText([&] { m_model.load(none.c_str(), {}); }),
              "reader for classes can not be initialized");
    const std::string bad = m_folder.write("bad.vd", "CLASSES");
    EXPECT_EQ(raisedText([&] { m_model.load(bad.c_str(), {}); }),
              "vd-file '" + bad + "' has invalid format");
    EXPECT_EQ(codes(), "A ");
}

TEST_F(ClassModelTest, LaterFailureKeepsWhatWasLoaded) {
    load({classOf(1, "A"), classOf(2, "B"), classOf(3, "C")});
    sample::ClassRecord bad = classOf(9, "Z");
    bad.magic = 1;
    EXPECT_EQ(raisedText([&] {
                  load({classOf(5, "Q"), bad});
              }),
              "STORE_CLASS_DESC has an invalid record magic (index=1)");
    EXPECT_EQ(codes(), "Q ");
}

TEST_F(ClassModelTest, IdKeepsItsPlaceAcrossAFailedLoad) {
    load({classOf(1, "A"), classOf(2, "B")});
    EXPECT_EQ(raisedText([&] { load({}); }), "classes storage is empty");
    EXPECT_EQ(codeOf(1), "(none)");
    load({classOf(8, "X"), classOf(9, "Y")});
    EXPECT_EQ(codeOf(1), "X");
    EXPECT_EQ(codeOf(2), "Y");
    EXPECT_EQ(codeOf(9), "Y");
}

TEST_F(ClassModelTest, RelativeNameIsThatBesideTheProgram) {
    const BesideTheProgram file("classModel_test.vd",
                                sample::encodeClassFile({classOf(1, "NEAR")}));
    std::filesystem::current_path(m_folder.path());
    m_model.load("classModel_test.vd", {});
    EXPECT_EQ(codes(), "NEAR ");
    EXPECT_EQ(init_vdreader_classes_file("classModel_test.vd"), 1) << get_vdreader_error();
    const std::string ini = m_folder.write("f.ini", "[s]\nclasses=.\\classModel_test.vd\n");
    EXPECT_EQ(init_vdreader_classes(ini.c_str(), "s"), 1) << get_vdreader_error();
    std::filesystem::current_path(std::filesystem::temp_directory_path());
}

TEST_F(ClassModelTest, IniFileIsParsedTwice) {
    const std::string file = m_folder.write("class.vd", sample::encodeClassFile({classOf(1, "A")}));
    const std::string ini = m_folder.write("f.ini", "[s]\nclasses=" + file + "\n");
    const ScopedCalls scope;
    static std::vector<std::string> opened;
    static const platform::Calls* real;
    opened.clear();
    real = &scope.saved();
    platform::calls.openForReading = [](const char* path) {
        opened.emplace_back(path);
        return real->openForReading(path);
    };
    EXPECT_EQ(init_vdreader_classes(ini.c_str(), "s"), 1);
    EXPECT_EQ(opened, (std::vector<std::string>{ini, ini, file}));
}

TEST_F(ClassModelTest, NothingKeptIsAFailure) {
    load({classOf(1, "A")});
    sample::ClassRecord slot;
    slot.magic = 0;
    EXPECT_EQ(raisedText([&] { load({slot, slot}); }), "classes storage is empty");
    EXPECT_EQ(codes(), "");
    EXPECT_EQ(raisedText([&] { load({}); }), "classes storage is empty");
    EXPECT_EQ(raisedText([&] { load({classOf(1, "A")}, "B"); }), "classes storage is empty");
}

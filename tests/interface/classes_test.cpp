// The classes reader: initialisation, filter, walks, reloads.

#include <gtest/gtest.h>

#include <filesystem>

#include "readers.h"

namespace {

class Classes : public testing::Test {
  protected:
    // Loads through an ini file with this filter line; the result of the call.
    std::int32_t initWith(const std::string& filterLine) {
        return init_vdreader_classes(m_folder.writeIni(filterLine).c_str(), "s");
    }

    void writeAbc() { m_folder.writeClasses({classOf(3, "C"), classOf(1, "A"), classOf(2, "B")}); }

    ReaderFolder m_folder;
};

} // namespace

// ---- initialisation ----

TEST_F(Classes, FileNamedByTheIniFile) {
    writeAbc();
    EXPECT_EQ(initWith(""), 1);
    EXPECT_EQ(loadedCodes(), "C A B ");
}

TEST_F(Classes, FileNamedByTheCaller) {
    const std::string file = m_folder.writeClasses({classOf(1, "A")});
    EXPECT_EQ(init_vdreader_classes_file(file.c_str()), 1);
    EXPECT_EQ(loadedCodes(), "A ");
}

TEST_F(Classes, EmptyFileNameIsRefused) {
    EXPECT_EQ(init_vdreader_classes_file(nullptr), 0);
    EXPECT_EQ(lastError(), "provided classes file name is empty");
    get_sSecurityDesc_scale(nullptr);
    EXPECT_EQ(init_vdreader_classes_file(""), 0);
    EXPECT_EQ(lastError(), "provided classes file name is empty");
}

TEST_F(Classes, MissingFileIsToldToTheCallerAndOnStandardError) {
    const std::string none = m_folder.name("none.vd");
    testing::internal::CaptureStderr();
    EXPECT_EQ(init_vdreader_classes_file(none.c_str()), 0);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Failed to open " + none + "\n");
    EXPECT_EQ(lastError(), "reader for classes can not be initialized");
}

TEST_F(Classes, MissingIniFileMeansTheDefaultBesideTheHost) {
    testing::internal::CaptureStderr();
    EXPECT_EQ(init_vdreader_classes(m_folder.name("none.ini").c_str(), "s"), 0);
    const std::string text = testing::internal::GetCapturedStderr();
    EXPECT_EQ(text.rfind("class.vd\n"), text.size() - 9) << text;
    EXPECT_EQ(lastError(), "reader for classes can not be initialized");
}

TEST_F(Classes, FormatFailuresBecomeTheText) {
    const std::string file = m_folder.write("bad.vd", "CLASSES");
    EXPECT_EQ(init_vdreader_classes_file(file.c_str()), 0);
    EXPECT_EQ(lastError(), "vd-file '" + file + "' has invalid format");
    sample::ClassRecord huge = classOf(1, "A");
    huge.storedParamsCount = -1;
    huge.storedParamsOffset = 145;
    EXPECT_EQ(init_vdreader_classes_file(m_folder.writeClasses({huge}).c_str()), 0);
    EXPECT_EQ(lastError(), "vector too long");
}

TEST_F(Classes, FailedInitialisationLeavesTheReaderNotReady) {
    writeAbc();
    ASSERT_EQ(initWith(""), 1);
    EXPECT_EQ(init_vdreader_classes_file(""), 0);
    EXPECT_EQ(for_each_class(noteClass), 0);
    EXPECT_EQ(lastError(), "classes storage is not initialized");
    EXPECT_EQ(for_each_security(noteSecurity), 0);
    EXPECT_EQ(initWith(""), 1);
    EXPECT_EQ(loadedCodes(), "C A B ");
}

TEST_F(Classes, FailedInitialisationFromAnIniFileLeavesTheReaderNotReady) {
    writeAbc();
    ASSERT_EQ(initWith(""), 1);
    EXPECT_EQ(initWith("class_filter=Z\n"), 0);
    EXPECT_EQ(loadedCodes(), "(not ready)");
    ASSERT_EQ(initWith(""), 1);
    const std::string elsewhere =
        m_folder.write("other.ini", "[s]\nclasses=" + m_folder.name("none.vd") + "\n");
    EXPECT_EQ(init_vdreader_classes(elsewhere.c_str(), "s"), 0);
    EXPECT_EQ(loadedCodes(), "(not ready)");
    EXPECT_EQ(for_each_security(noteSecurity), 0);
}

TEST_F(Classes, PointersOutlastALoadThatFailsBeforeItsHeadIsRead) {
    m_folder.writeClasses({classOf(1, "A", {"X"})});
    ASSERT_EQ(initWith(""), 1);
    static sSecurityDesc* kept;
    ASSERT_EQ(for_each_security([](sClassParUnitedDesc*, sSecurityDesc* security) -> std::int32_t {
                  kept = security;
                  return 1;
              }),
              1);
    EXPECT_EQ(init_vdreader_classes_file(m_folder.name("none.vd").c_str()), 0);
    EXPECT_EQ(init_vdreader_classes_file(m_folder.write("bad.vd", "CLASSES").c_str()), 0);
    EXPECT_STREQ(get_sSecurityDesc_sec_code(kept), "X");
}

TEST_F(Classes, WalkOfClassesWithoutSecuritiesIsGood) {
    writeAbc();
    ASSERT_EQ(initWith(""), 1);
    EXPECT_EQ(for_each_security(noteSecurity), 1);
    EXPECT_TRUE(seen.securities.empty());
}

TEST_F(Classes, AllFreeSlotsAreAnEmptyStorage) {
    sample::ClassRecord slot;
    slot.magic = 0;
    EXPECT_EQ(init_vdreader_classes_file(m_folder.writeClasses({slot, slot}).c_str()), 0);
    EXPECT_EQ(lastError(), "classes storage is empty");
}

TEST_F(Classes, LoadIsASnapshot) {
    const std::string file = m_folder.writeClasses({classOf(1, "A")});
    ASSERT_EQ(init_vdreader_classes_file(file.c_str()), 1);
    m_folder.writeClasses({classOf(2, "B")});
    EXPECT_EQ(loadedCodes(), "A ");
    EXPECT_TRUE(std::filesystem::remove(file)) << "nothing holds the file open";
    EXPECT_EQ(loadedCodes(), "A ");
}

TEST_F(Classes, LoadLeavesTheFileAsItWas) {
    const std::string file = m_folder.writeClasses({classOf(1, "A", {"X", "Y"})});
    const std::string before = m_folder.read("class.vd");
    ASSERT_EQ(init_vdreader_classes_file(file.c_str()), 1);
    EXPECT_TRUE(m_folder.read("class.vd") == before);
}

// ---- filter ----

TEST_F(Classes, WithoutAFilterAllAreLoaded) {
    writeAbc();
    EXPECT_EQ(initWith("class_filter=\n"), 1);
    EXPECT_EQ(loadedCodes(), "C A B ");
}

TEST_F(Classes, FilterKeepsItsCodesInTheOrderOfTheFile) {
    writeAbc();
    EXPECT_EQ(initWith("class_filter=A,C\n"), 1);
    EXPECT_EQ(loadedCodes(), "C A ");
}

TEST_F(Classes, MinusLeavesItsCodesOut) {
    writeAbc();
    EXPECT_EQ(initWith("class_filter=-A,B\n"), 1);
    EXPECT_EQ(loadedCodes(), "C ");
}

TEST_F(Classes, TextInFrontOfTheMinusIsDropped) {
    writeAbc();
    EXPECT_EQ(initWith("class_filter=C-A\n"), 1);
    EXPECT_EQ(loadedCodes(), "C B ");
}

TEST_F(Classes, EmptyCodeMattersForAClassWithoutOne) {
    m_folder.writeClasses({classOf(1, "A"), classOf(2, ""), classOf(3, "B"), classOf(4, "C")});
    EXPECT_EQ(initWith("class_filter=A,,B\n"), 1);
    EXPECT_EQ(loadedCodes(), "A  B ");
}

TEST_F(Classes, LoneMinusKeepsNothing) {
    writeAbc();
    EXPECT_EQ(initWith("class_filter=-\n"), 0);
    EXPECT_EQ(lastError(), "classes storage is empty");
}

TEST_F(Classes, FilterThatMatchesNothingIsAFailure) {
    writeAbc();
    EXPECT_EQ(initWith("class_filter=Z\n"), 0);
    EXPECT_EQ(lastError(), "classes storage is empty");
    EXPECT_EQ(loadedCodes(), "(not ready)");
}

TEST_F(Classes, CodesOfAnEarlierFilterAreForgotten) {
    writeAbc();
    EXPECT_EQ(initWith("class_filter=A\n"), 1);
    EXPECT_EQ(initWith("class_filter=B\n"), 1);
    EXPECT_EQ(loadedCodes(), "B ");
    EXPECT_EQ(initWith(""), 1);
    EXPECT_EQ(loadedCodes(), "C A B ");
    EXPECT_EQ(initWith("class_filter=A\n"), 1);
    EXPECT_EQ(init_vdreader_classes_file(m_folder.name("class.vd").c_str()), 1);
    EXPECT_EQ(loadedCodes(), "C A B ");
}

TEST_F(Classes, NegativeFilterReadTwiceIncludes) {
    writeAbc();
    EXPECT_EQ(initWith("class_filter=-A\n"), 1);
    EXPECT_EQ(loadedCodes(), "C B ");
    EXPECT_EQ(initWith("class_filter=-A\n"), 1);
    EXPECT_EQ(loadedCodes(), "A ");
}

TEST_F(Classes, DirectionOfTheFilterLastsForTheFileForm) {
    writeAbc();
    EXPECT_EQ(initWith("class_filter=-A\n"), 1);
    EXPECT_EQ(init_vdreader_classes_file(m_folder.name("class.vd").c_str()), 0);
    EXPECT_EQ(lastError(), "classes storage is empty");
}

// ---- walks ----

TEST_F(Classes, SecuritiesAreWalkedClassByClass) {
    m_folder.writeClasses(
        {classOf(1, "A", {"X", "Y"}), classOf(2, "EMPTY"), classOf(3, "B", {"Z"})});
    ASSERT_EQ(initWith(""), 1);
    EXPECT_EQ(loadedCodes(), "A EMPTY B ");
    EXPECT_EQ(for_each_security(noteSecurity), 1);
    EXPECT_EQ(seen.securities, (std::vector<std::string>{"A/X", "A/Y", "B/Z"}));
}

TEST_F(Classes, SecuritiesOfEveryClassOfACodeAreWalked) {
    m_folder.writeClasses(
        {classOf(1, "A", {"X"}), classOf(2, "AB", {"Y"}), classOf(3, "A", {"Z"})});
    ASSERT_EQ(initWith(""), 1);
    EXPECT_EQ(for_each_security_in_class("A", noteSecurity), 1);
    EXPECT_EQ(seen.securities, (std::vector<std::string>{"A/X", "A/Z"}));
    seen.securities.clear();
    EXPECT_EQ(for_each_security_in_class("a", noteSecurity), 1);
    EXPECT_EQ(for_each_security_in_class("ABC", noteSecurity), 1);
    EXPECT_TRUE(seen.securities.empty());
    EXPECT_EQ(lastError(), "Unknown error");
}

TEST_F(Classes, CodeWithoutATerminatorIsComparedInItsField) {
    m_folder.writeClasses({classOf(1, "ABCDEFGHIJKLMN", {"X"})});
    ASSERT_EQ(initWith(""), 1);
    int calls = 0;
    static int* count;
    count = &calls;
    const SecurityCallback counter = [](sClassParUnitedDesc*, sSecurityDesc*) { return ++*count; };
    EXPECT_EQ(for_each_security_in_class("ABCDEFGHIJKLM", counter), 1);
    EXPECT_EQ(for_each_security_in_class("ABCDEFGHIJKLMN", counter), 1);
    EXPECT_EQ(calls, 1);
}

TEST_F(Classes, CallbackStopsTheWalkWhereItIs) {
    m_folder.writeClasses({classOf(1, "A", {"X", "Y"}), classOf(2, "B", {"Z"})});
    ASSERT_EQ(initWith(""), 1);
    seen.answer = 2;
    seen.answerAt = 1;
    EXPECT_EQ(for_each_class(noteClass), 0);
    EXPECT_EQ(seen.classes.size(), 1u);
    seen.answerAt = 2;
    EXPECT_EQ(for_each_security(noteSecurity), 0);
    EXPECT_EQ(seen.securities.size(), 2u);
    seen.securities.clear();
    EXPECT_EQ(for_each_security_in_class("A", noteSecurity), 0);
    EXPECT_EQ(seen.securities.size(), 2u);
}

TEST_F(Classes, WalkInsideAWalk) {
    m_folder.writeClasses({classOf(1, "A", {"X", "Y"}), classOf(2, "B", {"Z"})});
    ASSERT_EQ(initWith(""), 1);
    EXPECT_EQ(for_each_class([](sClassParUnitedDesc* classDesc) -> std::int32_t {
                  for_each_security_in_class(get_sClassParUnitedDesc_class_code(classDesc),
                                             noteSecurity);
                  return noteClass(classDesc);
              }),
              1);
    EXPECT_EQ(seen.securities, (std::vector<std::string>{"A/X", "A/Y", "B/Z"}));
    EXPECT_EQ(seen.classes.size(), 2u);
}

TEST_F(Classes, TwoClassesOfOneIdAreBothWalked) {
    m_folder.writeClasses({classOf(1, "A"), classOf(1, "B")});
    ASSERT_EQ(initWith(""), 1);
    EXPECT_EQ(loadedCodes(), "A B ");
}

// The dynamic parameters reader through the shared library: initialisation and the walk.

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <stdexcept>

#include "dynParamsFixture.h"

namespace {

class DynParams : public DynParamsFixture {};

} // namespace

// ---- initialisation ----

TEST_F(DynParams, NeedTheClassesFirst) {
    EXPECT_EQ(init_vdreader_dyn_params("x.ini", "s"), 0);
    EXPECT_EQ(lastError(), "classes storage is not initialized");
    EXPECT_EQ(init_vdreader_dyn_params_file(nullptr), 0);
    EXPECT_EQ(lastError(), "classes storage is not initialized");
    EXPECT_EQ(for_each_dynamic_params(noteRecord), 0);
    EXPECT_EQ(lastError(), "classes storage is not initialized");
    EXPECT_EQ(get_sSecurityDesc_last_dynamic_params(nullptr, nullptr), 0);
    EXPECT_EQ(lastError(), "classes storage is not initialized");
}

TEST_F(DynParams, AreRefusedUntilTheyAreInitialised) {
    m_folder.writeClasses({classOf(1, "A", {"S"})});
    ASSERT_EQ(init_vdreader_classes_file(m_folder.name("class.vd").c_str()), 1);
    EXPECT_EQ(for_each_dynamic_params(noteRecord), 0);
    EXPECT_EQ(lastError(), "dynamic parameters storage is not initialized");
    EXPECT_EQ(get_sSecurityDesc_last_dynamic_params(nullptr, nullptr), 0);
    EXPECT_EQ(lastError(), "dynamic parameters storage is not initialized");
}

TEST_F(DynParams, NameComesFromTheIniFile) {
    load({classOf(1, "A", {"S"})}, smallFile());
    const std::string ini = m_folder.writeIni("dynparams=" + m_folder.name("data.vd") + "\n");
    EXPECT_EQ(init_vdreader_dyn_params(ini.c_str(), "s"), 1) << lastError();
    EXPECT_EQ(walked(), "");
}

TEST_F(DynParams, MissingKeyGivesDataVdBesideTheProgram) {
    load({classOf(1, "A", {"S"})}, smallFile());
    const std::string ini = m_folder.writeIni();
    EXPECT_EQ(init_vdreader_dyn_params(ini.c_str(), "s"), 0);
    const std::string text = lastError();
    EXPECT_EQ(text.rfind("alerts file ", 0), 0u) << text;
    EXPECT_NE(text.find("data.vd can not be opened"), std::string::npos) << text;
    EXPECT_EQ(walked(), "(0) ");
    EXPECT_EQ(lastError(), "dynamic parameters storage is not initialized");
}

TEST_F(DynParams, EmptyNameIsRefusedInsideTheFrame) {
    load({classOf(1, "A", {"S"})}, smallFile());
    for (const char* name : {static_cast<const char*>(nullptr), ""}) {
        EXPECT_EQ(init_vdreader_dyn_params_file(name), 0);
        EXPECT_EQ(lastError(), "provided dynparams file name is empty");
        EXPECT_EQ(walked(), "(0) ");
        EXPECT_EQ(lastError(), "dynamic parameters storage is not initialized");
        ASSERT_EQ(init_vdreader_dyn_params_file(m_folder.name("data.vd").c_str()), 1);
    }
}

TEST_F(DynParams, FileThatDoesNotOpenIsRefusedAndNotMade) {
    load({classOf(1, "A", {"S"})}, smallFile());
    const std::string none = m_folder.name("none.vd");
    EXPECT_EQ(init_vdreader_dyn_params_file(none.c_str()), 0);
    EXPECT_EQ(lastError(), "alerts file " + none + " can not be opened");
    EXPECT_FALSE(std::filesystem::exists(none));
    // The file of before is still held: it has no stamp of a closed one.
    EXPECT_EQ(m_folder.read("data.vd").substr(24 + 96, 4), std::string(4, '\0'));
    EXPECT_EQ(for_each_dynamic_params(noteRecord), 0);
    EXPECT_EQ(lastError(), "dynamic parameters storage is not initialized");
}

TEST_F(DynParams, FileOfAnotherTypeIsRefusedAndTheNextOneLoads) {
    load({classOf(1, "A", {"S"})}, smallFile());
    sample::DataFile foreign = smallFile();
    foreign.header.signature = "0B6C6676-8C6E-4807-B8CA-60367206277B";
    sample::writeDataFile(m_folder.name("foreign.vd"), foreign);
    EXPECT_EQ(init_vdreader_dyn_params_file(m_folder.name("foreign.vd").c_str()), 0);
    EXPECT_EQ(lastError(), "File type is incorrect");
    EXPECT_EQ(walked(), "(0) ");
    EXPECT_EQ(init_vdreader_dyn_params_file(m_folder.name("data.vd").c_str()), 1);
    EXPECT_EQ(walked(), "");
}

TEST_F(DynParams, InitialisationAgainSeesAnotherFile) {
    sample::DataFile file = smallFile();
    file.eventPages = {{.records = {recordOf(1, 1, 1000)}}};
    load({classOf(1, "A", {"S", "T"})}, file);
    EXPECT_EQ(walked(), "1:A/S ");
    file.eventPages = {{.records = {recordOf(7, 1, 1001)}}};
    sample::writeDataFile(m_folder.name("other.vd"), file);
    EXPECT_EQ(init_vdreader_dyn_params_file(m_folder.name("other.vd").c_str()), 1);
    EXPECT_EQ(walked(), "7:A/T ");
    // The file that was let go is stamped as closed, the other one is open.
    const auto stampOf = [&](const std::string& name) {
        std::uint32_t stamp = 0;
        std::memcpy(&stamp, m_folder.read(name).data() + 24 + 96, 4);
        return stamp;
    };
    EXPECT_EQ(stampOf("data.vd"), 0xDDFDDFDDu);
    EXPECT_EQ(stampOf("other.vd"), 0u);
}

TEST_F(DynParams, EmptyValueCountsAsAMissingKey) {
    load({classOf(1, "A", {"S"})}, smallFile());
    EXPECT_EQ(init_vdreader_dyn_params(m_folder.writeIni().c_str(), "s"), 0);
    const std::string text = lastError();
    ASSERT_EQ(init_vdreader_dyn_params_file(m_folder.name("data.vd").c_str()), 1);
    EXPECT_EQ(init_vdreader_dyn_params(m_folder.writeIni("dynparams= \n").c_str(), "s"), 0);
    EXPECT_EQ(lastError(), text);
    EXPECT_EQ(walked(), "(0) ");
}

using DynParamsDeathTest = DynParams;

TEST_F(DynParamsDeathTest, NullPathsSectionsCallbacksAndSecuritiesFault) {
    sample::DataFile file = smallFile();
    file.eventPages = {{.records = {recordOf(1, 1, 1000)}}};
    load({classOf(1, "A", {"S"})}, file);
    const std::string ini = m_folder.writeIni("dynparams=" + m_folder.name("data.vd") + "\n");
    EXPECT_DEATH(init_vdreader_dyn_params(nullptr, "s"), "");
    EXPECT_DEATH(init_vdreader_dyn_params(ini.c_str(), nullptr), "");
    EXPECT_DEATH(for_each_dynamic_params(nullptr), "");
    EXPECT_DEATH(get_sSecurityDesc_last_dynamic_params(nullptr, &m_out), "");
    EXPECT_EQ(walked(), "1:A/S ");
}

TEST_F(DynParams, NullCallbackIsNotLookedAtWhereNothingIsToBeTold) {
    load({classOf(1, "A", {"S"})}, smallFile());
    EXPECT_EQ(for_each_dynamic_params(nullptr), 1);
    EXPECT_EQ(lastError(), "Unknown error");
}

// ---- the walk ----

TEST_F(DynParams, FileWithoutRecordsGivesNone) {
    load({classOf(1, "A", {"S"})}, smallFile());
    EXPECT_EQ(walked(), "");
}

TEST_F(DynParams, RecordsAreJoinedToTheirCodes) {
    sample::DataFile file = smallFile();
    sample::Record record = recordOf(5, 2, 2001);
    record.dataField2 = 22;
    record.dataField3 = 33;
    record.mask = {3};
    record.longs = {-44};
    record.doubles = {5.5};
    file.eventPages = {{.records = {recordOf(4, 1, 1000), record}}};
    load({classOf(1, "A", {"S"}), classOf(2, "B", {"T", "U"})}, file);
    EXPECT_EQ(walked(), "4:A/S 5:B/U ");
    ASSERT_EQ(records.size(), 2u);
    EXPECT_EQ(+records[1].dataField2, 22);
    EXPECT_EQ(+records[1].dataField3, 33);
    EXPECT_EQ(+records[1].sec_id, 2001u);
    EXPECT_EQ(+records[1].maskSize, 1);
    EXPECT_EQ(records[1].mask[0], 3);
    EXPECT_EQ(+records[1].longCount, 1);
    EXPECT_EQ(+records[1].longs[0], -44);
    EXPECT_EQ(+records[1].doubleCount, 1);
    EXPECT_EQ(+records[1].doubles[0], 5.5);
}

TEST_F(DynParams, RecordsOfUnknownClassesAndSecuritiesAreLeftOut) {
    sample::DataFile file = smallFile();
    file.eventPages = {{.records = {recordOf(1, 9, 1000), recordOf(2, 1, 1000),
                                    recordOf(3, 1, 2000), recordOf(4, 1, 1000)}}};
    load({classOf(1, "A", {"S"}), classOf(2, "B", {"T"})}, file);
    EXPECT_EQ(walked(), "2:A/S 4:A/S ");
}

TEST_F(DynParams, NegativeNumberEndsTheWalk) {
    sample::DataFile file = smallFile();
    file.eventPages = {
        {.records = {recordOf(1, 1, 1000), recordOf(-1, 1, 1000), recordOf(3, 1, 1000)}}};
    load({classOf(1, "A", {"S"})}, file);
    EXPECT_EQ(walked(), "1:A/S ");
}

TEST_F(DynParams, NegativeNumberOfAnUnknownClassEndsTheWalkToo) {
    sample::DataFile file = smallFile();
    file.eventPages = {{.records = {recordOf(1, 9, 1), recordOf(-5, 9, 1), recordOf(3, 1, 1000)}}};
    load({classOf(1, "A", {"S"})}, file);
    EXPECT_EQ(walked(), "");
}

TEST_F(DynParams, WalkGoesOverAllPagesFromTheFirstOn) {
    sample::DataFile file = smallFile();
    std::vector<sample::Record> all;
    std::string expected;
    for (int i = 1; i <= 200; ++i) {
        all.push_back(recordOf(i, 1, 1000));
        expected += std::to_string(i) + ":A/S ";
    }
    file.eventPages = sample::packRecords(all, file.header.eventPageSize);
    ASSERT_GT(file.eventPages.size(), 5u);
    load({classOf(1, "A", {"S"})}, file);
    EXPECT_EQ(walked(), expected);
    EXPECT_EQ(walked(), expected);
}

TEST_F(DynParams, WalkBeginsAtTheNumberZero) {
    sample::DataFile file = smallFile();
    file.eventPages = {{.records = {recordOf(0, 1, 1000)}}, {.records = {recordOf(1, 1, 1000)}}};
    load({classOf(1, "A", {"S"})}, file);
    EXPECT_EQ(walked(), "0:A/S 1:A/S ");
}

TEST_F(DynParams, ResultsOfTheCallbackDecide) {
    sample::DataFile file = smallFile();
    file.eventPages = {
        {.records = {recordOf(1, 1, 1000), recordOf(2, 1, 1000), recordOf(3, 1, 1000)}}};
    load({classOf(1, "A", {"S"})}, file);
    const std::string before = lastError();
    seen.answer = 2;
    seen.answerAt = 2;
    EXPECT_EQ(walked(), "1:A/S 2:A/S ");
    for (const std::int32_t answer : {0, 3, -1}) {
        seen.answer = answer;
        EXPECT_EQ(walked(), "(0) 1:A/S 2:A/S ");
    }
    EXPECT_EQ(lastError(), before);
}

TEST_F(DynParams, WalkHasNoCatchFrame) {
    sample::DataFile file = smallFile();
    file.eventPages = {{.records = {recordOf(1, 1, 1000)}}};
    load({classOf(1, "A", {"S"})}, file);
    EXPECT_THROW(for_each_dynamic_params(
                     [](sDynParams*) -> std::int32_t { throw std::runtime_error("mine"); }),
                 std::runtime_error);
    EXPECT_EQ(lastError(), "Unknown error");
}

TEST_F(DynParams, WalksInsideAWalkKeepTheirOwnPlaces) {
    sample::DataFile file = smallFile();
    file.eventPages = {{.records = {recordOf(1, 1, 1000), recordOf(2, 1, 1000)}}};
    load({classOf(1, "A", {"S"})}, file);
    static int outer;
    static int inner;
    outer = inner = 0;
    EXPECT_EQ(for_each_dynamic_params([](sDynParams* record) -> std::int32_t {
                  ++outer;
                  const std::int32_t number = record->dataField1;
                  EXPECT_EQ(for_each_dynamic_params([](sDynParams*) -> std::int32_t {
                                ++inner;
                                return 1;
                            }),
                            1);
                  EXPECT_EQ(+record->dataField1, number);
                  return 1;
              }),
              1);
    EXPECT_EQ(outer, 2);
    EXPECT_EQ(inner, 4);
}

TEST_F(DynParams, BufferIsFreshForEachRecord) {
    sample::DataFile file = smallFile();
    file.eventPages = {{.records = {recordOf(1, 1, 1000), recordOf(2, 1, 1000)}}};
    load({classOf(1, "A", {"S"})}, file);
    static int calls;
    calls = 0;
    for_each_dynamic_params([](sDynParams* record) -> std::int32_t {
        ++calls;
        EXPECT_EQ(+record->doubles[127], 0.0);
        EXPECT_EQ(+record->longs[0], 0);
        EXPECT_EQ(record->mask[15], 0);
        std::memset(static_cast<void*>(record), 0xFF, sizeof *record);
        return 1;
    });
    EXPECT_EQ(calls, 2);
}

TEST_F(DynParams, ClassesLoadedAnewJoinTheSameFile) {
    sample::DataFile file = smallFile();
    file.eventPages = {{.records = {recordOf(1, 1, 1000), recordOf(2, 2, 2000)}}};
    load({classOf(1, "A", {"S"})}, file);
    EXPECT_EQ(walked(), "1:A/S ");
    m_folder.writeClasses({classOf(1, "NEW", {"N"}), classOf(2, "B", {"T"})});
    ASSERT_EQ(init_vdreader_classes_file(m_folder.name("class.vd").c_str()), 1);
    EXPECT_EQ(walked(), "1:NEW/N 2:B/T ");
}

TEST_F(DynParams, FailedClassesStopTheReader) {
    load({classOf(1, "A", {"S"})}, smallFile());
    EXPECT_EQ(init_vdreader_classes_file(m_folder.name("none").c_str()), 0);
    EXPECT_EQ(walked(), "(0) ");
    EXPECT_EQ(lastError(), "classes storage is not initialized");
    EXPECT_EQ(get_sSecurityDesc_last_dynamic_params(nullptr, &m_out), 0);
    EXPECT_EQ(lastError(), "classes storage is not initialized");
    // An initialisation is refused as well, before it touches anything.
    EXPECT_EQ(init_vdreader_dyn_params_file("none"), 0);
    EXPECT_EQ(init_vdreader_dyn_params(m_folder.writeIni("dynparams=none\n").c_str(), "s"), 0);
    EXPECT_EQ(lastError(), "classes storage is not initialized");
    ASSERT_EQ(init_vdreader_classes_file(m_folder.name("class.vd").c_str()), 1);
    EXPECT_EQ(walked(), "");
}

// The boundary that all readers have in common: results, the last error, guards.

#include <gtest/gtest.h>

#include <stdexcept>

#include "readers.h"
#include "vdreader/errors.hpp"

TEST(Frame, NothingHasFailedAtFirst) {
    EXPECT_EQ(lastError(), "Unknown error");
}

TEST(Frame, ClassWalksAreRefusedBeforeALoad) {
    EXPECT_EQ(for_each_class(noteClass), 0);
    EXPECT_EQ(lastError(), "classes storage is not initialized");
    get_sSecurityDesc_scale(nullptr);
    EXPECT_EQ(for_each_security(noteSecurity), 0);
    EXPECT_EQ(lastError(), "classes storage is not initialized");
    get_sSecurityDesc_scale(nullptr);
    EXPECT_EQ(for_each_security_in_class("A", noteSecurity), 0);
    EXPECT_EQ(lastError(), "classes storage is not initialized");
}

TEST(Frame, ArgumentsAreCheckedBeforeTheState) {
    EXPECT_EQ(for_each_security(nullptr), 0);
    EXPECT_EQ(lastError(), "Invalid argument: for_each_security");
    EXPECT_EQ(for_each_security_in_class("A", nullptr), 0);
    EXPECT_EQ(lastError(), "Invalid argument: for_each_security_in_class");
    get_sSecurityDesc_scale(nullptr);
    EXPECT_EQ(for_each_security_in_class("", noteSecurity), 0);
    EXPECT_EQ(lastError(), "Invalid argument: for_each_security_in_class");
    get_sSecurityDesc_scale(nullptr);
    EXPECT_EQ(for_each_security_in_class(nullptr, noteSecurity), 0);
    EXPECT_EQ(lastError(), "Invalid argument: for_each_security_in_class");
}

TEST(Frame, SuccessKeepsTheOldText) {
    const ReaderFolder folder;
    EXPECT_EQ(for_each_class(noteClass), 0);
    EXPECT_EQ(init_vdreader_classes_file(folder.writeClasses({classOf(1, "A")}).c_str()), 1);
    EXPECT_EQ(for_each_class(noteClass), 1);
    EXPECT_EQ(lastError(), "classes storage is not initialized");
}

TEST(Frame, CallbackThatRefusesLeavesNoText) {
    const ReaderFolder folder;
    ASSERT_EQ(init_vdreader_classes_file(folder.writeClasses({classOf(1, "A", {"X"})}).c_str()), 1);
    for (const std::int32_t answer : {2, 0, 3, -1}) {
        seen.answer = answer;
        EXPECT_EQ(for_each_class(noteClass), 0) << answer;
        EXPECT_EQ(for_each_security(noteSecurity), 0) << answer;
        EXPECT_EQ(for_each_security_in_class("A", noteSecurity), 0) << answer;
    }
    EXPECT_EQ(lastError(), "Unknown error");
}

TEST(Frame, ExceptionOfAFramedCallbackBecomesTheText) {
    const ReaderFolder folder;
    ASSERT_EQ(init_vdreader_classes_file(folder.writeClasses({classOf(1, "A")}).c_str()), 1);
    EXPECT_EQ(for_each_class([](sClassParUnitedDesc*) -> std::int32_t {
                  throw std::runtime_error("callback broke");
              }),
              0);
    EXPECT_EQ(lastError(), "callback broke");
    EXPECT_EQ(for_each_class([](sClassParUnitedDesc*) -> std::int32_t {
                  dwraise_ex("f.cpp", 1, "raised %d", 5);
              }),
              0);
    EXPECT_EQ(lastError(), "raised 5");
}

TEST(Frame, OtherExceptionsPassThroughTheFrame) {
    const ReaderFolder folder;
    ASSERT_EQ(init_vdreader_classes_file(folder.writeClasses({classOf(1, "A")}).c_str()), 1);
    EXPECT_THROW(for_each_class([](sClassParUnitedDesc*) -> std::int32_t { throw 5; }), int);
    EXPECT_EQ(lastError(), "Unknown error");
}

TEST(Frame, SecurityWalksLetEveryExceptionPass) {
    const ReaderFolder folder;
    ASSERT_EQ(init_vdreader_classes_file(folder.writeClasses({classOf(1, "A", {"X"})}).c_str()), 1);
    const SecurityCallback broken = [](sClassParUnitedDesc*, sSecurityDesc*) -> std::int32_t {
        throw std::runtime_error("callback broke");
    };
    EXPECT_THROW(for_each_security(broken), std::runtime_error);
    EXPECT_THROW(for_each_security_in_class("A", broken), std::runtime_error);
    EXPECT_EQ(lastError(), "Unknown error");
}

TEST(FrameDeathTest, NullPathsSectionsAndCallbacksFault) {
    const ReaderFolder folder;
    const std::string ini = folder.writeIni();
    ASSERT_EQ(init_vdreader_classes_file(folder.writeClasses({classOf(1, "A")}).c_str()), 1);
    folder.write("flimit.vd", std::string(216, 'x'));
    ASSERT_EQ(init_vdreader_futlimits(ini.c_str(), "s"), 1);
    EXPECT_DEATH(init_vdreader_classes(nullptr, "s"), "");
    EXPECT_DEATH(init_vdreader_classes(ini.c_str(), nullptr), "");
    EXPECT_DEATH(init_vdreader_futlimits(nullptr, "s"), "");
    EXPECT_DEATH(init_vdreader_futpositions(ini.c_str(), nullptr), "");
    EXPECT_DEATH(for_each_class(nullptr), "");
    EXPECT_DEATH(for_each_futlimit(nullptr), "");
}

TEST(FrameDeathTest, NullFuturesRecordsFault) {
    EXPECT_DEATH(get_sFutLimit_risk_level(nullptr), "");
    EXPECT_DEATH(get_sFutPosition_total_net(nullptr), "");
}

TEST(Frame, EmptyTextOfAFailureReadsAsUnknown) {
    const ReaderFolder folder;
    ASSERT_EQ(init_vdreader_classes_file(folder.writeClasses({classOf(1, "A")}).c_str()), 1);
    EXPECT_EQ(for_each_class([](sClassParUnitedDesc*) -> std::int32_t { dwraise("%s", ""); }), 0);
    EXPECT_EQ(lastError(), "Unknown error");
}

TEST(Frame, RaisedClassesAreCaughtByTypeAcrossTheBoundary) {
    place("dir\\host.cpp", 44);
    try {
        dwraisec(7, "%s", "text");
        FAIL();
    } catch (const CError& error) {
        EXPECT_STREQ(error.what(), "text");
        EXPECT_STREQ(error.file, "host.cpp");
        EXPECT_EQ(error.line, 44);
        EXPECT_EQ(error.code, 7);
    }
    EXPECT_THROW(dwraise("x"), sarn::Exception);
    EXPECT_THROW(dwraise_ex("f", 1, "x"), CEmptyError);
    EXPECT_THROW(dwraisec_ex("f", 1, 1, "x"), std::exception);
    EXPECT_THROW(dwraiseos("x"), COSError);
    EXPECT_THROW(dwraiseos_ex("f", 1, "x"), COSError);
    EXPECT_THROW(dwraisesoc("x"), CSocError);
    EXPECT_THROW(dwraisesoc_ex("f", 1, "x"), CSocError);
}

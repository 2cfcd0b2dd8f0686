#include "vdreader/errors.hpp"

#include <gtest/gtest.h>

#include <cstring>
#include <optional>
#include <type_traits>
#include <utility>

#include "support/failingMalloc.h"
#include "support/field.h"

namespace {

char* owned(const char* text) {
    const std::size_t size = std::strlen(text) + 1;
    return static_cast<char*>(std::memcpy(std::malloc(size), text, size));
}

} // namespace

TEST(Errors, TreeHasOneBaseAtEachStep) {
    static_assert(std::is_base_of_v<std::exception, sarn::Exception>);
    static_assert(std::is_base_of_v<sarn::Exception, CEmptyError>);
    static_assert(std::is_base_of_v<CEmptyError, CError>);
    static_assert(std::is_base_of_v<CError, COSError>);
    static_assert(std::is_base_of_v<CError, CSocError>);
    static_assert(std::is_base_of_v<CError, CSEHError>);
    static_assert(!std::is_base_of_v<COSError, CSocError>);
    static_assert(sizeof(COSError) == sizeof(CError));
    EXPECT_THROW(throw CSEHError(), CError);
}

TEST(Errors, DefaultsAreEmpty) {
    const sarn::Exception root;
    EXPECT_STREQ(root.what(), "");
    EXPECT_FALSE(root.ownsDescription);
    const CError error;
    EXPECT_STREQ(error.what(), "");
    EXPECT_EQ(error.code, 0);
    EXPECT_EQ(error.line, 0);
    for (const char c : error.text)
        ASSERT_EQ(c, 0);
    EXPECT_EQ(sizeof error.text, 4096u);
    EXPECT_EQ(sizeof error.file, 512u);
}

TEST(Errors, TextOfTheBranchIsInside) {
    CError error;
    setField(error.text, "inside");
    const std::exception& base = error;
    EXPECT_EQ(base.what(), error.text);
    EXPECT_EQ(error.GetErrorDesc(), error.text);
    EXPECT_STREQ(error.description, "");
    EXPECT_FALSE(error.ownsDescription);
}

TEST(Errors, CopiesCarryCodeTextLineAndFile) {
    CSEHError error;
    error.code = -5;
    error.line = 77;
    setField(error.text, "text");
    setField(error.file, "file.cpp");
    const CSEHError copy(error);
    CSEHError assigned;
    assigned = copy;
    for (const CSEHError& other : {copy, assigned}) {
        EXPECT_EQ(other.code, -5);
        EXPECT_EQ(other.line, 77);
        EXPECT_STREQ(other.text, "text");
        EXPECT_STREQ(other.file, "file.cpp");
    }
}

TEST(Errors, CopiesStopAtTheLimitsOfTheFields) {
    CError error;
    std::memset(error.text, 't', sizeof error.text);
    std::memset(error.file, 'f', sizeof error.file);
    const CError copy(error);
    EXPECT_EQ(std::strlen(copy.text), 4095u);
    EXPECT_EQ(std::strlen(copy.file), 511u);
}

TEST(Errors, SharedDescriptionIsShared) {
    static const char kText[] = "literal";
    const sarn::Exception error(kText);
    const sarn::Exception copy(error); // NOLINT(performance-unnecessary-copy-initialization)
    EXPECT_EQ(copy.description, kText);
    EXPECT_FALSE(copy.ownsDescription);
}

TEST(Errors, OwnedDescriptionIsDuplicated) {
    sarn::Exception assigned(owned("former"), true);
    {
        const sarn::Exception error(owned("mine"), true);
        const sarn::Exception copy(error); // NOLINT(performance-unnecessary-copy-initialization)
        EXPECT_STREQ(copy.what(), "mine");
        EXPECT_NE(copy.description, error.description);
        EXPECT_TRUE(copy.ownsDescription);
        assigned = error;
    }
    EXPECT_STREQ(assigned.what(), "mine");
    const sarn::Exception& self = assigned;
    assigned = self;
    EXPECT_STREQ(assigned.what(), "mine");
}

TEST(Errors, OwnedFlagStaysSetWhenTheCopyFails) {
    const sarn::Exception error(owned("mine"), true);
    {
        std::optional<FailingMalloc> failing(std::in_place);
        const sarn::Exception copy(error); // NOLINT(performance-unnecessary-copy-initialization)
        failing.reset();
        EXPECT_STREQ(copy.what(), "Memory allocation for exception description has been failed");
        EXPECT_TRUE(copy.ownsDescription);
    }
    EXPECT_STREQ(error.what(), "mine");
}

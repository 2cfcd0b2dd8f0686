#include "libn/raiseText.h"

#include <gtest/gtest.h>

#include "support/raised.h"
#include "vdreader/errors.hpp"

namespace {

CError raisedBy(const std::ostringstream& text) {
    return raised<CError>([&] { libn::raiseText(text); }).value();
}

} // namespace

TEST(RaiseText, TextIsThatOfTheStream) {
    std::ostringstream text;
    text << "libn::FileMap memory limit exceeded:"
         << "name()<"
         << "data.vd" << '>' << "newPage.size<" << 65536 << '>';
    EXPECT_STREQ(raisedBy(text).what(),
                 "libn::FileMap memory limit exceeded:name()<data.vd>newPage.size<65536>");
}

TEST(RaiseText, PlaceIsThatOfTheRaisingFunction) {
    const CError error = raisedBy(std::ostringstream("x"));
    EXPECT_STREQ(error.file, "libn/src/libn");
    EXPECT_EQ(error.line, 135);
    EXPECT_EQ(error.code, 0);
}

TEST(RaiseText, PercentSignInAValueIsAConversion) {
    EXPECT_STREQ(raisedBy(std::ostringstream("name()<100%d>100%%")).what(), "name()<1000>100%");
    EXPECT_STREQ(raisedBy(std::ostringstream("%s%s%s%n%p")).what(),
                 "(null)(null)(null)0000000000000000");
}

TEST(RaiseText, LongTextIsCut) {
    EXPECT_EQ(raisedBy(std::ostringstream(std::string(5000, 'x'))).what(), std::string(4094, 'x'));
}

#include "dw_util/pathRule.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <string>

#include "platform/process.h"
#include "support/scopedCalls.h"

namespace {

std::string program;

// Resolves `name` for a program at `program`; both with / as the separator of this system.
class PathRule : public testing::Test {
  protected:
    PathRule() {
        platform::calls.executablePath = [](char* out, std::size_t size) {
            const std::size_t length = std::min(program.size(), size - 1);
            std::memcpy(out, program.data(), length);
            out[length] = '\0';
            return length;
        };
        program = local("/a/b/p.exe");
    }

    static std::string local(std::string path) {
        for (char& c : path)
            if (c == '/')
                c = platform::pathForm.separator;
        return path;
    }

    static std::string resolved(const std::string& name) {
        PathBuffer out;
        std::memset(out, '#', sizeof out);
        EXPECT_EQ(resolvePath(out, local(name).c_str()), 0);
        return out;
    }

  private:
    ScopedCalls m_scope;
};

} // namespace

TEST_F(PathRule, EmptyNameStaysEmpty) {
    EXPECT_EQ(resolved(""), "");
    PathBuffer out = {'#'};
    EXPECT_EQ(resolvePath(out, nullptr), 0);
    EXPECT_STREQ(out, "");
}

TEST_F(PathRule, BareNameIsBesideTheProgram) {
    EXPECT_EQ(resolved("x.vd"), local("/a/b/x.vd"));
    EXPECT_EQ(resolved("sub/x.vd"), local("/a/b/sub/x.vd"));
}

TEST_F(PathRule, DotsCountFromTheProgram) {
    EXPECT_EQ(resolved("./x"), local("/a/b/x"));
    EXPECT_EQ(resolved("../y/z"), local("/a/y/z"));
    EXPECT_EQ(resolved(".../y"), local("/y"));
}

TEST_F(PathRule, DotsPastTheTopStopThere) {
    EXPECT_EQ(resolved("........./x"), local("/x"));
    program = "p";
    EXPECT_EQ(resolved("./x"), local("/x"));
}

TEST_F(PathRule, NameBehindTheDotsIsDroppedUpToItsSeparator) {
    EXPECT_EQ(resolved(".hidden/x"), local("/a/b/x"));
    EXPECT_EQ(resolved("..x/y/z"), local("/a/y/z"));
}

TEST_F(PathRule, DotsWithoutASeparatorGiveTheFolderAlone) {
    EXPECT_EQ(resolved(".x"), local("/a/b"));
    EXPECT_EQ(resolved("."), local("/a/b"));
    EXPECT_EQ(resolved(".."), local("/a"));
}

TEST_F(PathRule, NetworkNameStays) {
    EXPECT_EQ(resolved("//server/share/x"), local("//server/share/x"));
}

TEST_F(PathRule, DriveLetterIsAbsoluteWhereTheSystemHasDrives) {
    EXPECT_EQ(resolved("C:/d/x"), platform::pathForm.drives ? local("C:/d/x") : "/a/b/C:/d/x");
    EXPECT_EQ(resolved("C:"), platform::pathForm.drives ? "C:" : "/a/b/C:");
    EXPECT_EQ(resolved("::x"), platform::pathForm.drives ? "::x" : "/a/b/::x");
}

TEST_F(PathRule, OneLeadingSeparatorIsDoubledOrAbsolute) {
    EXPECT_EQ(resolved("/x"), platform::pathForm.absolutePrefix == 1 ? "/x" : "\\a\\b\\\\x");
}

TEST_F(PathRule, BackslashSeparatesEverywhere) {
    PathBuffer out = {};
    EXPECT_EQ(resolvePath(out, "..\\y\\z"), 0);
    EXPECT_EQ(out, local("/a/y/z"));
    EXPECT_EQ(resolvePath(out, "s\\x.vd"), 0);
    EXPECT_EQ(out, local("/a/b/s/x.vd"));
    EXPECT_EQ(resolvePath(out, "\\\\server\\x"), 0);
    EXPECT_EQ(out, local("//server/x"));
}

TEST_F(PathRule, ProgramWithoutAPathLeavesTheName) {
    program.clear();
    EXPECT_EQ(resolved("x.vd"), "x.vd");
    program = "p.exe";
    EXPECT_EQ(resolved("x.vd"), "x.vd");
}

TEST_F(PathRule, ProgramInTheTopFolder) {
    program = local("/p");
    EXPECT_EQ(resolved("x"), local("/x"));
    EXPECT_EQ(resolved("./x"), local("/x"));
}

TEST_F(PathRule, LongNamesAreCutAndTerminated) {
    const std::string name(1000, 'n');
    EXPECT_EQ(resolved(name), local("/a/b/") + name.substr(0, 254));
    EXPECT_EQ(resolved("//" + name), local("//") + name.substr(0, 257));
    EXPECT_EQ(resolved("./" + name), local("/a/b/") + name.substr(0, 254));
    program = local("/" + std::string(1000, 'd') + "/p");
    EXPECT_EQ(resolved("//x"), local("//x"));
}

TEST_F(PathRule, ExceptionEmptiesTheResult) {
    platform::calls.executablePath = [](char*, std::size_t) -> std::size_t {
        throw std::runtime_error("no path");
    };
    PathBuffer out = {'#', '#'};
    EXPECT_EQ(resolvePath(out, "x"), 1);
    EXPECT_STREQ(out, "");
}

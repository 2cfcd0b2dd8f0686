#include "platform/process.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <string>

TEST(Process, ExecutablePathIsThatOfThisProgram) {
    char path[1024] = {};
    const std::size_t length = platform::calls.executablePath(path, sizeof path);
    EXPECT_EQ(length, std::string(path).size());
    EXPECT_TRUE(std::filesystem::exists(path));
    EXPECT_EQ(std::filesystem::path(path).stem().string(), "vdreader_unit_tests");
    EXPECT_NE(std::string(path).find(platform::pathForm.separator), std::string::npos);
}

TEST(Process, ExecutablePathIsCutAndTerminated) {
    char whole[1024] = {};
    platform::calls.executablePath(whole, sizeof whole);
    char cut[8];
    std::fill(std::begin(cut), std::end(cut), '#');
    platform::calls.executablePath(cut, sizeof cut);
    EXPECT_EQ(std::string(cut), std::string(whole).substr(0, 7));
}

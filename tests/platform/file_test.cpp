#include "platform/file.h"

#include <gtest/gtest.h>

#include <string>

#include "platform/error.h"
#include "support/scopedCalls.h"
#include "support/tempFolder.h"

namespace {

std::string readAt(const platform::ReadFile& file, std::uint64_t offset, std::size_t size) {
    std::string bytes(size, '#');
    const std::ptrdiff_t count = file.readAt(offset, bytes.data(), size);
    return count < 0 ? "(failed)" : bytes.substr(0, static_cast<std::size_t>(count));
}

int closed = 0;

} // namespace

TEST(ReadFile, ReadsAtAnyPosition) {
    const TempFolder folder;
    const platform::ReadFile file(folder.write("f", "abcdef").c_str());
    ASSERT_TRUE(file.isOpen());
    EXPECT_EQ(file.size(), 6);
    EXPECT_EQ(readAt(file, 2, 3), "cde");
    EXPECT_EQ(readAt(file, 0, 2), "ab");
    EXPECT_EQ(readAt(file, 4, 10), "ef");
    EXPECT_EQ(readAt(file, 6, 10), "");
    EXPECT_EQ(readAt(file, std::uint64_t{1} << 33, 10), "");
}

TEST(ReadFile, EmptyFileHasNothing) {
    const TempFolder folder;
    const platform::ReadFile file(folder.write("f", "").c_str());
    ASSERT_TRUE(file.isOpen());
    EXPECT_EQ(file.size(), 0);
    EXPECT_EQ(readAt(file, 0, 1), "");
}

TEST(ReadFile, MissingFileAndFolderDoNotOpen) {
    const TempFolder folder;
    EXPECT_FALSE(platform::ReadFile(folder.name("none").c_str()).isOpen());
    EXPECT_NE(platform::lastError(), 0u);
    EXPECT_FALSE(platform::ReadFile(folder.path().string().c_str()).isOpen());
    EXPECT_NE(platform::lastError(), 0u);
}

TEST(ReadFile, OthersMayReadAndWriteMeanwhile) {
    const TempFolder folder;
    const std::string name = folder.write("f", "old");
    const platform::ReadFile file(name.c_str());
    const platform::ReadFile second(name.c_str());
    EXPECT_TRUE(second.isOpen());
    std::ofstream writer(name, std::ios::binary | std::ios::in | std::ios::out);
    ASSERT_TRUE(writer.is_open());
    writer << "new and longer" << std::flush;
    EXPECT_EQ(readAt(file, 0, 20), "new and longer");
    const platform::ReadFile third(name.c_str());
    EXPECT_TRUE(third.isOpen());
}

TEST(ReadFile, ClosesOnceAlsoAfterAMove) {
    const TempFolder folder;
    const std::string name = folder.write("f", "x");
    const ScopedCalls scope;
    static const platform::Calls* real;
    real = &scope.saved();
    platform::calls.closeFile = [](platform::FileHandle file) {
        ++closed;
        real->closeFile(file);
    };
    closed = 0;
    {
        platform::ReadFile first(name.c_str());
        platform::ReadFile second(std::move(first));
        EXPECT_FALSE(first.isOpen()); // NOLINT(bugprone-use-after-move)
        EXPECT_TRUE(second.isOpen());
        first = std::move(second);
        EXPECT_TRUE(first.isOpen());
        EXPECT_EQ(closed, 0);
    }
    EXPECT_EQ(closed, 1);
}

TEST(ReadFile, FailedOpenClosesNothing) {
    const ScopedCalls scope;
    platform::calls.openForReading = [](const char*) { return platform::kNoFile; };
    platform::calls.closeFile = [](platform::FileHandle) { ++closed; };
    closed = 0;
    { const platform::ReadFile file("any"); }
    EXPECT_EQ(closed, 0);
}

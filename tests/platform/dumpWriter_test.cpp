#include "platform/dumpWriter.h"

#include <chrono>
#include <cstring>
#include <filesystem>
#include <string>

#include <gtest/gtest.h>

#include "platform/clock.h"
#include "platform/thread.h"
#include "support/tempFolder.h"

namespace {

const platform::DumpCalls& calls() {
    return platform::dumpCalls;
}

const void* unreadable() {
    return reinterpret_cast<const void*>(16);
}

// A name of the system that is given back.
struct Name {
    explicit Name(const std::string& text) : made(calls().systemName(text.c_str())) {}
    ~Name() { calls().freeSystemName(made); }
    Name(const Name&) = delete;
    Name& operator=(const Name&) = delete;
    platform::SystemName made;
};

} // namespace

TEST(DumpCalls, ClockIsLocal) {
    const std::int64_t now = std::chrono::duration_cast<std::chrono::seconds>(
                                 std::chrono::system_clock::now().time_since_epoch())
                                 .count();
    const std::tm local = platform::localTime(now);
    const auto told = static_cast<std::int64_t>(calls().localFileTime() / 10'000'000);
    const std::int64_t ofDay = local.tm_hour * 3600 + local.tm_min * 60 + local.tm_sec;
    EXPECT_NEAR(static_cast<double>((told - ofDay + 43200) % 86400), 43200, 5);
    EXPECT_NEAR(static_cast<double>(told - 11'644'473'600 - now), 0, 15 * 3600.0);
}

TEST(DumpCalls, FolderIsMadeOnce) {
    const TempFolder folder;
    EXPECT_TRUE(calls().createFolder(folder.name("new").c_str()));
    EXPECT_TRUE(std::filesystem::is_directory(folder.name("new")));
    EXPECT_FALSE(calls().createFolder(folder.name("new").c_str()));
    EXPECT_FALSE(calls().createFolder(folder.name("absent/new").c_str()));
}

TEST(DumpCalls, FolderMayEndInASeparator) {
    const TempFolder folder;
    EXPECT_TRUE(calls().createFolder((folder.name("new") + "/").c_str()));
    EXPECT_TRUE(std::filesystem::is_directory(folder.name("new")));
}

TEST(DumpCalls, BadTexts) {
    EXPECT_TRUE(calls().badText(nullptr, 260));
    EXPECT_TRUE(calls().badText(static_cast<const char*>(unreadable()), 260));
    EXPECT_FALSE(calls().badText("", 260));
    EXPECT_FALSE(calls().badText("a text", 260));
    const std::string longer(9000, 'x');
    EXPECT_FALSE(calls().badText(longer.c_str(), 260));
    EXPECT_FALSE(calls().badText(longer.c_str(), 10000));
}

TEST(DumpCalls, BadMemory) {
    EXPECT_TRUE(calls().badMemory(nullptr, 8));
    EXPECT_TRUE(calls().badMemory(unreadable(), 8));
    const std::string block(20000, 'x');
    EXPECT_FALSE(calls().badMemory(block.data(), block.size()));
    EXPECT_TRUE(calls().badMemory(reinterpret_cast<const void*>(~std::uintptr_t{0} - 3), 8));
}

TEST(DumpCalls, SystemNames) {
    const Name name("name.dmp");
    ASSERT_NE(name.made, nullptr);
    EXPECT_FALSE(calls().badSystemName(name.made, 260));
    EXPECT_TRUE(calls().badSystemName(nullptr, 260));
    EXPECT_TRUE(calls().badSystemName(const_cast<void*>(unreadable()), 260));
    calls().freeSystemName(nullptr);
}

TEST(DumpCalls, FileIsMadeAndEmptied) {
    const TempFolder folder;
    folder.write("x.dmp", "old content");
    const Name name(folder.name("x.dmp"));
    const platform::DumpFile file = calls().createFile(name.made);
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(std::filesystem::file_size(folder.name("x.dmp")), 0u);
    EXPECT_TRUE(calls().closeFile(file));
}

TEST(DumpCalls, FileIsNotShared) {
    const TempFolder folder;
    const Name name(folder.name("x.dmp"));
    const platform::DumpFile file = calls().createFile(name.made);
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(calls().createFile(name.made), nullptr);
    EXPECT_TRUE(calls().closeFile(file));
    const platform::DumpFile again = calls().createFile(name.made);
    EXPECT_NE(again, nullptr);
    calls().closeFile(again);
}

TEST(DumpCalls, FileThatCannotBeMade) {
    const TempFolder folder;
    EXPECT_EQ(calls().createFile(Name(folder.name("absent/x.dmp")).made), nullptr);
    EXPECT_EQ(calls().createFile(Name(folder.path().string()).made), nullptr);
}

TEST(DumpCalls, ThreadRunsAndIsWaitedFor) {
    std::uint32_t other = 0;
    EXPECT_TRUE(calls().runOnThread(
        [](void* out) { *static_cast<std::uint32_t*>(out) = platform::threadId(); }, &other));
    EXPECT_NE(other, 0u);
    EXPECT_NE(other, platform::threadId());
}

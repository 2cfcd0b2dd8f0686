#include "logs/LogStream.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <string>

#include "support/scopedCalls.h"
#include "support/tempFolder.h"
#include "support/writeOnlyFile.h"

namespace {

int appends = 0;

void put(LogStream& stream, const std::string& text) {
    stream.put(text);
    stream.flush();
}

} // namespace

TEST(LogStream, MakesTheFileAndKeepsOneThatIsThere) {
    const TempFolder folder;
    EXPECT_TRUE(LogStream(folder.name("new").c_str()).isOpen());
    EXPECT_TRUE(std::filesystem::exists(folder.path() / "new"));
    folder.write("old", "before|");
    LogStream stream(folder.name("old").c_str());
    ASSERT_TRUE(stream.isOpen());
    put(stream, "behind");
    EXPECT_EQ(folder.read("old"), "before|behind");
}

TEST(LogStream, TakesAFileThatMayBeWrittenAndNotRead) {
    const TempFolder folder;
    const std::string path = folder.write("x", "before|");
    {
        const WriteOnlyFile closed(path);
        if (!closed.holds())
            GTEST_SKIP() << "the file system lets the file be read all the same";
        LogStream stream(path.c_str());
        ASSERT_TRUE(stream.isOpen());
        put(stream, "behind");
    }
    EXPECT_EQ(folder.read("x"), "before|behind");
}

TEST(LogStream, WithoutItsFolderItIsNotOpen) {
    const TempFolder folder;
    LogStream stream(folder.name("none/x.log").c_str());
    EXPECT_FALSE(stream.isOpen());
    put(stream, "x"); // goes nowhere
    EXPECT_FALSE(LogStream(folder.path().string().c_str()).isOpen());
    EXPECT_FALSE(LogStream("").isOpen());
}

TEST(LogStream, LineFeedsBecomeLineEndsOfWindowsEverywhere) {
    const TempFolder folder;
    LogStream stream(folder.name("x").c_str());
    put(stream, "a\n");
    put(stream, "\n\nb");
    put(stream, "c\r\n");
    put(stream, "d\ne\n");
    EXPECT_EQ(folder.read("x"), "a\r\n\r\n\r\nbc\r\r\nd\r\ne\r\n");
}

TEST(LogStream, AllBytesButLineFeedsStay) {
    const TempFolder folder;
    LogStream stream(folder.name("x").c_str());
    std::string all;
    for (int byte = 0; byte < 256; ++byte)
        if (byte != '\n')
            all += static_cast<char>(byte);
    put(stream, all);
    EXPECT_EQ(folder.read("x"), all);
}

TEST(LogStream, NothingReachesTheFileBeforeTheFlush) {
    const TempFolder folder;
    LogStream stream(folder.name("x").c_str());
    stream.put("a", 1);
    stream.put("b\n", 2);
    EXPECT_EQ(folder.read("x"), "");
    stream.flush();
    EXPECT_EQ(folder.read("x"), "ab\r\n");
    stream.flush();
    EXPECT_EQ(folder.read("x"), "ab\r\n");
}

TEST(LogStream, DiscardedTextIsGone) {
    const TempFolder folder;
    LogStream stream(folder.name("x").c_str());
    put(stream, "a");
    stream.put("b", 1);
    stream.discard();
    put(stream, "c");
    EXPECT_EQ(folder.read("x"), "ac");
}

TEST(LogStream, WritesBehindWhatOthersWrote) {
    const TempFolder folder;
    LogStream stream(folder.name("x").c_str());
    put(stream, "mine|");
    LogStream second(folder.name("x").c_str());
    put(second, "second|");
    std::ofstream(folder.path() / "x", std::ios::binary | std::ios::app) << "theirs|";
    put(stream, "mine again|");
    put(second, "second again");
    EXPECT_EQ(folder.read("x"), "mine|second|theirs|mine again|second again");
}

TEST(LogStream, TextThatTheSystemTakesInPiecesIsWhole) {
    const TempFolder folder;
    const ScopedCalls calls;
    static const ScopedCalls* saved = nullptr;
    saved = &calls;
    platform::calls.appendStorage = [](platform::StorageHandle file, const void* data,
                                       std::uint32_t size, std::uint32_t* done) {
        return saved->saved().appendStorage(file, data, std::min(size, 3u), done);
    };
    LogStream stream(folder.name("x").c_str());
    put(stream, "0123456789\n");
    EXPECT_EQ(folder.read("x"), "0123456789\r\n");
}

TEST(LogStream, AfterOneFailureNothingIsWrittenAnyMore) {
    const TempFolder folder;
    LogStream stream(folder.name("x").c_str());
    put(stream, "before\n");
    {
        const ScopedCalls calls;
        platform::calls.appendStorage = [](platform::StorageHandle, const void*, std::uint32_t,
                                           std::uint32_t* done) {
            *done = 0;
            return false;
        };
        put(stream, "lost\n");
    }
    const ScopedCalls calls;
    appends = 0;
    platform::calls.appendStorage = [](platform::StorageHandle, const void*, std::uint32_t size,
                                       std::uint32_t* done) {
        ++appends;
        *done = size;
        return true;
    };
    put(stream, "behind\n");
    EXPECT_TRUE(stream.isOpen());
    EXPECT_EQ(appends, 0);
    EXPECT_EQ(folder.read("x"), "before\r\n");
}

TEST(LogStream, FileThatTakesNothingCountsAsFull) {
    const TempFolder folder;
    const ScopedCalls calls;
    platform::calls.appendStorage = [](platform::StorageHandle, const void*, std::uint32_t,
                                       std::uint32_t* done) {
        ++appends;
        *done = 0;
        return true;
    };
    LogStream stream(folder.name("x").c_str());
    appends = 0;
    put(stream, "x");
    put(stream, "y");
    EXPECT_EQ(appends, 1);
}

#ifndef _WIN32
TEST(LogStream, FullDeviceIsAFailureAndNoMore) {
    LogStream stream("/dev/full");
    ASSERT_TRUE(stream.isOpen());
    put(stream, "x\n");
    put(stream, "y\n");
    EXPECT_TRUE(stream.isOpen());
}
#endif

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "fakeHandles.h"
#include "libn/WinFile.h"
#include "support/tempFolder.h"

namespace {

using namespace fakeFiles;
using libn::WinFile;
using platform::StorageHandle;

// What a file reads in front of its end.
std::string readAll(WinFile& file, std::uint64_t most = 1000) {
    std::string bytes(most, '#');
    std::uint64_t done = 0;
    return file.read(bytes.data(), most, &done) ? bytes.substr(0, done) : "(failed)";
}

} // namespace

// ---- reading ----

TEST(WinFileRead, ShortReadIsTrueAndTellsItsCount) {
    const TempFolder folder;
    WinFile file;
    ASSERT_TRUE(file.openExisting(folder.write("f", "abcdef").c_str(), 0, false));
    char buffer[10] = {};
    std::uint64_t done = 99;
    EXPECT_TRUE(file.read(buffer, 4, &done));
    EXPECT_EQ(done, 4u);
    EXPECT_TRUE(file.read(buffer, 10, &done));
    EXPECT_EQ(done, 2u);
    EXPECT_EQ(std::memcmp(buffer, "efcd", 4), 0);
    EXPECT_TRUE(file.read(buffer, 10, &done)) << "at the end of the file";
    EXPECT_EQ(done, 0u);
    EXPECT_TRUE(file.read(buffer, 1, nullptr));
}

TEST(WinFileRead, RefusesNullAndNothing) {
    const TempFolder folder;
    WinFile file;
    ASSERT_TRUE(file.openExisting(folder.write("f", "abc").c_str(), 0, false));
    char byte = 'x';
    std::uint64_t done = 99;
    EXPECT_FALSE(file.read(nullptr, 1, &done));
    EXPECT_FALSE(file.read(&byte, 0, &done));
    EXPECT_EQ(done, 99u);
    EXPECT_EQ(file.tell(), 0);
}

TEST(WinFileRead, AsksForTheRestUntilAllIsThere) {
    const FakeHandles handles;
    platform::calls.readStorage = [](StorageHandle file, void* out, std::uint32_t size,
                                     std::uint32_t* done) {
        EXPECT_EQ(file, handle(1));
        noted.sizes.push_back(size);
        std::memset(out, static_cast<int>('0' + noted.sizes.size()), 2);
        *done = 2;
        return true;
    };
    WinFile file;
    file.create("a", 0);
    EXPECT_EQ(readAll(file, 6), "112233");
    EXPECT_EQ(noted.sizes, (std::vector<std::uint64_t>{6, 4, 2}));
}

TEST(WinFileRead, FailureTellsWhatCameBefore) {
    const FakeHandles handles;
    platform::calls.readStorage = [](StorageHandle, void* out, std::uint32_t, std::uint32_t* done) {
        noted.sizes.push_back(0);
        const bool good = noted.sizes.size() < 3;
        *done = good ? 2 : 1;
        std::memset(out, 'a', *done);
        return good;
    };
    WinFile file;
    file.create("a", 0);
    char buffer[8] = {};
    std::uint64_t done = 99;
    EXPECT_FALSE(file.read(buffer, 8, &done));
    EXPECT_EQ(done, 5u) << "also with what the failed call brought";
    EXPECT_STREQ(buffer, "aaaaa");
    EXPECT_FALSE(file.read(buffer, 8, &done));
    EXPECT_EQ(done, 1u);
    EXPECT_FALSE(file.read(buffer, 8, nullptr));
}

TEST(WinFileRead, PiecesHaveAtMost4294967295Bytes) {
    const FakeHandles handles;
    platform::calls.readStorage = [](StorageHandle, void*, std::uint32_t size,
                                     std::uint32_t* done) {
        noted.sizes.push_back(size);
        *done = size;
        return true;
    };
    WinFile file;
    file.create("a", 0);
    char byte = 0;
    std::uint64_t done = 0;
    EXPECT_TRUE(file.read(&byte, 0x1'0000'0004, &done));
    EXPECT_EQ(done, 0x1'0000'0004u);
    EXPECT_EQ(noted.sizes, (std::vector<std::uint64_t>{0xFFFFFFFF, 5}));
}

// ---- writing ----

namespace {

// A storage that takes two bytes at a call, and fails or takes nothing from its fourth call on.
bool takeTwo(StorageHandle, const void* data, std::uint32_t size, std::uint32_t* done) {
    noted.sizes.push_back(size);
    *done = std::min<std::uint32_t>(size, 2);
    noted.bytes.append(static_cast<const char*>(data), *done);
    return true;
}
bool failFourth(StorageHandle file, const void* data, std::uint32_t size, std::uint32_t* done) {
    *done = 0;
    return noted.sizes.size() < 3 && takeTwo(file, data, size, done);
}
bool stopFourth(StorageHandle file, const void* data, std::uint32_t size, std::uint32_t* done) {
    *done = 0;
    return noted.sizes.size() >= 3 || takeTwo(file, data, size, done);
}
bool unexpected(StorageHandle, const void*, std::uint32_t, std::uint32_t* done) {
    ADD_FAILURE() << "called";
    *done = 0;
    return false;
}

using Put = bool (*)(WinFile& file, const void* data, std::uint64_t size);

// Writing and appending differ in the call of the platform alone.
struct Way {
    const char* name;
    Put put;
    bool (*platform::Calls::*call)(StorageHandle, const void*, std::uint32_t, std::uint32_t*);
};
const Way kWays[] = {
    {"write",
     [](WinFile& file, const void* data, std::uint64_t size) { return file.write(data, size); },
     &platform::Calls::writeStorage},
    {"append",
     [](WinFile& file, const void* data, std::uint64_t size) { return file.append(data, size); },
     &platform::Calls::appendStorage},
};

} // namespace

TEST(WinFileWrite, GoesOnUntilAllIsTaken) {
    for (const Way& way : kWays) {
        const FakeHandles handles;
        platform::calls.writeStorage = unexpected;
        platform::calls.appendStorage = unexpected;
        platform::calls.*way.call = takeTwo;
        WinFile file;
        file.create("a", 0);
        EXPECT_TRUE(way.put(file, "abcde", 5)) << way.name;
        EXPECT_EQ(noted.bytes, "abcde") << way.name;
        EXPECT_EQ(noted.sizes, (std::vector<std::uint64_t>{5, 3, 1})) << way.name;
    }
}

TEST(WinFileWrite, FailsWhereACallFailsOrTakesNothing) {
    for (const Way& way : kWays)
        for (const auto call : {failFourth, stopFourth}) {
            const FakeHandles handles;
            platform::calls.*way.call = call;
            WinFile file;
            file.create("a", 0);
            EXPECT_FALSE(way.put(file, "abcdefgh", 8)) << way.name;
            EXPECT_EQ(noted.bytes, "abcdef") << way.name;
        }
}

TEST(WinFileWrite, PiecesHaveAtMost4294967295Bytes) {
    for (const Way& way : kWays) {
        const FakeHandles handles;
        platform::calls.*
            way.call = [](StorageHandle, const void*, std::uint32_t size, std::uint32_t* done) {
            noted.sizes.push_back(size);
            *done = size;
            return true;
        };
        WinFile file;
        file.create("a", 0);
        EXPECT_TRUE(way.put(file, "a", 0x1'0000'0004)) << way.name;
        EXPECT_EQ(noted.sizes, (std::vector<std::uint64_t>{0xFFFFFFFF, 5})) << way.name;
    }
}

TEST(WinFileWrite, NothingIsWrittenWithoutACall) {
    for (const Way& way : kWays) {
        const FakeHandles handles;
        platform::calls.*way.call = unexpected;
        WinFile file;
        file.create("a", 0);
        EXPECT_TRUE(way.put(file, "", 0)) << way.name;
        EXPECT_FALSE(way.put(file, nullptr, 0)) << way.name;
        EXPECT_FALSE(way.put(file, nullptr, 5)) << way.name;
    }
}

TEST(WinFileWrite, AppendFindsTheEndAnew) {
    const TempFolder folder;
    WinFile first;
    WinFile second;
    ASSERT_TRUE(first.openAlways(folder.write("f", "abc").c_str(), 0));
    ASSERT_TRUE(second.openAlways(folder.name("f").c_str(), 0));
    EXPECT_TRUE(first.append("1", 1));
    EXPECT_TRUE(second.append("2", 1));
    EXPECT_TRUE(first.append("3", 1));
    EXPECT_EQ(first.tell(), 6);
    EXPECT_EQ(folder.read("f"), "abc123");
}

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <system_error>

#include "libn/MappableStorage.h"
#include "support/scopedCalls.h"
#include "support/tempFolder.h"

namespace {

std::unique_ptr<WinMappableStorageFile> opened(const std::string& path) {
    auto storage = std::make_unique<WinMappableStorageFile>(path.c_str());
    std::error_code error;
    EXPECT_TRUE(storage->open(0, error)) << error.message();
    return storage;
}

} // namespace

TEST(MappableStorageRead, GivesWhatIsThere) {
    const TempFolder folder;
    const auto storage = opened(folder.write("f", "abcdef"));
    char buffer[10] = {};
    std::uint64_t done = 99;
    EXPECT_TRUE(storage->read(buffer, 1, 3, &done));
    EXPECT_EQ(done, 3u);
    EXPECT_STREQ(buffer, "bcd");
    EXPECT_FALSE(storage->read(buffer, 4, 3, &done));
    EXPECT_EQ(done, 2u);
    EXPECT_FALSE(storage->read(buffer, 6, 3, &done));
    EXPECT_EQ(done, 0u);
    EXPECT_TRUE(storage->read(buffer, 0, 6, nullptr));
}

TEST(MappableStorageRead, RefusesWhatItCannotDo) {
    const TempFolder folder;
    char byte = 0;
    std::uint64_t done = 99;
    WinMappableStorageFile closed(folder.write("f", "abc").c_str());
    EXPECT_FALSE(closed.read(&byte, 0, 1, &done));
    const auto storage = opened(folder.name("f"));
    EXPECT_FALSE(storage->read(nullptr, 0, 1, &done));
    EXPECT_FALSE(storage->read(&byte, 0, 0, &done));
    const ScopedCalls calls;
    platform::calls.seekStorage = [](platform::StorageHandle, std::uint64_t) { return false; };
    EXPECT_FALSE(storage->read(&byte, 0, 1, &done));
    EXPECT_EQ(done, 99u);
}

TEST(MappableStorageRead, GoesOnAfterShortReadsAndCountsAFailedOne) {
    static int reads;
    reads = 0;
    const TempFolder folder;
    const auto storage = opened(folder.write("f", "abc"));
    const ScopedCalls calls;
    platform::calls.readStorage = [](platform::StorageHandle, void* out, std::uint32_t,
                                     std::uint32_t* done) {
        *static_cast<char*>(out) = static_cast<char>('0' + reads);
        *done = 1;
        return ++reads < 4;
    };
    char buffer[10] = {};
    std::uint64_t done = 99;
    EXPECT_TRUE(storage->read(buffer, 0, 3, &done));
    EXPECT_STREQ(buffer, "012");
    reads = 1;
    EXPECT_FALSE(storage->read(buffer, 0, 9, &done));
    EXPECT_EQ(done, 3u);
    reads = 3;
    EXPECT_FALSE(storage->read(buffer, 0, 1, &done));
    EXPECT_EQ(done, 1u);
}

TEST(MappableStorageRead, AsksForFourGigabytesAtMost) {
    static std::uint32_t asked[3];
    static int reads;
    reads = 0;
    const TempFolder folder;
    const auto storage = opened(folder.write("f", "abc"));
    const ScopedCalls calls;
    platform::calls.readStorage = [](platform::StorageHandle, void*, std::uint32_t size,
                                     std::uint32_t* done) {
        asked[reads++] = size;
        *done = size;
        return true;
    };
    char byte = 0;
    std::uint64_t done = 0;
    EXPECT_TRUE(storage->read(&byte, 0, 0x1'0000'0009, &done));
    EXPECT_EQ(reads, 2);
    EXPECT_EQ(asked[0], 0xFFFFFFFFu);
    EXPECT_EQ(asked[1], 10u);
    EXPECT_EQ(done, 0x1'0000'0009u);
}

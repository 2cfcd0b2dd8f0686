// Storage files that two openers have at a time: what each of them may still do.
//
// Another handle of this process stands for another process; the systems make no difference.

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <system_error>

#include "libn/MappableStorage.h"
#include "support/raised.h"
#include "support/tempFolder.h"

namespace {

#ifdef _WIN32
constexpr bool kLocks = true;
#else
constexpr bool kLocks = false;
#endif

// Numbers of Windows.
constexpr int kSharingViolation = 32;
constexpr int kUserMapped = 1224;

constexpr std::uint32_t kExisting = 0;
constexpr std::uint32_t kEmptied = 1;
constexpr std::uint32_t kReading = 3;

using Storage = std::unique_ptr<WinMappableStorageFile>;

// An opened storage, or none with the reason in `error`.
Storage opened(const std::string& path, std::uint32_t mode, int& error) {
    auto storage = std::make_unique<WinMappableStorageFile>(path.c_str());
    std::error_code code;
    const bool open = storage->open(mode, code);
    error = code.value();
    return open ? std::move(storage) : nullptr;
}

Storage opened(const std::string& path, std::uint32_t mode) {
    int error = 0;
    Storage storage = opened(path, mode, error);
    EXPECT_EQ(error, 0);
    return storage;
}

} // namespace

TEST(MappableStorageSharing, ReaderAloneLocksWritersOutOnWindows) {
    const TempFolder folder;
    const std::string path = folder.write("f", "abc");
    int error = 0;
    Storage reader = opened(path, kReading);
    EXPECT_NE(opened(path, kReading), nullptr) << "other readers get in";
    for (const std::uint32_t mode : {kExisting, 2u, 7u}) {
        EXPECT_EQ(opened(path, mode, error) != nullptr, !kLocks) << mode;
        EXPECT_EQ(error, kLocks ? kSharingViolation : 0) << mode;
    }
    reader = nullptr;
    Storage writer = opened(path, kExisting);
    ASSERT_NE(writer, nullptr) << "the reader has gone";
    EXPECT_EQ(opened(path, kReading, error) != nullptr, !kLocks) << "a writer is there";
    EXPECT_EQ(error, kLocks ? kSharingViolation : 0);
}

TEST(MappableStorageSharing, ClearOfAFileThatAnotherHasMappedFailsOnWindows) {
    const TempFolder folder;
    const std::string path = folder.write("f", "content");
    const Storage other = opened(path, kExisting);
    other->createMapping(1);
    const Storage storage = opened(path, kExisting);
    const std::string text = raisedText([&] { storage->clear(); });
    EXPECT_EQ(text, kLocks ? "MappableStorageFile clear SetEndOfFile:name()<" + path +
                                 ">GetLastError()<" + std::to_string(kUserMapped) + ">"
                           : "(nothing)");
    EXPECT_EQ(folder.read("f"), kLocks ? "content" : "");
    other->close();
    storage->clear();
    EXPECT_EQ(folder.read("f"), "");
}

TEST(MappableStorageSharing, EmptyingOpenOfAFileThatAnotherHasMappedFailsOnWindows) {
    const TempFolder folder;
    const std::string path = folder.write("f", "content");
    const Storage other = opened(path, kExisting);
    other->createMapping(1);
    void* const view = other->mapPtr(0, 7);
    int error = 0;
    EXPECT_EQ(opened(path, kEmptied, error) != nullptr, !kLocks);
    EXPECT_EQ(error, kLocks ? kUserMapped : 0);
    EXPECT_EQ(folder.read("f"), kLocks ? "content" : "");
    other->unmapPtr(view, 7);
    other->close();
    EXPECT_NE(opened(path, kEmptied), nullptr);
    EXPECT_EQ(folder.read("f"), "");
}

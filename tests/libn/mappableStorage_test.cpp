#include "libn/MappableStorage.h"

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "libn/memTraceTable.h"
#include "platform/error.h"
#include "platform/mapping.h"
#include "support/capturedLog.h"
#include "support/raised.h"
#include "support/scopedCalls.h"
#include "support/slot.h"
#include "support/tempFolder.h"
#include "vdreader/errors.hpp"

namespace {

constexpr std::uint64_t kMiB = 1'000'000;

// The error that failing calls leave behind.
constexpr std::uint32_t kReason = 5;

std::string reasonField() {
    return "GetLastError()<" + std::to_string(kReason) + ">";
}

std::unique_ptr<WinMappableStorageFile> opened(const std::string& path, std::uint32_t mode = 2) {
    auto storage = std::make_unique<WinMappableStorageFile>(path.c_str());
    std::error_code error;
    EXPECT_TRUE(storage->open(mode, error)) << error.message();
    return storage;
}

void makeFile(const std::string& path, std::uint64_t size) {
    std::ofstream(path, std::ios::binary).put('\0');
    std::filesystem::resize_file(path, size);
}

// The size that a file of `size` bytes has after a mapping up to `end`.
std::uint64_t sizeAfterMapping(std::uint64_t size, std::uint64_t end) {
    const TempFolder folder;
    makeFile(folder.name("f"), size);
    const auto storage = opened(folder.name("f"));
    EXPECT_FALSE(storage->createMapping(end));
    return std::filesystem::file_size(folder.name("f"));
}

template <class... Arguments>
bool fails(Arguments...) {
    platform::setLastError(kReason);
    return false;
}

} // namespace

TEST(MappableStorage, VirtualOperationsStandInTheirOrder) {
    using Open = bool (MappableStorage::*)();
    using OpenMode = bool (MappableStorage::*)(std::uint32_t, std::error_code&);
    EXPECT_EQ(slotOf(&MappableStorage::allowsPageOverlap), 2);
    EXPECT_EQ(slotOf(&MappableStorage::needsGrow), 3);
    EXPECT_EQ(slotOf(&MappableStorage::createMapping), 4);
    EXPECT_EQ(slotOf(&MappableStorage::unmapPtr), 5);
    EXPECT_EQ(slotOf(&MappableStorage::mapPtr), 6);
    EXPECT_EQ(slotOf(static_cast<Open>(&MappableStorage::open)), 7);
    EXPECT_EQ(slotOf(&MappableStorage::clear), 8);
    EXPECT_EQ(slotOf(&MappableStorage::close), 9);
    EXPECT_EQ(slotOf(&MappableStorage::name), 10);
    EXPECT_EQ(slotOf(&MappableStorage::size), 11);
    EXPECT_EQ(slotOf(&MappableStorage::isMapped), 12);
    EXPECT_EQ(slotOf(static_cast<OpenMode>(&MappableStorage::open)), 13);
    EXPECT_EQ(slotOf(&MappableStorage::read), 14);
}

TEST(MappableStorage, ViewsOfAFileMayOverlap) {
    EXPECT_TRUE(WinMappableStorageFile("f").allowsPageOverlap());
}

TEST(MappableStorage, NullPathIsAnEmptyOne) {
    WinMappableStorageFile storage(nullptr);
    EXPECT_EQ(storage.name(), "");
}

TEST(MappableStorage, EmptyPathFailsWithoutAnyCall) {
    const ScopedCalls calls;
    platform::calls.openStorage = [](const char*, platform::StorageAccess) {
        ADD_FAILURE() << "opened";
        return platform::kInvalidStorage;
    };
    platform::calls.closeStorage = [](platform::StorageHandle) {
        ADD_FAILURE() << "closed";
        return true;
    };
    WinMappableStorageFile storage("");
    std::error_code error(1, std::system_category());
    EXPECT_FALSE(storage.open(0, error));
    EXPECT_EQ(error.value(), 22);
    EXPECT_EQ(error.category(), std::generic_category());
    EXPECT_EQ(raisedText([&] { storage.open(); }),
              "MappableStorageFile open CreateFile:name()<>error.message().c_str()<" +
                  error.message() + ">");
}

TEST(MappableStorage, ModesDecideAccessSharingAndDisposition) {
    using platform::Disposition;
    struct Row {
        std::uint32_t mode;
        platform::StorageAccess access;
    };
    static platform::StorageAccess asked;
    const ScopedCalls calls;
    platform::calls.openStorage = [](const char* path, platform::StorageAccess access) {
        EXPECT_STREQ(path, "the path");
        asked = access;
        return platform::kInvalidStorage;
    };
    for (const Row& row : {Row{0, {true, true, Disposition::openExisting}},
                           Row{1, {true, true, Disposition::createAlways}},
                           Row{2, {true, true, Disposition::openAlways}},
                           Row{3, {false, false, Disposition::openExisting}},
                           Row{4, {true, true, Disposition::openExisting}},
                           Row{0xFFFFFFFF, {true, true, Disposition::openExisting}}}) {
        WinMappableStorageFile storage("the path");
        std::error_code error;
        storage.open(row.mode, error);
        EXPECT_EQ(asked.writes, row.access.writes) << row.mode;
        EXPECT_EQ(asked.sharesWrite, row.access.sharesWrite) << row.mode;
        EXPECT_EQ(asked.disposition, row.access.disposition) << row.mode;
    }
    WinMappableStorageFile storage("the path");
    raisedText([&] { storage.open(); });
    EXPECT_EQ(asked.disposition, Disposition::openAlways);
}

TEST(MappableStorage, OpenWithoutAModeMakesTheFileAndKeepsWhatItHolds) {
    const TempFolder folder;
    {
        WinMappableStorageFile storage(folder.name("f").c_str());
        EXPECT_TRUE(storage.open());
        EXPECT_EQ(storage.size(), 0u);
    }
    folder.write("f", "content");
    WinMappableStorageFile storage(folder.name("f").c_str());
    EXPECT_TRUE(storage.open());
    EXPECT_EQ(storage.size(), 7u);
}

TEST(MappableStorage, ModesMapForWritingButTheThird) {
    static bool mapsForWriting;
    static bool viewsForWriting;
    const TempFolder folder;
    for (std::uint32_t mode : {0u, 1u, 2u, 3u, 7u}) {
        folder.write("f", "abc");
        const ScopedCalls calls;
        const auto storage = opened(folder.name("f"), mode);
        platform::calls.createMapping = [](platform::StorageHandle, std::uint64_t, bool writes) {
            mapsForWriting = writes;
            return static_cast<void*>(nullptr);
        };
        platform::calls.mapView = [](platform::MappingHandle, std::uint64_t, std::uint64_t,
                                     bool writes) {
            viewsForWriting = writes;
            return static_cast<void*>(nullptr);
        };
        raisedText([&] { storage->createMapping(3); });
        raisedText([&] { storage->mapPtr(0, 3); });
        EXPECT_EQ(mapsForWriting, mode != 3) << mode;
        EXPECT_EQ(viewsForWriting, mode != 3) << mode;
    }
}

TEST(MappableStorage, FailedOpenLeavesAStorageWithoutSizeAndData) {
    const TempFolder folder;
    WinMappableStorageFile storage(folder.name("none").c_str());
    std::error_code error;
    EXPECT_FALSE(storage.open(0, error));
    EXPECT_EQ(error.value(), 2);
    EXPECT_EQ(error.category(), std::system_category());
    EXPECT_EQ(storage.size(), 0u);
    char byte = 0;
    EXPECT_FALSE(storage.read(&byte, 0, 1, nullptr));
    folder.write("none", "now");
    EXPECT_TRUE(storage.open(0, error));
    EXPECT_FALSE(error);
    EXPECT_EQ(storage.size(), 3u);
}

TEST(MappableStorage, FailedOpenIsRaisedWithNameAndReason) {
    const TempFolder folder;
    const ScopedCalls calls;
    platform::calls.openStorage = [](const char*, platform::StorageAccess) {
        platform::setLastError(kReason);
        return platform::kInvalidStorage;
    };
    const std::string path = folder.name("f");
    WinMappableStorageFile storage(path.c_str());
    const auto failure = raised<CError>([&] { storage.open(); });
    ASSERT_TRUE(failure);
    EXPECT_EQ(failure->what(),
              "MappableStorageFile open CreateFile:name()<" + path + ">error.message().c_str()<" +
                  std::error_code(kReason, std::system_category()).message() + ">");
    EXPECT_STREQ(failure->file, "libn/src/libn");
    EXPECT_EQ(failure->line, 135);
}

TEST(MappableStorage, MappingOfAnEmptyFileMakesOneByte) {
    const TempFolder folder;
    const auto storage = opened(folder.name("f"));
    EXPECT_TRUE(storage->createMapping(1));
    EXPECT_TRUE(storage->isMapped());
    EXPECT_EQ(folder.read("f"), std::string(1, '\0'));
}

TEST(MappableStorage, FileGrowsToTwiceItsSizeThenInSteps) {
    EXPECT_EQ(sizeAfterMapping(100, 1), 100u);
    EXPECT_EQ(sizeAfterMapping(100, 100), 100u);
    EXPECT_EQ(sizeAfterMapping(100, 101), 200u);
    EXPECT_EQ(sizeAfterMapping(100, 300), 300u);
    EXPECT_EQ(sizeAfterMapping(200, 300), 400u);
}

TEST(MappableStorage, GrowthChangesItsRuleAtAHundredMillionBytes) {
    static std::uint64_t present;
    static std::uint64_t wanted;
    const TempFolder folder;
    const auto storage = opened(folder.write("f", "abc"));
    const ScopedCalls calls;
    platform::calls.storageSize = [](platform::StorageHandle) {
        return static_cast<std::int64_t>(present);
    };
    platform::calls.createMapping = [](platform::StorageHandle, std::uint64_t size, bool) {
        wanted = size;
        return static_cast<void*>(nullptr);
    };
    const auto wantedFor = [&](std::uint64_t size, std::uint64_t end) {
        present = size;
        raisedText([&] { storage->createMapping(end); });
        return wanted;
    };
    EXPECT_EQ(wantedFor(99'999'999, 100 * kMiB), 199'999'998u);
    EXPECT_EQ(wantedFor(100 * kMiB, 100 * kMiB + 1), 200 * kMiB);
    EXPECT_EQ(wantedFor(300 * kMiB, 300 * kMiB + 1), 400 * kMiB);
    EXPECT_EQ(wantedFor(300 * kMiB, 500 * kMiB), 500 * kMiB);
    EXPECT_EQ(wantedFor(300 * kMiB, 300 * kMiB), 300 * kMiB);
    EXPECT_EQ(wantedFor(300 * kMiB, 5), 300 * kMiB);
}

TEST(MappableStorage, NeedsToGrowForAnEndPastTheFile) {
    const TempFolder folder;
    const auto storage = opened(folder.write("f", "abc"));
    EXPECT_FALSE(storage->needsGrow(0));
    EXPECT_FALSE(storage->needsGrow(3));
    EXPECT_TRUE(storage->needsGrow(4));
}

TEST(MappableStorage, FailedMappingLeavesNoneAndTheObjectUsable) {
    const TempFolder folder;
    const auto storage = opened(folder.write("f", "abc"));
    storage->createMapping(3);
    {
        const ScopedCalls calls;
        platform::calls.createMapping = [](platform::StorageHandle, std::uint64_t, bool) {
            platform::setLastError(kReason);
            return static_cast<void*>(nullptr);
        };
        EXPECT_EQ(raisedText([&] { storage->createMapping(500); }),
                  "MappableStorageFile createMapping:name().c_str()<" + folder.name("f") +
                      ">end<500>" + reasonField());
        EXPECT_FALSE(storage->isMapped());
    }
    EXPECT_FALSE(storage->createMapping(500));
    EXPECT_TRUE(storage->isMapped());
    EXPECT_EQ(storage->size(), 500u);
}

TEST(MappableStorage, FailureNamesTheEndThatWasAskedFor) {
    const TempFolder folder;
    const auto storage = opened(folder.write("f", std::string(400, 'x')));
    const ScopedCalls calls;
    platform::calls.createMapping = [](platform::StorageHandle, std::uint64_t size, bool) {
        EXPECT_EQ(size, 800u);
        platform::setLastError(kReason);
        return static_cast<void*>(nullptr);
    };
    EXPECT_NE(raisedText([&] { storage->createMapping(401); }).find(">end<401>"),
              std::string::npos);
}

TEST(MappableStorage, ViewsAreMappedWrittenAndTakenAway) {
    const TempFolder folder;
    const auto storage = opened(folder.write("f", "abc"));
    storage->createMapping(10);
    auto* view = static_cast<char*>(storage->mapPtr(0, 10));
    EXPECT_EQ(std::memcmp(view, "abc\0\0", 5), 0);
    view[9] = '!';
    storage->createMapping(20);
    view[8] = '?';
    storage->unmapPtr(view, 4711);
    EXPECT_EQ(folder.read("f"), std::string("abc\0\0\0\0\0?!", 10) + std::string(10, '\0'));
}

TEST(MappableStorage, OffsetOffTheGranularityIsRaisedAndTheStorageGoesOn) {
    const TempFolder folder;
    const auto storage = opened(folder.name("f"));
    storage->createMapping(3 * allocationGranularity());
    const std::string text = raisedText([&] { storage->mapPtr(100, 10); });
    const std::string expected =
        "MappableStorageFile mapPtr. Ensure offset is n multiple memory page size.:name()<" +
        folder.name("f") + ">offset<100>n<10>GetLastError()<";
    EXPECT_EQ(text.substr(0, expected.size()), expected);
    void* view = storage->mapPtr(allocationGranularity(), 10);
    EXPECT_NE(view, nullptr);
    storage->unmapPtr(view, 10);
}

TEST(MappableStorage, ViewWithoutAMappingIsRaised) {
    const TempFolder folder;
    const auto storage = opened(folder.write("f", "abc"));
    EXPECT_NE(raisedText([&] { storage->mapPtr(0, 3); }).find("Ensure offset"), std::string::npos);
}

TEST(MappableStorage, ClearEmptiesTheFileAndDropsTheMapping) {
    const TempFolder folder;
    const auto storage = opened(folder.write("f", "abc"));
    storage->createMapping(3);
    storage->clear();
    EXPECT_FALSE(storage->isMapped());
    EXPECT_EQ(storage->size(), 0u);
    EXPECT_TRUE(storage->createMapping(5));
    EXPECT_EQ(folder.read("f"), std::string(5, '\0'));
}

TEST(MappableStorage, ClearTellsWhichStepFailed) {
    const TempFolder folder;
    const auto storage = opened(folder.write("f", "abc"));
    const std::string pieces = ":name()<" + folder.name("f") + ">" + reasonField();
    const ScopedCalls calls;
    platform::calls.seekStorage = fails<platform::StorageHandle, std::uint64_t>;
    EXPECT_EQ(raisedText([&] { storage->clear(); }),
              "MappableStorageFile clear SetFilePointer" + pieces);
    platform::calls.seekStorage = calls.saved().seekStorage;
    platform::calls.truncateStorage = fails<platform::StorageHandle>;
    EXPECT_EQ(raisedText([&] { storage->clear(); }),
              "MappableStorageFile clear SetEndOfFile" + pieces);
    platform::calls.truncateStorage = calls.saved().truncateStorage;
    storage->clear();
    EXPECT_EQ(storage->size(), 0u);
}

TEST(MappableStorage, FailedCloseIsRaisedAndTriedAgain) {
    const TempFolder folder;
    const auto storage = opened(folder.write("f", "abc"));
    storage->createMapping(3);
    const std::string text = "MappableStorageFile closeHanle:m_filePath.c_str()<" +
                             folder.name("f") + ">" + reasonField();
    {
        const ScopedCalls calls;
        platform::calls.closeStorage = fails<platform::StorageHandle>;
        EXPECT_EQ(raisedText([&] { storage->close(); }), text);
        EXPECT_TRUE(storage->isMapped());
        EXPECT_EQ(storage->size(), 3u);
    }
    {
        const ScopedCalls calls;
        platform::calls.closeMapping = fails<platform::MappingHandle>;
        EXPECT_EQ(raisedText([&] { storage->close(); }), text);
        EXPECT_TRUE(storage->isMapped());
        EXPECT_EQ(storage->size(), 0u);
    }
    storage->close();
    EXPECT_FALSE(storage->isMapped());
    storage->close();
}

TEST(MappableStorage, CloseLeavesViewsGood) {
    const TempFolder folder;
    const auto storage = opened(folder.write("f", "abc"));
    storage->createMapping(3);
    auto* view = static_cast<char*>(storage->mapPtr(0, 3));
    storage->close();
    EXPECT_EQ(view[2], 'c');
    storage->unmapPtr(view, 3);
}

TEST(MappableStorage, OpenKeepsTheMapping) {
    const TempFolder folder;
    const auto storage = opened(folder.write("f", "abc"));
    storage->createMapping(3);
    storage->open();
    EXPECT_TRUE(storage->isMapped());
    EXPECT_FALSE(storage->createMapping(3));
}

TEST(MappableStorage, PercentSignInANameIsAConversion) {
    const TempFolder folder;
    const auto storage = opened(folder.write("f%d", "abc"));
    EXPECT_NE(raisedText([&] { storage->mapPtr(0, 3); }).find("f0>"), std::string::npos);
}

TEST(MappableStorage, GranularityIsThatOfTheSystem) {
    EXPECT_EQ(allocationGranularity(), platform::allocationGranularity());
}

TEST(MappableStorage, FailedClosesInTheDestructorAreReportedOneByOne) {
    const TempFolder folder;
    const ScopedCalls calls;
    const CapturedLog log;
    testing::internal::CaptureStderr();
    static platform::StorageHandle file;
    static platform::MappingHandle mapping;
    {
        const auto storage = opened(folder.write("f", "abc"));
        storage->createMapping(3);
        platform::calls.closeStorage = [](platform::StorageHandle handle) {
            file = handle;
            return fails<>();
        };
        platform::calls.closeMapping = [](platform::MappingHandle handle) {
            mapping = handle;
            return fails<>();
        };
    }
    EXPECT_TRUE(calls.saved().closeStorage(file));
    EXPECT_TRUE(calls.saved().closeMapping(mapping));
    EXPECT_NE(testing::internal::GetCapturedStderr().find(
                  "Unhandled LOCAL exception caught in function "
                  "WinMappableStorageFile::~WinMappableStorageFile, file "
                  "libn/src/MappableStorageFile"),
              std::string::npos);
    EXPECT_EQ(log.lines(CapturedLog::errors).size(), 2u);
}

#include "platform/mapping.h"

#include <gtest/gtest.h>

#ifndef _WIN32
#  include <sys/mman.h>
#  include <sys/stat.h>
#  include <unistd.h>
#endif

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "platform/error.h"
#include "support/tempFolder.h"

namespace {

using platform::calls;
using platform::Disposition;
using platform::kInvalidStorage;
using platform::StorageAccess;

constexpr StorageAccess kExisting = {true, true, Disposition::openExisting};
constexpr StorageAccess kCreate = {true, true, Disposition::createAlways};
constexpr StorageAccess kAlways = {true, true, Disposition::openAlways};
constexpr StorageAccess kReading = {false, false, Disposition::openExisting};

// An open file, closed at the end.
class Storage {
  public:
    Storage(const std::string& path, StorageAccess access)
        : m_file(calls.openStorage(path.c_str(), access)) {}
    ~Storage() {
        if (m_file != kInvalidStorage)
            calls.closeStorage(m_file);
    }
    Storage(const Storage&) = delete;
    Storage& operator=(const Storage&) = delete;

    operator platform::StorageHandle() const { return m_file; }
    bool isOpen() const { return m_file != kInvalidStorage; }
    std::int64_t size() const { return calls.storageSize(m_file); }

  private:
    platform::StorageHandle m_file;
};

std::string bytesAt(const Storage& file, std::uint64_t offset, std::uint32_t size) {
    std::string bytes(size, '#');
    std::uint32_t done = 99;
    if (!calls.seekStorage(file, offset) || !calls.readStorage(file, bytes.data(), size, &done))
        return "(failed)";
    return bytes.substr(0, done);
}

} // namespace

TEST(StorageFile, DispositionDecidesWhatBecomesOfTheFile) {
    const TempFolder folder;
    EXPECT_FALSE(Storage(folder.name("none"), kExisting).isOpen());
    EXPECT_FALSE(Storage(folder.name("none"), kReading).isOpen());
    const std::string path = folder.write("f", "abc");
    EXPECT_EQ(Storage(path, kExisting).size(), 3);
    EXPECT_EQ(Storage(path, kAlways).size(), 3);
    EXPECT_EQ(Storage(path, kReading).size(), 3);
    EXPECT_EQ(Storage(path, kCreate).size(), 0);
    EXPECT_EQ(Storage(folder.name("always"), kAlways).size(), 0);
    EXPECT_EQ(Storage(folder.name("create"), kCreate).size(), 0);
}

TEST(StorageFile, FailedOpenLeavesItsReason) {
    const TempFolder folder;
    platform::setLastError(0);
    EXPECT_FALSE(Storage(folder.name("none"), kExisting).isOpen());
    EXPECT_EQ(platform::lastError(), 2u);
    EXPECT_TRUE(calls.closeStorage(kInvalidStorage));
}

TEST(StorageFile, FolderIsRefused) {
    const TempFolder folder;
    EXPECT_FALSE(Storage(folder.path().string(), kReading).isOpen());
    EXPECT_FALSE(Storage(folder.path().string(), kAlways).isOpen());
}

TEST(StorageFile, IsSharedWithAWriter) {
    const TempFolder folder;
    const std::string path = folder.write("f", "abc");
    const Storage one(path, kExisting);
    const Storage other(path, kAlways);
    ASSERT_TRUE(one.isOpen());
    ASSERT_TRUE(other.isOpen());
}

TEST(StorageFile, ReadsAtItsPointerAndTellsTheEnd) {
    const TempFolder folder;
    const Storage file(folder.write("f", "abcdef"), kExisting);
    EXPECT_EQ(bytesAt(file, 2, 3), "cde");
    EXPECT_EQ(bytesAt(file, 4, 9), "ef");
    EXPECT_EQ(bytesAt(file, 6, 9), "");
    EXPECT_EQ(bytesAt(file, std::uint64_t{1} << 40, 9), "");
    std::string more(2, '#');
    std::uint32_t done = 0;
    ASSERT_TRUE(calls.seekStorage(file, 1));
    ASSERT_TRUE(calls.readStorage(file, more.data(), 2, &done));
    ASSERT_TRUE(calls.readStorage(file, more.data(), 2, &done));
    EXPECT_EQ(more, "de");
}

TEST(StorageFile, ClosedAndInvalidHandlesHaveNoSize) {
    EXPECT_EQ(calls.storageSize(nullptr), -1);
    EXPECT_EQ(calls.storageSize(kInvalidStorage), -1);
}

TEST(StorageFile, EndsWhereItsPointerStands) {
    const TempFolder folder;
    const Storage file(folder.write("f", "abcdef"), kExisting);
    ASSERT_TRUE(calls.seekStorage(file, 2));
    ASSERT_TRUE(calls.truncateStorage(file));
    EXPECT_EQ(file.size(), 2);
}

TEST(Mapping, MakesAFileGrowWithZeroes) {
    const TempFolder folder;
    const Storage file(folder.write("f", "abc"), kExisting);
    const platform::MappingHandle mapping = calls.createMapping(file, 1000, true);
    ASSERT_NE(mapping, nullptr);
    EXPECT_EQ(file.size(), 1000);
    EXPECT_TRUE(calls.closeMapping(mapping));
    EXPECT_EQ(bytesAt(file, 0, 2000), "abc" + std::string(997, '\0'));
}

#ifndef _WIN32
TEST(Mapping, TakesTheSpaceOfTheNewBytes) {
    const TempFolder folder;
    const std::string path = folder.write("f", "abc");
    const Storage file(path, kExisting);
    const platform::MappingHandle mapping = calls.createMapping(file, 5'000'000, true);
    ASSERT_NE(mapping, nullptr);
    struct stat status = {};
    ASSERT_EQ(::stat(path.c_str(), &status), 0);
    EXPECT_GE(status.st_blocks * 512, 4'900'000);
    calls.closeMapping(mapping);
}
#endif

TEST(Mapping, NeverMakesAFileShrink) {
    const TempFolder folder;
    const Storage file(folder.write("f", std::string(5000, 'x')), kExisting);
    const platform::MappingHandle mapping = calls.createMapping(file, 100, true);
    ASSERT_NE(mapping, nullptr);
    EXPECT_EQ(file.size(), 5000);
    calls.closeMapping(mapping);
}

TEST(Mapping, OfAnEmptyFileWithoutASizeFails) {
    const TempFolder folder;
    const Storage file(folder.write("f", ""), kExisting);
    EXPECT_EQ(calls.createMapping(file, 0, true), nullptr);
    EXPECT_NE(platform::lastError(), 0u);
}

TEST(Mapping, OfNoFileFails) {
    EXPECT_EQ(calls.createMapping(nullptr, 10, true), nullptr);
    EXPECT_EQ(calls.createMapping(kInvalidStorage, 10, true), nullptr);
}

TEST(Mapping, ThatOnlyReadsDoesNotMakeItsFileGrow) {
    const TempFolder folder;
    const Storage file(folder.write("f", "abc"), kReading);
    EXPECT_EQ(calls.createMapping(file, 1000, false), nullptr);
    EXPECT_EQ(file.size(), 3);
}

TEST(Mapping, ViewsOutliveItAndItsFile) {
    const TempFolder folder;
    void* view = nullptr;
    {
        const Storage file(folder.write("f", "abc"), kExisting);
        const platform::MappingHandle mapping = calls.createMapping(file, 100, true);
        view = calls.mapView(mapping, 0, 100, true);
        calls.closeMapping(mapping);
    }
    ASSERT_NE(view, nullptr);
    EXPECT_EQ(std::memcmp(view, "abc\0", 4), 0);
    std::memcpy(view, "xyz", 3);
    EXPECT_TRUE(calls.unmapView(view));
    EXPECT_EQ(folder.read("f").substr(0, 4), std::string("xyz\0", 4));
}

TEST(Mapping, WritesShowInOtherViews) {
    const TempFolder folder;
    const Storage one(folder.write("f", "abc"), kExisting);
    const Storage other(folder.name("f"), kExisting);
    const platform::MappingHandle mapping = calls.createMapping(one, 0, true);
    const platform::MappingHandle otherMapping = calls.createMapping(other, 0, true);
    auto* view = static_cast<volatile char*>(calls.mapView(mapping, 0, 3, true));
    auto* otherView = static_cast<volatile char*>(calls.mapView(otherMapping, 0, 3, true));
    ASSERT_NE(view, nullptr);
    ASSERT_NE(otherView, nullptr);
    view[1] = '!';
    EXPECT_EQ(otherView[1], '!');
    calls.unmapView(const_cast<char*>(view));
    calls.unmapView(const_cast<char*>(otherView));
    calls.closeMapping(mapping);
    calls.closeMapping(otherMapping);
}

TEST(Mapping, ViewStartsOnTheGranularityAndStaysInside) {
    const TempFolder folder;
    const std::uint64_t unit = platform::allocationGranularity();
    ASSERT_GT(unit, 0u);
    const Storage file(folder.write("f", ""), kExisting);
    const platform::MappingHandle mapping = calls.createMapping(file, unit + 10, true);
    ASSERT_NE(mapping, nullptr);
    EXPECT_EQ(calls.mapView(mapping, 10, 10, true), nullptr);
    EXPECT_NE(platform::lastError(), 0u);
    EXPECT_EQ(calls.mapView(mapping, 4 * unit, 10, true), nullptr);
    EXPECT_EQ(calls.mapView(mapping, 0, 3 * unit, true), nullptr);
    EXPECT_EQ(calls.mapView(mapping, unit, ~std::uint64_t{0}, true), nullptr);
    EXPECT_EQ(calls.mapView(nullptr, 0, 10, true), nullptr);
    void* view = calls.mapView(mapping, unit, 10, true);
    EXPECT_NE(view, nullptr);
    EXPECT_TRUE(calls.unmapView(view));
    calls.closeMapping(mapping);
}

TEST(Mapping, KeepsItsSizeWhenTheFileGrows) {
    const TempFolder folder;
    const std::uint64_t unit = platform::allocationGranularity();
    const Storage file(folder.write("f", ""), kExisting);
    const platform::MappingHandle small = calls.createMapping(file, unit, true);
    const platform::MappingHandle large = calls.createMapping(file, 4 * unit, true);
    EXPECT_EQ(calls.mapView(small, 0, 2 * unit, true), nullptr);
    void* view = calls.mapView(large, 0, 2 * unit, true);
    EXPECT_NE(view, nullptr);
    calls.unmapView(view);
    calls.closeMapping(small);
    calls.closeMapping(large);
}

TEST(Mapping, SmallViewsAreTakenAwayOneByOne) {
    const TempFolder folder;
    const std::uint64_t unit = 65536;
    const Storage file(folder.write("f", ""), kExisting);
    const platform::MappingHandle mapping = calls.createMapping(file, 200 * unit, true);
    std::vector<char*> all;
    for (std::uint64_t i = 0; i < 200; ++i) {
        // Each place twice, and ranges that reach into the next one.
        all.push_back(static_cast<char*>(calls.mapView(mapping, i * unit, unit, true)));
        all.push_back(static_cast<char*>(
            calls.mapView(mapping, i * unit, std::min(3 * unit, (200 - i) * unit), true)));
        ASSERT_NE(all[2 * i], nullptr);
        ASSERT_NE(all[2 * i + 1], nullptr);
        all[2 * i][5] = static_cast<char>(i + 1);
    }
    calls.closeMapping(mapping);
    for (std::uint64_t i = 0; i < 200; ++i)
        EXPECT_TRUE(calls.unmapView(all[2 * i]));
    for (std::uint64_t i = 0; i < 200; ++i) {
        EXPECT_EQ(all[2 * i + 1][5], static_cast<char>(i + 1));
        EXPECT_TRUE(calls.unmapView(all[2 * i + 1]));
    }
    EXPECT_FALSE(calls.unmapView(all[0]));
    EXPECT_EQ(file.size(), static_cast<std::int64_t>(200 * unit));
}

#ifndef _WIN32
namespace {

bool isMapped(void* place) {
    unsigned char inCore = 0;
    return ::mincore(place, 1, &inCore) == 0;
}

} // namespace

// What turns between a table and the records does not map the same pages again and again.
TEST(Mapping, LastThreeWindowsOfSmallViewsStay) {
    const TempFolder folder;
    const std::uint64_t window = std::uint64_t{2} << 20;
    const Storage file(folder.write("f", ""), kExisting);
    const platform::MappingHandle mapping = calls.createMapping(file, 5 * window, true);
    void* used[5] = {};
    const auto use = [&](std::uint64_t i) {
        used[i] = calls.mapView(mapping, i * window, 65536, true);
        EXPECT_TRUE(calls.unmapView(used[i]));
    };
    const auto staying = [&] {
        std::string numbers;
        for (int i = 0; i < 5; ++i)
            if (used[i] != nullptr && isMapped(used[i]))
                numbers += std::to_string(i);
        return numbers;
    };
    use(0), use(1), use(2);
    EXPECT_EQ(staying(), "012");
    void* const first = used[0];
    use(0);
    EXPECT_EQ(used[0], first);
    use(3);
    EXPECT_EQ(staying(), "023") << "1 was used before the others";
    used[1] = nullptr; // free for the next one
    use(4);
    EXPECT_EQ(staying(), "034");
    calls.closeMapping(mapping);
    EXPECT_EQ(staying(), "");
}

TEST(Mapping, CloseThatTheSystemRefusesIsToldOnceAndHitsNobodyElse) {
    // The descriptors are closed behind the back of their owners.
    const TempFolder folder;
    const platform::StorageHandle file =
        calls.openStorage(folder.write("f", "abc").c_str(), kExisting);
    const platform::MappingHandle mapping = calls.createMapping(file, 3, true);
    const int next = ::dup(0);
    for (int descriptor = 3; descriptor < next; ++descriptor)
        ::close(descriptor);
    ::close(next);
    EXPECT_FALSE(calls.closeMapping(mapping));
    EXPECT_FALSE(calls.closeStorage(file));
    // The numbers are somebody else's by now, and stay so.
    std::vector<int> others;
    do
        others.push_back(::dup(0));
    while (others.back() + 1 < next);
    EXPECT_TRUE(calls.closeMapping(mapping));
    EXPECT_TRUE(calls.closeStorage(file));
    for (const int other : others)
        EXPECT_EQ(::close(other), 0);
}
#endif

TEST(Mapping, OnlyViewsAreTakenAway) {
    int value = 0;
    EXPECT_FALSE(calls.unmapView(&value));
    EXPECT_NE(platform::lastError(), 0u);
}

TEST(Mapping, GranularityIsAPowerOfTwo) {
    const std::uint64_t unit = platform::allocationGranularity();
    EXPECT_GE(unit, 4096u);
    EXPECT_EQ(unit & (unit - 1), 0u);
}

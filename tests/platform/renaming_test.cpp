// Times, names and folders of files, and waiting.

#include <gtest/gtest.h>

#ifndef _WIN32
#  include <fcntl.h>
#  include <signal.h>
#  include <sys/resource.h>
#  include <sys/stat.h>
#  include <sys/time.h>
#endif

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>

#include "platform/calls.h"
#include "platform/error.h"
#include "support/tempFolder.h"

namespace {

using platform::calls;
namespace fs = std::filesystem;

constexpr std::uint32_t kNotFound = 2;

bool move(const std::string& from, const std::string& to) {
    return calls.moveFile(from.c_str(), to.c_str());
}

bool removes(const std::string& path) {
    return calls.removeFile(path.c_str());
}

struct Created {
    bool known;
    std::int64_t seconds = -99;
    int error = -99;

    explicit Created(const std::string& path) {
        known = calls.creationTime(path.c_str(), &seconds, &error);
    }
};

// A file of the folder, open without permission to rename or delete it where there is such a thing.
class Held {
  public:
    explicit Held(const std::string& path)
        : m_file(calls.openStorage(path.c_str(),
                                   {false, true, platform::Disposition::openExisting})) {}
    ~Held() { calls.closeStorage(m_file); }
    Held(const Held&) = delete;
    Held& operator=(const Held&) = delete;

  private:
    platform::StorageHandle m_file;
};

std::int64_t milliseconds(std::chrono::steady_clock::time_point since) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() -
                                                                 since)
        .count();
}

} // namespace

// ---- creation time ----

TEST(CreationTime, IsThatOfTheMaking) {
    const TempFolder folder;
    const std::int64_t before = calls.wallClock().seconds;
    const Created created(folder.write("f", "abc"));
    const std::int64_t after = calls.wallClock().seconds;
    EXPECT_TRUE(created.known);
    // The clock of file times may be a tick behind.
    EXPECT_GE(created.seconds, before - 1);
    EXPECT_LE(created.seconds, after);
    EXPECT_EQ(created.error, -99) << "touched on failure alone";
}

TEST(CreationTime, MissingFileHasNone) {
    const TempFolder folder;
    const Created created(folder.name("none"));
    EXPECT_FALSE(created.known);
    EXPECT_EQ(created.seconds, -99);
    EXPECT_EQ(created.error, ENOENT);
}

// ---- moving ----

TEST(MoveFile, TakesThePlaceOfWhatWasThere) {
    const TempFolder folder;
    EXPECT_TRUE(move(folder.write("a", "first"), folder.name("b")));
    EXPECT_EQ(folder.read("b"), "first");
    EXPECT_TRUE(move(folder.write("c", "second"), folder.name("b")));
    EXPECT_EQ(folder.read("b"), "second");
    EXPECT_FALSE(fs::exists(folder.name("a")));
    EXPECT_FALSE(fs::exists(folder.name("c")));
}

TEST(MoveFile, MissingFileFailsAndLeavesTheOther) {
    const TempFolder folder;
    folder.write("b", "kept");
    platform::setLastError(0);
    EXPECT_FALSE(move(folder.name("none"), folder.name("b")));
    EXPECT_EQ(platform::lastError(), kNotFound);
    EXPECT_EQ(folder.read("b"), "kept");
}

TEST(MoveFile, MissingFolderFailsAndLeavesTheFile) {
    const TempFolder folder;
    platform::setLastError(0);
    EXPECT_FALSE(move(folder.write("a", "kept"), folder.name("none/b")));
    EXPECT_NE(platform::lastError(), 0u);
    EXPECT_EQ(folder.read("a"), "kept");
}

TEST(MoveFile, NameWithBytesAbove127) {
    const TempFolder folder;
    const std::string path = folder.write("a", "text");
    const std::string name = folder.path().string() + "/\xE9\xF1";
    EXPECT_TRUE(move(path, name));
    EXPECT_FALSE(fs::exists(path));
    EXPECT_TRUE(move(name, path));
    EXPECT_EQ(folder.read("a"), "text");
}

// ---- removing ----

TEST(RemoveFile, DeletesFilesAndEmptyFolders) {
    const TempFolder folder;
    EXPECT_TRUE(removes(folder.write("f", "abc")));
    EXPECT_FALSE(fs::exists(folder.name("f")));
    fs::create_directory(folder.name("empty"));
    EXPECT_TRUE(removes(folder.name("empty")));
    EXPECT_FALSE(fs::exists(folder.name("empty")));
}

TEST(RemoveFile, WhatIsNotThereIsASuccess) {
    const TempFolder folder;
    EXPECT_TRUE(removes(folder.name("none")));
    EXPECT_TRUE(removes(folder.name("no_folder/none")));
    EXPECT_TRUE(removes(folder.write("f", "abc") + "/none"));
    EXPECT_EQ(folder.read("f"), "abc");
}

TEST(RemoveFile, FolderWithFilesStays) {
    const TempFolder folder;
    fs::create_directory(folder.name("full"));
    folder.write("full/f", "abc");
    platform::setLastError(0);
    EXPECT_FALSE(removes(folder.name("full")));
    EXPECT_NE(platform::lastError(), 0u);
    EXPECT_EQ(folder.read("full/f"), "abc");
}

// ---- current folder and waiting ----

TEST(CurrentFolder, BecomesTheOneThatIsNamed) {
    const fs::path before = fs::current_path();
    const TempFolder folder;
    EXPECT_TRUE(calls.setCurrentFolder(folder.path().string().c_str()));
    EXPECT_TRUE(fs::equivalent(fs::current_path(), folder.path()));
    platform::setLastError(0);
    EXPECT_FALSE(calls.setCurrentFolder(folder.name("none").c_str()));
    EXPECT_EQ(platform::lastError(), kNotFound);
    EXPECT_FALSE(calls.setCurrentFolder(folder.write("f", "").c_str()));
    EXPECT_TRUE(fs::equivalent(fs::current_path(), folder.path()));
    fs::current_path(before);
}

TEST(Sleep, LastsAsLongAsIsAsked) {
    const auto begin = std::chrono::steady_clock::now();
    calls.sleep(0);
    calls.sleep(100);
    EXPECT_GE(milliseconds(begin), 80) << "clocks of some systems tick every 16 ms";
}

// ---- what differs ----

#ifdef _WIN32

TEST(MoveFile, HeldFileStaysWhereItIs) {
    constexpr std::uint32_t kSharingViolation = 32;
    const TempFolder folder;
    const std::string path = folder.write("a", "held");
    {
        const Held held(path);
        platform::setLastError(0);
        EXPECT_FALSE(move(path, folder.name("b")));
        EXPECT_EQ(platform::lastError(), kSharingViolation);
        platform::setLastError(0);
        EXPECT_FALSE(removes(path));
        EXPECT_EQ(platform::lastError(), kSharingViolation);
    }
    EXPECT_EQ(folder.read("a"), "held");
    EXPECT_TRUE(move(path, folder.name("b")));
    EXPECT_TRUE(removes(folder.name("b")));
}

#else

TEST(MoveFile, HeldFileGoesLikeAnyOther) {
    const TempFolder folder;
    const std::string path = folder.write("a", "held");
    const Held held(path);
    EXPECT_TRUE(move(path, folder.name("b")));
    EXPECT_TRUE(removes(folder.name("b")));
}

TEST(CreationTime, DoesNotFollowLaterChanges) {
    const TempFolder folder;
    const std::string path = folder.write("f", "abc");
    struct statx status = {};
    ASSERT_EQ(::statx(AT_FDCWD, path.c_str(), 0, STATX_BTIME, &status), 0);
    if ((status.stx_mask & STATX_BTIME) == 0)
        GTEST_SKIP() << "the file system of the test keeps no birth of files";
    const Created made(path);
    calls.sleep(1100);
    fs::last_write_time(path, fs::last_write_time(path) - std::chrono::hours(24));
    EXPECT_EQ(Created(path).seconds, made.seconds);
}

namespace {

// A folder on another file system than that of TempFolder.
class OtherDevice {
  public:
    OtherDevice() : m_path("/dev/shm/vdr" + number()) {
        std::error_code ignored;
        fs::create_directory(m_path, ignored);
    }
    ~OtherDevice() {
        std::error_code ignored;
        fs::remove_all(m_path, ignored);
    }
    OtherDevice(const OtherDevice&) = delete;
    OtherDevice& operator=(const OtherDevice&) = delete;

    bool differsFrom(const TempFolder& folder) const {
        struct stat here = {}, there = {};
        return ::stat(m_path.c_str(), &here) == 0 && ::stat(folder.path().c_str(), &there) == 0 &&
               here.st_dev != there.st_dev;
    }
    std::string name(const std::string& file) const { return m_path + "/" + file; }
    std::size_t files() const {
        return static_cast<std::size_t>(
            std::distance(fs::directory_iterator(m_path), fs::directory_iterator()));
    }

  private:
    static std::string number() { return std::to_string(std::random_device()()); }
    std::string m_path;
};

// No file grows past `size` while this lives.
class FileSizeLimit {
  public:
    explicit FileSizeLimit(rlim_t size) {
        ::getrlimit(RLIMIT_FSIZE, &m_saved);
        m_handler = ::signal(SIGXFSZ, SIG_IGN);
        const rlimit limit = {size, m_saved.rlim_max};
        ::setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FileSizeLimit() {
        ::setrlimit(RLIMIT_FSIZE, &m_saved);
        ::signal(SIGXFSZ, m_handler);
    }
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;

  private:
    rlimit m_saved = {};
    sighandler_t m_handler;
};

std::string bytesOf(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

} // namespace

TEST(MoveFile, GoesToAnotherFileSystemAsACopy) {
    const TempFolder folder;
    const OtherDevice other;
    if (!other.differsFrom(folder))
        GTEST_SKIP() << "/dev/shm is no file system of its own here";
    const std::string bytes(200'000, 'x');
    const std::string path = folder.write("a", bytes + "end");
    fs::permissions(path, fs::perms::owner_read | fs::perms::owner_write | fs::perms::group_read);
    fs::last_write_time(path, fs::last_write_time(path) - std::chrono::hours(5));
    const auto time = fs::last_write_time(path);
    const auto rights = fs::status(path).permissions();
    std::ofstream(other.name("b")) << "former";
    EXPECT_TRUE(move(path, other.name("b")));
    EXPECT_EQ(bytesOf(other.name("b")), bytes + "end");
    EXPECT_FALSE(fs::exists(path));
    EXPECT_EQ(fs::last_write_time(other.name("b")), time);
    EXPECT_EQ(fs::status(other.name("b")).permissions(), rights);
    EXPECT_EQ(other.files(), 1u);
}

TEST(MoveFile, CopyThatFailsLeavesBothFiles) {
    constexpr std::uint32_t kTooLarge = 27;
    constexpr std::uint32_t kIsFolder = 21;
    const TempFolder folder;
    const OtherDevice other;
    if (!other.differsFrom(folder))
        GTEST_SKIP() << "/dev/shm is no file system of its own here";
    const std::string path = folder.write("a", std::string(200'000, 'x'));
    std::ofstream(other.name("b")) << "former";
    {
        const FileSizeLimit limit(100'000);
        platform::setLastError(0);
        EXPECT_FALSE(move(path, other.name("b")));
        EXPECT_EQ(platform::lastError(), kTooLarge);
    }
    EXPECT_EQ(bytesOf(other.name("b")), "former");
    EXPECT_EQ(fs::file_size(path), 200'000u);
    fs::create_directory(folder.name("d"));
    platform::setLastError(0);
    EXPECT_FALSE(move(folder.name("d"), other.name("d")));
    EXPECT_EQ(platform::lastError(), kIsFolder);
    EXPECT_TRUE(fs::exists(folder.name("d")));
    EXPECT_EQ(other.files(), 1u);
}

TEST(Sleep, SignalsDoNotCutItShort) {
    const auto former = ::signal(SIGALRM, [](int) {});
    const itimerval often = {{0, 10'000}, {0, 10'000}};
    const itimerval never = {};
    const auto begin = std::chrono::steady_clock::now();
    ::setitimer(ITIMER_REAL, &often, nullptr);
    calls.sleep(100);
    ::setitimer(ITIMER_REAL, &never, nullptr);
    EXPECT_GE(milliseconds(begin), 100);
    ::signal(SIGALRM, former);
}

#endif

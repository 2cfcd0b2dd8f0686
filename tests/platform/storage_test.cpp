// Storage files as log files need them: the file pointer, writing, appending.

#include <gtest/gtest.h>

#ifndef _WIN32
#  include <sys/stat.h>
#endif

#include <algorithm>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "platform/calls.h"
#include "platform/error.h"
#include "support/tempFolder.h"
#include "support/writeOnlyFile.h"

namespace {

using platform::calls;
using platform::Disposition;
using platform::kInvalidStorage;
using platform::SeekOrigin;
using platform::StorageAccess;

constexpr StorageAccess kWriting = {true, true, Disposition::openAlways};
constexpr StorageAccess kReading = {false, true, Disposition::openExisting};

StorageAccess forWritingAlone(Disposition disposition) {
    StorageAccess access = {true, true, disposition};
    access.reads = false;
    return access;
}

// A storage file with the results of its calls as values, -1 for a failed one.
class LogFile {
  public:
    explicit LogFile(const std::string& path, StorageAccess access = kWriting)
        : m_file(calls.openStorage(path.c_str(), access)) {}
    ~LogFile() { calls.closeStorage(m_file); }
    LogFile(const LogFile&) = delete;
    LogFile& operator=(const LogFile&) = delete;

    bool isOpen() const { return m_file != kInvalidStorage; }
    platform::StorageHandle handle() const { return m_file; }

    std::int64_t write(const std::string& bytes) { return put(calls.writeStorage, bytes); }
    std::int64_t append(const std::string& bytes) { return put(calls.appendStorage, bytes); }

    // Where the file pointer then stands.
    std::int64_t move(std::int64_t offset, SeekOrigin origin) {
        std::int64_t position = -99;
        const bool moved = calls.moveStorage(m_file, offset, origin, &position);
        EXPECT_EQ(moved, position != -99) << "told on success alone";
        return moved ? position : -1;
    }
    std::int64_t position() { return move(0, SeekOrigin::current); }

    std::string read(std::uint32_t size) {
        std::string bytes(size, '#');
        std::uint32_t done = 99;
        const bool good = calls.readStorage(m_file, bytes.data(), size, &done);
        return good ? bytes.substr(0, done) : "(failed)";
    }

  private:
    using Put = bool (*)(platform::StorageHandle, const void*, std::uint32_t, std::uint32_t*);

    std::int64_t put(Put call, const std::string& bytes) {
        std::uint32_t done = 99;
        const auto size = static_cast<std::uint32_t>(bytes.size());
        if (call(m_file, bytes.data(), size, &done))
            return done;
        EXPECT_EQ(done, 0u);
        return -1;
    }

    platform::StorageHandle m_file;
};

} // namespace

// ---- the file pointer ----

TEST(StoragePointer, CountsFromEachOrigin) {
    const TempFolder folder;
    LogFile file(folder.write("f", "0123456789"));
    EXPECT_EQ(file.position(), 0);
    EXPECT_EQ(file.move(4, SeekOrigin::begin), 4);
    EXPECT_EQ(file.move(3, SeekOrigin::current), 7);
    EXPECT_EQ(file.read(1), "7");
    EXPECT_EQ(file.move(-2, SeekOrigin::current), 6);
    EXPECT_EQ(file.move(-3, SeekOrigin::end), 7);
    EXPECT_EQ(file.read(10), "789");
    EXPECT_EQ(file.move(0, SeekOrigin::end), 10);
}

TEST(StoragePointer, PassesTheEndOfTheFile) {
    const TempFolder folder;
    LogFile file(folder.write("f", "abc"));
    constexpr std::int64_t kFar = (std::int64_t{1} << 40) + 1;
    EXPECT_EQ(file.move(kFar, SeekOrigin::begin), kFar);
    EXPECT_EQ(file.read(1), "");
    EXPECT_EQ(calls.storageSize(file.handle()), 3) << "a move writes nothing";
}

TEST(StoragePointer, StaysWhereItIsWhenTheMoveFails) {
    const TempFolder folder;
    LogFile file(folder.write("f", "abc"));
    file.move(2, SeekOrigin::begin);
    platform::setLastError(0);
    EXPECT_EQ(file.move(-1, SeekOrigin::begin), -1);
    EXPECT_NE(platform::lastError(), 0u);
    EXPECT_EQ(file.move(-3, SeekOrigin::current), -1);
    EXPECT_EQ(file.move(-4, SeekOrigin::end), -1);
    EXPECT_EQ(file.position(), 2);
}

// ---- writing ----

TEST(StorageWriting, WritesAtThePointerAndMovesIt) {
    const TempFolder folder;
    LogFile file(folder.write("f", "abcdef"));
    EXPECT_EQ(file.write("12"), 2);
    EXPECT_EQ(file.position(), 2);
    EXPECT_EQ(file.read(2), "cd");
    EXPECT_EQ(file.write("3456"), 4);
    EXPECT_EQ(file.position(), 8);
    EXPECT_EQ(file.write(""), 0);
    EXPECT_EQ(folder.read("f"), "12cd3456");
}

TEST(StorageWriting, GapInFrontOfAWriteIsZeroes) {
    const TempFolder folder;
    LogFile file(folder.write("f", "ab"));
    file.move(5, SeekOrigin::begin);
    EXPECT_EQ(file.write("x"), 1);
    EXPECT_EQ(folder.read("f"), std::string("ab\0\0\0x", 6));
}

TEST(StorageWriting, SequentialFileIsReadAndWrittenAsAnyOther) {
    const TempFolder folder;
    StorageAccess access = kWriting;
    access.sequential = true;
    LogFile file(folder.write("f", "abcdef"), access);
    ASSERT_TRUE(file.isOpen());
    EXPECT_EQ(file.read(2), "ab");
    EXPECT_EQ(file.write("12"), 2);
    EXPECT_EQ(file.append("z"), 1);
    EXPECT_EQ(folder.read("f"), "ab12efz");
    access.disposition = Disposition::openExisting;
    EXPECT_FALSE(LogFile(folder.name("none"), access).isOpen());
}

TEST(StorageWriting, FileForWritingAloneIsWrittenAndNotRead) {
    const TempFolder folder;
    const std::string path = folder.write("f", "abc");
    LogFile file(path, forWritingAlone(Disposition::openAlways));
    ASSERT_TRUE(file.isOpen());
    platform::setLastError(0);
    EXPECT_EQ(file.read(1), "(failed)");
    EXPECT_NE(platform::lastError(), 0u);
    EXPECT_EQ(file.write("12"), 2);
    EXPECT_EQ(file.append("d"), 1);
    EXPECT_EQ(folder.read("f"), "12cd");
    EXPECT_TRUE(LogFile(path, kReading).isOpen()) << "others read meanwhile";
    EXPECT_TRUE(LogFile(path).isOpen()) << "and write";
    EXPECT_TRUE(LogFile(path, forWritingAlone(Disposition::openExisting)).isOpen());
    EXPECT_EQ(folder.read("f"), "12cd");
    EXPECT_TRUE(LogFile(path, forWritingAlone(Disposition::createAlways)).isOpen());
    EXPECT_EQ(folder.read("f"), "");
    EXPECT_FALSE(LogFile(folder.name("none"), forWritingAlone(Disposition::openExisting)).isOpen());
    EXPECT_FALSE(
        LogFile(folder.path().string(), forWritingAlone(Disposition::openAlways)).isOpen());
}

TEST(StorageWriting, FileThatMayBeWrittenAndNotReadOpensForWritingAlone) {
    const TempFolder folder;
    const std::string path = folder.write("f", "abc");
    {
        const WriteOnlyFile closed(path);
        if (!closed.holds())
            GTEST_SKIP() << "the file system lets the file be read all the same";
        EXPECT_FALSE(LogFile(path, kReading).isOpen());
        EXPECT_FALSE(LogFile(path).isOpen());
        LogFile file(path, forWritingAlone(Disposition::openAlways));
        ASSERT_TRUE(file.isOpen());
        EXPECT_EQ(file.append("d"), 1);
    }
    EXPECT_EQ(folder.read("f"), "abcd");
}

// ---- appending ----

TEST(StorageAppending, GoesToTheEndAndTakesThePointerThere) {
    const TempFolder folder;
    LogFile file(folder.write("f", "abc"));
    EXPECT_EQ(file.append("de"), 2) << "the pointer was at the start";
    EXPECT_EQ(file.position(), 5);
    file.move(100, SeekOrigin::begin);
    EXPECT_EQ(file.append("f"), 1) << "the pointer was past the end";
    EXPECT_EQ(file.position(), 6);
    EXPECT_EQ(file.write("g"), 1);
    EXPECT_EQ(folder.read("f"), "abcdefg");
    EXPECT_EQ(file.append(""), 0);
    EXPECT_EQ(folder.read("f"), "abcdefg");
}

TEST(StorageAppending, TwoHandlesOverwriteNothing) {
    const TempFolder folder;
    LogFile first(folder.name("f"));
    LogFile second(folder.name("f"));
    EXPECT_EQ(first.append("one "), 4);
    EXPECT_EQ(second.append("two "), 4);
    EXPECT_EQ(second.append("three "), 6);
    EXPECT_EQ(first.append("four"), 4);
    EXPECT_EQ(folder.read("f"), "one two three four");
    EXPECT_EQ(first.position(), 18);
    EXPECT_EQ(second.position(), 14) << "where its own last piece ended";
}

TEST(StorageAppending, FileThatWasCutGrowsFromItsNewEnd) {
    const TempFolder folder;
    LogFile log(folder.write("f", "a long line"));
    log.append("!");
    LogFile other(folder.name("f"));
    ASSERT_TRUE(calls.truncateStorage(other.handle()));
    EXPECT_EQ(log.append("new"), 3);
    EXPECT_EQ(folder.read("f"), "new");
}

// ---- failures ----

TEST(StorageFailures, FileForReadingTakesNothing) {
    const TempFolder folder;
    LogFile file(folder.write("f", "abc"), kReading);
    ASSERT_TRUE(file.isOpen());
    platform::setLastError(0);
    EXPECT_EQ(file.write("x"), -1);
    EXPECT_NE(platform::lastError(), 0u);
    platform::setLastError(0);
    EXPECT_EQ(file.append("x"), -1);
    EXPECT_NE(platform::lastError(), 0u);
    EXPECT_EQ(folder.read("f"), "abc");
}

TEST(StorageFailures, ClosedFileIsNotClosedAgain) {
    EXPECT_FALSE(calls.closeStorage(nullptr));
    EXPECT_NE(platform::lastError(), 0u);
    EXPECT_TRUE(calls.closeStorage(kInvalidStorage));
}

TEST(StorageFailures, NoFileRefusesEveryCall) {
    for (platform::StorageHandle none : {kInvalidStorage, platform::StorageHandle{nullptr}}) {
        std::uint32_t done = 99;
        std::int64_t position = 99;
        platform::setLastError(0);
        EXPECT_FALSE(calls.writeStorage(none, "x", 1, &done));
        EXPECT_EQ(done, 0u);
        EXPECT_NE(platform::lastError(), 0u);
        done = 99;
        EXPECT_FALSE(calls.appendStorage(none, "x", 1, &done));
        EXPECT_EQ(done, 0u);
        EXPECT_FALSE(calls.moveStorage(none, 0, SeekOrigin::current, &position));
        EXPECT_EQ(position, 99);
    }
}

// ---- what the test systems of one target alone have ----

#ifndef _WIN32

// Wine looks for the end first and writes then, so threads are not tried there.
TEST(StorageAppending, ThreadsOverwriteNothing) {
    const TempFolder folder;
    constexpr int kThreads = 4;
    constexpr int kLines = 2000;
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i)
        threads.emplace_back([&folder, i] {
            LogFile file(folder.name("f"));
            const std::string line(static_cast<std::size_t>(20 + 13 * i),
                                   static_cast<char>('a' + i));
            for (int n = 0; n < kLines; ++n)
                file.append(line + '\n');
        });
    for (std::thread& thread : threads)
        thread.join();
    std::map<std::string, int> lines;
    const std::string all = folder.read("f");
    for (std::size_t from = 0, end; (end = all.find('\n', from)) != std::string::npos;
         from = end + 1)
        ++lines[all.substr(from, end - from)];
    EXPECT_EQ(lines.size(), static_cast<std::size_t>(kThreads));
    for (const auto& [line, count] : lines)
        EXPECT_EQ(count, kLines) << line;
}

TEST(StorageFailures, FullDeviceTakesNothing) {
    constexpr std::uint32_t kNoSpace = 28;
    LogFile file("/dev/full");
    ASSERT_TRUE(file.isOpen());
    platform::setLastError(0);
    EXPECT_EQ(file.write("x"), -1);
    EXPECT_EQ(platform::lastError(), kNoSpace);
    platform::setLastError(0);
    EXPECT_EQ(file.append("x"), -1);
    EXPECT_EQ(platform::lastError(), kNoSpace);
}

TEST(StorageAppending, PipeTakesPiecesInTheirOrder) {
    constexpr std::uint32_t kNoSeek = 29;
    const TempFolder folder;
    ASSERT_EQ(::mkfifo(folder.name("pipe").c_str(), 0600), 0);
    LogFile pipe(folder.name("pipe"));
    ASSERT_TRUE(pipe.isOpen());
    EXPECT_EQ(pipe.append("one "), 4);
    EXPECT_EQ(pipe.write("two "), 4);
    EXPECT_EQ(pipe.append("three"), 5);
    EXPECT_EQ(pipe.read(100), "one two three");
    EXPECT_EQ(pipe.move(0, SeekOrigin::end), -1);
    EXPECT_EQ(platform::lastError(), kNoSeek);
}

#endif

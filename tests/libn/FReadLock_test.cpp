#include "libnEx/FReadLock.h"

#include <gtest/gtest.h>

#ifdef _WIN32
#  include <windows.h>
#endif

#include <limits>
#include <regex>
#include <string>
#include <type_traits>
#include <vector>

#include "dw_util/logLine.h"
#include "libnEx/CommonRoutines.h"
#include "platform/error.h"
#include "support/capturedLog.h"
#include "support/scopedCalls.h"
#include "support/slot.h"
#include "support/tempFolder.h"

namespace {

using libn::FReadLock;
using libn::ReadRecord;
using libn::readWithAttempts;

std::vector<std::uint32_t> waits;
void (*onWait)(std::size_t number) = nullptr;

// Waits are noted instead of waited, while an object lives.
class NotedWaits {
  public:
    explicit NotedWaits(void (*action)(std::size_t number) = nullptr) {
        waits.clear();
        onWait = action;
        platform::calls.sleep = [](std::uint32_t time) {
            waits.push_back(time);
            if (onWait != nullptr)
                onWait(waits.size());
        };
    }

  private:
    ScopedCalls m_calls;
};

// The messages of the error log, with N for the numbers of source lines.
std::vector<std::string> errorsOf(const CapturedLog& log) {
    std::vector<std::string> found = log.messages(CapturedLog::errors);
    for (std::string& message : found)
        message = std::regex_replace(message, std::regex("CommonRoutines at [1-9]\\d*\\)"),
                                     "CommonRoutines at N)");
    return found;
}

std::string running() {
    return "Running " + std::string(getappname()) + ": ";
}

std::string attemptText(const std::string& name, int attempt, std::uint32_t code) {
    char reason[512];
    platform::systemErrorText(code, reason, sizeof reason);
    return running() + "(libnEx/src/CommonRoutines at N) Can't read file <name=" + name +
           "><attempt=" + std::to_string(attempt) + "> OS error description: [" +
           std::to_string(code) + "] [" + reason + "].";
}

std::string lastText(const std::string& name) {
    return running() + "Error: (CommonRoutines at N) Can't read file <name=" + name + ">";
}

std::vector<std::string> textsOf(const std::string& name, int attempts, std::uint32_t code) {
    std::vector<std::string> texts;
    for (int attempt = 1; attempt <= attempts; ++attempt)
        texts.push_back(attemptText(name, attempt, code));
    texts.push_back(lastText(name));
    return texts;
}

constexpr std::uint32_t kNotFound = 2;

// The folder whose file appears between two attempts.
const TempFolder* stage = nullptr;

} // namespace

// ---- the interface ----

TEST(FReadLockInterface, VirtualOperationsStandInTheirOrder) {
    static_assert(std::has_virtual_destructor_v<libn::Exclusive>);
    static_assert(std::is_abstract_v<libn::Exclusive>);
    EXPECT_EQ(slotOf(&libn::Exclusive::lock), 2);
    EXPECT_EQ(slotOf(&libn::Exclusive::unlock), 3);
    EXPECT_EQ(slotOf(&FReadLock::lock), 2);
    EXPECT_EQ(slotOf(&FReadLock::unlock), 3);
    EXPECT_EQ(slotOf(&FReadLock::isLocked), 4);
}

TEST(FReadLockInterface, IsALockThatIsNotCopied) {
    EXPECT_TRUE((std::is_base_of_v<libn::Exclusive, FReadLock>));
    EXPECT_TRUE((std::is_base_of_v<libn::Noncopyable, FReadLock>));
    EXPECT_FALSE(std::is_copy_constructible_v<FReadLock>);
    EXPECT_EQ(sizeof(FReadLock), 2 * sizeof(void*) + 8);
}

// ---- normal ----

TEST(FReadLock, OpensNothingByItself) {
    const ScopedCalls calls;
    platform::calls.openForReading = [](const char*) {
        ADD_FAILURE() << "opened";
        return platform::kNoFile;
    };
    const CapturedLog log;
    const FReadLock lock("any");
    EXPECT_FALSE(lock.isLocked());
    EXPECT_EQ(lock.attempts, 10);
    EXPECT_EQ(lock.waitMs, 1000);
    EXPECT_EQ(log.size(), 0u);
}

TEST(FReadLock, FileThatIsThereIsTakenAtOnce) {
    const TempFolder folder;
    const NotedWaits noted;
    const CapturedLog log;
    FReadLock lock(folder.write("f", "abc").c_str());
    lock.lock();
    EXPECT_TRUE(lock.isLocked());
    lock.unlock();
    EXPECT_FALSE(lock.isLocked());
    lock.lock();
    EXPECT_TRUE(lock.isLocked());
    EXPECT_TRUE(waits.empty());
    EXPECT_EQ(log.size(), 0u);
}

TEST(FReadLock, EmptyFileIsTakenToo) {
    const TempFolder folder;
    FReadLock lock(folder.write("f", "").c_str());
    lock.lock();
    EXPECT_TRUE(lock.isLocked());
}

TEST(FReadLock, StreamReadsTheFileFromItsStart) {
    const TempFolder folder;
    ReadRecord record;
    record.fileName = folder.write("f", "first line\nsecond");
    readWithAttempts(record, 1, 0);
    EXPECT_TRUE(record.stream.good());
    std::string line;
    std::getline(record.stream, line);
    EXPECT_EQ(line, "first line");
}

TEST(FReadLock, HeldLockKeepsNobodyOut) {
    const TempFolder folder;
    FReadLock first(folder.write("f", "old").c_str());
    FReadLock second(folder.name("f").c_str());
    first.lock();
    second.lock();
    EXPECT_TRUE(second.isLocked());
    std::ofstream writer(folder.name("f"), std::ios::binary);
    EXPECT_TRUE(writer.is_open());
}

TEST(FReadLock, UnlockOfAClosedLockDoesNothing) {
    const TempFolder folder;
    const CapturedLog log;
    FReadLock lock(folder.write("f", "abc").c_str());
    lock.unlock();
    EXPECT_FALSE(lock.isLocked());
    lock.lock();
    EXPECT_TRUE(lock.isLocked());
    EXPECT_EQ(log.size(), 0u);
}

TEST(FReadLock, EndOfTheLockClosesTheFile) {
    const TempFolder folder;
    {
        FReadLock lock(folder.write("f", "abc").c_str());
        lock.lock();
        ASSERT_TRUE(lock.isLocked());
    }
    // On Windows a file that is open cannot be moved.
    EXPECT_TRUE(platform::calls.moveFile(folder.name("f").c_str(), folder.name("g").c_str()));
}

// ---- waiting ----

TEST(FReadLock, MissingFileCostsTenAttemptsAndTenWaits) {
    const TempFolder folder;
    const NotedWaits noted;
    const CapturedLog log;
    FReadLock lock(folder.name("none").c_str());
    lock.lock();
    EXPECT_FALSE(lock.isLocked());
    EXPECT_EQ(waits, std::vector<std::uint32_t>(10, 1000));
    EXPECT_EQ(errorsOf(log), textsOf(folder.name("none"), 10, kNotFound));
    EXPECT_EQ(log.size(), 11u);
    const std::vector<std::string> lines = log.lines(CapturedLog::errors);
    for (std::size_t i = 0; i < 10; ++i)
        EXPECT_EQ(lines[i].substr(0, 3), "O: ");
    EXPECT_EQ(lines[10].substr(0, 3), "E: ");
}

TEST(FReadLock, WaitFollowsTheLastAttemptToo) {
    const TempFolder folder;
    const NotedWaits noted([](std::size_t number) {
        if (number == 2)
            stage->write("late", "abc");
    });
    stage = &folder;
    const CapturedLog log;
    FReadLock lock(folder.name("late").c_str());
    lock.attempts = 2;
    lock.waitMs = 77;
    lock.lock();
    EXPECT_FALSE(lock.isLocked()) << "there only after the last attempt";
    EXPECT_EQ(waits, (std::vector<std::uint32_t>{77, 77}));
    EXPECT_EQ(errorsOf(log), textsOf(folder.name("late"), 2, kNotFound));
}

TEST(FReadLock, FileThatAppearsBetweenAttemptsIsTaken) {
    const TempFolder folder;
    const NotedWaits noted([](std::size_t number) {
        if (number == 3)
            stage->write("late", "abc");
    });
    stage = &folder;
    const CapturedLog log;
    FReadLock lock(folder.name("late").c_str());
    lock.lock();
    EXPECT_TRUE(lock.isLocked());
    EXPECT_EQ(waits.size(), 3u);
    std::vector<std::string> texts = textsOf(folder.name("late"), 3, kNotFound);
    texts.pop_back();
    EXPECT_EQ(errorsOf(log), texts);
}

TEST(FReadLock, StateOfTheStreamIsFailedWhileTheFileIsAwayAndClearThen) {
    const TempFolder folder;
    const NotedWaits noted;
    const CapturedLog log;
    ReadRecord record;
    record.fileName = folder.name("f");
    readWithAttempts(record, 1, 0);
    EXPECT_FALSE(record.stream.is_open());
    EXPECT_EQ(record.stream.rdstate(), std::ios::failbit);
    folder.write("f", "abc");
    readWithAttempts(record, 1, 0);
    EXPECT_TRUE(record.stream.is_open());
    EXPECT_EQ(record.stream.rdstate(), std::ios::goodbit);
}

// ---- boundary ----

TEST(FReadLock, NoAttemptsDoNothing) {
    const TempFolder folder;
    const NotedWaits noted;
    const CapturedLog log;
    FReadLock lock(folder.write("f", "abc").c_str());
    for (const std::int32_t attempts : {0, -1, std::numeric_limits<std::int32_t>::min()}) {
        lock.attempts = attempts;
        lock.lock();
        EXPECT_FALSE(lock.isLocked()) << attempts;
    }
    EXPECT_TRUE(waits.empty());
    EXPECT_EQ(log.size(), 0u);
}

TEST(FReadLock, NegativeWaitIsNone) {
    const TempFolder folder;
    const NotedWaits noted;
    const CapturedLog log;
    FReadLock lock(folder.name("none").c_str());
    lock.attempts = 1;
    lock.waitMs = -5;
    lock.lock();
    EXPECT_EQ(waits, std::vector<std::uint32_t>{0});
    EXPECT_EQ(log.size(), 2u);
}

TEST(FReadLock, NullNameIsAnEmptyOne) {
    const NotedWaits noted;
    const CapturedLog log;
    FReadLock lock(nullptr);
    lock.attempts = 1;
    lock.lock();
    EXPECT_FALSE(lock.isLocked());
    ASSERT_EQ(log.size(), 2u);
    EXPECT_EQ(errorsOf(log)[1], lastText(""));
}

TEST(FReadLock, FolderIsNoFile) {
    const TempFolder folder;
    const NotedWaits noted;
    const CapturedLog log;
    FReadLock lock(folder.path().string().c_str());
    lock.attempts = 2;
    lock.lock();
    EXPECT_FALSE(lock.isLocked());
    EXPECT_EQ(log.size(), 3u);
}

TEST(FReadLock, PercentSignsOfANameAreText) {
    const TempFolder folder;
    const NotedWaits noted;
    const CapturedLog log;
    FReadLock lock(folder.name("%s%n%d").c_str());
    lock.attempts = 1;
    lock.lock();
    ASSERT_EQ(log.size(), 2u);
    EXPECT_EQ(errorsOf(log)[1], lastText(folder.name("%s%n%d")));
}

TEST(FReadLock, HeldLockIsNotTakenAgain) {
    const TempFolder folder;
    const NotedWaits noted;
    const CapturedLog log;
    FReadLock lock(folder.write("f", "abc").c_str());
    lock.lock();
    lock.attempts = 2;
    lock.lock();
    EXPECT_TRUE(lock.isLocked()) << "by the first";
    EXPECT_EQ(waits.size(), 2u);
    EXPECT_EQ(log.size(), 3u);
}

// ---- failures ----

TEST(FReadLock, EveryFailureOfTheSystemIsTold) {
    constexpr std::uint32_t kReason = 13;
    const TempFolder folder;
    const NotedWaits noted;
    const CapturedLog log;
    FReadLock lock(folder.write("f", "abc").c_str());
    static int opens;
    opens = 0;
    static const platform::Calls* real;
    const ScopedCalls calls;
    real = &calls.saved();
    platform::calls.openForReading = [](const char* path) {
        if (++opens < 3) {
            platform::setLastError(kReason);
            return platform::kNoFile;
        }
        return real->openForReading(path);
    };
    lock.lock();
    EXPECT_TRUE(lock.isLocked());
    EXPECT_EQ(errorsOf(log), (std::vector<std::string>{attemptText(folder.name("f"), 1, kReason),
                                                       attemptText(folder.name("f"), 2, kReason)}));
}

#ifdef _WIN32

namespace {
HANDLE holder = INVALID_HANDLE_VALUE;
}

TEST(FReadLock, FileThatIsHeldWithoutReadersIsWaitedFor) {
    constexpr std::uint32_t kSharingViolation = 32;
    const TempFolder folder;
    const NotedWaits noted([](std::size_t number) {
        if (number == 2)
            ::CloseHandle(holder);
    });
    const CapturedLog log;
    const std::string path = folder.write("f", "abc");
    holder = ::CreateFileA(path.c_str(), GENERIC_WRITE, FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                           FILE_ATTRIBUTE_NORMAL, nullptr);
    ASSERT_NE(holder, INVALID_HANDLE_VALUE);
    FReadLock lock(path.c_str());
    lock.lock();
    EXPECT_TRUE(lock.isLocked());
    EXPECT_EQ(errorsOf(log), (std::vector<std::string>{attemptText(path, 1, kSharingViolation),
                                                       attemptText(path, 2, kSharingViolation)}));
}

#endif

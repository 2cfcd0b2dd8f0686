// Construction of the logger, its masks and its queue; a drain does the writing.

#include "logs/SysLogger.h"

#include <gtest/gtest.h>

#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <system_error>

#include "diagnostics/sysLoggerFixture.h"
#include "support/besideTheProgram.h"
#include "support/countedNew.h"
#include "support/raised.h"
#include "support/scopedCalls.h"

namespace {

// A line that does not fit into what the stream has ready.
const std::string kHugeText(100'000, 'h');

std::thread refuse(SysLogger&) {
    throw std::system_error(std::make_error_code(std::errc::resource_unavailable_try_again));
}

} // namespace

// ---- construction ----

TEST_F(SysLoggerTest, LevelsHaveAMaskOf14) {
    for (const std::uint32_t mask : m_logger->levelMask)
        EXPECT_EQ(mask, 14u);
    EXPECT_EQ(m_logger->scheme(), 1u);
}

TEST_F(SysLoggerTest, KeepsWhatTheFileHeld) {
    m_logger.reset();
    m_folder.write("x.log", "old\r\n");
    open();
    m_logger->post(infoRecord("new\n"));
    m_logger->drain();
    EXPECT_EQ(file(), "old\r\nnew\r\n");
}

TEST_F(SysLoggerTest, RelativeNameStandsBesideTheProgram) {
    const BesideTheProgram old("SysLoggerTest.log", "");
    {
        SysLogger logger("SysLoggerTest.log", 1, startNoWorker);
        logger.post(infoRecord("x"));
        logger.drain();
    }
    std::ifstream in(besideTheProgram("SysLoggerTest.log"), std::ios::binary);
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(in), {}), "x");
}

TEST_F(SysLoggerTest, FileThatDoesNotOpenIsARuntimeError) {
    for (const std::string& path : {m_folder.name("none/x.log"), m_folder.path().string()}) {
        const auto failure = raised<std::runtime_error>([&] { SysLogger(path, 1, startNoWorker); });
        ASSERT_TRUE(failure.has_value()) << path;
        EXPECT_STREQ(failure->what(), "Failed to init logger.");
    }
    EXPECT_EQ(raisedText([&] { SysLogger(m_folder.name("none/x.log"), 1); }),
              "Failed to init logger.");
}

TEST_F(SysLoggerTest, FileThatDoesNotOpenIsTriedOnceAndStartsNoWorker) {
    static int opens = 0;
    static int starts = 0;
    opens = starts = 0;
    const ScopedCalls calls;
    platform::calls.openStorage = [](const char*, platform::StorageAccess) {
        ++opens;
        return platform::kInvalidStorage;
    };
    EXPECT_EQ(raisedText([&] {
                  SysLogger(m_folder.name("y.log"), 1, [](SysLogger&) {
                      ++starts;
                      return std::thread();
                  });
              }),
              "Failed to init logger.");
    EXPECT_EQ(opens, 1);
    EXPECT_EQ(starts, 0);
}

TEST_F(SysLoggerTest, OpensForAppendingWithOthersWriting) {
    static platform::StorageAccess seen;
    static const ScopedCalls* saved = nullptr;
    const ScopedCalls calls;
    saved = &calls;
    platform::calls.openStorage = [](const char* path, platform::StorageAccess access) {
        seen = access;
        return saved->saved().openStorage(path, access);
    };
    const SysLogger logger(m_folder.name("y.log"), 1, startNoWorker);
    EXPECT_TRUE(seen.writes);
    EXPECT_FALSE(seen.reads) << "a log that may be written alone is one";
    EXPECT_TRUE(seen.sharesWrite);
    EXPECT_EQ(seen.disposition, platform::Disposition::openAlways);
}

TEST_F(SysLoggerTest, ThreadThatCannotStartIsASystemErrorAndTheFileIsClosed) {
    static int closes = 0;
    static const ScopedCalls* saved = nullptr;
    closes = 0;
    const ScopedCalls calls;
    saved = &calls;
    platform::calls.closeStorage = [](platform::StorageHandle file) {
        ++closes;
        return saved->saved().closeStorage(file);
    };
    const auto failure =
        raised<std::system_error>([&] { SysLogger(m_folder.name("y.log"), 1, refuse); });
    ASSERT_TRUE(failure.has_value());
    EXPECT_EQ(failure->code(), std::errc::resource_unavailable_try_again);
    EXPECT_EQ(closes, 1);
}

TEST_F(SysLoggerTest, TakesNoRecordBeforeItIsComplete) {
    const SysLogger* made = nullptr;
    {
        SysLogger logger(m_folder.name("y.log"), 1, [](SysLogger& incomplete) {
            incomplete.post(infoRecord("early, and longer than thirty-two characters\n"));
            return std::thread();
        });
        made = &logger;
        logger.post(infoRecord("in time\n"));
        logger.drain();
    }
    EXPECT_NE(made, nullptr);
    EXPECT_EQ(m_folder.read("y.log"), "in time\r\n");
}

// Every allocation of a construction fails once: it raises, and the next one works.
TEST_F(SysLoggerTest, ConstructionThatFindsNoMemoryRaises) {
    int failures = 0;
    for (int after = 0;; ++after) {
        const FailingNew failing(after, 1);
        try {
            const SysLogger logger(m_folder.name("y.log"), 1, startNoWorker);
            break;
        } catch (const std::exception&) {
            ++failures;
        }
    }
    EXPECT_GT(failures, 5);
}

// ---- levels, priorities and masks ----

TEST_F(SysLoggerTest, MaskBitsLetPrioritiesPass) {
    struct Row {
        MsgLevel level;
        std::size_t mask;      // its place among the masks
        std::uint32_t passing; // the bit that lets it pass, 0 for none
    };
    const Row rows[] = {{MsgLevel::Info, 0, 4},
                        {MsgLevel::Error, 1, 8},
                        {MsgLevel::Warning, 2, 8},
                        {MsgLevel::Debug, 3, 0}};
    for (const Row& row : rows)
        for (const std::uint32_t mask : {0u, 1u, 2u, 4u, 8u, 14u, 15u, 16u, 0xFFFFFFFFu}) {
            m_logger->levelMask.fill(0xFFFFFFFF);
            m_logger->levelMask[row.mask] = mask;
            EXPECT_EQ(written(textRecord(row.level, {"x"})), (mask & row.passing) != 0 ? "x" : "")
                << static_cast<int>(row.level) << " " << mask;
            EXPECT_EQ(m_complaint, "");
        }
}

TEST_F(SysLoggerTest, RecordOfALevelWithoutAMaskIsNeverQueued) {
    for (std::size_t mask = 0; mask < 4; ++mask) {
        const MsgLevel levels[] = {MsgLevel::Info, MsgLevel::Error, MsgLevel::Warning,
                                   MsgLevel::Debug};
        m_logger->levelMask[mask] = 0;
        m_logger->post(textRecord(levels[mask], {"dropped"}));
        m_logger->levelMask[mask] = 14;
    }
    m_logger->drain();
    EXPECT_EQ(file(), "");
}

TEST_F(SysLoggerTest, MaskCountsAgainWhenTheRecordIsWritten) {
    m_logger->post(infoRecord("queued"));
    m_logger->levelMask[0] = 0;
    m_logger->drain();
    EXPECT_EQ(file(), "");
}

TEST_F(SysLoggerTest, UnknownLevelsAreDropped) {
    for (const int level : {0, 5, 6, 127, 128, 255})
        EXPECT_EQ(written(textRecord(static_cast<MsgLevel>(level), {"x"})), "") << level;
}

TEST_F(SysLoggerTest, DebugIsQueuedAndNotWritten) {
    ASSERT_EQ(m_logger->levelMask[3], 14u);
    m_logger->post(textRecord(MsgLevel::Debug, {"debug"}));
    m_logger->post(textRecord(MsgLevel::Debug, {}));
    m_logger->post(infoRecord("info"));
    m_logger->drain();
    EXPECT_EQ(file(), "info");
}

// ---- queue ----

TEST_F(SysLoggerTest, NullIsNoRecord) {
    m_logger->writeRecord(nullptr);
    EXPECT_EQ(file(), "");
}

TEST_F(SysLoggerTest, WrittenRecordIsStillTheCallers) {
    const std::unique_ptr<SysLogRecord, SysLogRecordFree> record(infoRecord("twice|"));
    m_logger->writeRecord(record.get());
    m_logger->writeRecord(record.get());
    EXPECT_EQ(file(), "twice|twice|");
}

TEST_F(SysLoggerTest, DrainWritesFromTheOldestOn) {
    std::string expected;
    for (int i = 0; i < 1000; ++i) {
        const std::string line = "record " + std::to_string(i) + "\n";
        m_logger->post(infoRecord(line), i % 2 != 0 ? SysLogger::Wake::yes : SysLogger::Wake::no);
        expected += line.substr(0, line.size() - 1) + "\r\n";
    }
    EXPECT_EQ(file(), "");
    m_logger->drain();
    EXPECT_EQ(file(), expected);
    m_logger->drain();
    EXPECT_EQ(file(), expected);
}

TEST_F(SysLoggerTest, RecordsLeftOnTheQueueAreReleasedUnwritten) {
    m_logger->post(infoRecord("short"));
    m_logger->post(textRecord(MsgLevel::Info, {kHugeText.c_str(), "two", kHugeText.c_str()}));
    m_logger.reset();
    EXPECT_EQ(file(), "");
}

TEST_F(SysLoggerTest, RecordThatFindsNoMemoryInTheQueueIsReleased) {
    int failures = 0;
    std::string expected;
    for (int i = 0; i < 2000; ++i) {
        SysLogRecord* record =
            infoRecord("longer than the record: " + std::to_string(1'000'000 + i));
        bool failed = false;
        {
            const FailingNew failing(0, 1);
            try {
                m_logger->post(record);
            } catch (const std::bad_alloc&) {
                failed = true;
            }
        }
        failures += failed;
        if (!failed)
            expected += "longer than the record: " + std::to_string(1'000'000 + i);
    }
    m_logger->drain();
    EXPECT_EQ(file(), expected);
    EXPECT_GT(failures, 0);
}

TEST_F(SysLoggerTest, ExceptionOfARecordLeavesADrainAndTheRestStays) {
    m_logger->post(infoRecord("first\n"));
    m_logger->post(infoRecord("piece\n" + kHugeText));
    m_logger->post(infoRecord("last\n"));
    {
        const FailingNew failing(0, 1);
        EXPECT_THROW(m_logger->drain(), std::bad_alloc);
    }
    EXPECT_EQ(file(), "first\r\n"); // no piece of the second
    m_logger->drain();
    EXPECT_EQ(file(), "first\r\nlast\r\n");
}

TEST_F(SysLoggerTest, LineOfTheLongestKindIsWrittenWithoutAnAllocation) {
    m_logger->post(infoRecord(std::string(2000, '\n')));
    const std::size_t before = countedNews();
    m_logger->drain();
    EXPECT_EQ(countedNews() - before, 0u);
    EXPECT_EQ(file().size(), 4000u);
}

TEST_F(SysLoggerTest, FailedWriteEndsTheFileAndNotTheHost) {
    m_logger->post(infoRecord("before\n"));
    m_logger->drain();
    {
        const ScopedCalls calls;
        platform::calls.appendStorage = [](platform::StorageHandle, const void*, std::uint32_t,
                                           std::uint32_t* done) {
            *done = 0;
            return false;
        };
        m_logger->post(infoRecord("lost\n"));
        m_logger->drain();
    }
    m_logger->post(infoRecord("behind\n"));
    m_logger->drain();
    EXPECT_EQ(file(), "before\r\n");
    m_logger.reset();
    EXPECT_EQ(file(), "before\r\n");
}

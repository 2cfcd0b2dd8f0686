// A writing process and a reading process on one file.

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "live/dataWriter.h"
#include "live/pattern.h"
#include "roles.h"
#include "sample/alertFile.h"
#include "sample/classFile.h"
#include "sample/dataFile.h"
#include "sample/output.h"
#include "support/process.h"
#include "support/tempFolder.h"
#include "vdreader/curdata.hpp"

namespace {

using toolTest::RunResult;

constexpr int kShortSeconds = STRESS_SECONDS < 30 ? STRESS_SECONDS : STRESS_SECONDS / 3;

struct Role {
    std::string name;
    std::string path;
    std::string option = "";

    std::vector<std::string> arguments(int seconds) const {
        return {name, path, std::to_string(seconds), option};
    }
};

RunResult run(const Role& role, int seconds) {
    return toolTest::run(STRESS_PROGRAM, role.arguments(seconds));
}

class Stress : public testing::Test {
  protected:
    void SetUp() override {
        sample::ClassRecord classRecord;
        classRecord.classId = 1;
        classRecord.classCode = "STRESS";
        classRecord.securities.resize(1);
        classRecord.securities[0].sec_id = 1;
        classRecord.securities[0].sec_code = "ONE";
        sample::writeFile(m_folder.file("class.vd"), sample::encodeClassFile({classRecord}));
        sample::writeFile(m_folder.file("alert.vd"), sample::encodeAlertFile({}));
        sample::writeFile(m_folder.file("stress.ini"),
                          "[s]\nalerts=" + m_folder.file("alert.vd") + "\n");
    }

    // `eventPageSize` as a server has it unless pages are to come and go quickly.
    void writeData(std::uint32_t eventPageSize = 0x14000) {
        sample::DataFile file;
        file.header.maxSecs = 8;
        file.header.dataPageSize = 4 * 1080;
        file.header.eventPageSize = eventPageSize;
        sample::writeDataFile(m_folder.file("data.vd"), file);
    }

    std::string data() const { return m_folder.file("data.vd"); }
    std::string folder() const { return m_folder.path().string(); }

    // A writing and a reading process side by side, until the reading one has seen enough.
    static void expectBothGood(const Role& writing, const Role& reading, int seconds) {
        constexpr int kLongerThanAnyReader = 300;
        toolTest::Child writer(STRESS_PROGRAM, writing.arguments(seconds + kLongerThanAnyReader));
        const RunResult read = run(reading, seconds);
        sample::writeFile(writing.path + kStopSuffix, "");
        const int written = writer.wait();
        std::printf("%s%s", writer.out().c_str(), read.out.c_str());
        EXPECT_EQ(written, 0) << writer.out() << writer.err();
        EXPECT_EQ(read.code, 0) << read.out << read.err;
    }

    // All records stand in the file, without a gap.
    void expectWholeJournal() const {
        const RunResult read = run({"walk-journal", folder(), "still"}, 0);
        EXPECT_EQ(read.code, 0) << read.out << read.err;
    }

    toolTest::TempFolder m_folder;
};

} // namespace

TEST_F(Stress, FourWritersAndFourReadersSeeNoTornSlot) {
    writeData();
    expectBothGood({"write-slots", data()}, {"read-slots", data()}, STRESS_SECONDS);
}

// The same two processes, but for the lock: ends at the first torn slot.
TEST_F(Stress, WithoutTheLockSlotsAreTorn) {
    writeData();
    expectBothGood({"write-slots", data(), "unlocked"}, {"read-slots", data(), "torn"}, 0);
}

TEST_F(Stress, JournalIsReadWholeOnceAndInOrderWhileItGrows) {
    writeData();
    expectBothGood({"append-records", data()}, {"walk-journal", folder()}, kShortSeconds);
    expectWholeJournal();
}

// Pages of two or three records: the end of the journal is a page's end nearly always.
TEST_F(Stress, JournalOfSmallPagesIsReadWholeOnceAndInOrder) {
    writeData(400);
    expectBothGood({"append-records", data()}, {"walk-journal", folder()}, kShortSeconds / 2);
    expectWholeJournal();
}

TEST_F(Stress, AlertsAreReadWholeWhileTheyAreAdded) {
    expectBothGood({"append-alerts", m_folder.file("alert.vd")}, {"walk-alerts", folder()},
                   kShortSeconds / 2);
}

TEST_F(Stress, WriterThatDiesWithALockStallsThatSlotAlone) {
    writeData();
    {
        live::DataWriter writer(data());
        for (std::uint32_t index = 0; index < 8; ++index)
            writer.writeSlot(index, live::patternSlot(1, 100 + index));
    }
    ASSERT_EQ(run({"hold-slot", data(), "3"}, 0).code, 0);

    TCurrentData current;
    current.Init(data().c_str(), false);
    current.LoadData();
    std::atomic<bool> through{false};
    std::thread waiting([&] {
        char copy[1072];
        current.GetData4Reading(3, copy, 0);
        EXPECT_EQ(live::stampOf(copy + 48), 103u);
        through = true;
    });
    for (int round = 0; round < 200; ++round)
        for (std::int32_t index = 0; index < 8; ++index) {
            if (index == 3)
                continue;
            char copy[1072];
            ASSERT_NE(current.GetData4Reading(index, copy, 0), nullptr);
            EXPECT_EQ(live::stampOf(copy + 48), 100u + static_cast<unsigned>(index));
            EXPECT_EQ(live::stampOfDouble(current.GetDoubleParam(index, 9), 9),
                      100u + static_cast<unsigned>(index));
        }
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    EXPECT_FALSE(through);
    live::DataWriter(data()).unlockSlot(3);
    waiting.join();
    EXPECT_TRUE(through);
}

// When a dump is made, and which kind.

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "diagnostics/dumpFixture.h"
#include "diagnostics/stackReport.h"
#include "platform/process.h"
#include "support/scopedCalls.h"

namespace {

using Names = std::vector<std::string>;

class CrashDumps : public DumpFixture {
  protected:
    void crash(std::uint32_t code = 0xC0000005, int type = 2, int onlyIfAuto = 0) {
        MadeException exception(code);
        CreateProcessCrashDump(type, &exception.pointers, onlyIfAuto);
        later(1);
    }
    void request(int type, bool limited, bool onlyIfAuto = false) {
        CreateProcessDump(type, limited, onlyIfAuto);
        later(1);
    }
    static std::vector<std::uint32_t> kinds() {
        std::vector<std::uint32_t> found;
        for (const WrittenDump& dump : s_written)
            found.push_back(dump.kind);
        return found;
    }
    Names events() const { return m_log.messages(CapturedLog::events); }
};

using Kinds = std::vector<std::uint32_t>;

std::string systemForm(std::string path) {
    std::replace(path.begin(), path.end(), '/', platform::pathForm.separator);
    return path;
}

} // namespace

TEST_F(CrashDumps, AutoDumpsAreOffWithoutAFile) {
    EXPECT_FALSE(IsAutoDumpCreationEnabled());
}

TEST_F(CrashDumps, AutoDumpsAreOffWithoutTheKey) {
    ini("fulloncrash=1\n");
    EXPECT_FALSE(IsAutoDumpCreationEnabled());
}

TEST_F(CrashDumps, AutoDumpsAreOffAtZero) {
    ini("auto=0\n");
    EXPECT_FALSE(IsAutoDumpCreationEnabled());
}

TEST_F(CrashDumps, EveryOtherNumberTurnsAutoDumpsOn) {
    ini("auto=-3\n");
    EXPECT_TRUE(IsAutoDumpCreationEnabled());
}

TEST_F(CrashDumps, AutoSettingIsReadOnce) {
    ini("auto=1\n");
    EXPECT_TRUE(IsAutoDumpCreationEnabled());
    ini("auto=0\n");
    EXPECT_TRUE(IsAutoDumpCreationEnabled());
}

TEST_F(CrashDumps, EnableBeforeTheFirstQuestionEndsTheReading) {
    static int opened;
    opened = 0;
    ini("auto=1\n");
    const ScopedCalls calls;
    static auto openStream = calls.saved().openStream;
    static auto openForReading = calls.saved().openForReading;
    platform::calls.openStream = [](const char* path) { return ++opened, openStream(path); };
    platform::calls.openForReading = [](const char* path) {
        return ++opened, openForReading(path);
    };
    EnableAutoDumpCreation(false);
    EXPECT_FALSE(IsAutoDumpCreationEnabled());
    EXPECT_EQ(opened, 0);
}

TEST_F(CrashDumps, EnableChangesTheSettingAtAnyTime) {
    EXPECT_FALSE(IsAutoDumpCreationEnabled());
    EnableAutoDumpCreation(true);
    EXPECT_TRUE(IsAutoDumpCreationEnabled());
    EnableAutoDumpCreation(false);
    EXPECT_FALSE(IsAutoDumpCreationEnabled());
}

TEST_F(CrashDumps, ProcessThatStopsMakesNoneWhateverTheSetting) {
    EnableAutoDumpCreation(true);
    SetDisableDumpsOnProcessStop();
    EXPECT_FALSE(IsAutoDumpCreationEnabled());
    EnableAutoDumpCreation(true);
    EXPECT_FALSE(IsAutoDumpCreationEnabled());
    crash(0xC0000005, 2, 1);
    request(0, false, true);
    EXPECT_TRUE(s_written.empty());
}

TEST_F(CrashDumps, ProcessThatStopsDoesNotWaitForTheLock) {
    SetDisableDumpsOnProcessStop();
    const std::lock_guard guard(dumpLock());
    std::atomic<bool> answer{true};
    std::thread([&answer] { answer = IsAutoDumpCreationEnabled(); }).join();
    EXPECT_FALSE(answer);
}

TEST_F(CrashDumps, CrashDumpIsMadeWhateverTheSettingsUnlessAsked) {
    EnableAutoDumpCreation(false);
    SetDisableDumpsOnProcessStop();
    crash(0xC0000005, 2, 0);
    EXPECT_EQ(dumps(), (Names{"mini123456_789.dmp"}));
}

TEST_F(CrashDumps, CrashDumpOnlyIfAutoLeavesNothingWhereItIsOff) {
    ini("auto=0\n");
    crash(0xC0000005, 2, 1);
    EXPECT_TRUE(dumps().empty());
    EXPECT_EQ(m_log.size(), 0u);
    EXPECT_FALSE(std::filesystem::exists("Dumps"));
}

TEST_F(CrashDumps, CrashDumpOnlyIfAutoIsMadeWhereItIsOn) {
    ini("auto=1\n");
    crash(0xC0000005, 2, 1);
    EXPECT_EQ(dumps(), (Names{"mini123456_789.dmp"}));
}

TEST_F(CrashDumps, LinesTellBeginAndPath) {
    crash();
    EXPECT_EQ(events(), (Names{"DUMP:: <CreateProcessCrashDump:Beginning crash dump creation",
                               "DUMP:: CreateProcessCrashDump>:Crash dump [" +
                                   systemForm("Dumps/20261121/mini123456_789.dmp") + "] done"}));
}

TEST_F(CrashDumps, DoneIsWrittenAlsoWithoutAFile) {
    platform::dumpCalls.createFile = [](platform::SystemName) -> platform::DumpFile {
        return nullptr;
    };
    crash();
    ASSERT_EQ(events().size(), 2u);
    EXPECT_NE(events()[1].find("] done"), std::string::npos);
    EXPECT_TRUE(dumps().empty());
}

TEST_F(CrashDumps, FoldersThatCannotBeMadeChangeNothingForTheCaller) {
    platform::dumpCalls.createFolder = [](const char*) { return false; };
    crash();
    EXPECT_TRUE(dumps().empty());
    EXPECT_EQ(events().size(), 2u);
    EXPECT_TRUE(s_written.empty());
}

TEST_F(CrashDumps, ThreadAndExceptionAreThoseOfTheCaller) {
    crash(0xC0000094);
    ASSERT_EQ(s_written.size(), 1u);
    EXPECT_EQ(s_written[0].threadId, platform::threadId());
    EXPECT_NE(s_written[0].writerThread, platform::threadId());
    EXPECT_EQ(s_written[0].code, 0xC0000094);
}

TEST_F(CrashDumps, RemoteCallCodesAreSkippedWithALine) {
    crash(1700);
    crash(1723);
    crash(1791);
    EXPECT_TRUE(s_written.empty());
    EXPECT_FALSE(std::filesystem::exists("Dumps"));
    EXPECT_EQ(m_log.messages(CapturedLog::exceptions),
              (Names{"ExcFilterI: Skipping dump creation for RPC exception 0x000006A4",
                     "ExcFilterI: Skipping dump creation for RPC exception 0x000006BB",
                     "ExcFilterI: Skipping dump creation for RPC exception 0x000006FF"}));
    EXPECT_TRUE(events().empty());
    for (int i = 0; i < 3; ++i)
        EXPECT_FALSE(IsFullDumpLimitExceeded());
}

TEST_F(CrashDumps, RemoteCallCodesAreNotCounted) {
    for (int i = 0; i < 5; ++i)
        crash(1700);
    EXPECT_FALSE(IsFullDumpLimitExceeded());
}

TEST_F(CrashDumps, NeighboursOfRemoteCallCodesAreNotSkipped) {
    crash(1699);
    crash(1792);
    EXPECT_EQ(s_written.size(), 2u);
    EXPECT_TRUE(m_log.messages(CapturedLog::exceptions).empty());
}

TEST_F(CrashDumps, FirstThreeCrashesAreFullWhereAllowedAndTheFourthIsMini) {
    ini("fulloncrash=1\n");
    std::vector<bool> exceeded;
    for (int i = 0; i < 5; ++i) {
        crash();
        exceeded.push_back(IsFullDumpLimitExceeded());
    }
    EXPECT_EQ(kinds(), (Kinds{2, 2, 2, 0, 0}));
    EXPECT_EQ(dumps(), (Names{"full123456_789.dmp", "full123456_790.dmp", "full123456_791.dmp",
                              "mini123456_792.dmp", "mini123456_793.dmp"}));
    EXPECT_EQ(exceeded, (std::vector<bool>{false, false, true, true, true}));
}

TEST_F(CrashDumps, MiniCrashDumpsCountToo) {
    ini("fulloncrash=0\n");
    std::vector<bool> exceeded;
    for (int i = 0; i < 3; ++i) {
        crash();
        exceeded.push_back(IsFullDumpLimitExceeded());
    }
    EXPECT_EQ(kinds(), (Kinds{0, 0, 0}));
    EXPECT_EQ(exceeded, (std::vector<bool>{false, false, true}));
    ini("fulloncrash=1\n");
    crash();
    EXPECT_EQ(kinds().back(), 0u);
}

TEST_F(CrashDumps, FullOnCrashIsReadAtEveryCrash) {
    crash();
    ini("fulloncrash=1\n");
    crash();
    ini("fulloncrash=0\n");
    crash();
    EXPECT_EQ(kinds(), (Kinds{0, 2, 0}));
}

TEST_F(CrashDumps, CrashThatLeavesNoFileCountsToo) {
    platform::dumpCalls.runOnThread = [](void (*)(void*), void*) { return false; };
    for (int i = 0; i < 3; ++i)
        crash();
    EXPECT_TRUE(IsFullDumpLimitExceeded());
}

TEST_F(CrashDumps, OtherTypesAreHandedOnAndNotCounted) {
    ini("fulloncrash=1\n");
    for (const int type : {0, 1, 4, 6, 0x1000})
        crash(0xC0000005, type);
    EXPECT_EQ(kinds(), (Kinds{0, 1, 4, 6, 0x1000}));
    EXPECT_EQ(dumps(), (Names{"full123456_790.dmp", "full123456_791.dmp", "full123456_792.dmp",
                              "full123456_793.dmp", "mini123456_789.dmp"}));
    EXPECT_FALSE(IsFullDumpLimitExceeded());
}

TEST_F(CrashDumps, TwoInOneMillisecondShareAName) {
    crash();
    s_now -= 10'000;
    crash();
    EXPECT_EQ(s_written.size(), 2u);
    EXPECT_EQ(dumps(), (Names{"mini123456_789.dmp"}));
}

TEST_F(CrashDumps, RequestedFullDumpUnderTheLimit) {
    request(2, true);
    EXPECT_EQ(kinds(), (Kinds{6}));
    EXPECT_EQ(dumps(), (Names{"full123456_789.dmp"}));
}

TEST_F(CrashDumps, RequestedFullDumpsOverTheLimitAreMini) {
    std::vector<bool> exceeded;
    for (int i = 0; i < 4; ++i) {
        request(2, true);
        exceeded.push_back(IsFullDumpLimitExceeded());
    }
    EXPECT_EQ(kinds(), (Kinds{6, 6, 6, 4}));
    EXPECT_EQ(dumps(), (Names{"full123456_789.dmp", "full123456_790.dmp", "full123456_791.dmp",
                              "mini123456_792.dmp"}));
    EXPECT_EQ(exceeded, (std::vector<bool>{false, false, true, true}));
}

TEST_F(CrashDumps, RequestedFullDumpWithoutALimitIsNeverCounted) {
    for (int i = 0; i < 4; ++i)
        request(2, false);
    EXPECT_FALSE(IsFullDumpLimitExceeded());
    for (int i = 0; i < 3; ++i)
        crash();
    EXPECT_TRUE(IsFullDumpLimitExceeded());
    request(2, false);
    EXPECT_EQ(kinds(), (Kinds{6, 6, 6, 6, 0, 0, 0, 6}));
}

TEST_F(CrashDumps, RequestedDumpsOfOtherTypesHaveHandleData) {
    request(0, true);
    request(1, true);
    request(4, false);
    EXPECT_EQ(kinds(), (Kinds{4, 5, 4}));
    EXPECT_EQ(dumps(), (Names{"full123456_790.dmp", "full123456_791.dmp", "mini123456_789.dmp"}));
    EXPECT_FALSE(IsFullDumpLimitExceeded());
}

TEST_F(CrashDumps, RequestedDumpLeavesNoLine) {
    request(0, false);
    EXPECT_EQ(m_log.size(), 0u);
}

TEST_F(CrashDumps, RequestOnlyIfAuto) {
    EnableAutoDumpCreation(false);
    request(0, false, true);
    EXPECT_TRUE(s_written.empty());
    EnableAutoDumpCreation(true);
    request(0, false, true);
    EXPECT_EQ(s_written.size(), 1u);
}

TEST_F(CrashDumps, RequestWithoutAThreadIsPassedOverInSilence) {
    platform::dumpCalls.runOnThread = [](void (*)(void*), void*) { return false; };
    request(0, false);
    EXPECT_TRUE(s_written.empty());
    EXPECT_EQ(m_log.size(), 0u);
}

TEST_F(CrashDumps, FaultOfAnotherThreadWaitsForTheFirstDumpAndMakesItsOwn) {
    static std::atomic<bool> otherBegins;
    static std::atomic<int> inside;
    static std::atomic<bool> mixed;
    otherBegins = mixed = false;
    inside = 0;
    static auto createFile = m_dumpCalls.saved().createFile;
    platform::dumpCalls.createFile = [](platform::SystemName name) {
        if (++inside != 1)
            mixed = true;
        while (!otherBegins)
            std::this_thread::yield();
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        later(1);
        const platform::DumpFile file = createFile(name);
        --inside;
        return file;
    };
    std::thread other([] {
        while (inside == 0)
            std::this_thread::yield();
        otherBegins = true;
        MadeException exception(0xC000001D);
        CreateProcessCrashDump(2, &exception.pointers, 0);
    });
    MadeException exception(0xC0000005);
    CreateProcessCrashDump(2, &exception.pointers, 0);
    other.join();
    EXPECT_FALSE(mixed);
    ASSERT_EQ(s_written.size(), 2u);
    EXPECT_EQ(s_written[0].code, 0xC0000005);
    EXPECT_EQ(s_written[1].code, 0xC000001D);
    EXPECT_EQ(dumps(), (Names{"mini123456_789.dmp", "mini123456_790.dmp"}));
    EXPECT_FALSE(IsFullDumpLimitExceeded());
    crash();
    EXPECT_TRUE(IsFullDumpLimitExceeded());
}

TEST_F(CrashDumps, WaitersAreReleasedAfterAFaultOfTheWriter) {
    s_faults = 1;
    crash();
    std::thread([this] { crash(); }).join();
    EXPECT_EQ(s_written.size(), 2u);
}

// A crash inside the reading of the settings comes back in through the lock.
TEST_F(CrashDumps, CrashInsideTheReadOfTheSettingsMakesItsDumpFirst) {
    static bool nested;
    nested = false;
    ini("fulloncrash=1\n");
    const ScopedCalls calls;
    static auto openStream = calls.saved().openStream;
    static auto openForReading = calls.saved().openForReading;
    static auto crashOnce = [] {
        if (nested)
            return;
        nested = true;
        MadeException exception(0xC000001D);
        CreateProcessCrashDump(2, &exception.pointers, 0);
        later(1);
    };
    platform::calls.openStream = [](const char* path) { return crashOnce(), openStream(path); };
    platform::calls.openForReading = [](const char* path) {
        return crashOnce(), openForReading(path);
    };
    crash();
    ASSERT_EQ(s_written.size(), 2u);
    EXPECT_EQ(s_written[0].code, 0xC000001D);
    EXPECT_EQ(s_written[1].code, 0xC0000005);
    EXPECT_EQ(dumps(), (Names{"full123456_789.dmp", "full123456_790.dmp"}));
}

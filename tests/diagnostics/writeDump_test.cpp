// One dump: codes of writeDumpFile, and the thread.

#include <fstream>
#include <string>
#include <vector>

#include "diagnostics/dumpFixture.h"

namespace {

constexpr std::uint32_t kThread = 4711;

class WriteDump : public DumpFixture {
  protected:
    WriteDump() {
        s_held = 0;
        platform::dumpCalls.systemName = [](const char* name) {
            const platform::SystemName made = s_saved.systemName(name);
            s_held += made != nullptr ? 1 : 0;
            return made;
        };
        platform::dumpCalls.freeSystemName = [](platform::SystemName name) {
            s_held -= name != nullptr ? 1 : 0;
            s_saved.freeSystemName(name);
        };
    }
    ~WriteDump() { EXPECT_EQ(s_held, 0) << "names that were not given back"; }

    std::uint32_t write(const char* name = "x.dmp") {
        return writeDumpFile(0, name, kThread, &m_exception.pointers);
    }

    static inline const platform::DumpCalls s_saved = platform::dumpCalls;
    static inline int s_held;
    MadeException m_exception{0xC0000005};
};

const char* unreadable() {
    return reinterpret_cast<const char*>(16);
}

} // namespace

TEST_F(WriteDump, WrittenIsZero) {
    EXPECT_EQ(write(), 0u);
    ASSERT_EQ(s_written.size(), 1u);
    EXPECT_EQ(s_written[0].kind, 0u);
    EXPECT_EQ(s_written[0].threadId, kThread);
    EXPECT_EQ(s_written[0].clientPointers, 1);
    EXPECT_EQ(s_written[0].code, 0xC0000005);
    EXPECT_TRUE(std::filesystem::exists("x.dmp"));
}

TEST_F(WriteDump, WriterIsLookedForOnceAndFirstAmongLoadedLibraries) {
    EXPECT_EQ(write(), 0u);
    EXPECT_EQ(write(), 0u);
    EXPECT_EQ(s_lookUps, (std::vector<std::string>{"loaded DBGHELP.DLL", "load DBGHELP.DLL",
                                                   "symbol MiniDumpWriteDump"}));
}

TEST_F(WriteDump, LoadedLibraryIsNotLoadedAgain) {
    platform::libraryCalls.loaded = [](const char*) -> platform::LibraryHandle { return &s_now; };
    EXPECT_EQ(write(), 0u);
    EXPECT_EQ(s_lookUps, (std::vector<std::string>{"symbol MiniDumpWriteDump"}));
}

TEST_F(WriteDump, MissingLibraryIsOneForGood) {
    s_hasLibrary = false;
    EXPECT_EQ(write(), 1u);
    s_hasLibrary = true;
    EXPECT_EQ(write(), 1u);
    EXPECT_EQ(s_lookUps.size(), 2u);
    EXPECT_FALSE(std::filesystem::exists("x.dmp"));
}

TEST_F(WriteDump, MissingWriterIsTwoForGood) {
    s_hasWriter = false;
    EXPECT_EQ(write(), 2u);
    s_hasWriter = true;
    EXPECT_EQ(write(), 2u);
    EXPECT_EQ(s_lookUps.size(), 3u);
    EXPECT_FALSE(std::filesystem::exists("x.dmp"));
}

TEST_F(WriteDump, BadNameIsThree) {
    EXPECT_EQ(write(nullptr), 3u);
    EXPECT_EQ(write(unreadable()), 3u);
    EXPECT_TRUE(s_lookUps.empty());
}

TEST_F(WriteDump, FailedConversionIsThree) {
    platform::dumpCalls.systemName = [](const char*) -> platform::SystemName { return nullptr; };
    EXPECT_EQ(write(), 3u);
    EXPECT_TRUE(s_lookUps.empty());
}

TEST_F(WriteDump, BadSystemNameIsThree) {
    platform::dumpCalls.badSystemName = [](platform::SystemName, std::size_t limit) {
        EXPECT_EQ(limit, 260u);
        return true;
    };
    EXPECT_EQ(write(), 3u);
    EXPECT_TRUE(s_lookUps.empty());
}

TEST_F(WriteDump, BadPointersAreThree) {
    EXPECT_EQ(writeDumpFile(0, "x.dmp", kThread, nullptr), 3u);
    auto* bad = reinterpret_cast<sExceptionPointers*>(16);
    EXPECT_EQ(writeDumpFile(0, "x.dmp", kThread, bad), 3u);
    EXPECT_TRUE(s_lookUps.empty());
}

TEST_F(WriteDump, EightBytesOfThePointersAreLookedAt) {
    static std::size_t asked;
    platform::dumpCalls.badMemory = [](const void*, std::size_t size) {
        asked = size;
        return false;
    };
    EXPECT_EQ(write(), 0u);
    EXPECT_EQ(asked, 8u);
}

TEST_F(WriteDump, ThreadZeroIsThree) {
    EXPECT_EQ(writeDumpFile(0, "x.dmp", 0, &m_exception.pointers), 3u);
    EXPECT_TRUE(s_lookUps.empty());
}

TEST_F(WriteDump, FileThatCannotBeMadeIsFourAndTheNextIsTried) {
    EXPECT_EQ(write("absent/x.dmp"), 4u);
    EXPECT_TRUE(s_written.empty());
    EXPECT_EQ(write(), 0u);
}

TEST_F(WriteDump, FailedWriterIsFiveAndTheNextIsTried) {
    s_result = 0;
    EXPECT_EQ(write(), 5u);
    s_result = 2; // only 1 is success
    EXPECT_EQ(write(), 5u);
    s_result = 1;
    EXPECT_EQ(write(), 0u);
}

TEST_F(WriteDump, FileIsEmptiedAndClosed) {
    m_folder.write("x.dmp", "old");
    EXPECT_EQ(write(), 0u);
    EXPECT_EQ(m_folder.read("x.dmp"), "");
    EXPECT_EQ(write(), 0u) << "still open";
    s_result = 0;
    EXPECT_EQ(write(), 5u);
    EXPECT_EQ(write(), 5u) << "still open";
}

TEST_F(WriteDump, ThreadOfItsOwnWrites) {
    makeDumpPath(0);
    EXPECT_EQ(writeDumpOnThread(2, kThread, &m_exception.pointers), 0u);
    ASSERT_EQ(s_written.size(), 1u);
    EXPECT_EQ(s_written[0].kind, 2u);
    EXPECT_EQ(s_written[0].threadId, kThread);
    EXPECT_NE(s_written[0].writerThread, platform::threadId());
    EXPECT_EQ(dumps(), (std::vector<std::string>{"mini123456_789.dmp"}));
}

TEST_F(WriteDump, FailureOfTheWriteIsNotTold) {
    makeDumpPath(0);
    s_result = 0;
    EXPECT_EQ(writeDumpOnThread(0, kThread, &m_exception.pointers), 0u);
    EXPECT_EQ(s_written.size(), 1u);
}

TEST_F(WriteDump, ThreadThatCannotStartIsNine) {
    makeDumpPath(0);
    platform::dumpCalls.runOnThread = [](void (*)(void*), void*) { return false; };
    EXPECT_EQ(writeDumpOnThread(0, kThread, &m_exception.pointers), 9u);
    EXPECT_TRUE(s_written.empty());
}

TEST_F(WriteDump, BadPathIsThreeWithoutAThread) {
    static std::size_t asked;
    asked = 0;
    platform::dumpCalls.badText = [](const char*, std::size_t limit) {
        asked = limit;
        return true;
    };
    platform::dumpCalls.runOnThread = [](void (*)(void*), void*) {
        ADD_FAILURE() << "a thread was started";
        return true;
    };
    EXPECT_EQ(writeDumpOnThread(0, kThread, &m_exception.pointers), 3u);
    EXPECT_EQ(asked, 260u);
}

TEST_F(WriteDump, WithoutPointersTheThreadShowsItsOwnFault) {
    makeDumpPath(0);
    EXPECT_EQ(writeDumpOnThread(4, 0, nullptr), 0u);
    ASSERT_EQ(s_written.size(), 1u);
    EXPECT_EQ(s_written[0].kind, 4u);
    EXPECT_EQ(s_written[0].code, 0xC0000005);
    EXPECT_EQ(s_written[0].threadId, s_written[0].writerThread);
    EXPECT_NE(s_written[0].writerThread, platform::threadId());
}

TEST_F(WriteDump, FaultOfTheWriterIsTriedOnceMoreAndFindsTheFileOpen) {
    makeDumpPath(0);
    s_faults = 1;
    static std::vector<bool> opened;
    opened.clear();
    platform::dumpCalls.createFile = [](platform::SystemName name) {
        const platform::DumpFile file = s_saved.createFile(name);
        opened.push_back(file != nullptr);
        return file;
    };
    EXPECT_EQ(writeDumpOnThread(0, kThread, &m_exception.pointers), 0u);
    EXPECT_EQ(s_written.size(), 1u);
    EXPECT_EQ(opened, (std::vector<bool>{true, false}));
    --s_held; // the name of the attempt that faulted is never given back
}

TEST_F(WriteDump, NextDumpIsWrittenAfterAFaultOfTheWriter) {
    makeDumpPath(0);
    s_faults = 1;
    writeDumpOnThread(0, kThread, &m_exception.pointers);
    later(1);
    makeDumpPath(0);
    EXPECT_EQ(writeDumpOnThread(0, kThread, &m_exception.pointers), 0u);
    EXPECT_EQ(s_written.size(), 2u);
    EXPECT_EQ(dumps(), (std::vector<std::string>{"mini123456_789.dmp", "mini123456_790.dmp"}));
    --s_held;
}

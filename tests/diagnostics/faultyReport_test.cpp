// Faults while a fault is told of: in the writer of its dump, and in its report.

#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "diagnostics/crashDumps.h"
#include "diagnostics/dumpLockIsFree.h"
#include "diagnostics/logLines.h"
#include "diagnostics/stackFixture.h"
#include "logs/logger.h"
#include "platform/dumpWriter.h"
#include "platform/process.h"
#include "platform/thread.h"
#include "support/faults.h"
#include "support/processUse.h"
#include "support/programFolder.h"
#include "support/scopedDumpCalls.h"
#include "support/scopedLibraryCalls.h"
#include "support/tempFolder.h"
#include "vdreader/errors.hpp"
#include "vdreader/log.h"
#include "vdreader/vdreader.h"

namespace {

const std::string kEnd(122, '*');
const bool kOnLinux = platform::pathForm.separator == '/';

// The logs go into a folder of the test, whose reports have one frame.  The first notice to a
// service that is not there has been given.
class FaultyReport : public testing::Test {
  protected:
    FaultyReport() {
        ++s_tests;
        std::filesystem::current_path(m_program.path());
        s_faults = s_lookUps = 0;
        s_writers.clear();
        s_symbol = m_libraries.saved().symbol;
        platform::libraryCalls.symbol = [](platform::LibraryHandle library, const char* name) {
            return std::strcmp(name, "MiniDumpWriteDump") == 0 ? reinterpret_cast<void*>(&write)
                                                               : s_symbol(library, name);
        };
        s_help = &m_stack.help();
        s_help->frames = {{0x1000, 0x1100}};
        EnableAutoDumpCreation(false);
        try {
            SendSvctlError(0, 0, 0, 0, 0, 0, nullptr);
        } catch (const std::exception&) {
            EXPECT_EQ(s_faults, 0);
        }
        util_set_se_translator(seh_translator);
    }
    ~FaultyReport() {
        util_set_se_translator(nullptr);
        shutdown_logs();
    }

    // The text of the exception that a fault of the calling thread ends in.
    static std::string fail() {
        try {
            failInReport();
        } catch (const CSEHError& failure) {
            return failure.what();
        }
        return "nothing";
    }

    // A fault whose report finds the frames from the first one on.
    static void failInReport() {
        s_help->next = 0;
        std::atomic_signal_fence(std::memory_order_seq_cst);
        faults::readNull();
    }

    std::vector<std::string> lines() {
        shutdown_logs();
        return messagesIn(m_program.path() / "events.log");
    }
    static int count(const std::vector<std::string>& lines, const std::string& part) {
        int found = 0;
        for (const std::string& line : lines)
            found += line.find(part) != std::string::npos ? 1 : 0;
        return found;
    }
    static int reports(const std::vector<std::string>& lines) {
        return count(lines, "SEH exception catched. Exception report: ");
    }

    std::size_t dumps() const {
        std::size_t found = 0;
        if (m_program.has("Dumps"))
            for (const auto& entry :
                 std::filesystem::recursive_directory_iterator(m_program.path() / "Dumps"))
                found += entry.is_regular_file() ? 1 : 0;
        return found;
    }

    // The bytes of the dump that dumpPath names.
    std::string latestDump() const { return bytesOf(m_program.path() / dumpPath); }

    // A dump whose writer faults, and the next one.
    void expectBothReports(std::string (*failing)()) {
        EnableAutoDumpCreation(true);
        s_faults = 1;
        EXPECT_EQ(failing().rfind("Exception 0xC0000005 occurred", 0), 0u);
        EXPECT_TRUE(dumpLockIsFree());
        ASSERT_EQ(s_writers.size(), 1u) << "the second attempt finds the file open";
        EXPECT_NE(s_writers[0], platform::threadId());
        std::this_thread::sleep_for(std::chrono::milliseconds(2)); // a name of its own
        EXPECT_EQ(failing().rfind("Exception 0xC0000005 occurred", 0), 0u);
        EXPECT_EQ(s_writers.size(), 2u);
        EXPECT_EQ(dumps(), 2u);
        const std::vector<std::string> written = lines();
        EXPECT_EQ(reports(written), 2);
        EXPECT_EQ(count(written, "Exception 0xC0000005 occurred at address 0x"), 2);
        EXPECT_EQ(count(written, "] done"), 2);
        EXPECT_EQ(count(written, kEnd), 2);
    }

    static std::int32_t faultyLine(platform::ProcessHandle, std::uint64_t, std::uint32_t*,
                                   platform::LineRecord*) {
        std::fprintf(stderr, "look-up %d\n", ++s_lookUps);
        if (s_lookUps > 8)
            std::_Exit(0); // no death
        if (s_faults-- > 0)
            failInReport();
        return 0;
    }
    void makeLookUpsFault(int times) {
        stackLibraries().debugHelp.symGetLineFromAddr64 = faultyLine;
        s_faults = times;
    }

    static inline int s_faults;                         // so many of the next calls fault
    static inline int s_lookUps;                        // of lines
    static inline std::vector<std::uint32_t> s_writers; // their threads
    static inline FakeDebugHelp* s_help;

    static inline int s_tests = 0; // of this process
    static inline decltype(platform::LibraryCalls::symbol) s_symbol;

    ProgramFolder m_program;

  private:
    static std::int32_t write(void*, std::uint32_t, platform::DumpFile, std::uint32_t,
                              const platform::DumpException*, const void*, const void*) {
        s_writers.push_back(platform::threadId());
        if (s_faults-- > 0)
            faults::writeNull();
        return 1;
    }

    ScopedLibraryCalls m_libraries;
    StackFixture m_stack;
};

} // namespace

TEST_F(FaultyReport, WriterFaultsForTheMainThread) {
    init_eventlog(nullptr, nullptr, nullptr);
    expectBothReports(fail);
}

TEST_F(FaultyReport, WriterFaultsForAWorker) {
    init_eventlog(nullptr, nullptr, nullptr);
    expectBothReports([] {
        std::string text;
        std::thread([&text] {
            init_eventlog(nullptr, nullptr, nullptr);
            util_set_se_translator(seh_translator);
            text = fail();
            util_set_se_translator(nullptr);
        }).join();
        return text;
    });
}

TEST_F(FaultyReport, WriterFaultsForACallbackOfAWalk) {
    m_program.write("flimit.vd", std::string(65536, '\0'));
    init_eventlog(nullptr, nullptr, nullptr);
    expectBothReports([]() -> std::string {
        const FutLimitCallback fault = [](sFutLimit*) -> std::int32_t {
            faults::readNull();
            return 1;
        };
        EXPECT_EQ(for_each_futlimit(fault), 0);
        return get_vdreader_error();
    });
}

// From the fault to the exception, with writer and symbols that take no time.
TEST_F(FaultyReport, HundredFaultsLeaveTheirReportsAndNothingElse) {
    constexpr std::size_t kFaults = 102;
    init_eventlog(nullptr, nullptr, nullptr);
    EnableAutoDumpCreation(true);
    s_help->modules = {{"path1", "one", 0x1000, 0x100, 7, "one.pdb", "one.img"}};
    s_help->symbols[0x1000] = {"function", "file.cpp", 7};
    s_writers.reserve(kFaults);
    std::int64_t handles = 0, bytes = 0, moreHandles = 0, moreBytes = 0;
    std::size_t caught = 0;
    std::thread([&] {
        util_set_se_translator(seh_translator);
        for (std::size_t i = 1; i <= kFaults; ++i) {
            caught += fail().rfind("Exception 0xC0000005 occurred", 0) == 0 ? 1 : 0;
            s_help->calls = {};
            s_help->recordSizes = {};
            std::int64_t& handlesNow = i <= 2 ? handles : moreHandles;
            std::int64_t& bytesNow = i <= 2 ? bytes : moreBytes;
            if (i != 2 && i != kFaults)
                continue;
            sysLogger.load()->drain(); // lines that wait take memory
            handlesNow = openHandles();
            bytesNow = privateBytes();
        }
        util_set_se_translator(nullptr);
    }).join();
    EXPECT_EQ(caught, kFaults);
    EXPECT_EQ(s_writers.size(), kFaults);
    // Windows makes some where two threads first meet at a lock.
    EXPECT_LE(moreHandles - handles, kOnLinux ? 0 : 20);
#ifndef VDREADER_SANITIZED // their heap keeps what is freed
    // On Linux what a thread's own store of free blocks comes to.
    EXPECT_LT(moreBytes - bytes, kOnLinux ? 1 << 15 : 1 << 12);
#endif
    const std::vector<std::string> written = lines();
    EXPECT_EQ(reports(written), static_cast<int>(kFaults));
    EXPECT_EQ(count(written, "] done"), static_cast<int>(kFaults));
}

// Without a stand-in for the writer: the fault comes when its file is there already.
TEST_F(FaultyReport, DumpBehindOneWithAFaultIsWhole) {
    if (s_tests > 1)
        GTEST_SKIP() << "this process knows another writer already";
    platform::libraryCalls.symbol = s_symbol;
    init_eventlog(nullptr, nullptr, nullptr);
    EnableAutoDumpCreation(true);
    const ScopedDumpCalls dumpCalls;
    static void* (*currentProcess)();
    currentProcess = dumpCalls.saved().currentProcess;
    platform::dumpCalls.currentProcess = [] {
        if (s_faults-- > 0)
            faults::writeNull();
        return currentProcess();
    };
    s_faults = 1;
    for (std::size_t number = 1; number <= 2; ++number) {
        EXPECT_EQ(fail().rfind("Exception 0xC0000005 occurred", 0), 0u);
        EXPECT_TRUE(dumpLockIsFree());
        EXPECT_EQ(dumps(), number);
        const std::string bytes = latestDump();
        if (number == 1)
            EXPECT_EQ(bytes, "");
        else
            EXPECT_EQ(bytes.substr(0, 4), kOnLinux ? "\177ELF" : "MDMP");
        std::this_thread::sleep_for(std::chrono::milliseconds(2)); // a name of its own
    }
    const std::vector<std::string> written = lines();
    EXPECT_EQ(reports(written), 2);
    EXPECT_EQ(count(written, "] done"), 2);
    EXPECT_EQ(count(written, kEnd), 2);
}

// The fault of the report is told of in a report of its own, and comes to the handler.
TEST_F(FaultyReport, ReportThatFaultsIsFollowedByOneOfItsFault) {
    makeLookUpsFault(1);
    EXPECT_EQ(fail().rfind("Exception 0xC0000005 occurred", 0), 0u);
    EXPECT_EQ(s_lookUps, 2);
    EXPECT_TRUE(dumpLockIsFree());
    EXPECT_EQ(fail().rfind("Exception 0xC0000005 occurred", 0), 0u);
    EXPECT_EQ(s_lookUps, 3);
    const std::vector<std::string> written = lines();
    EXPECT_EQ(reports(written), 3);
    EXPECT_EQ(count(written, kEnd), 2) << "the first one breaks off";
}

TEST_F(FaultyReport, ReportsMayFaultOneInsideTheOther) {
    makeLookUpsFault(7);
    EXPECT_EQ(fail().rfind("Exception 0xC0000005 occurred", 0), 0u);
    EXPECT_EQ(s_lookUps, 8);
    EXPECT_TRUE(dumpLockIsFree());
    const std::vector<std::string> written = lines();
    EXPECT_EQ(reports(written), 8);
    EXPECT_EQ(count(written, kEnd), 1);
}

TEST_F(FaultyReport, ThreadOfAWorkerGoesOnToo) {
    makeLookUpsFault(2);
    std::string text;
    std::thread([&text] {
        util_set_se_translator(seh_translator);
        text = fail();
        util_set_se_translator(nullptr);
    }).join();
    EXPECT_EQ(text.rfind("Exception 0xC0000005 occurred", 0), 0u);
    EXPECT_TRUE(dumpLockIsFree());
    EXPECT_EQ(reports(lines()), 3);
}

// A report that always faults; the next test runs it in a process of its own.
TEST_F(FaultyReport, DISABLED_AlwaysFaults) {
    makeLookUpsFault(1000);
    fail();
}

// The ninth fault is the process's end.
TEST(FaultyReportProcess, EndsWithTheNinthNestedFault) {
    const TempFolder folder;
    const std::string told = folder.name("told.txt");
    char self[261] = {};
    ASSERT_GT(platform::calls.executablePath(self, sizeof self), 0u);
    // The command interpreter of Windows takes the outermost quotes away.
    const std::string command = std::string(kOnLinux ? "" : "\"") + '"' + self +
                                "\" --gtest_also_run_disabled_tests"
                                " --gtest_filter=FaultyReport.DISABLED_AlwaysFaults 2> \"" +
                                told + (kOnLinux ? "\"" : "\"\"");
    EXPECT_NE(std::system(command.c_str()), 0);
    const std::string bytes = bytesOf(told);
    EXPECT_NE(bytes.find("look-up 8"), std::string::npos) << bytes;
    EXPECT_EQ(bytes.find("look-up 9"), std::string::npos) << bytes;
}

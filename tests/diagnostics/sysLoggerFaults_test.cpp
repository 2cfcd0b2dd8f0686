// The logger's worker as a thread whose faults are translated.

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "diagnostics/logLines.h"
#include "logs/SysLogger.h"
#include "support/faults.h"
#include "support/programFolder.h"
#include "support/scopedCalls.h"
#include "support/tempFolder.h"
#include "support/waitWhile.h"
#include "vdreader/log.h"
#include "vdreader/logfiles.h"
#include "vdreader/postmortem.h"

TEST(SysLoggerFaults, WorkerHasTheTranslatorOfTheFamily) {
    static sExceptionTranslator before, after;
    before = after = nullptr;
    const TempFolder folder;
    {
        SysLogger logger(folder.name("events.log"), 1, [](SysLogger& started) {
            return std::thread([&started] {
                before = util_set_se_translator(nullptr);
                started.workerLoop();
                after = util_set_se_translator(nullptr);
            });
        });
    }
    EXPECT_EQ(before, nullptr);
    EXPECT_EQ(after, seh_translator);
}

// The report of the fault goes through the logger that failed.
TEST(SysLoggerFaults, FaultOfTheWorkerIsReportedAndItGoesOn) {
    const ProgramFolder program;
    std::filesystem::current_path(program.path());
    // The first notice to a service that is not there raises.
    EXPECT_ANY_THROW(SendSvctlError(0, 0, 0, 0, 0, 0, nullptr));
    init_eventlog(nullptr, nullptr, nullptr);
    ScopedCalls calls;
    static std::atomic<int> faults{1};
    static auto append = calls.saved().appendStorage;
    platform::calls.appendStorage = [](platform::StorageHandle file, const void* data,
                                       std::uint32_t size, std::uint32_t* done) {
        if (faults.exchange(0) != 0)
            faults::writeNull();
        return append(file, data, size, done);
    };
    event("in the worker's hand");
    waitWhile(faults, 1);
    error("of another thread");
    event("behind the fault");
    shutdown_logs();
    const std::vector<std::string> lines = messagesIn(program.path() / "events.log");
    const auto has = [&](const char* text) {
        return std::any_of(lines.begin(), lines.end(), [&](const std::string& line) {
            return line.find(text) != std::string::npos;
        });
    };
    EXPECT_TRUE(has("in the worker's hand"));
    EXPECT_TRUE(has("Exception 0xC0000005 occurred"));
    EXPECT_TRUE(has("of another thread"));
    EXPECT_TRUE(has("behind the fault"));
}

// The tracers as a host of the library sees them, by their reports in the event log.

#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>

#include "support/tempFolder.h"
#include "vdreader/logfiles.h"
#include "vdreader/memtrace.h"
#include "vdreader/tracing.h"

namespace {

class Tracing : public testing::Test {
  protected:
    // The monitors make the program's folder the current one and read sarn.ini there; one thread
    // that opens the log has done so before.
    Tracing() {
        init_eventlog(nullptr, nullptr, m_folder.write("first.ini", files()).c_str());
        m_events = m_folder.name("tracing.log");
        shutdown_logs();
        util_init(m_events.c_str(), nullptr, nullptr, nullptr);
        m_program = std::filesystem::current_path();
    }
    ~Tracing() {
        MemTraceShutDown();
        TrafficTraceShutDown();
        shutdown_logs();
        std::error_code ignored;
        std::filesystem::remove(m_program / "sarn.ini", ignored);
    }

    std::string files() const {
        return "[Files]\nEventsLogFileName=" + m_folder.name("monitor.log") +
               "\nErrorsLogFileName=" + m_folder.name("errors.log") + "\n";
    }
    void ini(const std::string& text) const {
        std::ofstream(m_program / "sarn.ini", std::ios::binary) << files() << text;
    }
    void waitForLine(const std::string& part) const {
        for (int i = 0; i < 3000; ++i) {
            std::ifstream in(m_events, std::ios::binary);
            const std::string text(std::istreambuf_iterator<char>(in), {});
            if (text.find(part) != std::string::npos)
                return;
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        ADD_FAILURE() << "no line with " << part;
    }

    TempFolder m_folder;
    std::string m_events;
    std::filesystem::path m_program;
};

} // namespace

// One test: its sarn.ini stands in the folder of all tests.
TEST_F(Tracing, BlocksAndTrafficOfTheHostAreReported) {
    const std::string traffic = "[traffic_trace]\nenable=1\nperiod=1\n";
    ini(traffic + "[mem_trace]\nenable=1\nperiod=1\n");
    TrafficTraceInit();
    TrafficTrace(21, 3456, true);
    TrafficTrace(21, 89, false);
    waitForLine("O 21 89");
    waitForLine("I 21 3456");
    MemTraceInit();
    waitForLine("Memory report:space<120000264>memLimit<200000000>");
    void* const block = memTraceMalloc(4321, "host/src/cache.cpp", 17);
    waitForLine("): 4321 1 cache.cpp:17");
    memTraceFree(block, "host/src/cache.cpp", 18);
    ini(traffic + "[mem_trace]\nenable=0\nperiod=1\n");
    waitForLine("Memory tracing disabled");
}

// Logs of a test: the calling thread's are recorders, the process's logger has no worker.

#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "dw_util/logLine.h"
#include "dw_util/threadLogState.h"
#include "logs/EVENTS.h"
#include "logs/logger.h"
#include "support/scopedCalls.h"
#include "support/tempFolder.h"
#include "support/testLogger.h"

// What was written to a log, in the place of its file.
class Recorder : public IStreamProvider {
  public:
    bool isGood() const override { return good; }
    bool write(const void* data, std::uint64_t size) override {
        if (during != nullptr)
            during();
        texts.emplace_back(static_cast<const char*>(data), size);
        return taking;
    }
    std::string all() const {
        std::string joined;
        for (const std::string& text : texts)
            joined += text;
        return joined;
    }

    bool good = true;
    bool taking = true;
    std::vector<std::string> texts;
    void (*during)() = nullptr;
};

// A log with a recorder in it, as a thread's file.
struct Target {
    Target() {
        auto made = std::make_unique<Recorder>();
        recorder = made.get();
        entry->provider = std::move(made);
    }
    std::shared_ptr<EVENTS> entry = std::make_shared<EVENTS>();
    Recorder* recorder;
};

// The calling thread has logs of the test, and the process a logger without a worker.
class Flush : public testing::Test {
  protected:
    void SetUp() override {
        platform::calls.wallClock = [] { return platform::WallTime{1'700'000'000, 1}; };
        openLogger();
        threadLogState().errorsFile = m_errors.entry;
        threadLogState().eventsFile = m_events.entry;
        threadLogState().netEventsFile = m_net.entry;
    }
    void TearDown() override {
        closeLogger();
        releaseThread();
    }

    void openLogger() { sysLogger = new SysLogger(m_folder.name("events.log"), 1, startNoWorker); }
    static void closeLogger() { delete sysLogger.exchange(nullptr); }
    static void releaseThread() {
        threadLogState().errorsFile.reset();
        threadLogState().eventsFile.reset();
        threadLogState().netEventsFile.reset();
    }

    // A log over a file of the folder.
    std::shared_ptr<EVENTS> fileTarget(const std::string& name) const {
        auto provider = std::make_unique<FileStreamProvider>();
        EXPECT_TRUE(provider->file().openAlways(m_folder.name(name).c_str(), 0));
        auto entry = std::make_shared<EVENTS>();
        entry->provider = std::move(provider);
        return entry;
    }

    // The file of the logger as it is now, and after a drain.
    std::string eventFile() const { return m_folder.read("events.log"); }
    std::string drained() const {
        sysLogger.load()->drain();
        return eventFile();
    }

    // The last line that the calling thread logged, with the line ends of Windows.
    static std::string lastLine() { return withWindowsEnds({getabuf(), getaptr()}); }
    static std::string withWindowsEnds(const std::string& line) {
        std::string text;
        for (const char c : line)
            text += c == '\n' ? std::string("\r\n") : std::string(1, c);
        return text;
    }

    TempFolder m_folder;
    Target m_errors;
    Target m_events;
    Target m_net;

  private:
    ScopedCalls m_calls;
};

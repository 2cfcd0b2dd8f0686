// What the tests of the functions that open the logs share: a program's folder, and what the
// calling thread has open.

#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "diagnostics/logLines.h"
#include "dw_util/threadLogState.h"
#include "logs/EVENTS.h"
#include "support/programFolder.h"
#include "vdreader/log.h"
#include "vdreader/logfiles.h"

inline std::string nameOf(const std::shared_ptr<EVENTS>& file) {
    return file != nullptr ? file->fileName : "(none)";
}
inline std::string eventsFile() {
    return nameOf(threadLogState().eventsFile);
}
inline std::string errorsFile() {
    return nameOf(threadLogState().errorsFile);
}

class LogFilesFixture : public testing::Test {
  protected:
    // In front of the first test's calls nothing is open; later ones of the same process start with
    // what this leaves.
    LogFilesFixture() {
        threadLogState().eventsFile.reset();
        threadLogState().errorsFile.reset();
        threadLogState().netEventsFile.reset();
        util_set_mark("");
    }
    ~LogFilesFixture() { shutdown_logs(); }

    std::string ini(const std::string& text) const { return m_folder.write("test.ini", text); }
    std::string files(const std::string& text) const { return ini("[Files]\n" + text); }

    // The event log that an ini file with these settings gives, relative to the folder.
    std::string eventLog(const std::string& settings, const char* key = nullptr) {
        init_eventlog(key, nullptr, files(settings).c_str());
        return relative(eventsFile());
    }
    std::string errorLog(const std::string& settings, const char* key = nullptr) {
        init_errorlog(key, nullptr, files(settings).c_str());
        return relative(errorsFile());
    }
    std::string relative(const std::string& name) const {
        return std::filesystem::path(name).lexically_relative(m_folder.path()).generic_string();
    }

    std::vector<std::string> messages(const std::string& file) const {
        return messagesIn(m_folder.path() / file);
    }

    ProgramFolder m_folder;
};

// What the tests of dumps share: a working folder, a clock, and a writer that tells what it was
// asked for.

#pragma once

#include <algorithm>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "diagnostics/crashDumps.h"
#include "platform/library.h"
#include "platform/thread.h"
#include "support/capturedLog.h"
#include "support/scopedDumpCalls.h"
#include "support/tempFolder.h"

// Units of 100 ns since 1601 of a moment of local time.
inline std::uint64_t fileTimeOf(int year, unsigned month, unsigned day, int hour, int minute,
                                int second, int milliseconds) {
    using namespace std::chrono;
    const sys_days start = std::chrono::year(1601) / 1 / 1;
    const sys_days date = std::chrono::year(year) / std::chrono::month(month) / day;
    const auto since = (date - start) + hours(hour) + minutes(minute) + seconds(second) +
                       std::chrono::milliseconds(milliseconds);
    return static_cast<std::uint64_t>(
        duration_cast<duration<std::int64_t, std::ratio<1, 10'000'000>>>(since).count());
}

// A sanitizer would tell of it before it happens.
[[gnu::no_sanitize("undefined", "address", "thread")]] inline void writeNull() {
    char* volatile null = nullptr;
    *const_cast<volatile char*>(null) = 1;
}

// One call of the writer.
struct WrittenDump {
    std::uint32_t kind;
    std::uint32_t threadId;
    std::int32_t clientPointers;
    std::uint32_t code; // of the exception
    std::uint32_t writerThread;
};

// An exception that nothing raised.
struct MadeException {
    explicit MadeException(std::uint32_t code) {
        record.code = code;
        pointers.record = &record;
        pointers.context = context;
    }

    sExceptionRecord record = {};
    alignas(16) unsigned char context[1232] = {};
    sExceptionPointers pointers = {};
};

// Leaves the logs alone.
class DumpFixtureWithLogs : public testing::Test {
  protected:
    DumpFixtureWithLogs() : m_former(std::filesystem::current_path()) {
        std::filesystem::current_path(m_folder.path());
        s_now = fileTimeOf(2026, 11, 21, 12, 34, 56, 789);
        s_written.clear();
        s_result = 1;
        s_faults = 0;
        s_hasLibrary = s_hasWriter = true;
        s_lookUps.clear();
        platform::dumpCalls.localFileTime = [] { return s_now; };
        platform::libraryCalls.loaded = [](const char* name) { return find("loaded ", name); };
        platform::libraryCalls.load = [](const char* name) { return find("load ", name); };
        platform::libraryCalls.symbol = [](platform::LibraryHandle, const char* name) -> void* {
            s_lookUps.push_back(std::string("symbol ") + name);
            return s_hasWriter ? reinterpret_cast<void*>(&writeForTest) : nullptr;
        };
    }
    ~DumpFixtureWithLogs() {
        platform::libraryCalls = m_libraryCalls;
        std::error_code ignored;
        std::filesystem::current_path(m_former, ignored);
    }

    void ini(const std::string& text) const { m_folder.write("sarn.ini", "[dumps]\n" + text); }

    // Names of all dumps, without their folder, sorted.
    std::vector<std::string> dumps() const {
        std::vector<std::string> names;
        if (std::filesystem::exists("Dumps"))
            for (const auto& entry : std::filesystem::recursive_directory_iterator("Dumps"))
                if (entry.is_regular_file())
                    names.push_back(entry.path().filename().string());
        std::sort(names.begin(), names.end());
        return names;
    }
    static void later(int milliseconds) {
        s_now += 10'000ull * static_cast<unsigned>(milliseconds);
    }

    static inline std::uint64_t s_now;
    static inline std::vector<WrittenDump> s_written;
    static inline std::int32_t s_result; // of the writer
    static inline int s_faults;          // so many of its next calls fault
    static inline bool s_hasLibrary;
    static inline bool s_hasWriter;
    static inline std::vector<std::string> s_lookUps;

    TempFolder m_folder;
    ScopedDumpCalls m_dumpCalls;

  private:
    static platform::LibraryHandle find(const char* call, const char* name) {
        s_lookUps.push_back(std::string(call) + name);
        return s_hasLibrary && std::strcmp(call, "load ") == 0 ? &s_now : nullptr;
    }
    static std::int32_t writeForTest(void*, std::uint32_t, platform::DumpFile, std::uint32_t kind,
                                     const platform::DumpException* exception, const void*,
                                     const void*) {
        s_written.push_back({kind, exception->threadId, exception->clientPointers,
                             exception->pointers->record->code, platform::threadId()});
        if (s_faults > 0) {
            --s_faults;
            writeNull();
        }
        return s_result;
    }

    std::filesystem::path m_former;
    platform::LibraryCalls m_libraryCalls = platform::libraryCalls;
};

// Lines are kept.
class DumpFixture : public DumpFixtureWithLogs {
  protected:
    CapturedLog m_log;
};

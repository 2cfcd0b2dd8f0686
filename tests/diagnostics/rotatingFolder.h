// A folder whose files are made at times that the test sets, and moves that can be made to fail.

#pragma once

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "platform/calls.h"
#include "platform/error.h"
#include "support/scopedCalls.h"
#include "support/tempFolder.h"

// Puts its functions into the table of calls for a scope: the clock stands where it is set, files
// remember when they were made, nobody sleeps.  One object at a time.
class RotatingFolder {
  public:
    RotatingFolder() {
        s_real = m_scope.saved();
        s_now = 1'700'000'000;
        s_births.clear();
        s_sleeps.clear();
        s_moves.clear();
        fail(0);
        setTimes();
        setMoves();
    }

    const TempFolder& files() const { return m_files; }
    std::string name(const std::string& file) const { return m_files.name(file); }

    static void setClock(std::int64_t seconds) { s_now = seconds; }

    // Writes a file that was made at this time.
    std::string write(const std::string& file, const std::string& bytes, std::int64_t made) const {
        const std::string path = m_files.write(file, bytes);
        s_births[path] = made;
        return path;
    }

    // All files with what they hold.
    std::map<std::string, std::string> all() const {
        std::map<std::string, std::string> found;
        for (const auto& entry : std::filesystem::directory_iterator(m_files.path())) {
            const std::string file = entry.path().filename().string();
            found[file] = m_files.read(file);
        }
        return found;
    }

    // The next `count` moves or deletions fail with kReason, behind the first `after` ones.
    static void fail(int count, int after = 0) {
        s_failures = count;
        s_passing = after;
    }
    static constexpr std::uint32_t kReason = 5;

    static const std::vector<std::uint32_t>& sleeps() { return s_sleeps; }

    // The moves that were tried, as names without folders.
    static const std::vector<std::pair<std::string, std::string>>& moves() { return s_moves; }

  private:
    static bool failsNow() {
        if (s_passing > 0) {
            --s_passing;
            return false;
        }
        if (s_failures == 0)
            return false;
        --s_failures;
        platform::setLastError(kReason);
        return true;
    }

    static std::string fileOf(const char* path) {
        return std::filesystem::path(path).filename().string();
    }

    static void setTimes() {
        platform::calls.wallClock = [] { return platform::WallTime{s_now, 0}; };
        platform::calls.sleep = [](std::uint32_t milliseconds) {
            s_sleeps.push_back(milliseconds);
        };
        platform::calls.openStorage = [](const char* path, platform::StorageAccess access) {
            const bool isNew = !std::filesystem::exists(path);
            const platform::StorageHandle file = s_real.openStorage(path, access);
            if (isNew && file != platform::kInvalidStorage)
                s_births[path] = s_now;
            return file;
        };
        platform::calls.creationTime = [](const char* path, std::int64_t* seconds, int*) {
            *seconds = s_births.at(path);
            return true;
        };
    }

    static void setMoves() {
        platform::calls.moveFile = [](const char* from, const char* to) {
            s_moves.emplace_back(fileOf(from), fileOf(to));
            if (failsNow() || !s_real.moveFile(from, to))
                return false;
            s_births[to] = s_births[from];
            s_births.erase(from);
            return true;
        };
        platform::calls.removeFile = [](const char* path) {
            if (failsNow() || !s_real.removeFile(path))
                return false;
            s_births.erase(path);
            return true;
        };
    }

    static inline platform::Calls s_real;
    static inline std::int64_t s_now = 0;
    static inline std::map<std::string, std::int64_t> s_births;
    static inline std::vector<std::uint32_t> s_sleeps;
    static inline std::vector<std::pair<std::string, std::string>> s_moves;
    static inline int s_failures = 0, s_passing = 0;

    ScopedCalls m_scope;
    TempFolder m_files;
};

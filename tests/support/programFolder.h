// A folder that the process takes for that of its executable.

#pragma once

#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>

#include <gtest/gtest.h>

#include "support/besideTheProgram.h"
#include "support/scopedCalls.h"

// Empty at first.  It stands in the test program's own folder under the name of the test, since
// logs stay open until the process ends and Windows does not delete open files; what is left of a
// former run goes at the start.  Puts the calls and the current folder back at its end.
class ProgramFolder {
  public:
    ProgramFolder() : m_former(std::filesystem::current_path()) {
        const testing::TestInfo* test = testing::UnitTest::GetInstance()->current_test_info();
        m_path = std::filesystem::path(besideTheProgram("logs")) / test->test_suite_name() /
                 test->name();
        std::filesystem::remove_all(m_path);
        std::filesystem::create_directories(m_path);
        s_program = (m_path / "host.exe").string();
        platform::calls.executablePath = [](char* out, std::size_t size) {
            const std::size_t kept = s_program.size() < size ? s_program.size() : size - 1;
            std::memcpy(out, s_program.data(), kept);
            out[kept] = '\0';
            return kept;
        };
    }
    ~ProgramFolder() {
        std::error_code ignored;
        std::filesystem::current_path(m_former, ignored);
        std::filesystem::remove_all(m_path, ignored);
    }
    ProgramFolder(const ProgramFolder&) = delete;
    ProgramFolder& operator=(const ProgramFolder&) = delete;

    const std::filesystem::path& path() const { return m_path; }

    // Full name of a file, in the system's form.
    std::string name(const std::string& file) const {
        return (m_path / file).make_preferred().string();
    }

    // Writes a file, making its folder, and returns its full name.
    std::string write(const std::string& file, const std::string& bytes) const {
        std::filesystem::create_directories((m_path / file).parent_path());
        std::ofstream(m_path / file, std::ios::binary) << bytes;
        return name(file);
    }

    bool has(const std::string& file) const { return std::filesystem::exists(m_path / file); }

    // Makes a folder inside it the current one.
    std::filesystem::path enter(const std::string& folder) const {
        std::filesystem::create_directories(m_path / folder);
        std::filesystem::current_path(m_path / folder);
        return m_path / folder;
    }

  private:
    static inline std::string s_program;

    std::filesystem::path m_path;
    std::filesystem::path m_former;
    ScopedCalls m_calls;
};

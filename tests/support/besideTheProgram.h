// Files in the folder of the program that runs, where relative configured names point.

#pragma once

#include <filesystem>
#include <fstream>
#include <string>

#include "dw_util/pathRule.h"
#include "platform/process.h"

// The full path that a bare name stands for.
inline std::string besideTheProgram(const std::string& name) {
    PathBuffer program = {};
    platform::calls.executablePath(program, sizeof program);
    const std::string path = program;
    return path.substr(0, path.rfind(platform::pathForm.separator) + 1) + name;
}

// A file there, gone at the end of its scope.
class BesideTheProgram {
  public:
    BesideTheProgram(const std::string& name, const std::string& bytes)
        : m_path(besideTheProgram(name)) {
        std::ofstream(m_path, std::ios::binary) << bytes;
    }
    ~BesideTheProgram() {
        std::error_code ignored;
        std::filesystem::remove(m_path, ignored);
    }
    BesideTheProgram(const BesideTheProgram&) = delete;
    BesideTheProgram& operator=(const BesideTheProgram&) = delete;

  private:
    std::string m_path;
};

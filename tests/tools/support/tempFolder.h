// A folder for the files of one test, removed with everything in it at the end.

#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace toolTest {

class TempFolder {
  public:
    TempFolder();
    ~TempFolder();
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;

    const std::filesystem::path& path() const { return m_path; }
    std::string name() const { return m_path.string(); }

    // Path of a file in the folder, with the system's separator.
    std::string file(std::string_view name) const { return (m_path / name).string(); }

  private:
    std::filesystem::path m_path;
};

// All bytes of a file; a failed expectation and an empty text if it cannot be read.
std::string readFile(const std::filesystem::path& path);

} // namespace toolTest

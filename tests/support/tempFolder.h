// A folder for one test, gone at its end.

#pragma once

#include <atomic>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>

class TempFolder {
  public:
    TempFolder() {
        static std::atomic<int> count{0};
        std::random_device random;
        m_path = std::filesystem::temp_directory_path() /
                 ("vdr" + std::to_string(random()) + "_" + std::to_string(count++));
        std::filesystem::create_directories(m_path);
    }
    ~TempFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;

    const std::filesystem::path& path() const { return m_path; }

    // Full name of a file in the folder.
    std::string name(const std::string& file) const { return (m_path / file).string(); }

    // Writes a file and returns its full name.
    std::string write(const std::string& file, const std::string& bytes) const {
        std::ofstream out(m_path / file, std::ios::binary | std::ios::trunc);
        out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
        return name(file);
    }

    std::string read(const std::string& file) const {
        std::ifstream in(m_path / file, std::ios::binary);
        return {std::istreambuf_iterator<char>(in), {}};
    }

  private:
    std::filesystem::path m_path;
};

// Names are drawn until one is free, so that tests may run side by side.

#include "support/tempFolder.h"

#include <gtest/gtest.h>

#include <fstream>
#include <random>
#include <sstream>

namespace toolTest {

namespace fs = std::filesystem;

TempFolder::TempFolder() {
    std::random_device random;
    do {
        m_path = fs::temp_directory_path() / ("vdtools-" + std::to_string(random()));
        m_path.make_preferred();
    } while (!fs::create_directory(m_path));
}

TempFolder::~TempFolder() {
    std::error_code ignored;
    fs::remove_all(m_path, ignored);
}

std::string readFile(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream bytes;
    bytes << file.rdbuf();
    EXPECT_TRUE(file.good()) << path;
    return bytes.str();
}

} // namespace toolTest

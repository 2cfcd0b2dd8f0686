// What a host sees of the dumps.

#include <filesystem>
#include <fstream>

#include <gtest/gtest.h>

#include "support/tempFolder.h"
#include "vdreader/vdreader.h"

namespace {

class Dumps : public testing::Test {
  protected:
    Dumps() : m_former(std::filesystem::current_path()) {
        std::filesystem::current_path(m_folder.path());
    }
    ~Dumps() { std::filesystem::current_path(m_former); }

    static std::size_t written(const char* start) {
        std::size_t found = 0;
        if (std::filesystem::exists("Dumps"))
            for (const auto& entry : std::filesystem::recursive_directory_iterator("Dumps"))
                if (entry.is_regular_file() &&
                    entry.path().filename().string().rfind(start, 0) == 0 &&
                    entry.file_size() > 1000)
                    ++found;
        return found;
    }

    TempFolder m_folder;

  private:
    std::filesystem::path m_former;
};

} // namespace

TEST_F(Dumps, AreOffUnlessTurnedOn) {
    EXPECT_FALSE(IsAutoDumpCreationEnabled());
    EnableAutoDumpCreation(true);
    EXPECT_TRUE(IsAutoDumpCreationEnabled());
    SetDisableDumpsOnProcessStop();
    EXPECT_FALSE(IsAutoDumpCreationEnabled());
}

TEST_F(Dumps, IniFileOfTheWorkingFolderTurnsThemOn) {
    m_folder.write("sarn.ini", "[dumps]\nauto=1\n");
    EXPECT_TRUE(IsAutoDumpCreationEnabled());
}

TEST_F(Dumps, RequestWritesAFile) {
    EnableAutoDumpCreation(false);
    CreateProcessDump(0, false, true);
    EXPECT_FALSE(std::filesystem::exists("Dumps"));
    CreateProcessDump(0, false, false);
    EXPECT_EQ(written("mini"), 1u);
    EXPECT_FALSE(IsFullDumpLimitExceeded());
}

TEST_F(Dumps, FilterWithoutAnExceptionReports) {
    EXPECT_EQ(ExcFilterI(nullptr), 1);
    EXPECT_EQ(written("mini"), 0u);
    shutdown_logs();
}

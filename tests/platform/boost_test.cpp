// Boost.Filesystem as it is built for this target: folders are made, found and removed through it.
#include <gtest/gtest.h>

#include <boost/filesystem.hpp>
#include <boost/filesystem/fstream.hpp>
#include <boost/version.hpp>

namespace {

namespace fs = boost::filesystem;

class BoostFilesystem : public testing::Test {
  protected:
    void TearDown() override {
        boost::system::error_code ignored;
        fs::remove_all(root, ignored);
    }

    const fs::path root = fs::temp_directory_path() / fs::unique_path("vdreader-%%%%-%%%%-%%%%");
};

TEST_F(BoostFilesystem, IsTheVersionThatTheHeadersName) {
    EXPECT_EQ(108100, BOOST_VERSION);
}

TEST_F(BoostFilesystem, StatusOfAnAbsentPathIsNotFound) {
    boost::system::error_code error;
    EXPECT_EQ(fs::file_not_found, fs::status(root, error).type());
}

TEST_F(BoostFilesystem, CreateDirectoriesMakesTheWholePathOnce) {
    const fs::path leaf = root / "one" / "two" / "three";
    EXPECT_TRUE(fs::create_directories(leaf));
    EXPECT_EQ(fs::directory_file, fs::status(leaf).type());
    EXPECT_EQ(fs::directory_file, fs::status(leaf.parent_path()).type());
    EXPECT_FALSE(fs::create_directories(leaf));
}

TEST_F(BoostFilesystem, CreateDirectoriesBelowAFileRaisesSystemError) {
    ASSERT_TRUE(fs::create_directories(root));
    fs::ofstream(root / "file") << "x";
    EXPECT_EQ(fs::regular_file, fs::status(root / "file").type());
    EXPECT_THROW(fs::create_directories(root / "file" / "below"), boost::system::system_error);
}

} // namespace

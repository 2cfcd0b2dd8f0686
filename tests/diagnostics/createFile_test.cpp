// Making of files and of their folders.

#include "diagnostics/createFile.h"

#include <gtest/gtest.h>
#include <boost/filesystem.hpp>

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "diagnostics/errorTexts.h"
#include "libn/WinFile.h"
#include "platform/error.h"
#include "platform/process.h"
#include "support/raised.h"
#include "support/scopedCalls.h"
#include "support/tempFolder.h"
#include "vdreader/logfiles.h"

namespace {

using Texts = std::vector<std::string>;
using boost::filesystem::filesystem_error;

// A temporary folder that is the process's current one.
class CurrentFolder : public TempFolder {
  public:
    CurrentFolder() : m_former(std::filesystem::current_path()) {
        std::filesystem::create_directory(path() / "in");
        std::filesystem::current_path(path() / "in");
    }
    ~CurrentFolder() { std::filesystem::current_path(m_former); }

    // Files and folders in it and below.
    Texts found() const {
        Texts names;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(path() / "in"))
            names.push_back(entry.path().lexically_relative(path() / "in").generic_string());
        return names;
    }

  private:
    std::filesystem::path m_former;
};

std::string systemForm(std::string name) {
    for (char& c : name)
        if (c == '/')
            c = platform::pathForm.separator;
    return name;
}

// What create_tree raises and what it tells the error log.
struct Failure {
    std::string raised;
    Texts errors;
};
Failure failureOf(const char* path) {
    const CapturedLog log;
    const auto failure = raised<filesystem_error>([&] { create_tree(path); });
    return {failure ? failure->what() : "(nothing)", errorTexts(log)};
}

void expectReported(const Failure& failure, const std::string& path) {
    EXPECT_NE(failure.raised, "(nothing)") << path;
    EXPECT_EQ(failure.errors, Texts{"create_tree(" + path + ") failed. " + failure.raised});
}

// A file that tells with what it was opened.
class ToldFile : public libn::WinFile {
  public:
    bool openAlways(const char* name, std::int32_t accessHint) override {
        opened = name;
        hint = accessHint;
        return WinFile::openAlways(name, accessHint);
    }
    std::string opened;
    std::int32_t hint = -1;
};

} // namespace

// ---- folders ----

TEST(CreateTree, NameWithoutAFolderIsReportedAndRaised) {
    const CurrentFolder folder;
    for (const char* path : {"x.log", ""})
        expectReported(failureOf(path), path);
    EXPECT_EQ(folder.found(), Texts{});
}

TEST(CreateTree, NullIsReportedAsNullAndRaised) {
    expectReported(failureOf(nullptr), "null");
}

TEST(CreateTree, EveryFolderOfThePathIsMade) {
    const CurrentFolder folder;
    create_tree(folder.name(systemForm("in/a/b/c/x.log")).c_str());
    EXPECT_EQ(folder.found(), (Texts{"a", "a/b", "a/b/c"}));
    create_tree(folder.name(systemForm("in/a/b/c/x.log")).c_str()); // all there
    create_tree(systemForm("a/d/x.log").c_str()); // relative to the current folder
    EXPECT_TRUE(std::filesystem::is_directory("a/d"));
}

TEST(CreateTree, BackslashSeparatesOnEverySystem) {
    const CurrentFolder folder;
    create_tree("a\\b\\x.log");
    EXPECT_EQ(folder.found(), (Texts{"a", "a/b"}));
}

TEST(CreateTree, PathThatEndsInASeparatorIsAFolder) {
    const CurrentFolder folder;
    create_tree(systemForm("a/b/").c_str());
    EXPECT_EQ(folder.found(), (Texts{"a", "a/b"}));
}

TEST(CreateTree, CurrentFolderAndThoseAboveItAreTakenToExist) {
    const CurrentFolder folder;
    const CapturedLog log;
    for (const char* path :
         {".\\x.log", "..\\x.log", "./x.log", "../x.log", "..\\..\\x.log", "none\\..\\x.log",
          "none/../x.log", "none\\.\\x.log", "none/./x.log", "n:..\\x.log", "n:../x.log"})
        create_tree(path);
    EXPECT_EQ(folder.found(), Texts{});
    EXPECT_EQ(log.size(), 0u);
}

TEST(CreateTree, DotsInsideThePathDoNotEndIt) {
    const CurrentFolder folder;
    create_tree(systemForm("./a/x.log").c_str());
    create_tree(systemForm("../in/b/x.log").c_str());
    create_tree(systemForm("..c/x.log").c_str());
    create_tree(systemForm(".d/x.log").c_str());
    EXPECT_EQ(folder.found().size(), 4u);
}

TEST(CreateTree, FolderThatIsAFileIsReportedAndRaised) {
    const TempFolder folder;
    folder.write("a", "text");
    const std::string path = folder.name(systemForm("a/b/x%s%n.log"));
    expectReported(failureOf(path.c_str()), path);
    EXPECT_EQ(folder.read("a"), "text");
    const std::string inside = folder.name(systemForm("a/x.log"));
    expectReported(failureOf(inside.c_str()), inside);
}

// ---- files ----

TEST(CreateFile, NullIsReported) {
    const CapturedLog log;
    libn::WinFile file;
    EXPECT_FALSE(create_file(file, nullptr, true));
    EXPECT_FALSE(file.isOpen());
    EXPECT_EQ(errorTexts(log), Texts{"create_file failed. Invalid param: file_path is null."});
}

TEST(CreateFile, FoldersAndFileAreMadeForReadingAndWriting) {
    const TempFolder folder;
    const CapturedLog log;
    const std::string path = folder.name(systemForm("a/b/x.log"));
    ToldFile file;
    EXPECT_TRUE(create_file(file, path.c_str(), false));
    EXPECT_EQ(file.opened, path);
    EXPECT_EQ(file.hint, 0);
    EXPECT_TRUE(file.write("text", 4));
    EXPECT_TRUE(file.seek(0, libn::IFile::kFromBegin, nullptr));
    char text[4];
    EXPECT_TRUE(file.read(text, 4, nullptr));
    EXPECT_EQ(std::string(text, 4), "text");
    EXPECT_EQ(log.size(), 0u);
}

TEST(CreateFile, FileThatIsThereKeepsWhatItHoldsAndOthersMayUseIt) {
    const TempFolder folder;
    const std::string path = folder.write("x.log", "old");
    libn::WinFile file;
    libn::WinFile other;
    EXPECT_TRUE(create_file(file, path.c_str(), false));
    EXPECT_TRUE(create_file(other, path.c_str(), false));
    EXPECT_TRUE(file.append(" new", 4));
    EXPECT_TRUE(other.append(" other", 6));
    EXPECT_EQ(folder.read("x.log"), "old new other");
}

TEST(CreateFile, TouchMakesThePresentSecondItsTime) {
    const TempFolder folder;
    const ScopedCalls scope;
    platform::calls.wallClock = [] { return platform::WallTime{1'600'000'000, 999}; };
    const std::string path = folder.write("x.log", "old");
    boost::filesystem::last_write_time(path, 1'500'000'000);
    libn::WinFile file;
    EXPECT_TRUE(create_file(file, path.c_str(), false));
    EXPECT_EQ(boost::filesystem::last_write_time(path), 1'500'000'000);
    EXPECT_TRUE(create_file(file, path.c_str(), true));
    EXPECT_EQ(boost::filesystem::last_write_time(path), 1'600'000'000);
    EXPECT_EQ(folder.read("x.log"), "old");
}

TEST(CreateFile, TouchThatFailsIsRaised) {
    const TempFolder folder;
    static std::string other;
    other = folder.write("other", "");
    const ScopedCalls scope;
    static platform::Calls real;
    real = scope.saved();
    platform::calls.openStorage = [](const char*, platform::StorageAccess access) {
        return real.openStorage(other.c_str(), access);
    };
    libn::WinFile file;
    EXPECT_TRUE(create_file(file, folder.name("x.log").c_str(), false));
    EXPECT_THROW(create_file(file, folder.name("x.log").c_str(), true), filesystem_error);
}

TEST(CreateFile, FileThatDoesNotOpenIsReportedAndNotTouched) {
    const TempFolder folder;
    const CapturedLog log;
    const std::string path = folder.name("a");
    std::filesystem::create_directory(path);
    libn::WinFile file;
    EXPECT_FALSE(create_file(file, path.c_str(), true));
    EXPECT_FALSE(file.isOpen());
    EXPECT_EQ(errorTexts(log), Texts{"Failed to create file '" + path + "'."});
}

TEST(CreateFile, FileThatMayNotBeWrittenIsReported) {
    const TempFolder folder;
    const CapturedLog log;
    const ScopedCalls scope;
    const std::string path = folder.write("x.log", "old");
    static bool asked;
    asked = false;
    platform::calls.openStorage = [](const char*, platform::StorageAccess access) {
        asked = access.writes && access.sharesWrite &&
                access.disposition == platform::Disposition::openAlways;
        platform::setLastError(5);
        return platform::kInvalidStorage;
    };
    libn::WinFile file;
    EXPECT_FALSE(create_file(file, path.c_str(), true));
    EXPECT_TRUE(asked);
    EXPECT_EQ(errorTexts(log), Texts{"Failed to create file '" + path + "'."});
    EXPECT_EQ(folder.read("x.log"), "old");
}

TEST(CreateFile, FolderThatCannotBeMadeIsRaised) {
    const TempFolder folder;
    const CapturedLog log;
    folder.write("a", "text");
    const std::string path = folder.name(systemForm("a/x.log"));
    libn::WinFile file;
    const auto failure = raised<filesystem_error>([&] { create_file(file, path.c_str(), false); });
    ASSERT_TRUE(failure.has_value());
    EXPECT_EQ(errorTexts(log), Texts{"create_tree(" + path + ") failed. " + failure->what()});
    EXPECT_FALSE(file.isOpen());
}

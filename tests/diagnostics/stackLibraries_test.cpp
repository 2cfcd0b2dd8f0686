// Where the three libraries are looked for, and what they must have.

#include "diagnostics/stackLibraries.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "support/scopedCalls.h"
#include "support/scopedLibraryCalls.h"

namespace {

// The system as the loaders see it.
struct FakeSystem {
    std::string executable = "C:\\family\\host.exe";
    std::string programs = "C:\\Programs";
    bool hasPrograms = true;
    std::set<std::string> libraries; // that load
    std::set<std::string> missing;   // functions that no library has
    std::vector<std::string> tried;
    std::vector<std::string> asked; // functions
    std::vector<std::string> freed;
    std::size_t programsSize = 0;
    std::size_t executableSize = 0;
    int variablesRead = 0;
};

FakeSystem* fake = nullptr;

platform::LibraryHandle load(const char* name) {
    fake->tried.emplace_back(name);
    const auto found = fake->libraries.find(name);
    return found != fake->libraries.end() ? const_cast<std::string*>(&*found) : nullptr;
}
void* symbol(platform::LibraryHandle, const char* name) {
    fake->asked.emplace_back(name);
    return fake->missing.count(name) == 0 ? fake : nullptr;
}
void release(platform::LibraryHandle library) {
    fake->freed.push_back(*static_cast<std::string*>(library));
}
std::size_t environment(const char* name, char* out, std::size_t size) {
    ++fake->variablesRead;
    fake->programsSize = size;
    if (!fake->hasPrograms || std::strcmp(name, "ProgramFiles") != 0)
        return 0;
    std::memcpy(out, fake->programs.c_str(), fake->programs.size() + 1);
    return fake->programs.size();
}
std::size_t executablePath(char* out, std::size_t size) {
    fake->executableSize = size;
    std::memcpy(out, fake->executable.c_str(), fake->executable.size() + 1);
    return fake->executable.size();
}

class StackLibrariesTest : public testing::Test {
  protected:
    StackLibrariesTest() {
        fake = &system;
        platform::libraryCalls = {load, load, symbol, release, environment};
        platform::calls.executablePath = executablePath;
    }
    ~StackLibrariesTest() override { fake = nullptr; }

    FakeSystem system;
    DbgHelpLibrary library;
    ToolHelpLibrary tools;
    PsapiLibrary status;

  private:
    ScopedLibraryCalls m_libraryCalls;
    ScopedCalls m_calls;
};

const std::vector<std::string> kCandidates = {
    "C:\\family\\dbghelp.dll", "C:\\Programs\\Debugging Tools for Windows (x64)\\dbghelp.dll",
    "C:\\Programs\\Debugging Tools for Windows\\dbghelp.dll",
    "C:\\Programs\\Debugging Tools for Windows 64-Bit\\dbghelp.dll", "dbghelp.dll"};

const std::vector<std::string> kFunctions = {
    "SymInitialize",        "SymCleanup",           "StackWalk64",
    "SymGetOptions",        "SymSetOptions",        "SymFunctionTableAccess64",
    "SymGetLineFromAddr64", "SymGetModuleBase64",   "SymGetModuleInfo64",
    "SymGetSymFromAddr64",  "UnDecorateSymbolName", "SymLoadModule64",
    "SymGetSearchPath"};

} // namespace

TEST_F(StackLibrariesTest, NoCandidateLoads) {
    EXPECT_FALSE(library.load());
    EXPECT_EQ(system.tried, kCandidates);
    EXPECT_EQ(library.handle, nullptr);
    EXPECT_EQ(library.path, "dbghelp.dll");
    EXPECT_EQ(library.symInitialize, nullptr);
    EXPECT_TRUE(system.asked.empty());
    EXPECT_EQ(system.programsSize, 4096u);
    EXPECT_EQ(system.executableSize, 512u);
}

TEST_F(StackLibrariesTest, FirstCandidateThatLoadsEndsTheSearch) {
    for (std::size_t first = 0; first < kCandidates.size(); ++first) {
        DbgHelpLibrary found;
        system.tried.clear();
        system.asked.clear();
        system.libraries = {kCandidates[first], kCandidates.back()};
        EXPECT_TRUE(found.load());
        EXPECT_EQ(system.tried,
                  std::vector<std::string>(kCandidates.begin(), kCandidates.begin() + first + 1));
        EXPECT_EQ(found.path, kCandidates[first]);
        EXPECT_EQ(system.asked, kFunctions);
        EXPECT_EQ(reinterpret_cast<void*>(found.symLoadModule64), fake);
    }
    EXPECT_TRUE(system.freed.empty());
}

TEST_F(StackLibrariesTest, WithoutTheVariableThreeStepsAreLeftOut) {
    system.hasPrograms = false;
    EXPECT_FALSE(library.load());
    EXPECT_EQ(system.tried, (std::vector<std::string>{kCandidates.front(), kCandidates.back()}));
}

TEST_F(StackLibrariesTest, ProgramWithoutABackslashIsItsOwnFolder) {
    system.hasPrograms = false;
    system.executable = "/opt/family/host";
    library.load();
    EXPECT_EQ(system.tried.front(), "/opt/family/host\\dbghelp.dll");
}

TEST_F(StackLibrariesTest, ProgramWithoutAPathHasAnEmptyFolder) {
    system.executable = "";
    library.load();
    EXPECT_EQ(system.tried.front(), "\\dbghelp.dll");
}

TEST_F(StackLibrariesTest, EachRequiredFunctionThatIsMissingFreesTheModule) {
    system.libraries = {kCandidates[1], kCandidates.back()};
    for (const std::string& function : kFunctions) {
        const bool optional = function == "SymGetLineFromAddr64" || function == "SymGetSearchPath";
        DbgHelpLibrary found;
        system.missing = {function};
        system.tried.clear();
        system.freed.clear();
        EXPECT_EQ(found.load(), optional) << function;
        EXPECT_EQ(found.handle != nullptr, optional) << function;
        EXPECT_EQ(system.freed.empty(), optional) << function;
        EXPECT_EQ(system.tried.size(), 2u) << function;
    }
}

TEST_F(StackLibrariesTest, LibraryWithoutAFunctionEndsTheSearch) {
    system.libraries = {kCandidates[0], kCandidates.back()};
    system.missing = {"StackWalk64"};
    EXPECT_FALSE(library.load());
    EXPECT_EQ(system.tried, std::vector<std::string>{kCandidates[0]});
    EXPECT_EQ(system.freed, std::vector<std::string>{kCandidates[0]});
}

TEST_F(StackLibrariesTest, OptionalFunctionsMayBeNull) {
    system.libraries = {"dbghelp.dll"};
    system.missing = {"SymGetLineFromAddr64", "SymGetSearchPath"};
    EXPECT_TRUE(library.load());
    EXPECT_EQ(library.symGetLineFromAddr64, nullptr);
    EXPECT_EQ(library.symGetSearchPath, nullptr);
    EXPECT_NE(library.symGetSymFromAddr64, nullptr);
}

TEST_F(StackLibrariesTest, LoadedRecordsAreNotLoadedAgain) {
    system.libraries = {"dbghelp.dll", "kernel32.dll", "psapi.dll"};
    EXPECT_TRUE(library.load() && tools.load() && status.load());
    system.tried.clear();
    EXPECT_TRUE(library.load() && tools.load() && status.load());
    EXPECT_TRUE(system.tried.empty());
}

TEST_F(StackLibrariesTest, ToolHelpIsTheFirstOfTwoThatHasAllFunctions) {
    system.libraries = {"kernel32.dll", "tlhelp32.dll"};
    EXPECT_TRUE(tools.load());
    EXPECT_EQ(tools.path, "kernel32.dll");
    EXPECT_EQ(system.asked, (std::vector<std::string>{"CreateToolhelp32Snapshot", "Module32First",
                                                      "Module32Next"}));
}

TEST_F(StackLibrariesTest, ToolHelpComesFromTheSecondWhereTheFirstIsAbsent) {
    system.libraries = {"tlhelp32.dll"};
    EXPECT_TRUE(tools.load());
    EXPECT_EQ(tools.path, "tlhelp32.dll");
    EXPECT_EQ(system.tried, (std::vector<std::string>{"kernel32.dll", "tlhelp32.dll"}));
}

TEST_F(StackLibrariesTest, ToolHelpWithoutAFunctionIsFreedAndTheNextTried) {
    for (const char* const function :
         {"CreateToolhelp32Snapshot", "Module32First", "Module32Next"}) {
        ToolHelpLibrary found;
        system.libraries = {"kernel32.dll", "tlhelp32.dll"};
        system.missing = {function};
        system.freed.clear();
        EXPECT_FALSE(found.load());
        EXPECT_EQ(found.handle, nullptr);
        EXPECT_EQ(system.freed, (std::vector<std::string>{"kernel32.dll", "tlhelp32.dll"}));
    }
}

TEST_F(StackLibrariesTest, ProcessStatusHasOneCandidateAndFourFunctions) {
    EXPECT_FALSE(status.load());
    EXPECT_EQ(system.tried, std::vector<std::string>{"psapi.dll"});
    system.libraries = {"psapi.dll"};
    EXPECT_TRUE(status.load());
    EXPECT_EQ(system.asked,
              (std::vector<std::string>{"EnumProcessModules", "GetModuleFileNameExA",
                                        "GetModuleBaseNameA", "GetModuleInformation"}));
    for (const char* const function : {"EnumProcessModules", "GetModuleFileNameExA",
                                       "GetModuleBaseNameA", "GetModuleInformation"}) {
        PsapiLibrary found;
        system.missing = {function};
        system.freed.clear();
        EXPECT_FALSE(found.load()) << function;
        EXPECT_EQ(system.freed, std::vector<std::string>{"psapi.dll"}) << function;
    }
}

TEST_F(StackLibrariesTest, ReleaseFreesTheModuleOnceAndForgetsThePath) {
    system.libraries = {"dbghelp.dll", "kernel32.dll", "psapi.dll"};
    ASSERT_TRUE(library.load() && tools.load() && status.load());
    for (int time = 0; time < 2; ++time) {
        library.release();
        tools.release();
        status.release();
    }
    EXPECT_EQ(system.freed, (std::vector<std::string>{"dbghelp.dll", "kernel32.dll", "psapi.dll"}));
    EXPECT_EQ(library.handle, nullptr);
    EXPECT_TRUE(library.path.empty() && tools.path.empty() && status.path.empty());
}

TEST(StackLibraries, AreThereFromTheLoadOn) {
    EXPECT_NE(stackLibraries().debugHelp.handle, nullptr);
    EXPECT_EQ(stackLibraries().debugHelp.path, "dbghelp.dll");
    EXPECT_NE(stackLibraries().debugHelp.symGetLineFromAddr64, nullptr);
    EXPECT_EQ(stackLibraries().toolHelp.path, "kernel32.dll");
    EXPECT_NE(stackLibraries().toolHelp.handle, nullptr);
    EXPECT_NE(stackLibraries().processStatus.handle, nullptr);
}

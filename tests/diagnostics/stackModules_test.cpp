// The list of modules and what is known of one.

#include <gtest/gtest.h>

#ifdef _WIN32
#  include <windows.h>
#endif

#include <cstdint>
#include <vector>

#include "diagnostics/stackFixture.h"
#include "support/failingMalloc.h"

using velt::callstack::moduleInfoV3Usable;

namespace {

class StackModulesTest : public testing::Test {
  protected:
    StackModulesTest() : help(fixture.help()) {
        help.modules = {{"path1", "one", 0x1000, 0x100, 7, "one.pdb", "one.img"},
                        {"path2", "two", 0x2000, 0x200, 4, "", "two.img"}};
    }

    // The lines of the list that a walk without frames writes.
    std::vector<std::string> list(std::uint32_t options = 7) {
        velt::callstack::WalkerState state = {
            .owner = &walker, .options = options, .process = nullptr, .processId = 1};
        walker.setOutput(output);
        found = state.enumerateModules();
        return output->lines;
    }

    StackFixture fixture;
    FakeDebugHelp& help;
    velt::callstack::StackWalker walker{1, nullptr};
    std::shared_ptr<RecordingOutput> output = std::make_shared<RecordingOutput>();
    bool found = false;
};

const std::vector<std::string> kBoth = {
    "[ModuleList] path1:one (0x0000000000001000), size: 256, SymType: 'DIA', PDB: 'one.pdb'",
    "[ModuleList] path2:two (0x0000000000002000), size: 512, SymType: '-exported-', PDB: "
    "'two.img'"};

} // namespace

TEST_F(StackModulesTest, ToolHelpListsInItsOrder) {
    EXPECT_EQ(list(), kBoth);
    EXPECT_TRUE(found);
    EXPECT_EQ(help.count("EnumProcessModules"), 0);
    EXPECT_EQ(help.count("CloseHandle"), 1);
}

TEST_F(StackModulesTest, FailedLoadIsNotToldByToolHelp) {
    help.failing = {"SymLoadModule64"};
    EXPECT_EQ(list(), kBoth);
    EXPECT_TRUE(found);
}

TEST_F(StackModulesTest, FailedLoadIsToldByProcessStatus) {
    stackLibraries().toolHelp.handle = nullptr;
    help.failing = {"SymLoadModule64"};
    help.failure = 87;
    const std::string told = "ERROR: LoadModule, GetLastError: 87 (Address: 0000000000000000)";
    EXPECT_EQ(list(), (std::vector<std::string>{told, kBoth[0], told, kBoth[1]}));
    EXPECT_TRUE(found);
}

TEST_F(StackModulesTest, ProcessStatusComesWhereToolHelpFails) {
    for (const char* const function : {"CreateToolhelp32Snapshot", "Module32First"}) {
        help.failing = {function};
        help.calls.clear();
        output->lines.clear();
        EXPECT_EQ(list(), kBoth) << function;
        EXPECT_TRUE(found);
        EXPECT_EQ(help.count("CloseHandle"), function[0] == 'M' ? 1 : 0);
        EXPECT_EQ(help.count("EnumProcessModules 8096"), 1);
        EXPECT_EQ(help.count("GetModuleInformation 24"), 2);
        EXPECT_EQ(help.count("GetModuleFileNameExA 8096"), 2);
        EXPECT_EQ(help.count("GetModuleBaseNameA 8096"), 2);
    }
}

TEST_F(StackModulesTest, WithoutBothThereIsNoList) {
    stackLibraries().toolHelp.handle = nullptr;
    stackLibraries().processStatus.handle = nullptr;
    EXPECT_TRUE(list().empty());
    EXPECT_FALSE(found);
}

TEST_F(StackModulesTest, FailedEnumerationIsNoList) {
    stackLibraries().toolHelp.handle = nullptr;
    help.failing = {"EnumProcessModules"};
    EXPECT_TRUE(list().empty());
    EXPECT_FALSE(found);
}

TEST_F(StackModulesTest, ProcessWithoutModulesHasNone) {
    help.modules.clear();
    EXPECT_TRUE(list().empty());
    EXPECT_FALSE(found);
}

TEST_F(StackModulesTest, BuffersThatCannotBeHadAreNoList) {
    stackLibraries().toolHelp.handle = nullptr;
    const FailingMalloc failing(8096);
    EXPECT_TRUE(list().empty());
    EXPECT_FALSE(found);
    EXPECT_EQ(help.count("EnumProcessModules"), 0);
}

TEST_F(StackModulesTest, BufferFillsWith1012Modules) {
    stackLibraries().toolHelp.handle = nullptr;
    help.modules.assign(1012, {"p", "n", 0x1000, 0x100, 7, "", ""});
    EXPECT_EQ(list().size(), 1012u);
    EXPECT_TRUE(found);
}

TEST_F(StackModulesTest, MoreThan1012ModulesAreNoList) {
    stackLibraries().toolHelp.handle = nullptr;
    help.modules.assign(1013, {"p", "n", 0x1000, 0x1000, 7, "", ""});
    help.frames = {{0x1010, 0}, {0x1010, 0}};
    const auto context = StackFixture::contextOf(1, 2);
    walker.setOutput(output);
    EXPECT_TRUE(walker.walk(&context, nullptr));
    ASSERT_EQ(output->lines.size(), 5u);
    EXPECT_EQ(output->lines[0], ">>=========== Module List ============");
    EXPECT_EQ(output->lines[1], "<<=========== Module List ============");
    EXPECT_EQ(output->lines[4], "<<============ Call Stack ============");
    walker.walk(&context, nullptr);
    EXPECT_EQ(help.count("EnumProcessModules"), 2);
}

TEST_F(StackModulesTest, WithoutAnOwnerModulesAreCountedAlone) {
    for (const bool toolHelp : {true, false}) {
        if (!toolHelp)
            stackLibraries().toolHelp.handle = nullptr;
        velt::callstack::WalkerState state = {.owner = nullptr, .process = nullptr, .processId = 1};
        EXPECT_TRUE(state.enumerateModules());
    }
    EXPECT_EQ(help.count("SymLoadModule64"), 4);
    EXPECT_EQ(help.count("SymGetModuleInfo64"), 0);
}

TEST_F(StackModulesTest, UnknownModuleIsListed) {
    help.failing = {"SymGetModuleInfo64"};
    const auto lines = list();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0],
              "[ModuleList] path1:one (0x0000000000001000), size: 256, SymType: "
              "'-unknown-', PDB: ''");
}

// ---- versions

TEST_F(StackModulesTest, VersionIsNotReadWithTheStandardOptions) {
    help.version = std::string(16, '\1');
    list();
    EXPECT_EQ(help.count("GetFileVersionInfoSizeA"), 0);
}

TEST_F(StackModulesTest, VersionStandsBehindTheLineWhereItIsAskedFor) {
    const std::uint32_t words[13] = {0xFEEF04BD, 0x10000, 0x00010002, 0x00030004};
    help.version.assign(reinterpret_cast<const char*>(words), sizeof words);
    const auto lines = list(15);
    EXPECT_EQ(lines[0], kBoth[0] + ", fileVersion: 1.2.3.4");
    EXPECT_EQ(help.count("VerQueryValueA \\"), 2);
}

TEST_F(StackModulesTest, EachFailureOfTheVersionGivesNone) {
    const std::uint32_t words[13] = {0xFEEF04BD, 0x10000, 0x00010002, 0x00030004};
    for (const char* const function :
         {"GetFileVersionInfoSizeA", "GetFileVersionInfoA", "VerQueryValueA"}) {
        help.version.assign(reinterpret_cast<const char*>(words), sizeof words);
        help.failing = {function};
        EXPECT_EQ(velt::callstack::fileVersion("path"), 0u) << function;
    }
    help.failing.clear();
    EXPECT_EQ(velt::callstack::fileVersion("path"), 0x0001000200030004u);
    {
        const FailingMalloc failing(sizeof words);
        EXPECT_EQ(velt::callstack::fileVersion("path"), 0u);
    }
    help.version.resize(8);
    EXPECT_EQ(velt::callstack::fileVersion("path"), 0u);
}

#ifdef _WIN32
// By the system's own routines, past the table of calls.
TEST(StackVersions, VersionOfAFileIsThatOfItsResources) {
    using Size = DWORD(WINAPI*)(const char* path, DWORD* handle);
    using Block = BOOL(WINAPI*)(const char* path, DWORD handle, DWORD size, void* block);
    using Value = BOOL(WINAPI*)(const void* block, const char* name, void** value, UINT* size);
    const HMODULE library = ::LoadLibraryA("version.dll");
    ASSERT_NE(library, nullptr);
    const auto function = [library](const char* name) {
        return reinterpret_cast<void*>(::GetProcAddress(library, name));
    };
    char path[MAX_PATH] = {};
    ::GetModuleFileNameA(::GetModuleHandleA("kernel32.dll"), path, sizeof path);
    std::vector<char> block(
        reinterpret_cast<Size>(function("GetFileVersionInfoSizeA"))(path, nullptr));
    ASSERT_FALSE(block.empty());
    ASSERT_TRUE(reinterpret_cast<Block>(function("GetFileVersionInfoA"))(
        path, 0, static_cast<DWORD>(block.size()), block.data()));
    void* value = nullptr;
    UINT size = 0;
    ASSERT_TRUE(
        reinterpret_cast<Value>(function("VerQueryValueA"))(block.data(), "\\", &value, &size));
    const auto* fixed = static_cast<const VS_FIXEDFILEINFO*>(value);
    const std::uint64_t expected =
        std::uint64_t{fixed->dwFileVersionMS} << 32 | fixed->dwFileVersionLS;
    EXPECT_NE(expected, 0U);
    EXPECT_EQ(velt::callstack::fileVersion(path), expected);
    EXPECT_EQ(velt::callstack::fileVersion("no such file"), 0U);
    ::FreeLibrary(library);
}
#endif

// ---- findModuleInfo

TEST_F(StackModulesTest, LongRecordIsTakenWhereItWorks) {
    platform::ModuleInfo64 record;
    EXPECT_TRUE(walker.findModuleInfo(nullptr, 0x1010, record));
    EXPECT_EQ(record.size, 1672u);
    EXPECT_STREQ(record.moduleName, "one");
    EXPECT_STREQ(record.loadedPdbName, "one.pdb");
    EXPECT_EQ(help.recordSizes, std::vector<std::uint32_t>{1672});
    EXPECT_TRUE(moduleInfoV3Usable);
}

TEST_F(StackModulesTest, RefusedLongRecordIsNotTriedAgain) {
    help.longestRecord = 584;
    platform::ModuleInfo64 record;
    for (int time = 0; time < 3; ++time) {
        std::memset(&record, 0xCC, sizeof record);
        EXPECT_TRUE(walker.findModuleInfo(nullptr, 0x1010, record));
        EXPECT_EQ(record.size, 584u);
        EXPECT_STREQ(record.moduleName, "one");
        EXPECT_STREQ(record.loadedImageName, "one.img");
        EXPECT_STREQ(record.loadedPdbName, "");
    }
    EXPECT_EQ(help.recordSizes, (std::vector<std::uint32_t>{1672, 584, 584, 584}));
    EXPECT_FALSE(moduleInfoV3Usable);
}

TEST_F(StackModulesTest, AddressWithoutAModuleEndsTheLongRecord) {
    platform::ModuleInfo64 record;
    platform::setLastError(0);
    EXPECT_FALSE(walker.findModuleInfo(nullptr, 0x9999, record));
    EXPECT_EQ(platform::lastError(), 1114u);
    EXPECT_FALSE(moduleInfoV3Usable);
    EXPECT_TRUE(walker.findModuleInfo(nullptr, 0x1010, record));
    EXPECT_EQ(help.recordSizes, (std::vector<std::uint32_t>{1672, 584, 584}));
}

TEST_F(StackModulesTest, MissingLibraryOrFunctionIs1114) {
    platform::ModuleInfo64 record;
    std::memset(&record, 0xCC, sizeof record);
    stackLibraries().debugHelp.symGetModuleInfo64 = nullptr;
    platform::setLastError(0);
    EXPECT_FALSE(walker.findModuleInfo(nullptr, 0x1010, record));
    EXPECT_EQ(platform::lastError(), 1114u);
    EXPECT_EQ(record.size, 0u);
    EXPECT_EQ(record.loadedPdbName[0], '\0');
    stackLibraries().debugHelp.handle = nullptr;
    platform::setLastError(0);
    EXPECT_FALSE(walker.findModuleInfo(nullptr, 0x1010, record));
    EXPECT_EQ(platform::lastError(), 1114u);
    EXPECT_TRUE(moduleInfoV3Usable);
}

TEST_F(StackModulesTest, ScratchBlockThatCannotBeHadIs8) {
    platform::ModuleInfo64 record;
    platform::setLastError(0);
    {
        const FailingMalloc failing(4096);
        EXPECT_FALSE(walker.findModuleInfo(nullptr, 0x1010, record));
    }
    EXPECT_EQ(platform::lastError(), 8u);
    EXPECT_TRUE(moduleInfoV3Usable);
    EXPECT_TRUE(help.recordSizes.empty());
}

TEST_F(StackModulesTest, LibraryMayWriteBehindTheRecord) {
    help.writtenBehind = 4096 - 1672;
    platform::ModuleInfo64 record[2];
    std::memset(&record, 0xCC, sizeof record);
    EXPECT_TRUE(walker.findModuleInfo(nullptr, 0x1010, record[0]));
    EXPECT_EQ(record[1].size, 0xCCCCCCCCu);
}

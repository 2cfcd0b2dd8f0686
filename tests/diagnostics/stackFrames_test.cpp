// What a walk hands to those who derive from it, and to the functions of the libraries.

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

#include "diagnostics/stackFixture.h"

using velt::callstack::FrameEntry;
using velt::callstack::FrameKind;

namespace {

// Keeps the frames as they come.
class FrameKeeper : public velt::callstack::StackWalker {
  public:
    FrameKeeper() : StackWalker(1, nullptr) { setOutput(std::make_shared<RecordingOutput>()); }
    void reportFrame(FrameKind kind, const FrameEntry& entry) override {
        kinds.push_back(kind);
        entries.push_back(entry);
    }
    std::vector<FrameKind> kinds;
    std::vector<FrameEntry> entries;
};

// All of an entry, one field a line.
std::string described(const FrameEntry& entry) {
    std::string text;
    const auto add = [&text](const char* field, const auto& value) {
        text += std::string(field) + ": " + testing::PrintToString(value) + "\n";
    };
    add("address", entry.address);
    add("frame", entry.frame);
    add("symbolName", std::string(entry.symbolName));
    add("shortName", std::string(entry.shortName));
    add("fullName", std::string(entry.fullName));
    add("symbolDisplacement", entry.symbolDisplacement);
    add("lineDisplacement", entry.lineDisplacement);
    add("lineNumber", entry.lineNumber);
    add("sourceFile", std::string(entry.sourceFile));
    add("symbolTypeText", std::string(entry.symbolTypeText));
    add("moduleName", std::string(entry.moduleName));
    add("moduleBase", entry.moduleBase);
    add("imagePath", std::string(entry.imagePath));
    return text;
}

// An entry with nothing but where the frame is.
FrameEntry emptyEntry(std::uint64_t address, std::uint64_t frame) {
    FrameEntry entry = {};
    entry.address = address;
    entry.frame = frame;
    entry.symbolTypeText = "";
    return entry;
}

template <std::size_t Size>
void put(char (&out)[Size], const std::string& text) {
    std::memcpy(out, text.c_str(), text.size() + 1);
}

// What the libraries of the fixture know of the address 0x1234.
FrameEntry knownEntry() {
    FrameEntry entry = emptyEntry(0x1234, 0x5000);
    put(entry.symbolName, "?f@@YAXXZ");
    put(entry.shortName, "f");
    put(entry.fullName, "void f(void)");
    entry.symbolDisplacement = 0x1'0000'0021;
    entry.lineDisplacement = 3;
    entry.lineNumber = 11;
    put(entry.sourceFile, "f.cpp");
    entry.symbolTypeText = "PDB";
    put(entry.moduleName, "mod");
    entry.moduleBase = 0x1000;
    put(entry.imagePath, "img");
    return entry;
}

class StackFramesTest : public testing::Test {
  protected:
    StackFramesTest() : help(fixture.help()) {
        help.modules = {{"path", "mod", 0x1000, 0x1000, 3, "pdb", "img"}};
        help.symbols[0x1234] = {"?f@@YAXXZ", "f.cpp", 11, 0x1'0000'0021, 3};
        help.undecorated = {{"?f@@YAXXZ 0", "void f(void)"}, {"?f@@YAXXZ 4096", "f"}};
    }

    StackFixture fixture;
    FakeDebugHelp& help;
    const platform::ThreadContext context = StackFixture::contextOf(0x1000, 0x2000);
};

} // namespace

TEST_F(StackFramesTest, EntryHasAllThatTheLibraryKnows) {
    help.frames = {{0x1234, 0, 0x5000}};
    FrameKeeper walker;
    EXPECT_TRUE(walker.walk(&context, nullptr));
    EXPECT_EQ(walker.kinds, (std::vector{FrameKind::first, FrameKind::closing}));
    ASSERT_EQ(walker.entries.size(), 2u);
    EXPECT_EQ(described(walker.entries[0]), described(knownEntry()));
    EXPECT_EQ(described(walker.entries[1]), described(knownEntry()));
}

TEST_F(StackFramesTest, EntryOfAnUnknownAddressHasNothingOfTheLast) {
    help.frames = {{0x1234, 0x9000, 0x5000}, {0x9000, 0, 0x6000}};
    FrameKeeper walker;
    EXPECT_TRUE(walker.walk(&context, nullptr));
    ASSERT_EQ(walker.entries.size(), 3u);
    EXPECT_EQ(described(walker.entries[0]), described(knownEntry()));
    EXPECT_EQ(described(walker.entries[1]), described(emptyEntry(0x9000, 0x6000)));
    EXPECT_EQ(described(walker.entries[2]), described(emptyEntry(0x9000, 0x6000)));
}

TEST_F(StackFramesTest, EntryOfCounterZeroHasNothingOfTheLast) {
    help.frames = {{0x1234, 0x10, 0x5000}, {0, 0x10, 0x6000}, {0x1234, 0, 0x5000}};
    FrameKeeper walker;
    EXPECT_TRUE(walker.walk(&context, nullptr));
    ASSERT_EQ(walker.entries.size(), 4u);
    EXPECT_EQ(described(walker.entries[1]), described(emptyEntry(0, 0x6000)));
    EXPECT_EQ(described(walker.entries[2]), described(knownEntry()));
}

// A module's name has less room than the texts of an entry.
TEST_F(StackFramesTest, TextsOfAnEntryAreCutAndTerminated) {
    help.frames = {{0x1234, 0}};
    help.symbols[0x1234] = {std::string(2000, 'n'), std::string(2000, 's'), 1};
    FrameKeeper walker;
    EXPECT_TRUE(walker.walk(&context, nullptr));
    ASSERT_EQ(walker.entries.size(), 2u);
    const FrameEntry& entry = walker.entries[0];
    EXPECT_EQ(std::string(entry.symbolName), std::string(1023, 'n'));
    EXPECT_EQ(std::string(entry.shortName), std::string(1023, 'n'));
    EXPECT_EQ(std::string(entry.fullName), std::string(1023, 'n'));
    EXPECT_EQ(std::string(entry.sourceFile), std::string(1023, 's'));
}

TEST_F(StackFramesTest, FunctionsGetTheProcessAndTheThreadOfTheWalk) {
    help.frames = {{0x1234, 0x1234}, {0x1234, 0}};
    int process = 0;
    int thread = 0;
    {
        velt::callstack::StackWalker walker(4711, &process);
        walker.setOutput(std::make_shared<RecordingOutput>());
        EXPECT_TRUE(walker.walk(&context, &thread));
    }
    EXPECT_EQ(help.count("CreateToolhelp32Snapshot 8 4711"), 1);
    EXPECT_EQ(help.count("StackWalk64"), 2);
    EXPECT_EQ(help.count("SymCleanup"), 1);
    EXPECT_EQ(help.threads, std::set<void*>{&thread});
    EXPECT_EQ(help.processes, std::set<platform::ProcessHandle>{&process});
}

TEST_F(StackFramesTest, ProcessStatusGetsTheProcessOfTheWalk) {
    stackLibraries().toolHelp.handle = nullptr;
    int process = 0;
    velt::callstack::StackWalker walker(4711, &process);
    walker.setOutput(std::make_shared<RecordingOutput>());
    EXPECT_TRUE(walker.walk(&context, nullptr));
    EXPECT_EQ(help.count("GetModuleInformation"), 1);
    EXPECT_EQ(help.processes, std::set<platform::ProcessHandle>{&process});
}

// The lines of the output classes.

#include <gtest/gtest.h>

#include <type_traits>

#include "diagnostics/stackFixture.h"
#include "support/capturedLog.h"
#include "support/slot.h"

using velt::callstack::FrameEntry;
using velt::callstack::FrameKind;

namespace {

// Replaces the one function that writes.
template <class Base>
class Recorded : public Base {
  public:
    using Base::Base;
    void writeLine(const char* text) override { lines.emplace_back(text); }
    std::vector<std::string> lines;
};

// A walker with an output that records.
class RecordedWalker : public velt::callstack::StackWalker {
  public:
    RecordedWalker() : StackWalker(1, nullptr) { setOutput(m_output); }
    const std::vector<std::string>& lines() const { return m_output->lines; }

  private:
    std::shared_ptr<RecordingOutput> m_output = std::make_shared<RecordingOutput>();
};

template <std::size_t Size>
void put(char (&out)[Size], const std::string& text) {
    std::memcpy(out, text.c_str(), text.size() + 1);
}

FrameEntry entryOf(std::uint64_t address) {
    FrameEntry entry = {};
    entry.address = address;
    entry.frame = 0xabcd;
    return entry;
}

} // namespace

TEST(StackOutput, PlainLinesGoThroughWriteLine) {
    Recorded<velt::callstack::Output> output;
    output.beginModules();
    output.moduleLine("m");
    output.endModules();
    output.beginStack();
    output.stackLine("s");
    output.endStack();
    EXPECT_EQ(output.lines,
              (std::vector<std::string>{">>=========== Module List ============", "[ModuleList] m",
                                        "<<=========== Module List ============",
                                        ">>============ Call Stack ============", "[CallStack] s",
                                        "<<============ Call Stack ============"}));
}

TEST(StackOutput, PlainLineGoesToStandardOutput) {
    testing::internal::CaptureStdout();
    velt::callstack::Output().writeLine("a %s line");
    std::string text = testing::internal::GetCapturedStdout();
    std::erase(text, '\r');
    EXPECT_EQ(text, "a %s line\n");
}

TEST(StackOutput, PlainOutputHasNoVirtualDestructor) {
    EXPECT_FALSE(std::has_virtual_destructor_v<velt::callstack::Output>);
    EXPECT_FALSE(std::has_virtual_destructor_v<velt::se::Output>);
    EXPECT_FALSE(std::has_virtual_destructor_v<sarn::ExceptionHandlerOutput>);
    EXPECT_EQ(sizeof(velt::callstack::Output), sizeof(void*));
    EXPECT_TRUE(std::is_abstract_v<velt::se::Output>);
}

TEST(StackOutput, VirtualOperationsStandInTheirOrder) {
    using velt::callstack::Output;
    EXPECT_EQ(slotOf(&Output::beginModules), 0);
    EXPECT_EQ(slotOf(&Output::moduleLine), 1);
    EXPECT_EQ(slotOf(&Output::endModules), 2);
    EXPECT_EQ(slotOf(&Output::beginStack), 3);
    EXPECT_EQ(slotOf(&Output::stackLine), 4);
    EXPECT_EQ(slotOf(&Output::endStack), 5);
    EXPECT_EQ(slotOf(&Output::writeLine), 6);
}

TEST(StackOutput, ExtraOperationsStandBehindTheOthers) {
    using velt::se::Output;
    EXPECT_EQ(slotOf(&Output::writeLine), 6);
    EXPECT_EQ(slotOf(&Output::beginExtra), 7);
    EXPECT_EQ(slotOf(&Output::extraLine), 8);
    EXPECT_EQ(slotOf(&Output::endExtra), 9);
}

TEST(StackOutput, EventLogOutputKeepsThePlaces) {
    using Output = sarn::ExceptionHandlerOutput;
    EXPECT_EQ(slotOf(&Output::beginModules), 0);
    EXPECT_EQ(slotOf(&Output::moduleLine), 1);
    EXPECT_EQ(slotOf(&Output::endModules), 2);
    EXPECT_EQ(slotOf(&Output::beginStack), 3);
    EXPECT_EQ(slotOf(&Output::stackLine), 4);
    EXPECT_EQ(slotOf(&Output::endStack), 5);
    EXPECT_EQ(slotOf(&Output::writeLine), 6);
    EXPECT_EQ(slotOf(&Output::beginExtra), 7);
    EXPECT_EQ(slotOf(&Output::extraLine), 8);
    EXPECT_EQ(slotOf(&Output::endExtra), 9);
}

TEST(StackWalkerTable, VirtualOperationsStandInTheirOrder) {
    using velt::callstack::StackWalker;
    // Two slots belong to the destructor.
    EXPECT_TRUE(std::has_virtual_destructor_v<StackWalker>);
    EXPECT_EQ(slotOf(&StackWalker::reportModule), 2);
    EXPECT_EQ(slotOf(&StackWalker::reportFrame), 3);
    EXPECT_EQ(slotOf(&StackWalker::reportError), 4);
}

TEST(StackOutput, EventLogLinesHaveTheirHeads) {
    Recorded<sarn::ExceptionHandlerOutput> output([](const char*) {});
    output.beginModules();
    output.moduleLine("m");
    output.endModules();
    output.beginStack();
    output.stackLine("s");
    output.endStack();
    output.beginExtra();
    output.extraLine("x");
    output.endExtra();
    EXPECT_EQ(output.lines,
              (std::vector<std::string>{
                  "[ModuleList] ------------- Begin -------------", "[ModuleList] m",
                  "[ModuleList] ------------- End ---------------",
                  "[CallStack] ------------- Begin -------------",
                  "[CallStack]            Address:              Frame:", "[CallStack] s",
                  "[CallStack] ------------- End ---------------", "x"}));
}

TEST(StackOutput, EventLogLineIsAFormat) {
    const CapturedLog log;
    sarn::ExceptionHandlerOutput output([](const char*) { FAIL(); });
    output.writeLine("100%% of operator%=, %d and %s");
    output.stackLine("plain");
    EXPECT_EQ(log.messages(CapturedLog::events),
              (std::vector<std::string>{"100% of operator%=, 0 and (null)", "[CallStack] plain"}));
    EXPECT_EQ(log.size(), 2u);
}

TEST(StackOutput, CallbackIsKeptAndNeverCalled) {
    const CapturedLog log;
    const auto token = std::make_shared<int>(0);
    int called = 0;
    {
        sarn::ExceptionHandlerOutput output([token, &called](const char*) { ++called; });
        EXPECT_EQ(token.use_count(), 2);
        output.beginModules();
        output.writeLine("line");
        output.extraLine("line");
        EXPECT_EQ(token.use_count(), 2);
    }
    EXPECT_EQ(token.use_count(), 1);
    EXPECT_EQ(called, 0);
}

TEST(StackLines, ModuleWithoutVersion) {
    const StackFixture fixture;
    RecordedWalker walker;
    walker.reportModule("C:\\a\\b.dll", "b.dll", 0x7fff00001000, 4096, "PDB", "b.pdb", 0);
    EXPECT_EQ(walker.lines(), std::vector<std::string>{
                                  "[ModuleList] C:\\a\\b.dll:b.dll (0x00007FFF00001000), size: "
                                  "4096, SymType: 'PDB', PDB: 'b.pdb'"});
}

TEST(StackLines, ModuleWithVersionHasItsFourGroups) {
    const StackFixture fixture;
    RecordedWalker walker;
    walker.reportModule("p", "n", 1, 0xffffffff, "", "", 0x0001000200030004);
    EXPECT_EQ(walker.lines(),
              std::vector<std::string>{"[ModuleList] p:n (0x0000000000000001), size: -1, SymType: "
                                       "'', PDB: '', fileVersion: 1.2.3.4"});
}

TEST(StackLines, LongLinesAreCutAt1023) {
    const StackFixture fixture;
    RecordedWalker walker;
    const std::string path(1100, 'p');
    walker.reportModule(path.c_str(), "n", 1, 2, "", "", 0);
    FrameEntry entry = entryOf(1);
    std::memset(entry.imagePath, 'i', 1023);
    walker.reportFrame(FrameKind::first, entry);
    walker.reportError(path.c_str(), 1, 2);
    ASSERT_EQ(walker.lines().size(), 3u);
    EXPECT_EQ(walker.lines()[0], "[ModuleList] " + std::string(1023, 'p'));
    EXPECT_EQ(walker.lines()[1].size(), std::string("[CallStack] ").size() + 1023);
    EXPECT_EQ(walker.lines()[2], "ERROR: " + std::string(1023 - 7, 'p'));
}

TEST(StackLines, FrameTakesTheBestTextsThatItHas) {
    const StackFixture fixture;
    RecordedWalker walker;
    FrameEntry entry = entryOf(0x1234);
    walker.reportFrame(FrameKind::first, entry);
    put(entry.symbolName, "symbol");
    put(entry.moduleName, "module");
    put(entry.sourceFile, "file.cpp");
    entry.lineNumber = 7;
    walker.reportFrame(FrameKind::further, entry);
    put(entry.shortName, "short");
    put(entry.imagePath, "image");
    walker.reportFrame(FrameKind::further, entry);
    put(entry.fullName, "full()");
    walker.reportFrame(FrameKind::further, entry);
    const std::string head = "[CallStack] 0x0000000000001234  0x000000000000abcd  ";
    EXPECT_EQ(walker.lines(),
              (std::vector<std::string>{
                  head + "[Module=\"\"] [Source=\"\":0] [Func=]",
                  head + "[Module=\"module\"] [Source=\"file.cpp\":7] [Func=symbol]",
                  head + "[Module=\"image\"] [Source=\"file.cpp\":7] [Func=short]",
                  head + "[Module=\"image\"] [Source=\"file.cpp\":7] [Func=full()]"}));
}

TEST(StackLines, ClosingCallAndAddressZeroPrintNothing) {
    const StackFixture fixture;
    RecordedWalker walker;
    walker.reportFrame(FrameKind::closing, entryOf(1));
    walker.reportFrame(FrameKind::first, entryOf(0));
    walker.reportFrame(FrameKind::further, entryOf(0));
    EXPECT_TRUE(walker.lines().empty());
}

TEST(StackLines, ErrorHasNoHead) {
    const StackFixture fixture;
    RecordedWalker walker;
    walker.reportError("Something", 126, 0xabc);
    EXPECT_EQ(walker.lines(),
              std::vector<std::string>{"ERROR: Something, GetLastError: 126 (Address: "
                                       "0000000000000ABC)"});
}

TEST(StackLines, SymbolTypesHaveTheirTexts) {
    const char* const texts[] = {"-nosymbols-", "COFF", "CV",  "PDB",    "-exported-",
                                 "-deferred-",  "SYM",  "DIA", "Virtual"};
    for (std::uint32_t type = 0; type < 9; ++type)
        EXPECT_STREQ(velt::callstack::symbolTypeText(type), texts[type]);
    EXPECT_STREQ(velt::callstack::symbolTypeText(9), "");
    EXPECT_STREQ(velt::callstack::symbolTypeText(0xffffffff), "");
}

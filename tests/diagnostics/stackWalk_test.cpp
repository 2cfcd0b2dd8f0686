// The walk against libraries that a test writes: order, ends and failures.

#include <gtest/gtest.h>

#include <new>

#include "diagnostics/stackFixture.h"
#include "platform/thread.h"
#include "support/failingMalloc.h"

namespace {

constexpr char kBegin[] = ">>============ Call Stack ============";
constexpr char kEnd[] = "<<============ Call Stack ============";

std::string frameLine(const char* address, const char* rest = "[Source=\"\":0] [Func=]",
                      const char* frame = "0000000000000000") {
    return std::string("[CallStack] 0x") + address + "  0x" + frame + "  [Module=\"img\"] " + rest;
}

// A fixture whose frames all lie in one module.
class StackWalkTest : public testing::Test {
  protected:
    StackWalkTest() : help(fixture.help()) {
        help.modules = {{"path", "mod", 0x1, 0x10000, 3, "pdb", "img"}};
    }

    std::vector<FakeFrame> repeated(int count) {
        return std::vector<FakeFrame>(static_cast<std::size_t>(count), {0x11, 0x11});
    }

    StackFixture fixture;
    FakeDebugHelp& help;
    const platform::ThreadContext context = StackFixture::contextOf(0x1000, 0x2000);
};

// What the calls that stand for threads saw.
std::vector<std::string> threadEvents;
bool contextFails = false;
std::uint32_t idOfThread = 0;
std::uint32_t contextFlags = 0;

void standInForThreads(std::uint32_t id) {
    threadEvents.clear();
    contextFails = false;
    idOfThread = id;
    platform::threadCalls.threadIdOf = [](platform::ThreadHandle) { return idOfThread; };
    platform::threadCalls.suspend = [](platform::ThreadHandle) -> std::uint32_t {
        threadEvents.emplace_back("suspend");
        return 0;
    };
    platform::threadCalls.resume = [](platform::ThreadHandle) -> std::uint32_t {
        threadEvents.emplace_back("resume");
        return 1;
    };
    platform::threadCalls.contextOf = [](platform::ThreadHandle, std::uint32_t flags,
                                         platform::ThreadContext* out) {
        threadEvents.emplace_back("context");
        contextFlags = flags;
        EXPECT_EQ(platform::instructionPointer(*out), 0u);
        *out = StackFixture::contextOf(0x77, 0x88);
        return !contextFails;
    };
}

} // namespace

TEST_F(StackWalkTest, EventsComeInTheirOrder) {
    help.frames = {{0x10, 0x20, 0x5000}, {0x20, 0, 0x6000}};
    help.symbols[0x10] = {"one", "one.cpp", 11};
    bool walked = false;
    const auto lines = fixture.walk(&context, &walked);
    EXPECT_TRUE(walked);
    EXPECT_EQ(
        lines,
        (std::vector<std::string>{
            ">>=========== Module List ============",
            "[ModuleList] path:mod (0x0000000000000001), size: 65536, SymType: 'PDB', PDB: "
            "'pdb'",
            "<<=========== Module List ============", kBegin,
            frameLine("0000000000000010", "[Source=\"one.cpp\":11] [Func=one]", "0000000000005000"),
            frameLine("0000000000000020", "[Source=\"\":0] [Func=]", "0000000000006000"), kEnd}));
    EXPECT_EQ(help.calls, (std::vector<std::string>{"SymInitialize",
                                                    "SymGetOptions",
                                                    "SymSetOptions 250",
                                                    "CreateToolhelp32Snapshot 8 1",
                                                    "Module32First",
                                                    "Module32Next",
                                                    "SymLoadModule64 path mod 1 10000",
                                                    "SymGetModuleInfo64 1672",
                                                    "Module32Next",
                                                    "CloseHandle",
                                                    "StackWalk64",
                                                    "SymGetSymFromAddr64 10",
                                                    "UnDecorateSymbolName 4096",
                                                    "UnDecorateSymbolName 0",
                                                    "SymGetLineFromAddr64 10",
                                                    "SymGetModuleInfo64 1672",
                                                    "StackWalk64",
                                                    "SymGetSymFromAddr64 20",
                                                    "SymGetLineFromAddr64 20",
                                                    "SymGetModuleInfo64 1672",
                                                    "SymCleanup"}));
}

TEST_F(StackWalkTest, FirstFrameIsFlatAndHoldsTheContext) {
    help.frames = {{0x10, 0}};
    fixture.walk(&context);
    const platform::StackFrame64& frame = help.firstFrame;
    EXPECT_EQ(frame.programCounter.offset, 0x1000u);
    EXPECT_EQ(frame.frame.offset, 0x2000u);
    EXPECT_EQ(frame.stack.offset, 0x2000u);
    EXPECT_EQ(frame.programCounter.mode, 3u);
    EXPECT_EQ(frame.frame.mode, 3u);
    EXPECT_EQ(frame.stack.mode, 3u);
    EXPECT_EQ(frame.returnAddress.offset, 0u);
    EXPECT_EQ(frame.returnAddress.mode, 0u);
    EXPECT_EQ(frame.reserved[0], 0u);
    EXPECT_EQ(platform::instructionPointer(help.context), 0x1000u);
}

TEST_F(StackWalkTest, ReturnAddressZeroAtTheFirstFrameIsOneLine) {
    help.frames = {{0x10, 0}};
    platform::setLastError(77);
    EXPECT_EQ(fixture.walkFrames(), std::vector<std::string>{frameLine("0000000000000010")});
}

TEST_F(StackWalkTest, EndOfTheStackLeavesLastErrorZero) {
    help.frames = {{0x10, 0}};
    platform::setLastError(77);
    struct EndOutput : RecordingOutput {
        void endStack() override { atEnd = platform::lastError(); }
        std::uint32_t atEnd = 99;
    };
    const auto output = std::make_shared<EndOutput>();
    velt::callstack::StackWalker walker(1, nullptr);
    walker.setOutput(output);
    EXPECT_TRUE(walker.walk(&context, nullptr));
    EXPECT_EQ(output->atEnd, 0u);
}

TEST_F(StackWalkTest, WalkThatFailsAtOnceHasNoFrame) {
    help.failing = {"StackWalk64"};
    help.failure = 126;
    bool walked = false;
    const auto lines = fixture.walk(&context, &walked);
    EXPECT_TRUE(walked);
    ASSERT_EQ(lines.size(), 6u);
    EXPECT_EQ(lines[3], kBegin);
    EXPECT_EQ(lines[4], "ERROR: StackWalk64, GetLastError: 0 (Address: 0000000000001000)");
    EXPECT_EQ(lines[5], kEnd);
}

TEST_F(StackWalkTest, WalkThatFailsLaterTellsTheLastCounter) {
    help.frames = {{0x10, 0x20}};
    EXPECT_EQ(fixture.walkFrames(),
              (std::vector<std::string>{
                  frameLine("0000000000000010"),
                  "ERROR: StackWalk64, GetLastError: 0 (Address: 0000000000000010)"}));
}

TEST_F(StackWalkTest, ClosingCallComesBeforeTheEndAndAfterItOnFailure) {
    struct Walker : velt::callstack::StackWalker {
        using StackWalker::StackWalker;
        void reportFrame(velt::callstack::FrameKind kind,
                         const velt::callstack::FrameEntry& entry) override {
            events.push_back(static_cast<int>(kind));
            last = entry.address;
        }
        std::vector<int> events;
        std::uint64_t last = 0;
    };
    struct EndOutput : RecordingOutput {
        explicit EndOutput(Walker& owner) : walker(owner) {}
        void endStack() override { walker.events.push_back(9); }
        Walker& walker;
    };
    const auto eventsOf = [&](std::vector<FakeFrame> frames) {
        help.frames = std::move(frames);
        help.next = 0;
        Walker walker(1, nullptr);
        walker.setOutput(std::make_shared<EndOutput>(walker));
        EXPECT_TRUE(walker.walk(&context, nullptr));
        return walker.events;
    };
    EXPECT_EQ(eventsOf({{0x10, 0}}), (std::vector<int>{0, 2, 9}));
    EXPECT_EQ(eventsOf({{0x10, 0x20}, {0x20, 0x30}, {0x30, 0}}), (std::vector<int>{0, 1, 1, 2, 9}));
    EXPECT_EQ(eventsOf({{0x10, 0x20}}), (std::vector<int>{0, 9, 2}));
    EXPECT_EQ(eventsOf({}), (std::vector<int>{9}));
}

TEST_F(StackWalkTest, EndlessStackEndsAtThe102ndFrame) {
    help.frames = repeated(500);
    const auto frames = fixture.walkFrames();
    ASSERT_EQ(frames.size(), 102u);
    for (int i = 0; i < 101; ++i)
        EXPECT_EQ(frames[i], frameLine("0000000000000011"));
    EXPECT_EQ(frames[101],
              "ERROR: StackWalk64-Endless-CallStack!, GetLastError: 0 (Address: "
              "0000000000000011)");
    EXPECT_EQ(help.count("StackWalk64"), 102);
}

TEST_F(StackWalkTest, HundredAndOneRepeatsAreAllPrinted) {
    help.frames = repeated(101);
    help.frames.push_back({0x12, 0});
    const auto frames = fixture.walkFrames();
    ASSERT_EQ(frames.size(), 102u);
    EXPECT_EQ(frames.back(), frameLine("0000000000000012"));
}

TEST_F(StackWalkTest, OtherFrameSetsTheCountBack) {
    help.frames = repeated(101);
    help.frames.push_back({0x11, 0x12});
    const auto more = repeated(102);
    help.frames.insert(help.frames.end(), more.begin(), more.end());
    const auto frames = fixture.walkFrames();
    ASSERT_EQ(frames.size(), 101u + 1 + 101 + 1);
    EXPECT_EQ(frames.back(),
              "ERROR: StackWalk64-Endless-CallStack!, GetLastError: 0 (Address: "
              "0000000000000011)");
}

TEST_F(StackWalkTest, StackOfAnotherShapeHasNoLimit) {
    for (std::uint64_t i = 0; i < 5000; ++i)
        help.frames.push_back({0x10 + i % 2, 0x11 - i % 2});
    help.frames.push_back({0x10, 0});
    EXPECT_EQ(fixture.walkFrames().size(), 5001u);
}

TEST_F(StackWalkTest, CounterZeroIsNotLookedUpAndCountsAsAFrame) {
    help.frames = {{0, 0x20}, {0x20, 0}};
    struct Walker : velt::callstack::StackWalker {
        using StackWalker::StackWalker;
        void reportFrame(velt::callstack::FrameKind kind,
                         const velt::callstack::FrameEntry&) override {
            kinds.push_back(static_cast<int>(kind));
        }
        std::vector<int> kinds;
    } walker(1, nullptr);
    walker.setOutput(std::make_shared<RecordingOutput>());
    walker.walk(&context, nullptr);
    EXPECT_EQ(walker.kinds, (std::vector<int>{0, 1, 2}));
    EXPECT_EQ(help.count("SymGetSymFromAddr64"), 1);
    EXPECT_EQ(help.count("SymGetLineFromAddr64"), 1);
    help.next = 0;
    EXPECT_EQ(fixture.walkFrames(), std::vector<std::string>{frameLine("0000000000000020")});
}

TEST_F(StackWalkTest, WithoutLinesTheSourceIsEmpty) {
    stackLibraries().debugHelp.symGetLineFromAddr64 = nullptr;
    help.frames = {{0x10, 0}};
    help.symbols[0x10] = {"one", "one.cpp", 11};
    EXPECT_EQ(fixture.walkFrames(), std::vector<std::string>{frameLine(
                                        "0000000000000010", "[Source=\"\":0] [Func=one]")});
}

TEST_F(StackWalkTest, TextsOfAFrameAreGoneInTheNext) {
    help.frames = {{0x10, 0x20000}, {0x20000, 0}};
    help.symbols[0x10] = {"one", "one.cpp", 11};
    const auto frames = fixture.walkFrames();
    ASSERT_EQ(frames.size(), 3u);
    EXPECT_EQ(frames[1],
              "ERROR: SymGetModuleInfo64, GetLastError: 1114 (Address: 0000000000020000)");
    EXPECT_EQ(frames[2],
              "[CallStack] 0x0000000000020000  0x0000000000000000  [Module=\"\"] "
              "[Source=\"\":0] [Func=]");
}

TEST_F(StackWalkTest, NamesOfTheLibraryComeFirst) {
    help.frames = {{0x10, 0}};
    help.symbols[0x10] = {"?f@@YAXXZ", "", 0};
    help.undecorated = {{"?f@@YAXXZ 0", "void f(void)"}, {"?f@@YAXXZ 4096", "f"}};
    EXPECT_EQ(fixture.walkFrames(),
              std::vector<std::string>{
                  frameLine("0000000000000010", "[Source=\"\":0] [Func=void f(void)]")});
}

TEST_F(StackWalkTest, NameThatTheLibraryDoesNotKnowIsUndecoratedHere) {
    help.frames = {{0x10, 0x20}, {0x20, 0}};
    help.symbols[0x10] = {"_ZN2ns1fEi", "", 0};
    help.symbols[0x20] = {"plain_c", "", 0};
    EXPECT_EQ(fixture.walkFrames(),
              (std::vector<std::string>{
                  frameLine("0000000000000010", "[Source=\"\":0] [Func=ns::f(int)]"),
                  frameLine("0000000000000020", "[Source=\"\":0] [Func=plain_c]")}));
}

TEST_F(StackWalkTest, FailedUndecorationLeavesTheSymbol) {
    help.frames = {{0x10, 0}};
    help.symbols[0x10] = {"?f@@YAXXZ", "", 0};
    help.failing = {"UnDecorateSymbolName"};
    EXPECT_EQ(fixture.walkFrames(), std::vector<std::string>{frameLine(
                                        "0000000000000010", "[Source=\"\":0] [Func=?f@@YAXXZ]")});
}

TEST_F(StackWalkTest, LongNamesAreCutAndTerminated) {
    help.frames = {{0x10, 0}};
    help.symbols[0x10] = {std::string(2000, 'n'), std::string(2000, 's'), 1};
    const auto frames = fixture.walkFrames();
    ASSERT_EQ(frames.size(), 1u);
    EXPECT_EQ(frames[0].size(), std::string("[CallStack] ").size() + 1023);
}

TEST_F(StackWalkTest, WithoutTheLibraryOneLineTells) {
    stackLibraries().debugHelp.handle = nullptr;
    bool walked = true;
    platform::setLastError(0);
    const auto lines = fixture.walk(&context, &walked);
    EXPECT_FALSE(walked);
    EXPECT_EQ(lines, std::vector<std::string>{"ERROR: Error while initializing dbghelp.dll, "
                                              "GetLastError: 0 (Address: 0000000000000000)"});
    EXPECT_TRUE(help.calls.empty());
}

TEST_F(StackWalkTest, WithoutTheLibraryTheLastErrorIs1114) {
    stackLibraries().debugHelp.handle = nullptr;
    velt::callstack::StackWalker walker(1, nullptr);
    walker.setOutput(std::make_shared<RecordingOutput>());
    platform::setLastError(0);
    EXPECT_FALSE(walker.walk(nullptr, nullptr));
    EXPECT_EQ(platform::lastError(), 1114u);
}

TEST_F(StackWalkTest, FailedInitialisationIsToldAndTheWalkGoesOn) {
    help.failing = {"SymInitialize"};
    help.failure = 87;
    help.frames = {{0x10, 0}};
    bool walked = false;
    const auto lines = fixture.walk(&context, &walked);
    EXPECT_TRUE(walked);
    ASSERT_FALSE(lines.empty());
    EXPECT_EQ(lines[0], "ERROR: SymInitialize, GetLastError: 87 (Address: 0000000000000000)");
    EXPECT_EQ(lines.back(), kEnd);
    EXPECT_EQ(help.count("SymSetOptions 250"), 1);
}

TEST_F(StackWalkTest, SymbolRecordThatCannotBeHadEndsTheWalk) {
    help.frames = {{0x10, 0}};
    bool walked = true;
    std::vector<std::string> lines;
    {
        const FailingMalloc failing(sizeof(platform::SymbolRecord));
        lines = fixture.walk(&context, &walked);
    }
    EXPECT_FALSE(walked);
    ASSERT_FALSE(lines.empty());
    EXPECT_EQ(lines.back(), "<<=========== Module List ============");
    EXPECT_EQ(help.count("StackWalk64"), 0);
}

TEST_F(StackWalkTest, SecondWalkOfAnObjectHasNoModules) {
    help.frames = {{0x10, 0}, {0x20, 0}};
    const auto output = std::make_shared<RecordingOutput>();
    velt::callstack::StackWalker walker(1, nullptr);
    walker.setOutput(output);
    EXPECT_TRUE(walker.walk(&context, nullptr));
    output->lines.clear();
    EXPECT_TRUE(walker.walk(&context, nullptr));
    EXPECT_EQ(output->lines,
              (std::vector<std::string>{kBegin, frameLine("0000000000000020"), kEnd}));
    EXPECT_EQ(help.count("SymInitialize"), 1);
}

TEST_F(StackWalkTest, WithoutAnyModuleTheNextWalkTriesAgain) {
    help.modules.clear();
    help.frames = {{0, 0}, {0, 0}};
    velt::callstack::StackWalker walker(1, nullptr);
    walker.setOutput(std::make_shared<RecordingOutput>());
    walker.walk(&context, nullptr);
    walker.walk(&context, nullptr);
    EXPECT_EQ(help.count("SymInitialize"), 2);
}

TEST_F(StackWalkTest, CallingThreadIsCapturedAndResumed) {
    standInForThreads(platform::threadId());
    help.frames = {{0x10, 0}};
    bool walked = false;
    fixture.walk(nullptr, &walked);
    EXPECT_TRUE(walked);
    EXPECT_EQ(threadEvents, std::vector<std::string>{"resume"});
    // Not the place of a variable, which a sanitizer may keep elsewhere.
    const auto here = reinterpret_cast<std::uintptr_t>(__builtin_frame_address(0));
    EXPECT_LT(here - help.firstFrame.stack.offset, 1000'000u);
    EXPECT_GT(help.firstFrame.programCounter.offset, 0x1000u);
}

TEST_F(StackWalkTest, GivenContextTouchesNoThread) {
    standInForThreads(platform::threadId() + 1);
    help.frames = {{0x10, 0}};
    fixture.walk(&context);
    EXPECT_TRUE(threadEvents.empty());
}

TEST_F(StackWalkTest, OtherThreadIsSuspendedReadAndResumed) {
    standInForThreads(platform::threadId() + 1);
    help.frames = {{0x10, 0}};
    bool walked = false;
    fixture.walk(nullptr, &walked);
    EXPECT_TRUE(walked);
    EXPECT_EQ(threadEvents, (std::vector<std::string>{"suspend", "context", "resume"}));
    EXPECT_EQ(contextFlags, 0x10000bu);
    EXPECT_EQ(help.firstFrame.programCounter.offset, 0x77u);
    EXPECT_EQ(help.firstFrame.stack.offset, 0x88u);
}

TEST_F(StackWalkTest, OtherThreadWhoseContextCannotBeReadRunsOn) {
    standInForThreads(platform::threadId() + 1);
    contextFails = true;
    help.frames = {{0x10, 0}};
    bool walked = true;
    const auto lines = fixture.walk(nullptr, &walked);
    EXPECT_FALSE(walked);
    EXPECT_EQ(threadEvents, (std::vector<std::string>{"suspend", "context", "resume"}));
    EXPECT_EQ(lines.back(), "<<=========== Module List ============");
    EXPECT_EQ(help.count("StackWalk64"), 0);
}

TEST_F(StackWalkTest, OtherThreadRunsOnWhereAnOutputRaises) {
    struct RaisingOutput : RecordingOutput {
        explicit RaisingOutput(int after) : passing(after) {}
        void writeLine(const char*) override {
            if (passing-- == 0)
                throw std::bad_alloc();
        }
        int passing;
    };
    // The begin of the stack, its frame, its end.
    for (int after = 3; after < 6; ++after) {
        standInForThreads(platform::threadId() + 1);
        help.frames = {{0x10, 0}};
        help.next = 0;
        velt::callstack::StackWalker walker(1, nullptr);
        walker.setOutput(std::make_shared<RaisingOutput>(after));
        EXPECT_THROW(walker.walk(nullptr, nullptr), std::bad_alloc) << after;
        EXPECT_EQ(threadEvents, (std::vector<std::string>{"suspend", "context", "resume"}));
    }
}

TEST_F(StackWalkTest, OtherThreadStaysSuspendedForWantOfMemory) {
    standInForThreads(platform::threadId() + 1);
    bool walked = true;
    {
        const FailingMalloc failing(sizeof(platform::SymbolRecord));
        fixture.walk(nullptr, &walked);
    }
    EXPECT_FALSE(walked);
    EXPECT_EQ(threadEvents, (std::vector<std::string>{"suspend", "context"}));
}

TEST_F(StackWalkTest, CallingThreadIsNotResumedForWantOfMemory) {
    standInForThreads(platform::threadId());
    bool walked = true;
    {
        const FailingMalloc failing(sizeof(platform::SymbolRecord));
        fixture.walk(nullptr, &walked);
    }
    EXPECT_FALSE(walked);
    EXPECT_TRUE(threadEvents.empty());
}

TEST_F(StackWalkTest, SymbolsAreLetGoOnlyWhereTheLibraryIs) {
    { velt::callstack::StackWalker walker(1, nullptr); }
    EXPECT_EQ(help.count("SymCleanup"), 1);
    stackLibraries().debugHelp.handle = nullptr;
    { velt::callstack::StackWalker walker(1, nullptr); }
    EXPECT_EQ(help.count("SymCleanup"), 1);
}

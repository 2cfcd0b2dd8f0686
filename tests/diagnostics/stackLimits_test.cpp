// Reports of stacks that are deep, damaged or many.

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "diagnostics/stackFixture.h"
#include "diagnostics/stackReport.h"
#include "platform/process.h"
#include "support/capturedLog.h"
#include "support/processUse.h"
#include "vdreader/postmortem.h"

namespace known {

// Two in turn: a function that calls itself has frames of one address, and so many of them in a row
// are taken for a damaged stack.
__attribute__((noipa)) int odd(int depth);
__attribute__((noipa)) int even(int depth) {
    if (depth == 0) {
        ServerStackWalk(nullptr);
        return 1;
    }
    const int below = odd(depth - 1);
    return below + depth;
}
int odd(int depth) {
    const int below = even(depth - 1);
    return below ^ depth;
}

// A report of its own frame, whose size and caller only the frame pointer knows: `saved` stands for
// the words that it points to, the second of which becomes a return address into this function.
#define FRAME_POINTER __attribute__((noipa, optimize("no-omit-frame-pointer")))
FRAME_POINTER std::vector<std::string> withFramePointer(std::uint64_t value, std::size_t size,
                                                        std::vector<std::uint64_t*> saved = {}) {
    volatile char* const room = static_cast<volatile char*>(__builtin_alloca(size));
    room[0] = 1;
    platform::ThreadContext context = {};
    platform::captureContext(context);
    for (std::uint64_t* const words : saved)
        words[1] = platform::instructionPointer(context);
    StackFixture::setFramePointer(context, value);
    const CapturedLog log;
    ServerStackWalk(&context);
    return log.messages(CapturedLog::events);
}

} // namespace known

namespace {

#if defined(_WIN32) || defined(VDREADER_SANITIZED)
constexpr bool kFewReports = true; // each takes seconds
#else
constexpr bool kFewReports = false;
#endif

bool onWindows() {
    return platform::pathForm.separator == '\\';
}

std::size_t countOf(const std::vector<std::string>& lines, const std::string& text) {
    std::size_t count = 0;
    for (const std::string& line : lines)
        count += line.find(text) != std::string::npos;
    return count;
}

// The whole stack as the event log got it for a context.
std::vector<std::string> reportOf(const platform::ThreadContext& context) {
    const CapturedLog log;
    ServerStackWalk(&context);
    return log.messages(CapturedLog::events);
}

// A state with these two registers.
platform::ThreadContext damaged(std::uint64_t instruction, std::uint64_t stack) {
    return StackFixture::contextOf(instruction, stack);
}

} // namespace

TEST(StackLimits, DeepStackIsReportedWhole) {
    const CapturedLog log;
    const int depth = onWindows() ? 1'000 : 10'000;
    known::even(depth);
    const auto lines = log.messages(CapturedLog::events);
    EXPECT_EQ(countOf(lines, "[Func=known::even"), depth / 2 + 1u);
    EXPECT_EQ(countOf(lines, "[Func=known::odd"), depth / 2 + 0u);
    EXPECT_EQ(countOf(lines, "ERROR"), 0u);
    EXPECT_EQ(countOf(lines, "TestBody"), 1u);
}

TEST(StackLimits, ReportsLeaveNothingBehind) {
    const CapturedLog log;
    const int reports = kFewReports ? 2 : 100;
    ServerStackWalk(nullptr);
    const std::int64_t handles = openHandles();
    [[maybe_unused]] const std::int64_t bytes = privateBytes();
    for (int i = 0; i < reports; ++i) {
        CapturedLog here;
        ServerStackWalk(nullptr);
        EXPECT_GT(here.size(), 6u);
    }
    EXPECT_EQ(openHandles(), handles);
#ifndef VDREADER_SANITIZED // their heap keeps what is freed
    EXPECT_LT(privateBytes() - bytes, onWindows() ? 1'000'000 : 60'000);
#endif
}

TEST(StackLimits, StackThatCannotBeReadEndsTheWalk) {
    platform::ThreadContext context = {};
    platform::captureContext(context);
    const auto lines = reportOf(damaged(platform::instructionPointer(context), 0x10));
    EXPECT_EQ(lines.back(), "[CallStack] ------------- End ---------------");
    EXPECT_GE(countOf(lines, "[CallStack] 0x"), onWindows() ? 0u : 1u);
}

TEST(StackLimits, ContextOfZeroesEndsTheWalk) {
    const auto lines = reportOf(platform::ThreadContext{});
    EXPECT_EQ(lines.back(), "[CallStack] ------------- End ---------------");
}

// A call of a bad address has pushed its return address and nothing else.
TEST(StackLimits, CallerOfABadAddressIsFound) {
    if (onWindows())
        GTEST_SKIP() << "the debug help library of the system decides";
    platform::ThreadContext here = {};
    platform::captureContext(here);
    std::vector<std::uint64_t> stack(4096, 0);
    stack[0] = platform::instructionPointer(here);
    for (const std::uint64_t bad : {0ULL, 0x40ULL, 0xdead00000000beefULL}) {
        const auto lines = reportOf(damaged(bad, reinterpret_cast<std::uintptr_t>(stack.data())));
        EXPECT_EQ(countOf(lines, "CallerOfABadAddressIsFound"), 1u) << bad;
        EXPECT_EQ(countOf(lines, "ERROR: SymGetModuleInfo64"), bad == 0 ? 0u : 1u) << bad;
        char frame[32];
        std::snprintf(
            frame, sizeof frame, "  0x%016llx  [",
            static_cast<unsigned long long>(reinterpret_cast<std::uintptr_t>(stack.data() + 1)));
        EXPECT_EQ(countOf(lines, frame), 1u) << testing::PrintToString(lines);
    }
}

// Frames that are found by the frame pointer.
TEST(StackLimits, DamagedFramePointerEndsTheWalk) {
    for (const std::uint64_t bad : {0x10ULL, 0xdead00000000beefULL}) {
        const auto lines = known::withFramePointer(bad, 64);
        EXPECT_EQ(lines.back(), "[CallStack] ------------- End ---------------");
        EXPECT_EQ(countOf(lines, "[Func=known::withFramePointer"), onWindows() ? 0u : 1u);
        EXPECT_EQ(countOf(lines, "TestBody"), 0u);
    }
}

// Two frames, each the other's caller.
TEST(StackLimits, FramesThatGoRoundEndTheWalk) {
    if (onWindows())
        GTEST_SKIP() << "the debug help library of the system decides";
    std::uint64_t stack[64] = {};
    std::uint64_t* const first = stack;
    std::uint64_t* const second = stack + 32;
    first[0] = reinterpret_cast<std::uintptr_t>(second);
    second[0] = reinterpret_cast<std::uintptr_t>(first);
    const auto lines = known::withFramePointer(second[0], 64, {first, second});
    EXPECT_EQ(lines.back(), "[CallStack] ------------- End ---------------");
    EXPECT_LT(countOf(lines, "[CallStack] 0x"), 5u);
}

// What a report takes from the heap, and what becomes of it where there is nothing to take.

#include <gtest/gtest.h>

#include <new>
#include <string>

#include "diagnostics/stackFixture.h"
#include "support/countedNew.h"
#include "support/failingMalloc.h"

namespace {

constexpr int kAllCalls = 1'000'000;

// Keeps its last line without taking memory.
template <class Base>
class LastLine : public Base {
  public:
    using Base::Base;
    void writeLine(const char* text) override {
        ++lines;
        std::snprintf(last, sizeof last, "%s", text);
    }
    int lines = 0;
    char last[8192] = {};
};

template <class Base>
LastLine<Base> makeOutput() {
    return LastLine<Base>();
}
template <>
LastLine<sarn::ExceptionHandlerOutput> makeOutput() {
    return LastLine<sarn::ExceptionHandlerOutput>([](const char*) {});
}

template <class Base>
class StackLineMemory : public testing::Test {
  protected:
    LastLine<Base> output = makeOutput<Base>();
};
using Outputs = testing::Types<velt::callstack::Output, sarn::ExceptionHandlerOutput>;
TYPED_TEST_SUITE(StackLineMemory, Outputs);

} // namespace

TYPED_TEST(StackLineMemory, LineOfTheLongestTextTakesNone) {
    const std::string text(velt::callstack::kTextSize - 1, 't');
    const std::string module = "[ModuleList] " + text;
    const std::string frame = "[CallStack] " + text;
    auto& output = this->output;
    const FailingNew failing(0, kAllCalls);
    const FailingMalloc failingToo;
    output.moduleLine(text.c_str());
    EXPECT_STREQ(output.last, module.c_str());
    output.stackLine(text.c_str());
    EXPECT_STREQ(output.last, frame.c_str());
}

TYPED_TEST(StackLineMemory, LongerTextOfADerivedWalkerIsWhole) {
    auto& output = this->output;
    for (const std::size_t size : {1024, 1025, 1026, 1027, 4000}) {
        const std::string text(size, 't');
        const std::string module = "[ModuleList] " + text;
        const std::string frame = "[CallStack] " + text;
        const FailingNew failing(0, kAllCalls);
        output.moduleLine(text.c_str());
        EXPECT_STREQ(output.last, module.c_str());
        output.stackLine(text.c_str());
        EXPECT_STREQ(output.last, frame.c_str());
    }
}

TYPED_TEST(StackLineMemory, LongerTextIsCutWhereThereIsNone) {
    const std::string text(4000, 't');
    auto& output = this->output;
    {
        const FailingNew failing(0, kAllCalls);
        const FailingMalloc failingToo;
        output.moduleLine(text.c_str());
    }
    const std::string line = output.last;
    EXPECT_GE(line.size(), std::string("[ModuleList] ").size() + velt::callstack::kTextSize - 1);
    EXPECT_EQ(("[ModuleList] " + text).find(line), 0u);
}

TEST(StackMemory, WalkTakesNoneForItsLines) {
    StackFixture fixture;
    FakeDebugHelp& help = fixture.help();
    for (std::uint64_t i = 1; i <= 20; ++i)
        help.modules.push_back(
            {std::string(250, 'p'), "module", i * 0x1000, 0x1000, 3, "pdb", std::string(250, 'i')});
    for (std::uint64_t i = 1; i <= 100; ++i)
        help.frames.push_back({0x1000 + i, i < 100 ? 0x1001 + i : 0});
    help.symbols[0x1002] = {"_ZN2ns1fEi", std::string(1000, 's'), 7};
    help.symbols[0x1003] = {std::string(1000, 'n'), "file.cpp", 8};
    const auto context = StackFixture::contextOf(0x1000, 0x2000);
    const auto output = std::make_shared<LastLine<velt::callstack::Output>>();
    velt::callstack::StackWalker walker(1, nullptr);
    walker.setOutput(output);
    const std::size_t news = countedNews();
    EXPECT_TRUE(walker.walk(&context, nullptr));
    EXPECT_EQ(countedNews() - news, help.news); // the fixture's own, that is
    EXPECT_EQ(output->lines, 20 + 100 + 4);
}

TEST(StackMemory, WalkerThatFindsNoneLeavesNothing) {
    const StackFixture fixture;
    stackLibraries().debugHelp.handle = nullptr; // its functions would need some
    const std::size_t live = liveNews();
    int failures = 0;
    for (int after = 0;; ++after) {
        const FailingNew failing(after, 1);
        try {
            const velt::callstack::StackWalker walker(1, nullptr);
            break;
        } catch (const std::bad_alloc&) {
            ++failures;
            EXPECT_EQ(liveNews(), live);
        }
    }
    EXPECT_EQ(failures, 2); // the output and the state
}

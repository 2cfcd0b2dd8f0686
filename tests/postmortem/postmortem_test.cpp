// What a process of the family leaves behind when it fails, and that it goes on.

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include "support/process.h"
#include "support/tempFolder.h"

namespace {

namespace fs = std::filesystem;

struct Kind {
    const char* name;
    const char* code;     // of the exception, in upper-case hexadecimal
    const char* function; // where it happens
};

#ifdef _WIN32
constexpr bool kWindows = true;
#else
constexpr bool kWindows = false;
#endif

const std::vector<Kind> kKinds = {
    {"nullRead", "C0000005", "hostNullRead"},
    {"nullWrite", "C0000005", "hostNullWrite"},
    {"divide", "C0000094", "hostDivide"},
    // One trap of the processor stands for both, which neither Linux nor Wine tells apart.
    {"overflow", "C0000094", "hostOverflow"},
    {"illegal", "C000001D", "hostIllegalInstruction"},
    {"breakpoint", "80000003", "hostBreakpoint"},
    {"misalignment", "C0000005", "hostMisalignment"},
    {"stackOverflow", "C00000FD", "hostStackOverflow"},
    {"jump", "C0000005", "hostJumpToNull"},
    {"inPage", "C0000006", "hostInPageError"},
};

void write(const fs::path& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
}

// A copy of the host in a folder of its own, which becomes that of its logs.
class HostFolder {
  public:
    explicit HostFolder(const std::string& name = "home") : m_home(m_folder.path() / name) {
        const fs::path program(POSTMORTEM_HOST);
        fs::create_directory(m_home);
        m_program = m_home / program.filename();
        fs::copy_file(program, m_program);
        // Libraries are found in the working folder.
        fs::current_path(program.parent_path());
        write(m_home / "flimit.vd", std::string(65536, '\0'));
    }

    void ini(const std::string& text) { write(m_home / "sarn.ini", "[dumps]\n" + text); }
    toolTest::RunResult run(const std::string& kind, const std::string& where, int times = 1) {
        return toolTest::run(m_program.string(),
                             {m_home.string(), kind, where, std::to_string(times)});
    }
    std::string log() const { return toolTest::readFile(m_home / "events.log"); }
    std::vector<fs::path> dumps() const {
        std::vector<fs::path> found;
        if (fs::exists(m_home / "Dumps"))
            for (const auto& entry : fs::recursive_directory_iterator(m_home / "Dumps"))
                if (entry.is_regular_file())
                    found.push_back(entry.path());
        std::sort(found.begin(), found.end());
        return found;
    }
    const fs::path& home() const { return m_home; }
    const fs::path& program() const { return m_program; }

  private:
    toolTest::TempFolder m_folder;
    fs::path m_home;
    fs::path m_program;
};

std::size_t count(const std::string& text, const std::string& part) {
    std::size_t found = 0;
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
        ++found;
    return found;
}

template <class Value>
Value at(const std::string& bytes, std::size_t offset) {
    Value value = {};
    if (offset + sizeof value <= bytes.size())
        std::memcpy(&value, bytes.data() + offset, sizeof value);
    return value;
}

// Where a stream of a minidump begins, 0 if there is none.
std::uint32_t streamIn(const std::string& bytes, std::uint32_t type) {
    const auto streams = at<std::uint32_t>(bytes, 8);
    const auto folder = at<std::uint32_t>(bytes, 12);
    for (std::uint32_t i = 0; i < streams; ++i)
        if (at<std::uint32_t>(bytes, folder + 12 * i) == type)
            return at<std::uint32_t>(bytes, folder + 12 * i + 8);
    return 0;
}

// The exception code in the exception stream of a minidump, 0 if there is none.
std::uint32_t codeInMinidump(const std::string& bytes) {
    constexpr std::uint32_t kExceptionStream = 6;
    const std::uint32_t stream = streamIn(bytes, kExceptionStream);
    return stream != 0 ? at<std::uint32_t>(bytes, stream + 8) : 0;
}

bool hasGdb() {
    return !kWindows && std::system("gdb --version >/dev/null 2>&1") == 0;
}

std::string gdb(const fs::path& program, const fs::path& dump,
                const std::vector<std::string>& commands) {
    std::vector<std::string> arguments = {"-nx", "-batch"};
    for (const std::string& command : commands)
        arguments.insert(arguments.end(), {"-ex", command});
    arguments.insert(arguments.end(), {program.string(), dump.string()});
    return toolTest::run("/usr/bin/gdb", arguments).out;
}

// The line of a frame in a debugger's list; empty if there is none.
std::string frameOf(const std::string& stack, int number) {
    const std::string head = "\n#" + std::to_string(number) + " ";
    const std::size_t start = stack.find(head);
    if (start == std::string::npos)
        return {};
    return stack.substr(start + 1, stack.find('\n', start + 1) - start - 1);
}

// The heap is in full dumps alone.
constexpr char kTextOfTheHeap[] = "kept in the heap of the host";

// A dump in whose frame `frame` the function stands.
void expectDumpOf(const HostFolder& host, const fs::path& dump, const std::string& code,
                  const std::string& function, int frame = 0) {
    const std::string bytes = toolTest::readFile(dump);
#ifndef VDREADER_SANITIZED // whose functions leave copies on the stack
    EXPECT_EQ(bytes.find(kTextOfTheHeap) != std::string::npos,
              dump.filename().string().substr(0, 4) == "full");
#endif
    if (kWindows) {
        EXPECT_EQ(bytes.substr(0, 4), "MDMP");
        EXPECT_EQ(codeInMinidump(bytes), std::stoul(code, nullptr, 16));
        return;
    }
    EXPECT_EQ(bytes.substr(1, 3), "ELF");
    if (!hasGdb())
        GTEST_SKIP() << "there is no gdb";
    const std::string stack = gdb(host.program(), dump, {"bt 8"});
    EXPECT_NE(frameOf(stack, frame).find(function + " ("), std::string::npos) << stack;
    EXPECT_NE(stack.find("Program terminated with signal"), std::string::npos) << stack;
}

// The first frames of the report, as many as that.
std::vector<std::string> firstFrames(const std::string& log, std::size_t most) {
    std::vector<std::string> frames;
    std::size_t at = log.find("Address:              Frame:");
    while (at != std::string::npos && frames.size() < most) {
        at = log.find("[CallStack] ", at);
        if (at == std::string::npos)
            break;
        const std::size_t end = log.find('\n', at);
        frames.push_back(log.substr(at, end - at));
        at = end;
    }
    return frames;
}

// Kind, and where it happens.
class Postmortem : public testing::TestWithParam<std::tuple<Kind, const char*>> {};

std::string nameOf(const testing::TestParamInfo<std::tuple<Kind, const char*>>& info) {
    return std::string(std::get<0>(info.param).name) + "_" + std::get<1>(info.param);
}

// Why a kind cannot be seen here; null: it can.
const char* whyNot([[maybe_unused]] const Kind& kind, [[maybe_unused]] const std::string& where) {
#ifdef VDREADER_SANITIZED
    if (std::strcmp(kind.name, "stackOverflow") == 0)
        return "a sanitizer has frames too large for its stack";
#endif
    // Each run takes seconds under Wine.
    const bool chosen = std::strcmp(kind.name, "nullRead") == 0 ||
                        std::strcmp(kind.name, "stackOverflow") == 0 ||
                        std::strcmp(kind.name, "inPage") == 0; // which a call raises there
    if (kWindows && where != "worker" && !chosen)
        return "Windows has this kind in the worker alone";
    return nullptr;
}

} // namespace

INSTANTIATE_TEST_SUITE_P(Faults, Postmortem,
                         testing::Combine(testing::ValuesIn(kKinds),
                                          testing::Values("main", "worker", "callback")),
                         nameOf);

TEST_P(Postmortem, LeavesReportAndDumpAndGoesOn) {
    const auto& [kind, where] = GetParam();
    if (const char* reason = whyNot(kind, where))
        GTEST_SKIP() << reason;
    HostFolder host;
    host.ini("auto=1\n");
    const toolTest::RunResult result = host.run(kind.name, where);
    EXPECT_EQ(result.code, 0) << result.out << result.err;
    EXPECT_NE(result.out.find("caught "), std::string::npos) << result.out;
    EXPECT_NE(result.out.find("goes on"), std::string::npos) << result.out;

    const std::string log = host.log();
    EXPECT_NE(log.find(std::string("Exception 0x") + kind.code + " occurred at address 0x"),
              std::string::npos)
        << log;
    const std::size_t stack = log.find("[CallStack] ------------- Begin");
    ASSERT_NE(stack, std::string::npos) << log;
    // The debug help library of Wine finds no caller of the address 0.  An exception that is raised
    // by a call starts in the system.
    const bool jumps = std::strcmp(kind.name, "jump") == 0;
    const bool raised = kWindows && std::strcmp(kind.name, "inPage") == 0;
    if (!kWindows || !jumps) {
        const std::size_t wanted = raised ? 2 : 1;
        const std::vector<std::string> frames = firstFrames(log, wanted);
        ASSERT_EQ(frames.size(), wanted) << log;
        EXPECT_NE(frames.back().find(kind.function), std::string::npos) << log.substr(stack);
    }
    const std::vector<fs::path> dumps = host.dumps();
    ASSERT_EQ(dumps.size(), 1u);
    EXPECT_EQ(dumps[0].filename().string().substr(0, 4), "mini");
    expectDumpOf(host, dumps[0], kind.code, kind.function, jumps ? 1 : 0);
}

TEST(PostmortemHost, WithoutAutoDumpsThereIsTheReportAlone) {
    HostFolder host;
    const toolTest::RunResult result = host.run("nullRead", "main");
    EXPECT_EQ(result.code, 0) << result.out << result.err;
    EXPECT_NE(host.log().find("hostNullRead"), std::string::npos);
    EXPECT_TRUE(host.dumps().empty());
}

// No handler can be shown a signal that is blocked: the system ends the process.
TEST(PostmortemHost, FaultBehindBlockedSignalsEndsTheProcessWithoutAReport) {
    if (kWindows)
        GTEST_SKIP() << "there are no signals to block";
    HostFolder host;
    host.ini("auto=1\n");
    const toolTest::RunResult result = host.run("nullRead", "blocked");
    EXPECT_EQ(result.code, 1000 + SIGSEGV) << result.out << result.err;
    EXPECT_EQ(result.out.find("caught"), std::string::npos) << result.out;
    EXPECT_FALSE(fs::exists(host.home() / "events.log"));
    EXPECT_TRUE(host.dumps().empty());
}

TEST(PostmortemHost, FullDumpHasTheHeapAndAllThreads) {
#ifdef VDREADER_SANITIZED
    GTEST_SKIP() << "the shadow of a sanitizer makes it terabytes large";
#endif
    HostFolder host;
    host.ini("auto=1\nfulloncrash=1\n");
    const toolTest::RunResult result = host.run("nullWrite", "worker");
    EXPECT_EQ(result.code, 0) << result.out << result.err;
    const std::vector<fs::path> dumps = host.dumps();
    ASSERT_EQ(dumps.size(), 1u);
    EXPECT_EQ(dumps[0].filename().string().substr(0, 4), "full");
    expectDumpOf(host, dumps[0], "C0000005", "hostNullWrite");
    if (kWindows) {
        constexpr std::uint32_t kThreadList = 3, kMemory64List = 9;
        const std::string bytes = toolTest::readFile(dumps[0]);
        EXPECT_NE(streamIn(bytes, kMemory64List), 0u);
        ASSERT_NE(streamIn(bytes, kThreadList), 0u);
        EXPECT_GE(at<std::uint32_t>(bytes, streamIn(bytes, kThreadList)), 4u);
    } else if (hasGdb()) {
        const std::string shown =
            gdb(host.program(), dumps[0], {"x/s *(char**)&hostHeap", "info threads"});
        EXPECT_NE(shown.find(kTextOfTheHeap), std::string::npos) << shown;
        EXPECT_GE(count(shown, "LWP "), 4u) << shown;
    }
}

TEST(PostmortemHost, DebuggerSeesAllThreads) {
    if (!hasGdb())
        GTEST_SKIP() << "there is no gdb";
    HostFolder host;
    host.ini("auto=1\n");
    EXPECT_EQ(host.run("nullRead", "worker").code, 0);
    ASSERT_EQ(host.dumps().size(), 1u);
    const std::string shown =
        gdb(host.program(), host.dumps()[0], {"thread", "info threads", "thread apply all bt"});
    EXPECT_NE(shown.find("Current thread is 1 "), std::string::npos) << shown;
    // The failing thread, the main one, the one that writes, and another.
    EXPECT_GE(count(shown, "\nThread "), 4u) << shown;
    EXPECT_NE(shown.find("hostWaits ()"), std::string::npos) << shown;
}

#ifndef __SANITIZE_THREAD__ // which holds the signals back that stop a thread
#  ifndef _WIN32
#    ifndef VDREADER_SANITIZED // whose heap is another
// It is waited for some hundredths of a second, and reported where it stands.
TEST(PostmortemHost, ThreadThatStaysInAHeapOfItsOwnIsReportedAndEnded) {
    HostFolder host;
    toolTest::Child child(host.program().string(), {host.home().string(), "victim", "own", "1"});
    EXPECT_EQ(child.wait(), 0) << child.err();
    EXPECT_EQ(child.out(), "holds\nended\n");
    EXPECT_NE(host.log().find("[Func=hostHoldsHeap"), std::string::npos) << host.log();
}

// Whoever allocates waits for ever then, and the one who ends it allocates.
TEST(PostmortemHost, ThreadThatStaysInTheHeapOfAllStopsItsReport) {
    HostFolder host;
    toolTest::Child child(host.program().string(), {host.home().string(), "victim", "shared", "1"});
    EXPECT_TRUE(child.waitUntil([&] { return child.out() == "holds\n"; }));
    std::this_thread::sleep_for(std::chrono::seconds(2));
    EXPECT_EQ(child.out(), "holds\n");
    child.signal(SIGTERM);
    EXPECT_EQ(child.wait(), 1000 + SIGTERM);
}
#    endif
#  else
// The first line of its end takes memory already.
TEST(PostmortemHost, EndOfAThreadThatHoldsTheProcessesHeapWaitsUntilItLetsGo) {
    HostFolder host;
    toolTest::Child child(host.program().string(), {host.home().string(), "victim", "shared", "1"});
    EXPECT_TRUE(child.waitUntil([&] { return child.out() == "holds\n"; }));
    std::this_thread::sleep_for(std::chrono::seconds(2));
    EXPECT_EQ(child.out(), "holds\n");
    EXPECT_EQ(host.log().find("NTerminateThread"), std::string::npos) << host.log();
    write(host.home() / "release", "");
    EXPECT_EQ(child.wait(), 0) << child.err();
    EXPECT_EQ(child.out(), "holds\nended\n");
    EXPECT_NE(host.log().find("NTerminateThread. Terminating thread "), std::string::npos);
}
#  endif
#endif

TEST(PostmortemHost, RequestedDumpShowsItsOwnThread) {
    HostFolder host;
    const toolTest::RunResult result = host.run("request", "main");
    EXPECT_EQ(result.code, 0) << result.out << result.err;
    EXPECT_EQ(result.out.find("caught"), std::string::npos);
    const std::vector<fs::path> dumps = host.dumps();
    ASSERT_EQ(dumps.size(), 1u);
    EXPECT_EQ(dumps[0].filename().string().substr(0, 4), "mini");
    expectDumpOf(host, dumps[0], "C0000005", "faultOnPurpose");
}

namespace {

// What the host tells of its use: handles, threads, bytes, mappings.
std::vector<std::vector<long long>> usesIn(const std::string& out) {
    std::vector<std::vector<long long>> uses;
    for (std::size_t found = out.find("use "); found != std::string::npos;
         found = out.find("use ", found + 1)) {
        std::istringstream numbers(out.substr(found + 4, out.find('\n', found) - found - 4));
        uses.emplace_back(std::istream_iterator<long long>(numbers),
                          std::istream_iterator<long long>());
    }
    return uses;
}

} // namespace

// With dumps, each of which takes Wine's library seconds, and without.
class PostmortemRow : public testing::TestWithParam<bool> {};

INSTANTIATE_TEST_SUITE_P(Hosts, PostmortemRow, testing::Bool(), [](const auto& info) {
    return info.param ? "WithDumps" : "WithoutDumps";
});

TEST_P(PostmortemRow, FaultsLeaveReportsAndNothingElse) {
#ifdef __SANITIZE_THREAD__
    GTEST_SKIP() << "the thread checker misses the end of a thread that has failed so often";
#endif
    HostFolder host;
    host.ini(GetParam() ? "auto=1\n" : "auto=0\n");
    const int times = !kWindows ? 100 : GetParam() ? 4 : 20;
    const toolTest::RunResult result = host.run("nullRead", "worker", times);
    EXPECT_EQ(result.code, 0) << result.err;
    EXPECT_EQ(count(result.out, "caught "), static_cast<std::size_t>(times));
    EXPECT_EQ(count(host.log(), "SEH exception catched."), static_cast<std::size_t>(times));
    EXPECT_EQ(host.dumps().size() > 1, GetParam());

    const auto uses = usesIn(result.out);
    ASSERT_EQ(uses.size(), 2u) << result.out;
    ASSERT_EQ(uses[0].size(), 4u) << result.out;
    ASSERT_EQ(uses[1].size(), 4u) << result.out;
    // Windows makes some where two threads first meet at a lock.
    EXPECT_LE(uses[1][0] - uses[0][0], kWindows ? 10 : 0) << "handles";
    EXPECT_EQ(uses[1][1], uses[0][1]) << "threads";
#ifndef VDREADER_SANITIZED
    // Wine's library keeps something above a kilobyte for each time that it loads symbols.
    EXPECT_LT(uses[1][2] - uses[0][2], kWindows ? times * 4096 : 1 << 16) << "bytes";
    EXPECT_LE(uses[1][3] - uses[0][3], 4) << "mappings";
#endif
}

TEST(PostmortemHost, PercentOfThePathIsAConversion) {
    HostFolder host("100%s%d%x%s%sabc");
    EXPECT_EQ(host.run("nullRead", "main").code, 0);
    const std::string log = host.log();
    const std::size_t text = log.find("Exception 0xC0000005");
    ASSERT_NE(text, std::string::npos);
    const std::string line = log.substr(text, log.find('\n', text) - text);
    EXPECT_NE(line.find("100(null)00(null)(null)abc"), std::string::npos) << line;
    EXPECT_EQ(line.find('%'), std::string::npos) << line;
}

// The libraries of a stack report as a test writes them: frames, modules, symbols, and failures.
//
// One object at a time; it puts the process's own back.

#pragma once

#include <cstdint>
#include <cstring>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "diagnostics/StackWalker.h"
#include "diagnostics/stackLibraries.h"
#include "diagnostics/walkerState.h"
#include "platform/context.h"
#include "platform/error.h"
#include "support/scopedThreadCalls.h"

struct FakeFrame {
    std::uint64_t programCounter;
    std::uint64_t returnAddress;
    std::uint64_t frame = 0;
};

struct FakeModule {
    std::string path;
    std::string name;
    std::uint64_t base;
    std::uint32_t size;
    std::uint32_t symType = 0;
    std::string pdb;
    std::string image; // the loaded one
};

struct FakeSymbol {
    std::string name;
    std::string file;
    std::uint32_t line = 0;
    std::uint64_t displacement = 1;
    std::uint32_t lineDisplacement = 2;
};

// What the functions give, and what became of them.
struct FakeDebugHelp {
    std::vector<FakeFrame> frames;
    std::vector<FakeModule> modules;
    std::map<std::uint64_t, FakeSymbol> symbols; // by address
    std::set<std::string> failing;               // functions by their names
    std::uint32_t failure = 0;                   // the last error that these leave
    std::uint32_t longestRecord = platform::kModuleInfoLong;
    std::uint32_t options = 0x40;
    std::map<std::string, std::string> undecorated; // name and flags: "f 4096"
    std::string version;                            // the bytes of a file's version

    std::vector<std::string> calls; // in their order, with what matters of the arguments
    std::vector<std::uint32_t> recordSizes;
    std::set<platform::ProcessHandle> processes; // that functions were given
    std::set<void*> threads;                     // that StackWalk64 was given
    std::size_t news = 0;                        // calls of operator new in the functions
    std::uint32_t writtenBehind = 0; // bytes that module look-ups write behind their record
    platform::StackFrame64 firstFrame = {};
    platform::ThreadContext context = {};
    std::size_t next = 0;
    std::size_t nextModule = 0;

    int count(const std::string& call) const {
        int found = 0;
        for (const std::string& made : calls)
            found += made.compare(0, call.size(), call) == 0;
        return found;
    }
};

// Keeps lines and calls of the virtual functions in one list.
class RecordingOutput : public velt::callstack::Output {
  public:
    void writeLine(const char* text) override { lines.emplace_back(text); }
    std::vector<std::string> lines;
};

class StackFixture {
  public:
    StackFixture();
    ~StackFixture();
    StackFixture(const StackFixture&) = delete;
    StackFixture& operator=(const StackFixture&) = delete;

    // Walks the fake frames; the lines that come.
    std::vector<std::string> walk(const void* context, bool* result = nullptr);
    // The lines of the stack alone, without those around them.
    std::vector<std::string> walkFrames();

    FakeDebugHelp& help();
    // A context whose instruction pointer and stack pointer are these.
    static platform::ThreadContext contextOf(std::uint64_t instruction, std::uint64_t stack);
    static void setFramePointer(platform::ThreadContext& context, std::uint64_t value);

  private:
    ScopedThreadCalls m_threadCalls;
    StackLibraries m_libraries;
    platform::DebugCalls m_debugCalls;
    bool m_usable;
};

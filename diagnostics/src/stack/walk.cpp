// The walk: its order of events and its ends.

#include <cstdlib>
#include <cstring>
#include <memory>

#include "diagnostics/stackLibraries.h"
#include "diagnostics/walkerState.h"
#include "platform/context.h"
#include "platform/error.h"
#include "platform/thread.h"

namespace velt::callstack {

namespace {

using platform::debugCalls;
using platform::threadCalls;

constexpr std::uint32_t kDllInitFailed = 1114;
// Lines with the symbols, and no message boxes.
constexpr std::uint32_t kSymbolOptions = 0x210;
constexpr std::uint32_t kNameOnly = 0x1000;

struct Released {
    void operator()(void* block) const { std::free(block); }
};
using Symbol = std::unique_ptr<platform::SymbolRecord, Released>;

constexpr platform::SymbolRecord kEmptySymbol = {platform::kSymbolHead, 0, 0, 0,
                                                 platform::kSymbolName, {}};

// Null where memory is short.
Symbol makeSymbol() {
    Symbol symbol(
        static_cast<platform::SymbolRecord*>(std::malloc(sizeof(platform::SymbolRecord))));
    if (symbol != nullptr)
        *symbol = kEmptySymbol;
    return symbol;
}

template <std::size_t Size>
void copyText(char (&out)[Size], const char* text) {
    const std::size_t length = strnlen(text, Size - 1);
    std::memcpy(out, text, length);
    out[length] = '\0';
}

void clear(FrameEntry& entry) {
    entry.symbolName[0] = entry.shortName[0] = entry.fullName[0] = '\0';
    entry.sourceFile[0] = entry.moduleName[0] = entry.imagePath[0] = '\0';
    entry.symbolDisplacement = entry.moduleBase = 0;
    entry.lineDisplacement = entry.lineNumber = 0;
    entry.symbolTypeText = "";
}

// The context of a walk that was given none.  False where another thread's cannot be read; that
// thread runs again then.
bool readContext(platform::ThreadHandle thread, platform::ThreadContext& out) {
    if (threadCalls.threadIdOf(thread) != platform::threadId()) {
        threadCalls.suspend(thread);
        std::memset(&out, 0, sizeof out);
        if (threadCalls.contextOf(thread, platform::kContextOfWalk, &out))
            return true;
        threadCalls.resume(thread);
        return false;
    }
    std::memset(&out, 0, sizeof out);
    platform::captureContext(out);
    return true;
}

platform::StackFrame64 firstFrame(const platform::ThreadContext& context) {
    platform::StackFrame64 frame = {};
    frame.programCounter = {platform::instructionPointer(context), 0, platform::kAddressModeFlat};
    frame.frame = frame.stack = {platform::stackPointer(context), 0, platform::kAddressModeFlat};
    return frame;
}

// A name as the library undecorates it; where it gives the name back as it is, or fails, by this
// system's own means.
void undecorate(const char* name, char (&out)[kTextSize], std::uint32_t flags) {
    const std::uint32_t length =
        stackLibraries().debugHelp.unDecorateSymbolName(name, out, kTextSize, flags);
    out[kTextSize - 1] = '\0';
    if (length == 0)
        out[0] = '\0';
    if (length == 0 || std::strcmp(out, name) == 0)
        platform::demangledName(name, out, kTextSize, flags == kNameOnly);
}

} // namespace

// The frames of one stack, from the first to the one that ends it.
class FrameLoop {
  public:
    FrameLoop(StackWalker& walker, const WalkerState& state, Output& output,
              platform::ThreadHandle thread, platform::ThreadContext& context,
              platform::SymbolRecord& symbol)
        : m_walker(walker),
          m_state(state),
          m_output(output),
          m_thread(thread),
          m_context(context),
          m_symbol(symbol),
          m_frame(firstFrame(context)) {}

    void run();

  private:
    // What became of one frame.
    enum class Outcome { further, last, failed };

    Outcome next();
    bool repeatsForEver();
    void look();
    void lookForSymbol();
    void lookForLine();
    void lookForModule();

    StackWalker& m_walker;
    const WalkerState& m_state;
    Output& m_output;
    platform::ThreadHandle m_thread;
    platform::ThreadContext& m_context;
    platform::SymbolRecord& m_symbol;
    platform::StackFrame64 m_frame;
    platform::LineRecord m_line = {};
    platform::ModuleInfo64 m_module = {};
    FrameEntry m_entry = {};
    std::int32_t m_repeats = 0;
    std::int32_t m_number = 0;
    bool m_reported = false;
};

bool FrameLoop::repeatsForEver() {
    if (m_frame.programCounter.offset != m_frame.returnAddress.offset) {
        m_repeats = 0;
        return false;
    }
    if (m_state.maxRepeats > 0 && m_repeats > m_state.maxRepeats)
        return true;
    ++m_repeats;
    return false;
}

void FrameLoop::lookForSymbol() {
    const DbgHelpLibrary& library = stackLibraries().debugHelp;
    if (library.symGetSymFromAddr64(m_state.process, m_entry.address, &m_entry.symbolDisplacement,
                                    &m_symbol) == 0)
        return;
    copyText(m_entry.symbolName, m_symbol.name);
    undecorate(m_entry.symbolName, m_entry.shortName, kNameOnly);
    undecorate(m_entry.symbolName, m_entry.fullName, 0);
}

void FrameLoop::lookForLine() {
    const DbgHelpLibrary& library = stackLibraries().debugHelp;
    m_line.size = sizeof m_line;
    if (library.symGetLineFromAddr64 == nullptr ||
        library.symGetLineFromAddr64(m_state.process, m_entry.address, &m_entry.lineDisplacement,
                                     &m_line) == 0)
        return;
    m_entry.lineNumber = m_line.number;
    copyText(m_entry.sourceFile, m_line.file);
}

void FrameLoop::lookForModule() {
    if (!m_walker.findModuleInfo(m_state.process, m_entry.address, m_module)) {
        m_walker.reportError("SymGetModuleInfo64", platform::lastError(), m_entry.address);
        return;
    }
    m_entry.symbolTypeText = symbolTypeText(m_module.symType);
    copyText(m_entry.moduleName, m_module.moduleName);
    m_entry.moduleBase = m_module.base;
    copyText(m_entry.imagePath, m_module.loadedImageName);
}

void FrameLoop::look() {
    if (m_entry.address == 0)
        return;
    lookForSymbol();
    lookForLine();
    lookForModule();
}

FrameLoop::Outcome FrameLoop::next() {
    const DbgHelpLibrary& library = stackLibraries().debugHelp;
    if (library.stackWalk64(platform::kMachineAmd64, m_state.process, m_thread, &m_frame,
                            &m_context, debugCalls.readMemory, library.symFunctionTableAccess64,
                            library.symGetModuleBase64, nullptr) == 0) {
        // Deliberate: without the last error: a stack that ends without a return address of 0 is no
        // failure of a call, and tools compare the line.
        m_walker.reportError("StackWalk64", 0, m_frame.programCounter.offset);
        return Outcome::failed;
    }
    clear(m_entry);
    m_entry.address = m_frame.programCounter.offset;
    m_entry.frame = m_frame.frame.offset;
    if (repeatsForEver()) {
        m_walker.reportError("StackWalk64-Endless-CallStack!", 0, m_frame.programCounter.offset);
        return Outcome::failed;
    }
    look();
    m_walker.reportFrame(m_number == 0 ? FrameKind::first : FrameKind::further, m_entry);
    m_reported = true;
    if (m_frame.returnAddress.offset == 0)
        return Outcome::last;
    ++m_number;
    return Outcome::further;
}

void FrameLoop::run() {
    m_output.beginStack();
    Outcome outcome = Outcome::further;
    while (outcome == Outcome::further)
        outcome = next();
    if (outcome == Outcome::last) {
        m_walker.reportFrame(FrameKind::closing, m_entry);
        platform::setLastError(0);
        m_output.endStack();
        return;
    }
    m_output.endStack();
    if (m_reported)
        m_walker.reportFrame(FrameKind::closing, m_entry);
}

namespace {

// Symbols and the list of modules.
void loadModules(StackWalker& walker, WalkerState& state, Output& output) {
    const DbgHelpLibrary& library = stackLibraries().debugHelp;
    if (state.owner == nullptr || library.handle == nullptr) {
        walker.reportError("Error while initializing dbghelp.dll", 0, 0);
        platform::setLastError(kDllInitFailed);
        return;
    }
    if (library.symInitialize(state.process, nullptr, 0) == 0)
        walker.reportError("SymInitialize", platform::lastError(), 0);
    library.symSetOptions(library.symGetOptions() | kSymbolOptions);
    output.beginModules();
    if (state.enumerateModules())
        state.modulesLoaded = true;
    output.endModules();
}

// Lets the thread of a walk that was given no context run again, also where an output raises.
class Resumer {
  public:
    // Deliberate: the calling thread too, which nobody has suspended.  For it the call does
    // nothing.
    Resumer(const void* given, platform::ThreadHandle thread)
        : m_resumes(given == nullptr), m_thread(thread) {}
    ~Resumer() {
        if (m_resumes)
            threadCalls.resume(m_thread);
    }
    Resumer(const Resumer&) = delete;
    Resumer& operator=(const Resumer&) = delete;

  private:
    bool m_resumes;
    platform::ThreadHandle m_thread;
};

} // namespace

bool StackWalker::walk(const void* given, platform::ThreadHandle thread) {
    if (!state->modulesLoaded)
        loadModules(*this, *state, *output);
    if (stackLibraries().debugHelp.handle == nullptr) {
        platform::setLastError(kDllInitFailed);
        return false;
    }
    platform::ThreadContext context;
    if (given != nullptr)
        platform::copyContext(context, given);
    else if (!readContext(thread, context))
        return false;
    // Deliberate: another thread stays suspended where memory is short here: what it holds may be
    // what the heap waits for, and its owner is about to end it.
    const Symbol symbol = makeSymbol();
    if (symbol == nullptr)
        return false;
    const Resumer resumer(given, thread);
    FrameLoop(*this, *state, *output, thread, context, *symbol).run();
    return true;
}

} // namespace velt::callstack

// A stack walker: the list of modules and the frames of one processor context as lines of text.
//
// StackWalker decides what comes when, Output how a line looks and where it goes.  Walks and lines
// raise nothing: where the debug help library fails, a line says so or the result is false, and
// blocks are taken from the plain heap alone.  Only constructors raise std::bad_alloc.
// What a derived class or a log raises passes through a walk, which lets a suspended thread run on.
// Walks are kept apart by dumpLock (stackReport.h); the tables of virtual functions are those that
// other components derive from.

#pragma once

#include <cstdint>
#include <functional>
#include <memory>

#include "platform/context.h"
#include "platform/debugHelp.h"
#include "platform/threadControl.h"

namespace velt::callstack {

// The lines of a report.  The first six functions make a line and hand it to writeLine.
class Output {
  public:
    virtual void beginModules();               // ">>=========== Module List ============"
    virtual void moduleLine(const char* text); // "[ModuleList] " and the text
    virtual void endModules();                 // "<<=========== Module List ============"
    virtual void beginStack();                 // ">>============ Call Stack ============"
    virtual void stackLine(const char* text);  // "[CallStack] " and the text
    virtual void endStack();                   // "<<============ Call Stack ============"
    virtual void writeLine(const char* text);  // to standard output, with a line end, flushed
};

// Which call of reportFrame it is.
enum class FrameKind : std::int32_t {
    first = 0,
    further = 1,
    closing = 2, // behind the last frame, with that frame's entry
};

inline constexpr std::size_t kTextSize = 1024;

// One frame.  The texts are terminated; what could not be found is empty or 0.
struct FrameEntry {
    std::uint64_t address; // program counter
    std::uint64_t frame;   // frame address
    char symbolName[kTextSize];
    char shortName[kTextSize]; // undecorated, the name alone
    char fullName[kTextSize];  // undecorated, whole
    std::uint64_t symbolDisplacement;
    std::uint32_t lineDisplacement;
    std::uint32_t lineNumber;
    char sourceFile[kTextSize];
    const char* symbolTypeText;
    char moduleName[kTextSize];
    std::uint64_t moduleBase;
    char imagePath[kTextSize];
};

struct WalkerState;

class StackWalker {
  public:
    // For a process by its identifier and its handle; lines go to a plain Output.
    StackWalker(std::uint32_t processId, platform::ProcessHandle process);
    StackWalker(const StackWalker&) = delete;
    StackWalker& operator=(const StackWalker&) = delete;

    // Lets the symbols of the process go (SymCleanup).
    virtual ~StackWalker();

    // "PATH:NAME (0xBASE), size: N, SymType: 'TYPE', PDB: 'FILE'", and ", fileVersion: A.B.C.D" if
    // the version is not 0; cut at 1023 characters, to moduleLine.
    virtual void reportModule(const char* imagePath, const char* moduleName, std::uint64_t base,
                              std::uint32_t size, const char* symbolTypeText, const char* pdbName,
                              std::uint64_t fileVersion);

    // One line, cut at 1023 characters, to stackLine; nothing for a closing call and for address 0.
    virtual void reportFrame(FrameKind kind, const FrameEntry& entry);

    // "ERROR: WHAT, GetLastError: N (Address: P)", cut at 1023 characters, to writeLine.
    virtual void reportError(const char* what, std::uint32_t errorCode, std::uint64_t address);

    void setOutput(std::shared_ptr<Output> output);

    // Writes the list of modules, if no walk of this object has, and the stack of `context` (the
    // system's, see platform/context.h; null: the present one of `thread`, which is suspended for
    // it if it is not the calling one).  False with 1114 as the last error where the debug help
    // library is missing; false also where the thread's context cannot be read or memory is short.
    bool walk(const void* context, platform::ThreadHandle thread);

    // The module of an address.  `record` comes in the long form (`size` 1672) or the short one
    // (584).  False with 1114 as the last error where neither can be had, with 8 where memory is
    // short.
    bool findModuleInfo(platform::ProcessHandle process, std::uint64_t address,
                        platform::ModuleInfo64& record);

  private:
    friend struct WalkerState;

    WalkerState* state;
    std::shared_ptr<Output> output;
};

} // namespace velt::callstack

namespace velt::se {

class Output : public callstack::Output {
  public:
    virtual void beginExtra() = 0;
    virtual void extraLine(const char* text) = 0;
    virtual void endExtra() = 0;
};

} // namespace velt::se

namespace sarn {

// Writes a report to the event log.
class ExceptionHandlerOutput : public velt::se::Output {
  public:
    explicit ExceptionHandlerOutput(std::function<void(const char*)> report);

    void beginModules() override;               // "[ModuleList] ------------- Begin -------------"
    void moduleLine(const char* text) override; // "[ModuleList] " and the text
    void endModules() override;                 // "[ModuleList] ------------- End ---------------"
    void beginStack() override;                 // the same for "[CallStack] ", with a head
    void stackLine(const char* text) override;  // "[CallStack] " and the text
    void endStack() override;                   // "[CallStack] ------------- End ---------------"
    void writeLine(const char* text) override;  // event(text): each "%" begins a conversion
    void beginExtra() override;                 // nothing
    void extraLine(const char* text) override;  // writeLine
    void endExtra() override;                   // nothing

  private:
    std::function<void(const char*)> callback; // kept for whoever owns it, never called
};

} // namespace sarn

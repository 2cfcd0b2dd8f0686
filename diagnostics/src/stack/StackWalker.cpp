// A walker's life and the text of its lines.

#include "diagnostics/StackWalker.h"

#include <utility>

#include "diagnostics/stackLibraries.h"
#include "diagnostics/walkerState.h"
#include "stackText.h"

namespace velt::callstack {

namespace {

const char* firstOf(const char* a, const char* b, const char* c = "") {
    return *a != '\0' ? a : *b != '\0' ? b : c;
}

unsigned group(std::uint64_t version, int number) {
    return static_cast<unsigned>(version >> (16 * number) & 0xffff);
}

const void* pointer(std::uint64_t address) {
    return reinterpret_cast<const void*>(address);
}

} // namespace

// The state comes last: nobody frees it where what follows raises.
StackWalker::StackWalker(std::uint32_t processId, platform::ProcessHandle process)
    : state(nullptr), output(std::make_shared<Output>()) {
    state = new WalkerState{.owner = this, .process = process, .processId = processId};
}

StackWalker::~StackWalker() {
    const DbgHelpLibrary& library = stackLibraries().debugHelp;
    if (library.handle != nullptr)
        library.symCleanup(state->process);
    delete state;
}

void StackWalker::setOutput(std::shared_ptr<Output> wanted) {
    output = std::move(wanted);
}

void StackWalker::reportModule(const char* imagePath, const char* moduleName, std::uint64_t base,
                               std::uint32_t size, const char* symbolTypeText, const char* pdbName,
                               std::uint64_t fileVersion) {
    char text[kTextSize];
    if (fileVersion == 0)
        printText(text, "%s:%s (0x%p), size: %d, SymType: '%s', PDB: '%s'", imagePath, moduleName,
                  pointer(base), static_cast<int>(size), symbolTypeText, pdbName);
    else
        printText(text,
                  "%s:%s (0x%p), size: %d, SymType: '%s', PDB: '%s', fileVersion: %d.%d.%d.%d",
                  imagePath, moduleName, pointer(base), static_cast<int>(size), symbolTypeText,
                  pdbName, group(fileVersion, 3), group(fileVersion, 2), group(fileVersion, 1),
                  group(fileVersion, 0));
    output->moduleLine(text);
}

void StackWalker::reportFrame(FrameKind kind, const FrameEntry& entry) {
    if (kind == FrameKind::closing || entry.address == 0)
        return;
    char text[kTextSize];
    printText(text, "0x%016llx  0x%016llx  [Module=\"%s\"] [Source=\"%s\":%d] [Func=%s]",
              static_cast<unsigned long long>(entry.address),
              static_cast<unsigned long long>(entry.frame),
              firstOf(entry.imagePath, entry.moduleName), entry.sourceFile,
              static_cast<int>(entry.lineNumber),
              firstOf(entry.fullName, entry.shortName, entry.symbolName));
    output->stackLine(text);
}

void StackWalker::reportError(const char* what, std::uint32_t errorCode, std::uint64_t address) {
    char text[kTextSize];
    printText(text, "ERROR: %s, GetLastError: %d (Address: %p)", what, static_cast<int>(errorCode),
              pointer(address));
    output->writeLine(text);
}

} // namespace velt::callstack

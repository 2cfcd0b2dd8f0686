// Candidates and functions of the three libraries.

#include "diagnostics/stackLibraries.h"

#include <vector>

#include "diagnostics/stackReport.h"
#include "platform/calls.h"
#include "platform/lasting.h"

namespace {

using platform::libraryCalls;

template <class Function>
bool take(platform::LibraryHandle library, const char* name, Function& function) {
    function = reinterpret_cast<Function>(libraryCalls.symbol(library, name));
    return function != nullptr;
}

// The program's folder: its path up to the last backslash, or all of it.
std::string programFolder() {
    char path[512] = {};
    std::string folder(path, platform::calls.executablePath(path, sizeof path));
    const std::size_t end = folder.rfind('\\');
    return end != std::string::npos ? folder.substr(0, end) : folder;
}

std::vector<std::string> debugHelpCandidates() {
    std::vector<std::string> candidates = {programFolder() + "\\dbghelp.dll"};
    for (const char* const folder :
         {"Debugging Tools for Windows (x64)", "Debugging Tools for Windows",
          "Debugging Tools for Windows 64-Bit"}) {
        char programs[4096] = {};
        const std::size_t length =
            libraryCalls.environment("ProgramFiles", programs, sizeof programs);
        if (length != 0)
            candidates.push_back(std::string(programs) + "\\" + folder + "\\dbghelp.dll");
    }
    candidates.emplace_back("dbghelp.dll");
    return candidates;
}

bool takeDebugHelp(platform::LibraryHandle library, platform::DebugHelpFunctions& out) {
    bool whole = take(library, "SymInitialize", out.symInitialize);
    whole &= take(library, "SymCleanup", out.symCleanup);
    whole &= take(library, "StackWalk64", out.stackWalk64);
    whole &= take(library, "SymGetOptions", out.symGetOptions);
    whole &= take(library, "SymSetOptions", out.symSetOptions);
    whole &= take(library, "SymFunctionTableAccess64", out.symFunctionTableAccess64);
    take(library, "SymGetLineFromAddr64", out.symGetLineFromAddr64);
    whole &= take(library, "SymGetModuleBase64", out.symGetModuleBase64);
    whole &= take(library, "SymGetModuleInfo64", out.symGetModuleInfo64);
    whole &= take(library, "SymGetSymFromAddr64", out.symGetSymFromAddr64);
    whole &= take(library, "UnDecorateSymbolName", out.unDecorateSymbolName);
    whole &= take(library, "SymLoadModule64", out.symLoadModule64);
    take(library, "SymGetSearchPath", out.symGetSearchPath);
    return whole;
}

bool takeToolHelp(platform::LibraryHandle library, platform::ToolHelpFunctions& out) {
    bool whole = take(library, "CreateToolhelp32Snapshot", out.createToolhelp32Snapshot);
    whole &= take(library, "Module32First", out.module32First);
    whole &= take(library, "Module32Next", out.module32Next);
    return whole;
}

bool takeProcessStatus(platform::LibraryHandle library, platform::ProcessStatusFunctions& out) {
    bool whole = take(library, "EnumProcessModules", out.enumProcessModules);
    whole &= take(library, "GetModuleFileNameExA", out.getModuleFileNameExA);
    whole &= take(library, "GetModuleBaseNameA", out.getModuleBaseNameA);
    whole &= take(library, "GetModuleInformation", out.getModuleInformation);
    return whole;
}

// Tries one candidate; true if it loads, whatever it has.
template <class Record>
bool loadCandidate(Record& record, const std::string& path) {
    record.path = path;
    record.handle = libraryCalls.load(path.c_str());
    return record.handle != nullptr;
}

// Frees the module; the functions of a library that is not loaded are not asked for.
template <class Record>
void releaseModule(Record& record) {
    if (record.handle == nullptr)
        return;
    libraryCalls.release(record.handle);
    record.handle = nullptr;
}

// The first of the candidates that has all the functions stays.
template <class Record, class Take>
bool loadFirstWhole(Record& record, std::initializer_list<const char*> candidates, Take takeAll) {
    for (const char* const candidate : candidates) {
        if (record.handle != nullptr)
            break;
        if (loadCandidate(record, candidate) && !takeAll(record.handle, record))
            releaseModule(record);
    }
    return record.handle != nullptr;
}

template <class Record>
void releaseRecord(Record& record) {
    releaseModule(record);
    std::string().swap(record.path); // its memory too
}

} // namespace

bool DbgHelpLibrary::load() {
    if (handle != nullptr)
        return true;
    for (const std::string& candidate : debugHelpCandidates()) {
        if (!loadCandidate(*this, candidate))
            continue;
        // Deliberate: a library that lacks a function ends the search, though a later candidate may
        // have it; reports of a host are made by the library beside it or not at all.
        if (!takeDebugHelp(handle, *this))
            releaseModule(*this);
        break;
    }
    return handle != nullptr;
}

bool ToolHelpLibrary::load() {
    return loadFirstWhole(*this, {"kernel32.dll", "tlhelp32.dll"}, takeToolHelp);
}

bool PsapiLibrary::load() {
    return loadFirstWhole(*this, {"psapi.dll"}, takeProcessStatus);
}

void DbgHelpLibrary::release() {
    releaseRecord(*this);
}
void ToolHelpLibrary::release() {
    releaseRecord(*this);
}
void PsapiLibrary::release() {
    releaseRecord(*this);
}

StackLibraries& stackLibraries() {
    static const platform::Lasting<StackLibraries> libraries;
    return libraries.get();
}

void loadStackLibraries() {
    stackLibraries().debugHelp.load();
    stackLibraries().toolHelp.load();
    stackLibraries().processStatus.load();
}

void releaseStackLibraries() noexcept {
    const std::unique_lock guard(dumpLock(), std::try_to_lock);
    if (!guard.owns_lock())
        return;
    stackLibraries().processStatus.release();
    stackLibraries().toolHelp.release();
    stackLibraries().debugHelp.release();
}

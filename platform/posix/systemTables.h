// The functions behind the names of libraries that only Windows has; see platform/library.h.
//
// A library may have several sources of functions, each with the file that owns them: a new one is
// a finder here and a line in library.cpp.

#pragma once

namespace platform {

// A function under its name, as the tables of the finders hold it.
struct SystemFunction {
    const char* name;
    void* address;
};

// Finds a function among those of one source by its exact name; null if there is none.
using SystemFinder = void* (*)(const char* name);

template <class Function>
void* addressOf(Function* function) noexcept {
    return reinterpret_cast<void*>(function);
}

void* findFunction(const SystemFunction* first, const SystemFunction* end,
                   const char* name) noexcept;

template <int Count>
void* findFunction(const SystemFunction (&table)[Count], const char* name) noexcept {
    return findFunction(table, table + Count, name);
}

void* findDebugHelp(const char* name);     // dbghelp.dll: debugHelp.cpp
void* findToolHelp(const char* name);      // kernel32.dll: modules.cpp
void* findProcessStatus(const char* name); // psapi.dll: modules.cpp
void* findDumpWriter(const char* name);    // dbghelp.dll: MiniDumpWriteDump
void* findThreadControl(const char* name); // kernel32.dll: GetThreadId

} // namespace platform

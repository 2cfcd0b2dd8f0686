// Libraries of the system that are looked for at run time, and their functions.
//
// Windows: the loader's own.  Linux: names of libraries that only Windows has ("dbghelp.dll",
// "kernel32.dll", "psapi.dll") without a folder stand for tables of this layer, whose functions do
// the same work by other means; the logic above looks all of them up in the same way.

#pragma once

#include <cstddef>
#include <cstdint>

namespace platform {

using LibraryHandle = void*;

struct LibraryCalls {
    // Loads a library by name (LoadLibraryA), null on failure.
    LibraryHandle (*load)(const char* name);
    // One that is loaded already (GetModuleHandleA), null if it is not.
    LibraryHandle (*loaded)(const char* name);
    // The address of an exported function (GetProcAddress), null if there is none.
    void* (*symbol)(LibraryHandle library, const char* name);
    void (*release)(LibraryHandle library); // FreeLibrary
    // An environment variable's value into `out`; its length, 0 where it is absent
    // (GetEnvironmentVariableA).
    std::size_t (*environment)(const char* name, char* out, std::size_t size);
};

// The table in force; tests stand in for its calls.
extern LibraryCalls libraryCalls;

} // namespace platform

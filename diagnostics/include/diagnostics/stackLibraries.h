// The three libraries that a stack report is made with, looked for while this library loads and
// held until the process leaves it.
//
// Written during the load alone, before anybody can ask for a report.  Where one cannot be had its
// handle is null, and reports do without it.

#pragma once

#include <string>

#include "platform/debugHelp.h"
#include "platform/library.h"

struct DbgHelpLibrary : platform::DebugHelpFunctions {
    std::string path;                         // the candidate that was tried last
    platform::LibraryHandle handle = nullptr; // null: not loaded

    // True if the library is loaded with all functions but symGetLineFromAddr64 and
    // symGetSearchPath, which may be null.
    bool load();
    void release();
};

struct ToolHelpLibrary : platform::ToolHelpFunctions {
    std::string path;
    platform::LibraryHandle handle = nullptr;

    bool load(); // true if it is loaded with all three functions
    void release();
};

struct PsapiLibrary : platform::ProcessStatusFunctions {
    std::string path;
    platform::LibraryHandle handle = nullptr;

    bool load(); // true if it is loaded with all four functions
    void release();
};

struct StackLibraries {
    DbgHelpLibrary debugHelp;
    ToolHelpLibrary toolHelp;
    PsapiLibrary processStatus;
};

// Those of the process; the object lives as long as it.
StackLibraries& stackLibraries();

// Loads the three, debug help first.  What is loaded already stays.
void loadStackLibraries();

// Lets them go, the last one first.  A report that is being made keeps them.
void releaseStackLibraries() noexcept;

// Names, files and lines of addresses of this process, from the symbols and the debug information
// of its modules.
//
// One session at a time; callers keep reports apart.  The debug information is that of the files
// themselves or separate files in the system's folders for it, found by build id; nothing is asked
// for over a network.

#pragma once

#include <cstdint>
#include <memory>
#include <string>

struct Dwfl_Module;

namespace platform {

struct FoundSymbol {
    const char* name; // as the compiler wrote it; good as long as the session
    std::uint64_t address;
};

struct FoundLine {
    const char* file; // good as long as the session
    std::uint32_t number;
    std::uint64_t address; // where the line begins
};

struct SymbolModule {
    std::string path;
    std::string name;
    std::string debugFile; // a separate file of debug information
    std::uint64_t base;
    std::uint32_t size;
    std::uint32_t symType; // kSymNone, kSymExport or kSymDebug, see debugHelp.h
    Dwfl_Module* symbols;  // null: its file cannot be read
};

class Symbols {
  public:
    // Null where the library of symbols is missing or fails.
    static std::unique_ptr<Symbols> begin();
    virtual ~Symbols() = default;

    // False where the module is there already.  May raise std::bad_alloc.
    virtual bool add(const char* path, const char* name, std::uint64_t base,
                     std::uint32_t size) = 0;
    // The module of an address, null if there is none.
    virtual const SymbolModule* moduleAt(std::uint64_t address) const = 0;
    virtual bool symbolAt(std::uint64_t address, FoundSymbol& out) const = 0;
    virtual bool lineAt(std::uint64_t address, FoundLine& out) const = 0;
};

} // namespace platform

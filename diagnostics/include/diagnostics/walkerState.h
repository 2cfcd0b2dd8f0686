// What one walker holds, and the list of modules that it makes.

#pragma once

#include <cstdint>

#include "diagnostics/StackWalker.h"
#include "platform/debugHelp.h"

namespace velt::callstack {

// Bits of WalkerState::options.  The others are kept for components of the family that set them.
inline constexpr std::uint32_t kWithFileVersion = 8;
inline constexpr std::uint32_t kStandardOptions = 7;

struct WalkerState {
    StackWalker* owner; // null: modules are counted and not reported
    std::uint32_t options = kStandardOptions;
    std::int32_t maxRepeats = 100;
    platform::ProcessHandle process;
    std::uint32_t processId;
    bool modulesLoaded = false;

    // Loads the symbols of each module and reports it: by tool help, else by process status.  True
    // if there was at least one.
    bool enumerateModules();

  private:
    bool enumerateByToolHelp();
    bool enumerateByProcessStatus();
    void loadAndReport(const char* path, const char* name, std::uint64_t base, std::uint32_t size,
                       bool reportsFailure);
};

// Whether the long form of the module record works with the library; the first refusal turns it
// off for the life of the process.  Guarded by dumpLock.
extern bool moduleInfoV3Usable;

// The text for a symbol type of a module record, empty for an unknown one.
const char* symbolTypeText(std::uint32_t symType) noexcept;

// The version in a file, its four 16-bit groups from the highest to the lowest; 0 for any failure.
std::uint64_t fileVersion(const char* path) noexcept;

} // namespace velt::callstack

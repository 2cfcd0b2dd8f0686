// Faults of a thread as structured exceptions: a translator for each thread that may throw, and a
// block that is guarded by a filter.
//
// Windows: a vectored handler finds the translator in the thread's block and sends the thread
// through a trampoline that the unwinder knows.  Linux: one handler for the five fault signals does
// the same.

#pragma once

#include <cstdint>

#include "vdreader/postmortem.h"

namespace platform {

// See util_set_se_translator in vdreader/postmortem.h.
sExceptionTranslator setTranslator(sExceptionTranslator translator) noexcept;

// What a filter orders.
enum class FilterAnswer : std::int32_t {
    continueSearch = 0,
    executeHandler = 1,
};
using FaultFilter = FilterAnswer (*)(sExceptionPointers* pointers, void* argument);

// Runs `body(argument)`.  A fault in it is shown to `filter(pointers, argument)` where it
// happened, on its own stack; if that answers executeHandler, the block is left without cleanups.
// A fault inside the filter is shown to the filter once more and then ends the block.  True: the
// body came to its end; false: the block was left by the filter.
bool runGuarded(void (*body)(void* argument), FaultFilter filter, void* argument) noexcept;

// The module, file, section and offset of an address: what stands for VirtualQuery,
// GetModuleFileNameA and the image's section table.  On Linux the loadable segments of an ELF
// module are its sections.
struct AddressPlace {
    char module[260];      // empty: no module, or no section of it
    std::uint32_t section; // from 1; 0 with an empty module
    std::uint64_t offset;  // inside the section
};
AddressPlace placeOfAddress(const void* address) noexcept;

} // namespace platform

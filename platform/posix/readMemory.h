// Reading memory that may not be there.

#pragma once

#include <cstdint>

namespace platform {

// Memory of this process, also where it is not mapped or does not let itself be read: 1, or 0 with
// fewer than `size` bytes in `done` (ReadProcessMemory).  Takes nothing from the heap and may be
// called in a handler of signals.
std::int32_t readProcessMemory(void* process, std::uint64_t address, void* out, std::uint32_t size,
                               std::uint32_t* done);

} // namespace platform

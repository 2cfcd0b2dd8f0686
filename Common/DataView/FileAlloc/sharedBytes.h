// Access to bytes of a view that another thread or process may be writing.
//
// Numbers in files need not be aligned where a file is damaged; those that are not are taken byte
// by byte, which tears them, but nobody appends to such a block.  Nothing here is noexcept: a view
// whose file was cut raises a translated fault.

#pragma once

#include <cstddef>
#include <cstdint>

namespace FileWorkLibrary::shared {

// An acquire load.
std::uint32_t load(const void* at);

// A release addition.
void add(void* at, std::uint32_t n);

// Relaxed copies into and out of shared memory: bytes that are written meanwhile come old or new.
void copyIn(void* to, const void* from, std::size_t size);
void copyOut(void* to, const void* from, std::size_t size);

} // namespace FileWorkLibrary::shared

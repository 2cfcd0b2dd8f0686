// The head of a block in a block file, as it is stored.
//
//   head (24 bytes) | payload (capacity bytes) | 4 bytes that nobody writes
//
// Blocks follow each other without a gap and are not linked: the next one stands at
// point + capacity + 28.  Numbers are little-endian.

#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "FileAlloc/file_point.h"

namespace FileWorkLibrary {

#pragma pack(push, 1)
// May stand at any address: a damaged file can point anywhere.  `used` and `elements` of a mapped
// block change under the reader; TPage reads them.
struct FILE_BLOCK {
    static constexpr std::uint16_t kMarker = 0xFFED;
    // What a block takes in the file besides its payload.
    static constexpr std::uint32_t kOverhead = 28;

    std::uint16_t marker;
    char reserved2[2];
    std::uint32_t capacity; // bytes of payload
    std::uint32_t used;     // bytes of the payload in use
    file_point point;       // where the block itself stands
    std::uint32_t elements; // appended so far
};
#pragma pack(pop)

static_assert(sizeof(FILE_BLOCK) == 24);
static_assert(offsetof(FILE_BLOCK, marker) == 0);
static_assert(offsetof(FILE_BLOCK, reserved2) == 2);
static_assert(offsetof(FILE_BLOCK, capacity) == 4);
static_assert(offsetof(FILE_BLOCK, used) == 8);
static_assert(offsetof(FILE_BLOCK, point) == 12);
static_assert(offsetof(FILE_BLOCK, elements) == 20);
static_assert(std::is_trivially_copyable_v<FILE_BLOCK>);

} // namespace FileWorkLibrary

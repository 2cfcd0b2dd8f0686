// Guarded nodes of the list of mapped blocks.
//
// Each node carries a magic number that every walk looks at before it follows the node.

#pragma once

#include <cstdint>

namespace FileWorkLibrary {
class TMappedPage;
}

namespace ServantsLibrary {

// A plain block from the traced allocator.  The page and the view are the list owner's to release.
struct pbuffer {
    static constexpr std::uint32_t kMagic = 0x56172811;

    FileWorkLibrary::TMappedPage* page;
    void* viewBase;
    std::uint64_t viewSize;
    std::uint32_t magic;
    pbuffer* next;
    pbuffer* prev;
};

// A node with its magic and everything else zero.  Raises where memory is exhausted.
pbuffer* newNode();

// Null is allowed.
void freeNode(pbuffer* node) noexcept;

// Raises a CEmptyError "MAGIC !!! IS INCORRECT" for a node that is damaged.
void checkNode(const pbuffer& node);

} // namespace ServantsLibrary

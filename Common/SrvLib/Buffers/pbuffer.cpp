// Guarded list nodes.

#include "Buffers/pbuffer.h"

#include <cstring>

#include "libn/dwmini.h"
#include "vdreader/errors.hpp"

namespace ServantsLibrary {

pbuffer* newNode() {
    void* const block =
        dwminiAlloc(sizeof(pbuffer), "Common/SrvLib/Buffers/pbuffer", __LINE__, true);
    pbuffer* const node = static_cast<pbuffer*>(block);
    node->magic = pbuffer::kMagic;
    return node;
}

void freeNode(pbuffer* node) noexcept {
    void* block = node;
    dwminiFree(&block);
}

void checkNode(const pbuffer& node) {
    if (node.magic == pbuffer::kMagic)
        return;
    static constexpr char kText[] = "MAGIC !!! IS INCORRECT";
    CEmptyError failure;
    std::memcpy(failure.text, kText, sizeof kText);
    throw failure;
}

} // namespace ServantsLibrary

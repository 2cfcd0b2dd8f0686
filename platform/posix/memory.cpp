// Large tables on Linux: blocks in whole huge pages, asked for where the system grants them.

#include "platform/memory.h"

#include <sys/mman.h>
#include <cstdlib>

#include "../src/system.h"

namespace platform {

namespace system {

void* allocateLarge(std::size_t size) {
    constexpr std::size_t kHugePage = std::size_t{2} << 20;
    const std::size_t rounded = (size + kHugePage - 1) & ~(kHugePage - 1);
    if (rounded < size)
        return nullptr;
    void* block = std::aligned_alloc(kHugePage, rounded);
    if (block != nullptr)
        ::madvise(block, rounded, MADV_HUGEPAGE); // advice: a refusal costs speed alone
    return block;
}

} // namespace system

void releaseLarge(void* block) noexcept {
    std::free(block);
}

} // namespace platform

// Large tables on Windows: blocks of their own from the system.  Large pages need a privilege that
// hosts of this library do not hold, so they are not asked for.

#include "platform/memory.h"

#include <windows.h>

#include "../src/system.h"

namespace platform {

namespace system {

void* allocateLarge(std::size_t size) {
    return ::VirtualAlloc(nullptr, size, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE);
}

} // namespace system

void releaseLarge(void* block) noexcept {
    ::VirtualFree(block, 0, MEM_RELEASE);
}

} // namespace platform

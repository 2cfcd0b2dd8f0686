// Memory for large tables.

#pragma once

#include <cstddef>
#include <limits>
#include <new>

#include "platform/calls.h"

namespace platform {

// Releases a block of calls.allocateLarge.
void releaseLarge(void* block) noexcept;

// A standard allocator that takes big blocks from allocateLarge: half of the time of filling a
// large vector goes into page faults, and large pages save most of them.
template <class T>
class LargeTableAllocator {
  public:
    using value_type = T;

    // Below this size in bytes the ordinary heap serves.
    static constexpr std::size_t kLarge = std::size_t{1} << 20;

    LargeTableAllocator() noexcept = default;
    template <class U>
    LargeTableAllocator(const LargeTableAllocator<U>&) noexcept {}

    T* allocate(std::size_t count) {
        if (count > std::numeric_limits<std::size_t>::max() / sizeof(T))
            throw std::bad_array_new_length();
        const std::size_t size = count * sizeof(T);
        if (size < kLarge)
            return static_cast<T*>(::operator new(size));
        if (void* block = calls.allocateLarge(size))
            return static_cast<T*>(block);
        throw std::bad_alloc();
    }

    void deallocate(T* block, std::size_t count) noexcept {
        if (count * sizeof(T) < kLarge)
            ::operator delete(block);
        else
            releaseLarge(block);
    }

    template <class U>
    bool operator==(const LargeTableAllocator<U>&) const noexcept {
        return true;
    }
};

} // namespace platform

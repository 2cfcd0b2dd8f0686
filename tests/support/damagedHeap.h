// A heap of the C library whose next allocation faults with the heap's lock in its hands.

#pragma once

#include <cstdlib>

// Leaves free chunks whose links lead nowhere and allocates.  There are several of them, each
// between blocks in use: one alone may lie beside a free chunk and become a part of it, and then
// nobody follows its links.  What comes back says that nothing faulted.
inline void* allocateFromDamagedHeap() {
    constexpr int kCount = 16;
    void** volatile freed[kCount] = {};
    void* volatile used[kCount] = {};
    for (int i = 0; i < kCount; ++i) {
        freed[i] = static_cast<void**>(std::malloc(3000));
        used[i] = std::malloc(2000);
    }
    for (int i = 0; i < kCount; ++i)
        std::free(freed[i]);
    for (int i = 0; i < kCount; ++i) {
        static_cast<void* volatile*>(freed[i])[0] = reinterpret_cast<void*>(0x10);
        static_cast<void* volatile*>(freed[i])[1] = reinterpret_cast<void*>(0x10);
    }
    void* volatile next = std::malloc(5000);
    return next != nullptr ? used[0] : nullptr;
}

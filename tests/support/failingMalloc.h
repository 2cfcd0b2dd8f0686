// Calls of the heap's functions in the objects of the test program: made to fail, or watched.
//
// Only malloc, realloc and free are caught, so the C++ run-time's own calls go on.  One object of a
// kind at a time.

#pragma once

#include <cstddef>

// Allocations and reallocations of the library that fail while an object lives.
class FailingMalloc {
  public:
    // Fails every call, or those of one size alone.
    explicit FailingMalloc(std::size_t size = 0);
    ~FailingMalloc();
    FailingMalloc(const FailingMalloc&) = delete;
    FailingMalloc& operator=(const FailingMalloc&) = delete;
};

// Tells of each call right before it is made, on the thread that makes it.
class WatchedHeap {
  public:
    enum Call { allocation, reallocation, release };

    // `block` is null for an allocation, `size` 0 for a release.
    using Watch = void (*)(Call call, void* block, std::size_t size);

    explicit WatchedHeap(Watch watch);
    ~WatchedHeap();
    WatchedHeap(const WatchedHeap&) = delete;
    WatchedHeap& operator=(const WatchedHeap&) = delete;
};

// The program is linked so that every call of malloc, realloc and free in its own objects comes
// here.

#include "support/failingMalloc.h"

#include <atomic>

namespace {

bool fails = false;
std::size_t failingSize = 0;
// Other threads release memory while a test begins to watch.
std::atomic<WatchedHeap::Watch> watching{nullptr};

bool failsFor(std::size_t size) {
    return fails && (failingSize == 0 || failingSize == size);
}

void tell(WatchedHeap::Call call, void* block, std::size_t size) {
    if (const WatchedHeap::Watch watch = watching.load(std::memory_order_relaxed))
        watch(call, block, size);
}

} // namespace

FailingMalloc::FailingMalloc(std::size_t size) {
    failingSize = size;
    fails = true;
}
FailingMalloc::~FailingMalloc() {
    fails = false;
}

WatchedHeap::WatchedHeap(Watch watch) {
    watching = watch;
}
WatchedHeap::~WatchedHeap() {
    watching = nullptr;
}

extern "C" void* __real_malloc(std::size_t size);
extern "C" void* __wrap_malloc(std::size_t size) {
    tell(WatchedHeap::allocation, nullptr, size);
    return failsFor(size) ? nullptr : __real_malloc(size);
}

extern "C" void* __real_realloc(void* block, std::size_t size);
extern "C" void* __wrap_realloc(void* block, std::size_t size) {
    tell(WatchedHeap::reallocation, block, size);
    return failsFor(size) ? nullptr : __real_realloc(block, size);
}

extern "C" void __real_free(void* block);
extern "C" void __wrap_free(void* block) {
    tell(WatchedHeap::release, block, 0);
    __real_free(block);
}

// The allocation entry points.

#include "vdreader/memtrace.h"

#include <chrono>
#include <cstdlib>
#include <mutex>
#include <thread>

#include "libn/memTraceTable.h"
#include "platform/thread.h"

constinit std::atomic<bool> memTraceEnabled{false};

namespace {

constinit MemTraceLock theLock;

void enterNothing(void*, std::size_t, const char*, int) {}
void removeNothing(void*) {}

bool enabled() {
    return memTraceEnabled.load(std::memory_order_relaxed);
}

// What is not the usual way stands in functions of its own: that way is a handful of instructions,
// and sets up for nothing else.

[[gnu::noinline]] void* tracedMalloc(std::size_t size, const char* file, int line) {
    const std::lock_guard guard(memTraceLock());
    void* block = std::malloc(size);
    try {
        // Deliberate: a failed allocation is entered too, under null.  The reports show who asked.
        memTraceTable.enter(block, size, file, line);
    } catch (...) {
        std::free(block);
        throw;
    }
    return block;
}

[[gnu::noinline]] void tracedFree(void* block) {
    if (block == nullptr)
        return;
    const std::lock_guard guard(memTraceLock());
    memTraceTable.remove(block);
    std::free(block);
}

[[gnu::noinline]] void* tracedRealloc(void* block, std::size_t size, const char* file, int line) {
    const std::lock_guard guard(memTraceLock());
    // Deliberate: the entry of the old place stays when the block moves, and goes on counting.
    // Figures of the reports are compared across releases.
    void* moved = std::realloc(block, size);
    try {
        memTraceTable.enter(moved, size, file, line);
    } catch (...) {
        // The former block can't be brought back, so the caller is left with none, whatever became
        // of the reallocation.
        memTraceTable.remove(block);
        std::free(moved != nullptr ? moved : block);
        throw;
    }
    return moved;
}

[[gnu::noinline]] void* countedMalloc(std::size_t size, const char* file, int line) {
    memCountMalloc.raise();
    return enabled() ? tracedMalloc(size, file, line) : std::malloc(size);
}

[[gnu::noinline]] void countedFree(void* block) {
    memCountFree.raise();
    if (enabled())
        tracedFree(block);
    else
        std::free(block);
}

} // namespace

constinit MemTraceTable memTraceTable = {enterNothing, removeNothing};

MemTraceLock& memTraceLock() noexcept {
    return theLock;
}

// The lock is held for an allocation as a rule, and for some hundredths of a second while a report
// adds up.
void MemTraceLock::wait() noexcept {
    constexpr int kLooks = 100;
    constexpr int kYields = 100;
    for (int i = 0;; ++i) {
        if (i >= kLooks + kYields)
            std::this_thread::sleep_for(std::chrono::microseconds(100));
        else if (i >= kLooks)
            platform::yieldThread();
        if (!m_held.load(std::memory_order_relaxed) && try_lock())
            return;
    }
}

extern "C" {

void* memTraceMalloc(std::size_t size, const char* file, std::int32_t line) {
    if (!memCountMalloc.raiseQuickly()) [[unlikely]]
        return countedMalloc(size, file, line);
    if (!enabled()) [[likely]]
        return std::malloc(size);
    return tracedMalloc(size, file, line);
}

void memTraceFree(void* block, const char*, std::int32_t) {
    if (!memCountFree.raiseQuickly()) [[unlikely]]
        countedFree(block);
    else if (!enabled()) [[likely]]
        std::free(block);
    else
        tracedFree(block);
}

void* memTraceRealloc(void* block, std::size_t size, const char* file, std::int32_t line) {
    const bool traced = enabled();
    if (traced && size == 0) {
        if (block != nullptr)
            memTraceFree(block, file, line);
        return nullptr;
    }
    if (traced && block == nullptr)
        return memTraceMalloc(size, file, line);
    memCountRealloc.raise();
    if (!traced)
        return std::realloc(block, size);
    return tracedRealloc(block, size, file, line);
}

void* memTraceAddPtr(void* pointer, std::size_t size, const char* file, std::int32_t line) {
    const std::lock_guard guard(memTraceLock());
    if (enabled())
        memTraceTable.enter(pointer, size, file, line);
    return pointer;
}

void* memTraceDelPtr(void* pointer) {
    const std::lock_guard guard(memTraceLock());
    if (enabled())
        memTraceTable.remove(pointer);
    return pointer;
}

} // extern "C"

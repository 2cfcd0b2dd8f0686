// The thread's block on Windows: made by a hook that the system's loader calls at the start of
// every thread and freed by it at the thread's end.  Threads that were there before the library was
// loaded get theirs on first use.

#include "platform/threadBlock.h"

#include <windows.h>
#include <atomic>
#include <new>
#include <utility>

#include "../src/threadEndHooks.h"
#include "platform/error.h"

namespace platform {

namespace {

constinit DWORD slot = TLS_OUT_OF_INDEXES; // constant, so good before any initialiser has run

struct Block {
    alignas(std::max_align_t) unsigned char bytes[kThreadBlockSize];
    ThreadEndHooks atEnd;
    std::shared_ptr<void> carried;
};
Block spareBlock = {};

constinit std::atomic<std::shared_ptr<void> (*)()> maker{nullptr};

std::shared_ptr<void> makeCarried() noexcept {
    const auto make = maker.load(std::memory_order_acquire);
    try {
        return make != nullptr ? make() : nullptr;
    } catch (...) {
        return nullptr; // there is no memory for it: the thread goes without
    }
}

Block* makeBlock() noexcept {
    std::shared_ptr<void> carried = makeCarried();
    void* const memory = ::HeapAlloc(::GetProcessHeap(), HEAP_ZERO_MEMORY, sizeof(Block));
    if (memory == nullptr)
        return nullptr;
    if (!::TlsSetValue(slot, memory)) {
        ::HeapFree(::GetProcessHeap(), 0, memory);
        return nullptr;
    }
    auto* const block = new (memory) Block{};
    block->carried = std::move(carried);
    return block;
}

void freeBlock() noexcept {
    if (auto* block = static_cast<Block*>(::TlsGetValue(slot))) {
        block->atEnd.run(block->bytes);
        block->carried.reset();
        ::TlsSetValue(slot, nullptr);
        block->~Block();
        ::HeapFree(::GetProcessHeap(), 0, block);
    }
}

void NTAPI onThreadEvent(PVOID, DWORD reason, PVOID processEnds) {
    switch (reason) {
        case DLL_PROCESS_ATTACH:
            slot = ::TlsAlloc();
            break;
        case DLL_THREAD_ATTACH:
            if (slot != TLS_OUT_OF_INDEXES)
                makeBlock();
            break;
        case DLL_THREAD_DETACH:
            if (slot != TLS_OUT_OF_INDEXES)
                freeBlock();
            break;
        case DLL_PROCESS_DETACH:
            // At the end of the process other threads may have been stopped anywhere, in the heap
            // too.
            if (processEnds == nullptr && slot != TLS_OUT_OF_INDEXES) {
                freeBlock();
                ::TlsFree(slot);
                slot = TLS_OUT_OF_INDEXES;
            }
            break;
        default:
            break;
    }
}

Block& currentBlock() noexcept {
    if (slot == TLS_OUT_OF_INDEXES)
        return spareBlock;
    const LastErrorKeeper keeper; // a successful TlsGetValue clears the last error
    auto* block = static_cast<Block*>(::TlsGetValue(slot));
    if (block == nullptr)
        block = makeBlock();
    return block != nullptr ? *block : spareBlock;
}

} // namespace

void* threadBlock() noexcept {
    return currentBlock().bytes;
}

bool callAtThreadEnd(void (*hook)(void* block)) noexcept {
    return currentBlock().atEnd.add(hook);
}

void carryForEachThread(std::shared_ptr<void> (*make)()) noexcept {
    maker.store(make, std::memory_order_release);
    Block& block = currentBlock();
    if (&block != &spareBlock && block.carried == nullptr)
        block.carried = makeCarried();
}

const std::shared_ptr<void>& carriedByThread() noexcept {
    return currentBlock().carried;
}

} // namespace platform

extern "C" {
// The loader walks the section .CRT$XL* of each image for its thread hooks.
extern const PIMAGE_TLS_CALLBACK vdreaderThreadHook;
__attribute__((section(".CRT$XLF"), used)) const PIMAGE_TLS_CALLBACK vdreaderThreadHook =
    platform::onThreadEvent;
}

// The thread's block on Windows: made by a hook that the system's loader calls at the start of
// every thread and freed by it at the thread's end.  Threads that were there before the library was
// loaded get theirs on first use.

#include "platform/threadBlock.h"

#include <windows.h>

#include "platform/error.h"

namespace platform {

namespace {

constinit DWORD slot = TLS_OUT_OF_INDEXES; // constant, so good before any initialiser has run
alignas(std::max_align_t) unsigned char spareBlock[kThreadBlockSize];

void* makeBlock() noexcept {
    void* block = ::HeapAlloc(::GetProcessHeap(), HEAP_ZERO_MEMORY, kThreadBlockSize);
    if (block != nullptr && !::TlsSetValue(slot, block)) {
        ::HeapFree(::GetProcessHeap(), 0, block);
        return nullptr;
    }
    return block;
}

void freeBlock() noexcept {
    if (void* block = ::TlsGetValue(slot)) {
        ::TlsSetValue(slot, nullptr);
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

} // namespace

void* threadBlock() noexcept {
    if (slot == TLS_OUT_OF_INDEXES)
        return spareBlock;
    const LastErrorKeeper keeper; // a successful TlsGetValue clears the last error
    void* block = ::TlsGetValue(slot);
    if (block == nullptr)
        block = makeBlock();
    return block != nullptr ? block : spareBlock;
}

} // namespace platform

extern "C" {
// The loader walks the section .CRT$XL* of each image for its thread hooks.
extern const PIMAGE_TLS_CALLBACK vdreaderThreadHook;
__attribute__((section(".CRT$XLF"), used)) const PIMAGE_TLS_CALLBACK vdreaderThreadHook =
    platform::onThreadEvent;
}

// What the dumps of a process need of the system.
//
// The heap of the run-time may be what has failed, so names, files and the writer take nothing from
// it.  On Linux three calls do, a little each, inside the C library: localFileTime for the zone,
// runOnThread for the new thread, and that thread for the bounds and the alternate stack of its
// own.
//
// Windows: the calls named below; MiniDumpWriteDump is the debug help library's.  Linux: file names
// stay as they are, and "MiniDumpWriteDump" of "DBGHELP.DLL" (see library.h) is this layer's own
// writer of ELF cores.

#pragma once

#include <cstddef>
#include <cstdint>

#include "vdreader/postmortem.h"

namespace platform {

// A file opened for a dump, null: none.
using DumpFile = void*;
// A file name in the system's own form (wide characters on Windows), null: none.
using SystemName = void*;

// Which exception a dump shows (MINIDUMP_EXCEPTION_INFORMATION).
struct __attribute__((packed, aligned(4))) DumpException {
    std::uint32_t threadId;
    sExceptionPointers* pointers;
    std::int32_t clientPointers; // 1: the pointers are addresses of the dumped process
};
static_assert(sizeof(DumpException) == 16);
static_assert(offsetof(DumpException, pointers) == 4);
static_assert(offsetof(DumpException, clientPointers) == 12);

// MiniDumpWriteDump; `kind` 0 is a mini dump, bit 2 adds the whole memory, bit 4 handles.  1 is
// success.
using DumpWriter = std::int32_t (*)(void* process, std::uint32_t processId, DumpFile file,
                                    std::uint32_t kind, const DumpException* exception,
                                    const void* userStreams, const void* callback);

struct DumpCalls {
    // The present local time in units of 100 ns since 1601 (GetSystemTimeAsFileTime,
    // FileTimeToLocalFileTime).
    std::uint64_t (*localFileTime)();
    // Makes one folder (CreateDirectoryA).  False on failure and where it is there already.
    bool (*createFolder)(const char* path);
    // Whether a text cannot be read up to its end or to `limit` bytes (IsBadStringPtrA), null
    // included; the same for a system name (IsBadStringPtrW, the limit in characters) and for
    // `size` bytes of memory (IsBadReadPtr).
    bool (*badText)(const char* text, std::size_t limit);
    bool (*badSystemName)(SystemName name, std::size_t limit);
    bool (*badMemory)(const void* memory, std::size_t size);
    // The system's form of a name (GetACP, MultiByteToWideChar), in a block of the process heap
    // (HeapAlloc, flags 12).  Null on failure.
    SystemName (*systemName)(const char* name);
    void (*freeSystemName)(SystemName name); // null is accepted
    // Makes a file, or empties it, for reading and writing by this opening alone (CreateFileW).
    // Null on failure, also while another opening of createFile has it.
    DumpFile (*createFile)(SystemName name);
    bool (*closeFile)(DumpFile file);
    // The first argument of a DumpWriter (GetCurrentProcess).
    void* (*currentProcess)();
    // Runs `body(argument)` on a new thread, which takes no signal of the host, and waits for its
    // end (CreateThread, WaitForSingleObject, CloseHandle).  False if no thread can be started.
    bool (*runOnThread)(void (*body)(void* argument), void* argument);
};

// The table in force; tests stand in for its calls.
extern DumpCalls dumpCalls;

} // namespace platform

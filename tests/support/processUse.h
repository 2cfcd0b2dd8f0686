// What the test program holds of the system's: to see that something leaves nothing behind.

#pragma once

#include <cstdint>

#ifdef _WIN32
#  include <windows.h>
#else
#  include <malloc.h>

#  include <filesystem>
#  include <fstream>
#  include <iterator>
#  include <sstream>
#  include <string>
#endif

// Open files and other handles.
inline std::int64_t openHandles() {
#ifdef _WIN32
    // One by one: Wine's own count is always 0.  The lowest free number is given out first, so that
    // few lie behind a fresh one.
    const HANDLE fresh = ::CreateEventA(nullptr, FALSE, FALSE, nullptr);
    const auto last = reinterpret_cast<std::uintptr_t>(fresh) + 4096;
    ::CloseHandle(fresh);
    std::int64_t count = 0;
    for (std::uintptr_t number = 4; number < last; number += 4) {
        DWORD flags = 0;
        count += ::GetHandleInformation(reinterpret_cast<HANDLE>(number), &flags) != 0 ? 1 : 0;
    }
    return count;
#else
    const std::filesystem::directory_iterator files("/proc/self/fd");
    return std::distance(files, std::filesystem::directory_iterator());
#endif
}

#ifndef _WIN32
// What the system tells of a thread, from its state on: the fields of proc(5) behind the name.
inline std::istringstream threadFields(const std::filesystem::path& task) {
    std::ifstream file(task / "stat");
    std::string line;
    std::getline(file, line);
    return std::istringstream(line.substr(line.rfind(')') + 1));
}

// Threads of the process.  One that was joined is listed for a moment longer, but the system marked
// it as ending before it let go who waited.
inline std::int64_t runningThreads() {
    constexpr unsigned long kEnding = 4; // PF_EXITING
    std::int64_t count = 0;
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
        std::istringstream fields = threadFields(task.path());
        std::string skipped;
        for (int i = 0; i < 6; ++i) // state, parent, group, session, terminal and its group
            fields >> skipped;
        unsigned long flags = 0;
        count += fields >> flags && (flags & kEnding) == 0 ? 1 : 0;
    }
    return count;
}

// Whether a thread of the process waits in the kernel.
inline bool isWaiting(std::uint32_t thread) {
    std::string state;
    threadFields("/proc/self/task/" + std::to_string(thread)) >> state;
    return state == "S";
}
#endif

// Bytes that the heap has given out, on Windows those of all heaps.
inline std::int64_t privateBytes() {
#ifdef _WIN32
    constexpr DWORD kMost = 64;
    HANDLE heaps[kMost];
    const DWORD found = ::GetProcessHeaps(kMost, heaps);
    std::int64_t bytes = 0;
    for (DWORD i = 0; i < found && i < kMost; ++i) {
        ::HeapLock(heaps[i]);
        PROCESS_HEAP_ENTRY block = {};
        while (::HeapWalk(heaps[i], &block) != 0)
            bytes += (block.wFlags & PROCESS_HEAP_ENTRY_BUSY) != 0 ? block.cbData : 0;
        ::HeapUnlock(heaps[i]);
    }
    return bytes;
#else
    const struct mallinfo2 use = ::mallinfo2();
    return static_cast<std::int64_t>(use.uordblks + use.hblkhd);
#endif
}

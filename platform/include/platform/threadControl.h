// What one thread does to another: identify, suspend, look at, end.
//
// Windows: the calls named below.  Linux: the handle is the thread's pthread_t; a thread is stopped
// by a signal that nobody blocks by habit, or by a tracer where it blocks all of them; it ends by a
// bare exit of the kernel, so that its owner can still join it.

#pragma once

#include <cstdint>

#include "platform/context.h"

namespace platform {

using ThreadHandle = void*;

// The exit code that stands for "still running".
inline constexpr std::uint32_t kStillActive = 259;
// What a failed suspend or resume gives.
inline constexpr std::uint32_t kSuspendFailed = 0xffffffff;
// What to read of a context: all of it but the debug registers.
inline constexpr std::uint32_t kContextOfWalk = 0x10000b;
inline constexpr std::uint32_t kContextOfReport = 0x10001f;

// The calling thread (GetCurrentThread).
ThreadHandle currentThread() noexcept;

// All of these leave the reason of a failure in the last error.
struct ThreadCalls {
    std::uint32_t (*threadIdOf)(ThreadHandle thread);             // GetThreadId, 0 on failure
    bool (*exitCodeOf)(ThreadHandle thread, std::uint32_t* code); // GetExitCodeThread
    std::uint32_t (*suspend)(ThreadHandle thread);                // SuspendThread
    std::uint32_t (*resume)(ThreadHandle thread);                 // ResumeThread
    bool (*contextOf)(ThreadHandle thread, std::uint32_t flags,
                      ThreadContext* out);                                  // GetThreadContext
    std::int32_t (*terminate)(ThreadHandle thread, std::uint32_t exitCode); // TerminateThread
    bool (*close)(ThreadHandle thread);                                     // CloseHandle
};

// The table in force; tests stand in for its calls.
extern ThreadCalls threadCalls;

} // namespace platform

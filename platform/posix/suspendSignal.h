// How one thread stops or ends another on Linux.
//
// Each thread has a small record in its static thread-local storage, which others reach from its
// pthread_t.  A wish is put into the record and the thread is told by a signal; its handler stays
// as long as the wish lasts, so the thread stands at the point of the signal, with the context on
// its own stack.  A record goes with its thread: nothing is left of a thread that stays suspended
// for ever, or that is joined after its end.

#pragma once

#include <pthread.h>
#include <sys/types.h>
#include <ucontext.h>
#include <atomic>
#include <cstdint>

namespace platform::suspending {

// The bits of ThreadRecord::control.
inline constexpr std::uint32_t kCountBits = 0x7f;  // how often it is suspended
inline constexpr std::uint32_t kStopped = 0x80;    // it stands in the handler
inline constexpr std::uint32_t kEnd = 0x100;       // it ends as soon as it looks here
inline constexpr std::uint32_t kUnblocked = 0x200; // it blocked the signal, and will again

struct ThreadRecord {
    std::atomic<std::uint32_t> control;
    std::atomic<std::uint32_t> exitCode;    // with kEnd
    std::atomic<const ucontext_t*> context; // good with kStopped
};

// The record of a thread that has not been joined.
ThreadRecord& recordOf(pthread_t thread) noexcept;

// The system's number of a thread that has not been joined, 0 once it has ended.
pid_t systemIdOf(pthread_t thread) noexcept;

// The signal that is used: the last real-time one but three that has no handler of the host's.
int suspendSignal() noexcept;

// Has the handler of the signal put in place if it is not.  The library stays loaded from then on,
// since a thread may stand in its code at any time.  The signal, 0 on failure.
int readySignal() noexcept;

// Makes the thread look at its record: by the signal, or by a tracer if it blocks or awaits it.
// True once `done(thread)` holds; false with the reason in errno, after about two seconds at most.
bool tell(pthread_t thread, int signal, bool (*done)(pthread_t thread)) noexcept;

// Ends the calling thread as it stands: no cleanups and no destructors, and its owner's join comes
// back.  May be called in a signal handler.
[[noreturn]] void endHere() noexcept;

// Takes the signal off the thread's blocked ones and sends it, as its tracer for a moment.  0 or a
// number of errno.
int sendAsTracer(pid_t thread, int signal, ThreadRecord& record) noexcept;

void futexWait(std::atomic<std::uint32_t>& word, std::uint32_t seen, long milliseconds) noexcept;
void futexWake(std::atomic<std::uint32_t>& word) noexcept;

} // namespace platform::suspending

// One block of zeroed memory for each thread, alive from the thread's start to its end, and what
// happens at those two moments.
//
// On Windows the block is made and freed by a hook on every thread's start and end, because objects
// of thread_local there are destroyed after their storage is gone; on Linux it is plain
// thread-local storage, and a thread's start is its first use of the library.

#pragma once

#include <cstddef>
#include <memory>

namespace platform {

// Small enough for the static thread-local space that a library loaded at run time may use.
inline constexpr std::size_t kThreadBlockSize = 1024;

// The calling thread's block, aligned for any type.  Leaves the last error as it was.  Never null:
// a thread whose block could not be made shares one with the others of that fate.  Not for signal
// handlers, since a thread's first call may take memory.
void* threadBlock() noexcept;

// What a thread may have called at its end.
inline constexpr std::size_t kMostThreadEndHooks = 8;

// Has `hook` called with the calling thread's block once, when the thread ends; later hooks are
// called before earlier ones, and a hook that is there already keeps its place.  False where the
// thread has kMostThreadEndHooks others.  Takes nothing from the heap.  On Windows the threads that
// the end of the process stops end without their hooks.
bool callAtThreadEnd(void (*hook)(void* block)) noexcept;

// Gives the calling thread at once, and every later one at its start, an object of its own, which
// is released at the thread's end, behind the hooks.  The object is made before the thread's block
// is cleared; a thread for which `make` raises has none.  One kind for the process: called once,
// by an initialiser.  On Linux the thread that leaves the library releases its own there, and the
// objects of threads that still live stay, as blocks do on Windows.
void carryForEachThread(std::shared_ptr<void> (*make)()) noexcept;

// The calling thread's object of that kind, null if it has none.
const std::shared_ptr<void>& carriedByThread() noexcept;

} // namespace platform

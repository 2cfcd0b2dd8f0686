// One block of zeroed memory for each thread, alive from the thread's start to its end.
//
// On Windows the block is made and freed by a hook on every thread's start and end, because objects
// of thread_local there are destroyed after their storage is gone; on Linux it is plain
// thread-local storage.

#pragma once

#include <cstddef>

namespace platform {

// Small enough for the static thread-local space that a library loaded at run time may use.
inline constexpr std::size_t kThreadBlockSize = 1024;

// The calling thread's block, aligned for any type.  Leaves the last error as it was.  Never null:
// a thread whose block could not be made shares one with the others of that fate.
void* threadBlock() noexcept;

} // namespace platform

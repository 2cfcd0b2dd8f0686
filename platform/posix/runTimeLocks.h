// Whether a stopped thread may hold a lock that everybody needs.

#pragma once

#include <ucontext.h>
#include <cstdint>

namespace platform {

// Whether the thread that stands at `context` is inside the heap's functions or the loader's, so
// that whoever allocates or unwinds while it stands there may wait for ever.  It looks for return
// addresses in the topmost 8 KB of the stack: a stale one there counts as well, so this is a reason
// to try again and none to give up.  What stands from `top` on is no part of the stack: a thread's
// own descriptor, which lies behind the stack of each but the main thread, or the memory of others
// behind that.  Takes no lock and nothing from the heap.
bool mayHoldRunTimeLock(const ucontext_t& context, std::uintptr_t top) noexcept;

// Whether a function that begins at `address` is one of the heap's.
bool isHeapFunction(std::uintptr_t address) noexcept;

} // namespace platform

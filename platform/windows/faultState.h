// What the pieces of the fault handling on Windows share.
//
//   fault.cpp            the thread's translator, and the vectored handler that finds it
//   faultFrames.cpp      who takes a fault, and from which frame an exception may start
//   faultTrampoline.cpp  the frame between a fault and the translator
//   guardedBlock.cpp     guarded blocks

#pragma once

#include <windows.h>

#include <cstddef>
#include <cstdint>

#include "platform/fault.h"

namespace platform {

inline constexpr std::uint32_t kStackOverflow = 0xC00000FD;

// A thread's own stack is used up when it overflows; its frames are left behind from this one.
inline constexpr std::size_t kRescueStackSize = std::size_t{64} << 10;

// A guarded block that is running.
struct GuardedBlock {
    FaultFilter filter;
    void* argument;
    GuardedBlock* outer;
    int faults;     // that were shown to the filter and are not answered yet
    int outerDepth; // ThreadFaults::depth when the block began
    bool overflowed;
    void* leaving[5]; // to the end of the block, from the rescue stack
};

// Of a thread that has set a translator or run a guarded block; made then and freed at its end.
struct ThreadFaults {
    sExceptionTranslator translator;
    GuardedBlock* guard;           // the innermost
    GuardedBlock* translatorGuard; // the innermost when the translator was set
    int depth;                     // faults of the thread that its translator is shown
    bool handsOn;                  // the next fault is one that the translator did not take
    // A fault on the way from the vectored handler to the trampoline.
    EXCEPTION_RECORD record;
    CONTEXT context;
    CONTEXT walked;
    CONTEXT start;
    alignas(16) unsigned char rescueStack[kRescueStackSize];
};

// Null where the thread has none and `make` is false, or there is no memory for it.  Leaves the
// last error as it was.
ThreadFaults* threadFaults(bool make) noexcept;

// ---- faultFrames.cpp ----

enum class Taker {
    others,     // a structured handler is nearer than any C++ one, or there is no C++ one
    here,       // a C++ handler; an exception may start where the search did
    furtherOut, // a C++ handler; an exception may start at ThreadFaults::start
};

// Who takes a fault that is seen from `from`: the frame of the fault itself, or one that calls.
Taker findTaker(ThreadFaults& thread, const CONTEXT& from, bool isFault) noexcept;

// Leaves frames of an overflowed stack behind until there is room for an exception, and puts the
// frame then in ThreadFaults::start.  False where the stack ends before.
bool leaveOverflow(ThreadFaults& thread) noexcept;

// ---- faultTrampoline.cpp ----

// Has `context` go on in the trampoline, as if called from `returnAddress`.
void enterTrampoline(CONTEXT& context, std::uint64_t returnAddress, ThreadFaults& thread) noexcept;

// Has `context` go on on the rescue stack, at `function`, which never returns.
void enterRescue(CONTEXT& context, void (*function)(ThreadFaults*), ThreadFaults& thread) noexcept;

// Translates an overflow.  For enterRescue.
void translateOverflow(ThreadFaults* thread) noexcept;

// Restores the guard page of the calling thread's stack.
void repairStack() noexcept;

// Lets the fault go on as if the thread had no translator.
[[noreturn]] void passFaultOn(ThreadFaults& thread, EXCEPTION_RECORD& record,
                              CONTEXT& context) noexcept;

// ---- guardedBlock.cpp ----

// For enterRescue: shows an overflow to the filter of the innermost guarded block, and leaves that
// block without asking.
void showOverflow(ThreadFaults* thread) noexcept;
void leaveGuard(ThreadFaults* thread) noexcept;

} // namespace platform

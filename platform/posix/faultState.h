// What the pieces of the fault handling on Linux share.
//
//   faultRecord.cpp      signal and processor state to exception record
//   faultStacks.cpp      the thread's bounds and its alternate stack
//   faultHandler.cpp     the signal handler: from the fault to the trampoline, and back
//   faultHandOn.cpp      handlers that were there before, and the default action
//   faultTrampoline.cpp  the frame between the fault and whom it is shown to
//   faultFrames.cpp      from which frame an exception may start
//   fault.cpp            translators and guarded blocks

#pragma once

#include <setjmp.h>
#include <signal.h>
#include <ucontext.h>
#include <cstddef>
#include <cstdint>

#include "platform/context.h"
#include "platform/fault.h"

namespace platform {

inline constexpr int kFaultSignals[] = {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP};

struct AddressRange {
    std::uintptr_t low;
    std::uintptr_t high;

    bool holds(std::uintptr_t address) const { return low <= address && address < high; }
};

// A guarded block that is running.
struct FaultGuard {
    FaultFilter filter;
    void* argument;
    FaultGuard* outer;
    int faults;         // that were shown to the filter and are not answered yet
    int outerDepth;     // ThreadFaults::depth when the block began
    sigjmp_buf leaving; // to the end of the block
};

struct ThreadFaults {
    sExceptionTranslator translator;
    FaultGuard* guard;           // the innermost
    FaultGuard* translatorGuard; // the innermost when the translator was set
    int depth;                   // faults of the thread that are being shown
    bool prepared;
    AddressRange stack;     // both 0: not known
    AddressRange alternate; // both 0: none
};
extern constinit thread_local ThreadFaults threadFaults __attribute__((tls_model("initial-exec")));

// ---- faultRecord.cpp ----

sExceptionRecord recordOf(const siginfo_t& info, const ucontext_t& context,
                          const AddressRange& stack) noexcept;

inline constexpr std::uint32_t kStackOverflow = 0xC00000FD;

// ---- faultStacks.cpp ----

// Of its size the upper part is for handlers, the lower one for faults that are shown there.
inline constexpr std::size_t kAlternateStackSize = std::size_t{512} << 10;
inline constexpr std::size_t kHandlerStackSize = std::size_t{128} << 10;

// Unblocks the fault signals and gives the thread its alternate stack, which goes when the thread
// ends.  Without memory for one the thread lives on its own stack alone.
void prepareThread() noexcept;

// For the handler: the top of `size` free bytes to show a fault on that happened at `stackPointer`,
// 0 if there is no room.
std::uintptr_t roomForFault(std::uintptr_t stackPointer, std::size_t size) noexcept;

// What an exception needs of the thread's own stack after an overflow.
inline constexpr std::size_t kOverflowRoom = std::size_t{16} << 10;

// Tests stand in for these.
struct StackCalls {
    void* (*map)(std::size_t size);
    int (*setAlternate)(const stack_t* stack, stack_t* former);
};
extern StackCalls stackCalls;

// ---- faultHandler.cpp ----

// Puts the handler in front of those that are there.
void installHandlers() noexcept;

// ---- faultHandOn.cpp ----

// Remembers what was there for a signal.
void rememberFormer(int signal, const struct sigaction& former) noexcept;

// Lets the signal take the way that it would take without us: to the former handler, or to the
// default action with the state of `context`.  Called inside the handler.
void handOn(int signal, siginfo_t& info, ucontext_t& context) noexcept;

// ---- faultTrampoline.cpp ----

// A fault on the way to whom it is shown to.  Stands at the stack pointer of the trampoline, whose
// unwind data read the registers of the frame where an exception starts; first the fault's own.
struct FaultFrame {
    std::uint64_t rip, rsp, rbx, rbp, r12, r13, r14, r15;
    sExceptionRecord record;
    siginfo_t info;
    ThreadContext context; // for whom it is shown to
    std::size_t stateSize; // of what stands behind the frame: the processor's vector state
    std::uint64_t mask;    // of blocked signals, the first 64
    mcontext_t registers;  // as they were
    bool insideHeap;       // the thread may hold the heap's lock
};
inline constexpr std::size_t kFaultFrameSize = (sizeof(FaultFrame) + 63) / 64 * 64;

// Makes a fault ready to be shown, and has the handler return into the trampoline.  False where
// there is no room.
bool sendToTrampoline(const siginfo_t& info, ucontext_t& context) noexcept;

// The fault that nobody took, if `context` is that of the trampoline's end; else null.
const FaultFrame* faultNobodyTook(const ucontext_t& context) noexcept;

// Puts the state of the fault back, so that the handler returns to it.
void restoreFault(const FaultFrame& frame, ucontext_t& context) noexcept;

// ---- faultFrames.cpp ----

// Moves the registers of `frame` out to the first frame from which an exception gets to a handler.
void findThrowingFrame(FaultFrame& frame) noexcept;

// ---- fault.cpp ----

// Shows a fault to the thread's guarded blocks and translator; returns where nobody takes it.
void showFault(FaultFrame& frame);

} // namespace platform

// The trampoline and the instruction at its end.
extern "C" {
void vdreaderFaultTrampoline();
void vdreaderFaultNotTaken();
void vdreaderFaultArrived(platform::FaultFrame* frame);
}

// From which frame an exception starts that stands for a fault.
//
// As a rule it is the frame of the fault, so that every cleanup runs.  Two kinds of frames have to
// be left behind: those that end the process when an exception comes to them, and after an overflow
// those that leave too little of the stack for cleanups and handlers.
//
// A fault inside the heap's functions is noted: its thread may hold the heap's lock, so nobody who
// allocates may be asked.

#include "faultState.h"

#include <unwind.h>

#include "../src/exceptionTable.h"
#include "runTimeLocks.h"

namespace platform {

namespace {

// Numbers of registers in unwind data.
constexpr int kRbx = 3, kRbp = 6, kR12 = 12, kR13 = 13, kR14 = 14, kR15 = 15;
constexpr int kMostFrames = 100000;

struct Search {
    FaultFrame& frame;
    std::uintptr_t least; // of the stack pointer
    bool behindTrampoline = false;
    bool moves = false; // the frame before must be left behind
    int frames = 0;
};

void startFrom(FaultFrame& frame, _Unwind_Context* context, std::uintptr_t instruction) {
    frame.rip = instruction;
    frame.rsp = _Unwind_GetCFA(context);
    frame.rbx = _Unwind_GetGR(context, kRbx);
    frame.rbp = _Unwind_GetGR(context, kRbp);
    frame.r12 = _Unwind_GetGR(context, kR12);
    frame.r13 = _Unwind_GetGR(context, kR13);
    frame.r14 = _Unwind_GetGR(context, kR14);
    frame.r15 = _Unwind_GetGR(context, kR15);
}

_Unwind_Reason_Code lookAt(_Unwind_Context* context, void* argument) {
    Search& search = *static_cast<Search*>(argument);
    if (!search.behindTrampoline) {
        const auto trampoline = reinterpret_cast<std::uintptr_t>(&vdreaderFaultTrampoline);
        search.behindTrampoline = _Unwind_GetRegionStart(context) == trampoline;
        return _URC_NO_REASON;
    }
    int exact = 0; // not behind a call
    const std::uintptr_t next = _Unwind_GetIPInfo(context, &exact);
    const std::uintptr_t instruction = exact != 0 ? next : next - 1;
    if (search.moves)
        startFrom(search.frame, context, instruction);
    // The function that was called first has no lock yet, what it calls has.
    if (search.frames > 0 && isHeapFunction(_Unwind_GetRegionStart(context)))
        search.frame.insideHeap = true;
    const auto* table = reinterpret_cast<const void*>(_Unwind_GetLanguageSpecificData(context));
    const bool narrow = _Unwind_GetCFA(context) < search.least;
    const TableAnswer answer =
        exceptionTableAnswer(table, instruction - _Unwind_GetRegionStart(context));
    search.moves = narrow || answer == TableAnswer::silent;
    if (answer == TableAnswer::catches && !narrow)
        return _URC_END_OF_STACK;
    return ++search.frames < kMostFrames ? _URC_NO_REASON : _URC_END_OF_STACK;
}

} // namespace

void findThrowingFrame(FaultFrame& frame) noexcept {
    const bool overflow = frame.record.code == kStackOverflow;
    Search search{frame, overflow ? threadFaults.stack.low + kOverflowRoom : 0};
    frame.insideHeap = false;
    FaultFrame found = frame;
    _Unwind_Backtrace(lookAt, &search);
    found.insideHeap = frame.insideHeap;
    // Behind the last frame of all there is nobody: the exception starts at the fault and ends the
    // process with all frames in place.
    if (search.moves)
        frame = found;
}

} // namespace platform

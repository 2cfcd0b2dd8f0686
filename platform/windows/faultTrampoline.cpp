// The frame between a fault and the translator, and the way out of an overflowed stack.
//
// The vectored handler sends the thread here as if the faulting instruction had called the
// trampoline; an exception that the translator throws goes on from there.

#include "faultState.h"

#include <malloc.h>

extern "C" {
void vdreaderFaultTrampoline();
void vdreaderFaultArrived(platform::ThreadFaults* thread);
}

namespace platform {

namespace {

// Of faults inside the translator so many are shown to it, then the thread is given up.
constexpr int kMostNested = 8;

// A fault that is being shown; an exception of the translator ends it.
struct Shown {
    explicit Shown(int& ofThread) : depth(ofThread) { ++depth; }
    ~Shown() { --depth; }
    Shown(const Shown&) = delete;
    Shown& operator=(const Shown&) = delete;
    int& depth;
};

using RaiseCall = LONG(NTAPI*)(EXCEPTION_RECORD*, CONTEXT*, BOOLEAN firstChance);

RaiseCall raiseCall() {
    static const auto call = reinterpret_cast<RaiseCall>(reinterpret_cast<void*>(
        ::GetProcAddress(::GetModuleHandleA("ntdll.dll"), "NtRaiseException")));
    return call;
}

} // namespace

void enterTrampoline(CONTEXT& context, std::uint64_t returnAddress, ThreadFaults& thread) noexcept {
    context.Rsp -= sizeof returnAddress;
    *reinterpret_cast<std::uint64_t*>(context.Rsp) = returnAddress;
    context.Rip = reinterpret_cast<std::uintptr_t>(&vdreaderFaultTrampoline);
    context.Rcx = reinterpret_cast<std::uintptr_t>(&thread);
}

void enterRescue(CONTEXT& context, void (*function)(ThreadFaults*), ThreadFaults& thread) noexcept {
    const auto end =
        reinterpret_cast<std::uintptr_t>(thread.rescueStack + sizeof thread.rescueStack);
    context.Rsp = (end & ~std::uintptr_t{15}) - 40; // the callee's home, and its return address
    context.Rip = reinterpret_cast<std::uintptr_t>(function);
    context.Rcx = reinterpret_cast<std::uintptr_t>(&thread);
}

void translateOverflow(ThreadFaults* thread) noexcept {
    CONTEXT& start = thread->start;
    if (!leaveOverflow(*thread) || findTaker(*thread, start, false) == Taker::others) {
        thread->handsOn = true;
        ::RtlRestoreContext(&thread->context, nullptr);
    }
    enterTrampoline(start, start.Rip, *thread);
    ::RtlRestoreContext(&start, nullptr);
}

void repairStack() noexcept {
    ::_resetstkoflw();
}

void passFaultOn(ThreadFaults& thread, EXCEPTION_RECORD& record, CONTEXT& context) noexcept {
    thread.handsOn = true;
    if (raiseCall() != nullptr)
        raiseCall()(&record, &context, TRUE);
    ::RtlRestoreContext(&context, nullptr);
    __builtin_unreachable();
}

} // namespace platform

// On the stack of the fault.  The copies are those that the translator sees: a fault inside it
// takes the places in the thread's own.
void vdreaderFaultArrived(platform::ThreadFaults* thread) {
    EXCEPTION_RECORD record = thread->record;
    CONTEXT context = thread->context;
    if (record.ExceptionCode == platform::kStackOverflow)
        platform::repairStack();
    sExceptionPointers pointers = {reinterpret_cast<sExceptionRecord*>(&record), &context};
    {
        const platform::Shown shown(thread->depth);
        if (thread->translator != nullptr && thread->depth <= platform::kMostNested)
            thread->translator(record.ExceptionCode, &pointers);
    }
    platform::passFaultOn(*thread, record, context);
}

static_assert(sizeof(sExceptionRecord) == sizeof(EXCEPTION_RECORD));

// It may be entered with any alignment of the stack.
asm(R"(
    .text
    .globl vdreaderFaultTrampoline
    .def vdreaderFaultTrampoline; .scl 2; .type 32; .endef
    .seh_proc vdreaderFaultTrampoline
vdreaderFaultTrampoline:
    pushq %rbp
    .seh_pushreg %rbp
    movq %rsp, %rbp
    .seh_setframe %rbp, 0
    .seh_endprologue
    andq $-16, %rsp
    subq $32, %rsp
    call vdreaderFaultArrived
    ud2
    .seh_endproc
)");

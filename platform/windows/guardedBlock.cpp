// Guarded blocks on Windows: a function of assembler, since the compiler knows no structured
// handlers, with the run-time's own handler and a filter of ours.

#include "faultState.h"

namespace platform {

namespace {

// A block whose filter keeps faulting is left at the third fault.
constexpr int kMostFilterFaults = 2;

FilterAnswer askFilter(GuardedBlock& block, sExceptionPointers& pointers) {
    if (block.faults >= kMostFilterFaults)
        return FilterAnswer::executeHandler;
    ++block.faults;
    const FilterAnswer answer = block.filter(&pointers, block.argument);
    --block.faults;
    return answer;
}

} // namespace

} // namespace platform

extern "C" {

// Calls body(argument).  1; 0 where the filter of `block` has ordered to leave.
std::int32_t vdreaderGuardedCall(void (*body)(void*), void* argument, void* block);

// The filter; `block` is that of the call.
std::int32_t vdreaderGuardFilter(EXCEPTION_POINTERS* pointers, void* block) {
    using namespace platform;
    auto& guarded = *static_cast<GuardedBlock*>(block);
    const DWORD code = pointers->ExceptionRecord->ExceptionCode;
    // C++ exceptions of the run-time find their handlers themselves.
    if ((code & 0xfcffffff) == 0x20474343)
        return EXCEPTION_CONTINUE_SEARCH;
    guarded.overflowed = guarded.overflowed || code == kStackOverflow;
    return static_cast<std::int32_t>(
        askFilter(guarded, *reinterpret_cast<sExceptionPointers*>(pointers)));
}
}

namespace platform {

void leaveGuard(ThreadFaults* thread) noexcept {
    thread->guard->overflowed = true;
    __builtin_longjmp(thread->guard->leaving, 1);
}

void showOverflow(ThreadFaults* thread) noexcept {
    sExceptionPointers pointers = {reinterpret_cast<sExceptionRecord*>(&thread->record),
                                   &thread->context};
    if (askFilter(*thread->guard, pointers) == FilterAnswer::executeHandler)
        leaveGuard(thread);
    thread->handsOn = true;
    ::RtlRestoreContext(&thread->context, nullptr);
}

namespace {

// False where the block was left.
[[gnu::noinline]] bool callGuarded(void (*body)(void* argument), void* argument,
                                   GuardedBlock& block) {
    if (__builtin_setjmp(block.leaving) != 0)
        return false;
    return vdreaderGuardedCall(body, argument, &block) != 0;
}

} // namespace

bool runGuarded(void (*body)(void* argument), FaultFilter filter, void* argument) noexcept {
    GuardedBlock block = {filter, argument, nullptr, 0, 0, false, {}};
    ThreadFaults* thread = threadFaults(true);
    if (thread == nullptr) // no memory: the system alone finds the filter
        return vdreaderGuardedCall(body, argument, &block) != 0;
    const sExceptionTranslator translator = thread->translator;
    GuardedBlock* const translatorGuard = thread->translatorGuard;
    block.outer = thread->guard;
    block.outerDepth = thread->depth;
    thread->guard = &block;
    const bool ended = callGuarded(body, argument, block);
    thread->guard = block.outer;
    thread->depth = block.outerDepth;
    if (!ended) // whoever set a translator inside had no chance to take it back
        thread->translator = translator;
    if (!ended || thread->translatorGuard == &block)
        thread->translatorGuard = ended ? block.outer : translatorGuard;
    if (block.overflowed)
        repairStack();
    return ended;
}

} // namespace platform

// The block's address is kept in the frame, where the filter finds it by the frame's address.
asm(R"(
    .text
    .globl vdreaderGuardedCall
    .def vdreaderGuardedCall; .scl 2; .type 32; .endef
    .seh_proc vdreaderGuardedCall
vdreaderGuardedCall:
    subq $56, %rsp
    .seh_stackalloc 56
    .seh_endprologue
    movq %r8, 40(%rsp)
    movq %rcx, %rax
    movq %rdx, %rcx
.LvdreaderGuardBegins:
    call *%rax
    nop
.LvdreaderGuardEnds:
    movl $1, %eax
    jmp .LvdreaderGuardReturns
.LvdreaderGuardLeft:
    xorl %eax, %eax
.LvdreaderGuardReturns:
    addq $56, %rsp
    ret
    .seh_handler __C_specific_handler, @except
    .seh_handlerdata
    .long 1
    .rva .LvdreaderGuardBegins
    .rva .LvdreaderGuardEnds
    .rva vdreaderGuardFrameFilter
    .rva .LvdreaderGuardLeft
    .text
    .seh_endproc

    .globl vdreaderGuardFrameFilter
    .def vdreaderGuardFrameFilter; .scl 2; .type 32; .endef
    .seh_proc vdreaderGuardFrameFilter
vdreaderGuardFrameFilter:
    subq $40, %rsp
    .seh_stackalloc 40
    .seh_endprologue
    movq 40(%rdx), %rdx
    call vdreaderGuardFilter
    nop
    addq $40, %rsp
    ret
    .seh_endproc
)");

// The frame between a fault and whom it is shown to.
//
// The handler returns into vdreaderFaultTrampoline with the stack pointer at a FaultFrame.  To the
// unwinder it is the frame of a signal handler whose caller's registers stand in that FaultFrame,
// so an exception that is thrown below goes on where these registers point to.

#include "faultState.h"

#include <unwind.h>
#include <algorithm>
#include <cstring>

namespace platform {

namespace {

// Bits of the flags register: single step, direction of string instructions, alignment checks.
constexpr greg_t kFlagsOfTheFault = 0x100 | 0x400 | 0x40000;
constexpr greg_t kPageFault = 14;
constexpr std::size_t kPlainStateSize = sizeof(_libc_fpstate);
// More than any processor saves today.
constexpr std::size_t kMostState = 16384;

// The kernel notes the size of the whole vector state in bytes that the plain state leaves free.
std::size_t stateSizeOf(const mcontext_t& machine) {
    constexpr std::uint32_t kExtendedMagic = 0x46505853;
    constexpr std::size_t kNote = 464;
    if (machine.fpregs == nullptr)
        return 0;
    std::uint32_t note[2] = {}; // magic number, size
    std::memcpy(note, reinterpret_cast<const char*>(machine.fpregs) + kNote, sizeof note);
    const bool extended = note[0] == kExtendedMagic && note[1] >= kPlainStateSize;
    return extended ? std::min<std::size_t>(note[1], kMostState) : kPlainStateSize;
}

char* stateOf(FaultFrame& frame) {
    return reinterpret_cast<char*>(&frame) + kFaultFrameSize;
}

void fillRegisters(FaultFrame& frame, const greg_t* registers) {
    frame.rip = reinterpret_cast<std::uintptr_t>(frame.record.address);
    frame.rsp = static_cast<std::uint64_t>(registers[REG_RSP]);
    frame.rbx = static_cast<std::uint64_t>(registers[REG_RBX]);
    frame.rbp = static_cast<std::uint64_t>(registers[REG_RBP]);
    frame.r12 = static_cast<std::uint64_t>(registers[REG_R12]);
    frame.r13 = static_cast<std::uint64_t>(registers[REG_R13]);
    frame.r14 = static_cast<std::uint64_t>(registers[REG_R14]);
    frame.r15 = static_cast<std::uint64_t>(registers[REG_R15]);
}

// The code that runs next expects no pending floating-point faults and all of them masked.
void calmFloatingPoint(mcontext_t& machine) {
    if (machine.fpregs == nullptr)
        return;
    machine.fpregs->mxcsr = (machine.fpregs->mxcsr | 0x1f80u) & ~0x3fu;
    machine.fpregs->cwd |= 0x3f;
    machine.fpregs->swd = static_cast<decltype(machine.fpregs->swd)>(machine.fpregs->swd & ~0x80ff);
}

// A call of a bad address has no frame of its own: the exception starts at the call.
void stepOutOfBadCall(FaultFrame& frame) {
    const greg_t* registers = frame.registers.gregs;
    const bool fetches = registers[REG_TRAPNO] == kPageFault && frame.record.parameters[0] == 8;
    // Code of a function may be unreadable too, where a module was cut short.
    if (!fetches ||
        _Unwind_FindEnclosingFunction(reinterpret_cast<void*>(frame.rip + 1)) != nullptr)
        return;
    std::uint64_t returnAddress = 0;
    std::memcpy(&returnAddress, reinterpret_cast<const void*>(frame.rsp), sizeof returnAddress);
    frame.rip = returnAddress - 1;
    frame.rsp += sizeof returnAddress;
}

} // namespace

bool sendToTrampoline(const siginfo_t& info, ucontext_t& context) noexcept {
    mcontext_t& machine = context.uc_mcontext;
    const std::size_t stateSize = stateSizeOf(machine);
    const std::size_t size = kFaultFrameSize + stateSize + 64;
    const std::uintptr_t top =
        roomForFault(static_cast<std::uintptr_t>(machine.gregs[REG_RSP]), size);
    if (top == 0)
        return false;
    auto& frame = *reinterpret_cast<FaultFrame*>((top - size + 63) & ~std::uintptr_t{63});
    frame.record = recordOf(info, context, threadFaults.stack);
    frame.info = info;
    frame.stateSize = stateSize;
    std::memcpy(&frame.mask, &context.uc_sigmask, sizeof frame.mask);
    frame.registers = machine;
    fillRegisters(frame, machine.gregs);
    copyContext(frame.context, &context);
    if (stateSize != 0)
        std::memcpy(stateOf(frame), machine.fpregs, stateSize);

    calmFloatingPoint(machine);
    machine.gregs[REG_EFL] &= ~kFlagsOfTheFault;
    machine.gregs[REG_RSP] = reinterpret_cast<greg_t>(&frame);
    machine.gregs[REG_RIP] = reinterpret_cast<greg_t>(&vdreaderFaultTrampoline);
    return true;
}

const FaultFrame* faultNobodyTook(const ucontext_t& context) noexcept {
    const greg_t* registers = context.uc_mcontext.gregs;
    if (registers[REG_RIP] != reinterpret_cast<greg_t>(&vdreaderFaultNotTaken))
        return nullptr;
    return reinterpret_cast<const FaultFrame*>(registers[REG_RSP]);
}

void restoreFault(const FaultFrame& frame, ucontext_t& context) noexcept {
    mcontext_t& machine = context.uc_mcontext;
    _libc_fpstate* const state = machine.fpregs; // the kernel reads it where it has put it
    machine = frame.registers;
    machine.fpregs = state;
    if (state != nullptr && frame.stateSize == stateSizeOf(context.uc_mcontext))
        std::memcpy(state, reinterpret_cast<const char*>(&frame) + kFaultFrameSize,
                    frame.stateSize);
    std::memcpy(&context.uc_sigmask, &frame.mask, sizeof frame.mask);
}

} // namespace platform

// Runs on the stack of the fault, or on the alternate one, with the signals as they were.
void vdreaderFaultArrived(platform::FaultFrame* frame) {
    platform::stepOutOfBadCall(*frame);
    platform::findThrowingFrame(*frame);
    platform::showFault(*frame);
}

// The escapes are DWARF: the caller's stack pointer is the word at rsp + 8, its other registers
// stand at rsp + 0 (the instruction), 16 (rbx), 24 (rbp) and 32 to 56 (r12 to r15).
asm(R"(
    .text
    .p2align 4
    .globl vdreaderFaultTrampoline
    .hidden vdreaderFaultTrampoline
    .type vdreaderFaultTrampoline, @function
    .globl vdreaderFaultNotTaken
    .hidden vdreaderFaultNotTaken
vdreaderFaultTrampoline:
    .cfi_startproc
    .cfi_signal_frame
    .cfi_escape 0x0f, 3, 0x77, 8, 0x06
    .cfi_escape 0x10, 16, 2, 0x77, 0
    .cfi_escape 0x16, 7, 3, 0x77, 8, 0x06
    .cfi_escape 0x10, 3, 2, 0x77, 16
    .cfi_escape 0x10, 6, 2, 0x77, 24
    .cfi_escape 0x10, 12, 2, 0x77, 32
    .cfi_escape 0x10, 13, 2, 0x77, 40
    .cfi_escape 0x10, 14, 2, 0x77, 48
    .cfi_escape 0x10, 15, 2, 0x77, 56
    nop
    movq %rsp, %rdi
    call vdreaderFaultArrived
vdreaderFaultNotTaken:
    ud2
    .cfi_endproc
    .size vdreaderFaultTrampoline, .-vdreaderFaultTrampoline
)");
static_assert(offsetof(platform::FaultFrame, rip) == 0);
static_assert(offsetof(platform::FaultFrame, rsp) == 8);
static_assert(offsetof(platform::FaultFrame, rbx) == 16);
static_assert(offsetof(platform::FaultFrame, rbp) == 24);
static_assert(offsetof(platform::FaultFrame, r12) == 32);
static_assert(offsetof(platform::FaultFrame, r13) == 40);
static_assert(offsetof(platform::FaultFrame, r14) == 48);
static_assert(offsetof(platform::FaultFrame, r15) == 56);

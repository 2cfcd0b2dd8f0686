// The processor's state of a thread on Linux: ucontext_t.

#include "platform/context.h"

#include <ucontext.h>
#include <cstring>

namespace platform {

static_assert(sizeof(ucontext_t) <= sizeof(ThreadContext));
static_assert(alignof(ucontext_t) <= alignof(ThreadContext));

namespace {

const ucontext_t& systemForm(const ThreadContext& context) {
    return reinterpret_cast<const ucontext_t&>(context);
}

// Where captureContext stores registers.
constexpr std::size_t placeOf(int number) {
    return offsetof(ucontext_t, uc_mcontext.gregs) + number * sizeof(greg_t);
}
static_assert(placeOf(REG_R8) == 40 && placeOf(REG_R9) == 48 && placeOf(REG_R10) == 56);
static_assert(placeOf(REG_R11) == 64 && placeOf(REG_R12) == 72 && placeOf(REG_R13) == 80);
static_assert(placeOf(REG_R14) == 88 && placeOf(REG_R15) == 96 && placeOf(REG_RDI) == 104);
static_assert(placeOf(REG_RSI) == 112 && placeOf(REG_RBP) == 120 && placeOf(REG_RBX) == 128);
static_assert(placeOf(REG_RDX) == 136 && placeOf(REG_RAX) == 144 && placeOf(REG_RCX) == 152);
static_assert(placeOf(REG_RSP) == 160 && placeOf(REG_RIP) == 168);

} // namespace

void copyContext(ThreadContext& out, const void* context) noexcept {
    // The system's state of a signal's frame stands right above the context, that of getcontext
    // inside it; a pointer to anywhere else belongs to a frame that is gone.
    constexpr std::uintptr_t kReach = 4096;
    std::memset(&out, 0, sizeof out);
    std::memcpy(&out, context, sizeof(ucontext_t));
    auto& copy = reinterpret_cast<ucontext_t&>(out);
    const auto from = reinterpret_cast<std::uintptr_t>(context);
    const auto state = reinterpret_cast<std::uintptr_t>(copy.uc_mcontext.fpregs);
    if (state < from || state - from > kReach) {
        copy.uc_mcontext.fpregs = nullptr;
        return;
    }
    std::memcpy(&copy.__fpregs_mem, copy.uc_mcontext.fpregs, sizeof copy.__fpregs_mem);
    copy.uc_mcontext.fpregs = &copy.__fpregs_mem;
}

// Without a frame of its own: the return address and what stands above it are the caller's state.
__attribute__((naked)) void captureContext(ThreadContext&) noexcept {
    asm("movq %r8, 40(%rdi)\n\t"
        "movq %r9, 48(%rdi)\n\t"
        "movq %r10, 56(%rdi)\n\t"
        "movq %r11, 64(%rdi)\n\t"
        "movq %r12, 72(%rdi)\n\t"
        "movq %r13, 80(%rdi)\n\t"
        "movq %r14, 88(%rdi)\n\t"
        "movq %r15, 96(%rdi)\n\t"
        "movq %rdi, 104(%rdi)\n\t"
        "movq %rsi, 112(%rdi)\n\t"
        "movq %rbp, 120(%rdi)\n\t"
        "movq %rbx, 128(%rdi)\n\t"
        "movq %rdx, 136(%rdi)\n\t"
        "movq %rax, 144(%rdi)\n\t"
        "movq %rcx, 152(%rdi)\n\t"
        "leaq 8(%rsp), %rdx\n\t"
        "movq %rdx, 160(%rdi)\n\t"
        "movq (%rsp), %rdx\n\t"
        "movq %rdx, 168(%rdi)\n\t"
        "ret");
}

std::uint64_t instructionPointer(const ThreadContext& context) noexcept {
    return static_cast<std::uint64_t>(systemForm(context).uc_mcontext.gregs[REG_RIP]);
}
std::uint64_t stackPointer(const ThreadContext& context) noexcept {
    return static_cast<std::uint64_t>(systemForm(context).uc_mcontext.gregs[REG_RSP]);
}

} // namespace platform

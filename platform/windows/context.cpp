// The processor's state of a thread on Windows: CONTEXT.

#include "platform/context.h"

#include <windows.h>

#include <cstring>

namespace platform {

static_assert(sizeof(ThreadContext) == sizeof(CONTEXT));

namespace {

const CONTEXT& systemForm(const ThreadContext& context) {
    return reinterpret_cast<const CONTEXT&>(context);
}

} // namespace

void copyContext(ThreadContext& out, const void* context) noexcept {
    std::memcpy(&out, context, sizeof out);
}

// The system's function looks at its caller's frame, so this one must not have any.
__attribute__((naked)) void captureContext(ThreadContext&) noexcept {
    asm("jmp *__imp_RtlCaptureContext(%rip)");
}

std::uint64_t instructionPointer(const ThreadContext& context) noexcept {
    return systemForm(context).Rip;
}
std::uint64_t stackPointer(const ThreadContext& context) noexcept {
    return systemForm(context).Rsp;
}

} // namespace platform

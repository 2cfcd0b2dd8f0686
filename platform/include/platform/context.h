// The processor's state of a thread at one point.
//
// Windows: CONTEXT.  Linux: ucontext_t, with its floating-point state inside the copy.

#pragma once

#include <cstddef>
#include <cstdint>

namespace platform {

// A copy of a context, of the size that the system's own has on Windows.
inline constexpr std::size_t kContextSize = 1232;
struct alignas(16) ThreadContext {
    unsigned char bytes[kContextSize];
};

// Copies the system's context that `context` points to.
void copyContext(ThreadContext& out, const void* context) noexcept;

// The state of the calling thread in the caller's frame (RtlCaptureContext).
void captureContext(ThreadContext& out) noexcept;

std::uint64_t instructionPointer(const ThreadContext& context) noexcept;
std::uint64_t stackPointer(const ThreadContext& context) noexcept;

} // namespace platform

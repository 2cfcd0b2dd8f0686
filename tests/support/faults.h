// Faults of the processor, each in a function of its own, and what stands for them as exceptions.

#pragma once

#include <cstdint>
#include <cstring>
#include <ostream>
#include <string>

#include "vdreader/postmortem.h"

namespace faults {

// What noteAndThrow throws: the record of the fault, and the context by its address.
struct Caught {
    std::uint32_t given; // the translator's first argument
    sExceptionRecord record;
    bool hasContext;
};

// A translator.
[[noreturn]] inline void noteAndThrow(unsigned int code, sExceptionPointers* pointers) {
    throw Caught{code, *pointers->record, pointers->context != nullptr};
}

// Counts what the unwinding of a frame cleans up.
struct Cleanup {
    explicit Cleanup(int& counted) : count(counted) {}
    ~Cleanup() { ++count; }
    Cleanup(const Cleanup&) = delete;
    Cleanup& operator=(const Cleanup&) = delete;
    int& count;
};

// The compiler must not know these values.
inline int* volatile nowhere = nullptr;
inline volatile int zero = 0;
inline volatile int lowest = -2147483647 - 1;
inline volatile int minusOne = -1;
inline volatile int sink = 0;

// Sanitizers would tell of the fault before it happens.
#define FAULTING [[gnu::noinline, gnu::no_sanitize("undefined", "address", "thread")]]

FAULTING inline void readNull() {
    sink = *nowhere;
}
FAULTING inline void writeNull() {
    *nowhere = 1;
}
FAULTING inline void callNull() {
    using Function = void (*)();
    const auto function = reinterpret_cast<Function>(reinterpret_cast<std::uintptr_t>(nowhere));
    function();
    sink = 0; // so that it is a call and no jump
}
FAULTING inline void divideByZero() {
    sink = 5 / zero;
}
FAULTING inline void divideLowest() {
    sink = lowest / minusOne;
}
FAULTING inline void illegalInstruction() {
    asm volatile("ud2");
}
FAULTING inline void privilegedInstruction() {
    asm volatile("hlt");
}
FAULTING inline void breakpoint() {
    asm volatile("int3");
}
// An instruction for vectors that must be aligned.
FAULTING inline void misalignedVector() {
    alignas(16) static char bytes[32] = {};
    asm volatile("movaps (%0), %%xmm0" : : "r"(bytes + 1) : "xmm0", "memory");
}
FAULTING inline void outsideTheAddresses() {
    sink = *reinterpret_cast<volatile int*>(0x8000000000000000);
}
FAULTING inline int overflowStack(int depth) {
    volatile char frame[200];
    frame[0] = static_cast<char>(depth);
    if (depth < zero - 1)
        throw 1; // so that the compiler sees an end
    return overflowStack(depth + 1) + frame[0];
}
FAULTING inline void overflow() {
    sink = overflowStack(0);
}

struct Kind {
    const char* name;
    void (*cause)();
    std::uint32_t code;
    std::uint32_t parameterCount;
    std::uint64_t parameters[2]; // ~1: not told
};
inline constexpr std::uint64_t kAny = ~std::uint64_t{1};

inline constexpr Kind kKinds[] = {
    {"NullRead", readNull, 0xC0000005, 2, {0, 0}},
    {"NullWrite", writeNull, 0xC0000005, 2, {1, 0}},
    {"CallOfNull", callNull, 0xC0000005, 2, {kAny, 0}},
    {"DivisionByZero", divideByZero, 0xC0000094, 0, {}},
    {"DivisionOfTheLowest", divideLowest, 0, 0, {}},
    {"IllegalInstruction", illegalInstruction, 0xC000001D, 0, {}},
    {"PrivilegedInstruction", privilegedInstruction, 0xC0000096, 0, {}},
    {"Breakpoint", breakpoint, 0x80000003, kAny & 0xff, {kAny, kAny}},
    {"MisalignedVector", misalignedVector, 0xC0000005, 2, {kAny, kAny}},
    {"AddressOutsideTheRange", outsideTheAddresses, 0xC0000005, 2, {kAny, ~std::uint64_t{0}}},
};

inline void PrintTo(const Kind& kind, std::ostream* out) {
    *out << kind.name;
}

} // namespace faults

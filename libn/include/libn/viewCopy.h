// Copies into and out of views of files.
//
// A file that another process cuts short makes its views fault.  The compiler takes memcpy and
// memset for functions that cannot raise and leaves no way out of them, so they are called through
// pointers that it cannot see through; where faults are translated, the failure then reaches the
// caller as an exception like any other.

#pragma once

#include <cstddef>
#include <cstdint>

namespace libn {

// memcpy and memset; never changed.
extern void* (*volatile viewCopyCall)(void*, const void*, std::size_t);
extern void* (*volatile viewFillCall)(void*, int, std::size_t);

// Any address may hold one.
struct [[gnu::packed, gnu::may_alias]] ViewWord {
    std::uint64_t value;
};

// A value of fixed size, from any address.
template <class Value>
inline void viewGet(Value& value, const void* from) {
    struct [[gnu::packed, gnu::may_alias]] Bytes {
        char bytes[sizeof(Value)];
    };
    // An assignment and no memcpy: the compiler knows that a load can fault.
    *reinterpret_cast<Bytes*>(&value) = *static_cast<const Bytes*>(from);
}

// Reads one value after another.
struct ViewCursor {
    const char* at;

    template <class Value>
    void get(Value& value) {
        viewGet(value, at);
        at += sizeof(Value);
    }
};

inline void viewCopy(void* to, const void* from, std::size_t size) {
    if (size == sizeof(ViewWord)) // most of what is read from tables
        *static_cast<ViewWord*>(to) = *static_cast<const ViewWord*>(from);
    else
        viewCopyCall(to, from, size);
}

inline void viewFill(void* to, std::uint8_t value, std::size_t size) {
    viewFillCall(to, value, size);
}

} // namespace libn

// A broken contract on Windows.
//
// The run-time that this library is built for keeps the handler of invalid parameters to each
// module by itself, so one that a host has set cannot be reached from here.  The process ends as
// the run-time's own handler ends it: with a structured exception that nobody is meant to continue
// from.

#include <windows.h>

#include <cstdio>

#include "../src/system.h"

namespace platform::system {

void invalidParameter() {
    constexpr DWORD kInvalidParameter = 0xC0000417; // STATUS_INVALID_CRUNTIME_PARAMETER
    std::fputs("vdreader: invalid parameter\n", stderr);
    std::fflush(stderr);
    ::RaiseException(kInvalidParameter, EXCEPTION_NONCONTINUABLE, 0, nullptr);
}

} // namespace platform::system

// The unwinding library of Linux, found at run time: it exports the names of the C++ run-time's
// unwinder too and must not stand in for them, so nothing is linked with it.

#pragma once

#define UNW_LOCAL_ONLY
#include <libunwind.h>

namespace platform {

// All of them may be called in a handler of signals: none takes memory from the heap.  Finding the
// unwind data of a frame that was not seen before takes the loader's lock.
struct UnwindCalls {
    int (*initLocal)(unw_cursor_t* cursor, unw_context_t* context, int flags); // unw_init_local2
    int (*step)(unw_cursor_t* cursor);
    int (*getRegister)(unw_cursor_t* cursor, int number, unw_word_t* value);
    int (*setRegister)(unw_cursor_t* cursor, int number, unw_word_t value);
    int (*procInfo)(unw_cursor_t* cursor, unw_proc_info_t* info);
    int (*isSignalFrame)(unw_cursor_t* cursor);
};

// The library's functions; null where it is not installed.  Asked for while this library is loaded,
// so that later calls are a look at a variable.
const UnwindCalls* unwindCalls() noexcept;

} // namespace platform

// Finds the unwinding library.

#include "unwind.h"

#include <dlfcn.h>
#include <atomic>

#define NAME_TEXT(name) #name
#define NAME_OF(name) NAME_TEXT(name) // behind the renaming of the library's header

namespace platform {

namespace {

enum class State { unknown, absent, found };

constinit std::atomic<State> state{State::unknown};
constinit UnwindCalls found = {};

template <class Function>
bool take(void* library, const char* name, Function*& function) {
    function = reinterpret_cast<Function*>(::dlsym(library, name));
    return function != nullptr;
}

bool takeAll(void* library, UnwindCalls& calls) {
    return take(library, NAME_OF(unw_init_local2), calls.initLocal) &&
           take(library, NAME_OF(unw_step), calls.step) &&
           take(library, NAME_OF(unw_get_reg), calls.getRegister) &&
           take(library, NAME_OF(unw_set_reg), calls.setRegister) &&
           take(library, NAME_OF(unw_get_proc_info), calls.procInfo) &&
           take(library, NAME_OF(unw_is_signal_frame), calls.isSignalFrame);
}

// Two threads may come here at once: they find the same functions.
State resolve() {
    for (const char* const name : {"libunwind.so.8", "libunwind-x86_64.so.8"}) {
        void* const library = ::dlopen(name, RTLD_LAZY | RTLD_LOCAL);
        UnwindCalls calls = {};
        if (library == nullptr || !takeAll(library, calls))
            continue;
        found = calls;
        return State::found;
    }
    return State::absent;
}

[[maybe_unused]] const UnwindCalls* const resolvedAtLoad = unwindCalls();

} // namespace

const UnwindCalls* unwindCalls() noexcept {
    State now = state.load(std::memory_order_acquire);
    if (now == State::unknown) {
        now = resolve();
        state.store(now, std::memory_order_release);
    }
    return now == State::found ? &found : nullptr;
}

} // namespace platform

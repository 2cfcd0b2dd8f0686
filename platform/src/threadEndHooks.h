// The hooks of one thread's end: a list of fixed size that is good while it is all zero.

#pragma once

#include <cstddef>

#include "platform/threadBlock.h"

namespace platform {

struct ThreadEndHooks {
    using Hook = void (*)(void* block);

    bool add(Hook hook) noexcept {
        for (std::size_t i = 0; i < count; ++i)
            if (hooks[i] == hook)
                return true;
        if (count == kMostThreadEndHooks)
            return false;
        hooks[count++] = hook;
        return true;
    }

    // The last one first.  A hook is off the list while it runs, so that what it starts may be
    // entered anew.
    void run(void* block) noexcept {
        while (count > 0)
            hooks[--count](block);
    }

    std::size_t count;
    Hook hooks[kMostThreadEndHooks];
};

} // namespace platform

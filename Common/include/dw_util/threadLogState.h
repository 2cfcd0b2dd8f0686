// The per-thread state of raising and logging.

#pragma once

#include <cstdint>
#include <type_traits>

#include "platform/threadBlock.h"

// Lives in the thread's block of the platform: all zero at the thread's start, gone at its end.
struct ThreadLogState {
    static constexpr int kPlaceFileLimit = 300;

    std::int32_t placeLine;              // last line given to place()
    char placeFile[kPlaceFileLimit + 1]; // last file given to place(), as it was given
};

static_assert(sizeof(ThreadLogState) <= platform::kThreadBlockSize);
static_assert(std::is_trivially_default_constructible_v<ThreadLogState>);

// The calling thread's state.  Leaves the last error as it was.
inline ThreadLogState& threadLogState() noexcept {
    return *static_cast<ThreadLogState*>(platform::threadBlock());
}

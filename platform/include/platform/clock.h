// Wall clock and local time; the clock itself is a call of calls.h.

#pragma once

#include <cstdint>
#include <ctime>

#include "platform/calls.h"

namespace platform {

// Local time of `seconds` since 1970 UTC.  All zero where the system cannot tell.
std::tm localTime(std::int64_t seconds) noexcept;

} // namespace platform

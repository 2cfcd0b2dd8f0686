// Wall clock and local time on POSIX systems.

#include "platform/clock.h"

#include "../src/system.h"

namespace platform {

std::tm localTime(std::int64_t seconds) noexcept {
    std::tm local = {};
    const std::time_t time = seconds;
    return ::localtime_r(&time, &local) != nullptr ? local : std::tm{};
}

namespace system {

WallTime wallClock() {
    timespec now = {};
    ::clock_gettime(CLOCK_REALTIME, &now);
    return {now.tv_sec, static_cast<std::int32_t>(now.tv_nsec / 1'000'000)};
}

} // namespace system
} // namespace platform

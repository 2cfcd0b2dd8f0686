// Wall clock and local time on Windows.

#include "platform/clock.h"

#include <sys/timeb.h>

#include "../src/system.h"

namespace platform {

std::tm localTime(std::int64_t seconds) noexcept {
    std::tm local = {};
    const __time64_t time = seconds;
    return ::_localtime64_s(&local, &time) == 0 ? local : std::tm{};
}

namespace system {

WallTime wallClock() {
    __timeb64 now = {};
    ::_ftime64(&now);
    return {now.time, now.millitm};
}

} // namespace system
} // namespace platform

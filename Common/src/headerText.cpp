// The header's text, made once for each second of a thread that logs.

#include "headerText.h"

#include <cstdio>
#include <cstring>
#include <ctime>

#include "platform/clock.h"
#include "platform/thread.h"

namespace {

constexpr char kNoMark[sizeof LineCache::mark] = {};

bool isMadeOf(const LineCache& cache, std::int64_t second, std::uint32_t process,
              std::uint32_t thread, const char* mark) {
    return cache.second == second && cache.process == process && cache.thread == thread &&
           std::memcmp(cache.mark, mark, sizeof cache.mark) == 0;
}

// ": 21 Nov 26 (Sat) 10:40:30."
std::size_t putTime(char* out, std::size_t size, std::int64_t second) {
    const std::tm local = platform::localTime(second);
    char date[64] = {};
    // Day and time by hand: not every run-time's strftime knows %e and %T.
    if (std::strftime(date, sizeof date, "%b %y (%a)", &local) == 0)
        date[0] = '\0';
    return static_cast<std::size_t>(std::snprintf(out, size, ": %2d %s %02d:%02d:%02d.",
                                                  local.tm_mday, date, local.tm_hour, local.tm_min,
                                                  local.tm_sec));
}

void makeText(LineCache& cache, std::int64_t second, std::uint32_t process, std::uint32_t thread,
              const char* mark) {
    const std::size_t at = putTime(cache.text, sizeof cache.text, second);
    const char* colon = *mark != '\0' ? ":" : "";
    const int behind = std::snprintf(cache.text + at, sizeof cache.text - at,
                                     "000 (%d:%lu%s%.8s): ", static_cast<int>(process),
                                     static_cast<unsigned long>(thread), colon, mark);
    cache.second = second;
    cache.process = process;
    cache.thread = thread;
    std::memcpy(cache.mark, mark, sizeof cache.mark);
    cache.millisecondsAt = static_cast<std::uint32_t>(at);
    cache.length = static_cast<std::uint32_t>(at) + static_cast<std::uint32_t>(behind);
}

} // namespace

std::string_view headerText(LineCache& cache, const ThreadLogState& state) {
    const platform::WallTime now = platform::calls.wallClock();
    const std::uint32_t process = platform::processId();
    const std::uint32_t thread = platform::threadId();
    const char* mark = state.mark != nullptr ? state.mark : kNoMark;
    if (!isMadeOf(cache, now.seconds, process, thread, mark))
        makeText(cache, now.seconds, process, thread, mark);
    const auto milliseconds = static_cast<unsigned>(now.milliseconds);
    char* digits = cache.text + cache.millisecondsAt;
    digits[0] = static_cast<char>('0' + milliseconds / 100 % 10);
    digits[1] = static_cast<char>('0' + milliseconds / 10 % 10);
    digits[2] = static_cast<char>('0' + milliseconds % 10);
    return {cache.text, cache.length};
}

// The last error on POSIX systems: errno.

#include "platform/error.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace platform {

std::uint32_t lastError() noexcept {
    return static_cast<std::uint32_t>(errno);
}
void setLastError(std::uint32_t code) noexcept {
    errno = static_cast<int>(code);
}
std::uint32_t lastSocketError() noexcept {
    return lastError();
}

void systemErrorText(std::uint32_t code, char* out, std::size_t size) noexcept {
    if (size == 0)
        return;
    char scratch[256];
    const char* text = ::strerror_r(static_cast<int>(code), scratch, sizeof scratch);
    // Known texts stand elsewhere; the buffer is used to make one up from the number.
    if (text == scratch)
        text = "unknown error";
    const std::size_t length = std::strlen(text);
    const std::size_t kept = length < size ? length : size - 1;
    std::memcpy(out, text, kept);
    out[kept] = '\0';
}

} // namespace platform

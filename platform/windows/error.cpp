// The last error on Windows.

#include "platform/error.h"

#include <winsock2.h>

#include <windows.h>

#include <cstring>

namespace platform {

std::uint32_t lastError() noexcept {
    return ::GetLastError();
}
void setLastError(std::uint32_t code) noexcept {
    ::SetLastError(code);
}
std::uint32_t lastSocketError() noexcept {
    return static_cast<std::uint32_t>(::WSAGetLastError());
}

void systemErrorText(std::uint32_t code, char* out, std::size_t size) noexcept {
    if (size == 0)
        return;
    // A text that does not fit is not cut but refused, so there is room for more than any has.
    char scratch[4096];
    DWORD length = ::FormatMessageA(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS,
                                    nullptr, code, MAKELANGID(LANG_NEUTRAL, SUBLANG_DEFAULT),
                                    scratch, sizeof scratch, nullptr);
    // The system's texts end in a full stop and a line end, which the run-time's category drops.
    if (length > 2 && scratch[length - 2] == '\r' && scratch[length - 1] == '\n')
        length -= 2;
    if (length > 0 && scratch[length - 1] == '.')
        --length;
    static const char kNone[] = "unknown error";
    const char* text = length > 0 ? scratch : kNone;
    if (length == 0)
        length = sizeof kNone - 1;
    const std::size_t kept = length < size ? length : size - 1;
    std::memcpy(out, text, kept);
    out[kept] = '\0';
}

} // namespace platform

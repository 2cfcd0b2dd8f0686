// The running program on Windows.

#include "platform/process.h"

#include <windows.h>

#include "../src/system.h"

namespace platform {

const PathForm pathForm = {
    .separator = '\\', .alternate = '\0', .drives = true, .absolutePrefix = 2};

bool processEnds() noexcept {
    using Question = BOOLEAN(WINAPI*)();
    static const auto question = reinterpret_cast<Question>(reinterpret_cast<void*>(
        ::GetProcAddress(::GetModuleHandleA("ntdll.dll"), "RtlDllShutdownInProgress")));
    return question != nullptr && question();
}

namespace system {

std::size_t executablePath(char* out, std::size_t size) {
    if (size == 0)
        return 0;
    const std::size_t length = ::GetModuleFileNameA(nullptr, out, static_cast<DWORD>(size));
    // A path that is cut is not terminated by every version of the system.
    const std::size_t kept = length < size ? length : size - 1;
    if (kept > 0)
        out[kept] = '\0';
    return kept;
}

} // namespace system
} // namespace platform

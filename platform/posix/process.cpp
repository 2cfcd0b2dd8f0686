// The running program on Linux.

#include "platform/process.h"

#include <unistd.h>

#include "../src/system.h"

namespace platform {

const PathForm pathForm = {
    .separator = '/', .alternate = '\\', .drives = false, .absolutePrefix = 1};

bool processEnds() noexcept {
    return false;
}

namespace system {

std::size_t executablePath(char* out, std::size_t size) {
    char path[4096];
    const ssize_t length = ::readlink("/proc/self/exe", path, sizeof path);
    if (length <= 0 || size == 0)
        return 0;
    const std::size_t kept =
        static_cast<std::size_t>(length) < size ? static_cast<std::size_t>(length) : size - 1;
    for (std::size_t i = 0; i < kept; ++i)
        out[i] = path[i];
    out[kept] = '\0';
    return kept;
}

} // namespace system
} // namespace platform

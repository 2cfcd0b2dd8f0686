// Names of files on POSIX systems: bytes as they stand.

#include "platform/pathText.h"

namespace platform {

std::string narrowName(const std::filesystem::path& path) {
    return path.string();
}

std::filesystem::path pathOfName(const std::string& name) {
    return name;
}

} // namespace platform

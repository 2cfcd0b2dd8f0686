// Files for reading and C streams on POSIX systems.

#include "platform/file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <cerrno>

#include "../src/system.h"

namespace platform {

const int textEndMark = -1;
constinit const std::string_view textLineEnd = "\n";

namespace system {

FileHandle openForReading(const char* path) {
    int file = 0;
    do
        file = ::open(path, O_RDONLY | O_CLOEXEC);
    while (file < 0 && errno == EINTR);
    if (file < 0)
        return kNoFile;
    struct stat status = {};
    if (::fstat(file, &status) != 0 || S_ISDIR(status.st_mode)) {
        const int reason = S_ISDIR(status.st_mode) ? EISDIR : errno;
        ::close(file);
        errno = reason;
        return kNoFile;
    }
    return file;
}

std::ptrdiff_t readAt(FileHandle file, std::uint64_t offset, void* out, std::size_t size) {
    ssize_t count = 0;
    do
        count = ::pread(static_cast<int>(file), out, size, static_cast<off_t>(offset));
    while (count < 0 && errno == EINTR);
    return count;
}

std::int64_t fileSize(FileHandle file) {
    struct stat status = {};
    return ::fstat(static_cast<int>(file), &status) == 0 ? status.st_size : -1;
}

void closeFile(FileHandle file) {
    ::close(static_cast<int>(file));
}

std::FILE* openStream(const char* path) {
    std::FILE* stream = std::fopen(path, "rbe");
    struct stat status = {};
    if (stream != nullptr && ::fstat(::fileno(stream), &status) == 0 && S_ISDIR(status.st_mode)) {
        std::fclose(stream);
        errno = EISDIR;
        return nullptr;
    }
    return stream;
}

bool seekStream(std::FILE* stream, std::int64_t offset, int origin) {
    return ::fseeko(stream, offset, origin) == 0;
}

std::int64_t tellStream(std::FILE* stream) {
    return ::ftello(stream);
}

std::size_t readStream(void* out, std::size_t size, std::size_t count, std::FILE* stream) {
    return std::fread(out, size, count, stream);
}

} // namespace system
} // namespace platform

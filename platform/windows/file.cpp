// Files for reading and C streams on Windows.

#include "platform/file.h"

#include <windows.h>

#include "../src/system.h"

namespace platform {

const int textEndMark = 0x1A;
constinit const std::string_view textLineEnd = "\r\n";

namespace system {

namespace {
HANDLE handleOf(FileHandle file) {
    return reinterpret_cast<HANDLE>(file);
}
} // namespace

FileHandle openForReading(const char* path) {
    // The sharing of the run-time's _SH_DENYNO: others read and write, nobody deletes.
    HANDLE file = ::CreateFileA(path, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    return reinterpret_cast<FileHandle>(file); // INVALID_HANDLE_VALUE is -1, kNoFile
}

std::ptrdiff_t readAt(FileHandle file, std::uint64_t offset, void* out, std::size_t size) {
    OVERLAPPED position = {};
    position.Offset = static_cast<DWORD>(offset);
    position.OffsetHigh = static_cast<DWORD>(offset >> 32);
    constexpr std::size_t kMost = std::size_t{1} << 30;
    DWORD count = 0;
    if (!::ReadFile(handleOf(file), out, static_cast<DWORD>(size < kMost ? size : kMost), &count,
                    &position))
        return ::GetLastError() == ERROR_HANDLE_EOF ? 0 : -1;
    return static_cast<std::ptrdiff_t>(count);
}

std::int64_t fileSize(FileHandle file) {
    LARGE_INTEGER size = {};
    return ::GetFileSizeEx(handleOf(file), &size) ? size.QuadPart : -1;
}

void closeFile(FileHandle file) {
    ::CloseHandle(handleOf(file));
}

std::FILE* openStream(const char* path) {
    return std::fopen(path, "rb");
}

bool seekStream(std::FILE* stream, std::int64_t offset, int origin) {
    return ::_fseeki64(stream, offset, origin) == 0;
}

std::int64_t tellStream(std::FILE* stream) {
    return ::_ftelli64(stream);
}

std::size_t readStream(void* out, std::size_t size, std::size_t count, std::FILE* stream) {
    return std::fread(out, size, count, stream);
}

} // namespace system
} // namespace platform

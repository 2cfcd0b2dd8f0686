// Storage files on Windows.

#include <windows.h>

#include "../src/system.h"

namespace platform::system {

namespace {

DWORD dispositionOf(Disposition disposition) {
    switch (disposition) {
        case Disposition::createAlways:
            return CREATE_ALWAYS;
        case Disposition::openAlways:
            return OPEN_ALWAYS;
        default:
            return OPEN_EXISTING;
    }
}

} // namespace

StorageHandle openStorage(const char* path, StorageAccess access) {
    const DWORD reading = access.reads || !access.writes ? GENERIC_READ : 0;
    const DWORD rights = access.writes ? reading | GENERIC_WRITE : reading;
    const DWORD share = access.sharesWrite ? FILE_SHARE_READ | FILE_SHARE_WRITE : FILE_SHARE_READ;
    const DWORD flags = access.sequential ? FILE_FLAG_SEQUENTIAL_SCAN : FILE_ATTRIBUTE_NORMAL;
    return ::CreateFileA(path, rights, share, nullptr, dispositionOf(access.disposition), flags,
                         nullptr); // INVALID_HANDLE_VALUE: kInvalidStorage
}

bool closeStorage(StorageHandle file) {
    return file == kInvalidStorage || ::CloseHandle(file);
}

std::int64_t storageSize(StorageHandle file) {
    LARGE_INTEGER size = {};
    return ::GetFileSizeEx(file, &size) ? size.QuadPart : -1;
}

bool seekStorage(StorageHandle file, std::uint64_t offset) {
    LARGE_INTEGER place = {};
    place.QuadPart = static_cast<LONGLONG>(offset);
    return ::SetFilePointerEx(file, place, nullptr, FILE_BEGIN);
}

bool truncateStorage(StorageHandle file) {
    return ::SetEndOfFile(file);
}

bool readStorage(StorageHandle file, void* out, std::uint32_t size, std::uint32_t* done) {
    DWORD count = 0;
    const bool read = ::ReadFile(file, out, size, &count, nullptr);
    *done = count;
    return read;
}

bool moveStorage(StorageHandle file, std::int64_t offset, SeekOrigin origin,
                 std::int64_t* position) {
    constexpr DWORD kOrigins[] = {FILE_BEGIN, FILE_CURRENT, FILE_END};
    LARGE_INTEGER distance = {};
    LARGE_INTEGER reached = {};
    distance.QuadPart = offset;
    if (!::SetFilePointerEx(file, distance, &reached, kOrigins[static_cast<int>(origin)]))
        return false;
    *position = reached.QuadPart;
    return true;
}

bool writeStorage(StorageHandle file, const void* data, std::uint32_t size, std::uint32_t* done) {
    DWORD count = 0;
    const bool wrote = ::WriteFile(file, data, size, &count, nullptr);
    *done = count;
    return wrote;
}

bool appendStorage(StorageHandle file, const void* data, std::uint32_t size, std::uint32_t* done) {
    OVERLAPPED end = {};
    end.Offset = 0xFFFFFFFF;
    end.OffsetHigh = 0xFFFFFFFF;
    DWORD count = 0;
    const bool wrote = ::WriteFile(file, data, size, &count, &end);
    *done = count;
    return wrote;
}

} // namespace platform::system

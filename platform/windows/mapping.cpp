// Mappings of storage files and views on Windows.

#include "platform/mapping.h"

#include <windows.h>

#include "../src/system.h"

namespace platform {

std::uint64_t allocationGranularity() {
    SYSTEM_INFO info = {};
    ::GetSystemInfo(&info);
    return info.dwAllocationGranularity;
}

namespace system {

namespace {

DWORD lowHalf(std::uint64_t value) {
    return static_cast<DWORD>(value);
}
DWORD highHalf(std::uint64_t value) {
    return static_cast<DWORD>(value >> 32);
}

} // namespace

MappingHandle createMapping(StorageHandle file, std::uint64_t size, bool writes) {
    // The system takes these handles for its paging file, and would map memory of nobody's file.
    if (file == nullptr || file == kInvalidStorage) {
        ::SetLastError(ERROR_INVALID_HANDLE);
        return nullptr;
    }
    return ::CreateFileMappingA(file, nullptr, writes ? PAGE_READWRITE : PAGE_READONLY,
                                highHalf(size), lowHalf(size), nullptr);
}

bool closeMapping(MappingHandle mapping) {
    return ::CloseHandle(mapping);
}

void* mapView(MappingHandle mapping, std::uint64_t offset, std::uint64_t size, bool writes) {
    return ::MapViewOfFile(mapping, writes ? FILE_MAP_WRITE : FILE_MAP_READ, highHalf(offset),
                           lowHalf(offset), size);
}

bool unmapView(void* view) {
    return ::UnmapViewOfFile(view);
}

} // namespace system
} // namespace platform

// Times, names and folders of files on Windows.

#include <sys/stat.h>
#include <windows.h>

#include <cerrno>
#include <string>

#include "../src/system.h"
#include "platform/renaming.h"

namespace platform {

void renewCreationTime(const char* path) noexcept {
    HANDLE file = ::CreateFileA(path, FILE_WRITE_ATTRIBUTES,
                                FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE)
        return;
    FILETIME now = {};
    ::GetSystemTimeAsFileTime(&now);
    ::SetFileTime(file, &now, nullptr, nullptr);
    ::CloseHandle(file);
}

} // namespace platform

namespace platform::system {

bool creationTime(const char* path, std::int64_t* seconds, int* error) {
    struct _stat64 status = {};
    if (::_stat64(path, &status) != 0) {
        *error = errno;
        return false;
    }
    *seconds = status.st_ctime;
    return true;
}

// The wide form by the process's code page, as the narrow calls of the system have it.
static std::wstring wideForm(const char* name) {
    const int length = ::MultiByteToWideChar(CP_ACP, 0, name, -1, nullptr, 0);
    std::wstring wide(length > 0 ? static_cast<std::size_t>(length) : 1, L'\0');
    ::MultiByteToWideChar(CP_ACP, 0, name, -1, wide.data(), length);
    return wide;
}

bool moveFile(const char* from, const char* to) {
    return ::MoveFileExW(wideForm(from).c_str(), wideForm(to).c_str(),
                         MOVEFILE_REPLACE_EXISTING | MOVEFILE_COPY_ALLOWED);
}

bool removeFile(const char* path) {
    if (::DeleteFileA(path) || ::GetLastError() == ERROR_FILE_NOT_FOUND ||
        ::GetLastError() == ERROR_PATH_NOT_FOUND)
        return true;
    const DWORD reason = ::GetLastError();
    if (::RemoveDirectoryA(path))
        return true;
    ::SetLastError(reason);
    return false;
}

bool setCurrentFolder(const char* path) {
    return ::SetCurrentDirectoryA(path);
}

void sleepFor(std::uint32_t milliseconds) {
    ::Sleep(milliseconds);
}

} // namespace platform::system

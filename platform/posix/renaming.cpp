// Times, names and folders of files on POSIX systems.

#include <fcntl.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <string>

#include "../src/system.h"
#include "platform/renaming.h"
#include "storageHandle.h"

namespace platform {
void renewCreationTime(const char*) noexcept {}
} // namespace platform

namespace platform::system {

namespace {

bool writeAll(int to, const char* bytes, ssize_t size) {
    while (size > 0) {
        const ssize_t count = retried([=] { return ::write(to, bytes, size); });
        if (count < 0)
            return false;
        bytes += count;
        size -= count;
    }
    return true;
}

bool copyBytes(int from, int to) {
    char piece[65536];
    for (;;) {
        const ssize_t count = retried([&] { return ::read(from, piece, sizeof piece); });
        if (count <= 0)
            return count == 0;
        if (!writeAll(to, piece, count))
            return false;
    }
}

bool copyRights(int from, int to) {
    struct stat status = {};
    if (::fstat(from, &status) != 0 || ::fchmod(to, status.st_mode & 07777) != 0)
        return false;
    const timespec times[] = {status.st_atim, status.st_mtim};
    return ::futimens(to, times) == 0;
}

// Removes what a failure left half done, and gives its reason back.
void removeHalf(const char* path) {
    const int reason = errno;
    ::unlink(path);
    errno = reason;
}

// To another file system.  The copy is complete before it takes the name, so the file that was
// there stays where the copy fails.
bool moveByCopy(const char* from, const char* to) {
    const int source = retried([=] { return ::open(from, O_RDONLY | O_CLOEXEC); });
    if (source < 0)
        return false;
    std::string half;
    int target = -1;
    try {
        half = std::string(to) + ".XXXXXX";
        target = ::mkostemp(half.data(), O_CLOEXEC);
    } catch (const std::bad_alloc&) {
        errno = ENOMEM;
    }
    bool good = target >= 0 && copyBytes(source, target) && copyRights(source, target);
    if (target >= 0) {
        good = ::close(target) == 0 && good;
        good = good && std::rename(half.c_str(), to) == 0;
        if (!good)
            removeHalf(half.c_str());
    }
    const int reason = errno;
    ::close(source);
    errno = reason;
    if (good)
        ::unlink(from); // one that stays behind is no failure, as on Windows
    return good;
}

} // namespace

bool creationTime(const char* path, std::int64_t* seconds, int* error) {
    struct statx status = {};
    if (::statx(AT_FDCWD, path, 0, STATX_BTIME | STATX_CTIME, &status) != 0) {
        *error = errno;
        return false;
    }
    const bool hasBirth = (status.stx_mask & STATX_BTIME) != 0;
    *seconds = hasBirth ? status.stx_btime.tv_sec : status.stx_ctime.tv_sec;
    return true;
}

bool moveFile(const char* from, const char* to) {
    return std::rename(from, to) == 0 || (errno == EXDEV && moveByCopy(from, to));
}

bool removeFile(const char* path) {
    return std::remove(path) == 0 || errno == ENOENT || errno == ENOTDIR;
}

bool setCurrentFolder(const char* path) {
    return ::chdir(path) == 0;
}

void sleepFor(std::uint32_t milliseconds) {
    timespec left = {milliseconds / 1000, static_cast<long>(milliseconds % 1000) * 1'000'000};
    while (::nanosleep(&left, &left) != 0 && errno == EINTR) {
    }
}

} // namespace platform::system

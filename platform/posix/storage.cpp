// Storage files on POSIX systems.

#include <fcntl.h>
#include <sys/stat.h>

#include <new>

#include "../src/system.h"
#include "storageHandle.h"

namespace platform::system {

namespace {

bool took(ssize_t count, std::uint32_t* done) {
    *done = count > 0 ? static_cast<std::uint32_t>(count) : 0;
    return count >= 0;
}

// Has every write go to the end of the file, or no longer.  A write of such a file costs a tenth
// less than one with a flag of its own.
bool setAppends(File& file, bool appends) {
    if (file.appends == appends)
        return true;
    const int flags = ::fcntl(file.file, F_GETFL);
    if (flags < 0 ||
        ::fcntl(file.file, F_SETFL, appends ? flags | O_APPEND : flags & ~O_APPEND) != 0)
        return false;
    file.appends = appends;
    return true;
}

} // namespace

StorageHandle openStorage(const char* path, StorageAccess access) {
    int flags = O_CLOEXEC | (!access.writes ? O_RDONLY : access.reads ? O_RDWR : O_WRONLY);
    if (access.disposition == Disposition::createAlways)
        flags |= O_CREAT | O_TRUNC;
    else if (access.disposition == Disposition::openAlways)
        flags |= O_CREAT;
    const int file = retried([=] { return ::open(path, flags, 0666); });
    if (file < 0)
        return kInvalidStorage;
    struct stat status = {};
    if (::fstat(file, &status) == 0 && S_ISDIR(status.st_mode)) {
        ::close(file);
        errno = EISDIR;
        return kInvalidStorage;
    }
    if (access.sequential)
        ::posix_fadvise(file, 0, 0, POSIX_FADV_SEQUENTIAL); // advice: a refusal costs speed alone
    auto* handle = new (std::nothrow) File{file};
    if (handle == nullptr) {
        ::close(file);
        errno = ENOMEM;
        return kInvalidStorage;
    }
    return handle;
}

bool closeStorage(StorageHandle file) {
    return file == kInvalidStorage || closeOnce(static_cast<File*>(file));
}

std::int64_t storageSize(StorageHandle file) {
    struct stat status = {};
    return ::fstat(fileOf(file), &status) == 0 ? status.st_size : -1;
}

bool seekStorage(StorageHandle file, std::uint64_t offset) {
    return ::lseek(fileOf(file), static_cast<off_t>(offset), SEEK_SET) >= 0;
}

bool truncateStorage(StorageHandle file) {
    const off_t end = ::lseek(fileOf(file), 0, SEEK_CUR);
    return end >= 0 && retried([=] { return ::ftruncate(fileOf(file), end); }) == 0;
}

bool readStorage(StorageHandle file, void* out, std::uint32_t size, std::uint32_t* done) {
    return took(retried([=] { return ::read(fileOf(file), out, size); }), done);
}

bool moveStorage(StorageHandle file, std::int64_t offset, SeekOrigin origin,
                 std::int64_t* position) {
    constexpr int kOrigins[] = {SEEK_SET, SEEK_CUR, SEEK_END};
    const off_t reached = ::lseek(fileOf(file), offset, kOrigins[static_cast<int>(origin)]);
    if (reached >= 0)
        *position = reached;
    return reached >= 0;
}

bool writeStorage(StorageHandle file, const void* data, std::uint32_t size, std::uint32_t* done) {
    if (fileOf(file) >= 0)
        setAppends(*static_cast<File*>(file), false);
    return took(retried([=] { return ::write(fileOf(file), data, size); }), done);
}

bool appendStorage(StorageHandle file, const void* data, std::uint32_t size, std::uint32_t* done) {
    if (fileOf(file) >= 0 && !setAppends(*static_cast<File*>(file), true))
        ::lseek(fileOf(file), 0, SEEK_END); // a file system without the mode
    return took(retried([=] { return ::write(fileOf(file), data, size); }), done);
}

} // namespace platform::system

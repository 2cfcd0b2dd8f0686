// The table of platform calls that can fail.
//
// Everything above this layer reaches the system through it, so a test can make the Nth call of any
// kind fail without a special build.  A call that fails leaves its reason in the last error.  What
// is owned is wrapped in file.h and memory.h; the other calls are made through the table itself.
// Storage files are those that are written: the ones that are mapped in pieces and shared with a
// writing process, and log files.

#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>

namespace platform {

// A file opened for reading.  Negative: none.
using FileHandle = std::intptr_t;
inline constexpr FileHandle kNoFile = -1;

// A storage file.  Null: closed; kInvalidStorage: what a failed open gives.
using StorageHandle = void*;
inline void* const kInvalidStorage = reinterpret_cast<StorageHandle>(std::intptr_t{-1});

enum class Disposition {
    openExisting,
    createAlways, // an existing file loses its content
    openAlways,
};

struct StorageAccess {
    bool writes;      // else reading alone
    bool sharesWrite; // others may write meanwhile; on Linux they always may
    Disposition disposition;
    bool sequential = false; // a hint: the file will be read from its start to its end
    bool reads = true;       // false with `writes`: writing alone, which a file may allow alone
};

// What a position in a file counts from.
enum class SeekOrigin {
    begin,
    current,
    end,
};

// A mapping object: it covers the first bytes of a file, as many as it was made with.
using MappingHandle = void*;

// A point of time, UTC.
struct WallTime {
    std::int64_t seconds; // since 1970
    std::int32_t milliseconds;
};

struct Calls {
    // Opens an existing file for binary reading; others may read and write it meanwhile
    // (CreateFileA).  A folder is refused.  kNoFile on failure.
    FileHandle (*openForReading)(const char* path);

    // Reads up to `size` bytes at `offset` (ReadFile with a position).  The number of bytes, 0 at
    // the end of the file, -1 on failure.
    std::ptrdiff_t (*readAt)(FileHandle file, std::uint64_t offset, void* out, std::size_t size);

    // The file's size in bytes (GetFileSizeEx), -1 on failure.
    std::int64_t (*fileSize)(FileHandle file);

    void (*closeFile)(FileHandle file);

    // C streams in mode "rb", with 64-bit positions.  A folder is refused.  Null, false and -1 on
    // failure.
    std::FILE* (*openStream)(const char* path);
    bool (*seekStream)(std::FILE* stream, std::int64_t offset, int origin);
    std::int64_t (*tellStream)(std::FILE* stream);
    std::size_t (*readStream)(void* out, std::size_t size, std::size_t count, std::FILE* stream);

    // Full path of the running program, cut to `size` with its terminator (GetModuleFileNameA).
    // Its length, 0 on failure, when `out` is left alone.
    std::size_t (*executablePath)(char* out, std::size_t size);

    // A block for large tables, aligned for any type and backed by large pages where the system
    // gives them.  Null on failure.
    void* (*allocateLarge)(std::size_t size);

    // Opens a storage file (CreateFileA), kInvalidStorage on failure.
    StorageHandle (*openStorage)(const char* path, StorageAccess access);

    // Closes it (CloseHandle).  Mappings and views of it stay good.  kInvalidStorage is accepted.
    bool (*closeStorage)(StorageHandle file);

    // Its size in bytes (GetFileSizeEx), -1 on failure.
    std::int64_t (*storageSize)(StorageHandle file);

    // Moves the file pointer (SetFilePointerEx) and ends the file there (SetEndOfFile).
    bool (*seekStorage)(StorageHandle file, std::uint64_t offset);
    bool (*truncateStorage)(StorageHandle file);

    // Reads at the file pointer and advances it (ReadFile).  `done` gets the bytes that came, 0 at
    // the end of the file, on a failure too.
    bool (*readStorage)(StorageHandle file, void* out, std::uint32_t size, std::uint32_t* done);

    // Moves the file pointer (SetFilePointerEx); `position` gets where it then stands.
    bool (*moveStorage)(StorageHandle file, std::int64_t offset, SeekOrigin origin,
                        std::int64_t* position);

    // Writes at the file pointer and advances it (WriteFile).  `done` gets the bytes that were
    // taken, on a failure too; fewer than `size` are no failure.
    bool (*writeStorage)(StorageHandle file, const void* data, std::uint32_t size,
                         std::uint32_t* done);

    // The same at the end of the file, wherever it is when the call is made: what others append
    // meanwhile is not overwritten (WriteFile at the offset that stands for the end).
    bool (*appendStorage)(StorageHandle file, const void* data, std::uint32_t size,
                          std::uint32_t* done);

    // When the file was made, in seconds since 1970 UTC (_stat64, st_ctime; on Linux its birth, or
    // the last change of its state where the file system keeps none).  False with the reason in
    // `error`, a number of errno.
    bool (*creationTime)(const char* path, std::int64_t* seconds, int* error);

    // Renames a file over one that may be there, and copies it where that needs a copy
    // (MoveFileExW).
    bool (*moveFile)(const char* from, const char* to);

    // Deletes a file; one that is not there is a success.
    bool (*removeFile)(const char* path);

    // Makes the folder the process's current one (SetCurrentDirectoryA).
    bool (*setCurrentFolder)(const char* path);

    // Waits (Sleep).  A test that stands in need not.
    void (*sleep)(std::uint32_t milliseconds);

    // Makes a mapping of the file's first `size` bytes (CreateFileMappingA); 0 stands for the
    // file's size and fails for an empty file.  A shorter file grows to `size` with zeroes and
    // never shrinks, even while another process makes it grow further.  Null on failure.
    MappingHandle (*createMapping)(StorageHandle file, std::uint64_t size, bool writes);
    bool (*closeMapping)(MappingHandle mapping);

    // Maps `size` bytes at `offset` (MapViewOfFile).  The offset is a multiple of
    // allocationGranularity() and the range lies inside the mapping, or the call fails: null.  The
    // view outlives its mapping and its file.
    void* (*mapView)(MappingHandle mapping, std::uint64_t offset, std::uint64_t size, bool writes);

    // Takes a view of mapView away (UnmapViewOfFile).  Any other address is a failure.
    bool (*unmapView)(void* view);

    // The present time (_ftime64).  Cannot fail; a test sets the clock here.
    WallTime (*wallClock)();

    // The end of a process that breaks a contract: one line on standard error, then on Windows the
    // structured exception of the C library's invalid parameters, on Linux abort.  May return where
    // a test stands in.
    void (*invalidParameter)();
};

// The table in force.  A test that changes it puts it back, and changes it on one thread only.
extern Calls calls;

} // namespace platform

// The table of platform calls that can fail.
//
// Everything above this layer reaches the system through it, so a test can make the Nth call of any
// kind fail without a special build.  A call that fails leaves its reason in the last error.  What
// is owned is wrapped in file.h and memory.h; the other calls are made through the table itself.

#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>

namespace platform {

// A file opened for reading.  Negative: none.
using FileHandle = std::intptr_t;
inline constexpr FileHandle kNoFile = -1;

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
};

// The table in force.  A test that changes it puts it back, and changes it on one thread only.
extern Calls calls;

} // namespace platform

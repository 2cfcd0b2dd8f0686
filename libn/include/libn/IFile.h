// A plain file: the interface under the streams of the logs.
//
// The interface alone; WinFile.h has the file of the system.  The order of the virtual operations
// is binding for other modules.  Nothing here is raised, results tell, and nothing locks: one
// thread at a time uses an object.

#pragma once

#include <cstdint>
#include <string>

namespace libn {

class IFile {
  public:
    // As `accessHint`: the file will be read from its start to its end.  Any other value is none.
    static constexpr std::int32_t kSequential = 1;

    // As `origin`: what an offset counts from.
    static constexpr std::uint32_t kFromBegin = 0;
    static constexpr std::uint32_t kFromPosition = 1;
    static constexpr std::uint32_t kFromEnd = 2;

    // Closes the file.
    virtual ~IFile() = default;

    // Each of the three closes what was open, keeps the name and opens for reading, with `write`
    // also for writing; others may read and write meanwhile.  Whether the file is open.
    // A null name counts as an empty one, which nothing opens.
    virtual bool openExisting(const char* name, std::int32_t accessHint, bool write) = 0;
    // Makes the file where there is none.  For writing.
    virtual bool openAlways(const char* name, std::int32_t accessHint) = 0;
    // Makes the file, or empties the one that is there.  For writing.
    virtual bool create(const char* name, std::int32_t accessHint) = 0;

    // Reads up to `n` bytes at the position and moves it; fewer come where the file ends, which is
    // true.  `done`, where given, gets the bytes that came, also when a read fails.  False, with
    // `done` left alone, for a null buffer, no count and a closed file.
    virtual bool read(void* buffer, std::uint64_t n, std::uint64_t* done) = 0;

    // Writes all of the `n` bytes at the position and moves it.  False for a null buffer and a
    // closed file, also with no count, and where the system fails or takes nothing; a part may then
    // be written.
    virtual bool write(const void* buffer, std::uint64_t n) = 0;

    // Moves the position, also past the end.  `position`, where given, gets it.  False, without a
    // move, for a closed file, an unknown origin and a place in front of the file.
    virtual bool seek(const std::int64_t& offset, std::uint32_t origin, std::int64_t* position) = 0;

    // The position, -1 where it cannot be told.
    virtual std::int64_t tell() = 0;

    // Whether the size can be told; `out` is 0 where not.
    virtual bool size(std::uint64_t& out) = 0;

    // Any number of times.
    virtual void close() = 0;

    // That of the last open, whatever became of it.
    virtual const std::string& name() const = 0;

    virtual bool isOpen() const = 0;

    // Moves the position to `offset` from the start, writes as write() does, and moves it to the
    // end of the file.  A step that fails ends it with false and leaves the position where it is.
    virtual bool writeAt(const void* buffer, std::uint64_t n, std::int64_t offset) = 0;
};

} // namespace libn

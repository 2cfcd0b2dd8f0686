// Read-only files and C streams of the data files.

#pragma once

#include <string_view>
#include <utility>

#include "platform/calls.h"

namespace platform {

// Owns a file opened for reading.  One thread at a time.
class ReadFile {
  public:
    ReadFile() noexcept = default;
    explicit ReadFile(const char* path) : m_handle(calls.openForReading(path)) {}
    ReadFile(ReadFile&& other) noexcept : m_handle(std::exchange(other.m_handle, kNoFile)) {}
    // The former file goes over to `other` and is closed with it.
    ReadFile& operator=(ReadFile&& other) noexcept {
        std::swap(m_handle, other.m_handle);
        return *this;
    }
    ~ReadFile() {
        if (isOpen())
            calls.closeFile(m_handle);
    }

    // -1 from size() where the system cannot tell.
    bool isOpen() const noexcept { return m_handle != kNoFile; }
    std::int64_t size() const { return calls.fileSize(m_handle); }

    // Reads up to `size` bytes at `offset`: the number of bytes, 0 at the end of the file, -1 on
    // failure.
    std::ptrdiff_t readAt(std::uint64_t offset, void* out, std::size_t size) const {
        return calls.readAt(m_handle, offset, out, size);
    }

  private:
    FileHandle m_handle = kNoFile;
};

// What ends a text file on this system before its last byte does, or -1 for nothing: the text mode
// of Windows stops at a Ctrl-Z.
extern const int textEndMark;

// How lines end in a text file on this system; the text mode makes a line feed of it, and back.
extern const std::string_view textLineEnd;

} // namespace platform

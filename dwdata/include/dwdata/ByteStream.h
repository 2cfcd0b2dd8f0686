// A binary input stream over a file that someone else may be writing.
//
// It reads through a sliding window and maps nothing, so a file that shrinks fails a read and never
// faults.  A read that cannot be had whole leaves its target as it was and fails the stream for
// good, as a standard stream that nobody clears.  One thread at a time.

#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "platform/file.h"

class ByteStream {
  public:
    // Bytes that contiguous() can hand out at once.
    static constexpr std::size_t kWindowSize = std::size_t{256} << 10;

    explicit ByteStream(const char* path);

    bool isOpen() const { return m_file.isOpen(); }
    bool good() const { return !m_failed; }

    std::uint64_t position() const { return m_windowStart + m_cursor; }
    // Goes to a byte counted from the start of the file, also behind its end.  Nothing on a failed
    // stream.
    void seek(std::uint64_t position);

    // Bytes from here to the end that the file had when it was opened.
    std::uint64_t bytesLeft() const { return position() < m_size ? m_size - position() : 0; }

    // Reads a field of `size` bytes.
    void read(void* out, std::size_t size);

    // Reads a plain value or array.
    template <class T>
    void get(T& value) {
        read(&value, sizeof value);
    }

    // The next `size` bytes, at most kWindowSize, and a step over them; null, without a step or a
    // failure, where the file does not have them or the stream has failed.  Good until the next
    // read.
    const char* contiguous(std::size_t size) {
        if (m_end - m_cursor < size && !fill(size))
            return nullptr;
        const char* bytes = m_window.get() + m_cursor;
        m_cursor += size;
        return bytes;
    }

    // Reads a 4-byte length and so many bytes, and assigns those before the first zero.  Length 0
    // and a failure leave the text as it was.
    void readCountedString(std::string& text);

  private:
    bool fill(std::size_t size);
    void readLongString(std::string& text, std::uint32_t length);
    void fail();

    platform::ReadFile m_file;
    std::uint64_t m_size = 0;
    std::unique_ptr<char[]> m_window;
    std::uint64_t m_windowStart = 0; // of the file
    std::size_t m_cursor = 0;        // in the window
    std::size_t m_end = 0;           // of the bytes in the window
    std::size_t m_ahead = 0;         // how much the next fill reads at least
    bool m_broken = false;           // the system failed a read: nothing more comes from it
    bool m_failed = false;
};

// The sliding window under the readers of streamed formats.

#include "dwdata/ByteStream.h"

#include <algorithm>
#include <cstring>

namespace {

// A seek starts with a short read, since records and blocks take turns; each further fill reads
// four times as much, up to the window.
constexpr std::size_t kFirstRead = 8192;

std::size_t lengthBeforeZero(const char* bytes, std::size_t size) {
    const void* zero = std::memchr(bytes, 0, size);
    return zero != nullptr ? static_cast<std::size_t>(static_cast<const char*>(zero) - bytes)
                           : size;
}

} // namespace

ByteStream::ByteStream(const char* path) : m_file(path), m_ahead(kFirstRead) {
    if (!m_file.isOpen()) {
        m_failed = true;
        return;
    }
    const std::int64_t size = m_file.size();
    m_size = size > 0 ? static_cast<std::uint64_t>(size) : 0;
    m_window = std::make_unique_for_overwrite<char[]>(kWindowSize);
}

void ByteStream::seek(std::uint64_t position) {
    if (m_failed)
        return;
    if (position >= m_windowStart && position - m_windowStart <= m_end) {
        m_cursor = static_cast<std::size_t>(position - m_windowStart);
        return;
    }
    m_windowStart = position;
    m_cursor = m_end = 0;
    m_ahead = kFirstRead;
}

bool ByteStream::fill(std::size_t size) {
    if (m_failed || m_broken)
        return false;
    const std::size_t kept = m_end - m_cursor;
    std::memmove(m_window.get(), m_window.get() + m_cursor, kept);
    m_windowStart += m_cursor;
    m_cursor = 0;
    m_end = kept;
    const std::size_t wanted = std::min(std::max(size, m_ahead), kWindowSize);
    m_ahead = std::min(4 * m_ahead, kWindowSize);
    while (m_end < size) {
        const std::ptrdiff_t count =
            m_file.readAt(m_windowStart + m_end, m_window.get() + m_end, wanted - m_end);
        if (count <= 0) {
            m_broken = count < 0;
            return false;
        }
        m_end += static_cast<std::size_t>(count);
    }
    return true;
}

void ByteStream::fail() {
    m_failed = true;
    m_windowStart += m_cursor;
    m_cursor = m_end = 0; // nothing is handed out any more, not even what was read already
}

void ByteStream::read(void* out, std::size_t size) {
    if (const char* bytes = contiguous(size))
        std::memcpy(out, bytes, size);
    else
        fail();
}

void ByteStream::readCountedString(std::string& text) {
    std::uint32_t length = 0;
    get(length);
    if (length == 0)
        return;
    if (length > kWindowSize) {
        readLongString(text, length);
        return;
    }
    if (const char* bytes = contiguous(length))
        text.assign(bytes, lengthBeforeZero(bytes, length));
    else
        fail();
}

void ByteStream::readLongString(std::string& text, std::uint32_t length) {
    std::string whole;
    bool ended = false;
    while (length > 0) {
        const std::size_t step = std::min<std::size_t>(length, kWindowSize);
        const char* bytes = contiguous(step);
        if (bytes == nullptr) {
            fail();
            return;
        }
        const std::size_t before = lengthBeforeZero(bytes, step);
        if (!ended)
            whole.append(bytes, before);
        ended = ended || before < step;
        length -= static_cast<std::uint32_t>(step);
    }
    text = std::move(whole);
}

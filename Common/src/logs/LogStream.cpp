// Collecting and appending of the logger's text.

#include "logs/LogStream.h"

#include <cstring>

namespace {
// A line of the longest kind with all its line feeds: lines are written without an allocation.
constexpr std::size_t kUsualSize = 4096;
} // namespace

LogStream::LogStream(const char* path) {
    m_pending.reserve(kUsualSize);
    m_file.openForWriting(path);
}

void LogStream::put(const char* text, std::size_t size) {
    const char* const end = text + size;
    while (text != end) {
        const void* feed = std::memchr(text, '\n', static_cast<std::size_t>(end - text));
        const char* stop = feed != nullptr ? static_cast<const char*>(feed) : end;
        m_pending.append(text, stop);
        if (stop == end)
            break;
        m_pending.append("\r\n", 2);
        text = stop + 1;
    }
}

void LogStream::flush() {
    if (!m_failed)
        m_failed = !m_file.append(m_pending.data(), m_pending.size());
    m_pending.clear();
}

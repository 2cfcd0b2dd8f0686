// Writing to files and streams.

#include "logs/StreamProvider.h"

#include <ostream>

bool FileStreamProvider::isGood() const {
    return m_file.isOpen();
}

bool FileStreamProvider::write(const void* data, std::uint64_t size) {
    return m_file.append(data, size);
}

bool LinkedStreamProvider::isGood() const {
    return m_stream->good();
}

bool LinkedStreamProvider::write(const void* data, std::uint64_t size) {
    if (!m_stream->good())
        return false;
    try {
        m_stream->write(static_cast<const char*>(data), static_cast<std::streamsize>(size));
    } catch (...) {
        // A host may have had its stream raise; a log does not.
    }
    return !m_stream->fail();
}

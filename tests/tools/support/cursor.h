// Reads stored fields one behind the other, for tests that say what a file should hold.

#pragma once

#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <string>
#include <string_view>

namespace toolTest {

class Cursor {
  public:
    explicit Cursor(std::string_view bytes, std::size_t at = 0) : m_bytes(bytes), m_at(at) {}

    std::size_t at() const { return m_at; }
    bool atEnd() const { return m_at == m_bytes.size(); }

    std::string bytes(std::size_t count) {
        if (m_at + count > m_bytes.size())
            throw std::out_of_range("the bytes end early");
        m_at += count;
        return std::string(m_bytes.substr(m_at - count, count));
    }

    template <typename Number>
    Number number() {
        const std::string stored = bytes(sizeof(Number));
        Number value;
        std::memcpy(&value, stored.data(), sizeof value);
        return value;
    }

    // A text field; what stands behind the text must be zeros.
    std::string text(std::size_t size) {
        std::string field = bytes(size);
        const std::size_t length = std::min(field.find('\0'), size);
        if (field.find_first_not_of('\0', length) != std::string::npos)
            throw std::runtime_error("bytes behind the terminator");
        return field.substr(0, length);
    }

    // A counted string with its terminator counted.
    std::string counted() {
        const auto size = number<unsigned>();
        if (size == 0)
            return {};
        std::string stored = bytes(size);
        if (stored.back() != '\0')
            throw std::runtime_error("no terminator");
        stored.pop_back();
        return stored;
    }

  private:
    std::string_view m_bytes;
    std::size_t m_at;
};

} // namespace toolTest

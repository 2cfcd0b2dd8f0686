// Lines of ini files as their parser and their writers see them: blocks of the file, the end mark
// of the system's text mode, blanks, comments and headers.

#pragma once

#include <array>
#include <cctype>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "platform/file.h"

namespace libn {

constexpr bool isBlank(char c) {
    return c == ' ' || c == '\t' || c == '\r';
}

// Without the blanks in front, behind, or at both ends; inline, since each line goes through them
// several times.
inline std::string_view trimmedFront(std::string_view text) {
    while (!text.empty() && isBlank(text.front()))
        text.remove_prefix(1);
    return text;
}
inline std::string_view trimmedBack(std::string_view text) {
    while (!text.empty() && isBlank(text.back()))
        text.remove_suffix(1);
    return text;
}
inline std::string_view trimmed(std::string_view text) {
    return trimmedBack(trimmedFront(text));
}

// The C library's folding as it stands now, so that a file is folded without a call for each byte.
class FoldTable {
  public:
    FoldTable() {
        for (int c = 0; c < 256; ++c)
            m_folded[static_cast<std::size_t>(c)] = static_cast<char>(std::tolower(c));
    }

    std::string fold(std::string_view text) const {
        std::string folded(text);
        for (char& c : folded)
            c = m_folded[static_cast<unsigned char>(c)];
        return folded;
    }

  private:
    std::array<char, 256> m_folded;
};

// Of a trimmed line.
inline bool isEmptyOrComment(std::string_view line) {
    return line.empty() || line.front() == ';' || line.front() == '#';
}

// The name between the brackets of a trimmed line that begins with one, trimmed; none without the
// closing one.
inline std::optional<std::string_view> headerName(std::string_view line) {
    const std::size_t end = line.find(']');
    if (end == std::string_view::npos)
        return std::nullopt;
    return trimmed(line.substr(1, end - 1));
}

// The part of a file that is at hand: a block and what the one before it left over.
//
// On the stack, unless a line is longer: a buffer for the whole file would cost a tenth of the time
// in page faults, and any large block makes the heap tidy up first.
class LineWindow {
  public:
    // Reads on, behind what is held; like ReadFile::readAt.
    std::ptrdiff_t read(const platform::ReadFile& file) {
        if (m_held == m_size)
            grow();
        const std::ptrdiff_t count = file.readAt(m_offset, m_bytes + m_held, m_size - m_held);
        if (count > 0) {
            m_held += static_cast<std::size_t>(count);
            m_offset += static_cast<std::uint64_t>(count);
        }
        return count;
    }

    std::string_view text() const { return {m_bytes, m_held}; }

    void drop(std::size_t count) {
        m_held -= count;
        std::memmove(m_bytes, m_bytes + count, m_held);
    }

  private:
    void grow() {
        auto larger = std::make_unique_for_overwrite<char[]>(2 * m_size);
        std::memcpy(larger.get(), m_bytes, m_held);
        m_larger = std::move(larger);
        m_bytes = m_larger.get();
        m_size *= 2;
    }

    char m_first[16384];
    std::unique_ptr<char[]> m_larger;
    char* m_bytes = m_first;
    std::size_t m_size = sizeof m_first;
    std::size_t m_held = 0;
    std::uint64_t m_offset = 0; // in the file, of the next read
};

// The text in front of the mark that ends a text file on this system, all of it where there is
// none.
inline std::string_view beforeEndMark(std::string_view text) {
    if (platform::textEndMark < 0)
        return text;
    return text.substr(0, text.find(static_cast<char>(platform::textEndMark)));
}

// Hands the lines of the file, without their line feeds, to `take(line, endsFile)`, as soon as each
// is read.  The last, which may be empty, is what stands behind the last line feed; it alone ends
// the file.  False where a read failed.
template <class Take>
bool forEachLine(const platform::ReadFile& file, Take take) {
    LineWindow window;
    for (;;) {
        const std::ptrdiff_t count = window.read(file);
        if (count < 0)
            return false;
        const std::string_view text = beforeEndMark(window.text());
        std::size_t from = 0;
        for (std::size_t end; (end = text.find('\n', from)) != std::string_view::npos;
             from = end + 1)
            take(text.substr(from, end - from), false);
        if (count == 0 || text.size() < window.text().size()) {
            take(text.substr(from), true);
            return true;
        }
        window.drop(from);
    }
}

} // namespace libn

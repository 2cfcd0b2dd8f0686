// The parser of ini files: one pass over the file, in blocks.

#include <array>
#include <cctype>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <utility>

#include "libn/Ini.h"
#include "platform/file.h"

namespace libn {

namespace {

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
std::string_view trimmed(std::string_view text) {
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

} // namespace

struct Ini::Parser {
    Ini& ini;
    FoldTable table;
    std::string section;
    Entries entries;
    std::size_t linesRead = 0;

    void closeSection() {
        if (section.empty() || entries.empty())
            return;
        // Deliberate: a section name counts once. The first section with keys stands, those of a
        // later one are lost.  Hosts put their overrides in front of files that they do not own.
        ini.sections.try_emplace(ini.sections.end(), std::move(section), std::move(entries));
        section.clear();
        entries.clear();
    }

    void header(std::string_view line) {
        closeSection();
        const std::size_t end = line.find(']');
        if (end != std::string_view::npos)
            section = table.fold(trimmed(line.substr(1, end - 1)));
    }

    void line(std::string_view text) {
        const std::string_view line = trimmed(text);
        if (line.empty() || line.front() == ';' || line.front() == '#')
            return;
        if (line.front() == '[') {
            header(line);
            return;
        }
        const std::size_t equals = line.find('=');
        if (equals == std::string_view::npos || equals == 0)
            return;
        // The line's own ends are trimmed.
        const std::string_view key = trimmedBack(line.substr(0, equals));
        const std::string_view value = trimmedFront(line.substr(equals + 1));
        // Equal keys keep the file's order: each new one goes behind the others.
        entries.emplace_hint(entries.end(), ini.lowerCaseKeys ? table.fold(key) : std::string(key),
                             value);
    }

    // Takes the lines that end in `text`; the number of bytes that they make up.
    std::size_t lines(std::string_view text) {
        std::size_t from = 0;
        for (std::size_t end; (end = text.find('\n', from)) != std::string_view::npos;
             from = end + 1, ++linesRead)
            line(text.substr(from, end - from));
        return from;
    }

    // Takes what stands behind the last line end.
    void lastLine(std::string_view text) {
        line(text);
        // Deliberate: keys in front of the first header belong to the first section that follows,
        // and in a file without headers to none.
        closeSection();
    }
};

namespace {

// The part of a file that is at hand: a block and what the one before it left over.
//
// On the stack, unless a line is longer: a buffer for the whole file would cost a tenth of the time
// in page faults, and any large block makes the heap tidy up first.
class Window {
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

[[noreturn]] void raiseReadError(const std::string& fileName, std::size_t line) {
    // Deliberate: no blank behind "File".  Operators' scripts look for this text.
    throw std::runtime_error("Read ini file error. File" + fileName +
                             " line:" + std::to_string(line));
}

// The text in front of the mark that ends a text file on this system, all of it where there is
// none.
std::string_view beforeEndMark(std::string_view text) {
    if (platform::textEndMark < 0)
        return text;
    return text.substr(0, text.find(static_cast<char>(platform::textEndMark)));
}

} // namespace

Ini::Ini(const char* file) : fileName(file, std::strlen(file)) {
    parse();
}
Ini::Ini(const std::string& file) : fileName(file) {
    parse();
}

void Ini::parse() {
    const platform::ReadFile file(fileName.c_str());
    if (!file.isOpen())
        return;
    Parser parser{*this, {}, {}, {}};
    Window window;
    for (;;) {
        const std::ptrdiff_t count = window.read(file);
        if (count < 0)
            raiseReadError(fileName, parser.linesRead + 1);
        const std::string_view text = beforeEndMark(window.text());
        const std::size_t taken = parser.lines(text);
        if (count == 0 || text.size() < window.text().size()) {
            parser.lastLine(text.substr(taken));
            return;
        }
        window.drop(taken);
    }
}

} // namespace libn

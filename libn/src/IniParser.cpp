// The parser of ini files: one pass over the file, in blocks.

#include <cstring>
#include <stdexcept>
#include <utility>

#include "iniLines.h"
#include "libn/Ini.h"

namespace libn {

struct Ini::Parser {
    Ini& ini;
    FoldTable table;
    std::string section;
    Entries entries;

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
        if (const auto name = headerName(line))
            section = table.fold(*name);
    }

    void line(std::string_view text) {
        const std::string_view line = trimmed(text);
        if (isEmptyOrComment(line))
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
};

namespace {

[[noreturn]] void raiseReadError(const std::string& fileName, std::size_t line) {
    // Deliberate: no blank behind "File".  Operators' scripts look for this text.
    throw std::runtime_error("Read ini file error. File" + fileName +
                             " line:" + std::to_string(line));
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
    std::size_t lines = 0;
    const bool complete = forEachLine(file, [&](std::string_view line, bool) {
        ++lines;
        parser.line(line);
    });
    if (!complete)
        raiseReadError(fileName, lines + 1);
    // Deliberate: keys in front of the first header belong to the first section that follows,
    // and in a file without headers to none.
    parser.closeSection();
}

} // namespace libn

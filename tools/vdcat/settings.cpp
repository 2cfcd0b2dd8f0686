// Ini syntax and the rule for configured names.

#include "vdcat/settings.h"

#include <algorithm>
#include <cctype>
#include <fstream>
#include <map>
#include <utility>
#include <vector>

#include "support/system.h"

namespace vdcat {

namespace {

using Entries = std::vector<std::pair<std::string, std::string>>;

std::string lower(std::string text) {
    for (char& letter : text)
        letter = static_cast<char>(std::tolower(static_cast<unsigned char>(letter)));
    return text;
}

std::string trimmed(const std::string& text) {
    constexpr const char* kBlanks = " \t\r";
    const std::size_t first = text.find_first_not_of(kBlanks);
    if (first == std::string::npos)
        return {};
    return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

// Of two sections of one name the first that held a key counts; keys in front of the first header
// belong to the first section.
class Sections {
  public:
    void add(const std::string& line) {
        if (line.empty() || line[0] == ';' || line[0] == '#')
            return;
        if (line[0] == '[') {
            close();
            const std::size_t end = line.find(']');
            if (end != std::string::npos)
                m_name = trimmed(lower(line.substr(1, end - 1)));
            return;
        }
        const std::size_t sign = line.find('=');
        if (sign != std::string::npos && sign > 0)
            m_entries.emplace_back(trimmed(lower(line.substr(0, sign))),
                                   trimmed(line.substr(sign + 1)));
    }

    void close() {
        if (m_name.empty() || m_entries.empty())
            return;
        m_sections.emplace(std::exchange(m_name, {}), std::exchange(m_entries, {}));
    }

    std::string find(const std::string& section, const std::string& key) const {
        const auto found = m_sections.find(section);
        if (found == m_sections.end())
            return {};
        const auto entry = std::find_if(found->second.begin(), found->second.end(),
                                        [&](const auto& each) { return each.first == key; });
        return entry == found->second.end() ? std::string() : entry->second;
    }

  private:
    std::map<std::string, Entries> m_sections;
    std::string m_name;
    Entries m_entries;
};

constexpr bool isSeparator(char letter) {
    return letter == tool::kPathSeparator || letter == '\\';
}

bool isFull(const std::string& name) {
    if constexpr (tool::kPathSeparator == '/')
        return isSeparator(name[0]);
    return (name.size() > 1 && name[1] == ':') || name.compare(0, 2, "\\\\") == 0;
}

// The path up to its last separator, that one left out.
std::string folderOf(const std::string& path) {
    const std::size_t at = path.find_last_of(tool::kPathSeparator);
    return path.substr(0, at == std::string::npos ? 0 : at);
}

} // namespace

std::string iniValue(const std::string& iniFile, const std::string& section,
                     const std::string& key) {
    std::ifstream file(iniFile);
    Sections sections;
    for (std::string line; std::getline(file, line);)
        sections.add(trimmed(line));
    sections.close();
    return sections.find(lower(section), lower(key));
}

std::string configuredPath(const std::string& name, const std::string& executable) {
    std::string path;
    if (name.empty() || isFull(name)) {
        path = name;
    } else if (name[0] == '.') {
        std::string folder = executable;
        std::size_t dots = 0;
        for (; dots < name.size() && name[dots] == '.'; ++dots)
            folder = folderOf(folder);
        const auto rest = std::find_if(name.begin() + static_cast<std::ptrdiff_t>(dots), name.end(),
                                       &isSeparator);
        path = folder + std::string(rest, name.end());
    } else {
        path = folderOf(executable) + tool::kPathSeparator + name;
    }
    std::replace(path.begin(), path.end(), '\\', tool::kPathSeparator);
    return path;
}

} // namespace vdcat

// A second, slow parser of ini files that shares nothing with the library's: it copies line by line
// and keeps a section's keys in the order of the file.

#pragma once

#include <algorithm>
#include <cctype>
#include <map>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace reference {

class IniFile {
  public:
    using Pairs = std::vector<std::pair<std::string, std::string>>;

    explicit IniFile(const std::string& text) {
        std::istringstream in(text);
        std::string line;
        while (std::getline(in, line))
            take(trim(line));
        close();
    }

    static std::string lower(std::string text) {
        std::transform(text.begin(), text.end(), text.begin(),
                       [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
        return text;
    }

    // The values of a key; `section` and `key` as the caller wrote them.  Stored keys are compared
    // as C strings, up to a zero, and come in key order and then in the order of the file.
    std::vector<std::string> values(const std::string& section, const std::string& key) const {
        Pairs found;
        const auto pairs = m_sections.find(lower(section));
        if (pairs != m_sections.end())
            for (const auto& pair : pairs->second)
                if (lower(pair.first.c_str()) == lower(key))
                    found.push_back(pair);
        std::stable_sort(found.begin(), found.end(),
                         [](const auto& a, const auto& b) { return a.first < b.first; });
        std::vector<std::string> values;
        for (const auto& pair : found)
            values.push_back(pair.second);
        return values;
    }

    // The first value of the key in the file; a stored key with a zero in it is never found.
    std::string first(const std::string& section, const std::string& key) const {
        const auto pairs = m_sections.find(lower(section));
        if (pairs != m_sections.end())
            for (const auto& [name, value] : pairs->second)
                if (name == lower(key))
                    return value;
        return {};
    }

    const std::map<std::string, Pairs>& sections() const { return m_sections; }

    // A decimal number in front of anything else, within 32 bits.
    static std::int32_t number(const std::string& text) {
        std::size_t at = 0;
        while (at < text.size() && std::isspace(static_cast<unsigned char>(text[at])))
            ++at;
        const bool negative = at < text.size() && text[at] == '-';
        if (at < text.size() && (text[at] == '-' || text[at] == '+'))
            ++at;
        std::int64_t value = 0;
        for (; at < text.size() && text[at] >= '0' && text[at] <= '9'; ++at)
            value = std::min<std::int64_t>(value * 10 + (text[at] - '0'), std::int64_t{1} << 40);
        value = negative ? -value : value;
        return static_cast<std::int32_t>(std::clamp<std::int64_t>(value, INT32_MIN, INT32_MAX));
    }

  private:
    static std::string trim(const std::string& text) {
        const std::size_t begin = text.find_first_not_of(" \t\r");
        if (begin == std::string::npos)
            return {};
        return text.substr(begin, text.find_last_not_of(" \t\r") - begin + 1);
    }

    void take(const std::string& line) {
        if (line.empty() || line[0] == ';' || line[0] == '#')
            return;
        if (line[0] == '[') {
            close();
            if (const std::size_t end = line.find(']'); end != std::string::npos)
                m_name = trim(lower(line.substr(1, end - 1)));
            return;
        }
        const std::size_t equals = line.find('=');
        if (equals != std::string::npos && equals > 0)
            m_open.emplace_back(trim(lower(line.substr(0, equals))), trim(line.substr(equals + 1)));
    }

    void close() {
        if (m_name.empty() || m_open.empty())
            return;
        m_sections.insert({m_name, m_open});
        m_name.clear();
        m_open.clear();
    }

    std::string m_name;
    Pairs m_open;
    std::map<std::string, Pairs> m_sections;
};

} // namespace reference

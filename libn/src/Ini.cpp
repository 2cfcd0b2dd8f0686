// Look-up in a parsed ini file.

#include "libn/Ini.h"

#include <cctype>
#include <cstring>
#include <utility>

#include "decimal.h"
#include "libn/IniWriter.h"

namespace libn {

namespace {

// tolower, without the call for the characters that no locale folds: a seventh of a look-up.
char fold(char c) {
    const auto byte = static_cast<unsigned char>(c);
    const bool mayFold = (byte >= 'A' && byte <= 'Z') || byte > 127;
    return mayFold ? static_cast<char>(std::tolower(byte)) : c;
}

// `prefix` and the folded `text`; names of ordinary length stay off the heap.
class Folded {
  public:
    Folded(std::string_view prefix, const char* text) {
        const std::size_t length = std::strlen(text);
        char* to = m_short;
        if (prefix.size() + length > sizeof m_short) {
            m_long.resize(prefix.size() + length);
            to = m_long.data();
        }
        prefix.copy(to, prefix.size());
        for (std::size_t i = 0; i < length; ++i)
            to[prefix.size() + i] = fold(text[i]);
        m_view = {to, prefix.size() + length};
    }
    Folded(const Folded&) = delete;
    Folded& operator=(const Folded&) = delete;

    std::string_view view() const { return m_view; }

  private:
    char m_short[128];
    std::string m_long;
    std::string_view m_view;
};

const std::string kEmpty;

} // namespace

std::string toLowerString(const char* text) {
    std::string folded(text);
    for (char& c : folded)
        c = fold(c);
    return folded;
}

const Ini::Entries* Ini::findSection(const char* section) const {
    const Folded name({}, section);
    const auto found = sections.find(name.view());
    return found != sections.end() ? &found->second : nullptr;
}

const std::string& Ini::getValue(const char* section, const char* key) const {
    const Entries* entries = findSection(section);
    if (entries == nullptr)
        return kEmpty;
    const Folded name(keyPrefix, key);
    const auto entry = entries->lower_bound(name.view());
    return entry != entries->end() && entry->first == name.view() ? entry->second : kEmpty;
}

void Ini::getString(const char* section, std::size_t, const char* key, std::size_t,
                    const char* defaultValue, std::size_t defaultLength, std::string& out) const {
    const std::string& value = getValue(section, key);
    if (value.empty())
        out.assign(defaultValue, defaultLength);
    else
        out = value;
}

std::int32_t Ini::getInt(const char* section, const char* key, std::int32_t defaultValue) const {
    const std::string& value = getValue(section, key);
    return value.empty() ? defaultValue : decimalOf(value.c_str());
}

bool Ini::getBool(const char* section, const char* key, bool defaultValue) const {
    const std::string& value = getValue(section, key);
    if (value == "1")
        return true;
    return value == "0" ? false : defaultValue;
}

void Ini::getValues(const char* section, const char* key, std::vector<std::string>& values) const {
    const Entries* entries = findSection(section);
    if (entries == nullptr)
        return;
    if (values.capacity() < entries->size())
        values.reserve(entries->size());
    const std::string wanted = toLowerString(key);
    for (const auto& [name, value] : *entries)
        if (toLowerString(name.c_str()) == wanted)
            values.push_back(value);
}

void Ini::getSection(const std::string& section, std::map<std::string, std::string>& pairs) {
    getSection(section, pairs, false);
}

void Ini::getSection(const std::string& section, std::map<std::string, std::string>& pairs,
                     bool reparse) {
    if (reparse) {
        Ini fresh(fileName);
        fresh.getSection(section, pairs, false);
        return;
    }
    if (const Entries* entries = findSection(section.c_str()))
        pairs.insert(entries->begin(), entries->end());
}

// Deliberate: the sections that were parsed stay as they are.  An object is a snapshot, and what
// its callers have read of it goes on being true for them.
bool Ini::writeSection(const std::string& section, std::string&& body) {
    IniSectionWriter writer(fileName, toLowerString(section.c_str()), true, std::move(body));
    return writer.run(0);
}

} // namespace libn

// Reading of a class filter and its test of a code.

#include "Classes/classFilter.h"

#include <algorithm>
#include <functional>

#include "libn/Ini.h"

void ClassFilter::read(const char* iniFile, const char* section) {
    add(libn::Ini(iniFile).getValue(section, "class_filter"));
}

void ClassFilter::add(std::string_view text) {
    // Deliberate: a "-" turns the direction that is there and does not set one; reading the same
    // text again turns it back. What precedes the "-" does not count. Callers that initialise twice
    // depend on it.
    if (const std::size_t minus = text.find('-'); minus != std::string_view::npos) {
        include = !include;
        text.remove_prefix(minus + 1);
    }
    while (!text.empty()) {
        const std::string_view code = text.substr(0, text.find(','));
        const auto at = std::lower_bound(codes.begin(), codes.end(), code, std::less<>());
        if (at == codes.end() || *at != code)
            codes.insert(at, std::string(code));
        text.remove_prefix(std::min(text.size(), code.size() + 1));
    }
}

bool ClassFilter::keeps(std::string_view code) const {
    // Deliberate: without codes either direction is absolute, so a lone "-" keeps nothing.  Hosts
    // use it to switch the classes off.
    if (codes.empty())
        return include;
    return std::binary_search(codes.begin(), codes.end(), code, std::less<>()) == include;
}

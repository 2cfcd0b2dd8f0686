// Readable forms of decorated names, by the C++ run-time, which both systems' compilers share.

#include <cxxabi.h>

#include <cstdlib>
#include <cstring>
#include <string_view>

#include "platform/debugHelp.h"

namespace platform {

namespace {

// Where the parenthesis that ends at `end` began, or npos.
std::size_t openingOf(std::string_view text, std::size_t end) {
    int depth = 0;
    for (std::size_t at = end + 1; at-- > 0;) {
        depth += text[at] == ')' ? 1 : text[at] == '(' ? -1 : 0;
        if (depth == 0)
            return at;
    }
    return std::string_view::npos;
}

// Without the parameters and what stands behind them.
std::string_view withoutParameters(std::string_view text) {
    const std::size_t end = text.rfind(')');
    const std::size_t qualifiers = text.find_first_not_of(" const&volaie", end + 1);
    // "(anonymous namespace)::f", "f(int)::{lambda()#1}", "f(int) [clone .cold]"
    if (end == std::string_view::npos)
        return text;
    if (qualifiers != std::string_view::npos && text[qualifiers] != '[')
        return text;
    const std::size_t begin = openingOf(text, end);
    return begin == std::string_view::npos || begin == 0 ? text : text.substr(0, begin);
}

// Without the result, which the names of templates have in front.
std::string_view withoutResult(std::string_view text) {
    int depth = 0;
    std::size_t start = 0;
    const std::size_t special = text.find("operator");
    for (std::size_t at = 0; at < text.size() && at < special; ++at) {
        const char c = text[at];
        depth += c == '<' || c == '(' || c == '{' ? 1 : c == '>' || c == ')' || c == '}' ? -1 : 0;
        if (c == ' ' && depth == 0)
            start = at + 1;
    }
    return text.substr(start);
}

} // namespace

std::size_t demangledName(const char* name, char* out, std::size_t size, bool nameOnly) noexcept {
    if (size == 0 || name[0] != '_' || name[1] != 'Z')
        return 0;
    int status = 0;
    char* const whole = abi::__cxa_demangle(name, nullptr, nullptr, &status);
    if (whole == nullptr)
        return 0;
    std::string_view text = whole;
    if (nameOnly && text.starts_with("(anonymous namespace)") == false)
        text = withoutResult(withoutParameters(text));
    else if (nameOnly)
        text = withoutParameters(text);
    const std::size_t kept = text.size() < size ? text.size() : size - 1;
    std::memcpy(out, text.data(), kept);
    out[kept] = '\0';
    std::free(whole);
    return kept;
}

} // namespace platform

// What a field of a record gives to a printer.

#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <variant>

namespace vdcat {

// Nothing (a text that the record does not have), a text in the writer's own encoding, a whole
// number or a floating one.  A text points into the record.
using Value = std::variant<std::monostate, std::string_view, std::int64_t, double>;

struct Column {
    std::string name;
    bool numeric = false;
};

// A text field of `size` bytes.  The terminator may be missing in a damaged file.
inline Value fieldText(const char* text, std::size_t size) {
    if (!text)
        return {};
    const void* end = std::memchr(text, 0, size);
    return std::string_view(
        text, end ? static_cast<std::size_t>(static_cast<const char*>(end) - text) : size);
}

// A text that always has its terminator, or null.
inline Value plainText(const char* text) {
    if (!text)
        return {};
    return std::string_view(text);
}

} // namespace vdcat

// What a field of a record gives to a printer.

#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <variant>

namespace vdcat {

// Several values in one: as a JSON array or object, and as a text for people and CSV.  Both point
// into the row and are UTF-8 already.
struct Composed {
    std::string_view json;
    std::string_view plain;
};

// Nothing (a text that the record does not have), a text in the writer's own encoding, a whole
// number, a floating one or several values.  A text points into the record.
using Value = std::variant<std::monostate, std::string_view, std::int64_t, double, Composed>;

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

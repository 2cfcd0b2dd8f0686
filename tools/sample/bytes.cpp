// Text fields, counted strings and the pattern of unused bytes.

#include "sample/bytes.h"

#include <algorithm>

namespace sample {

void appendFill(std::string& out, std::size_t offset, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i)
        out.push_back(fillByte(offset + i));
}

void appendText(std::string& out, std::string_view text, std::size_t size) {
    const std::size_t length = std::min(text.size(), size);
    out.append(text.data(), length);
    out.append(size - length, '\0');
}

void appendCounted(std::string& out, std::string_view text) {
    if (text.empty()) {
        appendNumber(out, std::uint32_t{0});
        return;
    }
    appendNumber(out, static_cast<std::uint32_t>(text.size() + 1));
    out.append(text);
    out.push_back('\0');
}

void putText(std::string& out, std::size_t offset, std::string_view text, std::size_t size) {
    const std::size_t length = std::min(text.size(), size);
    std::fill_n(out.data() + offset, size, '\0');
    std::copy_n(text.data(), length, out.data() + offset);
}

} // namespace sample

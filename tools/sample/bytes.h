// Building blocks of the stored forms: little-endian numbers, text fields of fixed size, counted
// strings, and the pattern that stands where no reader may look.
//
// This writer knows nothing of the library's own structures and code: what both agree on is the
// file alone, so a reader's mistake cannot hide behind the same mistake here.

#pragma once

#include <bit>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <type_traits>

namespace sample {

static_assert(std::endian::native == std::endian::little, "numbers are stored as they stand");

// The byte at `offset` of a record in the places that readers must leave alone.  Never zero, above
// 127, and different from its neighbours, so that a field read one byte off shows.
constexpr char fillByte(std::size_t offset) {
    return static_cast<char>(0xC0 + offset % 61);
}

// Appends `count` bytes of the pattern; the first one stands at `offset` of its record.
void appendFill(std::string& out, std::size_t offset, std::size_t count);

// Appends a number or a double in its own width.
template <typename Number>
requires std::is_arithmetic_v<Number>
void appendNumber(std::string& out, Number value) {
    char bytes[sizeof value];
    std::memcpy(bytes, &value, sizeof value);
    out.append(bytes, sizeof bytes);
}

// Appends a text field of `size` bytes, padded with zeros.  A text of `size` bytes or more fills
// the field and leaves it without a terminator, as a damaged file may have it.
void appendText(std::string& out, std::string_view text, std::size_t size);

// Appends a 32-bit length and as many bytes, the terminating zero counted and written.  An empty
// text is the length 0 alone.  Zero bytes inside the text are written as they stand.
void appendCounted(std::string& out, std::string_view text);

// The same parts, put over what already stands at `offset`.  `out` must reach far enough.
template <typename Number>
requires std::is_arithmetic_v<Number>
void putNumber(std::string& out, std::size_t offset, Number value) {
    std::memcpy(out.data() + offset, &value, sizeof value);
}
void putText(std::string& out, std::size_t offset, std::string_view text, std::size_t size);

} // namespace sample

// UTF-8, JSON and number forms.

#include "vdcat/convert.h"

#include <charconv>
#include <cmath>

namespace vdcat {

namespace {

unsigned byteAt(std::string_view text, std::size_t at) {
    return static_cast<unsigned char>(text[at]);
}

// Bytes of the well-formed UTF-8 character that begins at `at`, 0 if there is none: no overlong
// form, no surrogate, nothing above U+10FFFF.
std::size_t characterLength(std::string_view text, std::size_t at) {
    const unsigned first = byteAt(text, at);
    if (first < 0x80)
        return 1;
    const std::size_t length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
    if (first < 0xC2 || first > 0xF4 || at + length > text.size())
        return 0;
    for (std::size_t i = 1; i < length; ++i)
        if ((byteAt(text, at + i) & 0xC0) != 0x80)
            return 0;
    const unsigned second = byteAt(text, at + 1);
    const bool good = !(first == 0xE0 && second < 0xA0) && !(first == 0xED && second > 0x9F) &&
                      !(first == 0xF0 && second < 0x90) && !(first == 0xF4 && second > 0x8F);
    return good ? length : 0;
}

template <typename Number>
void appendDigits(std::string& out, Number value) {
    char digits[40];
    const auto result = std::to_chars(digits, digits + sizeof digits, value);
    out.append(digits, result.ptr);
}

void appendEscaped(std::string& out, char letter) {
    constexpr char kDigits[] = "0123456789abcdef";
    switch (letter) {
        case '"':
            out += "\\\"";
            return;
        case '\\':
            out += "\\\\";
            return;
        case '\n':
            out += "\\n";
            return;
        case '\r':
            out += "\\r";
            return;
        case '\t':
            out += "\\t";
            return;
        default:
            out += "\\u00";
            out += kDigits[static_cast<unsigned char>(letter) >> 4];
            out += kDigits[static_cast<unsigned char>(letter) & 15];
    }
}

} // namespace

void appendUtf8(std::string& out, std::string_view text) {
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t length = characterLength(text, at);
        if (length) {
            out.append(text.substr(at, length));
            at += length;
        } else {
            const unsigned byte = byteAt(text, at++);
            out += static_cast<char>(0xC0 | byte >> 6);
            out += static_cast<char>(0x80 | (byte & 0x3F));
        }
    }
}

void appendJsonString(std::string& out, std::string_view text) {
    out += '"';
    for (std::size_t at = 0; at < text.size();) {
        const unsigned char letter = static_cast<unsigned char>(text[at]);
        if (letter < 0x20 || letter == 0x7F || letter == '"' || letter == '\\') {
            appendEscaped(out, text[at++]);
            continue;
        }
        const std::size_t length = characterLength(text, at);
        appendUtf8(out, text.substr(at, length ? length : 1));
        at += length ? length : 1;
    }
    out += '"';
}

void appendJsonValue(std::string& out, const Value& value) {
    const double* number = std::get_if<double>(&value);
    if (value.index() == 0 || (number && !std::isfinite(*number)))
        out += "null";
    else if (const auto* text = std::get_if<std::string_view>(&value))
        appendJsonString(out, *text);
    else if (const auto* composed = std::get_if<Composed>(&value))
        out += composed->json;
    else
        appendPlainValue(out, value);
}

void appendPlainValue(std::string& out, const Value& value) {
    if (const auto* text = std::get_if<std::string_view>(&value))
        appendUtf8(out, *text);
    else if (const auto* whole = std::get_if<std::int64_t>(&value))
        appendDigits(out, *whole);
    else if (const auto* number = std::get_if<double>(&value))
        // The sign of a number that is none means nothing.
        appendDigits(out, std::isnan(*number) ? std::fabs(*number) : *number);
    else if (const auto* composed = std::get_if<Composed>(&value))
        out += composed->plain;
}

void appendHex(std::string& out, const void* bytes, std::size_t count) {
    constexpr char kDigits[] = "0123456789abcdef";
    const auto* from = static_cast<const unsigned char*>(bytes);
    for (std::size_t i = 0; i < count; ++i) {
        out += kDigits[from[i] >> 4];
        out += kDigits[from[i] & 15];
    }
}

std::size_t characterCount(std::string_view text) {
    std::size_t count = 0;
    for (const char letter : text)
        if ((static_cast<unsigned char>(letter) & 0xC0) != 0x80)
            ++count;
    return count;
}

} // namespace vdcat

// Fuzz target of texts that stand as formats: two bytes of the buffer's size, and behind them the
// text up to a zero.  Every size gives the same text, cut; the text is that of a second walk over
// the conversions.

#include <cstring>
#include <sstream>
#include <string>
#include <vector>

#include "dw_util/format.h"
#include "libn/raiseText.h"
#include "support/input.h"
#include "vdreader/errors.hpp"

namespace {

// A conversion of `text` at a percent sign.
struct Conversion {
    std::string flags;
    std::string numbers;
    std::string length;
    char letter = '\0';
    std::size_t end = 0;
};

std::string span(const std::string& text, std::size_t at, const char* set) {
    const std::size_t end = text.find_first_not_of(set, at);
    return text.substr(at, end == std::string::npos ? end : end - at);
}

// A width or precision: a star, or digits.
std::string numberAt(const std::string& text, std::size_t at) {
    return at < text.size() && text[at] == '*' ? "*" : span(text, at, "0123456789");
}

// What a width or precision counts as: a star finds a zero, more than 4 digits are 8192.
std::string bounded(const std::string& number) {
    if (number.empty() || number == "*")
        return number.empty() ? "" : "0";
    const std::size_t first = number.find_first_not_of('0');
    if (first == std::string::npos)
        return "0";
    return number.size() - first > 4 ? "8192" : number.substr(first);
}

Conversion conversionAt(const std::string& text, std::size_t percent) {
    Conversion found;
    std::size_t at = percent + 1;
    found.flags = span(text, at, "-+ #0'");
    at += found.flags.size();
    found.numbers = numberAt(text, at);
    if (at + found.numbers.size() < text.size() && text[at + found.numbers.size()] == '.')
        found.numbers += "." + numberAt(text, at + found.numbers.size() + 1);
    at += found.numbers.size();
    if (at < text.size() && text[at] == 'I') {
        const std::string bits = text.substr(at + 1, 2);
        found.length = bits == "64" || bits == "32" ? "I" + bits : "I";
    } else {
        found.length = span(text, at, "hljztqL");
    }
    at += found.length.size();
    if (at < text.size())
        found.letter = text[at++];
    found.end = at;
    return found;
}

template <class Value>
std::string printed(const std::string& form, Value value) {
    const int length = std::snprintf(nullptr, 0, form.c_str(), value);
    if (length < 0)
        return {};
    std::vector<char> out(static_cast<std::size_t>(length) + 1);
    std::snprintf(out.data(), out.size(), form.c_str(), value);
    return std::string(out.data(), static_cast<std::size_t>(length));
}

std::string zeroFor(const Conversion& found, const std::string& asWritten) {
    const std::size_t dot = found.numbers.find('.');
    std::string numbers = bounded(found.numbers.substr(0, dot));
    if (dot != std::string::npos)
        numbers += "." + bounded(found.numbers.substr(dot + 1));
    const std::string form = "%" + found.flags + numbers + found.letter;
    if (found.letter == '\0' || form.size() >= 64)
        return asWritten;
    if (found.letter == '%')
        return "%";
    if (found.letter == 'n')
        return {};
    if (found.letter == 'p')
        return std::string(16, '0');
    if (std::strchr("diuxXoc", found.letter) != nullptr)
        return printed(form, 0);
    if (std::strchr("eEfFgGaA", found.letter) != nullptr)
        return printed(form, 0.0);
    if (found.letter == 's')
        return printed(form, "(null)");
    return asWritten;
}

std::string expected(const std::string& text) {
    std::string all;
    for (std::size_t at = 0; at < text.size();) {
        if (text[at] != '%') {
            all += text[at++];
            continue;
        }
        const Conversion found = conversionAt(text, at);
        all += zeroFor(found, text.substr(at, found.end - at));
        at = found.end;
    }
    return all;
}

void checkSize(const std::string& text, const std::string& wanted, std::size_t size) {
    // A block of exactly the size, so that a sanitizer sees writes past it.
    std::vector<char> out(size + 1, 'x');
    std::vector<char> exact(size);
    char* const to = size > 0 ? exact.data() : out.data();
    const int length = formatWithZeroes(to, size, text.c_str());
    FUZZ_CHECK(length == static_cast<int>(wanted.size()));
    if (size == 0) {
        FUZZ_CHECK(out[0] == 'x');
        return;
    }
    const std::size_t shown = std::min(wanted.size(), size - 1);
    FUZZ_CHECK(std::memcmp(to, wanted.data(), shown) == 0);
    FUZZ_CHECK(to[shown] == '\0');
}

void checkRaised(const std::string& text, const std::string& wanted) {
    std::ostringstream stream;
    stream << text;
    try {
        libn::raiseText(stream);
    } catch (const CError& failure) {
        FUZZ_CHECK(std::string(wanted.substr(0, 4094).c_str()) == failure.what());
        FUZZ_CHECK(std::string("libn/src/libn") == failure.file && failure.line == 135);
        FUZZ_CHECK(failure.code == 0);
        return;
    }
    FUZZ_CHECK(!"raiseText returned");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 2)
        return 0;
    const std::size_t room = (data[0] | data[1] << 8) % 5000;
    const std::string text = std::string(reinterpret_cast<const char*>(data) + 2, size - 2).c_str();
    const std::string wanted = expected(text);
    checkSize(text, wanted, room);
    checkSize(text, wanted, wanted.size());
    checkSize(text, wanted, wanted.size() + 1);
    checkRaised(text, wanted);
    return 0;
}

// Formats are parsed here only as far as run-times differ; the conversions themselves stay theirs.

#include "dw_util/format.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "commonFormat.h"

namespace {

// One conversion of a format: %[flags][width][.precision][length]letter.
struct Conversion {
    const char* begin;   // the %
    const char* numbers; // behind the flags: width and precision
    const char* length;  // length modifier
    const char* letter;  // conversion letter, or the terminator where the format ends early
    bool foreign;        // the length modifier is one of I, I32, I64

    const char* end() const { return *letter != '\0' ? letter + 1 : letter; }
};

const char* skipAnyOf(const char* at, const char* set) {
    return at + std::strspn(at, set);
}

// Behind a width or precision: a number, or a * that stands for an argument.
const char* skipNumber(const char* at) {
    return *at == '*' ? at + 1 : skipAnyOf(at, "0123456789");
}

bool startsWith(const char* at, const char* text) {
    return std::strncmp(at, text, std::strlen(text)) == 0;
}

Conversion parseConversion(const char* percent) {
    Conversion c{};
    c.begin = percent;
    c.numbers = skipAnyOf(percent + 1, "-+ #0'");
    c.length = skipNumber(c.numbers);
    if (*c.length == '.')
        c.length = skipNumber(c.length + 1);
    c.foreign = *c.length == 'I';
    if (!c.foreign)
        c.letter = skipAnyOf(c.length, "hljztqL");
    else if (startsWith(c.length, "I64") || startsWith(c.length, "I32"))
        c.letter = c.length + 3;
    else
        c.letter = c.length + 1;
    return c;
}

// A number of more digits than this is written as kMostNumber: no text shows so many characters,
// and one run-time takes the room for a field from the stack.
constexpr std::size_t kMostDigits = 4;
constexpr char kMostNumber[] = "8192";

bool hasHugeNumber(const Conversion& c) {
    for (const char* at = c.numbers; at != c.length;) {
        at += std::strspn(at, "0");
        const std::size_t digits = std::strspn(at, "0123456789");
        if (digits > kMostDigits)
            return true;
        if (at == c.length)
            break;
        at += digits > 0 ? digits : 1;
    }
    return false;
}

// Appends to a buffer of fixed size and stays terminated; what does not fit is dropped.
class Appender {
  public:
    Appender(char* out, std::size_t size) : m_out(out), m_left(size) {
        if (m_left > 0)
            *m_out = '\0';
    }

    void add(const char* text, std::size_t length) {
        const std::size_t kept = length < m_left ? length : (m_left > 0 ? m_left - 1 : 0);
        std::memcpy(m_out, text, kept);
        advance(kept);
        m_total += length;
    }
    void add(const char* text) { add(text, std::strlen(text)); }

    // Room for a formatter, which then tells the length of its whole text.
    char* out() { return m_out; }
    std::size_t left() const { return m_left; }
    void added(int length) {
        if (length < 0)
            return;
        const auto whole = static_cast<std::size_t>(length);
        advance(whole < m_left ? whole : (m_left > 0 ? m_left - 1 : 0));
        m_total += whole;
    }

    std::size_t total() const { return m_total; }

  private:
    void advance(std::size_t count) {
        m_out += count;
        m_left -= count;
        if (m_left > 0)
            *m_out = '\0';
    }

    char* m_out;
    std::size_t m_left;
    std::size_t m_total = 0;
};

void addFlags(Appender& to, const Conversion& c, const char* dropped) {
    for (const char* flag = c.begin + 1; flag != c.numbers; ++flag)
        if (std::strchr(dropped, *flag) == nullptr)
            to.add(flag, 1);
}

// Width and precision of a conversion up to `end`, with `argument` for each that is an argument.
void addNumbers(Appender& to, const Conversion& c, const char* end, const char* argument) {
    for (const char* at = c.numbers; at != end;) {
        if (at[0] == '0' && at[1] >= '0' && at[1] <= '9') {
            ++at; // a leading zero
            continue;
        }
        const std::size_t digits = std::min<std::size_t>(std::strspn(at, "0123456789"),
                                                         static_cast<std::size_t>(end - at));
        if (digits > kMostDigits)
            to.add(kMostNumber);
        else if (digits > 0)
            to.add(at, digits);
        else
            to.add(*at == '*' ? argument : at, 1);
        at += digits > 0 ? digits : 1;
    }
}

// Writes the form of a conversion that every run-time understands.
void addPortable(Appender& to, const Conversion& c) {
    to.add("%");
    if (*c.letter == 'p') {
        addFlags(to, c, "0#");
        const char* widthEnd = skipNumber(c.numbers);
        addNumbers(to, c, widthEnd, "*");
        to.add(".16llX");
    } else if (*c.letter == 'n') {
        to.add(".0s"); // reads a pointer and prints nothing of it
    } else {
        addFlags(to, c, "");
        addNumbers(to, c, c.length, "*");
        if (!c.foreign)
            to.add(c.length, static_cast<std::size_t>(c.letter - c.length));
        else if (!startsWith(c.length, "I32"))
            to.add("ll");
        to.add(c.letter, static_cast<std::size_t>(c.end() - c.letter));
    }
}

bool needsPortableForm(const Conversion& c) {
    return c.foreign || *c.letter == 'p' || *c.letter == 'n' || hasHugeNumber(c);
}

bool needsPortableForm(const char* format) {
    for (const char* at = std::strchr(format, '%'); at != nullptr; at = std::strchr(at, '%')) {
        const Conversion c = parseConversion(at);
        if (needsPortableForm(c))
            return true;
        at = c.end();
    }
    return false;
}

void makePortable(Appender& to, const char* format) {
    while (*format != '\0') {
        const char* percent = format + std::strcspn(format, "%");
        to.add(format, static_cast<std::size_t>(percent - format));
        if (*percent == '\0')
            return;
        const Conversion c = parseConversion(percent);
        if (needsPortableForm(c))
            addPortable(to, c);
        else
            to.add(c.begin, static_cast<std::size_t>(c.end() - c.begin));
        format = c.end();
    }
}

// Flags, width and precision of a conversion, with "0" for each number that is an argument.
void addZeroPattern(Appender& to, const Conversion& c) {
    to.add("%");
    addFlags(to, c, "");
    addNumbers(to, c, c.length, "0");
}

// Prints one conversion with a zero as its argument.
void addZero(Appender& to, const Conversion& c) {
    char pattern[64];
    Appender form(pattern, sizeof pattern);
    addZeroPattern(form, c);
    form.add(c.letter, 1);
    if (form.total() >= sizeof pattern || *c.letter == '\0') {
        to.add(c.begin, static_cast<std::size_t>(c.end() - c.begin));
        return;
    }
    switch (*c.letter) {
        case '%':
            to.add("%");
            break;
        case 'n':
            break;
        case 'p':
            to.add("0000000000000000");
            break;
        case 'd':
        case 'i':
        case 'u':
        case 'x':
        case 'X':
        case 'o':
        case 'c':
            to.added(std::snprintf(to.out(), to.left(), pattern, 0));
            break;
        case 'e':
        case 'E':
        case 'f':
        case 'F':
        case 'g':
        case 'G':
        case 'a':
        case 'A':
            to.added(std::snprintf(to.out(), to.left(), pattern, 0.0));
            break;
        case 's':
            to.added(
                std::snprintf(to.out(), to.left(), pattern, static_cast<const char*>("(null)")));
            break;
        default:
            to.add(c.begin, static_cast<std::size_t>(c.end() - c.begin));
    }
}

} // namespace

int formatText(char* out, std::size_t size, const char* format, std::va_list arguments) noexcept {
    if (size > 0) {
        Arguments copy;
        va_copy(copy.list, arguments);
        const int length = formatCommon(out, size, format, copy);
        va_end(copy.list);
        if (length >= 0)
            return length;
    }
    // Twice the longest text of the library: what lies behind it could not show.
    char portable[8192];
    if (needsPortableForm(format)) {
        Appender to(portable, sizeof portable);
        makePortable(to, format);
        format = portable;
    }
    const int length = std::vsnprintf(out, size, format, arguments);
    if (length < 0 && size > 0)
        out[size - 1] = '\0';
    return length;
}

int formatWithZeroes(char* out, std::size_t size, const char* format) noexcept {
    Appender to(out, size);
    while (*format != '\0') {
        const char* percent = format + std::strcspn(format, "%");
        to.add(format, static_cast<std::size_t>(percent - format));
        if (*percent == '\0')
            break;
        const Conversion c = parseConversion(percent);
        addZero(to, c);
        format = c.end();
    }
    return static_cast<int>(to.total());
}

// The field scanner: it goes over copies of text and format and ends each field where it stands.

#include "libn/pcsscanf.h"

#include <clocale>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "decimal.h"
#include "libn/dwmini.h"

namespace {

// Of the text and of the format, in the reports of the memory tracer.
constexpr char kSource[] = "libn/src/pcsscanf";
constexpr int kTextLine = 237;
constexpr int kFormatLine = 238;

class Copy {
  public:
    Copy(const char* text, int line) {
        const std::size_t size = std::strlen(text) + 1;
        m_block = dwminiAlloc(size, kSource, line, false);
        std::memcpy(m_block, text, size);
    }
    ~Copy() { dwminiFree(&m_block); }
    Copy(const Copy&) = delete;
    Copy& operator=(const Copy&) = delete;

    char* text() const { return static_cast<char*>(m_block); }

  private:
    void* m_block = nullptr;
};

// The caller's pointers, in order.
class Outputs {
  public:
    explicit Outputs(std::va_list outputs) { va_copy(m_outputs, outputs); }
    ~Outputs() { va_end(m_outputs); }
    Outputs(const Outputs&) = delete;
    Outputs& operator=(const Outputs&) = delete;

    void* next() { return va_arg(m_outputs, void*); }

  private:
    std::va_list m_outputs;
};

struct Conversion {
    char letter;
    bool hasWidth;
    bool hasPoint;
    std::size_t width;
    char delimiter; // zero for none
};

// Takes the digits in front of `at`.  A number that is too large counts as the largest.
std::size_t number(const char*& at) {
    constexpr std::size_t kMost = std::numeric_limits<std::size_t>::max();
    std::size_t value = 0;
    for (; *at >= '0' && *at <= '9'; ++at) {
        const auto digit = static_cast<std::size_t>(*at - '0');
        value = value > (kMost - digit) / 10 ? kMost : value * 10 + digit;
    }
    return value;
}

// Takes the conversion at the "%" of `format`, or nothing where it is none.
bool takeConversion(const char*& format, Conversion& found) {
    const char* at = format + 1;
    const char* const digits = at;
    found.width = number(at);
    found.hasWidth = at != digits;
    found.hasPoint = *at == '.';
    if (found.hasPoint) {
        // Deliberate: the number behind the point does not count, only that there is a point.
        // Formats of the family carry all kinds of numbers there and mean whole ones.
        number(++at);
    }
    if (*at == '\0' || std::strchr("cCsSdfh", *at) == nullptr)
        return false;
    found.letter = *at++;
    const bool isPercent = at[0] == '%' && at[1] == '%';
    const bool none = at[0] == '\0' || (at[0] == '%' && !isPercent);
    found.delimiter = none ? '\0' : *at;
    if (!none)
        at += isPercent ? 2 : 1;
    format = at;
    return true;
}

// Goes on to the next conversion and takes it.
// Deliberate: text between conversions is passed over and need not occur.  It documents formats.
bool nextConversion(const char*& format, Conversion& found) {
    while ((format = std::strchr(format, '%')) != nullptr) {
        if (takeConversion(format, found))
            return true;
        ++format;
    }
    return false;
}

// A field in the text, ended by a zero while this lives.
class Field {
  public:
    // Takes it from the front of `text`.
    Field(char*& text, const Conversion& conversion) : m_begin(text) {
        if (conversion.delimiter != '\0') {
            m_begin += std::strspn(m_begin, " \t\n\r");
            m_end = std::strchr(m_begin, conversion.delimiter);
        }
        const bool found = m_end != nullptr;
        if (!found)
            m_end = m_begin + (conversion.hasWidth ? strnlen(m_begin, conversion.width)
                                                   : std::strlen(m_begin));
        m_isLast = conversion.delimiter != '\0' && !found;
        m_behind = *m_end;
        *m_end = '\0';
        text = m_end + (found ? 1 : 0);
    }
    ~Field() { *m_end = m_behind; }
    Field(const Field&) = delete;
    Field& operator=(const Field&) = delete;

    char* text() const { return m_begin; }
    std::size_t size() const { return static_cast<std::size_t>(m_end - m_begin); }
    // A delimiter was wanted and not there.
    bool isLast() const { return m_isLast; }

  private:
    char* m_begin;
    char* m_end = nullptr;
    char m_behind;
    bool m_isLast;
};

// The text of a point in numbers, "" where the locale has none.
const char* decimalPoint() {
    const std::lconv* const locale = std::localeconv();
    return *locale->decimal_point != '\0' ? locale->decimal_point : locale->mon_decimal_point;
}

void cutAtPoint(char* text) {
    const char* const point = decimalPoint();
    char* const at = *point != '\0' ? std::strstr(text, point) : nullptr;
    if (at != nullptr)
        *at = '\0';
}

// Outputs may stand at any address.
template <class Value>
void put(void* output, Value value) {
    std::memcpy(output, &value, sizeof value);
}

void store(void* output, const Field& field, const Conversion& conversion) {
    switch (conversion.letter) {
        case 'c':
        case 'C':
            put(output, *field.text());
            break;
        case 's':
        case 'S':
            // Deliberate: no terminator where the width cuts.  Callers fill fixed columns of wider
            // buffers.
            if (conversion.hasWidth && conversion.width < field.size())
                std::memcpy(output, field.text(), conversion.width);
            else
                std::memcpy(output, field.text(), field.size() + 1);
            break;
        case 'd':
            put(output, decimalOf(field.text()));
            break;
        case 'h':
            put(output, static_cast<std::int16_t>(decimalOf(field.text())));
            break;
        default:
            if (conversion.hasPoint)
                cutAtPoint(field.text());
            put(output, std::strtod(field.text(), nullptr));
    }
}

void scan(char* text, const char* format, Outputs& outputs) {
    Conversion conversion;
    while (*text != '\0' && nextConversion(format, conversion)) {
        void* const output = outputs.next();
        // Deliberate: what is not wanted takes no field, so the next conversion gets it.
        if (output == nullptr)
            continue;
        const Field field(text, conversion);
        store(output, field, conversion);
        if (field.isLast())
            return;
    }
}

} // namespace

int vpcsscanf(const char* text, const char* format, std::va_list outputs) {
    if (text == nullptr || format == nullptr)
        return 1;
    Outputs pointers(outputs);
    try {
        const Copy textCopy(text, kTextLine);
        const Copy formatCopy(format, kFormatLine);
        scan(textCopy.text(), formatCopy.text(), pointers);
    } catch (...) {
        return 1;
    }
    return 0;
}

int pcsscanf(const char* text, const char* format, ...) {
    std::va_list outputs;
    va_start(outputs, format);
    const int result = vpcsscanf(text, format, outputs);
    va_end(outputs);
    return result;
}

// Formatting of texts and whole numbers in one pass.

#include "commonFormat.h"

#include <charconv>
#include <climits>
#include <cstring>
#include <type_traits>

namespace {

// Takes what fits in front of the terminator, and counts all.
class Sink {
  public:
    Sink(char* out, std::size_t size) : m_at(out), m_end(out + size - 1) {}

    void put(const char* text, std::size_t length) {
        const auto room = static_cast<std::size_t>(m_end - m_at);
        const std::size_t kept = length < room ? length : room;
        std::memcpy(m_at, text, kept);
        m_at += kept;
        m_total += length;
    }

    // The length of the whole text, negative where no int holds it.
    int finish() {
        *m_at = '\0';
        return m_total <= INT_MAX ? static_cast<int>(m_total) : -1;
    }

  private:
    char* m_at;
    char* m_end;
    std::size_t m_total = 0;
};

enum class Width { Int, Long, LongLong, Size };

template <class Number>
void putNumber(Sink& to, Number number, int base) {
    char digits[24];
    const auto result = std::to_chars(digits, digits + sizeof digits, number, base);
    to.put(digits, static_cast<std::size_t>(result.ptr - digits));
}

// The list is begun by whoever calls formatCommon, which the check does not see.
// NOLINTBEGIN(clang-analyzer-valist.Uninitialized)

void putSigned(Sink& to, Width width, Arguments& arguments) {
    switch (width) {
        case Width::Int:
            return putNumber(to, va_arg(arguments.list, int), 10);
        case Width::Long:
            return putNumber(to, va_arg(arguments.list, long), 10);
        case Width::LongLong:
            return putNumber(to, va_arg(arguments.list, long long), 10);
        case Width::Size:
            return putNumber(to, va_arg(arguments.list, std::make_signed_t<std::size_t>), 10);
    }
}

void putUnsigned(Sink& to, Width width, int base, Arguments& arguments) {
    switch (width) {
        case Width::Int:
            return putNumber(to, va_arg(arguments.list, unsigned), base);
        case Width::Long:
            return putNumber(to, va_arg(arguments.list, unsigned long), base);
        case Width::LongLong:
            return putNumber(to, va_arg(arguments.list, unsigned long long), base);
        case Width::Size:
            return putNumber(to, va_arg(arguments.list, std::size_t), base);
    }
}

void putText(Sink& to, const char* text) {
    if (text == nullptr)
        text = "(null)";
    to.put(text, std::strlen(text));
}

// Prints what stands behind a %; what follows, or null for a conversion of another kind.
const char* putConversion(Sink& to, const char* at, Arguments& arguments) {
    Width width = Width::Int;
    if (*at == 'l') {
        width = at[1] == 'l' ? Width::LongLong : Width::Long;
        at += width == Width::LongLong ? 2 : 1;
    } else if (*at == 'z') {
        width = Width::Size;
        ++at;
    }
    switch (*at) {
        case 'd':
        case 'i':
            putSigned(to, width, arguments);
            return at + 1;
        case 'u':
            putUnsigned(to, width, 10, arguments);
            return at + 1;
        case 'x':
            putUnsigned(to, width, 16, arguments);
            return at + 1;
        default:
            break;
    }
    if (width != Width::Int)
        return nullptr;
    if (*at == 's') {
        putText(to, va_arg(arguments.list, const char*));
    } else if (*at == 'c') {
        const char character = static_cast<char>(va_arg(arguments.list, int));
        to.put(&character, 1);
    } else if (*at == '%') {
        to.put(at, 1);
    } else {
        return nullptr;
    }
    return at + 1;
}

// NOLINTEND(clang-analyzer-valist.Uninitialized)

} // namespace

int formatCommon(char* out, std::size_t size, const char* format, Arguments& arguments) noexcept {
    Sink to(out, size);
    while (const char* percent = std::strchr(format, '%')) {
        to.put(format, static_cast<std::size_t>(percent - format));
        format = putConversion(to, percent + 1, arguments);
        if (format == nullptr)
            return -1;
    }
    to.put(format, std::strlen(format));
    return to.finish();
}

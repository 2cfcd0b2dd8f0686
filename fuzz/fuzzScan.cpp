// Fuzz target of the field scanner: two bytes whose bits leave out outputs, a text up to a zero,
// and behind it a format, against a second form of the scan on strings.  Each output is a block of
// exactly the bytes that may be stored.

#include <algorithm>
#include <cstring>
#include <memory>
#include <optional>
#include <regex>
#include <string>
#include <vector>

#include "libn/memTraceTable.h"
#include "libn/pcsscanf.h"
#include "reference/iniReference.h"
#include "support/input.h"

namespace {

constexpr std::size_t kOutputs = 16;
constexpr char kUntouched = '\xA5';

struct Conversion {
    std::size_t begin = 0;
    std::optional<std::size_t> width;
    bool hasPoint = false;
    char letter = '\0';
    std::optional<char> delimiter;
};

std::size_t widthOf(std::string digits) {
    digits.erase(0, std::min(digits.find_first_not_of('0'), digits.size()));
    return digits.size() > 9 ? 999'999'999 : std::stoul("0" + digits);
}

std::vector<Conversion> conversionsOf(const std::string& format) {
    static const std::regex form("%([0-9]*)(\\.[0-9]*)?([cCsSdfh])");
    std::vector<Conversion> all;
    std::smatch match;
    for (auto at = format.begin(); std::regex_search(at, format.end(), match, form);) {
        Conversion found;
        found.begin = static_cast<std::size_t>(match[0].first - format.begin());
        if (match[1].length() > 0)
            found.width = widthOf(match[1]);
        found.hasPoint = match[2].matched;
        found.letter = *match[3].first;
        at = match[0].second;
        const std::string behind(at, format.end());
        if (behind.starts_with("%%")) {
            found.delimiter = '%';
            at += 2;
        } else if (!behind.empty() && behind[0] != '%') {
            found.delimiter = behind[0];
            ++at;
        }
        all.push_back(found);
    }
    return all;
}

template <class Value>
std::string bytesOf(Value value) {
    return {reinterpret_cast<const char*>(&value), sizeof value};
}

std::string storedBytes(const Conversion& conversion, std::string field) {
    const std::int32_t number = reference::IniFile::number(field);
    switch (conversion.letter) {
        case 'c':
        case 'C':
            return {field.empty() ? '\0' : field[0]};
        case 'd':
            return bytesOf(number);
        case 'h':
            return bytesOf(static_cast<std::int16_t>(static_cast<std::uint32_t>(number) & 0xFFFF));
        case 'f':
            if (conversion.hasPoint)
                field.resize(std::min(field.find('.'), field.size()));
            return bytesOf(std::strtod(field.c_str(), nullptr));
        default:
            if (conversion.width && *conversion.width < field.size())
                return field.substr(0, *conversion.width);
            return field + '\0';
    }
}

// What each output of the scan gets; "" for nothing.
std::vector<std::string> expected(std::string text, const std::vector<Conversion>& conversions,
                                  std::uint32_t leftOut) {
    std::vector<std::string> stored(conversions.size());
    for (std::size_t i = 0; i < conversions.size() && !text.empty(); ++i) {
        const Conversion& conversion = conversions[i];
        if ((leftOut >> i & 1) != 0)
            continue;
        if (conversion.delimiter)
            text.erase(0, std::min(text.find_first_not_of(" \t\n\r"), text.size()));
        const std::size_t end =
            conversion.delimiter ? text.find(*conversion.delimiter) : std::string::npos;
        const std::string field = end != std::string::npos
                                      ? text.substr(0, end)
                                      : text.substr(0, conversion.width.value_or(text.size()));
        stored[i] = storedBytes(conversion, field);
        if (conversion.delimiter && end == std::string::npos)
            break;
        text.erase(0, field.size() + (end != std::string::npos ? 1 : 0));
    }
    return stored;
}

std::size_t roomFor(const Conversion& conversion, const std::string& text) {
    switch (conversion.letter) {
        case 'c':
        case 'C':
            return 1;
        case 'd':
            return 4;
        case 'h':
            return 2;
        case 'f':
            return 8;
        default:
            return std::min(text.size(), conversion.width.value_or(text.size())) + 1;
    }
}

void check(const std::string& text, const std::string& format,
           const std::vector<Conversion>& conversions, std::uint32_t leftOut) {
    const std::vector<std::string> wanted = expected(text, conversions, leftOut);
    std::vector<std::unique_ptr<char[]>> blocks(conversions.size());
    void* p[kOutputs] = {};
    for (std::size_t i = 0; i < conversions.size(); ++i) {
        const std::size_t room = roomFor(conversions[i], text);
        blocks[i] = std::make_unique<char[]>(room);
        std::memset(blocks[i].get(), kUntouched, room);
        p[i] = (leftOut >> i & 1) != 0 ? nullptr : blocks[i].get();
    }
    const std::uint32_t allocated = memCountMalloc;
    const std::uint32_t freed = memCountFree;
    FUZZ_CHECK(pcsscanf(text.c_str(), format.c_str(), p[0], p[1], p[2], p[3], p[4], p[5], p[6],
                        p[7], p[8], p[9], p[10], p[11], p[12], p[13], p[14], p[15]) == 0);
    FUZZ_CHECK(memCountMalloc - allocated == 2 && memCountFree - freed == 2);
    for (std::size_t i = 0; i < conversions.size(); ++i) {
        const std::size_t room = roomFor(conversions[i], text);
        FUZZ_CHECK(wanted[i].size() <= room);
        std::string all = wanted[i];
        all.resize(room, kUntouched);
        FUZZ_CHECK(std::memcmp(blocks[i].get(), all.data(), room) == 0);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 2)
        return 0;
    const std::uint32_t leftOut = data[0] | data[1] << 8;
    const std::string all(reinterpret_cast<const char*>(data) + 2, size - 2);
    const std::string text = all.c_str();
    std::string format = all.substr(std::min(text.size() + 1, all.size())).c_str();
    std::vector<Conversion> conversions = conversionsOf(format);
    // A caller has an output for each conversion.
    if (conversions.size() > kOutputs) {
        format.resize(conversions[kOutputs].begin);
        conversions = conversionsOf(format);
    }
    FUZZ_CHECK(conversions.size() <= kOutputs);
    check(text, format, conversions, leftOut);
    check(text, format, conversions, 0);
    return 0;
}

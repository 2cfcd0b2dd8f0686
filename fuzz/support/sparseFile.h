// Storage files as inputs hold them: the file's size in 4 bytes, and then its parts that are not
// zero, each with an offset in 4 bytes and a length in 2 in front.  Numbers are little-endian. What
// lies outside the file is left out, and the last part may end early, so any bytes are an input.

#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

namespace fuzzing {

template <class Number>
Number storedNumber(std::string_view bytes, std::size_t at) {
    Number number = 0;
    if (at < bytes.size())
        std::memcpy(&number, bytes.data() + at, std::min(sizeof number, bytes.size() - at));
    return number;
}

inline void storeNumber(std::string& bytes, std::size_t at, std::uint64_t number,
                        std::size_t width) {
    if (at < bytes.size())
        std::memcpy(bytes.data() + at, &number, std::min(width, bytes.size() - at));
}

// Puts the file of an input, of at most `most` bytes, into `file`, whose memory is used again.
inline void takeFile(std::string_view input, std::size_t most, std::string& file) {
    file.assign(storedNumber<std::uint32_t>(input, 0) % (most + 1), '\0');
    for (std::size_t at = 4; at + 6 <= input.size();) {
        const std::uint32_t offset = storedNumber<std::uint32_t>(input, at);
        const std::string_view part =
            input.substr(at + 6, storedNumber<std::uint16_t>(input, at + 4));
        at += 6 + part.size();
        if (offset < file.size())
            part.copy(file.data() + offset, file.size() - offset);
    }
}

// The place of the first byte from `at` on that is not zero.
inline std::size_t behindZeroes(const std::string& file, std::size_t at) {
    static constexpr char kZeroes[1024] = {};
    while (file.size() - at >= sizeof kZeroes &&
           std::memcmp(file.data() + at, kZeroes, sizeof kZeroes) == 0)
        at += sizeof kZeroes;
    return file.find_first_not_of('\0', at);
}

// The shortest input, but for gaps of a few bytes, that gives the file.
inline std::string inputOfFile(const std::string& file) {
    constexpr std::size_t kMostPart = 0xFFFF;
    constexpr std::size_t kLeastGap = 8;
    std::string input(4, '\0');
    storeNumber(input, 0, file.size(), 4);
    for (std::size_t at = behindZeroes(file, 0); at != std::string::npos;) {
        std::size_t end = at;
        std::size_t next = at;
        while (next != std::string::npos && next - end < kLeastGap && next - at < kMostPart) {
            end = std::min({file.find('\0', next), file.size(), at + kMostPart});
            next = behindZeroes(file, end);
        }
        std::string head(6, '\0');
        storeNumber(head, 0, at, 4);
        storeNumber(head, 4, end - at, 2);
        input += head;
        input.append(file, at, end - at);
        at = next;
    }
    return input;
}

} // namespace fuzzing

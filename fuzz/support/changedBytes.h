// Which bytes of a file changed, against those that may.

#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace fuzzing {

// Empty where the file is as wanted, else where it is not.
inline std::string fileDifference(std::string_view file, std::string_view wanted) {
    if (file == wanted)
        return {};
    std::size_t at = 0;
    while (at < file.size() && at < wanted.size() && file[at] == wanted[at])
        ++at;
    return "file of " + std::to_string(file.size()) + " bytes, wanted " +
           std::to_string(wanted.size()) + ", differs at " + std::to_string(at);
}

// What a walk that failed on its way may leave: every byte is as before or as wanted at the end,
// with exceptions.
struct PartialChange {
    std::string_view before;
    std::string_view wanted;
    bool zeroed = false; // it may be zero, and shorter
    // Bytes of numbers that change several times.
    std::size_t counterBegin = 0;
    std::size_t counterEnd = 0;

    bool allows(std::size_t at, char byte) const {
        return byte == (at < before.size() ? before[at] : '\0') ||
               (at < wanted.size() && byte == wanted[at]) || (zeroed && byte == '\0') ||
               (at >= counterBegin && at < counterEnd);
    }
};

inline std::string partialDifference(std::string_view file, const PartialChange& change) {
    constexpr std::size_t kPiece = 1024;
    for (std::size_t begin = 0; begin < file.size(); begin += kPiece) {
        const std::string_view piece = file.substr(begin, kPiece);
        if ((begin < change.wanted.size() && piece == change.wanted.substr(begin, kPiece)) ||
            (begin < change.before.size() && piece == change.before.substr(begin, kPiece)))
            continue;
        for (std::size_t i = 0; i < piece.size(); ++i)
            if (!change.allows(begin + i, piece[i]))
                return "file changed at " + std::to_string(begin + i);
    }
    if (file.size() < change.before.size() && !change.zeroed)
        return "file cut to " + std::to_string(file.size());
    return {};
}

} // namespace fuzzing

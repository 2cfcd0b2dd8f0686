// What the targets share: checks, and inputs that also say which platform calls go wrong.
//
// An input may end in 8 bytes: "FLT!", a byte that is the seed of short counts, a byte that is the
// number of the failing call, a byte whose lowest bit makes the failure last, and a byte of no
// meaning.  The rest is the file.

#pragma once

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include "memoryFiles.h"

#define FUZZ_CHECK(condition) \
  ((condition) ? static_cast<void>(0) : fuzzing::checkFailed(__FILE__, __LINE__, #condition))

namespace fuzzing {

[[noreturn]] inline void checkFailed(const char* file, int line, const char* what) {
    std::fprintf(stderr, "%s:%d: %s\n", file, line, what);
    std::abort();
}

// Ends the program where a comparison found something.
inline void expectNoDifference(const std::string& difference) {
    if (!difference.empty())
        checkFailed("difference", 0, difference.c_str());
}

inline constexpr std::string_view kFaultMark = "FLT!";
inline constexpr std::size_t kFaultTrailer = 8;

struct Input {
    std::string_view file;
    FaultPlan plan;
};

inline Input splitInput(const std::uint8_t* data, std::size_t size) {
    Input input;
    input.file = {reinterpret_cast<const char*>(data), size};
    if (size < kFaultTrailer ||
        input.file.substr(size - kFaultTrailer, kFaultMark.size()) != kFaultMark)
        return input;
    const std::uint8_t* trailer = data + size - kFaultTrailer + kFaultMark.size();
    input.file.remove_suffix(kFaultTrailer);
    input.plan.shortCounts = trailer[0];
    input.plan.failingCall = trailer[1];
    input.plan.failsForGood = (trailer[2] & 1) != 0;
    return input;
}

// Small numbers that are fixed by a seed.
class Dice {
  public:
    explicit Dice(std::uint32_t seed) : m_state(seed * 2654435761u + 12345u) {}
    std::uint32_t next() {
        m_state ^= m_state << 13;
        m_state ^= m_state >> 17;
        m_state ^= m_state << 5;
        return m_state;
    }
    std::uint32_t below(std::uint32_t limit) { return next() % limit; }
    bool oneIn(std::uint32_t limit) { return below(limit) == 0; }

  private:
    std::uint32_t m_state;
};

} // namespace fuzzing

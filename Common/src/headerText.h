// The middle of a line's header, ": time (process:thread:mark): ", as it was last made on a thread:
// lines of one second differ in their milliseconds alone, which are put in anew for each.
//
// It stands in the half of the thread's line buffer that no line reaches.

#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "dw_util/threadLogState.h"
#include "platform/process.h"

// Zeroes are an empty cache: no thread has the number 0.
struct LineCache {
    // What `text` was made of.
    std::int64_t second;
    std::uint32_t process;
    std::uint32_t thread;
    char mark[8];

    std::uint32_t length;         // of `text`
    std::uint32_t millisecondsAt; // where their three digits stand in it
    char text[192];

    // What told the thread's appName, null for none, and the length of the name.
    decltype(platform::Calls::executablePath) nameFrom;
    std::size_t nameLength;
};

// The middle of the calling thread's header for now; good until its next line.
std::string_view headerText(LineCache& cache, const ThreadLogState& state);

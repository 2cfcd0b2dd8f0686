// The lines that the host writes and the tests expect.

#pragma once

#include <cstdio>
#include <string>

// Every so many lines of a thread one is an error, where there are errors at all.
inline constexpr int kErrorEvery = 25;

inline bool isError(int number) {
    return number % kErrorEvery == kErrorEvery - 1;
}

// "T03 N0000042 xxxx|", of a length and a letter that the number decides, so that pieces of two
// lines are no line.
inline std::string lineText(int thread, int number) {
    char head[32];
    std::snprintf(head, sizeof head, "T%02d N%07d ", thread, number);
    const char letter = static_cast<char>('a' + (number + thread) % 26);
    return head + std::string(static_cast<std::size_t>((number * 7 + thread) % 90), letter) + '|';
}

// The library's own conversion of file times.

#pragma once

#include <cstdint>

// 100 ns since 1601, as the system hands it out (FILETIME).
struct FileTime {
    std::uint32_t low;
    std::uint32_t high;
};
static_assert(sizeof(FileTime) == 8);

// Calendar fields (SYSTEMTIME).
struct SystemTime {
    std::uint16_t year;
    std::uint16_t month;     // from 1
    std::uint16_t dayOfWeek; // from 0, Sunday
    std::uint16_t day;       // from 1
    std::uint16_t hour;
    std::uint16_t minute;
    std::uint16_t second;
    std::uint16_t milliseconds;
};
static_assert(sizeof(SystemTime) == 16);

// Fills `out` with the fields of `fileTime`, without a call of the system and without a change of
// zone.  False, and a line in the error log, on failure, when `out` is left alone: "Invalid params"
// for a null argument, "FileTimeToSystemTimeImpl(HIGH:LOW) failed REASON" for a year behind 9999.
bool FileTimeToSystemTimeImpl(const FileTime* fileTime, SystemTime* out);

// The zone of local time for the rest of the process.

#pragma once

#include <cstdlib>
#include <ctime>

// `zone` in the form that both run-times know, such as "CST6CDT".
inline void setTimeZone(const char* zone) {
#ifdef _WIN32
    ::_putenv_s("TZ", zone);
    ::_tzset();
#else
    ::setenv("TZ", zone, 1);
    ::tzset();
#endif
}

// The second at which a day starts there; `day` counts from 1 in January of the year and may be
// any number.
inline std::time_t midnight(int year, int day) {
    std::tm time = {};
    time.tm_year = year - 1900;
    time.tm_mday = day;
    time.tm_isdst = -1;
    return std::mktime(&time);
}

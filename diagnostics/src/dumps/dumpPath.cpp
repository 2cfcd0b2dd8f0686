// Where dumps go: a folder for each day below the working one.

#include <cstdio>
#include <cstring>

#include "diagnostics/crashDumps.h"
#include "diagnostics/fileTime.h"
#include "platform/dumpWriter.h"
#include "platform/process.h"

char dumpPath[261];

void makeDumpPath(std::int32_t kind) {
    const std::uint64_t now = platform::dumpCalls.localFileTime();
    const FileTime fileTime = {static_cast<std::uint32_t>(now),
                               static_cast<std::uint32_t>(now >> 32)};
    SystemTime time = {};
    // Deliberate: a clock that no calendar reaches gives a name of zeroes; a dump under a strange
    // name is worth more than none.
    FileTimeToSystemTimeImpl(&fileTime, &time);

    const char separator = platform::pathForm.separator;
    std::snprintf(dumpPath, sizeof dumpPath, "Dumps%c%04d%02d%02d%c", separator, time.year,
                  time.month, time.day, separator);
    platform::dumpCalls.createFolder("Dumps");
    platform::dumpCalls.createFolder(dumpPath);
    const std::size_t length = std::strlen(dumpPath);
    std::snprintf(dumpPath + length, sizeof dumpPath - length, "%s%02d%02d%02d_%03d.dmp",
                  kind != 0 ? "full" : "mini", time.hour, time.minute, time.second,
                  time.milliseconds);
}

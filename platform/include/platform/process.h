// The running program and the form of its paths.

#pragma once

#include "platform/calls.h"

namespace platform {

// How this system writes paths.
struct PathForm {
    // Stands between folders in the system's own paths.
    char separator;
    // Taken for a separator in configured names too, since one ini file serves all systems; 0 for
    // none.
    char alternate;
    // A name such as C:x is absolute.
    bool drives;
    // So many separators in front make a name absolute: two for a network name, one for a root.
    int absolutePrefix;

    constexpr bool isSeparator(char c) const {
        return c == separator || (alternate != 0 && c == alternate);
    }
};

extern const PathForm pathForm;

// Whether the process is ending and all threads but this one are gone, with whatever locks they
// held, as on Windows while libraries are left (RtlDllShutdownInProgress).  Never on Linux.
bool processEnds() noexcept;

} // namespace platform

// Where a configured file name points: the path rule, a function of the name and of where the
// host's executable stands.

#pragma once

#include <cstddef>

inline constexpr std::size_t kPathSize = 260;

// A full path with its terminator.
using PathBuffer = char[kPathSize];

// Writes the full path of `name` into the `size` bytes of `out`, cut there and terminated, and at
// 511 characters in any case.  The first case that fits decides:
//
//   null or empty             empty
//   drive letter and colon    the name itself (Windows)
//   two leading backslashes   the name itself (Linux: one leading / or \)
//   leading "."               the folder of the host's executable, one folder higher for each
//                             further dot, then the name from its first separator on
//   anything else             the folder of the host's executable, a separator, the name
//
// On Linux a \ in the name is a separator too, and the result has none; the executable is the file
// that a symbolic link to it points at.  A name with leading dots and no separator gives the folder
// alone.  0, or 1 and an empty `out` after an exception on the way.
int resolvePath(char* out, std::size_t size, const char* name) noexcept;

inline int resolvePath(PathBuffer& out, const char* name) noexcept {
    return resolvePath(out, sizeof out, name);
}

// What a file that takes the name of another needs beside the calls of calls.h.

#pragma once

namespace platform {

// Makes the present the file's creation time where the system would give it that of the file that
// had the name just before, as Windows does for some seconds (SetFileTime).  Nothing on Linux,
// where a new file is young.  A failure leaves the time as it is.
void renewCreationTime(const char* path) noexcept;

} // namespace platform

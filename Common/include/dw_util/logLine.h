// A line of the logs while it is built, in the calling thread's own buffer and without a lock.
//
// A line begins with beginLine(), grows by aprintf() and stands terminated in getabuf().

#pragma once

#include <cstdarg>
#include <cstddef>
#include <string_view>

// Bytes of the buffer and of the line in it, with its line feed.  The byte behind a line that fills
// its room is never written and stays 0, which ends the line; the rest of the buffer holds what the
// thread's next lines are made of.
inline constexpr std::size_t kLineBufferSize = 4000;
inline constexpr std::size_t kLineSize = 2000;

// The calling thread's buffer, zeroed when it is first asked for.  Raises a COSError where there is
// no memory.
char* getabuf();

// Where the calling thread's line goes on.
char* getaptr();

// Starts the calling thread's line anew.
void beginLine();

// Appends to the line, in the formats of formatText; the number of bytes.  What does not fit is
// cut, and the line then ends in "...\n".  0 where the line is full or was not begun; the latter is
// reported as a failed assertion.
int aprintf(const char* format, ...);
int vaprintf(const char* format, std::va_list arguments);

// The same for a text as it stands.
int appendText(std::string_view text);

// Appends letter, local time, process, thread, mark and banner.
void aputHeader(const char* letter);

// The path of the program, cut to 260 characters, in the thread's appName; good until the thread's
// next line, and terminated.  The system is asked once on each thread, and again while it has no
// answer.
std::string_view getappname();

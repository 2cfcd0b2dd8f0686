// Reports of what should not have happened.  Neither function ends the program or raises.
//
// Both write one line to the standard error stream and to the error log.  Any thread.

#pragma once

namespace libn {

// "Assertion Failed (predefined): \"text\" in file F, line N."  `file` stands as it is given.
void assertionFailed(const char* text, const char* file, int line) noexcept;

// Called from inside a catch block: tells of the exception in flight, "Unhandled LOCAL exception
// caught in function F, file F, line N: \"text\".".  The word is LOCAL for sarn::Exception,
// STANDART for std::exception, C-STRING for const char*, INTEGER for int, else UNKNOWN.
void reportUnhandled(const char* function, const char* file, int line) noexcept;

} // namespace libn

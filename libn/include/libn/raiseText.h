// Failures whose text is built field by field.

#pragma once

#include <sstream>

namespace libn {

// Raises a CError with the text of a stream.  The stream holds a place or message, ":", and then
// the values that matter, each as its name in the source, "<", the value, ">":
// `name()<data.vd>newPage.size<65536>`.
//
// The raised file and line are those of this function, since the place is in the text.  The text
// stands as a format without arguments: a "%" in a value is a conversion, which finds zeroes.
[[noreturn]] void raiseText(const std::ostringstream& stream);

} // namespace libn

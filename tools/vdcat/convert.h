// Values as text.  Data files hold single-byte texts in an encoding of the writer's choice; what
// leaves the program is UTF-8 always.

#pragma once

#include <string>
#include <string_view>

#include "vdcat/value.h"

namespace vdcat {

// Appends the text with valid UTF-8 left as it stands and each other byte as the character of its
// number, U+0080 to U+00FF.
void appendUtf8(std::string& out, std::string_view text);

// Appends a JSON string with its quotation marks.
void appendJsonString(std::string& out, std::string_view text);

// Appends a JSON value: null for nothing and for what is no finite number, otherwise the shortest
// digits that give the same number back.
void appendJsonValue(std::string& out, const Value& value);

// Appends the value for a reader: nothing for an absent text, "nan", "inf" and "-inf" as such.
void appendPlainValue(std::string& out, const Value& value);

// Appends two lower-case digits a byte.
void appendHex(std::string& out, const void* bytes, std::size_t count);

// Number of characters (not bytes) of a UTF-8 text.
std::size_t characterCount(std::string_view text);

} // namespace vdcat

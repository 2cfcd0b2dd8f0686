// A scanner that splits a text into fields at the delimiters that a format names.
//
// A format is a row of conversions, and any other text in it means nothing:
//
//   % [width] [. [digits]] letter [delimiter]
//
// What follows the letter ends the field in the text, unless it is the "%" of the next conversion;
// "%%" stands for a "%" that does.  What looks otherwise behind a "%" is no
// conversion.
//
// Each conversion takes its field from where the one before it left the text.  With a
// delimiter, blanks in front (space, tab, line feed, carriage return) are dropped, the text up
// to the next delimiter is the field, and the delimiter is passed over.  Without one, or where it
// does not occur, the field is the rest of the text, or its first `width` characters; where it does
// not occur, this field is the last.  The scan ends with the text or the format; what comes behind
// stays unset.
//
//   letter   output          gets
//   c C      char            the field's first character, 0 of an empty field
//   s S      char[]          the field and a terminator; `width` bytes and no terminator where the
//                            width is shorter than the field
//   d        std::int32_t    the decimal number in front, 0 for none, the nearest out of range
//   h        std::int16_t    the low 16 bits of the same
//   f        double          the number in front, 0 for none; with a point in the conversion that
//                            of what stands in front of the C locale's decimal point

#pragma once

#include <cstdarg>

// Stores the fields of `text` behind one pointer for each conversion of `format`; a null pointer
// skips its conversion and takes nothing from the text.  0; 1 after an exception on the way
// or text or format is null.  The caller's buffer of an "s" has to hold the longest field and its
// terminator, which is `width` + 1 bytes with a width.  Any thread.
int pcsscanf(const char* text, const char* format, ...);
int vpcsscanf(const char* text, const char* format, std::va_list outputs);

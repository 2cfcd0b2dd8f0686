// Reads back of a class.vd what a server needs to play: ids, codes, the kinds of the parameters and
// the securities.  Knows the format by itself and shares no code with the library.

#pragma once

#include <string>
#include <vector>

#include "sample/classFile.h"

namespace live {

// The classes of the file, each with classId and classCode, its parameters with par_id, flags,
// scale, db_name and names, and its securities with sec_id and sec_code; all other fields are left
// at their defaults, free records out.  Raises Error: CannotOpen "cannot open ", the path, ": " and
// the system's reason; Malformed where the file is none or ends inside a block.
std::vector<sample::ClassRecord> readClasses(const std::string& path);

} // namespace live

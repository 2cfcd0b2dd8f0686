// Where an ini file says that a data file stands.  The readers find it by themselves; this is for
// the files that are copied before a reader sees them, and follows the same rules.

#pragma once

#include <string>

namespace vdcat {

// The first value of the key in the section, or an empty text.  Section and key are compared
// without regard to case.  A file that cannot be read has no values.
std::string iniValue(const std::string& iniFile, const std::string& section,
                     const std::string& key);

// The full path of a name from an ini file: a full one as it stands, any other one counted from the
// folder of the program at `executable`, for each further leading dot from one folder higher.
std::string configuredPath(const std::string& name, const std::string& executable);

} // namespace vdcat

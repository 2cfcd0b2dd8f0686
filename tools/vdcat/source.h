// Where the records come from: a folder with the files under their usual names, or an ini file.
// Opens the library's readers for it.

#pragma once

#include <cstdint>
#include <string>

#include "support/program.h"
#include "vdcat/options.h"

namespace vdcat {

class Source {
  public:
    // Raises tool::Failure kCannotOpen for a folder or ini file that is not there.
    explicit Source(const Request& request);

    // The folder or ini file as the caller named it.
    const std::string& name() const { return m_name; }

    // Each prepares one reader of the library.  Raise tool::Failure with the library's text and
    // kCannotOpen or kMalformed.
    void openClasses();
    void openLimits();
    void openPositions();

  private:
    // Calls one of the readers that take nothing but an ini file; a folder gets one for the call.
    void openFlatFile(std::int32_t (*init)(const char*, const char*), const char* key,
                      const char* name);

    std::string m_name;
    std::string m_folder; // full path, empty for an ini file
    std::string m_iniFile;
    std::string m_section;
};

// The library's last failure with its exit code.
tool::Failure lastFailure();

} // namespace vdcat

// Where the records come from: a folder with the files under their usual names, or an ini file.
// Opens the library's readers for it.

#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "support/privateFolder.h"
#include "support/program.h"
#include "vdcat/options.h"

namespace vdcat {

class Source {
  public:
    // Raises tool::Failure kCannotOpen for a folder or ini file that is not there.
    explicit Source(const Request& request);

    // Lets go of the copies and removes them.
    ~Source();
    Source(const Source&) = delete;
    Source& operator=(const Source&) = delete;

    // The folder or ini file as the caller named it.
    const std::string& name() const { return m_name; }

    // Each prepares one reader of the library.  Raise tool::Failure with the library's text and
    // kCannotOpen or kMalformed.
    void openClasses();

    // These two need the classes.  The library opens the files for writing: it gets copies, or with
    // --live the files themselves once they are known to be what they should be and not empty.
    void openCurrentData();
    void openAlerts();

    void openLimits();
    void openPositions();

    // Bytes of the alert.vd that is read, which bound what a record can hold.
    std::uint64_t alertFileSize() const;

  private:
    // Path of the file under a key of the ini file, or of its name in the folder.
    std::string fileOf(const char* key, const char* name) const;

    // What the library is to open in place of the file at `path`, which must hold `mark` at
    // `offset` unless it is empty.
    std::string prepared(const std::string& path, const char* name, std::size_t offset,
                         std::string_view mark);

    // Calls a reader with an ini file for the one call.
    void openThrough(std::int32_t (*init)(const char*, const char*), const char* key,
                     const std::string& path);

    // Calls one of the readers that take nothing but an ini file; a folder gets one for the call.
    void openFlatFile(std::int32_t (*init)(const char*, const char*), const char* key,
                      const char* name);

    std::string m_name;
    std::string m_folder; // full path, empty for an ini file
    std::string m_iniFile;
    std::string m_section;
    bool m_live = false;
    std::optional<tool::PrivateFolder> m_copies;
    bool m_currentDataIsOpen = false;
    std::string m_alertFile;
};

// The library's last failure with its exit code.
tool::Failure lastFailure();

} // namespace vdcat

// Copies of files that only this user can see and that go when the program ends, for what must not
// be touched where it stands.

#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace tool {

// A new folder below the system's place for temporary files.  It goes with what was copied into it
// when the object goes, and also when a signal ends the process meanwhile.  On Windows a file that
// is still open in this process stays, and so does the folder; standard error then names it.  One
// object at a time.
class PrivateFolder {
  public:
    // Raises std::runtime_error "cannot make a temporary folder: " and the system's reason.
    PrivateFolder();
    ~PrivateFolder();
    PrivateFolder(const PrivateFolder&) = delete;
    PrivateFolder& operator=(const PrivateFolder&) = delete;

    // Copies the file, as long as it is at this moment, under `name` into the folder and gives the
    // path of the copy.  Reading changes nothing of the file.  What is zero becomes a hole where
    // the file system has such.  At most four files.  Raises std::runtime_error "cannot copy ", the
    // path, ": " and the system's reason.
    std::string copy(const std::string& path, const std::string& name);

    // Removes what there is of the folder of the one object, for a process that ends without its
    // destructors.  May be called from a signal handler.
    static void removeNow();

  private:
    std::string m_path;
    std::vector<std::string> m_files;
};

} // namespace tool

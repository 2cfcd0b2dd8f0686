// Log files of a program that was asked for them.

#pragma once

#include <string>

namespace tool {

// The process's event log and the calling thread's error log in one folder, which is made where it
// is not there: events.log and errors.log, rotated as sarn.ini in the folder says.  The event log
// is finished at the end of the scope.  Raises Failure kOutputFailed where they cannot be opened.
class LogFolder {
  public:
    LogFolder(const std::string& folder, const char* mark);
    ~LogFolder();
    LogFolder(const LogFolder&) = delete;
    LogFolder& operator=(const LogFolder&) = delete;
};

} // namespace tool

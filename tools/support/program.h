// Conduct that the programs share: exit codes, one line on standard error for a failure, and text
// to standard output through a buffer that notices a closed pipe.

#pragma once

#include <functional>
#include <stdexcept>
#include <string>
#include <string_view>

#include "support/system.h"

namespace tool {

enum ExitCode : int {
    kDone = 0,
    kInternal = 1,
    kUsage = 2,
    kCannotOpen = 3,
    kMalformed = 4,
    kOutputFailed = 7,
};

// Ends the program with `code` and the text, behind the program's name, on standard error.
struct Failure : std::runtime_error {
    Failure(ExitCode exitCode, const std::string& text)
        : std::runtime_error(text), code(exitCode) {}
    ExitCode code;
};

// Standard output, collected into large pieces.
class Output {
  public:
    bool isTerminal() const { return m_standard.isTerminal(); }

    // False when nobody reads any more: the caller stops early, and finish() is then silent.
    // Raises Failure kOutputFailed when a write fails for another reason.
    bool write(std::string_view text);

    // Whether nobody reads any more, as far as a write has shown.
    bool readerIsGone() const { return m_readerIsGone; }

    // Whether somebody may still read, asked of the system without a write.
    bool hasReader() const { return !m_readerIsGone && m_standard.hasReader(); }

    // Hands on what is pending.  Raises like write.
    void flush();

    // Writes what is left and closes.  Raises like write.
    void finish();

  private:
    StandardOutput m_standard;
    std::string m_pending;
    bool m_readerIsGone = false;
};

// Runs a program's body and turns what it raises into an exit code and a line on standard error;
// an exception that is no Failure is kInternal.
int runProgram(const char* name, const std::function<int()>& body);

} // namespace tool

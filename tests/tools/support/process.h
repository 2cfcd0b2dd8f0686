// Runs a program as a child process and keeps what it writes.

#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "support/tempFolder.h"

namespace toolTest {

enum class StandardOutput {
    Captured,   // into the result
    NoReader,   // a pipe whose reading end is closed already
    FullDevice, // a device that takes nothing; Linux alone
    IdleReader, // a pipe that is open and never read
};

struct RunResult {
    int code = -1;
    std::string out;
    std::string err;
};

// Runs the program with the arguments and waits for its end.  Raises std::runtime_error if it
// cannot be started.  Output is taken as bytes.
RunResult run(const std::string& program, const std::vector<std::string>& arguments,
              StandardOutput output = StandardOutput::Captured);

// A program that runs beside the test.  Ends it by force when the object goes and it still runs.
class Child {
  public:
    Child(const std::string& program, const std::vector<std::string>& arguments,
          StandardOutput output = StandardOutput::Captured);
    ~Child();
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    // What it has written so far.
    std::string out() const { return readFile(m_folder.path() / "out"); }
    std::string err() const { return readFile(m_folder.path() / "err"); }

    // Waits until `holds` or half a minute is over; whether it holds.
    static bool waitUntil(const std::function<bool()>& holds);

    // Sends it a signal by its number; Linux alone.
    void signal(int number);

    // Sends it the signal until it has ended, and gives the exit code like wait(): a thread checker
    // keeps a signal that comes right in front of a call that waits.  Linux alone.
    int endBy(int number);

    // Waits for its end, at most half a minute, and gives the exit code; 1000 and the signal's
    // number where a signal ended it.  Raises std::runtime_error if it does not end.
    int wait();

  private:
    bool poll();

    TempFolder m_folder;
    std::intptr_t m_process = -1;
    int m_pipe = -1; // the end that is never read
    int m_code = -1;
};

inline RunResult vdcat(const std::vector<std::string>& arguments,
                       StandardOutput output = StandardOutput::Captured) {
    return run(VDCAT_PROGRAM, arguments, output);
}

inline RunResult vdsample(const std::vector<std::string>& arguments,
                          StandardOutput output = StandardOutput::Captured) {
    return run(VDSAMPLE_PROGRAM, arguments, output);
}

} // namespace toolTest

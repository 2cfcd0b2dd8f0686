// Runs a program as a child process and keeps what it writes.

#pragma once

#include <string>
#include <vector>

namespace toolTest {

enum class StandardOutput {
    Captured,   // into the result
    NoReader,   // a pipe whose reading end is closed already
    FullDevice, // a device that takes nothing; Linux alone
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

inline RunResult vdcat(const std::vector<std::string>& arguments,
                       StandardOutput output = StandardOutput::Captured) {
    return run(VDCAT_PROGRAM, arguments, output);
}

inline RunResult vdsample(const std::vector<std::string>& arguments,
                          StandardOutput output = StandardOutput::Captured) {
    return run(VDSAMPLE_PROGRAM, arguments, output);
}

} // namespace toolTest

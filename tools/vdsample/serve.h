// The play of a server until it is stopped.

#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "support/program.h"

namespace vdsample {

struct ServeRequest {
    std::string folder;
    std::uint64_t seed = 1;
    std::uint64_t rate = 50; // changes a second, 0 for as many as there can be
    std::optional<std::uint64_t> seconds;
    std::optional<std::string> logFolder;
};

// Plays on the files of the folder until it is told to stop or the seconds are over, and says on
// `output` that it began and what it did; with a log folder it logs the same there, and every ten
// seconds how far it is.  Raises tool::Failure kCannotOpen, kMalformed or kOutputFailed.
void serve(const ServeRequest& request, tool::Output& output);

} // namespace vdsample

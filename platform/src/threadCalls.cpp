// The table of threads starts with the system's own calls.

#include "threadSystem.h"

namespace platform {

constinit ThreadCalls threadCalls = {
    .threadIdOf = system::threadIdOf,
    .exitCodeOf = system::exitCodeOf,
    .suspend = system::suspendThread,
    .resume = system::resumeThread,
    .contextOf = system::contextOf,
    .terminate = system::terminateThread,
    .close = system::closeThread,
};

} // namespace platform

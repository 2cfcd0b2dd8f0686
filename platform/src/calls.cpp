// The table starts with the system's own calls.

#include "platform/calls.h"

#include "system.h"

namespace platform {

constinit Calls calls = {
    .openForReading = system::openForReading,
    .readAt = system::readAt,
    .fileSize = system::fileSize,
    .closeFile = system::closeFile,
    .openStream = system::openStream,
    .seekStream = system::seekStream,
    .tellStream = system::tellStream,
    .readStream = system::readStream,
    .executablePath = system::executablePath,
    .allocateLarge = system::allocateLarge,
};

} // namespace platform

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
    .openStorage = system::openStorage,
    .closeStorage = system::closeStorage,
    .storageSize = system::storageSize,
    .seekStorage = system::seekStorage,
    .truncateStorage = system::truncateStorage,
    .readStorage = system::readStorage,
    .moveStorage = system::moveStorage,
    .writeStorage = system::writeStorage,
    .appendStorage = system::appendStorage,
    .creationTime = system::creationTime,
    .moveFile = system::moveFile,
    .removeFile = system::removeFile,
    .setCurrentFolder = system::setCurrentFolder,
    .sleep = system::sleepFor,
    .createMapping = system::createMapping,
    .closeMapping = system::closeMapping,
    .mapView = system::mapView,
    .unmapView = system::unmapView,
    .wallClock = system::wallClock,
    .invalidParameter = system::invalidParameter,
};

} // namespace platform

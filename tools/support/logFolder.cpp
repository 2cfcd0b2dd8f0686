// Opening of a program's logs.

#include "support/logFolder.h"

#include <exception>
#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "support/program.h"
#include "vdreader/vdreader.h"

namespace tool {

namespace {

// More characters of a log's name are cut by the library.
constexpr std::size_t kLongestName = 256;

// Whole: the library counts relative names from the program's folder.
std::string placeIn(const std::string& folder, const char* name) {
    std::string place = (std::filesystem::absolute(folder) / name).make_preferred().string();
    if (place.size() > kLongestName)
        throw std::length_error("the name " + place + " is too long");
    return place;
}

} // namespace

LogFolder::LogFolder(const std::string& folder, const char* mark) {
    try {
        const std::string errors = placeIn(folder, "errors.log");
        util_init(placeIn(folder, "events.log").c_str(), errors.c_str(), mark,
                  placeIn(folder, "sarn.ini").c_str());
        // The library goes on without an error log that does not open.
        if (!std::ofstream(errors, std::ios::binary | std::ios::app))
            throw std::runtime_error("errors.log does not open");
    } catch (const std::exception& failure) {
        shutdown_logs();
        throw Failure(kOutputFailed, "cannot log to " + folder + ": " + failure.what());
    }
}

LogFolder::~LogFolder() {
    shutdown_logs();
}

} // namespace tool

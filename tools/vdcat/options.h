// What the command line asks for.

#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "vdcat/printers.h"

namespace vdcat {

enum class Kind { Info, Classes, Securities, Params, Last, Journal, Alerts, Limits, Positions };

const char* nameOf(Kind kind);

struct Request {
    Kind kind = Kind::Info;
    std::string folder; // empty where an ini file is given
    std::string iniFile;
    std::string section;
    std::optional<Format> format;
    std::optional<std::string> classCode;
    std::optional<std::string> secCode;
    std::vector<std::string> fields;
    std::optional<std::uint64_t> limit;
    std::uint16_t lang = 0;
    std::optional<std::string> logFolder;

    // Reading beside a server.
    bool live = false;             // in place, not from a copy
    bool follow = false;           // again and again
    bool onlyNew = false;          // not what was there at the start
    std::uint64_t interval = 1000; // milliseconds from one look to the next
    std::optional<std::uint64_t> seconds;
};

// The request, or the text to print where help or the version was asked for.  Raises tool::Failure
// kUsage for arguments that do not fit together.
std::variant<Request, std::string> parseOptions(int argc, char** argv);

} // namespace vdcat

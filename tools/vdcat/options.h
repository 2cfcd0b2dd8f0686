// What the command line asks for.

#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "vdcat/printers.h"

namespace vdcat {

enum class Kind { Info, Classes, Securities, Params, Limits, Positions };

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
};

// The request, or the text to print where help or the version was asked for.  Raises tool::Failure
// kUsage for arguments that do not fit together.
std::variant<Request, std::string> parseOptions(int argc, char** argv);

} // namespace vdcat

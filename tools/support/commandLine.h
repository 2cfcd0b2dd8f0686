// Parsing of a command line with the exit codes that the programs share.

#pragma once

#include <charconv>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include <CLI/CLI.hpp>

#include "support/program.h"

namespace tool {

// A check for an option's value: digits alone, and no more than `most`.  The parser's own
// conversion takes a negative number for a huge one.
inline std::function<std::string(const std::string&)> wholeNumber(std::uint64_t most) {
    return [most](const std::string& text) {
        std::uint64_t value = 0;
        const char* end = text.data() + text.size();
        const auto result = std::from_chars(text.data(), end, value);
        if (result.ec == std::errc() && result.ptr == end && value <= most)
            return std::string();
        return "'" + text + "' is no whole number from 0 to " + std::to_string(most);
    };
}

// Parses the arguments into what `app` was told to fill.  Gives the text to print where help or the
// version was asked for.  Raises Failure kUsage for arguments that do not fit.
inline std::optional<std::string> parseCommandLine(CLI::App& app, int argc, char** argv) {
    // A leading / begins a path, on every system.
    app.allow_windows_style_options(false);
    try {
        app.parse(argc, argv);
        return std::nullopt;
    } catch (const CLI::CallForHelp&) {
        return app.help();
    } catch (const CLI::CallForVersion& version) {
        return std::string(version.what()) + "\n";
    } catch (const CLI::ParseError& error) {
        throw Failure(kUsage, std::string(error.what()) + " (try --help)");
    }
}

} // namespace tool

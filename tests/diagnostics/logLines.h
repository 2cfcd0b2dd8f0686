// Lines out of log files, without what differs from run to run.

#pragma once

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "diagnostics/errorTexts.h"

inline std::string bytesOf(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

// The messages of a log file without headers and without the program's name, in order.  A line
// that does not end in carriage return and line feed comes out as "broken: " and the line.
inline std::vector<std::string> messagesIn(const std::filesystem::path& path) {
    const std::string bytes = bytesOf(path);
    std::vector<std::string> messages;
    for (std::size_t at = 0; at < bytes.size();) {
        const std::size_t feed = bytes.find('\n', at);
        const std::size_t end = feed == std::string::npos ? bytes.size() : feed;
        const std::string line = bytes.substr(at, end - at);
        if (feed != std::string::npos && !line.empty() && line.back() == '\r')
            messages.push_back(errorText(CapturedLog::message(line.substr(0, line.size() - 1))));
        else
            messages.push_back("broken: " + line);
        at = end + 1;
    }
    return messages;
}

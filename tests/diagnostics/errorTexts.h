// What error() was given, out of captured lines.

#pragma once

#include <string>
#include <vector>

#include "support/capturedLog.h"

// The message alone, without the program's name.
inline std::string errorText(const std::string& message) {
    constexpr char kLead[] = ": Error: ";
    const std::size_t lead = message.find(kLead);
    return lead == std::string::npos ? message : message.substr(lead + sizeof kLead - 1);
}

inline std::vector<std::string> errorTexts(const CapturedLog& log) {
    std::vector<std::string> texts = log.messages(CapturedLog::errors);
    for (std::string& text : texts)
        text = errorText(text);
    return texts;
}

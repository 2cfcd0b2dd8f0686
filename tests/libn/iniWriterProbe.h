// A writer of ini files that shows what it is asked, and texts as the system writes them.

#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "libn/IniWriter.h"
#include "platform/file.h"

namespace iniWriting {

// The bytes of a text file of this system.
inline std::string bytes(std::string text) {
    for (std::size_t at = 0; (at = text.find('\n', at)) != std::string::npos;
         at += platform::textLineEnd.size())
        text.replace(at, 1, platform::textLineEnd);
    return text;
}

// A writer that notes what it is asked, and does as it is told.
class Probe : public libn::IniBaseWriter {
  public:
    using IniBaseWriter::IniBaseWriter;

    bool onSectionFound(std::string& text, std::string_view headerLine) override {
        EXPECT_EQ(&text, &out);
        calls.push_back("found " + std::string(headerLine));
        text += "<" + std::string(headerLine) + ">\n";
        return skips;
    }
    void onSectionLine(std::string& line, int arg) override {
        calls.push_back("line " + line + " " + std::to_string(arg));
        if (change)
            change(line);
    }

    using IniBaseWriter::fileName;
    using IniBaseWriter::out;
    using IniBaseWriter::pass;
    using IniBaseWriter::section;

    bool skips = false;
    std::function<void(std::string&)> change;
    std::vector<std::string> calls;
};

} // namespace iniWriting

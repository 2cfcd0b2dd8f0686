// Which classes a load keeps.

#pragma once

#include <string>
#include <string_view>
#include <vector>

struct ClassFilter {
    // Codes are kept (true) or left out (false).
    bool include = true;
    // Sorted by bytes and then by length, without duplicates.
    std::vector<std::string> codes;

    // Adds the codes of the filter text in `section` of the ini file.
    void read(const char* iniFile, const char* section);

    // Adds the codes of a filter text: codes between commas, all behind the first "-" if there is
    // one, which turns the direction.
    void add(std::string_view text);

    bool keeps(std::string_view code) const;
};

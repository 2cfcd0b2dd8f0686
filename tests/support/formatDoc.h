// The tables of docs/formats, as a test reads them.

#pragma once

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

struct DocField {
    long offset; // -1 where the table has none
    long size;
    std::string name; // without its backticks
};

// The rows of one table: those with a size, under the first heading that begins with `heading` (the
// whole document for an empty one) and up to the next heading.
inline std::vector<DocField> docFields(const std::string& document, const std::string& heading) {
    std::ifstream file(VDREADER_DOCS "/formats/" + document);
    std::vector<DocField> fields;
    bool inside = heading.empty();
    bool offsets = false;
    for (std::string line; std::getline(file, line);) {
        if (line.rfind("#", 0) == 0 && !heading.empty())
            inside = line.rfind(heading, 0) == 0;
        if (line.rfind("| offset", 0) == 0 || line.rfind("| size", 0) == 0)
            offsets = line.rfind("| offset", 0) == 0;
        if (!inside || line.rfind("| ", 0) != 0)
            continue;
        std::vector<std::string> cells;
        std::istringstream row(line.substr(1));
        for (std::string cell; std::getline(row, cell, '|');) {
            const std::size_t first = cell.find_first_not_of(" `");
            cells.push_back(first == std::string::npos
                                ? ""
                                : cell.substr(first, cell.find_last_not_of(" `") - first + 1));
        }
        const std::size_t sizeCell = offsets ? 1 : 0;
        const std::string& size = cells.at(sizeCell);
        if (size.empty() || size.find_first_not_of("0123456789") != std::string::npos)
            continue;
        fields.push_back(
            {offsets ? std::stol(cells[0]) : -1, std::stol(size), cells.at(sizeCell + 1)});
    }
    return fields;
}

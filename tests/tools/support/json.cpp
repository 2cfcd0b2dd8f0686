// The parser's sources are compiled here.

#include "support/json.h"

#include <boost/json/src.hpp>
#include <stdexcept>

namespace toolTest {

std::vector<boost::json::object> parseLines(std::string_view text) {
    std::vector<boost::json::object> lines;
    while (!text.empty()) {
        const std::size_t end = text.find('\n');
        if (end == std::string_view::npos)
            throw std::runtime_error("the last line has no end");
        lines.push_back(boost::json::parse({text.data(), end}).as_object());
        text.remove_prefix(end + 1);
    }
    return lines;
}

} // namespace toolTest

// Reading of JSON Lines by a parser that is none of ours and refuses what is not valid UTF-8.

#pragma once

#include <boost/json.hpp>
#include <string_view>
#include <vector>

namespace toolTest {

// The objects of a text with one object a line, each line ended.  Raises what the parser raises,
// or std::runtime_error for a line without its end.
std::vector<boost::json::object> parseLines(std::string_view text);

} // namespace toolTest

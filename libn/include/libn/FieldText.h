// The text that a failure or a log line is put together in.

#pragma once

#include <locale>
#include <sstream>
#include <utility>

namespace libn {

// Numbers read alike whatever locale the host has chosen.
class FieldText : public std::ostringstream {
  public:
    FieldText() { imbue(std::locale::classic()); }
    FieldText(FieldText&& other) noexcept
        : std::basic_ios<char>(), std::ostringstream(std::move(other)) {} // the base is virtual
    ~FieldText() override = default;
};

} // namespace libn

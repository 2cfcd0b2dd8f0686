// A line of the event log that is built field by field.

#pragma once

#include <memory>
#include <type_traits>

#include "libn/FieldText.h"

namespace libn {

// `TraceLine("place", 0) << "name<" << value << '>'`: the place, ":" and what is inserted go to the
// event log as one line when the object ends.  A line whose level is not 0 and above the debug
// level is inactive: it takes no memory and skips every insertion.  One thread.
class TraceLine {
  public:
    TraceLine(const char* place, int level);
    ~TraceLine();
    TraceLine(const TraceLine&) = delete;
    TraceLine& operator=(const TraceLine&) = delete;

    template <class Value>
    TraceLine& operator<<(const Value& value) {
        if (m_stream == nullptr)
            return *this;
        if constexpr (std::is_same_v<Value, void*> || std::is_same_v<Value, const void*>)
            putPointer(value);
        else
            *m_stream << value;
        return *this;
    }

  private:
    // 16 upper-case hexadecimal digits.
    void putPointer(const void* pointer);

    std::unique_ptr<FieldText> m_stream;
};

} // namespace libn

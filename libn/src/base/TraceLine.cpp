// The field stream that logs.

#include "libn/TraceLine.h"

#include <cstdint>
#include <cstdio>

#include "vdreader/log.h"

namespace libn {

TraceLine::TraceLine(const char* place, int level) {
    if (level != 0 && level > GetDebugLevel())
        return;
    m_stream = std::make_unique<FieldText>();
    *m_stream << place << ':';
}

void TraceLine::putPointer(const void* pointer) {
    char text[17];
    std::snprintf(text, sizeof text, "%016llX",
                  static_cast<unsigned long long>(reinterpret_cast<std::uintptr_t>(pointer)));
    *m_stream << text;
}

TraceLine::~TraceLine() {
    if (m_stream == nullptr)
        return;
    try {
        devent(0, "%s", m_stream->str().c_str());
    } catch (...) {
        // Deliberate: where there is no memory for a line it is lost.  Its callers stand in the
        // middle of work on files that they would leave half done.
    }
}

} // namespace libn

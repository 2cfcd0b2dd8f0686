// The one state of the readers, and the export that hands out its last error.

#include "readerState.h"

#include "vdreader/readers.h"

ReaderState& readerState() {
    static ReaderState state;
    return state;
}

namespace {
// The state exists from the load on, so it goes at the unload in the order of the other statics.
[[maybe_unused]] const ReaderState& madeAtLoad = readerState();
} // namespace

extern "C" const char* get_vdreader_error(void) {
    const std::string& text = readerState().lastError;
    return text.empty() ? "Unknown error" : text.c_str();
}

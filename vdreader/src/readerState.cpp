// The one state of the readers, and the export that hands out its last error.

#include "readerState.h"

#include "vdreader/readers.h"

ReaderState& readerState() {
    static ReaderState state;
    return state;
}

extern "C" const char* get_vdreader_error(void) {
    const std::string& text = readerState().lastError;
    return text.empty() ? "Unknown error" : text.c_str();
}

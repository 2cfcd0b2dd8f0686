// The raising functions: each formats into the exception itself and throws it.
//
// Nothing but the thrown object is taken from the heap, so a failure of the allocator can be raised
// too.

#include "dw_util/raise.h"

#include <cstdarg>
#include <cstdio>

#include "dw_util/cutCopy.h"
#include "dw_util/format.h"
#include "dw_util/sourceName.h"
#include "dw_util/threadLogState.h"
#include "platform/error.h"

namespace {

// Room for a text with its terminator, one less than the field.
constexpr std::size_t kTextRoom = CEmptyError::kTextLimit;

void setPlace(CError& error, const char* file, std::int32_t line) noexcept {
    error.line = line;
    copyCut(error.file, sourceName(file));
}

CError makeError(const char* file, std::int32_t line, std::int32_t code, const char* format,
                 std::va_list arguments) noexcept {
    CError error;
    setPlace(error, file, line);
    error.code = code;
    formatText(error.text, kTextRoom, format, arguments);
    return error;
}

// `layout` takes file, line, message and the system's text.
template <class Error>
Error makeSystemError(const char* file, std::int32_t line, std::uint32_t (*readCode)() noexcept,
                      const char* layout, const char* format, std::va_list arguments) noexcept {
    Error error;
    setPlace(error, file, line);
    char message[kTextRoom] = {};
    formatText(message, sizeof message, format, arguments);
    // Deliberate: the error is read behind the formatting, which may change it.  Formats of the
    // family count on the reason that is current when the text is finished.
    char reason[kTextRoom];
    platform::systemErrorText(readCode(), reason, sizeof reason);
    // NOLINTNEXTLINE(clang-diagnostic-format-nonliteral): both layouts stand below.
    std::snprintf(error.text, kTextRoom, layout, error.file, line, message, reason);
    return error;
}

constexpr char kOsLayout[] = "(%s at %d): %s OS error description is '%s'.";
constexpr char kSocketLayout[] = "(%s at %d): %s %s.";

} // namespace

// The copy into the thrown object is made from an object on the stack, which goes as the frame
// does.
#define VDREADER_RAISE(Type, make, ...)            \
  std::va_list arguments;                          \
  va_start(arguments, format);                     \
  const Type error = make(__VA_ARGS__, arguments); \
  va_end(arguments);                               \
  throw Type(error)

extern "C" {

void place(const char* file, std::int32_t line) {
    const platform::LastErrorKeeper keeper;
    ThreadLogState& state = threadLogState();
    copyCut(state.placeFile, file);
    state.placeLine = line;
}

void dwraise(const char* format, ...) {
    const ThreadLogState& at = threadLogState();
    VDREADER_RAISE(CError, makeError, at.placeFile, at.placeLine, 0, format);
}

void dwraise_ex(const char* file, std::int32_t line, const char* format, ...) {
    VDREADER_RAISE(CError, makeError, file, line, 0, format);
}

void dwraisec(std::int32_t code, const char* format, ...) {
    const ThreadLogState& at = threadLogState();
    VDREADER_RAISE(CError, makeError, at.placeFile, at.placeLine, code, format);
}

void dwraisec_ex(const char* file, std::int32_t line, std::int32_t code, const char* format, ...) {
    VDREADER_RAISE(CError, makeError, file, line, code, format);
}

void dwraiseos(const char* format, ...) {
    const ThreadLogState& at = threadLogState();
    VDREADER_RAISE(COSError, makeSystemError<COSError>, at.placeFile, at.placeLine,
                   platform::lastError, kOsLayout, format);
}

void dwraiseos_ex(const char* file, std::int32_t line, const char* format, ...) {
    VDREADER_RAISE(COSError, makeSystemError<COSError>, file, line, platform::lastError, kOsLayout,
                   format);
}

void dwraisesoc(const char* format, ...) {
    const ThreadLogState& at = threadLogState();
    VDREADER_RAISE(CSocError, makeSystemError<CSocError>, at.placeFile, at.placeLine,
                   platform::lastSocketError, kSocketLayout, format);
}

void dwraisesoc_ex(const char* file, std::int32_t line, const char* format, ...) {
    VDREADER_RAISE(CSocError, makeSystemError<CSocError>, file, line, platform::lastSocketError,
                   kSocketLayout, format);
}

} // extern "C"

void raiseWithZeroes(const char* file, int line, const char* format) {
    CError error;
    setPlace(error, file, line);
    formatWithZeroes(error.text, kTextRoom, format);
    throw CError(error);
}

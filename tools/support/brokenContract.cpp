// The structured exception of the C library's invalid parameters on Windows; elsewhere such a call
// aborts.

#include "support/brokenContract.h"

#include <cstdlib>
#include <cstring>

#include "support/privateFolder.h"

#ifdef _WIN32
#  include <windows.h>

#  include <io.h>
#else
#  include <unistd.h>
#  include <csignal>
#endif

namespace tool {

namespace {

constexpr int kStandardError = 2;

const char* s_text = "";
int s_code = 0;

#ifdef _WIN32
LPTOP_LEVEL_EXCEPTION_FILTER s_former = nullptr;

LONG WINAPI onBroken(EXCEPTION_POINTERS* failure) {
    constexpr DWORD kInvalidParameter = 0xC0000417;
    if (failure->ExceptionRecord->ExceptionCode != kInvalidParameter)
        return s_former != nullptr ? s_former(failure) : EXCEPTION_CONTINUE_SEARCH;
    _write(kStandardError, s_text, static_cast<unsigned>(std::strlen(s_text)));
    PrivateFolder::removeNow();
    _exit(s_code);
}
#else
struct sigaction s_former;

void onAbort(int) {
    [[maybe_unused]] const ssize_t written = write(kStandardError, s_text, std::strlen(s_text));
    PrivateFolder::removeNow();
    _exit(s_code);
}
#endif

} // namespace

#ifdef _WIN32
BrokenContract::BrokenContract(const char* text, int code) {
    s_text = text;
    s_code = code;
    s_former = SetUnhandledExceptionFilter(&onBroken);
}

BrokenContract::~BrokenContract() {
    SetUnhandledExceptionFilter(s_former);
}
#else
BrokenContract::BrokenContract(const char* text, int code) {
    s_text = text;
    s_code = code;
    struct sigaction action = {};
    action.sa_handler = &onAbort;
    sigaction(SIGABRT, &action, &s_former);
}

BrokenContract::~BrokenContract() {
    sigaction(SIGABRT, &s_former, nullptr);
}
#endif

} // namespace tool

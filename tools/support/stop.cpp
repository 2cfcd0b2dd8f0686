// Both systems' halves of stop.h.

#include "support/stop.h"

#include <algorithm>
#include <atomic>

#ifdef _WIN32
#  include <windows.h>
#else
#  include <fcntl.h>
#  include <poll.h>
#  include <unistd.h>
#  include <cerrno>
#  include <csignal>
#endif

namespace tool {

namespace {

std::atomic<bool> s_wished{false};

#ifdef _WIN32
constexpr DWORD kPatience = 5'000;

HANDLE s_wish = nullptr; // set once the wish is there
HANDLE s_gone = nullptr; // set once the object has gone

// Runs on a thread of the system's.
BOOL WINAPI onControl(DWORD kind) {
    if (s_wished.exchange(true) && (kind == CTRL_C_EVENT || kind == CTRL_BREAK_EVENT))
        return FALSE; // the next handler ends the process
    SetEvent(s_wish);
    if (kind != CTRL_C_EVENT && kind != CTRL_BREAK_EVENT)
        WaitForSingleObject(s_gone, kPatience);
    return TRUE;
}
#else
constexpr int kSignals[] = {SIGINT, SIGTERM, SIGHUP};

int s_pipe[2] = {-1, -1};
struct sigaction s_former[3];

void onSignal(int number) {
    const int reason = errno;
    s_wished = true;
    signal(number, SIG_DFL);
    const char byte = 0;
    // A full pipe has woken whoever waits.
    [[maybe_unused]] const ssize_t written = write(s_pipe[1], &byte, 1);
    errno = reason;
}
#endif

} // namespace

#ifdef _WIN32
StopWish::StopWish() {
    s_wished = false;
    // The events stay: the system's thread may still be waiting for one when the object has gone.
    if (!s_wish) {
        s_wish = CreateEventA(nullptr, TRUE, FALSE, nullptr);
        s_gone = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    }
    ResetEvent(s_wish);
    ResetEvent(s_gone);
    // A process that was started in a group of its own begins with Ctrl-C switched off.
    SetConsoleCtrlHandler(nullptr, FALSE);
    SetConsoleCtrlHandler(&onControl, TRUE);
}

StopWish::~StopWish() {
    SetConsoleCtrlHandler(&onControl, FALSE);
    SetEvent(s_gone);
}

bool StopWish::waitFor(std::chrono::milliseconds time) const {
    WaitForSingleObject(s_wish, static_cast<DWORD>(std::max<long long>(time.count(), 0)));
    return isThere();
}
#else
StopWish::StopWish() {
    s_wished = false;
    if (pipe(s_pipe) == 0)
        for (const int end : s_pipe) {
            fcntl(end, F_SETFD, FD_CLOEXEC);
            fcntl(end, F_SETFL, O_NONBLOCK);
        }
    struct sigaction action = {};
    action.sa_handler = &onSignal;
    for (int i = 0; i < 3; ++i) {
        sigaction(kSignals[i], nullptr, &s_former[i]);
        // Who was started with the signal ignored, as by nohup, goes on ignoring it.
        if (s_former[i].sa_handler != SIG_IGN)
            sigaction(kSignals[i], &action, nullptr);
    }
}

StopWish::~StopWish() {
    for (int i = 0; i < 3; ++i)
        sigaction(kSignals[i], &s_former[i], nullptr);
    for (int& end : s_pipe) {
        close(end);
        end = -1;
    }
}

bool StopWish::waitFor(std::chrono::milliseconds time) const {
    pollfd woken = {s_pipe[0], POLLIN, 0};
    if (!isThere() && time.count() > 0)
        poll(&woken, 1, static_cast<int>(std::min<long long>(time.count(), 1'000'000)));
    return isThere();
}
#endif

bool StopWish::isThere() const {
    return s_wished;
}

} // namespace tool

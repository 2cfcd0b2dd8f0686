// Threads ended by force and notices to the sibling service, as a host meets them.

#include <gtest/gtest.h>

#ifdef _WIN32
#  include <windows.h>
#else
#  include <pthread.h>
#  include <unistd.h>
#endif

#include <atomic>
#include <cstddef>
#include <cstring>
#include <string>
#include <system_error>
#include <thread>

#include "vdreader/dll.hpp"
#include "vdreader/postmortem.h"

static_assert(sizeof(sThreadObject) == 16);
static_assert(offsetof(sThreadObject, handle) == 0);
static_assert(offsetof(sThreadObject, id) == 8);

namespace {

#ifdef __SANITIZE_THREAD__
constexpr bool kThreadsCanBeStopped = false;
#else
constexpr bool kThreadsCanBeStopped = true;
#endif
#define SKIP_WHERE_NO_THREAD_STOPS() \
  if (!kThreadsCanBeStopped)         \
  GTEST_SKIP() << "the thread sanitizer holds signals back and misses ends by force"

std::atomic<bool> hangs;

// A thread that is ended on its first steps may hold a lock of the run-time's, a sanitizer's above
// all, so the start is over when the thread hangs.
void awaitHanging() {
    while (!hangs.load())
        std::this_thread::yield();
    hangs.store(false);
}

#ifdef _WIN32
sThreadObject startHanging() {
    sThreadObject object = {};
    DWORD id = 0;
    const auto hang = [](void*) -> DWORD {
        hangs.store(true);
        for (;;)
            ::Sleep(1000);
    };
    object.handle = ::CreateThread(nullptr, 0, hang, nullptr, 0, &id);
    object.id = id;
    awaitHanging();
    return object;
}

// Waits for the end and gives the code.
std::uint32_t join(const sThreadObject& object) {
    ::WaitForSingleObject(object.handle, INFINITE);
    DWORD code = 0;
    ::GetExitCodeThread(object.handle, &code);
    ::CloseHandle(object.handle);
    return code;
}
#else
sThreadObject startHanging() {
    pthread_t thread = {};
    const auto hang = [](void*) -> void* {
        hangs.store(true);
        for (;;)
            ::pause();
    };
    EXPECT_EQ(::pthread_create(&thread, nullptr, hang, nullptr), 0);
    awaitHanging();
    return {reinterpret_cast<void*>(thread), 7};
}
void join(const sThreadObject& object) {
    EXPECT_EQ(::pthread_join(reinterpret_cast<pthread_t>(object.handle), nullptr), 0);
}
#endif

} // namespace

TEST(HostTerminates, ThreadByItsHandle) {
    SKIP_WHERE_NO_THREAD_STOPS();
    for (const std::uint32_t code : {0U, 5U}) {
        const sThreadObject victim = startHanging();
        EXPECT_NE(NTerminateThread(victim.handle, code), 0);
#ifdef _WIN32
        EXPECT_EQ(join(victim), code);
#else
        join(victim);
#endif
    }
}

TEST(HostTerminates, ThreadByItsObject) {
    SKIP_WHERE_NO_THREAD_STOPS();
    sThreadObject victim = startHanging();
    EXPECT_EQ(NTerminateThreadEx(&victim, 5), 1);
    EXPECT_EQ(victim.handle, nullptr);
    EXPECT_EQ(victim.id, 0U);
}

TEST(HostTerminates, ErrorOfAnObjectCrossesTheBoundary) {
    SKIP_WHERE_NO_THREAD_STOPS();
    sThreadObject victim = startHanging();
    victim.id = 0;
    try {
        NTerminateThreadEx(&victim, 0);
        ADD_FAILURE() << "nothing was raised";
    } catch (const std::system_error& failure) {
        EXPECT_EQ(failure.code(), std::make_error_code(std::errc::invalid_argument));
    }
    join(victim);
}

TEST(HostNotifies, MissingServiceIsCaughtByItsType) {
    try {
        SendSvctlError(20, 1, 5, 0, 0, 1, nullptr);
        ADD_FAILURE() << "nothing was raised";
    } catch (const libn::Dll::LoadError& failure) {
        EXPECT_EQ(std::string(failure.what()).rfind("Failed to load DLL file \"dwsvctl.dll\" (", 0),
                  0U);
    }
    SendSvctlError(20, 1, 5, 0, 0, 1, nullptr); // a line alone
}

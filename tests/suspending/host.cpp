// A host that unloads the library while one of its threads stands suspended in it for ever.
//
//   vdreader_suspending_host LIBRARY
//
// The result is 0 when the library was unloadable before, stays loaded behind that, its handler of
// the signal works on, and the process ends.

#include <dlfcn.h>
#include <pthread.h>
#include <signal.h>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <thread>

namespace {

using Terminate = std::int32_t (*)(void* thread, std::uint32_t exitCode);

bool isLoaded(const char* path) {
    void* const library = ::dlopen(path, RTLD_NOW | RTLD_NOLOAD);
    if (library != nullptr)
        ::dlclose(library);
    return library != nullptr;
}

// The library puts its handler in place when it has made sure that it stays.
bool handlerIsThere() {
    struct sigaction action = {};
    return ::sigaction(SIGRTMAX - 3, nullptr, &action) == 0 &&
           ((action.sa_flags & SA_SIGINFO) != 0 || action.sa_handler != SIG_DFL);
}

int failed(const char* what) {
    std::printf("failed: %s\n", what);
    return 1;
}

} // namespace

int main(int, char** arguments) {
    const char* const path = arguments[1];
    ::dlclose(::dlopen(path, RTLD_NOW | RTLD_LOCAL));
    if (isLoaded(path))
        return failed("the library is not unloaded before any thread was suspended");

    void* const library = ::dlopen(path, RTLD_NOW | RTLD_LOCAL);
    void* const terminate = library != nullptr ? ::dlsym(library, "NTerminateThread") : nullptr;
    if (terminate == nullptr)
        return failed("NTerminateThread is not there");
    pthread_t thread = {};
    const auto endItself = [](void* call) -> void* {
        reinterpret_cast<Terminate>(call)(reinterpret_cast<void*>(::pthread_self()), 1);
        return nullptr;
    };
    ::pthread_create(&thread, nullptr, endItself, terminate);
    while (!handlerIsThere())
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    ::dlclose(library);
    if (!isLoaded(path))
        return failed("the library is gone from under the thread");
    ::raise(SIGRTMAX - 3);
    return 0;
}

// The thread's block on POSIX systems: static thread-local storage.
//
// What a thread carries is released by a key and not by an object of thread_local: those would keep
// a library that is unloaded in memory until all threads that used it have ended.

#include "platform/threadBlock.h"

#include <pthread.h>
#include <atomic>

#include "../src/threadEndHooks.h"
#include "platform/error.h"

namespace platform {

namespace {

struct Block {
    alignas(std::max_align_t) unsigned char bytes[kThreadBlockSize];
    ThreadEndHooks atEnd;
    alignas(std::shared_ptr<void>) unsigned char carried[sizeof(std::shared_ptr<void>)];
    bool begun;

    std::shared_ptr<void>& object() noexcept {
        return *reinterpret_cast<std::shared_ptr<void>*>(carried);
    }
};

// Initial-exec: a third of the price of the default model for an access from a shared library.
__attribute__((tls_model("initial-exec"))) thread_local constinit Block block = {};

constinit std::atomic<std::shared_ptr<void> (*)()> maker{nullptr};

// Its value of a thread is the thread's block.
struct EndKey {
    EndKey() noexcept
        : good(::pthread_key_create(&key, [](void* ofThread) {
                   static_cast<Block*>(ofThread)->object().reset();
               }) == 0) {}
    // The library is left: threads that go on keep what they carry.
    ~EndKey() {
        if (good.exchange(false))
            ::pthread_key_delete(key);
        block.object().reset();
    }
    pthread_key_t key = 0;
    std::atomic<bool> good;
};
EndKey& endKey() noexcept {
    static EndKey key;
    return key;
}

[[gnu::noinline]] void begin() noexcept {
    const auto make = maker.load(std::memory_order_acquire);
    block.begun = true; // whatever `make` uses finds the thread begun
    if (make == nullptr)
        return;
    const LastErrorKeeper keeper;
    try {
        if (endKey().good && ::pthread_setspecific(endKey().key, &block) == 0)
            block.object() = make();
    } catch (...) {
        // There is no memory for it: the thread goes without.
    }
}

} // namespace

void* threadBlock() noexcept {
    if (!block.begun) [[unlikely]]
        begin();
    return block.bytes;
}

bool callAtThreadEnd(void (*hook)(void* block)) noexcept {
    struct Ending {
        ~Ending() { block.atEnd.run(block.bytes); }
        bool armed = false;
    };
    thread_local Ending ending;
    ending.armed = true; // makes the object
    return block.atEnd.add(hook);
}

void carryForEachThread(std::shared_ptr<void> (*make)()) noexcept {
    maker.store(make, std::memory_order_release);
    begin();
}

const std::shared_ptr<void>& carriedByThread() noexcept {
    threadBlock();
    return block.object();
}

} // namespace platform

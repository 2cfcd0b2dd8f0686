// The lock of a slot of data.vd: a word in the file, shared with the server's process.
//
// 1 is held.  Nothing tells who holds it, so a process that dies meanwhile stalls the slot for all
// others.

#pragma once

#include "platform/exchange.h"
#include "platform/thread.h"

class SlotLock {
  public:
    // Waits for the lock of the slot that begins at `slot`, as long as it takes.
    explicit SlotLock(char* slot) : m_word(slot) {
        touch(slot);
        while (platform::exchangeWord(m_word, kHeld) == kHeld)
            platform::yieldThread();
    }
    ~SlotLock() { platform::exchangeWord(m_word, kFree); }
    SlotLock(const SlotLock&) = delete;
    SlotLock& operator=(const SlotLock&) = delete;

  private:
    // Looks at the word before it is exchanged: where the file was cut behind its view this faults,
    // and other than at the exchange the compiler has left a way out.  The value is not used, so a
    // thread checker need not know.
    [[gnu::no_sanitize("thread")]] static void touch(const volatile char* slot) {
        static_cast<void>(*slot);
    }

    static constexpr std::uint32_t kFree = 0;
    static constexpr std::uint32_t kHeld = 1;

    char* const m_word;
};

// Exchange of a word that other processes share through a mapped file.

#pragma once

#include <atomic>
#include <cstdint>

namespace platform {

#if defined(__x86_64__) || defined(__i386__)
inline constexpr bool kExchangesAnywhere = true;
#else
inline constexpr bool kExchangesAnywhere = false;
#endif

inline bool isAlignedWord(const void* word) noexcept {
    return reinterpret_cast<std::uintptr_t>(word) % alignof(std::uint32_t) == 0;
}

// Whether exchangeWord works at this address: where the processor cannot exchange at any address,
// at aligned ones.
inline bool canExchangeWord(const void* word) noexcept {
    return kExchangesAnywhere || isAlignedWord(word);
}

// Puts `value` into the 4 bytes at `word` and gives what stood there, as one step for all processes
// that do the same (InterlockedExchange).  What was done before an exchange is seen behind one that
// gives its value.
inline std::uint32_t exchangeWord(void* word, std::uint32_t value) {
    if (isAlignedWord(word)) {
        static_assert(std::atomic_ref<std::uint32_t>::is_always_lock_free);
        return std::atomic_ref(*static_cast<std::uint32_t*>(word)).exchange(value);
    }
#if defined(__x86_64__) || defined(__i386__)
    // Only a damaged or an unusual file has such words; the language has no operation for them.
    struct [[gnu::packed, gnu::may_alias]] Word {
        std::uint32_t value;
    };
    asm volatile("xchgl %0, %1" : "+r"(value), "+m"(*static_cast<Word*>(word)) : : "memory");
#endif
    return value;
}

} // namespace platform

// Atomic access to bytes at any address.

#include "sharedBytes.h"

#include <cstring>

namespace FileWorkLibrary::shared {

namespace {

using Word = std::uint64_t;

bool isAligned(const void* at, std::size_t size) {
    return reinterpret_cast<std::uintptr_t>(at) % size == 0;
}

// Bytes from `at` up to a word's address, at most `size`.
std::size_t bytesToWord(const void* at, std::size_t size) {
    const std::size_t gap = -reinterpret_cast<std::uintptr_t>(at) % sizeof(Word);
    return gap < size ? gap : size;
}

void bytesIn(char* to, const char* from, std::size_t size) {
    for (std::size_t i = 0; i < size; ++i)
        __atomic_store_n(to + i, from[i], __ATOMIC_RELAXED);
}

void bytesOut(char* to, const char* from, std::size_t size) {
    for (std::size_t i = 0; i < size; ++i)
        to[i] = __atomic_load_n(from + i, __ATOMIC_RELAXED);
}

} // namespace

std::uint32_t load(const void* at) {
    if (isAligned(at, sizeof(std::uint32_t)))
        return __atomic_load_n(static_cast<const std::uint32_t*>(at), __ATOMIC_ACQUIRE);
    std::uint32_t value = 0;
    for (int i = 3; i >= 0; --i)
        value = value << 8 |
                __atomic_load_n(static_cast<const unsigned char*>(at) + i, __ATOMIC_ACQUIRE);
    return value;
}

void add(void* at, std::uint32_t n) {
    if (isAligned(at, sizeof n)) {
        __atomic_fetch_add(static_cast<std::uint32_t*>(at), n, __ATOMIC_RELEASE);
        return;
    }
    const std::uint32_t sum = load(at) + n;
    for (int i = 0; i < 4; ++i)
        __atomic_store_n(static_cast<unsigned char*>(at) + i,
                         static_cast<unsigned char>(sum >> 8 * i), __ATOMIC_RELEASE);
}

void copyIn(void* to, const void* from, std::size_t size) {
    char* out = static_cast<char*>(to);
    const char* in = static_cast<const char*>(from);
    const std::size_t head = bytesToWord(out, size);
    bytesIn(out, in, head);
    std::size_t done = head;
    for (; size - done >= sizeof(Word); done += sizeof(Word)) {
        Word word;
        std::memcpy(&word, in + done, sizeof word);
        __atomic_store_n(reinterpret_cast<Word*>(out + done), word, __ATOMIC_RELAXED);
    }
    bytesIn(out + done, in + done, size - done);
}

void copyOut(void* to, const void* from, std::size_t size) {
    char* out = static_cast<char*>(to);
    const char* in = static_cast<const char*>(from);
    const std::size_t head = bytesToWord(in, size);
    bytesOut(out, in, head);
    std::size_t done = head;
    for (; size - done >= sizeof(Word); done += sizeof(Word)) {
        const Word word =
            __atomic_load_n(reinterpret_cast<const Word*>(in + done), __ATOMIC_RELAXED);
        std::memcpy(out + done, &word, sizeof word);
    }
    bytesOut(out + done, in + done, size - done);
}

} // namespace FileWorkLibrary::shared

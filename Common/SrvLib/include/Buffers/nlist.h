// An array in two levels, which grows without moving its elements.
//
// Elements are plain values.  Element i stands in chunk i >> B; a new chunk is all-ones bytes until
// its elements are set.

#pragma once

#include <atomic>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "libn/dwmini.h"

namespace FileWorkLibrary {
class TMappedPage;
}

namespace ServantsLibrary {

// Chunks hold 2 to the power B elements.  The order of the virtual operations is binding.
//
// Threads: elements whose chunk is there may be reached by any number; growing and clearing is for
// one thread alone.
template <class T, unsigned B>
class TNList {
    static_assert(std::is_trivially_copyable_v<T>);

  public:
    static constexpr std::uint32_t kChunkElements = std::uint32_t{1} << B;
    static constexpr std::size_t kChunkBytes = sizeof(T[kChunkElements]);

    TNList() = default;
    TNList(const TNList&) = delete;
    TNList& operator=(const TNList&) = delete;

    // Makes room for chunk `n` in the index, whose entries move.  Raises where memory is exhausted,
    // with everything as it was.
    virtual void growIndex(std::uint32_t n);

    // Makes all chunks up to number `n`.  Raises where memory is exhausted, with the chunks that
    // could be had.
    virtual void grow(std::uint32_t n);

    // Frees everything; the list is as new.
    virtual void clear();

    virtual ~TNList();

    // Element `i`, whose chunk is made where it is not there; the size becomes at least i + 1.
    // Raises where memory is exhausted, with the size as it was.  The reference lasts until clear.
    T& operator[](std::uint32_t i);

    // One more than the highest element that was ever reached.
    std::uint32_t length() const noexcept { return size.load(std::memory_order_relaxed); }

  protected:
    T** chunks = nullptr;
    std::uint32_t chunkCount = 0;
    std::atomic<std::uint32_t> size{0};
};

inline constexpr char kNListSource[] = "Common/SrvLib/Buffers/nlist";

template <class T, unsigned B>
void TNList<T, B>::growIndex(std::uint32_t n) {
    if (n < chunkCount)
        return;
    const std::size_t bytes = (std::size_t{n} + 1) * sizeof(T*);
    T** const wider = static_cast<T**>(dwminiAlloc(bytes, kNListSource, __LINE__, true));
    if (chunkCount != 0)
        std::memcpy(wider, chunks, chunkCount * sizeof(T*));
    void* old = chunks;
    dwminiFree(&old);
    chunks = wider;
}

template <class T, unsigned B>
void TNList<T, B>::grow(std::uint32_t n) {
    if (n < chunkCount)
        return;
    growIndex(n);
    // Counted as they come, so that no entry is taken for a chunk that could not be had.
    for (; chunkCount <= n; ++chunkCount) {
        void* const chunk = dwminiAlloc(kChunkBytes, kNListSource, __LINE__, false);
        chunks[chunkCount] = static_cast<T*>(std::memset(chunk, 0xFF, kChunkBytes));
    }
}

template <class T, unsigned B>
void TNList<T, B>::clear() {
    for (std::uint32_t i = 0; i < chunkCount; ++i) {
        void* chunk = chunks[i];
        dwminiFree(&chunk);
    }
    void* index = chunks;
    dwminiFree(&index);
    chunks = nullptr;
    chunkCount = 0;
    size.store(0, std::memory_order_relaxed);
}

template <class T, unsigned B>
TNList<T, B>::~TNList() {
    TNList::clear();
}

template <class T, unsigned B>
T& TNList<T, B>::operator[](std::uint32_t i) {
    const std::uint32_t chunk = i >> B;
    if (chunk >= chunkCount)
        grow(chunk);
    if (i >= size.load(std::memory_order_relaxed))
        size.store(i + 1, std::memory_order_relaxed);
    return chunks[chunk][i & (kChunkElements - 1)];
}

extern template class TNList<FileWorkLibrary::TMappedPage*, 10>;

} // namespace ServantsLibrary

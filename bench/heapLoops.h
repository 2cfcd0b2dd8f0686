// What the benchmarks of traced allocation do over and over, on any pair of functions.

#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace bench {

inline constexpr std::size_t kBlockSize = 64;

// One block after another, each freed at once.
struct HotBlock {
    template <class Allocate, class Free>
    void step(Allocate allocate, Free release) {
        void* block = allocate(kBlockSize);
        asm volatile("" : "+r"(block) : : "memory");
        release(block);
    }
};

// 100,000 blocks live; each step frees one of them, which cannot be guessed, and takes another.
class LiveBlocks {
  public:
    static constexpr std::size_t kBlocks = 100'000;

    template <class Allocate>
    void fill(Allocate allocate) {
        for (std::size_t i = 0; i < kBlocks; ++i)
            m_blocks.push_back(allocate(kBlockSize));
    }
    template <class Allocate, class Free>
    void step(Allocate allocate, Free release) {
        m_random = m_random * 6364136223846793005u + 1442695040888963407u;
        void*& block = m_blocks[(m_random >> 32) * kBlocks >> 32];
        release(block);
        block = allocate(kBlockSize);
    }
    template <class Free>
    void empty(Free release) {
        for (void* const block : m_blocks)
            release(block);
        m_blocks.clear();
    }

  private:
    std::vector<void*> m_blocks;
    std::uint64_t m_random = 1;
};

} // namespace bench

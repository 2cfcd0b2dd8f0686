// The sample writer's source of numbers: a 64-bit mixing generator whose sequence is fixed by the
// seed on every system, which the distributions of the standard library do not promise.

#pragma once

#include <cstddef>
#include <cstdint>

namespace sample {

class Random {
  public:
    explicit Random(std::uint64_t seed) : m_state(seed) {}

    std::uint64_t next() {
        m_state += 0x9E3779B97F4A7C15u;
        std::uint64_t mixed = m_state;
        mixed = (mixed ^ (mixed >> 30)) * 0xBF58476D1CE4E5B9u;
        mixed = (mixed ^ (mixed >> 27)) * 0x94D049BB133111EBu;
        return mixed ^ (mixed >> 31);
    }

    // 0 to limit - 1; `limit` above 0.  The small unevenness of the remainder does not matter here.
    std::uint64_t below(std::uint64_t limit) { return next() % limit; }

    std::int64_t between(std::int64_t low, std::int64_t high) {
        return low + static_cast<std::int64_t>(below(static_cast<std::uint64_t>(high - low) + 1));
    }

    bool oneIn(std::uint64_t limit) { return below(limit) == 0; }

    // A sum of money in hundredths of a unit between the two.
    double money(std::int64_t low, std::int64_t high) {
        return static_cast<double>(between(low, high)) / 100.0;
    }

    template <typename Element, std::size_t Count>
    const Element& pick(const Element (&choices)[Count]) {
        return choices[below(Count)];
    }

  private:
    std::uint64_t m_state;
};

} // namespace sample

// A position in a block file: a byte offset in two halves, as files keep it.

#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace FileWorkLibrary {

// An aggregate without a constructor, so that it can be stored, copied and held in an atomic as it
// is.  All bits set: no position.
struct file_point {
    std::uint32_t low;
    std::uint32_t high;

    static constexpr file_point at(std::uint64_t offset) noexcept {
        return {static_cast<std::uint32_t>(offset), static_cast<std::uint32_t>(offset >> 32)};
    }
    static constexpr file_point none() noexcept { return at(~std::uint64_t{0}); }

    constexpr std::uint64_t offset() const noexcept { return std::uint64_t{high} << 32 | low; }
    // The offset as a signed number: -1 where there is no position.
    constexpr std::int64_t position() const noexcept { return static_cast<std::int64_t>(offset()); }

    friend constexpr bool operator==(const file_point&, const file_point&) noexcept = default;
};

static_assert(sizeof(file_point) == 8);
static_assert(offsetof(file_point, low) == 0);
static_assert(offsetof(file_point, high) == 4);
static_assert(std::is_trivially_copyable_v<file_point> && std::is_aggregate_v<file_point>);

} // namespace FileWorkLibrary

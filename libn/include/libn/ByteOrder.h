// The order of short texts in maps: by unsigned bytes, then the shorter one first.
//
// It is that of std::less, eight bytes at a time and without a call for each comparison, of which a
// look-up consists almost wholly.

#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace libn {

struct ByteOrder {
    using is_transparent = void;

    bool operator()(std::string_view a, std::string_view b) const noexcept {
        const std::size_t common = a.size() < b.size() ? a.size() : b.size();
        std::size_t i = 0;
        for (; i + sizeof(std::uint64_t) <= common; i += sizeof(std::uint64_t)) {
            const std::uint64_t x = word(a.data() + i), y = word(b.data() + i);
            if (x != y)
                return x < y;
        }
        for (; i < common; ++i)
            if (a[i] != b[i])
                return static_cast<unsigned char>(a[i]) < static_cast<unsigned char>(b[i]);
        return a.size() < b.size();
    }

  private:
    // Eight bytes as a number whose order is theirs.
    static std::uint64_t word(const char* bytes) noexcept {
        std::uint64_t stored;
        std::memcpy(&stored, bytes, sizeof stored);
        return __builtin_bswap64(stored);
    }
};

} // namespace libn

// Changes to class files that keep most of them readable: damage where the format has its counts,
// offsets, magics and lengths, and counts that mostly stay small, since a count is materialised.

#pragma once

#include <algorithm>
#include <cstring>
#include <string>

#include "support/input.h"

namespace fuzzing {

using PlainMutator = std::size_t (*)(std::uint8_t* data, std::size_t size, std::size_t most);

inline std::uint32_t numberAt(const std::string& bytes, std::size_t at) {
    std::uint32_t value = 0;
    std::memcpy(&value, bytes.data() + at, sizeof value);
    return value;
}

inline void putNumberAt(std::string& bytes, std::size_t at, std::uint32_t value) {
    if (at + sizeof value <= bytes.size())
        std::memcpy(bytes.data() + at, &value, sizeof value);
}

// Walks the counts of a file, in the order in which a reader meets them.
class CountTamer {
  public:
    explicit CountTamer(std::string& bytes) : m_bytes(bytes) {}

    void tame() {
        constexpr std::size_t kRecord = 3464;
        for (std::size_t at = 145; at + kRecord <= m_bytes.size(); at += kRecord) {
            if (m_bytes.compare(at, 2, "\x45\x20", 2) != 0)
                continue;
            tameBlock(at + 3392, at + 3440, true);
            tameBlock(at + 3388, at + 3444, false);
        }
    }

  private:
    std::uint32_t tameCount(std::size_t at, std::uint32_t most) {
        if (at + 4 > m_bytes.size())
            return 0;
        std::uint32_t count = numberAt(m_bytes, at);
        if (count > most)
            putNumberAt(m_bytes, at, count %= most);
        return count;
    }

    void skipTexts(std::size_t& at, int texts) {
        for (int i = 0; i < texts && at + 4 <= m_bytes.size(); ++i)
            at += std::size_t{4} + numberAt(m_bytes, at);
    }

    void tameBlock(std::size_t countAt, std::size_t offsetAt, bool securities) {
        const std::uint32_t count = tameCount(countAt, 64);
        std::size_t at = std::size_t{numberAt(m_bytes, offsetAt)} + 4;
        for (std::uint32_t i = 0; i < count && at < m_bytes.size(); ++i) {
            at += securities ? 68 : 23;
            const std::uint32_t names = tameCount(at, 64);
            at += 4;
            for (std::uint32_t n = 0; n < names && at < m_bytes.size(); ++n) {
                at += 2;
                skipTexts(at, securities ? 2 : 3);
            }
            if (!securities) {
                at += 8;
                continue;
            }
            at += 178;
            at += 4 + std::size_t{47} * tameCount(at, 64) + 246;
        }
    }

    std::string& m_bytes;
};

// One field of the head or of a record, at a place where damage matters.
inline void damageField(std::string& bytes, Dice& dice) {
    static constexpr std::size_t kPlaces[] = {0,    2,    4,    8,    12,   2328, 2584, 3388,
                                              3392, 3440, 3444, 3388, 3392, 3440, 3444};
    static constexpr std::uint32_t kValues[] = {
        0,          1,    2,          3,    5,          7,   8260,   8261, 8262,
        0x7FFFFFFF, 0x7F, 0x80000000, 0xFF, 0xFFFFFFFF, 145, 0xFFFF, 3609, 1u << 20};
    const std::size_t records = bytes.size() > 145 ? (bytes.size() - 145) / 3464 : 0;
    std::size_t at = dice.below(21);
    if (records > 0 && !dice.oneIn(8))
        at = 145 + dice.below(static_cast<std::uint32_t>(records)) * 3464 +
             kPlaces[dice.below(std::size(kPlaces))];
    std::uint32_t value = kValues[dice.below(std::size(kValues))];
    if (dice.oneIn(3) && !bytes.empty())
        value = dice.below(static_cast<std::uint32_t>(bytes.size()) + 8);
    else if (dice.oneIn(3) && at + 4 <= bytes.size())
        value = numberAt(bytes, at) + (dice.oneIn(2) ? 1 : static_cast<std::uint32_t>(-1));
    putNumberAt(bytes, at, value);
}

// Bytes behind the records, where the blocks are.
inline void damageBlocks(std::string& bytes, Dice& dice, std::size_t most, PlainMutator mutate) {
    const std::size_t begin =
        std::min<std::size_t>(145 + std::size_t{3464} * (1 + dice.below(3)), bytes.size());
    std::string blocks = bytes.substr(begin);
    const std::size_t room = most > begin ? most - begin : 0;
    if (blocks.empty() || room < blocks.size())
        return;
    blocks.resize(std::min(room, 2 * blocks.size() + 64));
    const std::size_t size =
        mutate(reinterpret_cast<std::uint8_t*>(blocks.data()), bytes.size() - begin, blocks.size());
    bytes.replace(begin, std::string::npos, blocks, 0, size);
}

inline std::string damagedClassFile(std::string bytes, Dice& dice, std::size_t most,
                                    PlainMutator mutate) {
    switch (dice.below(8)) {
        case 0: {
            std::string all = bytes;
            all.resize(most);
            all.resize(mutate(reinterpret_cast<std::uint8_t*>(all.data()), bytes.size(), most));
            bytes = std::move(all);
            break;
        }
        case 1:
            bytes.resize(dice.below(static_cast<std::uint32_t>(bytes.size()) + 1));
            break;
        case 2:
        case 3:
        case 4:
            damageBlocks(bytes, dice, most, mutate);
            break;
        default:
            for (std::uint32_t i = 1 + dice.below(3); i > 0; --i)
                damageField(bytes, dice);
    }
    if (!dice.oneIn(4096))
        CountTamer(bytes).tame();
    return bytes;
}

// Now and then a fault trailer, or none.
inline void changeTrailer(std::string& trailer, Dice& dice) {
    if (dice.oneIn(16)) {
        trailer.assign(kFaultMark);
        trailer += {static_cast<char>(dice.below(256)), static_cast<char>(dice.below(40)),
                    static_cast<char>(dice.below(2)), '\0'};
    } else if (dice.oneIn(32)) {
        trailer.clear();
    }
}

// The custom mutator: damages the file and now and then the fault trailer behind it.
inline std::size_t mutateClassFile(std::uint8_t* data, std::size_t size, std::size_t most,
                                   unsigned seed, PlainMutator mutate) {
    Dice dice(seed);
    const Input input = splitInput(data, size);
    std::string trailer(reinterpret_cast<const char*>(data) + input.file.size(),
                        size - input.file.size());
    changeTrailer(trailer, dice);
    if (most < trailer.size())
        trailer.clear();
    std::string bytes =
        damagedClassFile(std::string(input.file), dice, most - trailer.size(), mutate);
    bytes.resize(std::min(bytes.size(), most - trailer.size()));
    bytes += trailer;
    std::memcpy(data, bytes.data(), bytes.size());
    return bytes.size();
}

} // namespace fuzzing

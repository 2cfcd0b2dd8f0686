// Changes to storage files that keep most of them readable: damage in the words, heads, counts and
// sizes that lead a reader on.  What those are a target tells by a PlaceFinder.

#pragma once

#include <cstdint>
#include <string>

#include "classMutator.h"
#include "support/input.h"
#include "support/sparseFile.h"

namespace fuzzing {

struct Place {
    std::size_t at;
    std::size_t width;
};

// A number of the file that matters to a reader.
using PlaceFinder = Place (*)(const std::string& file, Dice& dice);

struct StorageFormat {
    std::size_t head; // bytes of options in front of the file
    std::size_t mostBytes;
    PlaceFinder place;
};

// ---- alert.vd ----

inline Place alertPlace(const std::string& file, Dice& dice) {
    const auto wordAt = [&](std::uint64_t index) {
        return index < file.size() / 8 ? storedNumber<std::uint64_t>(file, index * 8) : 0;
    };
    const std::uint64_t header = dice.below(5);
    if (dice.oneIn(4))
        return {header * 8, 8};
    const std::uint64_t first = wordAt(3) + (dice.oneIn(8) ? dice.below(4) : 0);
    if (dice.oneIn(8))
        return {first * 8, 8};
    const std::uint64_t slot = wordAt(first) + dice.below(4);
    if (dice.oneIn(6))
        return {slot * 8, 8};
    const std::uint64_t head = wordAt(slot);
    if (dice.oneIn(6))
        return {(head + dice.below(3)) * 8, 8};
    std::size_t at = wordAt(head) * 8;
    if (dice.oneIn(4))
        return {at + dice.below(63), 1};
    at += 63;
    const int part = static_cast<int>(dice.below(4));
    // Lengths of data_id, body, class_codes, user_ids.
    static constexpr std::size_t kElements[] = {1, 1, 13, 4};
    static constexpr std::size_t kBetween[] = {2, 32, 0, 0};
    for (int i = 0; i < part && at < file.size(); ++i)
        at += 8 + storedNumber<std::uint64_t>(file, at) % 65536 * kElements[i] + kBetween[i];
    return {at, 8};
}

// ---- data.vd ----

inline Place dataHeaderPlace(Dice& dice) {
    static constexpr Place kPlaces[] = {{44, 4}, {48, 4}, {52, 4}, {56, 4}, {64, 4},  {68, 4},
                                        {72, 4}, {80, 4}, {88, 4}, {96, 4}, {100, 4}, {0, 1}};
    Place place = kPlaces[dice.below(std::size(kPlaces))];
    place.at += 24;
    return place;
}

// A number of a record, of the head of its page, or of the page behind.
inline Place journalPlace(const std::string& file, Dice& dice) {
    const std::size_t stride = std::size_t{storedNumber<std::uint32_t>(file, 24 + 72)} + 28;
    const std::size_t pages = storedNumber<std::uint32_t>(file, 24 + 100) % 16 + 1;
    const std::size_t page = storedNumber<std::uint32_t>(file, 24 + 80) +
                             stride * dice.below(static_cast<std::uint32_t>(pages) + 1);
    if (dice.oneIn(3)) {
        static constexpr std::size_t kHead[] = {4, 8, 8, 8, 12, 16};
        return {page + kHead[dice.below(std::size(kHead))], 4};
    }
    std::size_t at = page + 24;
    for (std::uint32_t i = dice.below(4); i > 0 && at + 32 < file.size(); --i)
        at += 32 + static_cast<std::uint8_t>(file[at + 16]) +
              std::size_t{4} * static_cast<std::uint8_t>(file[at + 17]) +
              std::size_t{8} * static_cast<std::uint8_t>(file[at + 18]);
    static constexpr Place kField[] = {{8, 4}, {16, 1}, {17, 1}, {18, 1}, {20, 4}, {24, 4}};
    Place place = kField[dice.below(std::size(kField))];
    place.at += at;
    return place;
}

inline Place dataPlace(const std::string& file, Dice& dice) {
    if (dice.oneIn(3))
        return dataHeaderPlace(dice);
    if (dice.oneIn(3))
        return journalPlace(file, dice);
    const std::size_t size = storedNumber<std::uint32_t>(file, 24 + 56);
    const std::size_t slots = std::max<std::size_t>(1, size / 1080);
    const std::size_t slot =
        storedNumber<std::uint32_t>(file, 24 + 64) + (size + 28) * dice.below(3) + 24 +
        1080 * dice.below(static_cast<std::uint32_t>(std::min<std::size_t>(slots, 4)));
    static constexpr Place kField[] = {{0, 4}, {8, 2}, {28, 4}, {36, 4}, {44, 1}, {51, 1}, {56, 8}};
    Place place = kField[dice.below(std::size(kField))];
    place.at += slot;
    return place;
}

// ---- both ----

inline std::uint64_t tellingNumber(const std::string& file, const Place& place, Dice& dice) {
    static constexpr std::uint64_t kNumbers[] = {
        0,          1,          2,          3,          4,          5,           28,
        32,         100,        104,        132,        400,        1079,        1080,
        0x3FFF,     0x4000,     0xFFFF,     0x10000,    0x7FFFFFFF, 0x80000000,  0xFFFFFFFF,
        1ull << 28, 1ull << 30, 1ull << 40, 1ull << 60, ~0ull,      888888888ull};
    const std::uint64_t old = storedNumber<std::uint64_t>(file, place.at);
    const std::uint32_t size = static_cast<std::uint32_t>(file.size());
    switch (dice.below(5)) {
        case 0:
            return old + 1 + dice.below(4);
        case 1:
            return old - 1 - dice.below(4);
        case 2:
            return dice.below(size + 64) / (dice.oneIn(2) ? 8 : 1);
        case 3: // another number of the file
            return storedNumber<std::uint64_t>(file, dice.below(size + 1) & ~3u);
        default:
            return kNumbers[dice.below(std::size(kNumbers))] + (dice.oneIn(3) ? dice.below(3) : 0);
    }
}

inline void damageNumber(std::string& file, const StorageFormat& format, Dice& dice) {
    const Place place = format.place(file, dice);
    storeNumber(file, place.at, tellingNumber(file, place, dice), place.width);
}

// A run of bytes from one place to another, so that heads and records stand where none belong.
inline void copyRun(std::string& file, const StorageFormat& format, Dice& dice) {
    const std::size_t from = format.place(file, dice).at;
    const std::size_t to = format.place(file, dice).at;
    const std::size_t size = 1 + dice.below(200);
    if (from < file.size() && to < file.size()) {
        const std::string run = file.substr(from, size);
        run.copy(file.data() + to, file.size() - to);
    }
}

// Bytes around a place, by libFuzzer's own changes.
inline void mutateRun(std::string& file, const StorageFormat& format, Dice& dice,
                      PlainMutator mutate) {
    const std::size_t at = format.place(file, dice).at;
    if (at >= file.size())
        return;
    std::string run = file.substr(at, 16 + dice.below(240));
    const std::size_t size = run.size();
    mutate(reinterpret_cast<std::uint8_t*>(run.data()), size, size);
    run.copy(file.data() + at, size);
}

inline void resizeFile(std::string& file, const StorageFormat& format, Dice& dice) {
    const std::uint32_t size = static_cast<std::uint32_t>(file.size());
    std::size_t wanted = dice.below(size + 1);
    if (dice.oneIn(3))
        wanted = size + dice.below(512);
    else if (dice.oneIn(2))
        wanted = format.place(file, dice).at + dice.below(64);
    file.resize(std::min(wanted, dice.oneIn(16) ? format.mostBytes : std::size_t{1} << 20));
}

inline void damageStorageFile(std::string& file, const StorageFormat& format, Dice& dice,
                              PlainMutator mutate) {
    for (std::uint32_t i = 1 + dice.below(3); i > 0; --i)
        switch (dice.below(8)) {
            case 0:
                resizeFile(file, format, dice);
                break;
            case 1:
                mutateRun(file, format, dice, mutate);
                break;
            case 2:
                copyRun(file, format, dice);
                break;
            default:
                damageNumber(file, format, dice);
        }
}

// The custom mutator: options, file and fault trailer.
inline std::size_t mutateStorageInput(std::uint8_t* data, std::size_t size, std::size_t most,
                                      unsigned seed, const StorageFormat& format,
                                      PlainMutator mutate) {
    Dice dice(seed);
    const Input input = splitInput(data, size);
    std::string trailer(reinterpret_cast<const char*>(data) + input.file.size(),
                        size - input.file.size());
    changeTrailer(trailer, dice);
    std::string head(input.file.substr(0, format.head));
    head.resize(format.head);
    if (dice.oneIn(8))
        head[dice.below(static_cast<std::uint32_t>(format.head))] =
            static_cast<char>(dice.below(256));
    const std::string_view rest = input.file.substr(std::min(format.head, input.file.size()));
    std::string bytes;
    if (dice.oneIn(16)) {
        bytes.assign(rest);
        bytes.resize(rest.size() + 64);
        bytes.resize(
            mutate(reinterpret_cast<std::uint8_t*>(bytes.data()), rest.size(), bytes.size()));
    } else {
        static std::string file;
        takeFile(rest, format.mostBytes, file);
        damageStorageFile(file, format, dice, mutate);
        bytes = inputOfFile(file);
    }
    bytes = head + bytes + trailer;
    if (bytes.size() > most)
        return size;
    std::memcpy(data, bytes.data(), bytes.size());
    return bytes.size();
}

} // namespace fuzzing

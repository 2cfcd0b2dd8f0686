// Contents that follow from one number.

#include "live/pattern.h"

#include <array>
#include <bit>
#include <cstring>
#include <string>

#include "sample/random.h"

namespace live {

namespace {

constexpr std::size_t kParams = sample::kSlotParams;
constexpr std::uint64_t kExponent = 0x4330000000000000; // 2^52 as a double
constexpr std::uint64_t kFactor = 8'191;

// By the bytes: a value that is no number is equal to itself.
template <typename Number>
bool isAt(const void* values, std::size_t index, Number expected) {
    using Bytes = std::array<char, sizeof(Number)>;
    Bytes stored;
    std::memcpy(stored.data(), static_cast<const char*>(values) + index * sizeof stored,
                sizeof stored);
    return stored == std::bit_cast<Bytes>(expected);
}

std::string textOf(sample::Random& random, std::size_t size) {
    std::string text(size, '\0');
    for (char& letter : text)
        letter = static_cast<char>('a' + random.below(26));
    return text;
}

std::uint32_t wordOf(sample::Random& random) {
    return static_cast<std::uint32_t>(random.next() >> 32);
}

} // namespace

// A double from 2^52 on whose mantissa holds stamp and parameter, stirred by an odd factor: 39 bits
// times 13 bits fit the 52 that there are, and no two share their low 32 bits unless the low 25
// bits of their stamps and their parameters are the same.
std::uint64_t patternValue(std::uint32_t stamp, std::size_t param) {
    return kExponent + (std::uint64_t{stamp} * kParams + param) * kFactor;
}

sample::Slot patternSlot(std::int32_t classId, std::uint32_t stamp) {
    sample::Slot slot;
    slot.class_id = classId;
    slot.mask.fill(0xFF);
    for (std::size_t i = 0; i < kParams; ++i)
        slot.values[i] = patternValue(stamp, i);
    return slot;
}

std::optional<std::uint32_t> stampOfDouble(double value, std::size_t param) {
    const std::uint64_t stirred = std::bit_cast<std::uint64_t>(value) - kExponent;
    if (stirred >> 52 != 0 || stirred % kFactor != 0 || stirred / kFactor % kParams != param)
        return std::nullopt;
    return static_cast<std::uint32_t>(stirred / kFactor / kParams);
}

bool isLongOf(std::uint32_t stamp, std::size_t param, std::int32_t value) {
    return static_cast<std::uint32_t>(patternValue(stamp, param)) ==
           static_cast<std::uint32_t>(value);
}

std::optional<std::uint32_t> stampOf(const void* values) {
    double first;
    std::memcpy(&first, values, sizeof first);
    const auto stamp = stampOfDouble(first, 0);
    for (std::size_t i = 0; stamp && i < kParams; ++i)
        if (!isAt(values, i, patternValue(*stamp, i)))
            return std::nullopt;
    return stamp;
}

sample::Record patternRecord(std::int32_t number, std::uint32_t secId, std::int32_t classId) {
    sample::Random random(static_cast<std::uint64_t>(number));
    sample::Record record;
    record.dataField1 = number;
    record.dataField2 = static_cast<std::int32_t>(wordOf(random));
    record.dataField3 = static_cast<std::int32_t>(wordOf(random));
    record.sec_id = secId;
    record.class_id = classId;
    record.mask.resize(random.below(17));
    record.longs.resize(random.below(8));
    record.doubles.resize(random.below(8));
    for (std::uint8_t& byte : record.mask)
        byte = static_cast<std::uint8_t>(random.below(256));
    for (std::int32_t& value : record.longs)
        value = static_cast<std::int32_t>(wordOf(random));
    for (double& value : record.doubles)
        value = static_cast<double>(wordOf(random));
    return record;
}

bool isPattern(const SeenRecord& seen) {
    const sample::Record expected = patternRecord(seen.dataField1, 0, 0);
    bool same = seen.dataField2 == expected.dataField2 && seen.dataField3 == expected.dataField3 &&
                seen.maskSize == expected.mask.size() && seen.longCount == expected.longs.size() &&
                seen.doubleCount == expected.doubles.size();
    for (std::size_t i = 0; same && i < expected.mask.size(); ++i)
        same = isAt(seen.mask, i, expected.mask[i]);
    for (std::size_t i = 0; same && i < expected.longs.size(); ++i)
        same = isAt(seen.longs, i, expected.longs[i]);
    for (std::size_t i = 0; same && i < expected.doubles.size(); ++i)
        same = isAt(seen.doubles, i, expected.doubles[i]);
    return same;
}

sample::Alert patternAlert(std::uint64_t number) {
    sample::Random random(~number);
    sample::Alert alert;
    alert.word0 = static_cast<std::uint32_t>(number);
    alert.word1 = wordOf(random);
    alert.word2 = wordOf(random);
    alert.send_type = static_cast<std::uint8_t>(random.below(7));
    alert.firm_id = textOf(random, random.below(13));
    alert.type = wordOf(random);
    alert.perms = wordOf(random);
    alert.perms_ex = wordOf(random);
    alert.perms_ex2 = wordOf(random);
    alert.flags = random.next();
    alert.client_code = textOf(random, random.below(13));
    alert.data_id = textOf(random, random.below(40));
    alert.short0 = static_cast<std::uint16_t>(random.below(65'536));
    alert.body = textOf(random, random.oneIn(4) ? random.below(4) * 700 : random.below(120));
    alert.word3 = wordOf(random);
    alert.word4 = wordOf(random);
    alert.word5 = wordOf(random);
    alert.word6 = wordOf(random);
    alert.quad0 = random.next();
    alert.quad1 = random.next();
    alert.class_codes.resize(random.below(4));
    for (std::string& code : alert.class_codes)
        code = textOf(random, 1 + random.below(12));
    alert.user_ids.resize(random.below(6));
    for (std::uint32_t& id : alert.user_ids)
        id = wordOf(random);
    return alert;
}

} // namespace live

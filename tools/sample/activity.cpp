// Making of slots, changes and alerts.

#include "sample/activity.h"

#include <algorithm>

namespace sample {

namespace {

constexpr std::size_t kFirms = 20;
constexpr std::int32_t kDate = 20260316;
constexpr std::uint64_t kOpening = 9 * 3600;
constexpr std::uint64_t kDay = 86'400;

constexpr const char* kNotices[] = {
    "The margin of the account has fallen below the required level.",
    "An order was refused: its price lies outside the limits of the day.",
    "Trading in the instrument was halted.",
    "Trading in the instrument goes on.",
    "Die Sicherheit des Kontos ist ersch\xF6pft.",
};

std::string numbered(const char* prefix, std::size_t number, std::size_t width) {
    const std::string digits = std::to_string(number);
    return prefix + std::string(width > digits.size() ? width - digits.size() : 0, '0') + digits;
}

std::size_t paramsOf(const ClassRecord& owner) {
    return std::min(owner.params.size(), kSlotParams);
}

void setValue(Slot& slot, const Param& param, std::size_t index, Random& random) {
    if (param.flags & 1)
        slot.setDouble(index, random.money(1, 20'000'000));
    else if (!param.names.empty() && !param.names.front().enum_desc.empty())
        slot.setLong(index, static_cast<std::int32_t>(random.below(4)));
    else
        slot.setLong(index, static_cast<std::int32_t>(random.between(-1'000, 1'000'000)));
}

std::int32_t timeOfDay(std::uint64_t tick) {
    const auto second = static_cast<std::int32_t>((kOpening + tick) % kDay);
    return second / 3600 * 10'000 + second / 60 % 60 * 100 + second % 60;
}

std::string bytesOf(std::size_t count, Random& random) {
    std::string bytes(count, '\0');
    for (char& byte : bytes)
        byte = static_cast<char>(random.next() >> 56);
    return bytes;
}

std::string bodyOf(std::size_t number, Random& random) {
    if (random.oneIn(10))
        return {};
    std::string text = std::string(random.pick(kNotices)) + " No. " + std::to_string(number + 1);
    if (random.oneIn(50)) // more than a reader fetches in one piece
        for (std::uint64_t lines = random.between(10, 60); lines > 0; --lines)
            text += "\n" + std::string(random.pick(kNotices));
    return text;
}

} // namespace

std::string firmOf(std::size_t account) {
    return numbered("FIRM", account % kFirms + 1, 4);
}

std::string accountCode(std::size_t account) {
    return numbered("TA", account + 1, 8);
}

Slot makeSlot(const ClassRecord& owner, Random& random) {
    Slot slot;
    slot.class_id = owner.classId;
    for (std::size_t i = 0; i < paramsOf(owner); ++i)
        if (!random.oneIn(8))
            setValue(slot, owner.params[i], i, random);
    return slot;
}

Record makeChange(const ClassRecord& owner, std::uint32_t secId, std::uint64_t tick, Slot& slot,
                  Random& random) {
    slot.filled = 1;
    slot.class_id = owner.classId;
    Record record;
    record.dataField2 = kDate;
    record.dataField3 = timeOfDay(tick);
    record.sec_id = secId;
    record.class_id = owner.classId;
    const std::size_t params = paramsOf(owner);
    if (params == 0)
        return record;
    record.mask.resize((params + 7) / 8);
    for (std::uint64_t left = 1 + random.below(6); left > 0; --left) {
        const std::size_t index = random.below(params);
        record.mask[index / 8] = static_cast<std::uint8_t>(record.mask[index / 8] | 1 << index % 8);
    }
    for (std::size_t i = 0; i < params; ++i) {
        if (!(record.mask[i / 8] & 1 << i % 8))
            continue;
        setValue(slot, owner.params[i], i, random);
        if (owner.params[i].flags & 1)
            record.doubles.push_back(slot.doubleAt(i));
        else
            record.longs.push_back(slot.longAt(i));
    }
    return record;
}

Alert makeAlert(std::size_t number, std::size_t accounts, const std::vector<ClassRecord>& classes,
                Random& random) {
    const std::size_t account = random.below(std::max<std::size_t>(accounts, 1));
    Alert made;
    made.word0 = static_cast<std::uint32_t>(number + 1);
    made.word1 = static_cast<std::uint32_t>(random.below(4));
    made.word2 = static_cast<std::uint32_t>(random.below(1'000'000));
    made.send_type =
        static_cast<std::uint8_t>(random.oneIn(16) ? 7 + random.below(249) : random.below(7));
    made.firm_id = firmOf(account);
    made.type = static_cast<std::uint32_t>(random.below(32));
    made.perms = static_cast<std::uint32_t>(random.next() >> 40);
    made.perms_ex = static_cast<std::uint32_t>(random.next() >> 48);
    made.perms_ex2 = static_cast<std::uint32_t>(random.next() >> 56);
    made.flags = random.next() >> (random.oneIn(4) ? 8 : 48);
    made.client_code = random.oneIn(8) ? "" : accountCode(account);
    made.data_id = bytesOf(random.oneIn(4) ? 0 : 16, random);
    made.short0 = static_cast<std::uint16_t>(random.below(100));
    made.body = bodyOf(number, random);
    made.word3 = static_cast<std::uint32_t>(random.below(10));
    made.word4 = static_cast<std::uint32_t>(kDate);
    made.word5 = static_cast<std::uint32_t>(timeOfDay(number));
    made.word6 = static_cast<std::uint32_t>(random.below(1'000));
    made.quad0 = random.next() >> 16;
    if (!classes.empty())
        for (std::uint64_t left = random.below(5); left > 0; --left)
            made.class_codes.push_back(classes[random.below(classes.size())].classCode);
    for (std::uint64_t left = random.below(6); left > 0; --left)
        made.user_ids.push_back(static_cast<std::uint32_t>(1'000 + random.below(500)));
    made.quad1 = random.next() >> 16;
    return made;
}

} // namespace sample

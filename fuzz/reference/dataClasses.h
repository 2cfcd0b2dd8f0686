// The classes that files of current data are joined to, and what the exports make of a record and
// of a slot by them.

#pragma once

#include <algorithm>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "sample/classFile.h"

namespace reference {

// Classes with fewer, more and no parameters than a slot has, ids of every sign, and codes of
// thirteen characters.
inline const std::vector<sample::ClassRecord>& dataClasses() {
    static const std::vector<sample::ClassRecord> classes = [] {
        std::vector<sample::ClassRecord> made(3);
        made[0].classId = 1;
        made[0].classCode = "ALPHA";
        made[1].classId = 2;
        made[1].classCode = "THIRTEENCHARS";
        made[2].classId = -5;
        made[2].classCode = "BARE";
        const std::vector<std::vector<std::uint32_t>> ids = {
            {0, 1, 2}, {3, 181, 182}, {4, 49'999, 50'000, 0x80000000, 0xFFFFFFFF}};
        static constexpr std::size_t kParams[] = {3, 130, 0};
        for (std::size_t i = 0; i < made.size(); ++i) {
            for (const std::uint32_t id : ids[i]) {
                made[i].securities.emplace_back();
                made[i].securities.back().sec_id = id;
                made[i].securities.back().sec_code = "SECURITY" + std::to_string(id);
                made[i].securities.back().sec_code.resize(
                    std::min<std::size_t>(13, made[i].securities.back().sec_code.size()));
            }
            made[i].params.resize(kParams[i]);
            for (std::size_t p = 0; p < kParams[i]; ++p)
                made[i].params[p].flags = static_cast<std::uint16_t>(p % 3 == 1 ? 1 : 2 * p);
        }
        return made;
    }();
    return classes;
}

inline const sample::ClassRecord* dataClass(std::int32_t id) {
    for (const sample::ClassRecord& found : dataClasses())
        if (found.classId == id)
            return &found;
    return nullptr;
}

inline std::int32_t signedAt(const std::string& bytes, std::size_t at) {
    std::int32_t value;
    std::memcpy(&value, bytes.data() + at, 4);
    return value;
}

// The 1,597 bytes that a callback gets for a record; nothing for one that no security goes with.
inline std::optional<std::string> joinedRecord(const std::string& record) {
    const sample::ClassRecord* owner = dataClass(signedAt(record, 24));
    if (owner == nullptr)
        return {};
    const auto id = static_cast<std::uint32_t>(signedAt(record, 20));
    for (const sample::Security& security : owner->securities) {
        if (security.sec_id != id)
            continue;
        const auto count = [&](std::size_t at) {
            return std::size_t{static_cast<std::uint8_t>(record[at])};
        };
        std::string out(1597, '\0');
        record.copy(out.data(), 4, 8);
        record.copy(out.data() + 4, 4, 4);
        owner->classCode.copy(out.data() + 8, 12);
        security.sec_code.copy(out.data() + 21, 12);
        record.copy(out.data() + 34, 4, 12);
        out[38] = record[17];
        out[39] = record[18];
        out[40] = record[16];
        record.copy(out.data() + 41, 4, 20);
        if (count(16) <= 16)
            record.copy(out.data() + 45, count(16), 32);
        const std::size_t longs = 32 + count(16);
        record.copy(out.data() + 61, 4 * std::min<std::size_t>(128, count(17)), longs);
        record.copy(out.data() + 573, 8 * std::min<std::size_t>(128, count(18)),
                    longs + 4 * count(17));
        return out;
    }
    return {};
}

// Puts the latest values of a slot over `out`, 1,552 bytes.  The text of the failure, if any.
inline std::string takeLastValues(const std::string& slot, std::string& out) {
    slot.copy(out.data(), 16, 36);
    const sample::ClassRecord* owner = dataClass(signedAt(slot, 28));
    if (owner == nullptr)
        return "could not find parameters for class_id=" + std::to_string(signedAt(slot, 28));
    std::size_t last = 0;
    for (std::size_t i = 0; i < 16; ++i)
        if (slot[36 + i] != 0)
            last = i;
    const std::size_t limit = std::min(owner->params.size() % 256, (last + 1) * 8);
    for (std::size_t i = 0; i < limit; ++i) {
        if ((slot[36 + i / 8] >> (i % 8) & 1) == 0)
            continue;
        if ((owner->params[i].flags & 1) != 0)
            slot.copy(out.data() + 528 + 8 * i, 8, 56 + 8 * i);
        else
            slot.copy(out.data() + 16 + 4 * i, 4, 56 + 8 * i);
    }
    return {};
}

} // namespace reference

// Patterns tell their stamps, and what is not whole is none.

#include "live/pattern.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <set>

namespace {

constexpr std::uint32_t kStamps[] = {0, 1, 2, 1000, 0x7FFFFFFF, 0xFFFFFFFF};

TEST(LivePattern, ValuesTellStampAndParameter) {
    std::set<std::uint64_t> seen;
    for (const std::uint32_t stamp : kStamps) {
        const sample::Slot slot = live::patternSlot(3, stamp);
        EXPECT_EQ(live::stampOf(slot.values.data()), stamp);
        for (std::size_t i = 0; i < 128; ++i) {
            EXPECT_TRUE(slot.has(i));
            EXPECT_TRUE(seen.insert(slot.values[i]).second);
            EXPECT_TRUE(std::isfinite(slot.doubleAt(i)));
            EXPECT_EQ(live::stampOfDouble(slot.doubleAt(i), i), stamp);
            EXPECT_EQ(live::stampOfDouble(slot.doubleAt(i), (i + 1) % 128), std::nullopt);
            EXPECT_TRUE(live::isLongOf(stamp, i, slot.longAt(i)));
            EXPECT_FALSE(live::isLongOf(stamp + 1, i, slot.longAt(i)));
            EXPECT_FALSE(live::isLongOf(stamp, (i + 1) % 128, slot.longAt(i)));
        }
    }
}

TEST(LivePattern, MixedSlotsAreNone) {
    for (std::size_t i = 0; i < 128; ++i) {
        sample::Slot slot = live::patternSlot(3, 10);
        slot.values[i] = live::patternValue(11, i);
        EXPECT_EQ(live::stampOf(slot.values.data()), std::nullopt) << i;
        slot.values[i] = 0;
        EXPECT_EQ(live::stampOf(slot.values.data()), std::nullopt) << i;
    }
    for (const double value : {0.0, 1.5, -1.0, 1e300, std::nan(""), 4503599627370496.5})
        EXPECT_EQ(live::stampOfDouble(value, 3), std::nullopt) << value;
}

live::SeenRecord seenOf(const sample::Record& record) {
    return {record.dataField1,
            record.dataField2,
            record.dataField3,
            static_cast<std::uint8_t>(record.mask.size()),
            static_cast<std::uint8_t>(record.longs.size()),
            static_cast<std::uint8_t>(record.doubles.size()),
            record.mask.data(),
            record.longs.data(),
            record.doubles.data()};
}

TEST(LivePattern, RecordsAreToldFromOthers) {
    std::set<std::size_t> sizes;
    for (std::int32_t number = 1; number < 2000; ++number) {
        sample::Record record = live::patternRecord(number, 5, 6);
        EXPECT_EQ(record.sec_id, 5u);
        EXPECT_EQ(record.class_id, 6);
        EXPECT_TRUE(live::isPattern(seenOf(record)));
        sizes.insert(sample::encodeRecord(record).size());
        live::SeenRecord other = seenOf(record);
        ++other.dataField1;
        EXPECT_FALSE(live::isPattern(other));
        other = seenOf(record);
        ++other.longCount;
        EXPECT_FALSE(live::isPattern(other));
        other = seenOf(record);
        ++other.dataField3;
        EXPECT_FALSE(live::isPattern(other));
        if (!record.doubles.empty()) {
            record.doubles.back() += 1;
            EXPECT_FALSE(live::isPattern(seenOf(record)));
        }
    }
    EXPECT_EQ(*sizes.begin(), 32u);
    EXPECT_GT(sizes.size(), 80u);
}

TEST(LivePattern, AlertsFollowFromTheirNumber) {
    std::set<std::string> seen;
    bool large = false;
    bool empty = false;
    for (std::uint64_t number = 0; number < 200; ++number) {
        const std::string body = sample::encodeAlert(live::patternAlert(number));
        EXPECT_EQ(body, sample::encodeAlert(live::patternAlert(number)));
        EXPECT_TRUE(seen.insert(body).second);
        large = large || body.size() > 480;
        empty = empty || live::patternAlert(number).body.empty();
    }
    EXPECT_TRUE(large);
    EXPECT_TRUE(empty);
}

} // namespace

// What goes on in a made-up market agrees with its classes, and the slots with the changes.

#include "sample/activity.h"

#include <gtest/gtest.h>

#include <set>

#include "sample/market.h"

namespace {

using Owners = std::map<std::uint32_t, const sample::ClassRecord*>;

Owners ownersOf(const sample::Market& market) {
    Owners owners;
    for (const sample::ListedSecurity& listed : sample::listedSecurities(market))
        owners[listed.security->sec_id] = listed.owner;
    return owners;
}

bool bitOf(const std::vector<std::uint8_t>& mask, std::size_t param) {
    return param / 8 < mask.size() && mask[param / 8] & 1 << param % 8;
}

TEST(SampleActivity, SlotsAreOfListedSecuritiesUnderTheirClass) {
    const sample::Market market = sample::makeMarket({.securities = 400, .changes = 0});
    const Owners owners = ownersOf(market);
    ASSERT_EQ(owners.size(), 400u);
    EXPECT_LT(market.slots.size(), 400u); // one in sixteen has none
    EXPECT_GT(market.slots.size(), 300u);
    std::size_t absent = 0;
    for (const auto& [secId, slot] : market.slots) {
        ASSERT_TRUE(owners.contains(secId)) << secId;
        EXPECT_EQ(slot.class_id, owners.at(secId)->classId);
        EXPECT_EQ(slot.filled, 1u);
        EXPECT_EQ(slot.lock, 0u);
        for (std::size_t i = 0; i < 128; ++i) {
            absent += i < 40 && !slot.has(i);
            EXPECT_FALSE(i >= 40 && slot.has(i));
        }
    }
    EXPECT_GT(absent, 0u);
}

// Played from the start, the changes end at the slots.
TEST(SampleActivity, ChangesLeadToTheSlots) {
    const sample::MarketOptions options{.securities = 60, .params = 130, .changes = 3000};
    const sample::Market market = sample::makeMarket(options);
    sample::MarketOptions quiet = options;
    quiet.changes = 0;
    std::map<std::uint32_t, sample::Slot> slots = sample::makeMarket(quiet).slots;
    const Owners owners = ownersOf(market);
    std::int32_t number = 0;
    for (const sample::Record& change : market.changes) {
        ASSERT_EQ(change.dataField1, ++number);
        ASSERT_TRUE(owners.contains(change.sec_id));
        const sample::ClassRecord& owner = *owners.at(change.sec_id);
        ASSERT_EQ(change.class_id, owner.classId);
        ASSERT_EQ(change.mask.size(), 16u);
        sample::Slot& slot = slots[change.sec_id];
        slot.class_id = owner.classId;
        std::size_t longs = 0;
        std::size_t doubles = 0;
        for (std::size_t i = 0; i < 128; ++i) {
            if (!bitOf(change.mask, i))
                continue;
            if (owner.params[i].flags & 1)
                slot.setDouble(i, change.doubles.at(doubles++));
            else
                slot.setLong(i, change.longs.at(longs++));
        }
        EXPECT_EQ(longs, change.longs.size());
        EXPECT_EQ(doubles, change.doubles.size());
        EXPECT_GE(longs + doubles, 1u);
        EXPECT_LE(longs + doubles, 6u);
    }
    ASSERT_EQ(number, 3000);
    ASSERT_EQ(slots.size(), market.slots.size());
    for (const auto& [secId, slot] : market.slots) {
        EXPECT_EQ(slots.at(secId).class_id, slot.class_id);
        EXPECT_EQ(slots.at(secId).mask, slot.mask) << secId;
        EXPECT_EQ(slots.at(secId).values, slot.values) << secId;
    }
}

TEST(SampleActivity, DatesAndTimesAreDecimalDigits) {
    const sample::Market market = sample::makeMarket({.changes = 3'700});
    EXPECT_EQ(market.changes[0].dataField2, 20'260'316);
    EXPECT_EQ(market.changes[0].dataField3, 90'000);
    EXPECT_EQ(market.changes[61].dataField3, 90'101);
    EXPECT_EQ(market.changes[3'699].dataField3, 100'139);
}

TEST(SampleActivity, OnlySecuritiesWithASlotAreListed) {
    const sample::Market market = sample::makeMarket({.classes = 2,
                                                      .securities = 50'010,
                                                      .params = 1,
                                                      .names = 0,
                                                      .limits = 0,
                                                      .positions = 0,
                                                      .slots = false,
                                                      .changes = 10,
                                                      .alerts = 0});
    const auto listed = sample::listedSecurities(market);
    ASSERT_EQ(listed.size(), 49'999u);
    EXPECT_EQ(listed.back().security->sec_id, 49'999u);
}

TEST(SampleActivity, AlertsAgreeWithAccountsAndClasses) {
    const sample::Market market = sample::makeMarket({.limits = 300, .alerts = 2000});
    std::map<std::string, std::string> firms;
    for (const sample::FutLimit& limit : market.limits)
        firms[limit.trdaccid] = limit.firmid;
    std::set<std::string> codes;
    for (const sample::ClassRecord& record : market.classes)
        codes.insert(record.classCode);
    std::set<std::uint8_t> sendTypes;
    std::set<std::size_t> codeCounts;
    std::size_t empty = 0;
    std::size_t longOnes = 0;
    for (const sample::Alert& alert : market.alerts) {
        if (!alert.client_code.empty()) {
            ASSERT_TRUE(firms.contains(alert.client_code)) << alert.client_code;
            EXPECT_EQ(firms[alert.client_code], alert.firm_id);
        }
        for (const std::string& code : alert.class_codes)
            EXPECT_TRUE(codes.contains(code)) << code;
        sendTypes.insert(alert.send_type);
        codeCounts.insert(alert.class_codes.size());
        empty += alert.body.empty();
        longOnes += sample::encodeAlert(alert).size() > 480;
    }
    for (std::uint8_t type = 0; type < 7; ++type)
        EXPECT_TRUE(sendTypes.contains(type)) << unsigned{type};
    EXPECT_GT(*sendTypes.rbegin(), 7u);
    EXPECT_EQ(codeCounts, (std::set<std::size_t>{0, 1, 2, 3, 4}));
    EXPECT_GT(empty, 0u);
    EXPECT_GT(longOnes, 0u);
}

} // namespace

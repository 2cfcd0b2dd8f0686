// What holds of every made-up market.

#include "sample/market.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <set>
#include <stdexcept>

namespace {

std::string settledBytes(const sample::Market& market) {
    return sample::encodeClassFile(market.classes) + sample::encodeFutLimits(market.limits) +
           sample::encodeFutPositions(market.positions);
}

// alert.vd, and of data.vd what is not zero, with the offsets.
std::string liveBytes(const sample::Market& market) {
    std::string bytes = sample::encodeAlertFile(market.alerts);
    sample::encodeDataParts(sample::makeDataFile(market),
                            [&](std::uint64_t offset, std::string_view part) {
                                bytes += std::to_string(offset);
                                bytes += part;
                            });
    return bytes;
}

std::string allBytes(const sample::Market& market) {
    return settledBytes(market) + liveBytes(market);
}

std::uint64_t hashOf(const std::string& bytes) {
    std::uint64_t hash = 14695981039346656037u;
    for (const char byte : bytes)
        hash = (hash ^ static_cast<unsigned char>(byte)) * 1099511628211u;
    return hash;
}

TEST(SampleMarket, SizesAreThoseAskedFor) {
    const sample::Market market = sample::makeMarket(
        {.classes = 7, .securities = 100, .params = 30, .names = 3, .limits = 11, .positions = 13});
    ASSERT_EQ(market.classes.size(), 7u);
    std::size_t securities = 0;
    for (const sample::ClassRecord& made : market.classes) {
        EXPECT_EQ(made.params.size(), 30u);
        EXPECT_EQ(made.magic, sample::kUsedMagic);
        securities += made.securities.size();
        for (const sample::Security& security : made.securities)
            EXPECT_EQ(security.names.size(), 3u);
    }
    EXPECT_EQ(securities, 100u);
    EXPECT_EQ(market.limits.size(), 11u);
    EXPECT_EQ(market.positions.size(), 13u);
}

TEST(SampleMarket, SameSeedSameBytes) {
    const std::string bytes = allBytes(sample::makeMarket({.seed = 5}));
    EXPECT_EQ(bytes, allBytes(sample::makeMarket({.seed = 5})));
    EXPECT_NE(bytes, allBytes(sample::makeMarket({.seed = 6})));
}

// The numbers are what the writer gave on both systems when the test was made: files must not
// change from one system to the other, and a change of the generator should be meant.
TEST(SampleMarket, BytesAreTheSameOnEverySystem) {
    const sample::Market market = sample::makeMarket({});
    EXPECT_EQ(hashOf(settledBytes(market)), 11976331215478158760u);
    EXPECT_EQ(hashOf(liveBytes(market)), 9370542518082679892u);
}

TEST(SampleMarket, KeysAreUniqueAndCodesShort) {
    const sample::Market market = sample::makeMarket({.classes = 13, .securities = 3000});
    std::set<std::int32_t> classIds;
    std::set<std::string> classCodes;
    std::set<std::uint32_t> securityIds;
    std::set<std::string> securityCodes;
    for (const sample::ClassRecord& made : market.classes) {
        EXPECT_TRUE(classIds.insert(made.classId).second) << made.classId;
        EXPECT_TRUE(classCodes.insert(made.classCode).second) << made.classCode;
        EXPECT_LE(made.classCode.size(), 12u);
        for (const sample::Security& security : made.securities) {
            EXPECT_TRUE(securityIds.insert(security.sec_id).second) << security.sec_id;
            EXPECT_TRUE(securityCodes.insert(security.sec_code).second) << security.sec_code;
            EXPECT_LE(security.sec_code.size(), 12u) << security.sec_code;
        }
    }
    EXPECT_EQ(securityIds.size(), 3000u);
}

TEST(SampleMarket, TextsFitTheirFields) {
    const sample::Market market = sample::makeMarket({.securities = 2000});
    for (const sample::ClassRecord& made : market.classes) {
        for (const sample::Param& param : made.params)
            EXPECT_LT(param.db_name.size(), 17u) << param.db_name;
        for (const sample::Security& security : made.securities) {
            EXPECT_EQ(security.ISIN.size(), 12u);
            EXPECT_LT(security.reg_number.size(), 31u);
            EXPECT_LT(security.sedol_code.size(), 8u);
            EXPECT_LT(security.cusip_code.size(), 10u);
            EXPECT_LT(security.stock_name.size(), 33u);
            EXPECT_LT(security.bsid.size(), 21u);
        }
    }
}

TEST(SampleMarket, ParametersAndNamesAreMixed) {
    const sample::Market market = sample::makeMarket({});
    std::size_t doubles = 0;
    std::size_t enumerated = 0;
    std::set<std::uint16_t> ids;
    for (const sample::Param& param : market.classes[0].params) {
        ids.insert(param.par_id);
        doubles += param.flags & 1;
        enumerated += param.names[0].enum_desc.empty() ? 0 : 1;
    }
    EXPECT_EQ(ids.size(), 40u);
    EXPECT_GT(doubles, 5u);
    EXPECT_LT(doubles, 35u);
    EXPECT_GT(enumerated, 1u);
    EXPECT_LT(enumerated, 20u);

    const auto& securities = market.classes[0].securities;
    const auto isLong = [](const sample::Security& security) {
        return security.names[1].short_name.size() > 15;
    };
    EXPECT_EQ(securities[0].names[0].lang, 0);
    EXPECT_EQ(securities[0].names[1].lang, 1);
    EXPECT_TRUE(std::any_of(securities.begin(), securities.end(), isLong));
    EXPECT_FALSE(std::all_of(securities.begin(), securities.end(), isLong));
}

TEST(SampleMarket, PositionsAgreeWithClassesAndLimits) {
    const sample::Market market = sample::makeMarket({.limits = 300, .positions = 500});
    std::set<std::string> derivatives;
    for (const sample::ClassRecord& made : market.classes)
        for (const sample::Security& security : made.securities)
            if (made.classCode.starts_with("FUTURE") || made.classCode.starts_with("OPTION"))
                derivatives.insert(security.sec_code);
    std::map<std::string, std::string> firms;
    std::set<std::pair<std::string, std::uint16_t>> limits;
    for (const sample::FutLimit& limit : market.limits) {
        firms[limit.trdaccid] = limit.firmid;
        EXPECT_TRUE(limits.emplace(limit.trdaccid, limit.limit_type).second);
    }
    std::set<std::pair<std::string, std::string>> held;
    for (const sample::FutPosition& position : market.positions) {
        EXPECT_TRUE(derivatives.contains(position.seccode)) << position.seccode;
        ASSERT_TRUE(firms.contains(position.trdaccid)) << position.trdaccid;
        EXPECT_EQ(firms[position.trdaccid], position.firmid);
        EXPECT_TRUE(held.emplace(position.trdaccid, position.seccode).second);
        EXPECT_EQ(position.total_net,
                  position.start_net + position.today_buy - position.today_sell);
    }
}

TEST(SampleMarket, OptionsNameTheirFutures) {
    const sample::Market market = sample::makeMarket({.classes = 3, .securities = 30});
    std::set<std::string> futures;
    for (const sample::Security& security : market.classes[1].securities)
        futures.insert(security.sec_code);
    for (const sample::Security& option : market.classes[2].securities) {
        EXPECT_EQ(option.base_class_code, market.classes[1].classCode);
        EXPECT_TRUE(futures.contains(option.base_sec_code)) << option.base_sec_code;
    }
}

TEST(SampleMarket, SmallMarkets) {
    const sample::Market nothing =
        sample::makeMarket({.classes = 0, .securities = 0, .limits = 0, .positions = 5});
    EXPECT_TRUE(nothing.classes.empty());
    EXPECT_TRUE(nothing.slots.empty());
    EXPECT_TRUE(nothing.changes.empty());
    ASSERT_EQ(nothing.alerts.size(), 1000u);
    EXPECT_TRUE(nothing.alerts[0].class_codes.empty());
    EXPECT_TRUE(nothing.positions.empty());
    const sample::Market one = sample::makeMarket(
        {.classes = 1, .securities = 1, .params = 0, .names = 0, .limits = 0, .positions = 1});
    ASSERT_EQ(one.positions.size(), 1u);
    EXPECT_EQ(one.positions[0].seccode, one.classes[0].securities[0].sec_code);
    EXPECT_TRUE(one.classes[0].params.empty());
    EXPECT_TRUE(one.classes[0].securities[0].names.empty());
    EXPECT_EQ(one.changes.size(), 1000u);
    EXPECT_TRUE(one.changes[0].mask.empty());
    const sample::Market still = sample::makeMarket({.slots = false, .changes = 0, .alerts = 0});
    EXPECT_TRUE(still.slots.empty());
    EXPECT_TRUE(sample::makeDataFile(still).eventPages.empty());
    EXPECT_TRUE(still.alerts.empty());
}

TEST(SampleMarket, SizesBeyondTheBoundsRaise) {
    EXPECT_THROW(sample::makeMarket({.classes = 0}), std::length_error);
    EXPECT_THROW(sample::makeMarket({.classes = 100'001}), std::length_error);
    EXPECT_THROW(sample::makeMarket({.securities = 4'000'001}), std::length_error);
    EXPECT_THROW(sample::makeMarket({.params = 60'001}), std::length_error);
    EXPECT_THROW(sample::makeMarket({.names = 65'536}), std::length_error);
    EXPECT_THROW(sample::makeMarket({.changes = 20'000'001}), std::length_error);
    EXPECT_THROW(sample::makeMarket({.alerts = 20'000'001}), std::length_error);
}

} // namespace

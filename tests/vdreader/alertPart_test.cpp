#include "Alerts/alertPart.h"

#include <gtest/gtest.h>

#include <cstdint>

#include "Alerts/sAlertDesc.h"

TEST(AlertPart, FreshPartHoldsNothing) {
    const AlertPart<std::uint32_t> part;
    EXPECT_TRUE(part.empty());
    EXPECT_EQ(part.size(), 0u);
    EXPECT_EQ(part.capacity(), 0u);
    EXPECT_EQ(part.data(), nullptr);
    EXPECT_EQ(part.begin(), part.end());
}

TEST(AlertPart, LeastMemoryIsTheSameForElementsOfAllSizes) {
    AlertPart<std::uint8_t> bytes;
    AlertPart<std::uint32_t> ids;
    AlertPart<AlertClassCode> codes;
    bytes.resize(1), ids.resize(1), codes.resize(1);
    EXPECT_EQ(bytes.capacity(), 128u);
    EXPECT_EQ(ids.capacity(), 32u);
    EXPECT_EQ(codes.capacity(), 10u) << "130 bytes";
}

TEST(AlertPart, ElementsStayWhereItGrows) {
    AlertPart<std::uint32_t> part;
    for (std::uint32_t i = 0; i < 10'000; ++i) {
        part.resize(i + 1);
        part.data()[i] = i * 3;
    }
    for (std::uint32_t i = 0; i < 10'000; ++i)
        ASSERT_EQ(part[i], i * 3);
    EXPECT_LT(part.capacity(), 20'001u);
}

TEST(AlertPart, MemoryStaysWhereItShrinks) {
    AlertPart<std::uint8_t> part;
    part.resize(1000);
    const std::uint8_t* const where = part.data();
    part.resize(0);
    EXPECT_TRUE(part.empty());
    part.resize(1000);
    EXPECT_EQ(part.data(), where);
    EXPECT_EQ(part.capacity(), 1000u);
}

TEST(AlertPart, DropGivesTheMemoryBack) {
    AlertPart<std::uint8_t> part;
    part.resize(1000);
    part.drop();
    EXPECT_TRUE(part.empty());
    EXPECT_EQ(part.capacity(), 0u);
    EXPECT_EQ(part.data(), nullptr);
    part.resize(5);
    EXPECT_EQ(part.size(), 5u);
}

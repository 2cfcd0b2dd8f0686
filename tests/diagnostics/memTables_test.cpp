#include "diagnostics/memTables.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <deque>
#include <memory>
#include <random>
#include <string>
#include <unordered_map>
#include <vector>

#include "support/countedNew.h"
#include "support/scopedCalls.h"

namespace {

constexpr std::uint64_t kEmptySpace = 120'000'264;

const void* at(std::uint64_t address) {
    return reinterpret_cast<const void*>(address);
}

// The hashes step by step, as they are told.
std::size_t bucketOfBytes(const std::string& bytes, std::uint64_t buckets) {
    std::uint64_t hash = 0;
    for (const char c : bytes) {
        hash *= 31;
        hash += static_cast<std::uint64_t>(static_cast<std::int64_t>(static_cast<signed char>(c)));
    }
    return hash % buckets;
}

std::string bytesOf(const void* value, std::size_t size) {
    return {static_cast<const char*>(value), size};
}

std::size_t pointerBucket(const void* pointer) {
    return bucketOfBytes(bytesOf(&pointer, sizeof pointer), 5000011);
}

// Total and count of each site.
using Figures = std::vector<std::pair<std::uint64_t, std::uint32_t>>;
Figures figuresOf(const MemPointers& pointers, std::size_t sites) {
    std::vector<MemTotal> totals(sites);
    pointers.addUp(totals);
    Figures figures;
    for (const MemTotal& total : totals)
        figures.emplace_back(total.total, total.count);
    return figures;
}

// Addresses of one bucket.
std::vector<const void*> collisions(std::size_t many) {
    std::unordered_map<std::size_t, std::vector<const void*>> seen;
    for (std::uint64_t address = 0x10000;; address += 16) {
        auto& same = seen[MemPointers::bucketOf(at(address))];
        same.push_back(at(address));
        if (same.size() == many)
            return same;
    }
}

} // namespace

// ---- source positions ----

TEST(MemSites, BucketComesFromTheTextAndTheLine) {
    for (const std::string text : {"", "a", "pages", "\x80\xff", "a/long/path/to/a/file.cpp"})
        for (const std::int32_t line : {0, 1, 299, -1, 0x7f80ff01})
            EXPECT_EQ(MemSites::bucketOf(text.c_str(), line),
                      bucketOfBytes(text + bytesOf(&line, sizeof line), 211))
                << text << line;
}

TEST(MemSites, NumbersCountFromZeroAndStay) {
    MemSites sites;
    EXPECT_EQ(sites.numberOf("a", 1), 0);
    EXPECT_EQ(sites.numberOf("a", 2), 1);
    EXPECT_EQ(sites.numberOf("b", 1), 2);
    EXPECT_EQ(sites.numberOf("a", 1), 0);
    EXPECT_EQ(sites.numberOf("b", 1), 2);
    ASSERT_EQ(sites.all().size(), 3u);
    EXPECT_STREQ(sites.all()[1].file, "a");
    EXPECT_EQ(sites.all()[1].line, 2);
}

TEST(MemSites, EqualTextsAtTwoAddressesAreOneSite) {
    const std::string one = "pages.cpp";
    const std::string other = one;
    ASSERT_NE(one.c_str(), other.c_str());
    MemSites sites;
    EXPECT_EQ(sites.numberOf(one.c_str(), 7), 0);
    EXPECT_EQ(sites.numberOf(other.c_str(), 7), 0);
    EXPECT_EQ(sites.numberOf(other.c_str(), 8), 1);
    EXPECT_EQ(sites.all()[0].file, one.c_str()); // that of the first
}

TEST(MemSites, NullTextIsEmpty) {
    MemSites sites;
    EXPECT_EQ(sites.numberOf(nullptr, 0), 0);
    EXPECT_EQ(sites.numberOf("", 0), 0);
    EXPECT_EQ(sites.numberOf(nullptr, 0), 0);
    EXPECT_STREQ(sites.all()[0].file, "");
}

TEST(MemSites, SitesPastTheLastNumberHaveNone) {
    MemSites sites;
    for (std::int32_t line = 0; line < 32768; ++line)
        ASSERT_EQ(sites.numberOf("a", line), line);
    EXPECT_EQ(sites.numberOf("a", 32768), MemSites::kNoNumber);
    for (std::int32_t line = 32769; line < 65600; ++line)
        ASSERT_EQ(sites.numberOf("a", line), MemSites::kNoNumber);
    EXPECT_EQ(sites.numberOf("a", 65536), MemSites::kNoNumber);
    EXPECT_EQ(sites.numberOf("a", 32767), 32767);
    EXPECT_EQ(sites.numberOf("a", 0), 0);
}

TEST(MemSites, NewSiteThatFindsNoMemoryLeavesNoTrace) {
    for (int after = 0; after < 2; ++after) {
        auto sites = std::make_unique<MemSites>();
        {
            const FailingNew failing(after, 1);
            EXPECT_THROW(sites->numberOf("a", 1), std::bad_alloc) << after;
        }
        EXPECT_TRUE(sites->all().empty());
        EXPECT_EQ(sites->numberOf("a", 1), 0);
        EXPECT_EQ(sites->all().size(), 1u);
    }
}

// ---- blocks ----

TEST(MemPointers, BucketComesFromTheBytesOfTheAddress) {
    std::mt19937_64 random(3);
    EXPECT_EQ(MemPointers::bucketOf(nullptr), 0u);
    for (int i = 0; i < 1000; ++i) {
        const void* const pointer = at(random());
        ASSERT_EQ(MemPointers::bucketOf(pointer), pointerBucket(pointer)) << pointer;
    }
}

TEST(MemPointers, EmptyTableTakes24BytesABucket) {
    const MemPointers pointers;
    EXPECT_EQ(pointers.space(), kEmptySpace);
    EXPECT_EQ(figuresOf(pointers, 1), (Figures{{0, 0}}));
}

TEST(MemPointers, BlocksCountForTheirSites) {
    MemPointers pointers;
    pointers.enter(at(0x1000), 10, 0);
    pointers.enter(at(0x2000), 20, 1);
    pointers.enter(at(0x3000), 30, 1);
    EXPECT_EQ(figuresOf(pointers, 2), (Figures{{10, 1}, {50, 2}}));
    pointers.remove(at(0x2000));
    EXPECT_EQ(figuresOf(pointers, 2), (Figures{{10, 1}, {30, 1}}));
}

TEST(MemPointers, NullIsAnAddressLikeAnyOther) {
    MemPointers pointers;
    pointers.enter(nullptr, 5, 0);
    EXPECT_EQ(figuresOf(pointers, 1), (Figures{{5, 1}}));
    pointers.remove(nullptr);
    EXPECT_EQ(figuresOf(pointers, 1), (Figures{{0, 0}}));
}

TEST(MemPointers, NewestEntryOfAnAddressCounts) {
    MemPointers pointers;
    pointers.enter(at(0x1000), 10, 0);
    pointers.enter(at(0x1000), 70, 1);
    EXPECT_EQ(figuresOf(pointers, 2), (Figures{{0, 0}, {70, 1}}));
}

TEST(MemPointers, UnknownAddressIsNoError) {
    MemPointers pointers;
    pointers.remove(at(0x1000));
    pointers.enter(at(0x1000), 10, 0);
    pointers.remove(at(0x1010));
    const auto same = collisions(2);
    pointers.enter(same[0], 1, 0);
    pointers.remove(same[1]);
    EXPECT_EQ(figuresOf(pointers, 1), (Figures{{11, 2}}));
}

TEST(MemPointers, BlocksOfOneBucketAreKeptApart) {
    const auto same = collisions(5);
    MemPointers pointers;
    for (std::size_t i = 0; i < same.size(); ++i)
        pointers.enter(same[i], std::size_t{1} << i, 0);
    EXPECT_EQ(figuresOf(pointers, 1), (Figures{{31, 5}}));
    pointers.enter(same[2], 100, 0);
    EXPECT_EQ(figuresOf(pointers, 1), (Figures{{127, 5}}));
    pointers.remove(same[0]);
    pointers.remove(same[4]);
    EXPECT_EQ(figuresOf(pointers, 1), (Figures{{110, 3}}));
    for (const void* const pointer : same)
        pointers.remove(pointer);
    EXPECT_EQ(figuresOf(pointers, 1), (Figures{{0, 0}}));
    pointers.enter(same[3], 3, 0);
    EXPECT_EQ(figuresOf(pointers, 1), (Figures{{3, 1}}));
}

TEST(MemPointers, SpaceCountsTheRoomOfBucketsAndNotWhatIsInThem) {
    const auto same = collisions(5);
    MemPointers pointers;
    const std::uint64_t rooms[] = {1, 2, 4, 4, 8};
    for (std::size_t i = 0; i < same.size(); ++i) {
        pointers.enter(same[i], 1, 0);
        EXPECT_EQ(pointers.space(), kEmptySpace + 24 * rooms[i]) << i;
    }
    for (const void* const pointer : same)
        pointers.remove(pointer);
    EXPECT_EQ(pointers.space(), kEmptySpace + 24 * 8);
    pointers.enter(at(0x1000), 1, 0);
    pointers.remove(at(0x1000));
    EXPECT_EQ(pointers.space(), kEmptySpace + 24 * 9);
    pointers.wipe();
    EXPECT_EQ(pointers.space(), kEmptySpace);
    pointers.enter(same[0], 9, 0);
    EXPECT_EQ(figuresOf(pointers, 1), (Figures{{9, 1}}));
}

TEST(MemPointers, SitesWithoutANumberAreLeftOut) {
    MemPointers pointers;
    pointers.enter(at(0x1000), 10, MemSites::kNoNumber);
    pointers.enter(at(0x2000), 20, 3); // of a site behind those that are asked for
    pointers.enter(at(0x3000), 30, 0);
    EXPECT_EQ(figuresOf(pointers, 3), (Figures{{30, 1}, {0, 0}, {0, 0}}));
}

TEST(MemPointers, BehavesLikeAMap) {
    MemPointers pointers;
    std::unordered_map<const void*, std::pair<std::uint64_t, std::int16_t>> map;
    std::mt19937 random(11);
    const auto same = collisions(6);
    for (int i = 0; i < 20'000; ++i) {
        const std::uint32_t pick = random() % 40;
        const void* const pointer = pick < 6 ? same[pick] : at(pick * 16);
        if (random() % 3 == 0) {
            pointers.remove(pointer);
            map.erase(pointer);
        } else {
            const std::uint64_t size = random();
            const auto site = static_cast<std::int16_t>(random() % 3);
            pointers.enter(pointer, size, site);
            map[pointer] = {size, site};
        }
    }
    Figures expected(3);
    for (const auto& [pointer, record] : map) {
        expected[static_cast<std::size_t>(record.second)].first += record.first;
        ++expected[static_cast<std::size_t>(record.second)].second;
    }
    EXPECT_EQ(figuresOf(pointers, 3), expected);
}

TEST(MemPointers, RoomOfBucketsIsGivenBackByAWipeAndAtTheEnd) {
    const auto same = collisions(5);
    const std::size_t before = liveNews();
    {
        MemPointers pointers;
        const std::size_t empty = liveNews();
        for (int round = 0; round < 2; ++round) {
            for (const void* const pointer : same)
                pointers.enter(pointer, 1, 0);
            EXPECT_EQ(liveNews(), empty + 1) << round; // not what it has grown out of
            if (round == 0)
                pointers.wipe();
            else
                break;
            EXPECT_EQ(liveNews(), empty);
        }
    }
    EXPECT_EQ(liveNews(), before);
}

TEST(MemPointers, WantOfMemoryLeavesTheTableAsItWas) {
    const auto same = collisions(3);
    MemPointers pointers;
    pointers.enter(same[0], 1, 0);
    for (std::size_t i = 1; i < 3; ++i) {
        {
            const FailingNew failing(0, 1);
            EXPECT_THROW(pointers.enter(same[i], 2, 0), std::bad_alloc);
        }
        EXPECT_EQ(figuresOf(pointers, 1)[0].second, i);
        pointers.enter(same[i], 2, 0);
    }
    EXPECT_EQ(figuresOf(pointers, 1), (Figures{{5, 3}}));
}

TEST(MemPointers, TableThatCannotBeMadeRaises) {
    const ScopedCalls calls;
    platform::calls.allocateLarge = [](std::size_t) -> void* { return nullptr; };
    EXPECT_THROW(MemPointers(), std::bad_alloc);
}

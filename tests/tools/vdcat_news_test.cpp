// What vdcat takes for news of a journal that grows between its walks and during them, and how it
// looks at a file that grows meanwhile.

#include <gtest/gtest.h>

#include <limits>

#include "vdcat/journalNews.h"
#include "vdcat/overtaken.h"

namespace {

using Numbers = std::vector<std::int32_t>;

class JournalNews : public testing::Test {
  protected:
    // The numbers to show of a walk that meets these.
    Numbers shown(const Numbers& met) {
        Numbers numbers;
        news.beginWalk();
        for (const std::int32_t number : met)
            if (news.take(number))
                numbers.push_back(number);
        return numbers;
    }

    vdcat::JournalNews news;
};

TEST_F(JournalNews, FirstWalkShowsAllAndLaterOnesWhatCame) {
    EXPECT_EQ(shown({1, 2, 3}), (Numbers{1, 2, 3}));
    EXPECT_EQ(shown({1, 2, 3}), Numbers());
    EXPECT_EQ(shown({1, 2, 3, 4, 5}), (Numbers{4, 5}));
    EXPECT_FALSE(news.heldBack());
}

TEST_F(JournalNews, EmptyWalkHasNone) {
    EXPECT_EQ(shown({}), Numbers());
    news.skipWalk();
    EXPECT_EQ(shown({}), Numbers());
    EXPECT_EQ(shown({7}), (Numbers{7}));
}

TEST_F(JournalNews, WhatAWalkLeftOutComesWithTheNextInItsPlace) {
    EXPECT_EQ(shown({1, 2}), (Numbers{1, 2}));
    EXPECT_EQ(shown({1, 2, 3, 6, 7}), (Numbers{3}));
    EXPECT_TRUE(news.heldBack());
    EXPECT_EQ(shown({1, 2, 3, 4, 5, 6, 7, 8}), (Numbers{4, 5, 6, 7, 8}));
    EXPECT_FALSE(news.heldBack());
}

TEST_F(JournalNews, TheFirstWalkLeavesOutToo) {
    EXPECT_EQ(shown({1, 4}), (Numbers{1}));
    EXPECT_EQ(shown({1, 2, 3, 4}), (Numbers{2, 3, 4}));
}

TEST_F(JournalNews, JumpThatStaysIsOneOfTheNumbers) {
    EXPECT_EQ(shown({1, 10, 20}), (Numbers{1}));
    EXPECT_EQ(shown({1, 10, 20, 21}), (Numbers{10, 20, 21}));
    EXPECT_EQ(shown({1, 10, 20, 21, 22}), (Numbers{22}));
    EXPECT_FALSE(news.heldBack());
}

TEST_F(JournalNews, FilledJumpAndANewOne) {
    EXPECT_EQ(shown({1, 4}), (Numbers{1}));
    EXPECT_EQ(shown({1, 2, 3, 4, 8}), (Numbers{2, 3, 4}));
    EXPECT_TRUE(news.heldBack());
    EXPECT_EQ(shown({1, 2, 3, 4, 5, 6, 7, 8}), (Numbers{5, 6, 7, 8}));
}

TEST_F(JournalNews, PageThatIsWalkedTwiceIsShownOnceByLaterWalks) {
    EXPECT_EQ(shown({1, 2, 1, 2}), (Numbers{1, 2, 1, 2})); // the file as it is
    EXPECT_EQ(shown({1, 2, 1, 2}), Numbers());
}

TEST_F(JournalNews, SkippedWalkIsKnownWithItsJumps) {
    EXPECT_EQ(shown({1, 4, 5}), (Numbers{1}));
    news.skipWalk();
    EXPECT_FALSE(news.heldBack());
    EXPECT_EQ(shown({1, 2, 3, 4, 5}), Numbers());
    EXPECT_EQ(shown({1, 2, 3, 4, 5, 6}), (Numbers{6}));
}

TEST_F(JournalNews, SkippedWalkWithoutJumps) {
    shown({1, 2});
    news.skipWalk();
    EXPECT_EQ(shown({1, 2, 3}), (Numbers{3}));
}

TEST_F(JournalNews, NumbersAtTheEndsOfTheirRange) {
    const std::int32_t lowest = std::numeric_limits<std::int32_t>::min();
    const std::int32_t highest = std::numeric_limits<std::int32_t>::max();
    EXPECT_EQ(shown({lowest, highest}), (Numbers{lowest}));
    EXPECT_EQ(shown({lowest, highest}), (Numbers{highest}));
    EXPECT_EQ(shown({lowest, highest, lowest}), Numbers());
}

constexpr const char* kGrown =
    "MappableStorageFile mapPtr. Ensure offset is n multiple memory page "
    "size.:name()<data.vd>offset<53248>n<1444>GetLastError()<22>";

// The number of looks that fail `failing` times with the text.
int looksAt(int failing, const char* text) {
    int looks = 0;
    try {
        vdcat::lookBesideServer([&] {
            if (looks++ < failing)
                throw tool::Failure(tool::kMalformed, text);
        });
    } catch (const tool::Failure& failure) {
        EXPECT_STREQ(failure.what(), text);
        return -looks;
    }
    return looks;
}

TEST(LookBesideServer, IsTakenAgainWhereTheFileGrew) {
    EXPECT_EQ(looksAt(0, ""), 1);
    EXPECT_EQ(looksAt(1, kGrown), 2);
    EXPECT_EQ(looksAt(9, kGrown), 10);
}

TEST(LookBesideServer, OtherFailuresAndOneThatStaysAreLetOut) {
    EXPECT_EQ(looksAt(1, "File type is incorrect"), -1);
    EXPECT_EQ(looksAt(100, kGrown), -10);
}

} // namespace

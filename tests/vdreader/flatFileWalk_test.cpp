#include "flatFileWalk.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <set>
#include <vector>

#include "support/raised.h"
#include "support/scopedCalls.h"
#include "support/tempFolder.h"
#include "vdreader/errors.hpp"

namespace {

struct Record {
    char bytes[200];
};

std::vector<int> seen;
std::set<const Record*> buffers;
std::function<std::int32_t()> answer;

std::int32_t note(Record* record) {
    seen.push_back(static_cast<unsigned char>(record->bytes[0]) +
                   256 * static_cast<unsigned char>(record->bytes[1]));
    buffers.insert(record);
    record->bytes[0] = '#'; // a callback may write to what it was given
    return answer ? answer() : 1;
}

std::string records(int count) {
    std::string bytes;
    for (int i = 0; i < count; ++i) {
        std::string record(sizeof(Record), 'r');
        record[0] = static_cast<char>(i % 256);
        record[1] = static_cast<char>(i / 256);
        bytes += record;
    }
    return bytes;
}

// The table's own stream calls, for those that stand in for them.
const platform::Calls* real = nullptr;
std::int64_t toldLength = 0;
int openStreams = 0;

class FlatFileWalk : public testing::Test {
  protected:
    FlatFileWalk() {
        seen.clear();
        buffers.clear();
        answer = nullptr;
        real = &m_scope.saved();
    }

    std::int32_t walk(const std::string& bytes) {
        return walkFlatFile<Record>(m_folder.write("f", bytes), "no %s", note);
    }

    static std::vector<int> upTo(int count) {
        std::vector<int> numbers;
        for (int i = 0; i < count; ++i)
            numbers.push_back(i);
        return numbers;
    }

    TempFolder m_folder;

  private:
    ScopedCalls m_scope;
};

} // namespace

TEST_F(FlatFileWalk, EmptyFileCallsNothing) {
    EXPECT_EQ(walk(""), 1);
    EXPECT_TRUE(seen.empty());
}

TEST_F(FlatFileWalk, EveryRecordInOrderThroughOneBuffer) {
    EXPECT_EQ(walk(records(2)), 1);
    EXPECT_EQ(seen, upTo(2));
    seen.clear();
    EXPECT_EQ(walk(records(1000)), 1);
    EXPECT_EQ(seen, upTo(1000));
    EXPECT_LE(buffers.size(), 2u) << "one for each walk";
}

TEST_F(FlatFileWalk, BlockBordersLoseNothing) {
    std::vector<std::size_t> asked;
    static std::vector<std::size_t>* sizes;
    sizes = &asked;
    platform::calls.readStream = [](void* out, std::size_t size, std::size_t count,
                                    std::FILE* stream) {
        sizes->push_back(count);
        return real->readStream(out, size, count, stream);
    };
    walk(records(3000));
    ASSERT_GT(asked.size(), 2u) << "several blocks";
    int border = 0;
    for (const std::size_t block : std::vector<std::size_t>(asked)) {
        border += static_cast<int>(block);
        for (const int count : {border - 1, border, border + 1}) {
            seen.clear();
            EXPECT_EQ(walk(records(count)), 1);
            EXPECT_EQ(seen, upTo(count)) << count;
        }
    }
}

TEST_F(FlatFileWalk, ShortLastRecordIsLeftOut) {
    EXPECT_EQ(walk(records(2).substr(0, 201)), 1);
    EXPECT_EQ(seen, upTo(1));
    seen.clear();
    EXPECT_EQ(walk(records(1).substr(0, 199)), 1);
    EXPECT_TRUE(seen.empty());
}

TEST_F(FlatFileWalk, CallbackResultsStopTheWalk) {
    for (const auto& [result, expected] :
         std::vector<std::pair<int, int>>{{2, 1}, {0, 0}, {3, 0}, {-1, 0}}) {
        seen.clear();
        const int value = result;
        answer = [value] { return seen.size() == 2 ? value : 1; };
        EXPECT_EQ(walk(records(5)), expected) << result;
        EXPECT_EQ(seen, upTo(2)) << result;
    }
}

TEST_F(FlatFileWalk, MissingFileRaisesItsText) {
    const std::string none = m_folder.name("none");
    const auto error = raised<CError>([&] { walkFlatFile<Record>(none, "no %s", note); });
    ASSERT_TRUE(error);
    EXPECT_EQ(error->what(), "no " + none);
}

TEST_F(FlatFileWalk, FileThatShrinksEndsTheWalkSoon) {
    const std::size_t least = 16 * 1024 / sizeof(Record);
    const std::size_t most = 1024 * 1024 / sizeof(Record);
    for (const std::size_t shrinksAt : {std::size_t{1}, std::size_t{500}, std::size_t{10000}}) {
        const std::size_t ahead = std::clamp(shrinksAt, least, most);
        seen.clear();
        const std::string name = m_folder.write("f" + std::to_string(shrinksAt), records(20000));
        answer = [&] {
            if (seen.size() == shrinksAt)
                std::filesystem::resize_file(name, shrinksAt * sizeof(Record) + 7);
            return 1;
        };
        EXPECT_EQ(walkFlatFile<Record>(name, "no %s", note), 1);
        EXPECT_LE(seen.size(), shrinksAt + ahead);
        EXPECT_GE(seen.size(), shrinksAt);
    }
}

TEST_F(FlatFileWalk, FileThatGrowsIsReadToItsFormerLength) {
    const std::string name = m_folder.write("f", records(3));
    answer = [&] {
        if (seen.size() == 1)
            m_folder.write("f", records(900));
        return 1;
    };
    EXPECT_EQ(walkFlatFile<Record>(name, "no %s", note), 1);
    EXPECT_EQ(seen, upTo(3));
}

TEST_F(FlatFileWalk, StreamStaysOpen) {
    platform::calls.openStream = [](const char* path) {
        ++openStreams;
        return real->openStream(path);
    };
    openStreams = 0;
    walk(records(1));
    answer = [] { return 0; };
    walk(records(1));
    EXPECT_EQ(openStreams, 2) << "each walk opens the file anew";
    // A stream that the walk had closed would have given its place to the next one.
    std::set<std::FILE*> streams;
    static std::set<std::FILE*>* opened;
    opened = &streams;
    platform::calls.openStream = [](const char* path) {
        std::FILE* stream = real->openStream(path);
        opened->insert(stream);
        return stream;
    };
    for (int i = 0; i < 20; ++i)
        walk(records(1));
    EXPECT_EQ(streams.size(), 20u);
    for (std::FILE* stream : streams)
        EXPECT_EQ(std::fclose(stream), 0);
}

TEST_F(FlatFileWalk, LengthWrapsAtThirtyTwoBits) {
    platform::calls.tellStream = [](std::FILE*) { return toldLength; };
    toldLength = (std::int64_t{1} << 32) + 2 * sizeof(Record);
    EXPECT_EQ(walk(records(5)), 1);
    EXPECT_EQ(seen, upTo(2));
    seen.clear();
    toldLength = std::int64_t{1} << 32;
    EXPECT_EQ(walk(records(5)), 1);
    EXPECT_TRUE(seen.empty());
    toldLength = std::int64_t{3} << 30; // negative: never 0, so the end of the file ends the walk
    EXPECT_EQ(walk(records(1000)), 1);
    EXPECT_EQ(seen, upTo(1000));
    seen.clear();
    toldLength = -1; // a stream that cannot tell
    EXPECT_EQ(walk(records(3)), 1);
    EXPECT_EQ(seen, upTo(3));
}

TEST_F(FlatFileWalk, RestOfLessThanARecordAsksForAWholeOne) {
    platform::calls.tellStream = [](std::FILE*) { return toldLength; };
    toldLength = sizeof(Record) + 10;
    EXPECT_EQ(walk(records(4)), 1);
    EXPECT_EQ(seen, upTo(4)) << "the file has grown, and its length is never met exactly";
}

TEST_F(FlatFileWalk, FolderIsNoFile) {
    const std::string folder = m_folder.path().string();
    EXPECT_EQ(raisedText([&] { walkFlatFile<Record>(folder, "no %s", note); }), "no " + folder);
}

TEST_F(FlatFileWalk, FailedSeeksChangeNothing) {
    platform::calls.seekStream = [](std::FILE*, std::int64_t, int) { return false; };
    platform::calls.tellStream = [](std::FILE*) { return std::int64_t{2 * sizeof(Record)}; };
    EXPECT_EQ(walk(records(4)), 1);
    EXPECT_EQ(seen, upTo(2));
}

TEST_F(FlatFileWalk, FailedReadEndsTheWalk) {
    platform::calls.readStream = [](void*, std::size_t, std::size_t, std::FILE*) {
        return std::size_t{0};
    };
    EXPECT_EQ(walk(records(4)), 1);
    EXPECT_TRUE(seen.empty());
}

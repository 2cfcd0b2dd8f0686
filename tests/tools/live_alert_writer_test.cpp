// What the live writer leaves in alert.vd.

#include "live/alertWriter.h"

#include <gtest/gtest.h>

#include "live/pattern.h"
#include "live/words.h"
#include "sample/output.h"
#include "support/cursor.h"
#include "support/tempFolder.h"

using namespace toolTest;

namespace {

class LiveAlertWriter : public testing::Test {
  protected:
    LiveAlertWriter() { write({}); }

    void write(const std::vector<sample::Alert>& alerts,
               const sample::AlertFileOptions& options = {}) {
        sample::writeFile(path(), sample::encodeAlertFile(alerts, options));
    }

    std::string path() const { return folder.file("alert.vd"); }

    // The body of a record, found the way a reader finds it.
    static std::string bodyOf(const std::string& bytes, std::uint64_t number, std::size_t size) {
        const std::uint64_t table = wordAt(bytes, wordAt(bytes, 3) + number / 16'384);
        const std::uint64_t head = wordAt(bytes, table + number % 16'384);
        return Cursor(bytes, wordAt(bytes, head) * 8).bytes(size);
    }

    static std::uint64_t wordAt(const std::string& bytes, std::uint64_t word) {
        return Cursor(bytes, word * 8).number<std::uint64_t>();
    }

    void expectRefused(live::Error::Kind kind, const std::string& text) {
        try {
            live::AlertWriter writer(path());
            writer.append({});
            FAIL() << "appended: " << text;
        } catch (const live::Error& error) {
            EXPECT_EQ(error.kind, kind);
            EXPECT_NE(std::string(error.what()).find(path()), std::string::npos) << error.what();
            EXPECT_NE(std::string(error.what()).find(text), std::string::npos) << error.what();
        }
    }

    const TempFolder folder;
};

TEST_F(LiveAlertWriter, FirstRecordMakesTheTables) {
    live::AlertWriter writer(path());
    EXPECT_EQ(writer.count(), 0u);
    sample::Alert alert = live::patternAlert(7);
    EXPECT_EQ(writer.append(alert), 0u);
    EXPECT_EQ(writer.count(), 1u);
    const std::string bytes = readFile(path());
    EXPECT_EQ(wordAt(bytes, 3), 100u);
    EXPECT_EQ(wordAt(bytes, 100), 100u + 16'384u);
    EXPECT_EQ(wordAt(bytes, 4), 1u);
    const std::string body = sample::encodeAlert(alert);
    EXPECT_EQ(bodyOf(bytes, 0, body.size()), body);
    const std::uint64_t head = wordAt(bytes, 16'484);
    EXPECT_EQ(Cursor(bytes, (head + 2) * 8).number<std::uint32_t>(), alert.word1);
    EXPECT_EQ(wordAt(bytes, 2), 100u + 2 * 16'384u + (body.size() + 7) / 8 + 3);
    EXPECT_EQ(bytes.size() % 65'536, 0u);
    EXPECT_GE(bytes.size(), wordAt(bytes, 2) * 8 + 480);
}

TEST_F(LiveAlertWriter, RecordsFollowThoseOfTheFile) {
    write({live::patternAlert(0), live::patternAlert(1)}, {.gapWords = 5});
    {
        live::AlertWriter writer(path());
        for (std::uint64_t number = 2; number < 3000; ++number)
            ASSERT_EQ(writer.append(live::patternAlert(number)), number);
    }
    const std::string bytes = readFile(path());
    EXPECT_EQ(wordAt(bytes, 4), 3000u);
    for (std::uint64_t number = 0; number < 3000; ++number) {
        const std::string body = sample::encodeAlert(live::patternAlert(number));
        ASSERT_TRUE(bodyOf(bytes, number, body.size()) == body) << number;
    }
}

TEST_F(LiveAlertWriter, FullTableIsFollowedByASecond) {
    write({{}}, {.numbers = {16'383}});
    live::AlertWriter writer(path());
    const sample::Alert alert = live::patternAlert(3);
    EXPECT_EQ(writer.append(alert), 16'384u);
    const std::string bytes = readFile(path());
    EXPECT_NE(wordAt(bytes, wordAt(bytes, 3) + 1), 0u);
    const std::string body = sample::encodeAlert(alert);
    EXPECT_EQ(bodyOf(bytes, 16'384, body.size()), body);
}

// A reader that looked for a record behind the last one has made a table and moved word 2.
TEST_F(LiveAlertWriter, TablesOfAReaderAreUsed) {
    live::AlertWriter writer(path());
    {
        live::SharedFile reader(path());
        reader.growTo(0, 4 * 65'536);
        const live::View view = reader.map(0, 4 * 65'536);
        live::store<std::uint64_t>(view.at(2 * 8), 200 + 16'384);
        live::store<std::uint64_t>(view.at(3 * 8), 200);
    }
    EXPECT_EQ(writer.append({}), 0u);
    const std::string bytes = readFile(path());
    EXPECT_EQ(wordAt(bytes, 3), 200u);
    EXPECT_EQ(wordAt(bytes, 200), 200u + 16'384u);
    EXPECT_EQ(bodyOf(bytes, 0, 137), sample::encodeAlert({}));
}

TEST_F(LiveAlertWriter, FileThatAReaderMadeLargerIsFollowed) {
    live::AlertWriter writer(path());
    writer.append(live::patternAlert(0));
    live::SharedFile(path()).growTo(0, 10'000'000);
    for (std::uint64_t number = 1; number < 500; ++number)
        writer.append(live::patternAlert(number));
    EXPECT_EQ(readFile(path()).size(), 10'000'000u);
}

// What an ended server wrote behind the last block and never counted.
TEST_F(LiveAlertWriter, TablesBeginEmptyWhateverStoodThere) {
    write({}, {.damage = {{100 + 5, 7}}});
    live::AlertWriter writer(path());
    writer.append({});
    EXPECT_EQ(wordAt(readFile(path()), 3), 100u);
    EXPECT_EQ(wordAt(readFile(path()), 100 + 5), 0u);
}

TEST_F(LiveAlertWriter, LowNextFreeWordCountsAsTheFirstBehindTheHeader) {
    write({}, {.storedNextFree = 7});
    live::AlertWriter writer(path());
    writer.append({});
    EXPECT_EQ(wordAt(readFile(path()), 3), 100u);
}

TEST_F(LiveAlertWriter, DamagedFilesAreRefused) {
    using Kind = live::Error::Kind;
    write({}, {.magic1 = 5});
    expectRefused(Kind::Malformed, "another magic number");
    write({{}}, {.storedRoot = 1ull << 41});
    expectRefused(Kind::Malformed, "word 2199023255552 is not in the file");
    write({{}}, {.storedRoot = UINT64_MAX});
    expectRefused(Kind::Malformed, "is not in the file");
    write({{}}, {.storedNextFree = 1ull << 41});
    expectRefused(Kind::Malformed, "the next free word lies too far");
    write({{}}, {.storedCount = 268'435'456});
    expectRefused(Kind::Malformed, "no table reaches");
    sample::writeFile(path(), std::string(70'000, '\0'));
    expectRefused(Kind::Malformed, "another magic number");
    std::filesystem::remove(path());
    expectRefused(Kind::CannotOpen, "cannot open");
}

} // namespace

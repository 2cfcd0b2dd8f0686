// What the live writer leaves in data.vd, byte by byte and in which order.

#include "live/dataWriter.h"

#include <gtest/gtest.h>

#include <fstream>
#include <thread>

#include "live/pattern.h"
#include "sample/output.h"
#include "support/cursor.h"
#include "support/tempFolder.h"

using namespace toolTest;

namespace {

constexpr std::uint32_t kPageSize = 4 * 32 + 24; // four records without values

// Two slots a page, five pages.
sample::DataFile smallFile() {
    sample::DataFile file;
    file.header.maxSecs = 9;
    file.header.dataPageSize = 2 * 1080;
    file.header.eventPageSize = kPageSize;
    return file;
}

sample::Record recordOf(std::uint32_t secId) {
    sample::Record made;
    made.sec_id = secId;
    return made;
}

class LiveDataWriter : public testing::Test {
  protected:
    LiveDataWriter() { write(smallFile()); }

    void write(const sample::DataFile& file) {
        sample::writeDataFile(folder.path() / "data.vd", file, &layout);
    }

    std::string path() const { return folder.file("data.vd"); }
    std::string bytes() const { return readFile(path()); }

    template <typename Number>
    Number at(std::uint64_t offset) const {
        const std::string whole = bytes();
        return Cursor(whole, offset).number<Number>();
    }

    std::uint64_t pagePoint(std::uint64_t page) const {
        return layout.eventPages[0].point + page * (kPageSize + 28);
    }

    void expectRefused(live::Error::Kind kind, const std::string& text) {
        try {
            live::DataWriter writer(path());
            FAIL() << "opened: " << text;
        } catch (const live::Error& error) {
            EXPECT_EQ(error.kind, kind);
            EXPECT_NE(std::string(error.what()).find(path()), std::string::npos) << error.what();
            EXPECT_NE(std::string(error.what()).find(text), std::string::npos) << error.what();
        }
    }

    const TempFolder folder;
    sample::DataFileLayout layout;
};

TEST_F(LiveDataWriter, SlotGoesToItsPlaceAndBack) {
    live::DataWriter writer(path());
    ASSERT_EQ(writer.slotCount(), 9u);
    sample::Slot slot = live::patternSlot(-5, 77);
    slot.filled = 3;
    writer.writeSlot(8, slot);
    const std::string stored = bytes().substr(smallFile().header.slotOffset(8), 1080);
    EXPECT_EQ(stored.substr(0, 4), std::string(4, '\0'));
    EXPECT_EQ(Cursor(stored, 8).number<std::uint16_t>(), 3u);
    EXPECT_EQ(Cursor(stored, 28).number<std::int32_t>(), -5);
    EXPECT_EQ(stored.substr(36, 16), std::string(16, '\xFF'));
    EXPECT_EQ(live::stampOf(stored.data() + 56), 77u);
    const sample::Slot back = writer.readSlot(8);
    EXPECT_EQ(back.filled, 3u);
    EXPECT_EQ(back.class_id, -5);
    EXPECT_EQ(back.mask, slot.mask);
    EXPECT_EQ(back.values, slot.values);
    EXPECT_THROW(writer.readSlot(9), std::out_of_range);
    EXPECT_THROW(writer.writeSlot(9, slot), std::out_of_range);
    EXPECT_THROW(writer.lockSlot(UINT32_MAX), std::out_of_range);
}

TEST_F(LiveDataWriter, SlotsAreNoMoreThanThePagesHold) {
    sample::DataFile file = smallFile();
    file.header.maxSecs = 50'000;
    file.header.dataPageCount = 3;
    write(file);
    EXPECT_EQ(live::DataWriter(path()).slotCount(), 6u);
}

TEST_F(LiveDataWriter, LockWordIsOneWhileHeld) {
    live::DataWriter writer(path());
    const std::uint64_t lock = smallFile().header.slotOffset(4);
    ASSERT_TRUE(writer.tryLockSlot(4));
    EXPECT_EQ(at<std::uint32_t>(lock), 1u);
    EXPECT_FALSE(writer.tryLockSlot(4));
    writer.writeLocked(4, live::patternSlot(1, 2));
    EXPECT_EQ(at<std::uint32_t>(lock), 1u);
    EXPECT_EQ(writer.readLocked(4).class_id, 1);
    writer.unlockSlot(4);
    EXPECT_EQ(at<std::uint32_t>(lock), 0u);
    writer.lockSlot(4);
    EXPECT_EQ(at<std::uint32_t>(lock), 1u);
    writer.unlockSlot(4);
}

// Two mappings of the file, as two processes have them.
TEST_F(LiveDataWriter, WritersUnderTheLockNeverMix) {
    live::DataWriter first(path());
    live::DataWriter second(path());
    constexpr std::uint32_t kRounds = 20'000;
    first.writeSlot(3, live::patternSlot(1, 0));
    std::thread other([&] {
        for (std::uint32_t i = 0; i < kRounds; ++i)
            second.writeSlot(3, live::patternSlot(2, 2 * i + 1));
    });
    std::uint32_t torn = 0;
    for (std::uint32_t i = 0; i < kRounds; ++i) {
        const sample::Slot seen = first.readSlot(3);
        const auto stamp = live::stampOf(seen.values.data());
        torn += !stamp || seen.class_id != (*stamp % 2 ? 2 : 1);
        first.writeSlot(3, live::patternSlot(1, 2 * i));
    }
    other.join();
    EXPECT_EQ(torn, 0u);
}

TEST_F(LiveDataWriter, RecordsFollowOneAnotherUnderRisingNumbers) {
    live::DataWriter writer(path());
    EXPECT_EQ(writer.nextNumber(), 1);
    sample::Record record = recordOf(7);
    record.dataField1 = 99;
    record.longs = {5};
    EXPECT_EQ(writer.appendRecord(record), 1);
    EXPECT_EQ(writer.appendRecord(recordOf(8)), 2);
    record.dataField1 = 1;
    sample::Record second = recordOf(8);
    second.dataField1 = 2;
    const std::string expected = sample::encodeRecord(record) + sample::encodeRecord(second);
    EXPECT_EQ(bytes().substr(pagePoint(0) + 24, expected.size()), expected);
    EXPECT_EQ(at<std::uint32_t>(pagePoint(0) + 8), expected.size());
    EXPECT_EQ(at<std::uint32_t>(pagePoint(0) + 20), 2u);
    EXPECT_EQ(writer.pagesOpened(), 0u);
    EXPECT_EQ(at<std::uint32_t>(24 + 100), 1u);
}

TEST_F(LiveDataWriter, FullPageIsFollowedByANewOneAndAZeroBlock) {
    live::DataWriter writer(path());
    for (int i = 0; i < 5; ++i)
        writer.appendRecord(recordOf(1));
    EXPECT_EQ(writer.pagesOpened(), 1u);
    EXPECT_EQ(at<std::uint32_t>(pagePoint(0) + 8), 4 * 32u); // 24 bytes stay free
    const std::uint64_t point = pagePoint(1);
    EXPECT_EQ(at<std::uint16_t>(point), 0xFFED);
    EXPECT_EQ(at<std::uint32_t>(point + 4), kPageSize);
    EXPECT_EQ(at<std::uint32_t>(point + 8), 32u);
    EXPECT_EQ(at<std::uint64_t>(point + 12), point);
    EXPECT_EQ(at<std::uint32_t>(point + 20), 1u);
    EXPECT_EQ(at<std::int32_t>(point + 24 + 8), 5);
    EXPECT_EQ(at<std::uint64_t>(24 + 88), point);
    EXPECT_EQ(at<std::uint32_t>(24 + 100), 2u);
    EXPECT_GE(bytes().size(), pagePoint(3));
    EXPECT_EQ(bytes().find_first_not_of('\0', pagePoint(2)), std::string::npos);
}

// Three records of 32 bytes, and one of 56 that would end with the page.
TEST_F(LiveDataWriter, TailOfAPageStaysFree) {
    live::DataWriter writer(path());
    for (int i = 0; i < 3; ++i)
        writer.appendRecord(recordOf(1));
    sample::Record record = recordOf(1);
    record.doubles.resize(3);
    writer.appendRecord(record);
    EXPECT_EQ(writer.pagesOpened(), 1u);
    EXPECT_EQ(at<std::uint32_t>(pagePoint(0) + 8), 96u);
}

TEST_F(LiveDataWriter, ClosedPageGetsNoFurtherRecord) {
    live::DataWriter writer(path());
    writer.closePage(); // nothing to close
    writer.appendRecord(recordOf(1));
    EXPECT_EQ(writer.pagesOpened(), 0u);
    writer.closePage();
    writer.appendRecord(recordOf(1));
    writer.appendRecord(recordOf(1));
    EXPECT_EQ(writer.pagesOpened(), 1u);
    EXPECT_EQ(at<std::uint32_t>(pagePoint(1) + 20), 2u);
}

TEST_F(LiveDataWriter, BlockBehindIsZeroedWhateverStoodThere) {
    sample::DataFile file = smallFile();
    file.damage = {{layout.endOfPages + 24, std::string(kPageSize, 'x')}};
    write(file);
    live::DataWriter writer(path());
    EXPECT_EQ(bytes().find('x', layout.endOfPages), std::string::npos);
}

TEST_F(LiveDataWriter, FileThatEndsWithItsPageGrows) {
    sample::DataFile file = smallFile();
    file.zeroBlockBehind = false;
    write(file);
    live::DataWriter writer(path());
    EXPECT_EQ(bytes().size(), pagePoint(2));
    writer.growBy(1'000'000);
    EXPECT_EQ(bytes().size(), pagePoint(2) + 1'000'000);
    writer.appendRecord(recordOf(1));
    EXPECT_EQ(bytes().size(), pagePoint(2) + 1'000'000);
}

TEST_F(LiveDataWriter, NumbersGoOnBehindThoseOfTheFile) {
    sample::DataFile file = smallFile();
    std::vector<sample::Record> records(6);
    for (int i = 0; i < 6; ++i)
        records[static_cast<std::size_t>(i)].dataField1 = 10 + i;
    file.eventPages = sample::packRecords(records, kPageSize);
    write(file);
    {
        live::DataWriter writer(path());
        EXPECT_EQ(writer.nextNumber(), 16);
        EXPECT_EQ(writer.appendRecord(recordOf(1)), 16);
    }
    EXPECT_EQ(at<std::uint32_t>(pagePoint(1) + 20), 3u);
    EXPECT_EQ(live::DataWriter(path()).nextNumber(), 17);
}

// A server that ended between the first record of a page and the header.
TEST_F(LiveDataWriter, PageThatTheHeaderDoesNotNameYetIsFound) {
    sample::DataFile file = smallFile();
    std::vector<sample::Record> records(5);
    records[4].dataField1 = 50;
    file.eventPages = sample::packRecords(records, kPageSize);
    file.header.currentEventPage = pagePoint(0);
    file.header.eventPageCount = 1;
    write(file);
    live::DataWriter writer(path());
    EXPECT_EQ(writer.nextNumber(), 51);
    EXPECT_EQ(at<std::uint64_t>(24 + 88), pagePoint(1));
    EXPECT_EQ(at<std::uint32_t>(24 + 100), 2u);
}

// Or before it: the page that the header names is empty.
TEST_F(LiveDataWriter, NumbersGoOnBehindAnEmptyPage) {
    sample::DataFile file = smallFile();
    file.eventPages.resize(2);
    file.eventPages[0].records.resize(2);
    file.eventPages[0].records[1].dataField1 = 31;
    write(file);
    live::DataWriter writer(path());
    EXPECT_EQ(writer.appendRecord(recordOf(1)), 32);
    EXPECT_EQ(at<std::uint32_t>(pagePoint(1) + 20), 1u);
}

TEST_F(LiveDataWriter, StampTellsWhetherTheFileIsOpen) {
    {
        live::DataWriter writer(path());
        EXPECT_EQ(at<std::uint32_t>(24 + 96), 0u);
        writer.setElements(-4);
        EXPECT_EQ(at<std::int32_t>(24 + 44), -4);
    }
    EXPECT_EQ(at<std::uint32_t>(24 + 96), 0xDDFDDFDDu);
    live::DataWriter writer(path());
    EXPECT_EQ(at<std::uint32_t>(24 + 96), 0u);
}

TEST_F(LiveDataWriter, RecordThatFitsNoPageIsRefused) {
    live::DataWriter writer(path());
    sample::Record record = recordOf(1);
    record.longs.resize(24); // 128 bytes: a page to the last byte that is not kept free
    EXPECT_EQ(writer.appendRecord(record), 1);
    record.longs.resize(25);
    EXPECT_THROW(writer.appendRecord(record), std::length_error);
    EXPECT_EQ(writer.nextNumber(), 2);
    EXPECT_EQ(writer.pagesOpened(), 0u);
}

TEST_F(LiveDataWriter, DamagedFilesAreRefused) {
    using Kind = live::Error::Kind;
    const auto damaged = [&](std::uint64_t offset, const std::string& bytes) {
        sample::DataFile file = smallFile();
        file.damage = {{24 + offset, bytes}};
        write(file);
    };
    const auto word = [](std::uint32_t value) {
        return std::string(reinterpret_cast<const char*>(&value), sizeof value);
    };
    damaged(0, "1");
    expectRefused(Kind::Malformed, "another signature");
    damaged(56, word(1076));
    expectRefused(Kind::Malformed, "the sizes of the pages");
    damaged(72, word(kPageSize + 2));
    expectRefused(Kind::Malformed, "the sizes of the pages");
    damaged(64, word(133));
    expectRefused(Kind::Malformed, "a page lies where no page can be");
    damaged(92, word(1u << 30));
    expectRefused(Kind::Malformed, "a page lies where no page can be");
    damaged(52, word(6));
    expectRefused(Kind::Malformed, "the event pages begin inside");
    damaged(88, word(132));
    expectRefused(Kind::Malformed, "the current event page");
    sample::writeFile(path(), "short");
    expectRefused(Kind::Malformed, "the file ends early");
    std::filesystem::remove(path());
    expectRefused(Kind::CannotOpen, "cannot open");
}

} // namespace

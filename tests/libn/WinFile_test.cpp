#include "libn/WinFile.h"

#include <gtest/gtest.h>

#include <string>
#include <type_traits>
#include <vector>

#include "fakeHandles.h"
#include "support/countedNew.h"
#include "support/scopedCalls.h"
#include "support/slot.h"
#include "support/tempFolder.h"

namespace {

using namespace fakeFiles;
using libn::IFile;
using libn::WinFile;
using platform::StorageAccess;
using platform::StorageHandle;

constexpr std::int64_t kNowhere = -99;

// What a file reads in front of its end.
std::string readAll(IFile& file, std::uint64_t most = 1000) {
    std::string bytes(most, '#');
    std::uint64_t done = 0;
    return file.read(bytes.data(), most, &done) ? bytes.substr(0, done) : "(failed)";
}

bool write(IFile& file, const std::string& bytes) {
    return file.write(bytes.data(), bytes.size());
}

} // namespace

// ---- the interface ----

TEST(IFileInterface, VirtualOperationsStandInTheirOrder) {
    static_assert(std::has_virtual_destructor_v<IFile>);
    EXPECT_EQ(slotOf(&IFile::openExisting), 2);
    EXPECT_EQ(slotOf(&IFile::openAlways), 3);
    EXPECT_EQ(slotOf(&IFile::create), 4);
    EXPECT_EQ(slotOf(&IFile::read), 5);
    EXPECT_EQ(slotOf(&IFile::write), 6);
    EXPECT_EQ(slotOf(&IFile::seek), 7);
    EXPECT_EQ(slotOf(&IFile::tell), 8);
    EXPECT_EQ(slotOf(&IFile::size), 9);
    EXPECT_EQ(slotOf(&IFile::close), 10);
    EXPECT_EQ(slotOf(&IFile::name), 11);
    EXPECT_EQ(slotOf(&IFile::isOpen), 12);
    EXPECT_EQ(slotOf(&IFile::writeAt), 13);
}

TEST(IFileInterface, IsPureAndTheFileIsNotCopied) {
    EXPECT_TRUE(std::is_abstract_v<IFile>);
    EXPECT_FALSE(std::is_copy_constructible_v<WinFile>);
    EXPECT_FALSE(std::is_copy_assignable_v<WinFile>);
    EXPECT_EQ(sizeof(WinFile), sizeof(void*) * 2 + sizeof(std::string));
}

// ---- opening and closing ----

TEST(WinFile, ClosedFileDoesNothing) {
    WinFile file;
    char byte = 'x';
    std::uint64_t done = 99;
    std::uint64_t size = 99;
    std::int64_t position = kNowhere;
    EXPECT_FALSE(file.isOpen());
    EXPECT_EQ(file.name(), "");
    EXPECT_FALSE(file.read(&byte, 1, &done));
    EXPECT_EQ(done, 99u);
    EXPECT_FALSE(file.write(&byte, 1));
    EXPECT_FALSE(file.write(&byte, 0));
    EXPECT_FALSE(file.append(&byte, 1));
    EXPECT_FALSE(file.append(&byte, 0));
    EXPECT_FALSE(file.writeAt(&byte, 1, 0));
    EXPECT_FALSE(file.seek(0, IFile::kFromBegin, &position));
    EXPECT_EQ(position, kNowhere);
    EXPECT_EQ(file.tell(), -1);
    EXPECT_FALSE(file.size(size));
    EXPECT_EQ(size, 0u);
    file.close();
    file.close();
    EXPECT_FALSE(file.isOpen());
}

TEST(WinFile, OpensAskForWhatTheyAreNamedAfter) {
    const FakeHandles handles;
    WinFile file;
    EXPECT_TRUE(file.openExisting("a", 0, false));
    EXPECT_TRUE(file.openExisting("b", 0, true));
    EXPECT_TRUE(file.openAlways("c", 0));
    EXPECT_TRUE(file.create("d", 0));
    EXPECT_TRUE(file.openExisting("e", 1, false));
    EXPECT_TRUE(file.openAlways("f", 1));
    EXPECT_TRUE(file.create("g", 1));
    EXPECT_TRUE(file.openAlways("h", 2));
    EXPECT_TRUE(file.openAlways("i", -1));
    EXPECT_EQ(noted.opens,
              (std::vector<std::string>{
                  "a existing read shared", "b existing write shared", "c always write shared",
                  "d create write shared", "e existing read shared sequential",
                  "f always write shared sequential", "g create write shared sequential",
                  "h always write shared", "i always write shared"}));
}

TEST(WinFile, OpenForWritingAsksForNothingElse) {
    const FakeHandles handles;
    WinFile file;
    EXPECT_TRUE(file.openForWriting("a"));
    EXPECT_TRUE(file.openForWriting("b"));
    EXPECT_EQ(noted.opens, (std::vector<std::string>{"a always write only shared",
                                                     "b always write only shared"}));
    EXPECT_EQ(noted.closed, std::vector{handle(1)});
    EXPECT_EQ(file.name(), "b");
}

TEST(WinFile, FileOpenForWritingIsMadeAndKeepsItsContent) {
    const TempFolder folder;
    WinFile file;
    ASSERT_TRUE(file.openForWriting(folder.write("f", "abc").c_str()));
    EXPECT_EQ(readAll(file), "(failed)");
    EXPECT_TRUE(file.append("d", 1));
    EXPECT_EQ(file.tell(), 4);
    EXPECT_EQ(folder.read("f"), "abcd");
    EXPECT_TRUE(file.openForWriting(folder.name("new").c_str()));
    EXPECT_TRUE(file.append("x", 1));
    EXPECT_EQ(folder.read("new"), "x");
    EXPECT_FALSE(file.openForWriting(folder.name("none/f").c_str()));
    EXPECT_FALSE(file.openForWriting(nullptr));
    EXPECT_EQ(file.name(), "");
}

TEST(WinFile, EachOpenClosesWhatWasOpen) {
    const FakeHandles handles;
    {
        WinFile file;
        file.create("a", 0);
        EXPECT_TRUE(noted.closed.empty());
        file.openAlways("b", 0);
        EXPECT_EQ(noted.closed, std::vector{handle(1)});
        EXPECT_EQ(file.name(), "b");
        EXPECT_TRUE(file.isOpen());
    }
    EXPECT_EQ(noted.closed, (std::vector{handle(1), handle(2)}));
}

TEST(WinFile, CloseHappensOnceAlsoWhenItFails) {
    const FakeHandles handles;
    {
        WinFile file;
        file.create("a", 0);
        file.close();
        EXPECT_FALSE(file.isOpen());
        EXPECT_EQ(file.name(), "a");
        file.close();
    }
    EXPECT_EQ(noted.closed, std::vector{handle(1)});
}

TEST(WinFile, FailedOpenKeepsTheNameAndClosesNothing) {
    const FakeHandles handles;
    platform::calls.openStorage = [](const char* path, StorageAccess) {
        noted.opens.emplace_back(path);
        return platform::kInvalidStorage;
    };
    {
        WinFile file;
        std::uint64_t size = 99;
        EXPECT_FALSE(file.openExisting("none", 0, true));
        EXPECT_FALSE(file.isOpen());
        EXPECT_EQ(file.name(), "none");
        EXPECT_EQ(file.tell(), -1);
        EXPECT_FALSE(file.size(size));
        EXPECT_FALSE(file.write("x", 1));
        EXPECT_FALSE(file.openAlways("none", 0));
        EXPECT_FALSE(file.create("none", 0));
        file.close();
    }
    EXPECT_EQ(noted.opens.size(), 3u);
    EXPECT_TRUE(noted.closed.empty());
}

TEST(WinFile, NullNameIsAnEmptyOneWhichNothingOpens) {
    WinFile file;
    EXPECT_FALSE(file.openExisting(nullptr, 0, false));
    EXPECT_FALSE(file.openAlways(nullptr, 0));
    EXPECT_FALSE(file.create(nullptr, 0));
    EXPECT_EQ(file.name(), "");
}

TEST(WinFile, OpensAgainByItsOwnName) {
    const TempFolder folder;
    WinFile file;
    ASSERT_TRUE(file.create(folder.name("f").c_str(), 0));
    EXPECT_TRUE(file.openExisting(file.name().c_str(), 0, false));
    EXPECT_EQ(file.name(), folder.name("f"));
}

TEST(WinFile, DispositionsDecideWhatBecomesOfTheFile) {
    const TempFolder folder;
    const std::string path = folder.write("f", "abc");
    const std::string none = folder.name("none");
    WinFile file;
    EXPECT_FALSE(file.openExisting(none.c_str(), 0, true));
    EXPECT_TRUE(file.openExisting(path.c_str(), 0, false));
    EXPECT_EQ(readAll(file), "abc");
    EXPECT_FALSE(write(file, "x")) << "opened for reading";
    EXPECT_TRUE(file.openExisting(path.c_str(), 0, true));
    EXPECT_TRUE(write(file, "x"));
    EXPECT_TRUE(file.openAlways(path.c_str(), IFile::kSequential));
    EXPECT_EQ(readAll(file), "xbc");
    EXPECT_TRUE(file.openAlways(none.c_str(), 0));
    EXPECT_TRUE(file.create(path.c_str(), 0));
    EXPECT_EQ(readAll(file), "");
    file.close();
    EXPECT_EQ(folder.read("f"), "");
    EXPECT_EQ(folder.read("none"), "");
}

TEST(WinFile, OthersReadAndWriteMeanwhile) {
    const TempFolder folder;
    WinFile first;
    WinFile second;
    ASSERT_TRUE(first.create(folder.name("f").c_str(), 0));
    EXPECT_TRUE(write(first, "abc"));
    ASSERT_TRUE(second.openExisting(folder.name("f").c_str(), 0, true));
    EXPECT_TRUE(write(second, "12"));
    EXPECT_TRUE(first.seek(0, IFile::kFromBegin, nullptr));
    EXPECT_EQ(readAll(first), "12c");
}

// ---- the position ----

TEST(WinFileSeek, CountsFromThreeOrigins) {
    const TempFolder folder;
    WinFile file;
    ASSERT_TRUE(file.openAlways(folder.write("f", "0123456789").c_str(), 0));
    std::int64_t position = kNowhere;
    EXPECT_TRUE(file.seek(4, 0, &position));
    EXPECT_EQ(position, 4);
    EXPECT_TRUE(file.seek(3, 1, &position));
    EXPECT_EQ(position, 7);
    EXPECT_TRUE(file.seek(-4, 2, &position));
    EXPECT_EQ(position, 6);
    EXPECT_EQ(file.tell(), 6);
    EXPECT_TRUE(file.seek(100, 0, nullptr));
    EXPECT_EQ(file.tell(), 100);
}

TEST(WinFileSeek, UnknownOriginMovesNothing) {
    const TempFolder folder;
    WinFile file;
    ASSERT_TRUE(file.openAlways(folder.write("f", "0123").c_str(), 0));
    file.seek(2, 0, nullptr);
    for (const std::uint32_t origin : {3u, 4u, 0xFFFFFFFFu}) {
        std::int64_t position = kNowhere;
        EXPECT_FALSE(file.seek(1, origin, &position)) << origin;
        EXPECT_EQ(position, kNowhere);
    }
    std::int64_t position = kNowhere;
    EXPECT_FALSE(file.seek(-1, IFile::kFromBegin, &position));
    EXPECT_EQ(position, kNowhere);
    EXPECT_EQ(file.tell(), 2);
}

TEST(WinFileSeek, FailedMoveIsTold) {
    const FakeHandles handles;
    platform::calls.moveStorage = [](StorageHandle, std::int64_t, platform::SeekOrigin,
                                     std::int64_t*) { return false; };
    WinFile file;
    file.create("a", 0);
    std::int64_t position = kNowhere;
    EXPECT_FALSE(file.seek(0, IFile::kFromEnd, &position));
    EXPECT_EQ(position, kNowhere);
    EXPECT_EQ(file.tell(), -1);
}

TEST(WinFileSize, IsThatOfTheFileAndZeroOnFailure) {
    const TempFolder folder;
    WinFile file;
    std::uint64_t size = 99;
    ASSERT_TRUE(file.openAlways(folder.write("f", "0123").c_str(), 0));
    EXPECT_TRUE(file.size(size));
    EXPECT_EQ(size, 4u);
    ASSERT_TRUE(file.create(folder.name("f").c_str(), 0));
    EXPECT_TRUE(file.size(size));
    EXPECT_EQ(size, 0u);
    const ScopedCalls calls;
    platform::calls.storageSize = [](StorageHandle) { return std::int64_t{-1}; };
    size = 99;
    EXPECT_FALSE(file.size(size));
    EXPECT_EQ(size, 0u);
}

TEST(WinFileWriteAt, WritesAtAPlaceAndGoesToTheEnd) {
    const TempFolder folder;
    WinFile file;
    ASSERT_TRUE(file.openAlways(folder.write("f", "0123456789").c_str(), 0));
    EXPECT_TRUE(file.writeAt("ab", 2, 3));
    EXPECT_EQ(file.tell(), 10);
    EXPECT_TRUE(write(file, "!"));
    EXPECT_TRUE(file.writeAt("cd", 2, 12));
    EXPECT_EQ(file.tell(), 14);
    EXPECT_EQ(folder.read("f"), std::string("012ab56789!\0cd", 14));
}

TEST(WinFileWriteAt, FindsItsPlaceAlsoBehindAnAppend) {
    const TempFolder folder;
    WinFile file;
    ASSERT_TRUE(file.openAlways(folder.write("f", "0123456789").c_str(), 0));
    EXPECT_TRUE(file.append("x", 1));
    EXPECT_TRUE(file.writeAt("ab", 2, 3));
    EXPECT_TRUE(file.append("y", 1));
    EXPECT_EQ(folder.read("f"), "012ab56789xy");
}

TEST(WinFileOpen, NameThatFindsNoMemoryIsAFailureAndNothingIsRaised) {
    const TempFolder folder;
    const std::string path = folder.write("a name that is longer than what needs no memory", "");
    WinFile file;
    {
        const FailingNew failing(0, 1);
        EXPECT_FALSE(file.openAlways(path.c_str(), 0));
    }
    EXPECT_FALSE(file.isOpen());
    EXPECT_TRUE(file.openAlways(path.c_str(), 0));
}

TEST(WinFileWriteAt, StopsAtTheFirstStepThatFails) {
    const TempFolder folder;
    WinFile file;
    ASSERT_TRUE(file.openAlways(folder.write("f", "0123456789").c_str(), 0));
    EXPECT_FALSE(file.writeAt("ab", 2, -1));
    EXPECT_EQ(file.tell(), 0);
    EXPECT_FALSE(file.writeAt(nullptr, 2, 5));
    EXPECT_EQ(file.tell(), 5) << "the place was reached";
    EXPECT_TRUE(file.writeAt("ab", 0, 5));
    EXPECT_EQ(file.tell(), 10) << "nothing to write is written";
    EXPECT_EQ(folder.read("f"), "0123456789");
    static const platform::Calls* real;
    const ScopedCalls calls;
    real = &calls.saved();
    platform::calls.moveStorage = [](StorageHandle handle, std::int64_t offset,
                                     platform::SeekOrigin origin, std::int64_t* position) {
        return origin != platform::SeekOrigin::end &&
               real->moveStorage(handle, offset, origin, position);
    };
    EXPECT_FALSE(file.writeAt("ab", 2, 0));
    EXPECT_EQ(file.tell(), 2) << "the end was not reached";
    EXPECT_EQ(folder.read("f"), "ab23456789");
}

#include "dwdata/ByteStream.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <string>

#include "support/scopedCalls.h"
#include "support/tempFolder.h"

namespace {

constexpr std::size_t kWindow = ByteStream::kWindowSize;

std::string pattern(std::size_t size) {
    std::string bytes(size, '\0');
    for (std::size_t i = 0; i < size; ++i)
        bytes[i] = static_cast<char>((i * 2654435761u) >> 13);
    return bytes;
}

std::string counted(std::uint32_t length, const std::string& bytes) {
    return std::string(reinterpret_cast<const char*>(&length), sizeof length) + bytes;
}

} // namespace

TEST(ByteStream, MissingFileIsNotOpenAndFailed) {
    const TempFolder folder;
    ByteStream stream(folder.name("none").c_str());
    EXPECT_FALSE(stream.isOpen());
    EXPECT_FALSE(stream.good());
    char c = 'x';
    stream.get(c);
    EXPECT_EQ(c, 'x');
    std::string text = "former";
    stream.readCountedString(text);
    EXPECT_EQ(text, "former");
}

TEST(ByteStream, EmptyFileFailsItsFirstRead) {
    const TempFolder folder;
    ByteStream stream(folder.write("f", "").c_str());
    EXPECT_TRUE(stream.good());
    EXPECT_EQ(stream.bytesLeft(), 0u);
    char c = 'x';
    stream.get(c);
    EXPECT_FALSE(stream.good());
    EXPECT_EQ(c, 'x');
}

TEST(ByteStream, ReadsFieldsInOrder) {
    const TempFolder folder;
    ByteStream stream(folder.write("f", std::string("\x01\x02\x03\x04xyz", 7)).c_str());
    std::uint32_t number = 0;
    char text[3] = {};
    stream.get(number);
    stream.get(text);
    EXPECT_EQ(number, 0x04030201u);
    EXPECT_EQ(std::string(text, 3), "xyz");
    EXPECT_TRUE(stream.good());
    EXPECT_EQ(stream.position(), 7u);
}

TEST(ByteStream, FieldThatIsNotThereWholeStaysAsItWas) {
    const TempFolder folder;
    ByteStream stream(folder.write("f", "abc").c_str());
    char field[5] = {'1', '2', '3', '4', '5'};
    stream.get(field);
    EXPECT_EQ(std::string(field, 5), "12345");
    EXPECT_FALSE(stream.good());
    char one = '?';
    stream.seek(0);
    stream.get(one);
    EXPECT_EQ(one, '?') << "a failed stream stays failed";
    EXPECT_EQ(stream.contiguous(1), nullptr);
}

TEST(ByteStream, ContiguousBytesThatAreNotThereFailNothing) {
    const TempFolder folder;
    ByteStream stream(folder.write("f", "abc").c_str());
    EXPECT_EQ(stream.contiguous(4), nullptr);
    EXPECT_TRUE(stream.good());
    EXPECT_EQ(stream.position(), 0u);
    const char* bytes = stream.contiguous(3);
    ASSERT_NE(bytes, nullptr);
    EXPECT_EQ(std::string(bytes, 3), "abc");
}

TEST(ByteStream, WindowSlidesOverLongFiles) {
    const TempFolder folder;
    const std::string bytes = pattern(3 * kWindow + 1234);
    ByteStream stream(folder.write("f", bytes).c_str());
    std::string got;
    std::size_t step = 1;
    while (stream.bytesLeft() > 0) {
        const auto size = std::min<std::uint64_t>(step, stream.bytesLeft());
        std::string piece(size, '\0');
        stream.read(piece.data(), size);
        got += piece;
        step = step * 7 % 5003 + 1;
    }
    EXPECT_TRUE(stream.good());
    EXPECT_TRUE(got == bytes);
}

TEST(ByteStream, SeeksInsideAndOutsideTheWindow) {
    const TempFolder folder;
    const std::string bytes = pattern(2 * kWindow);
    ByteStream stream(folder.write("f", bytes).c_str());
    const std::uint64_t positions[] = {0, 100, 50, 2 * kWindow - 1, 7, kWindow, kWindow - 1, 0};
    for (const std::uint64_t position : positions) {
        stream.seek(position);
        EXPECT_EQ(stream.position(), position);
        char c = 0;
        stream.get(c);
        EXPECT_EQ(c, bytes[position]) << position;
    }
    EXPECT_TRUE(stream.good());
}

TEST(ByteStream, SeekBehindTheEndFailsTheNextReadOnly) {
    const TempFolder folder;
    ByteStream stream(folder.write("f", "abc").c_str());
    stream.seek(std::uint64_t{1} << 32);
    EXPECT_TRUE(stream.good());
    EXPECT_EQ(stream.bytesLeft(), 0u);
    stream.seek(3);
    EXPECT_TRUE(stream.good());
    char c = 0;
    stream.get(c);
    EXPECT_FALSE(stream.good());
}

TEST(ByteStream, CountedStringEndsAtItsFirstZero) {
    const TempFolder folder;
    ByteStream stream(
        folder.write("f", counted(5, std::string("ab\0c\0", 5)) + counted(3, "xyz") + "!").c_str());
    std::string text = "former";
    stream.readCountedString(text);
    EXPECT_EQ(text, "ab");
    stream.readCountedString(text);
    EXPECT_EQ(text, "xyz") << "cut at its length where no zero is stored";
    char next = 0;
    stream.get(next);
    EXPECT_EQ(next, '!');
}

TEST(ByteStream, CountedStringOfLengthZeroLeavesTheText) {
    const TempFolder folder;
    ByteStream stream(folder.write("f", counted(0, "")).c_str());
    std::string text = "former";
    stream.readCountedString(text);
    EXPECT_EQ(text, "former");
    EXPECT_TRUE(stream.good());
}

TEST(ByteStream, CountedStringThatIsNotThereWholeLeavesTheText) {
    const TempFolder folder;
    const std::uint32_t lengths[] = {4, kWindow, kWindow + 1, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF};
    for (const std::uint32_t length : lengths) {
        ByteStream stream(folder.write("f", counted(length, "abc")).c_str());
        std::string text = "former";
        stream.readCountedString(text);
        EXPECT_EQ(text, "former") << length;
        EXPECT_FALSE(stream.good()) << length;
    }
}

TEST(ByteStream, CountedStringLongerThanTheWindow) {
    const TempFolder folder;
    const std::string letters(2 * kWindow + 17, 'x');
    std::string zeroInTheMiddle = letters;
    zeroInTheMiddle[kWindow + 5] = '\0';
    const auto length = static_cast<std::uint32_t>(letters.size());
    ByteStream stream(
        folder.write("f", counted(length, letters) + counted(length, zeroInTheMiddle) + "!")
            .c_str());
    std::string text;
    stream.readCountedString(text);
    EXPECT_TRUE(text == letters);
    stream.readCountedString(text);
    EXPECT_EQ(text, std::string(kWindow + 5, 'x'));
    char next = 0;
    stream.get(next);
    EXPECT_EQ(next, '!');
}

// ---- fault ----

TEST(ByteStream, FailedReadOfTheSystemFailsTheStream) {
    const TempFolder folder;
    const std::string name = folder.write("f", pattern(3 * kWindow));
    for (int fails = 0; fails < 5; ++fails) {
        const ScopedCalls scope;
        static int left;
        static const platform::Calls* real;
        left = fails;
        real = &scope.saved();
        platform::calls.readAt = [](platform::FileHandle file, std::uint64_t offset, void* out,
                                    std::size_t size) {
            return left-- == 0 ? std::ptrdiff_t{-1} : real->readAt(file, offset, out, size);
        };
        ByteStream stream(name.c_str());
        std::uint64_t good = 0;
        for (char c = 0; stream.good(); ++good)
            stream.get(c);
        EXPECT_LT(good, 3 * kWindow) << fails;
    }
}

TEST(ByteStream, FailedReadOfTheSystemIsNotTriedAgain) {
    const TempFolder folder;
    const std::string name = folder.write("f", pattern(20000));
    const ScopedCalls scope;
    static int calls;
    static const platform::Calls* real;
    calls = 0;
    real = &scope.saved();
    platform::calls.readAt = [](platform::FileHandle file, std::uint64_t offset, void* out,
                                std::size_t size) {
        return ++calls == 2 ? std::ptrdiff_t{-1} : real->readAt(file, offset, out, size);
    };
    ByteStream stream(name.c_str());
    ASSERT_NE(stream.contiguous(8000), nullptr);
    EXPECT_EQ(stream.contiguous(1000), nullptr);
    EXPECT_EQ(stream.contiguous(1000), nullptr);
    EXPECT_EQ(calls, 2);
    EXPECT_TRUE(stream.good()) << "the bytes at hand can still be read";
    char field[1000];
    stream.get(field);
    EXPECT_FALSE(stream.good());
}

TEST(ByteStream, ShortReadsOfTheSystemAreGoneOnWith) {
    const TempFolder folder;
    const std::string bytes = pattern(kWindow + 99);
    const std::string name = folder.write("f", bytes);
    const ScopedCalls scope;
    static const platform::Calls* real;
    real = &scope.saved();
    platform::calls.readAt = [](platform::FileHandle file, std::uint64_t offset, void* out,
                                std::size_t size) {
        return real->readAt(file, offset, out, std::min<std::size_t>(size, 1000));
    };
    ByteStream stream(name.c_str());
    std::string got(bytes.size() - 1, '\0');
    stream.read(got.data(), 1234);
    stream.read(got.data() + 1234, 5000);
    for (std::size_t i = 6234; i < got.size(); ++i)
        stream.get(got[i]);
    EXPECT_TRUE(got == bytes.substr(0, got.size()));
}

TEST(ByteStream, FileThatCannotBeMeasuredIsReadAllTheSame) {
    const TempFolder folder;
    const std::string name = folder.write("f", "abc");
    const ScopedCalls scope;
    platform::calls.fileSize = [](platform::FileHandle) { return std::int64_t{-1}; };
    ByteStream stream(name.c_str());
    EXPECT_EQ(stream.bytesLeft(), 0u);
    char text[3] = {};
    stream.get(text);
    EXPECT_EQ(std::string(text, 3), "abc");
}

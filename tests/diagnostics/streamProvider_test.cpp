#include "logs/StreamProvider.h"

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <string>

#include "support/scopedCalls.h"
#include "support/tempFolder.h"

namespace {

bool put(IStreamProvider& provider, const std::string& text) {
    return provider.write(text.data(), text.size());
}

} // namespace

TEST(FileStreamProvider, IsGoodWhileItsFileIsOpen) {
    const TempFolder folder;
    FileStreamProvider provider;
    EXPECT_FALSE(provider.isGood());
    EXPECT_FALSE(put(provider, "x"));
    ASSERT_TRUE(provider.file().openAlways(folder.name("x").c_str(), 0));
    EXPECT_TRUE(provider.isGood());
    EXPECT_TRUE(put(provider, "a\n"));
    provider.file().close();
    EXPECT_FALSE(provider.isGood());
    EXPECT_FALSE(put(provider, "x"));
    EXPECT_FALSE(provider.file().openAlways(folder.name("none/x").c_str(), 0));
    EXPECT_FALSE(provider.isGood());
    EXPECT_EQ(folder.read("x"), "a\n");
}

TEST(LinkedStreamProvider, StreamThatRaisesIsAFailureAlone) {
    class Full : public std::streambuf {};
    Full full;
    std::ostream stream(&full);
    stream.exceptions(std::ios::badbit | std::ios::failbit);
    LinkedStreamProvider provider(stream);
    EXPECT_TRUE(provider.isGood());
    EXPECT_FALSE(put(provider, "x"));
    EXPECT_FALSE(provider.isGood());
}

TEST(FileStreamProvider, TwoWritersOfOneFileBothAppend) {
    const TempFolder folder;
    folder.write("x", "old|");
    FileStreamProvider one;
    FileStreamProvider two;
    ASSERT_TRUE(one.file().openAlways(folder.name("x").c_str(), 0));
    ASSERT_TRUE(two.file().openAlways(folder.name("x").c_str(), 0));
    EXPECT_TRUE(put(one, "one|"));
    EXPECT_TRUE(put(two, "two|"));
    std::int64_t position = -1;
    ASSERT_TRUE(one.file().seek(0, libn::IFile::kFromBegin, &position));
    EXPECT_TRUE(put(one, "one again|"));
    std::ofstream(folder.path() / "x", std::ios::binary | std::ios::app) << "other|";
    EXPECT_TRUE(put(two, "two again"));
    EXPECT_EQ(folder.read("x"), "old|one|two|one again|other|two again");
}

TEST(FileStreamProvider, FailedWriteIsFalseAndTheNextOneWorks) {
    const TempFolder folder;
    FileStreamProvider provider;
    ASSERT_TRUE(provider.file().openAlways(folder.name("x").c_str(), 0));
    {
        const ScopedCalls calls;
        platform::calls.appendStorage = [](platform::StorageHandle, const void*, std::uint32_t,
                                           std::uint32_t* done) {
            *done = 0;
            return false;
        };
        EXPECT_FALSE(put(provider, "lost"));
        EXPECT_TRUE(provider.isGood());
    }
    EXPECT_TRUE(put(provider, "kept"));
    EXPECT_EQ(folder.read("x"), "kept");
}

TEST(LinkedStreamProvider, IsGoodWhileNoBitOfTheStreamIsSet) {
    for (const std::ios::iostate bit : {std::ios::badbit, std::ios::failbit, std::ios::eofbit}) {
        std::ostringstream stream;
        LinkedStreamProvider provider(stream);
        EXPECT_TRUE(provider.isGood());
        EXPECT_TRUE(put(provider, std::string("a\0\n", 3)));
        stream.setstate(bit);
        EXPECT_FALSE(provider.isGood());
        EXPECT_FALSE(put(provider, "x"));
        stream.clear();
        EXPECT_TRUE(provider.isGood());
        EXPECT_TRUE(put(provider, "b"));
        EXPECT_EQ(stream.str(), std::string("a\0\nb", 4));
    }
}

TEST(LinkedStreamProvider, WriteThatFailsInTheStreamIsFalse) {
    struct Full : std::streambuf {};
    Full full;
    std::ostream stream(&full);
    LinkedStreamProvider provider(stream);
    EXPECT_TRUE(provider.isGood());
    EXPECT_FALSE(put(provider, "x"));
    EXPECT_FALSE(provider.isGood());
}

#include "libn/viewCopy.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <stdexcept>
#include <string>

#include "libn/storage.h"
#include "support/raised.h"
#include "support/tempFolder.h"

#ifndef _WIN32
#  include <signal.h>
#endif

TEST(ViewCopy, BytesOfAnySizeAndPlace) {
    const std::string from = "abcdefghijklmnopqrstuvwxyz";
    for (std::size_t size = 0; size <= 20; ++size)
        for (std::size_t at = 0; at < 6; ++at) {
            std::string to(26, '.');
            libn::viewCopy(to.data() + at, from.data() + 3, size);
            EXPECT_EQ(
                to, std::string(at, '.') + from.substr(3, size) + std::string(26 - at - size, '.'));
            libn::viewFill(to.data() + at, 0xFF, size);
            EXPECT_EQ(to, std::string(at, '.') + std::string(size, '\xFF') +
                              std::string(26 - at - size, '.'));
        }
}

TEST(ViewCopy, CursorReadsOneValueAfterAnother) {
    const char bytes[] = "abcdefghijklm\1\2\3\4\5";
    libn::ViewCursor cursor{bytes};
    char text[13];
    std::uint32_t number;
    std::uint8_t byte;
    cursor.get(text);
    cursor.get(number);
    cursor.get(byte);
    EXPECT_EQ(std::string(text, 13), "abcdefghijklm");
    EXPECT_EQ(number, 0x04030201u);
    EXPECT_EQ(byte, 5);
}

// A file cut short by another process: a view of it faults, and what the fault is turned into
// must reach the caller with every clean-up on the way.
TEST(ViewCopy, FaultInAViewCanBecomeAnException) {
#ifdef _WIN32
    GTEST_SKIP() << "this system does not cut a file that is mapped";
#elif defined(VDREADER_SANITIZED)
    GTEST_SKIP() << "the sanitizers do not follow an exception out of a signal handler";
#else
    struct sigaction action = {};
    action.sa_handler = [](int) { throw std::runtime_error("fault"); };
    action.sa_flags = SA_NODEFER;
    struct sigaction former;
    ASSERT_EQ(sigaction(SIGBUS, &action, &former), 0);

    using namespace libn::storage;
    const TempFolder folder;
    const std::string name = folder.write("f", std::string(3 * 65536, 'x'));
    libn::NewFileMap map;
    map.open(name, 3276800);
    const std::uint64_t word = 2 * 8192;
    char bytes[480];
    map.read(0, 8, word, 60, bytes);
    std::filesystem::resize_file(name, 4096);
    int cleanups = 0;
    const auto raisedBy = [&](auto access) {
        struct Cleanup {
            int& count;
            ~Cleanup() { ++count; }
        };
        return raisedText([&] {
            const Cleanup cleanup{cleanups};
            access();
        });
    };
    EXPECT_EQ(raisedBy([&] { map.read(0, 8, word, 60, bytes); }), "fault");
    EXPECT_EQ(raisedBy([&] { map.read(0, 8, word, 1, bytes); }), "fault");
    EXPECT_EQ(raisedBy([&] { map.readWord(word); }), "fault");
    EXPECT_EQ(raisedBy([&] { map.write(0, 8, word, 60, bytes); }), "fault");
    EXPECT_EQ(raisedBy([&] { map.write(0, 8, word, 1, bytes); }), "fault");
    EXPECT_EQ(raisedBy([&] { map.fill(0, 8, word, 60, 1); }), "fault");
    InputStream<479, 8> stream(InPlace(), map, word);
    EXPECT_EQ(raisedBy([&] { stream.read(bytes, 13); }), "fault");
    auto ahead = stream.ahead();
    EXPECT_EQ(raisedBy([&] { ahead.readOf<128>(bytes, 13); }), "fault");
    EXPECT_EQ(raisedBy([&] { ahead.run(13, [&](auto&& run) { run.get(*bytes); }); }), "fault");
    EXPECT_EQ(cleanups, 9);
    sigaction(SIGBUS, &former, nullptr);
#endif
}

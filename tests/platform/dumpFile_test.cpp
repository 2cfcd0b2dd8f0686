// The thread, the file and the probes of dumps on Linux.

#ifndef _WIN32

#  include <pthread.h>
#  include <signal.h>
#  include <sys/mman.h>
#  include <unistd.h>
#  include <atomic>
#  include <cerrno>
#  include <cstring>
#  include <filesystem>
#  include <string>
#  include <thread>

#  include <gtest/gtest.h>

#  include "platform/dumpWriter.h"
#  include "support/tempFolder.h"

// The host's signals are not the dump thread's, and the thread that waits for it keeps its own.
TEST(CoreFile, ThreadOfADumpTakesNoSignals) {
    const auto blocks = [] {
        sigset_t blocked = {};
        ::pthread_sigmask(SIG_BLOCK, nullptr, &blocked);
        return ::sigismember(&blocked, SIGTERM) == 1;
    };
    struct Both {
        pthread_t waiting;
        std::atomic<bool> dumpBlocks;
        std::atomic<bool> taken;
    };
    static Both both;
    both.waiting = ::pthread_self();
    static auto isBlocked = blocks;
    struct sigaction action = {};
    action.sa_handler = [](int) { both.taken = true; };
    ::sigaction(SIGUSR1, &action, nullptr);
    ASSERT_TRUE(platform::dumpCalls.runOnThread(
        [](void*) {
            both.dumpBlocks = isBlocked();
            // More than one: the thread sanitizer puts off what comes before the thread waits.
            for (int wait = 0; !both.taken && wait < 2000; ++wait) {
                ::pthread_kill(both.waiting, SIGUSR1);
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            }
            EXPECT_TRUE(both.taken) << "only after the dump";
        },
        nullptr));
    EXPECT_TRUE(both.dumpBlocks);
    EXPECT_FALSE(blocks());
}

TEST(CoreFile, RefusedOpeningLeavesTheContent) {
    const TempFolder folder;
    const std::string path = folder.name("x.dmp");
    const platform::SystemName name = platform::dumpCalls.systemName(path.c_str());
    const platform::DumpFile file = platform::dumpCalls.createFile(name);
    ASSERT_NE(file, nullptr);
    const int descriptor = static_cast<int>(reinterpret_cast<std::intptr_t>(file)) - 1;
    EXPECT_EQ(::write(descriptor, "abc", 3), 3);
    EXPECT_EQ(platform::dumpCalls.createFile(name), nullptr);
    EXPECT_EQ(errno, EWOULDBLOCK);
    EXPECT_EQ(folder.read("x.dmp"), "abc");
    platform::dumpCalls.closeFile(file);
    platform::dumpCalls.freeSystemName(name);
}

// Memory of the whole process is nobody else's to read.
TEST(CoreFile, IsForItsOwnerAlone) {
    const TempFolder folder;
    const std::string path = folder.name("x.dmp");
    const platform::SystemName name = platform::dumpCalls.systemName(path.c_str());
    platform::dumpCalls.closeFile(platform::dumpCalls.createFile(name));
    platform::dumpCalls.freeSystemName(name);
    EXPECT_EQ(std::filesystem::status(path).permissions(),
              std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
}

TEST(CoreFile, NameThatIsTooLongIsRefused) {
    EXPECT_EQ(platform::dumpCalls.systemName(std::string(5000, 'x').c_str()), nullptr);
}

// A text is looked at page by page, and no further than its end.
TEST(CoreFile, TextAtTheEndOfReadableMemory) {
    auto* pages = static_cast<char*>(
        ::mmap(nullptr, 8192, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    ASSERT_NE(pages, MAP_FAILED);
    ::mprotect(pages + 4096, 4096, PROT_NONE);
    std::memset(pages, 'x', 4096);
    EXPECT_TRUE(platform::dumpCalls.badText(pages + 4000, 260));
    EXPECT_FALSE(platform::dumpCalls.badText(pages + 4000, 96));
    EXPECT_TRUE(platform::dumpCalls.badMemory(pages + 4090, 8));
    EXPECT_FALSE(platform::dumpCalls.badMemory(pages + 4088, 8));
    pages[4095] = '\0';
    EXPECT_FALSE(platform::dumpCalls.badText(pages + 4000, 260));
    ::munmap(pages, 8192);
}

#endif

// What exists from the load of the library on, in which order it is made, and what goes with it.

#include "startUp.h"

#include <gtest/gtest.h>

#ifdef _WIN32
#  include <winsock2.h>

#  include <windows.h>
#endif

#include <cstdint>
#include <ctime>
#include <string>
#include <vector>

#include "diagnostics/stackLibraries.h"
#include "diagnostics/stackReport.h"
#include "support/scopedCalls.h"
#include "support/scopedLibraryCalls.h"

namespace {

TEST(StartUp, TableHasItsBucketsAllEmpty) {
    LoadTable& table = startUp().loadTable();
    EXPECT_EQ(table.buckets.size(), 1009u);
    for (const auto& bucket : table.buckets)
        EXPECT_TRUE(bucket.empty());
    EXPECT_TRUE(table.lock.try_lock());
    table.lock.unlock();
}

TEST(StartUp, StampsAreThoseOfTheLoad) {
    const LoadTable& table = startUp().loadTable();
    EXPECT_GT(table.loadedAt, 0);
    const auto age = [&table] {
        return static_cast<double>(platform::monotonicNanoseconds() - table.loadedAt) * 1e-9;
    };
    const double before = age();
    EXPECT_GE(before, 0.0);
    const platform::WallTime now = platform::calls.wallClock();
    // The two clocks tell the same time that has passed since, whatever passes between two looks.
    const auto passed = static_cast<double>(now.seconds - table.loadedAtWall.seconds);
    EXPECT_GE(passed, before - 2.0);
    EXPECT_LE(passed, age() + 2.0);
}

TEST(StartUp, ClockOnlyRises) {
    std::int64_t before = platform::monotonicNanoseconds();
    std::int64_t rises = 0;
    for (int i = 0; i < 100'000; ++i) {
        const std::int64_t now = platform::monotonicNanoseconds();
        ASSERT_GE(now, before);
        rises += now > before;
        before = now;
    }
    EXPECT_GT(rises, 0);
}

TEST(StartUp, TakesThreeKeysAndTheSockets) {
    EXPECT_EQ(startUp().threadKeys().taken(), 3u);
    EXPECT_EQ(startUp().socketLibrary().error(), 0u);
}

#ifdef _WIN32
// Whoever loads the library may use them and need not start them.
TEST(StartUp, SocketsCanBeMadeFromTheLoadOn) {
    using Make = std::uintptr_t(WINAPI*)(int family, int type, int protocol);
    using Close = int(WINAPI*)(std::uintptr_t socket);
    const HMODULE library = ::GetModuleHandleA("ws2_32.dll");
    ASSERT_NE(library, nullptr);
    const auto function = [library](const char* name) {
        return reinterpret_cast<void*>(::GetProcAddress(library, name));
    };
    constexpr int kInternet = 2, kDatagrams = 2;
    const std::uintptr_t socket =
        reinterpret_cast<Make>(function("socket"))(kInternet, kDatagrams, 0);
    EXPECT_NE(socket, ~std::uintptr_t{0}) << ::GetLastError();
    EXPECT_EQ(reinterpret_cast<Close>(function("closesocket"))(socket), 0);
}
#endif

#ifdef _WIN32
namespace {

// How often the sockets were started and not given back.
int startsOfTheSockets() {
    int starts = 0;
    while (::WSACleanup() == 0)
        ++starts;
    for (int i = 0; i < starts; ++i) {
        WSADATA details;
        ::WSAStartup(MAKEWORD(2, 0), &details);
    }
    return starts;
}

} // namespace

TEST(StartUp, SocketsAreThoseOfVersionTwoAndAreGivenBack) {
    EXPECT_EQ(startUp().socketLibrary().version(), MAKEWORD(2, 0));
    const int starts = startsOfTheSockets();
    EXPECT_GE(starts, 1);
    {
        const platform::SocketLibrary another;
        EXPECT_EQ(startsOfTheSockets(), starts + 1);
    }
    EXPECT_EQ(startsOfTheSockets(), starts);
}
#endif

TEST(StartUp, KeysAreGivenBack) {
    // More rounds than any system has keys.
    for (int round = 0; round < 3000; ++round) {
        const platform::ThreadKeys keys;
        ASSERT_EQ(keys.taken(), platform::ThreadKeys::kCount) << "round " << round;
    }
}

TEST(StartUp, EachPieceIsTheOneOfTheProcess) {
    const StartUp& made = startUp();
    EXPECT_EQ(&made.earlier().readers, &readerState());
    EXPECT_EQ(&made.earlier().locales, &localeTable());
    EXPECT_EQ(made.earlier().locales.size(), 20u);
    EXPECT_EQ(&made.diagnostics().lock, &dumpLock());
    EXPECT_EQ(&made.diagnostics().incoming, &incomingTraffic());
    EXPECT_EQ(&made.diagnostics().outgoing, &outgoingTraffic());
    EXPECT_TRUE(made.diagnostics().incoming.empty());
    EXPECT_TRUE(made.diagnostics().outgoing.empty());
}

// Fields are made in the order of their places.
TEST(StartUp, PiecesHaveTheirOrder) {
    StartUp& made = startUp();
    const auto place = [](const auto& piece) { return reinterpret_cast<std::uintptr_t>(&piece); };
    EXPECT_LT(place(made.earlier()), place(made.threadKeys()));
    EXPECT_LT(place(made.threadKeys()), place(made.socketLibrary()));
    EXPECT_LT(place(made.socketLibrary()), place(made.diagnostics()));
    EXPECT_LT(place(made.diagnostics()), place(made.loadTable()));
}

TEST(StartUp, LibrariesOfReportsAreThere) {
    EXPECT_NE(stackLibraries().debugHelp.handle, nullptr);
    EXPECT_NE(stackLibraries().toolHelp.handle, nullptr);
}

std::vector<std::string> steps;

// The libraries come in front of the stamps, and go in the reverse order.
TEST(StartUp, LibrariesComeBeforeTheStampsAndGoInReverse) {
    releaseStackLibraries(); // those of the process's own start
    const ScopedLibraryCalls libraries;
    const ScopedCalls calls;
    static platform::LibraryCalls systems;
    static platform::WallTime (*wallClock)();
    systems = libraries.saved();
    wallClock = calls.saved().wallClock;
    platform::libraryCalls.load = [](const char* name) {
        platform::LibraryHandle const library = systems.load(name);
        if (library != nullptr)
            steps.push_back(std::string("load ") + name);
        return library;
    };
    platform::libraryCalls.release = [](platform::LibraryHandle library) {
        steps.push_back(library == stackLibraries().debugHelp.handle       ? "release debug help"
                        : library == stackLibraries().toolHelp.handle      ? "release tool help"
                        : library == stackLibraries().processStatus.handle ? "release status"
                                                                           : "release another");
        systems.release(library);
    };
    platform::calls.wallClock = [] {
        steps.emplace_back("stamp");
        return wallClock();
    };
    steps.clear();
    {
        const StartUp second;
        EXPECT_EQ(steps, (std::vector<std::string>{"load dbghelp.dll", "load kernel32.dll",
                                                   "load psapi.dll", "stamp"}));
        steps.clear();
    }
    EXPECT_EQ(steps, (std::vector<std::string>{"release status", "release tool help",
                                               "release debug help"}));
    EXPECT_EQ(stackLibraries().debugHelp.handle, nullptr);
    EXPECT_EQ(stackLibraries().debugHelp.path.capacity(), std::string().capacity());
}

} // namespace

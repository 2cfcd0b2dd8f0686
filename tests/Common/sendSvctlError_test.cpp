// Notices to the sibling service, against a stand-in that keeps them.  Each case is a process of
// its own: the service is looked for once in a process.

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "support/capturedLog.h"
#include "support/raised.h"
#include "support/scopedOpening.h"
#include "support/tempFolder.h"
#include "support/waitWhile.h"
#include "svctl/service.h"
#include "vdreader/dll.hpp"
#include "vdreader/postmortem.h"

namespace {

// Loads the stand-in, so that the library's own look for its name finds it.
class Service {
  public:
    explicit Service(const std::string& path = SVCTL_SERVICE) : m_library(path) {
        m_taken = reinterpret_cast<TakenNotices>(m_library.getFunction("takenNotices"));
    }

    std::uint32_t count() { return m_taken(m_notices); }
    Notice latest() {
        const std::uint32_t number = count();
        return m_notices[(number - 1) % 16];
    }

  private:
    libn::Dll m_library;
    TakenNotices m_taken;
    Notice m_notices[16];
};

template <class Field>
Field at(const Notice& notice, std::size_t offset) {
    Field value;
    std::memcpy(&value, notice.record + offset, sizeof value);
    return value;
}

bool isZero(const Notice& notice, std::size_t first, std::size_t end) {
    return std::all_of(notice.record + first, notice.record + end,
                       [](unsigned char byte) { return byte == 0; });
}

constexpr char kMissing[] =
    "Can't send extended error notification: SVCTL SendInfo function is missing";

bool endsIn(const std::string& line, const std::string& text) {
    return line.size() >= text.size() &&
           line.compare(line.size() - text.size(), text.size(), text) == 0;
}

} // namespace

TEST(SendSvctlError, RecordHoldsEachArgumentAtItsPlace) {
    Service service;
    SendSvctlError(0xA1A2A3A4, 0xB1B2B3B4, 0xC1C2, 0xD1D2D3D4, 0xE1E2E3E4, 0, "what failed");
    ASSERT_EQ(service.count(), 1U);
    const Notice notice = service.latest();
    EXPECT_EQ(notice.destination, 0xA1A2A3A4U);
    EXPECT_EQ(notice.what, 34U);
    EXPECT_EQ(at<std::uint16_t>(notice, 0), 0xC1C2U);
    EXPECT_EQ(at<std::uint16_t>(notice, 2), 0U);
    EXPECT_EQ(at<std::uint32_t>(notice, 4), 0xB1B2B3B4U);
    EXPECT_EQ(at<std::uint32_t>(notice, 8), 0xD1D2D3D4U);
    EXPECT_EQ(at<std::uint32_t>(notice, 12), 0xE1E2E3E4U);
    EXPECT_EQ(at<std::uint16_t>(notice, 16), 4U);
    EXPECT_STREQ(reinterpret_cast<const char*>(notice.record + 18), "what failed");
    EXPECT_TRUE(isZero(notice, 18 + 11, 920));
}

TEST(SendSvctlError, FlagIsTurnedAndMovedUp) {
    Service service;
    const auto flags = [&](std::uint8_t off) {
        SendSvctlError(20, 1, 5, 0, 0, off, nullptr);
        return at<std::uint16_t>(service.latest(), 16);
    };
    EXPECT_EQ(flags(1), 0U);
    EXPECT_EQ(flags(0), 4U);
    EXPECT_EQ(flags(2), 12U);
    EXPECT_EQ(flags(0xFF), 0x3F8U);
}

TEST(SendSvctlError, NoTextIsZeroes) {
    Service service;
    SendSvctlError(20, 0x2EA60, 5, 0, 0, 1, nullptr);
    EXPECT_TRUE(isZero(service.latest(), 8, 920));
}

TEST(SendSvctlError, TextIsCutAtNineHundredBytes) {
    Service service;
    for (const std::size_t length : {899U, 900U, 901U, 3000U}) {
        SendSvctlError(20, 1, 5, 0, 0, 1, std::string(length, 't').c_str());
        const Notice notice = service.latest();
        const auto kept = std::count(notice.record + 18, notice.record + 918, 't');
        EXPECT_EQ(kept, static_cast<std::ptrdiff_t>(std::min<std::size_t>(length, 900)));
        EXPECT_TRUE(isZero(notice, 918, 920)) << length;
    }
}

TEST(SendSvctlError, ThreadsSendAtOnce) {
    Service service;
    std::vector<std::thread> threads;
    for (int number = 0; number < 8; ++number)
        threads.emplace_back([] {
            for (int count = 0; count < 50; ++count)
                SendSvctlError(20, 1, 5, 0, 0, 1, "text");
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(service.count(), 400U);
}

TEST(SendSvctlError, ServiceStaysLoaded) {
    auto service = std::make_unique<Service>();
    SendSvctlError(20, 1, 5, 0, 0, 1, nullptr);
    service.reset();
    SendSvctlError(20, 1, 5, 0, 0, 1, nullptr);
    EXPECT_EQ(Service().count(), 2U);
}

TEST(SendSvctlError, FirstNoticeWithoutAServiceRaisesAndLaterOnesTell) {
    const CapturedLog log;
    const auto failure =
        raised<libn::Dll::LoadError>([] { SendSvctlError(20, 1, 5, 0, 0, 1, nullptr); });
    ASSERT_TRUE(failure.has_value());
    EXPECT_EQ(std::string(failure->what()).rfind("Failed to load DLL file \"dwsvctl.dll\" (", 0),
              0U)
        << failure->what();
    EXPECT_EQ(log.size(), 0U);
    for (std::size_t number = 1; number <= 2; ++number) {
        SendSvctlError(20, 1, 5, 0, 0, 1, nullptr);
        const auto lines = log.messages(CapturedLog::errors);
        ASSERT_EQ(lines.size(), number);
        EXPECT_TRUE(endsIn(lines.back(), std::string("Error: ") + kMissing)) << lines.back();
    }
}

TEST(SendSvctlError, ServiceThatComesLaterIsNotLookedFor) {
    const CapturedLog log;
    EXPECT_NE(raisedText([] { SendSvctlError(20, 1, 5, 0, 0, 1, nullptr); }), "(nothing)");
    Service service;
    SendSvctlError(20, 1, 5, 0, 0, 1, nullptr);
    EXPECT_EQ(service.count(), 0U);
    EXPECT_EQ(log.size(), 1U);
}

TEST(SendSvctlError, ServiceWithoutItsFunctionIsToldOfOnce) {
    const CapturedLog log;
    const libn::Dll broken(SVCTL_BROKEN);
    SendSvctlError(20, 1, 5, 0, 0, 1, nullptr);
    SendSvctlError(20, 1, 5, 0, 0, 1, nullptr);
    const auto lines = log.messages(CapturedLog::errors);
    ASSERT_EQ(lines.size(), 3U);
    EXPECT_TRUE(endsIn(lines[0], "Error: dwevs Can't load dw_svctl_SendInfo function"));
    EXPECT_TRUE(endsIn(lines[1], kMissing));
    EXPECT_TRUE(endsIn(lines[2], kMissing));
}

#ifdef _WIN32
TEST(SendSvctlError, ServiceInTheWorkingFolderIsFound) {
    const TempFolder folder;
    std::filesystem::copy_file(SVCTL_SERVICE, folder.path() / "dwsvctl.dll");
    const auto former = std::filesystem::current_path();
    std::filesystem::current_path(folder.path());
    SendSvctlError(20, 1, 5, 0, 0, 1, nullptr);
    std::filesystem::current_path(former);
    EXPECT_EQ(Service(folder.name("dwsvctl.dll")).count(), 1U);
}
#else
TEST(SendSvctlError, ServiceInTheWorkingFolderIsNotFound) {
    const TempFolder folder;
    std::filesystem::copy_file(SVCTL_SERVICE, folder.path() / "dwsvctl.dll");
    std::filesystem::current_path(folder.path());
    EXPECT_TRUE(raised<libn::Dll::LoadError>([] { SendSvctlError(20, 1, 5, 0, 0, 1, nullptr); }));
}

// The loader reads its path when a process starts.
TEST(SendSvctlError, ServiceOnTheLibraryPathIsFound) {
    const std::string folder = std::filesystem::path(SVCTL_SERVICE).parent_path().string();
    if (const char* path = std::getenv("LD_LIBRARY_PATH"); path != nullptr && path == folder) {
        SendSvctlError(20, 1, 5, 0, 0, 1, nullptr);
        EXPECT_EQ(Service().count(), 1U);
        return;
    }
    const std::string self = std::filesystem::read_symlink("/proc/self/exe").string();
    const std::string command = "LD_LIBRARY_PATH='" + folder + "' timeout 30 '" + self +
                                "' --gtest_filter=SendSvctlError.ServiceOnTheLibraryPathIsFound";
    EXPECT_EQ(std::system(command.c_str()), 0);
}
#endif

TEST(SendSvctlError, NoticeThatMeetsTheFirstLoadWaitsForIt) {
    Service service;
    const CapturedLog log;
    static std::atomic<bool> loads{false}, otherCalls{false}, otherReturned{false};
    const ScopedOpening opening([](const std::string& path) {
        loads = true;
        waitWhile(otherCalls, false);
        for (int i = 0; i < 100 && !otherReturned; ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        EXPECT_FALSE(otherReturned);
        return ScopedOpening::overBoost(path);
    });
    std::thread first([] { SendSvctlError(20, 1, 5, 0, 0, 1, nullptr); });
    waitWhile(loads, false);
    std::thread other([] {
        otherCalls = true;
        SendSvctlError(20, 1, 5, 0, 0, 1, nullptr);
        otherReturned = true;
    });
    first.join();
    other.join();
    EXPECT_EQ(service.count(), 2U);
    EXPECT_EQ(log.size(), 0U);
}

// As a fault in the service's own start comes to it.
TEST(SendSvctlError, NoticeFromInsideTheLoadIsGivenUpAndTheLoadGoesOn) {
    Service service;
    const CapturedLog log;
    const ScopedOpening opening([](const std::string& path) {
        SendSvctlError(20, 2, 5, 0, 0, 1, nullptr);
        return ScopedOpening::overBoost(path);
    });
    SendSvctlError(20, 1, 5, 0, 0, 1, nullptr);
    ASSERT_EQ(service.count(), 1U);
    EXPECT_EQ(at<std::uint32_t>(service.latest(), 4), 1U);
    const auto lines = log.messages(CapturedLog::errors);
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_TRUE(endsIn(lines[0], std::string("Error: ") + kMissing)) << lines[0];
}

// One thread raises; the others find the look made.
TEST(SendSvctlError, OneOfManyThreadsRaises) {
    const CapturedLog log;
    std::atomic<int> failures{0};
    std::atomic<int> waiting{8}; // all go at once
    std::vector<std::thread> threads;
    for (int number = 0; number < 8; ++number)
        threads.emplace_back([&] {
            --waiting;
            while (waiting > 0) {
            }
            try {
                SendSvctlError(20, 1, 5, 0, 0, 1, nullptr);
            } catch (const libn::Dll::LoadError&) {
                ++failures;
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(failures.load(), 1);
    EXPECT_EQ(log.lines(CapturedLog::errors).size(), 7U);
}

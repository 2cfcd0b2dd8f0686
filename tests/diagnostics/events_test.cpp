// The logs of one kind: who shares which file, the slots, and openings that fail.

#include "logs/Events.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "diagnostics/errorTexts.h"
#include "diagnostics/logLines.h"
#include "diagnostics/rotatingFolder.h"
#include "platform/process.h"
#include "support/raised.h"
#include "vdreader/log.h"

namespace {

using Errors = Events<ErrorsTlsPtr>;
using Texts = std::vector<std::string>;

const std::shared_ptr<EVENTS>& mine() {
    return threadLogState().errorsFile;
}

std::string upper(std::string text) {
    for (char& c : text)
        c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return text;
}

// The error logs of a process of its own, in a folder of its own.
class EventsTest : public testing::Test {
  protected:
    EventsTest() {
        s_opened.clear();
        s_open = platform::calls.openStorage;
        platform::calls.openStorage = [](const char* path, platform::StorageAccess access) {
            s_opened.push_back(path);
            return s_open(path, access);
        };
    }
    ~EventsTest() { threadLogState().errorsFile.reset(); }

    std::string name(const std::string& file) const { return m_folder.name(file); }
    void use(const std::string& file, const char* ini = nullptr) {
        m_logs.setThreadFile(name(file).c_str(), ini);
    }
    std::string ini(const std::string& text) const { return m_folder.files().write("ini", text); }
    Texts messages(const std::string& file) const { return messagesIn(name(file)); }

    static const Texts& opened() { return s_opened; }

    RotatingFolder m_folder;
    Errors m_logs;

  private:
    static inline Texts s_opened;
    static inline decltype(platform::Calls::openStorage) s_open;
};

// A name of this length in the folder, whose parts no system refuses.
std::string longName(const std::string& folder, std::size_t length) {
    std::string name = folder;
    while (name.size() + 100 < length)
        name += platform::pathForm.separator + std::string(90, 'd');
    name += platform::pathForm.separator;
    return name + std::string(length - name.size(), 'n');
}

// What a thread of its own does and has at its end.
template <class Body>
std::shared_ptr<EVENTS> fileOfThread(Body body) {
    std::shared_ptr<EVENTS> file;
    std::thread([&] {
        body();
        file = mine();
    }).join();
    return file;
}

} // namespace

// ---- names ----

TEST_F(EventsTest, NullNameGivesNoFile) {
    m_logs.setThreadFile(nullptr, nullptr);
    EXPECT_EQ(mine(), nullptr);
    use("a.log");
    m_logs.setThreadFile(nullptr, nullptr);
    EXPECT_EQ(mine(), nullptr);
    EXPECT_EQ(opened().size(), 1u);
}

TEST_F(EventsTest, NameBecomesTheThreadsFile) {
    use("a.log");
    ASSERT_NE(mine(), nullptr);
    EXPECT_EQ(mine()->fileName, name("a.log"));
    EXPECT_FALSE(mine()->isRotate);
    EXPECT_EQ(mine()->rotateDepth, 0);
    ASSERT_NE(mine()->provider, nullptr);
    EXPECT_TRUE(mine()->provider->isGood());
    EXPECT_TRUE(std::filesystem::exists(name("a.log")));
    error("text %d", 1);
    EXPECT_EQ(messages("a.log"), Texts{"text 1"});
}

TEST_F(EventsTest, SameNameInAnyCaseKeepsTheFile) {
    use("a.log");
    const auto first = mine();
    use("a.log");
    EXPECT_EQ(mine(), first);
    m_logs.setThreadFile(upper(name("a.log")).c_str(), nullptr);
    EXPECT_EQ(mine(), first);
    EXPECT_EQ(opened(), Texts{name("a.log")});
}

TEST_F(EventsTest, OtherNameReplacesTheFile) {
    use("a.log");
    const std::weak_ptr<EVENTS> first = mine();
    use("b.log");
    EXPECT_EQ(mine()->fileName, name("b.log"));
    EXPECT_EQ(first.use_count(), 1); // its slot
    use("a.log");
    EXPECT_EQ(mine(), first.lock());
    EXPECT_EQ(opened(), (Texts{name("a.log"), name("b.log")}));
    error("text");
    EXPECT_EQ(messages("a.log"), Texts{"text"});
    EXPECT_EQ(messages("b.log"), Texts{});
}

TEST_F(EventsTest, ThreadsThatNameOneFileShareIt) {
    use("a.log");
    EXPECT_EQ(fileOfThread([&] { use("a.log"); }), mine());
    EXPECT_EQ(fileOfThread([&] { m_logs.setThreadFile(upper(name("a.log")).c_str(), nullptr); }),
              mine());
    EXPECT_EQ(opened(), Texts{name("a.log")});
    const auto other = fileOfThread([&] { use("b.log"); });
    EXPECT_NE(other, mine());
    EXPECT_EQ(other->fileName, name("b.log"));
}

TEST_F(EventsTest, FileBelongsToItsThreadAlone) {
    use("a.log");
    EXPECT_EQ(fileOfThread([] { error("from elsewhere"); }), nullptr);
    EXPECT_EQ(messages("a.log"), Texts{});
}

TEST_F(EventsTest, KindsHaveFilesOfTheirOwn) {
    Events<EventsTlsPtr> events;
    Events<NetEventsTlsPtr> netEvents;
    use("a.log");
    events.setThreadFile(name("a.log").c_str(), nullptr);
    netEvents.setThreadFile(name("n.log").c_str(), nullptr);
    EXPECT_NE(threadLogState().eventsFile, mine());
    EXPECT_EQ(threadLogState().eventsFile->fileName, name("a.log"));
    EXPECT_EQ(threadLogState().netEventsFile->fileName, name("n.log"));
    netevent("text %d", 1);
    EXPECT_EQ(bytesOf(name("n.log")), "text 1");
    EXPECT_EQ(bytesOf(name("a.log")), "");
    threadLogState().eventsFile.reset();
    threadLogState().netEventsFile.reset();
}

TEST_F(EventsTest, FileKeepsWhatItHeld) {
    m_folder.files().write("a.log", "E: old line\r\n");
    use("a.log");
    error("new");
    const std::string bytes = bytesOf(name("a.log"));
    EXPECT_EQ(bytes.compare(0, 13, "E: old line\r\n"), 0);
    EXPECT_EQ(messages("a.log").back(), "new");
}

TEST_F(EventsTest, NamesAreCutAt256Characters) {
    const std::string folder = m_folder.files().path().string();
    const std::string whole = longName(folder, 256);
    m_logs.setThreadFile(whole.c_str(), nullptr);
    ASSERT_NE(mine(), nullptr);
    EXPECT_EQ(mine()->fileName, whole);
    const auto first = mine();
    for (const std::size_t length : {257, 300}) {
        const std::string longer = whole + std::string(length - 256, 'n');
        m_logs.setThreadFile(longer.c_str(), nullptr);
        EXPECT_EQ(mine(), first) << length; // the thread's own
        EXPECT_EQ(fileOfThread([&] { m_logs.setThreadFile(longer.c_str(), nullptr); }), first)
            << length;
    }
    m_logs.setThreadFile(longName(folder, 255).c_str(), nullptr);
    EXPECT_NE(mine(), first);
    EXPECT_EQ(opened(), (Texts{whole, longName(folder, 255)}));
}

TEST_F(EventsTest, FoldersOfAFileAreMade) {
    m_logs.setThreadFile((m_folder.files().path() / "a" / "b" / "c.log").string().c_str(), nullptr);
    error("text");
    EXPECT_EQ(messagesIn(m_folder.files().path() / "a" / "b" / "c.log"), Texts{"text"});
}

// ---- slots ----

TEST_F(EventsTest, FortyFirstFileIsNotOpenedAndNothingIsReported) {
    std::vector<std::shared_ptr<EVENTS>> files;
    for (int i = 0; i < 40; ++i) {
        use("log" + std::to_string(i));
        ASSERT_NE(mine(), nullptr) << i;
        files.push_back(mine());
    }
    const CapturedLog log;
    use("log40");
    EXPECT_EQ(mine(), nullptr);
    EXPECT_EQ(opened().size(), 40u);
    EXPECT_FALSE(std::filesystem::exists(name("log40")));
    for (int i = 39; i >= 0; --i) {
        use("log" + std::to_string(i));
        EXPECT_EQ(mine(), files[i]) << i;
    }
    EXPECT_EQ(log.size(), 0u);
}

TEST_F(EventsTest, FileStaysOpenAfterItsThreads) {
    const std::weak_ptr<EVENTS> file = fileOfThread([&] { use("a.log"); });
    ASSERT_EQ(file.use_count(), 1); // its slot; the thread has let go
    EXPECT_TRUE(file.lock()->provider->isGood());
    EXPECT_EQ(fileOfThread([&] {
                  use("a.log");
                  error("later");
              }),
              file.lock());
    EXPECT_EQ(messages("a.log"), Texts{"later"});
    EXPECT_EQ(opened().size(), 1u);
}

TEST_F(EventsTest, LineBeingWrittenKeepsItsTarget) {
    use("a.log");
    const std::shared_ptr<EVENTS> held = mine();
    m_logs.setThreadFile(nullptr, nullptr);
    EXPECT_EQ(held.use_count(), 2);
    EXPECT_TRUE(held->provider->write("x", 1));
    EXPECT_EQ(bytesOf(name("a.log")), "x");
}

// ---- openings that fail ----

TEST_F(EventsTest, FailedOpenIsReportedTwiceAndKeepsItsSlot) {
    std::filesystem::create_directory(name("a.log"));
    use("b.log");
    {
        const CapturedLog log;
        use("a.log");
        EXPECT_EQ(mine(), nullptr);
        EXPECT_EQ(errorTexts(log), (Texts{"Failed to create file '" + name("a.log") + "'.",
                                          "Failed to create file " + name("a.log") + "."}));
    }
    // Whoever names it again gets it as it is, though it would open now.
    std::filesystem::remove(name("a.log"));
    const CapturedLog log;
    use("a.log");
    ASSERT_NE(mine(), nullptr);
    EXPECT_EQ(mine()->fileName, name("a.log"));
    EXPECT_EQ(mine()->provider, nullptr);
    EXPECT_EQ(log.size(), 0u);
    EXPECT_EQ(opened().size(), 2u);
    EXPECT_FALSE(std::filesystem::exists(name("a.log")));
}

TEST_F(EventsTest, LinesToAFileThatDidNotOpenAreDropped) {
    std::filesystem::create_directory(name("a.log"));
    use("a.log");
    std::filesystem::remove(name("a.log"));
    use("a.log");
    error("dropped");
    EXPECT_FALSE(std::filesystem::exists(name("a.log")));
    use("b.log");
    error("text");
    EXPECT_EQ(messages("b.log"), Texts{"text"});
}

TEST_F(EventsTest, FailedOpensFillTheSlots) {
    for (int i = 0; i < 40; ++i) {
        std::filesystem::create_directory(name("log" + std::to_string(i)));
        use("log" + std::to_string(i));
        EXPECT_EQ(mine(), nullptr);
    }
    use("b.log");
    EXPECT_EQ(mine(), nullptr);
    EXPECT_FALSE(std::filesystem::exists(name("b.log")));
}

TEST_F(EventsTest, RaisedRotationKeepsTheSlotAndARetryWritesNothing) {
    const std::string settings = ini("[files]\nlogdepth=2\n");
    m_folder.write("a.log", "old", 0);
    use("b.log");
    RotatingFolder::fail(5);
    EXPECT_THROW(use("a.log", settings.c_str()), std::filesystem::filesystem_error);
    EXPECT_EQ(mine(), nullptr);
    EXPECT_EQ(RotatingFolder::sleeps().size(), 4u);

    use("a.log", settings.c_str());
    ASSERT_NE(mine(), nullptr);
    EXPECT_EQ(mine()->provider, nullptr);
    EXPECT_TRUE(mine()->isRotate);
    EXPECT_EQ(mine()->rotateDepth, 2);
    error("dropped");
    EXPECT_EQ(RotatingFolder::moves().size(), 5u);
    EXPECT_EQ(bytesOf(name("a.log")), "old");
}

TEST_F(EventsTest, RaiseInTheMiddleLeavesAGap) {
    const std::string settings = ini("[files]\nlogdepth=2\n");
    m_folder.write("a.log", "old", 0);
    m_folder.write("a.log.1", "older", 0);
    RotatingFolder::fail(5, 1);
    EXPECT_THROW(use("a.log", settings.c_str()), std::filesystem::filesystem_error);
    EXPECT_EQ(bytesOf(name("a.log")), "old");
    EXPECT_FALSE(std::filesystem::exists(name("a.log.1")));
    EXPECT_EQ(bytesOf(name("a.log.2")), "older");
}

TEST_F(EventsTest, FolderThatCannotBeMadeIsRaisedAndKeepsTheSlot) {
    m_folder.files().write("a", "a file");
    const std::string inside = (m_folder.files().path() / "a" / "x.log").string();
    EXPECT_NE(raisedText([&] { m_logs.setThreadFile(inside.c_str(), nullptr); }), "(nothing)");
    EXPECT_EQ(mine(), nullptr);
    EXPECT_EQ(raisedText([&] { m_logs.setThreadFile(inside.c_str(), nullptr); }), "(nothing)");
    ASSERT_NE(mine(), nullptr);
    EXPECT_EQ(mine()->provider, nullptr);
}

TEST_F(EventsTest, DiskThatTakesNothingDoesNotStopTheThread) {
    use("a.log");
    const auto real = platform::calls.appendStorage;
    platform::calls.appendStorage = [](platform::StorageHandle, const void*, std::uint32_t,
                                       std::uint32_t* done) {
        *done = 0;
        return false;
    };
    error("lost");
    platform::calls.appendStorage = real;
    error("kept");
    EXPECT_EQ(messages("a.log"), Texts{"kept"});
}

// ---- lines about a log's own opening ----

TEST_F(EventsTest, LogTakesTheLinesAboutItsOwnOpening) {
    const std::string settings = ini("[files]\nlogdepth=2\n");
    m_folder.write("a.log", "", 1'700'000'000);
    use("a.log", settings.c_str());
    error("text");
    const Texts lines = messages("a.log");
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0].find("Info: Rotation is not started. The creation day of the " +
                            name("a.log") + " is "),
              0u);
    EXPECT_EQ(lines[1], "text");
}

TEST_F(EventsTest, LinesAboutTheOpeningFollowWhatTheFileHeld) {
    const std::string settings = ini("[files]\nlogdepth=2\n");
    m_folder.write("a.log", "old\r\n", 1'700'000'000);
    use("a.log", settings.c_str());
    EXPECT_EQ(messages("a.log").size(), 2u);
    EXPECT_EQ(bytesOf(name("a.log")).compare(0, 5, "old\r\n"), 0);
}

TEST_F(EventsTest, MovesThatNeededMoreTriesAreToldInTheNewFile) {
    const std::string settings = ini("[files]\nlogdepth=1\n");
    m_folder.write("a.log", "old", 0);
    RotatingFolder::fail(2);
    use("a.log", settings.c_str());
    EXPECT_EQ(bytesOf(name("a.log.1")), "old");
    EXPECT_EQ(messages("a.log").size(), 2u);
    EXPECT_EQ(messages("a.log").at(0).find("rename("), 0u);
    EXPECT_TRUE(mine()->provider->isGood());
    EXPECT_EQ(mine().use_count(), 2); // the slot and the thread
}

TEST_F(EventsTest, OtherKindsTellTheThreadsErrorLog) {
    Events<EventsTlsPtr> events;
    const std::string settings = ini("[files]\nlogdepth=2\n");
    m_folder.write("e.log", "", 1'700'000'000);
    use("a.log");
    events.setThreadFile(name("e.log").c_str(), settings.c_str());
    EXPECT_EQ(messages("a.log").size(), 1u);
    EXPECT_EQ(bytesOf(name("e.log")), "");
    EXPECT_TRUE(threadLogState().eventsFile->provider->isGood());
    threadLogState().eventsFile.reset();
}

// ---- rotation ----

TEST_F(EventsTest, SettingsStandInTheEntryAndTheFileIsTouched) {
    RotatingFolder::setClock(1'600'000'000);
    const std::string settings = ini("[logfile]\nrotate=a.log,3\n");
    use("a.log", settings.c_str());
    EXPECT_TRUE(mine()->isRotate);
    EXPECT_EQ(mine()->rotateDepth, 3);
    const auto touched = std::filesystem::last_write_time(name("a.log"));
    use("b.log", settings.c_str());
    EXPECT_FALSE(mine()->isRotate);
    EXPECT_GT(std::filesystem::last_write_time(name("b.log")) - touched, std::chrono::hours(1000));
}

TEST_F(EventsTest, FileIsRotatedWhenItIsOpenedAndNotAgain) {
    const std::string settings = ini("[files]\nlogdepth=3\n");
    m_folder.write("a.log", "old", 0);
    use("a.log", settings.c_str());
    EXPECT_EQ(bytesOf(name("a.log.1")), "old");
    error("first day");
    RotatingFolder::setClock(1'800'000'000);
    use("b.log", settings.c_str());
    use("a.log", settings.c_str());
    fileOfThread([&] { use("a.log", settings.c_str()); });
    error("later day");
    EXPECT_EQ(messages("a.log"), (Texts{"first day", "later day"}));
    EXPECT_FALSE(std::filesystem::exists(name("a.log.2")));
}

TEST_F(EventsTest, SetUpWaitsForARotation) {
    const std::string settings = ini("[files]\nlogdepth=3\n");
    m_folder.write("a.log", "old", 0);
    static std::atomic<bool> rotates, passed, finished, early;
    rotates = passed = finished = early = false;
    platform::calls.sleep = [](std::uint32_t) {
        rotates = true;
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        early = early || finished;
    };
    RotatingFolder::fail(1);
    std::thread other([&] {
        while (!rotates && !passed)
            std::this_thread::yield();
        use("b.log");
        finished = true;
    });
    use("a.log", settings.c_str());
    passed = true;
    other.join();
    EXPECT_TRUE(rotates);
    EXPECT_FALSE(early);
}

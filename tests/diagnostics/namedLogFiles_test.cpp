// The logs that a host names itself, the net log, and the console.

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <iostream>
#include <memory>
#include <mutex>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "diagnostics/errorTexts.h"
#include "diagnostics/logFilesFixture.h"
#include "logs/Events.h"
#include "logs/logger.h"
#include "support/raised.h"
#include "support/testLogger.h"
#include "support/waitWhile.h"
#include "support/writeOnlyFile.h"

namespace {

using Texts = std::vector<std::string>;

class NamedLogFiles : public LogFilesFixture {};
class LogFileSlots : public LogFilesFixture {};

// A stream of the process that writes into a text for a scope.
class Redirected {
  public:
    explicit Redirected(std::ostream& stream)
        : m_stream(stream), m_former(stream.rdbuf(m_text.rdbuf())) {}
    ~Redirected() { m_stream.rdbuf(m_former); }
    Redirected(const Redirected&) = delete;
    Redirected& operator=(const Redirected&) = delete;
    std::string text() const { return m_text.str(); }

  private:
    std::ostringstream m_text;
    std::ostream& m_stream;
    std::streambuf* m_former;
};

} // namespace

TEST_F(NamedLogFiles, LongNameOfAnEventLogIsThatOfItsFile) {
    const std::string folder = (m_folder.path() / "long").string();
    std::filesystem::create_directories(folder);
    for (const std::size_t length : {256, 257, 259, 300}) {
        const std::string name = folder + "/" + std::string(length - folder.size() - 1, 'n');
        util_init(name.c_str(), nullptr, nullptr, nullptr);
        event("%d characters", static_cast<int>(length));
        shutdown_logs();
    }
    std::size_t files = 0;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        ++files;
        EXPECT_EQ(entry.path().string().size(), 256u);
        EXPECT_EQ(messagesIn(entry.path()),
                  (Texts{"256 characters", "257 characters", "259 characters", "300 characters"}));
    }
    EXPECT_EQ(files, 1u);
}

TEST_F(NamedLogFiles, ClosedFilesTakeNoLinesAndTheirThreadsGoOn) {
    util_init("events.log", "errors.log", nullptr, nullptr);
    error("before");
    Events<ErrorsTlsPtr>::closeFiles();
    Events<EventsTlsPtr>::closeFiles();
    Events<NetEventsTlsPtr>::closeFiles();
    error("after");
    EXPECT_EQ(messages("errors.log").size(), 1u);
    EXPECT_EQ(messages("events.log").size(), 2u) << "that of the logger";
}

TEST_F(NamedLogFiles, EventLogThatMayBeWrittenAndNotReadTakesItsLines) {
    const std::string path = m_folder.write("events.log", "old\r\n");
    {
        const WriteOnlyFile closed(path);
        if (!closed.holds())
            GTEST_SKIP() << "the file system lets the file be read all the same";
        util_init("events.log", nullptr, nullptr, nullptr);
        event("new");
        shutdown_logs();
    }
    const std::string bytes = bytesOf(path);
    EXPECT_TRUE(bytes.starts_with("old\r\n")) << bytes;
    EXPECT_TRUE(bytes.ends_with(" new\r\n")) << bytes;
}

// Its own thread drains it.
TEST_F(NamedLogFiles, ErrorLeavesTheWorkerAsleep) {
    if (Events<ErrorsTlsPtr>::linkOfLines() != nullptr)
        GTEST_SKIP() << "a test of this process has linked the console, which wakes the worker";
    struct Waiting : IStreamProvider {
        explicit Waiting(std::filesystem::path path) : events(std::move(path)) {}
        bool isGood() const override { return true; }
        bool write(const void*, std::uint64_t) override {
            for (int i = 0; i < 100 && seen.empty(); ++i) {
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
                seen = messagesIn(events);
            }
            return true;
        }
        std::filesystem::path events;
        Texts seen;
    };
    GatedLogger logger(m_folder.name("events.log"), 1);
    logger.openGate();
    sysLogger = &*logger;
    auto entry = std::make_shared<EVENTS>();
    auto provider = std::make_unique<Waiting>(m_folder.path() / "events.log");
    const Waiting& waiting = *provider;
    entry->provider = std::move(provider);
    threadLogState().errorsFile = entry;
    error("seen");
    threadLogState().errorsFile.reset();
    sysLogger = nullptr;
    EXPECT_EQ(waiting.seen, Texts{}) << "in front of the drain";
    EXPECT_EQ(messages("events.log"), Texts{"seen"});
}

// Whoever holds the file may be kept waiting for good, and who waits for it does not drain.
TEST_F(NamedLogFiles, ErrorReachesTheEventLogWhileAnotherThreadHoldsTheErrorFile) {
    GatedLogger logger(m_folder.name("events.log"), 1);
    logger.openGate();
    sysLogger = &*logger;
    util_init(nullptr, "errors.log", nullptr, nullptr);
    const std::shared_ptr<EVENTS> shared = threadLogState().errorsFile;
    std::unique_lock held(shared->lock);
    std::thread logging([&shared] {
        threadLogState().errorsFile = shared;
        error("seen");
        threadLogState().errorsFile.reset();
    });
    while (messages("events.log").empty())
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    EXPECT_EQ(messages("errors.log"), Texts{});
    held.unlock();
    logging.join();
    sysLogger = nullptr;
    EXPECT_EQ(messages("errors.log"), Texts{"seen"});
    EXPECT_EQ(messages("events.log"), Texts{"seen"});
}

TEST_F(NamedLogFiles, ErrorReachesTheEventLogWhileTheConsoleWaits) {
    class Waiting : public std::stringbuf {
      public:
        std::atomic<bool> open{false};

      protected:
        std::streamsize xsputn(const char*, std::streamsize size) override {
            waitWhile(open, false);
            return size;
        }
    };
    Waiting waiting;
    std::streambuf* const former = std::cerr.rdbuf(&waiting);
    EnableForwardLogToConsole();
    util_init("events.log", "errors.log", nullptr, nullptr);
    std::thread logging([] { error("seen"); });
    while (messages("events.log").empty())
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    waiting.open = true;
    logging.join();
    std::cerr.rdbuf(former);
}

// ---- the console ----

TEST_F(NamedLogFiles, ConsoleIsLinkedByOpeningsBehindTheSwitch) {
    const Redirected out(std::cout);
    const Redirected err(std::cerr);
    util_init("events.log", "errors.log", nullptr, nullptr);
    event("silent");
    error("silent");
    EXPECT_EQ(EnableForwardLogToConsole(), 0);
    EXPECT_EQ(EnableForwardLogToConsole(), 1);
    event("still silent");
    error("still silent");
    EXPECT_EQ(out.text() + err.text(), "");

    util_init("events.log", nullptr, nullptr, nullptr);
    event("seen");
    warning("still silent");
    EXPECT_EQ(err.text(), "");
    util_init("events.log", "errors.log", nullptr, nullptr); // linked once
    error("seen");
    std::thread([] { event("of another thread"); }).join();
    exc_h_print("never there");
    netevent("nor this");
    EXPECT_EQ(errorText(CapturedLog::message(err.text())), "seen\r");
    const std::string events = out.text();
    const std::size_t end = events.find('\n');
    EXPECT_EQ(CapturedLog::message(events.substr(0, end)), "seen\r");
    EXPECT_EQ(CapturedLog::message(events.substr(end + 1)), "of another thread\r");
}

// ---- util_init ----

TEST_F(NamedLogFiles, NamedFilesAreOpenedTheErrorLogFirst) {
    static Texts opened;
    static decltype(platform::Calls::openStorage) real;
    opened.clear();
    real = platform::calls.openStorage;
    platform::calls.openStorage = [](const char* path, platform::StorageAccess access) {
        opened.push_back(path);
        return real(path, access);
    };
    const auto folder = m_folder.enter("elsewhere");
    m_folder.write("my.ini", "[logfile]\nrotate=e.log,5\n[Files]\nlogdepth=9\n");
    EXPECT_EQ(util_init("sub\\e.log", ".\\r.log", "MARK", "my.ini"), 0);
    // The logger opens its file as well.
    EXPECT_EQ(opened, (Texts{m_folder.name("r.log"), m_folder.name("sub/e.log"),
                             m_folder.name("sub/e.log")}));
    EXPECT_EQ(errorsFile(), m_folder.name("r.log"));
    EXPECT_EQ(eventsFile(), m_folder.name("sub/e.log"));
    EXPECT_FALSE(threadLogState().errorsFile->isRotate);
    EXPECT_EQ(threadLogState().eventsFile->rotateDepth, 5);
    EXPECT_STREQ(getsmark(), "MARK");
    EXPECT_TRUE(std::filesystem::equivalent(std::filesystem::current_path(), folder));
    event("event");
    error("error");
    shutdown_logs();
    EXPECT_EQ(messages("sub/e.log"), (Texts{"event", "error"}));
    EXPECT_EQ(messages("r.log"), Texts{"error"});
}

TEST_F(NamedLogFiles, NullAndEmptyNamesOpenNothing) {
    for (const char* none : {static_cast<const char*>(nullptr), ""}) {
        EXPECT_EQ(util_init(none, none, none, none), 0);
        EXPECT_EQ(errorsFile(), "(none)");
        EXPECT_EQ(eventsFile(), "(none)");
        EXPECT_EQ(sysLogger.load(), nullptr);
    }
    EXPECT_EQ(util_init(nullptr, "r.log", nullptr, nullptr), 0);
    EXPECT_EQ(sysLogger.load(), nullptr);
    EXPECT_EQ(util_init("e.log", "", nullptr, ""), 0);
    EXPECT_EQ(errorsFile(), m_folder.name("r.log")); // stays
    EXPECT_FALSE(threadLogState().eventsFile->isRotate);
}

TEST_F(NamedLogFiles, WithoutAnIniPathNothingRotates) {
    m_folder.write("sarn.ini", "[Files]\nlogdepth=9\n");
    m_folder.enter(".");
    util_init("e.log", "r.log", nullptr, nullptr);
    EXPECT_FALSE(threadLogState().eventsFile->isRotate);
    EXPECT_FALSE(threadLogState().errorsFile->isRotate);
}

TEST_F(NamedLogFiles, ErrorLogThatIsRaisedLeavesTheEventLogClosed) {
    m_folder.write("file", "");
    EXPECT_NE(raisedText([] { util_init("e.log", "file\\r.log", "MARK", nullptr); }), "(nothing)");
    EXPECT_FALSE(m_folder.has("e.log"));
    EXPECT_STREQ(getsmark(), "");
}

// ---- the net log and the rest ----

TEST_F(NamedLogFiles, NetLogTakesTheThreadsTextAsItStands) {
    netevent("dropped");
    EXPECT_FALSE(m_folder.has("stats"));
    netutil_init();
    EXPECT_EQ(nameOf(threadLogState().netEventsFile), m_folder.name("stats/netevent.log"));
    EXPECT_FALSE(threadLogState().netEventsFile->isRotate);
    netevent("%s %d", "text", 1);
    netevent(";next\n");
    std::thread([] { netevent("of a thread without a net log"); }).join();
    std::thread([] {
        netutil_init();
        netevent("of another");
    }).join();
    EXPECT_EQ(bytesOf(m_folder.path() / "stats/netevent.log"), "text 1;next\r\nof another");
}

TEST_F(NamedLogFiles, NetLogIsNeverRotated) {
    m_folder.write("sarn.ini", "[files]\nlogdepth=3\n");
    std::filesystem::create_directories(m_folder.path() / "stats");
    m_folder.write("stats/netevent.log", "old ");
    platform::calls.creationTime = [](const char*, std::int64_t* seconds, int*) {
        *seconds = 0;
        return true;
    };
    netutil_init();
    netevent("new");
    EXPECT_EQ(bytesOf(m_folder.path() / "stats/netevent.log"), "old new");
    EXPECT_FALSE(m_folder.has("stats/netevent.log.1"));
}

TEST_F(NamedLogFiles, ConsoleIsLinkedBeforeTheFileIsOpened) {
    const std::string settings = ini("[files]\nlogdepth=1\n");
    m_folder.write("errors.log", "of today");
    const Redirected err(std::cerr);
    EnableForwardLogToConsole();
    util_init(nullptr, "errors.log", nullptr, settings.c_str());
    EXPECT_NE(err.text().find("Info: Rotation is not started."), std::string::npos) << err.text();
}

TEST_F(NamedLogFiles, DealLibraryHasNoLog) {
    init_dealliblog();
    EXPECT_TRUE(std::filesystem::is_empty(m_folder.path()));
    EXPECT_EQ(sysLogger.load(), nullptr);
}

// It takes all slots of its process.
TEST_F(LogFileSlots, EventLogBeyondTheFortyIsTheLoggersAllTheSame) {
    for (int i = 0; i < 40; ++i)
        util_init(("slot" + std::to_string(i)).c_str(), nullptr, nullptr, nullptr);
    EXPECT_EQ(eventsFile(), m_folder.name("slot39"));
    shutdown_logs();
    const CapturedLog log;
    util_init("more.log", nullptr, nullptr, nullptr);
    EXPECT_EQ(eventsFile(), "(none)");
    EXPECT_NE(sysLogger.load(), nullptr);
    EXPECT_TRUE(m_folder.has("more.log"));
    EXPECT_EQ(log.size(), 0u);
}

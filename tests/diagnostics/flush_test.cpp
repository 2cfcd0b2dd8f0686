// Where finished lines go: through the functions that callers use, into logs of the test.

#include <gtest/gtest.h>

#include <cstdarg>
#include <memory>
#include <mutex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "diagnostics/flushFixture.h"
#include "logs/Events.h"
#include "vdreader/log.h"
#include "vdreader/logfiles.h"

namespace {

void callWithList(void (*log)(const char*, va_list), const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    log(format, arguments);
    va_end(arguments);
}

struct Kind {
    const char* name;
    void (*log)();
};

// All that log an error.
const Kind kErrors[] = {
    {"error", [] { error("%s %d", "text", 1); }},
    {"verror", [] { callWithList(verror, "text %d", 1); }},
    {"warning", [] { warning("%s", "text"); }},
    {"vwarning", [] { callWithList(vwarning, "text %d", 1); }},
    {"oserrori", [] { oserrori("text"); }},
    {"oserrori_ex", [] { oserrori_ex("x.cpp", 1, "text"); }},
    {"socerrori", [] { socerrori("text"); }},
    {"socerrori_ex", [] { socerrori_ex("x.cpp", 1, "text"); }},
};
const Kind kEvents[] = {
    {"event", [] { event("%s %d", "text", 1); }},
    {"vevent", [] { callWithList(vevent, "text %d", 1); }},
    {"devent", [] { devent(0, "text"); }},
};

} // namespace

// ---- what goes where ----

TEST_F(Flush, ErrorsAreInBothFilesWhenTheCallReturns) {
    std::string expected;
    for (const Kind& kind : kErrors) {
        kind.log();
        expected += lastLine();
        EXPECT_EQ(eventFile(), expected) << kind.name;
        EXPECT_EQ(m_errors.recorder->all(), expected) << kind.name;
    }
    EXPECT_EQ(m_events.recorder->all(), "");
    EXPECT_EQ(m_net.recorder->all(), "");
}

TEST_F(Flush, EventsWaitForTheWorkerAndGoThroughNoFileOfTheThread) {
    std::string expected;
    for (const Kind& kind : kEvents) {
        kind.log();
        expected += lastLine();
        EXPECT_EQ(eventFile(), "") << kind.name;
    }
    EXPECT_EQ(drained(), expected);
    EXPECT_EQ(m_events.recorder->all(), "");
    EXPECT_EQ(m_errors.recorder->all(), "");
    EXPECT_EQ(m_net.recorder->all(), "");
}

TEST_F(Flush, ErrorFinishesTheEventsInFrontOfIt) {
    event("one");
    std::string expected = lastLine();
    event("two");
    expected += lastLine();
    error("three");
    expected += lastLine();
    EXPECT_EQ(eventFile(), expected);
    EXPECT_EQ(m_errors.recorder->all(), lastLine());
}

TEST_F(Flush, ExceptionReportIsWrittenThroughAndIsNoError) {
    event("in front");
    const std::string first = lastLine();
    exc_h_print("%s", "fault");
    EXPECT_EQ(eventFile(), first + lastLine());
    EXPECT_EQ(m_errors.recorder->all(), "");
    EXPECT_EQ(m_events.recorder->all(), "");
    EXPECT_EQ(m_net.recorder->all(), "");
}

TEST_F(Flush, NetEventIsItsTextAloneInTheNetFileAlone) {
    netevent("%s|", "raw");
    netevent("line\n");
    EXPECT_EQ(m_net.recorder->texts, (std::vector<std::string>{"raw|", "line\r\n"}));
    EXPECT_EQ(drained(), "");
    EXPECT_EQ(m_errors.recorder->all(), "");
    EXPECT_EQ(m_events.recorder->all(), "");
}

TEST_F(Flush, WithoutALoggerOnlyTheThreadsFilesAreWritten) {
    closeLogger();
    for (const Kind& kind : kEvents)
        kind.log();
    exc_h_print("nowhere");
    EXPECT_EQ(m_errors.recorder->all(), "");
    error("text");
    EXPECT_EQ(m_errors.recorder->all(), lastLine());
    netevent("net");
    EXPECT_EQ(m_net.recorder->all(), "net");
    EXPECT_EQ(eventFile(), "");
}

TEST_F(Flush, ErrorOfAThreadWithoutAnErrorFileIsInTheEventLogAlone) {
    std::string line;
    std::thread([&] {
        error("text");
        line = lastLine();
        netevent("nowhere");
    }).join();
    EXPECT_EQ(eventFile(), line);
    EXPECT_EQ(m_errors.recorder->all(), "");
    EXPECT_EQ(m_net.recorder->all(), "");
}

TEST_F(Flush, RecordOfALineIsAnInfo) {
    // Another mask lets nothing pass, so it is the one of info that counts.
    sysLogger.load()->levelMask = {14, 0, 0, 0};
    error("text");
    EXPECT_EQ(eventFile(), lastLine());
    sysLogger.load()->levelMask = {0, 14, 14, 14};
    const std::string before = eventFile();
    error("dropped");
    EXPECT_EQ(eventFile(), before);
    EXPECT_NE(m_errors.recorder->all().find("dropped"), std::string::npos);
}

TEST_F(Flush, ShutdownWritesWhatAWorkerThatEndedEarlyLeft) {
    event("left");
    EXPECT_EQ(eventFile(), "");
    shutdown_logs();
    EXPECT_EQ(eventFile(), lastLine());
    EXPECT_EQ(sysLogger, nullptr);
    shutdown_logs(); // there is nothing to shut down
    event("nowhere");
    EXPECT_EQ(eventFile().find("nowhere"), std::string::npos);
}

// ---- a target that is not there ----

TEST_F(Flush, TargetWithoutAProviderDropsItsLines) {
    m_errors.entry->provider.reset();
    error("text");
    EXPECT_EQ(eventFile(), lastLine());
    threadLogState().errorsFile.reset();
    error("more");
    EXPECT_NE(eventFile().find("more"), std::string::npos);
}

TEST_F(Flush, ProviderThatIsNotGoodIsNotWritten) {
    m_errors.recorder->good = false;
    error("text");
    EXPECT_TRUE(m_errors.recorder->texts.empty());
    EXPECT_EQ(eventFile(), lastLine());
    m_errors.recorder->good = true;
    error("again");
    EXPECT_EQ(m_errors.recorder->all(), lastLine());
}

TEST_F(Flush, ResultOfAWriteIsNotLookedAt) {
    m_errors.recorder->taking = false;
    error("one");
    error("two");
    EXPECT_EQ(m_errors.recorder->texts.size(), 2u);
}

TEST_F(Flush, TargetIsWrittenUnderItsLockInOnePiece) {
    static Target* target;
    static bool free = false;
    target = &m_errors;
    free = true;
    m_errors.recorder->during = [] {
        std::thread([] {
            free = target->entry->lock.try_lock();
            if (free)
                target->entry->lock.unlock();
        }).join();
    };
    error("a\nb");
    EXPECT_FALSE(free);
    EXPECT_EQ(m_errors.recorder->texts.size(), 1u);
    EXPECT_TRUE(m_errors.entry->lock.try_lock());
    m_errors.entry->lock.unlock();
}

TEST_F(Flush, TargetLivesWhileItIsWritten) {
    static bool destroyed = false;
    struct Leaving : Recorder {
        ~Leaving() override { destroyed = true; }
        bool write(const void* data, std::uint64_t size) override {
            threadLogState().errorsFile.reset();
            EXPECT_FALSE(destroyed);
            return Recorder::write(data, size);
        }
    };
    destroyed = false;
    auto entry = std::make_shared<EVENTS>();
    entry->provider = std::make_unique<Leaving>();
    threadLogState().errorsFile = std::move(entry);
    error("text");
    EXPECT_TRUE(destroyed);
}

// ---- lines of unusual form ----

TEST_F(Flush, CutLineKeepsItsWholeLineEnd) {
    error("%s", std::string(3000, 'x').c_str());
    ASSERT_EQ(lastLine().size(), 2001u);
    EXPECT_TRUE(lastLine().ends_with("xxx...\r\n"));
    EXPECT_EQ(m_errors.recorder->all(), lastLine());
    EXPECT_EQ(eventFile(), lastLine());
}

TEST_F(Flush, LineThatFillsTheBufferKeepsItsWholeLineEnd) {
    error("%s", "");
    const std::size_t around = static_cast<std::size_t>(getaptr() - getabuf());
    for (const std::size_t length : {1998u, 1999u, 2000u}) {
        error("%s", std::string(length - around, 'x').c_str());
        EXPECT_TRUE(lastLine().ends_with("x\r\n") || lastLine().ends_with("...\r\n")) << length;
        EXPECT_EQ(m_errors.recorder->texts.back(), lastLine()) << length;
    }
}

TEST_F(Flush, ErrorFileTakes2000BytesOfALineWithManyLineFeeds) {
    const std::string feeds(1500, '\n');
    error("%s", feeds.c_str());
    const std::string line = lastLine();
    ASSERT_GT(line.size(), 3000u);
    const std::string& text = m_errors.recorder->texts.back();
    EXPECT_GE(text.size(), 2000u);
    EXPECT_LE(text.size(), 2001u);
    EXPECT_EQ(text, line.substr(0, text.size()));
    EXPECT_EQ(text.back(), '\n');
    EXPECT_EQ(eventFile(), line);
}

TEST_F(Flush, LineFeedsInsideALineBecomeThoseOfWindows) {
    error("a\nb\r\n");
    EXPECT_TRUE(lastLine().ends_with("a\r\nb\r\r\n\r\n"));
    EXPECT_EQ(m_errors.recorder->all(), lastLine());
    EXPECT_EQ(eventFile(), lastLine());
}

TEST_F(Flush, LineWithANulIsWholeInTheErrorFileAndEndsThereInTheEventLog) {
    error("left%cright", 0);
    const std::string line = lastLine();
    ASSERT_NE(line.find('\0'), std::string::npos);
    EXPECT_TRUE(line.ends_with("right\r\n"));
    EXPECT_EQ(m_errors.recorder->all(), line);
    EXPECT_EQ(eventFile(), line.substr(0, line.find('\0')));
    netevent("a%cb", 0);
    EXPECT_EQ(m_net.recorder->all(), std::string("a\0b", 3));
}

TEST_F(Flush, EmptyNetEventIsAnEmptyWrite) {
    netevent("%s", "");
    EXPECT_EQ(m_net.recorder->all(), "");
}

// ---- console links, which stay as long as the process ----

TEST_F(Flush, LinkedStreamsGetTheirKindOfLine) {
    static std::ostringstream* const errors = new std::ostringstream;
    static std::ostringstream* const events = new std::ostringstream;
    Events<ErrorsTlsPtr>::instance().linkStream(*errors);
    Events<EventsTlsPtr>::instance().linkStream(*events);
    std::string expected;
    for (const Kind& kind : kErrors) {
        kind.log();
        expected += lastLine();
    }
    EXPECT_EQ(errors->str(), expected);
    EXPECT_EQ(m_errors.recorder->all(), expected);
    EXPECT_EQ(events->str(), "");
    expected.clear();
    for (const Kind& kind : kEvents) {
        kind.log();
        expected += lastLine();
    }
    EXPECT_EQ(events->str(), expected);
    errors->str("");
    events->str("");
    exc_h_print("fault");
    netevent("net");
    EXPECT_EQ(errors->str() + events->str(), "");
    errors->setstate(std::ios::failbit);
    error("into the file alone");
    EXPECT_EQ(errors->str(), "");
    EXPECT_TRUE(m_errors.recorder->all().ends_with(lastLine()));
}

// ---- many threads ----

TEST_F(Flush, ErrorsOfManyThreadsAreInBothFilesWhenTheirCallsReturn) {
    closeLogger();
    GatedLogger logger(m_folder.name("events.log"), 1);
    logger.openGate();
    sysLogger = &*logger;
    const std::shared_ptr<EVENTS> shared = fileTarget("errors.log");
    std::vector<std::thread> threads;
    std::vector<std::string> missing(4);
    for (std::size_t thread = 0; thread < 4; ++thread)
        threads.emplace_back([&, thread] {
            threadLogState().errorsFile = shared;
            for (int i = 0; i < 60; ++i) {
                event("T%zu event %d", thread, i);
                error("T%zu error %d", thread, i);
                const std::string line = lastLine();
                if (m_folder.read("errors.log").find(line) == std::string::npos ||
                    eventFile().find(line) == std::string::npos)
                    missing[thread] += line;
            }
            threadLogState().errorsFile.reset();
        });
    for (std::thread& thread : threads)
        thread.join();
    sysLogger = nullptr;
    logger.finish();
    for (const std::string& lines : missing)
        EXPECT_EQ(lines, "");
    const std::string all = eventFile();
    for (std::size_t thread = 0; thread < 4; ++thread) {
        std::size_t at = 0;
        for (int i = 0; i < 60; ++i) {
            const std::string name = "T" + std::to_string(thread);
            at = all.find(name + " event " + std::to_string(i) + "\r\n", at);
            ASSERT_NE(at, std::string::npos);
            at = all.find(name + " error " + std::to_string(i) + "\r\n", at);
            ASSERT_NE(at, std::string::npos);
        }
    }
}

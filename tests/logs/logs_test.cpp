// Logs that another process writes: nothing is lost, torn or out of order.

#include <gtest/gtest.h>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "lines.h"
#include "support/process.h"
#include "support/tempFolder.h"

namespace {

using toolTest::RunResult;

constexpr int kThreads = 8;

// The lines of a log, in order within each thread.
struct Log {
    std::vector<std::vector<int>> numbers = std::vector<std::vector<int>>(kThreads);
    std::string broken; // the first line that is none of the host's
    std::string rest;   // behind the last line end
};

// The decimal number at a place of a line, -1 for none.
int numberAt(const std::string& line, std::size_t at) {
    int number = -1;
    if (at < line.size())
        std::from_chars(line.data() + at, line.data() + line.size(), number);
    return number;
}

// Takes one line over, without its end.
void take(Log& log, const std::string& line) {
    const std::size_t at = line.rfind(": T");
    const std::size_t text = at != std::string::npos ? at + 2 : line.size();
    const int thread = numberAt(line, text + 1);
    const int number = numberAt(line, text + 5);
    if (thread >= 0 && thread < kThreads && number >= 0 &&
        line.compare(text, std::string::npos, lineText(thread, number)) == 0 &&
        (line[0] == 'V' || line[0] == 'E') && line[1] == ':')
        log.numbers[static_cast<std::size_t>(thread)].push_back(number);
    else if (line.find("): start ") == std::string::npos && log.broken.empty())
        log.broken = line;
}

Log readLog(const std::filesystem::path& file) {
    Log log;
    std::ifstream in(file, std::ios::binary);
    std::string line;
    while (std::getline(in, line)) {
        if (in.eof()) {
            log.rest = line;
            break;
        }
        if (line.empty() || line.back() != '\r') {
            log.broken = line;
            break;
        }
        line.pop_back();
        take(log, line);
    }
    return log;
}

// All numbers from 0 up to `lines`, or the errors among them, each once and in order.
std::vector<int> expected(int lines, bool errorsAlone) {
    std::vector<int> numbers;
    for (int number = 0; number < lines; ++number)
        if (!errorsAlone || isError(number))
            numbers.push_back(number);
    return numbers;
}

bool begins(const std::vector<int>& all, const std::vector<int>& with) {
    return all.size() >= with.size() && std::equal(with.begin(), with.end(), all.begin());
}

void expectWhole(const Log& log, int lines, bool errorsAlone) {
    EXPECT_EQ(log.broken, "");
    EXPECT_EQ(log.rest, "");
    for (int thread = 0; thread < kThreads; ++thread)
        EXPECT_TRUE(log.numbers[static_cast<std::size_t>(thread)] == expected(lines, errorsAlone))
            << "thread " << thread << ": " << log.numbers[static_cast<std::size_t>(thread)].size();
}

// The last number that a thread told to be written, -1 if none.
int lastDone(const std::filesystem::path& file) {
    std::ifstream in(file, std::ios::binary);
    int last = -1;
    for (std::string line; std::getline(in, line) && !in.eof();)
        std::from_chars(line.data(), line.data() + line.size(), last);
    return last;
}

class Logs : public testing::Test {
  protected:
    RunResult host(const std::string& role, int lines) const {
        return toolTest::run(LOG_HOST, {role, m_folder.path().string(), std::to_string(kThreads),
                                        std::to_string(lines)});
    }
    std::filesystem::path file(const std::string& name) const { return m_folder.path() / name; }

    // Every error that a thread knows to be written stands in both files, and all events that it
    // logged before in the event log, in order and once.  How many errors that are.
    int expectWritten() const {
        const Log events = readLog(file("events.log"));
        const Log errors = readLog(file("errors.log"));
        EXPECT_EQ(events.broken, "");
        EXPECT_EQ(errors.broken, "");
        int count = 0;
        for (int thread = 0; thread < kThreads; ++thread) {
            const int last = lastDone(file("done-" + std::to_string(thread)));
            const auto place = static_cast<std::size_t>(thread);
            EXPECT_TRUE(begins(events.numbers[place], expected(last + 1, false)))
                << last << " of thread " << thread << " in the event log of "
                << events.numbers[place].size();
            EXPECT_TRUE(begins(errors.numbers[place], expected(last + 1, true)))
                << last << " of thread " << thread << " in the error log of "
                << errors.numbers[place].size();
            count += (last + 1) / kErrorEvery;
        }
        return count;
    }

    toolTest::TempFolder m_folder;
};

} // namespace

TEST_F(Logs, EventsOfEightThreadsAreAllWrittenByTheShutdown) {
    const RunResult result = host("events", LOG_LINES / kThreads);
    ASSERT_EQ(result.code, 0) << result.out << result.err;
    expectWhole(readLog(file("events.log")), LOG_LINES / kThreads, false);
}

TEST_F(Logs, ErrorsAmongTheEventsAreInBothFiles) {
    const RunResult result = host("mixed", LOG_LINES / kThreads);
    ASSERT_EQ(result.code, 0) << result.out << result.err;
    expectWhole(readLog(file("events.log")), LOG_LINES / kThreads, false);
    expectWhole(readLog(file("errors.log")), LOG_LINES / kThreads, true);
}

TEST_F(Logs, KilledProcessKeepsEveryErrorWhoseCallHadReturned) {
    std::mt19937 random(std::random_device{}());
    int errors = 0;
    // Each round brings one error at least; a slow machine does not get to many more.
    for (int round = 0; round < 12 || (errors <= 100 && round < 101); ++round) {
        for (const auto& entry : std::filesystem::directory_iterator(m_folder.path()))
            std::filesystem::remove(entry);
        {
            toolTest::Child child(LOG_HOST, {"endless", m_folder.path().string(),
                                             std::to_string(kThreads), "1000000000"});
            ASSERT_TRUE(toolTest::Child::waitUntil([&] { return lastDone(file("done-0")) >= 0; }))
                << child.err();
            std::this_thread::sleep_for(std::chrono::microseconds(random() % 120'000));
        } // killed here
        errors += expectWritten();
        ASSERT_FALSE(HasFailure()) << "round " << round;
    }
    RecordProperty("errors", errors);
    EXPECT_GT(errors, 100);
}

#ifndef _WIN32
TEST_F(Logs, FullEventLogEndsAndTheHostAndItsErrorLogGoOn) {
    const int lines = 1500;
    const RunResult result = host("full", lines);
    ASSERT_EQ(result.code, 0) << result.out << result.err;
    EXPECT_EQ(std::filesystem::file_size(file("events.log")), 200'000u);
    const Log events = readLog(file("events.log"));
    EXPECT_EQ(events.broken, "");
    std::size_t written = 0;
    for (const std::vector<int>& numbers : events.numbers) {
        EXPECT_TRUE(numbers == expected(static_cast<int>(numbers.size()), false));
        written += numbers.size();
    }
    EXPECT_LT(written, 1500 * events.numbers.size());
    expectWhole(readLog(file("errors.log")), lines, true);
}
#endif

// Lines of the event log, all of the text in logText.h, to one file.
//
// "event": what a line costs the thread that logs, in bursts that the queues hold; the writing
// thread works meanwhile, and what it has left is not timed.  "lone event": the same for one line,
// when the writing thread has been idle.
//   limit   the line formatted by one snprintf and appended to a buffer
//   ours    event
//   spdlog  its asynchronous logger: one thread, a queue of 8192 that blocks when full, one file
//
// "events 1", "events 4": from the first line of so many threads until all lines are in the file,
// for each line.
//   limit   each thread formats into a buffer of its own and writes that when it is full
//   ours    event, then shutdown_logs: each record is flushed
//   spdlog  the same logger, which flushes each record too, until its thread has ended

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <spdlog/async.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <unistd.h>
#include <chrono>
#include <cstring>
#include <latch>
#include <memory>
#include <thread>
#include <vector>

#include "logText.h"
#include "support.h"
#include "vdreader/log.h"
#include "vdreader/logfiles.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr const char* kFile = "events.log";
constexpr std::size_t kQueue = 8192;

double secondsSince(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

// Bytes of a line of the calling thread.
std::size_t lineSize() {
    return bench::PlainLine('V', "").make(bench::kFirstNumber);
}

// ---- who writes ----

class Ours {
  public:
    Ours() : m_file(bench::emptyLog(kFile)) {
        if (util_init(m_file.c_str(), nullptr, nullptr, nullptr) != 0)
            bench::stop("no event log");
    }
    ~Ours() { finish(); }

    void put(int number) { event(BENCH_PRINTF_MESSAGE, BENCH_ARGUMENTS(number)); }
    bool waitFor(std::size_t size) { return bench::waitForSize(m_file, size); }
    void finish() { shutdown_logs(); }
    const std::string& file() const { return m_file; }

  private:
    std::string m_file;
};

enum class Flush { AtEnd, EachLine };

template <Flush flush>
class Spdlog {
  public:
    Spdlog() : m_file(bench::emptyLog(kFile)) {
        m_threads = std::make_shared<spdlog::details::thread_pool>(kQueue, 1);
        auto sink = std::make_shared<spdlog::sinks::basic_file_sink_mt>(m_file);
        m_logger = std::make_shared<spdlog::async_logger>("events", std::move(sink), m_threads,
                                                          spdlog::async_overflow_policy::block);
        m_logger->set_formatter(bench::spdlogFormatter('V', ""));
        if (flush == Flush::EachLine)
            m_logger->flush_on(spdlog::level::info);
    }

    void put(int number) { m_logger->info(BENCH_SPDLOG_MESSAGE, BENCH_ARGUMENTS(number)); }
    bool waitFor(std::size_t size) {
        m_logger->flush();
        return bench::waitForSize(m_file, size);
    }
    void finish() {
        m_logger.reset();
        m_threads.reset();
    }
    const std::string& file() const { return m_file; }

  private:
    std::string m_file;
    std::shared_ptr<spdlog::details::thread_pool> m_threads;
    std::shared_ptr<spdlog::async_logger> m_logger;
};

// Appends to a buffer that starts anew when it is full.
class Buffer {
  public:
    void put(int number) {
        const std::size_t size = m_line.make(number);
        if (size > m_bytes.size() - m_used)
            m_used = 0;
        std::memcpy(m_bytes.data() + m_used, m_line.text(), size);
        m_used += size;
        benchmark::ClobberMemory();
    }
    // As long a pause as the others make at least.
    bool waitFor(std::size_t) {
        std::this_thread::sleep_for(std::chrono::microseconds(200));
        return true;
    }

  private:
    bench::PlainLine m_line{'V', ""};
    std::vector<char> m_bytes = std::vector<char>(1 << 20);
    std::size_t m_used = 0;
};

// ---- the thread that logs ----

constexpr int kBurst = 2000, kBursts = 25, kLoneLines = 200;
static_assert(kBurst < static_cast<int>(kQueue));

// The time of an iteration is that of one line.
template <class Log, int burst>
void callingThread(benchmark::State& state) {
    Log log;
    const std::size_t size = lineSize();
    std::size_t lines = 0;
    // The thread's first line makes its buffer.
    const auto putBurst = [&] {
        const auto start = Clock::now();
        for (int i = 0; i < burst; ++i)
            log.put(bench::kFirstNumber + i);
        const double seconds = secondsSince(start);
        lines += burst;
        if (!log.waitFor(lines * size))
            state.SkipWithError("lines are missing, or are not the same");
        return seconds;
    };
    putBurst();
    for (auto _ : state)
        state.SetIterationTime(putBurst() / burst);
}

// ---- all lines to the file ----

constexpr int kLines = 60'000, kRuns = 2;

template <class Put>
void produce(int producers, std::latch& start, std::vector<std::thread>& threads, Put put) {
    for (int i = 0; i < producers; ++i)
        threads.emplace_back([=, &start] {
            start.arrive_and_wait();
            put(kLines / producers);
        });
}

// Seconds from the start of the producers until `finish` has returned.
template <class Put, class Finish>
double timeOfAll(int producers, Put put, Finish finish) {
    std::latch start(producers + 1);
    std::vector<std::thread> threads;
    produce(producers, start, threads, put);
    const auto begin = Clock::now();
    start.arrive_and_wait();
    for (std::thread& thread : threads)
        thread.join();
    finish();
    return secondsSince(begin);
}

void checkLines(benchmark::State& state, const std::string& file) {
    if (bench::linesOf(file) != kLines)
        state.SkipWithError("lines are missing");
}

template <class Log, int producers>
void untilWritten(benchmark::State& state) {
    for (auto _ : state) {
        auto log = std::make_unique<Log>();
        const double seconds = timeOfAll(
            producers,
            [&log = *log](int lines) {
                for (int i = 0; i < lines; ++i)
                    log.put(bench::kFirstNumber + i);
            },
            [&] { log->finish(); });
        state.SetIterationTime(seconds / kLines);
        checkLines(state, log->file());
    }
}

void writeAll(int file, const std::vector<char>& bytes, std::size_t size) {
    if (::write(file, bytes.data(), size) != static_cast<ssize_t>(size))
        bench::stop("cannot write");
}

void formatAndWrite(int file, int lines) {
    bench::PlainLine line('V', "");
    std::vector<char> bytes(64 * 1024);
    std::size_t used = 0;
    for (int i = 0; i < lines; ++i) {
        const std::size_t size = line.make(bench::kFirstNumber + i);
        if (size > bytes.size() - used) {
            writeAll(file, bytes, used);
            used = 0;
        }
        std::memcpy(bytes.data() + used, line.text(), size);
        used += size;
    }
    writeAll(file, bytes, used);
}

template <int producers>
void untilWrittenLimit(benchmark::State& state) {
    for (auto _ : state) {
        const std::string name = bench::emptyLog(kFile);
        const int file = ::open(name.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC);
        const double seconds = timeOfAll(
            producers, [=](int lines) { formatAndWrite(file, lines); }, [=] { ::close(file); });
        state.SetIterationTime(seconds / kLines);
        checkLines(state, name);
    }
}

void add(const char* name, void (*run)(benchmark::State&), int iterations) {
    benchmark::RegisterBenchmark(name, run)
        ->UseManualTime()
        ->Iterations(iterations)
        ->Unit(benchmark::kNanosecond);
}

const bool added = [] {
    add("event/limit", callingThread<Buffer, kBurst>, kBursts);
    add("event/ours", callingThread<Ours, kBurst>, kBursts);
    add("event/spdlog", callingThread<Spdlog<Flush::AtEnd>, kBurst>, kBursts);
    add("lone event/limit", callingThread<Buffer, 1>, kLoneLines);
    add("lone event/ours", callingThread<Ours, 1>, kLoneLines);
    add("lone event/spdlog", callingThread<Spdlog<Flush::AtEnd>, 1>, kLoneLines);
    add("events 1/limit", untilWrittenLimit<1>, kRuns);
    add("events 1/ours", untilWritten<Ours, 1>, kRuns);
    add("events 1/spdlog", untilWritten<Spdlog<Flush::EachLine>, 1>, kRuns);
    add("events 4/limit", untilWrittenLimit<4>, kRuns);
    add("events 4/ours", untilWritten<Ours, 4>, kRuns);
    add("events 4/spdlog", untilWritten<Spdlog<Flush::EachLine>, 4>, kRuns);
    return true;
}();

} // namespace

// An error line, of the text in logText.h: the time until it stands in the event log and in the
// error log.
//
//   limit   the line formatted by one snprintf, and one write to each of two files
//   ours    error, with both logs open
//   spdlog  its synchronous logger with two files, which flushes each line

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <spdlog/logger.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <unistd.h>
#include <memory>

#include "logText.h"
#include "support.h"
#include "vdreader/log.h"
#include "vdreader/logfiles.h"

namespace {

constexpr const char* kEvents = "events-of-errors.log";
constexpr const char* kErrors = "errors.log";

std::size_t lineSize() {
    return bench::PlainLine('E', bench::errorIntroduction()).make(bench::kFirstNumber);
}

// Both files hold just the lines that were timed, each as soon as its call has returned.
template <class Put>
void run(benchmark::State& state, const std::string& events, const std::string& errors, Put put) {
    const std::size_t size = lineSize();
    std::size_t lines = 0;
    for (auto _ : state) {
        put(bench::kFirstNumber + static_cast<int>(lines % 800'000));
        ++lines;
    }
    if (bench::sizeOf(events) != lines * size || bench::sizeOf(errors) != lines * size)
        state.SkipWithError("lines are missing, or are not the same");
}

int openLog(const std::string& name) {
    return ::open(name.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC);
}

void limit(benchmark::State& state) {
    const std::string events = bench::emptyLog(kEvents), errors = bench::emptyLog(kErrors);
    const int files[] = {openLog(events), openLog(errors)};
    bench::PlainLine line('E', bench::errorIntroduction());
    run(state, events, errors, [&](int number) {
        const std::size_t size = line.make(number);
        for (const int file : files)
            if (::write(file, line.text(), size) != static_cast<ssize_t>(size))
                bench::stop("cannot write");
    });
    for (const int file : files)
        ::close(file);
}

void ours(benchmark::State& state) {
    const std::string events = bench::emptyLog(kEvents), errors = bench::emptyLog(kErrors);
    if (util_init(events.c_str(), errors.c_str(), nullptr, nullptr) != 0)
        bench::stop("no logs");
    run(state, events, errors,
        [](int number) { error(BENCH_PRINTF_MESSAGE, BENCH_ARGUMENTS(number)); });
    shutdown_logs();
}

void spdlogSynchronous(benchmark::State& state) {
    const std::string events = bench::emptyLog(kEvents), errors = bench::emptyLog(kErrors);
    using File = spdlog::sinks::basic_file_sink_mt;
    spdlog::logger logger("errors",
                          {std::make_shared<File>(events), std::make_shared<File>(errors)});
    logger.set_formatter(bench::spdlogFormatter('E', bench::errorIntroduction()));
    logger.flush_on(spdlog::level::err);
    run(state, events, errors,
        [&](int number) { logger.error(BENCH_SPDLOG_MESSAGE, BENCH_ARGUMENTS(number)); });
}

void add(const char* name, void (*run)(benchmark::State&)) {
    benchmark::RegisterBenchmark(name, run)->UseRealTime()->Unit(benchmark::kNanosecond);
}

const bool added = [] {
    add("error/limit", limit);
    add("error/ours", ours);
    add("error/spdlog", spdlogSynchronous);
    return true;
}();

} // namespace

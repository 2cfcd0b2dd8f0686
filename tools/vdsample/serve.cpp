// Steps at an even pace.

#include "vdsample/serve.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <limits>

#include "live/server.h"
#include "sample/output.h"
#include "support/logFolder.h"
#include "support/stop.h"
#include "vdreader/vdreader.h"

namespace vdsample {

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr milliseconds kLongestWait(100);
constexpr std::uint64_t kStepsAtOnce = 256;   // between two looks at the clock
constexpr std::uint64_t kLimitTypes = 3;      // records of each account in the file of limits
constexpr std::chrono::seconds kProgress(10); // from one line of progress in the log to the next

tool::ExitCode codeOf(live::Error::Kind kind) {
    switch (kind) {
        case live::Error::Kind::CannotOpen:
            return tool::kCannotOpen;
        case live::Error::Kind::Malformed:
            return tool::kMalformed;
        default:
            return tool::kOutputFailed;
    }
}

std::size_t accountsOf(const std::filesystem::path& limits) {
    std::error_code error;
    const auto size = std::filesystem::file_size(limits, error);
    const std::uint64_t records = error ? 0 : size / sample::kFutLimitSize;
    return static_cast<std::size_t>(std::max<std::uint64_t>(records / kLimitTypes, 1));
}

// How many steps are due `elapsed` after the start.
std::uint64_t dueSteps(Clock::duration elapsed, std::uint64_t rate) {
    if (rate == 0)
        return std::numeric_limits<std::uint64_t>::max();
    const std::chrono::duration<double> seconds = elapsed;
    return static_cast<std::uint64_t>(seconds.count() * static_cast<double>(rate)) + 1;
}

std::string doneBy(const live::Server& server) {
    return std::to_string(server.changes()) + " changes, " + std::to_string(server.alerts()) +
           " alerts, " + std::to_string(server.pages()) + " new pages";
}

void play(live::Server& server, const ServeRequest& request, const tool::StopWish& stop) {
    const Clock::time_point start = Clock::now();
    const Clock::duration end =
        request.seconds ? std::chrono::seconds(*request.seconds) : Clock::duration::max();
    Clock::duration report = kProgress;
    std::uint64_t steps = 0;
    for (;;) {
        const Clock::duration elapsed = Clock::now() - start;
        if (elapsed >= end || stop.isThere())
            return;
        if (elapsed >= report) {
            event("%s so far", doneBy(server).c_str());
            report = elapsed + kProgress;
        }
        const std::uint64_t due = dueSteps(elapsed, request.rate);
        if (steps < due) {
            const std::uint64_t last = std::min(due, steps + kStepsAtOnce);
            for (; steps < last; ++steps)
                server.step();
            continue;
        }
        const auto next = std::chrono::duration<double>(static_cast<double>(steps) /
                                                        static_cast<double>(request.rate));
        const auto wait = std::min<Clock::duration>(
            std::chrono::duration_cast<Clock::duration>(next) - elapsed, end - elapsed);
        stop.waitFor(
            std::clamp(std::chrono::ceil<milliseconds>(wait), milliseconds(1), kLongestWait));
    }
}

} // namespace

void serve(const ServeRequest& request, tool::Output& output) {
    const std::filesystem::path folder(request.folder);
    const auto place = [&](const char* name) { return (folder / name).make_preferred().string(); };
    std::optional<tool::LogFolder> log;
    if (request.logFolder)
        log.emplace(*request.logFolder, "SERVER");
    try {
        const tool::StopWish stop;
        live::Server server({place(sample::kClassFileName), place(sample::kDataFileName),
                             place(sample::kAlertFileName)},
                            request.seed, accountsOf(folder / sample::kFutLimitsFileName));
        output.write("serving " + request.folder + "\n");
        output.flush();
        event("serving %s, %llu changes a second", request.folder.c_str(),
              static_cast<unsigned long long>(request.rate));
        play(server, request, stop);
        output.write(doneBy(server) + "\n");
        output.flush();
        event("%s, the end", doneBy(server).c_str());
    } catch (const live::Error& failure) {
        vdreader_error("%s", failure.what());
        throw tool::Failure(codeOf(failure.kind), failure.what());
    } catch (const std::exception& failure) {
        vdreader_error("%s", failure.what());
        throw;
    }
}

} // namespace vdsample

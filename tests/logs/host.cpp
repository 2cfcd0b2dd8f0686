// One process that logs: vdreader_log_host ROLE FOLDER THREADS LINES.
//
//   events   each thread writes its lines as events; then the logs are shut down
//   mixed    the same with errors among them
//   endless  mixed without an end; each thread writes the number of a line into its file done-T
//            when the call of an error has returned
//   full     mixed, in a process whose files may not grow beyond 200,000 bytes; Linux alone
//
// The logs are events.log and errors.log in the folder; all threads share the latter.

#include <charconv>
#include <chrono>
#include <cstdio>
#include <exception>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include "lines.h"
#include "vdreader/log.h"
#include "vdreader/logfiles.h"

#ifndef _WIN32
#  include <sys/resource.h>
#  include <csignal>
#endif

namespace {

struct Job {
    std::string folder;
    int threads;
    int lines; // of each thread
    bool errors;
    bool acknowledges;

    std::string file(const std::string& name) const { return folder + "/" + name; }
};

// A whole number, 0 for what is none.
int numberOf(const std::string& text) {
    int number = 0;
    std::from_chars(text.data(), text.data() + text.size(), number);
    return number;
}

bool holds(const std::string& file, const std::string& text) {
    std::ifstream in(file, std::ios::binary);
    const std::string all{std::istreambuf_iterator<char>(in), {}};
    return all.find(text) != std::string::npos;
}

// A worker that is faster than the logger's own start ends at once, and events are lost then.  The
// tests are about the other case: opens the log until a worker writes.
void openEvents(const Job& job) {
    for (int round = 0;; ++round) {
        util_init(job.file("events.log").c_str(), nullptr, nullptr, nullptr);
        const std::string mark = "start " + std::to_string(round) + "\r\n";
        event("start %d", round);
        for (int wait = 0; wait < 500; ++wait) {
            if (holds(job.file("events.log"), mark))
                return;
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        shutdown_logs();
    }
}

void logLines(const Job& job, int thread) {
    util_init(nullptr, job.file("errors.log").c_str(), nullptr, nullptr);
    std::FILE* done = nullptr;
    if (job.acknowledges) {
        done = std::fopen(job.file("done-" + std::to_string(thread)).c_str(), "wb");
        std::setvbuf(done, nullptr, _IONBF, 0);
    }
    for (int number = 0; number < job.lines; ++number) {
        const std::string text = lineText(thread, number);
        if (!job.errors || !isError(number)) {
            event("%s", text.c_str());
            continue;
        }
        error("%s", text.c_str());
        if (done != nullptr)
            std::fprintf(done, "%d\n", number);
    }
}

void run(const Job& job) {
    openEvents(job);
    std::vector<std::thread> threads;
    for (int thread = 0; thread < job.threads; ++thread)
        threads.emplace_back(logLines, job, thread);
    for (std::thread& thread : threads)
        thread.join();
    shutdown_logs();
}

bool limitFiles() {
#ifdef _WIN32
    return false;
#else
    const rlimit limit = {200'000, 200'000};
    std::signal(SIGXFSZ, SIG_IGN);
    return setrlimit(RLIMIT_FSIZE, &limit) == 0;
#endif
}

} // namespace

int main(int count, char** arguments) {
    if (count != 5)
        return 2;
    const std::string role = arguments[1];
    Job job = {arguments[2], numberOf(arguments[3]), numberOf(arguments[4]), true, false};
    try {
        if (role == "events")
            job.errors = false;
        else if (role == "endless")
            job.acknowledges = true;
        else if (role == "full" ? !limitFiles() : role != "mixed")
            return 2;
        run(job);
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "%s: %s\n", role.c_str(), failure.what());
        return 1;
    }
    std::puts("done");
    return 0;
}

// What a failing process waits for: a report of its stack, and a dump.
//
// "stack report": 20 frames and more, from a program with symbols.
//   limit  the C library's own, which knows the exported names alone and no lines
//   ours   ServerStackWalk into an event log, with the list of modules
//   gdb    attached by its own command to print the same frames
// "mini dump":
//   limit  a file of the same size, written by one call
//   ours   CreateProcessDump
//   gdb    its own core file of the process

#include <benchmark/benchmark.h>
#include <execinfo.h>
#include <fcntl.h>
#include <unistd.h>
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "support.h"
#include "vdreader/logfiles.h"
#include "vdreader/postmortem.h"

namespace {

constexpr int kDepth = 16; // and what stands above and below

using Work = void (*)();

[[gnu::noinline]] int descend(int depth, Work work) {
    if (depth == 0) {
        work();
        return 1;
    }
    const int below = descend(depth - 1, work);
    benchmark::DoNotOptimize(below);
    return below + 1;
}

void report() {
    ServerStackWalk(nullptr);
}

void reportByTheCLibrary() {
    void* frames[100];
    const int count = ::backtrace(frames, 100);
    const int out = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
    ::backtrace_symbols_fd(frames, count, out);
    ::close(out);
}

void runGdb(const std::string& command) {
    const std::string line = "gdb -nx -batch -p " + std::to_string(::getpid()) + " -ex '" +
                             command + "' >/dev/null 2>&1";
    std::FILE* const output = ::popen(line.c_str(), "r");
    if (output == nullptr || ::pclose(output) != 0)
        bench::stop("gdb cannot be run: " + line);
}

void dump() {
    CreateProcessDump(0, false, false);
}

void enterFolder() {
    static const bool entered = [] {
        const std::string folder = bench::outputFile("postmortem");
        std::filesystem::create_directories(folder);
        util_init((folder + "/events.log").c_str(), (folder + "/errors.log").c_str(), nullptr,
                  (folder + "/none.ini").c_str());
        std::filesystem::current_path(folder);
        return true;
    }();
    benchmark::DoNotOptimize(entered);
}

void run(benchmark::State& state, Work work) {
    enterFolder();
    for (auto _ : state)
        descend(kDepth, work);
}

std::size_t sizeOfADump() {
    dump();
    for (const auto& entry : std::filesystem::recursive_directory_iterator("Dumps"))
        if (entry.is_regular_file())
            return entry.file_size();
    bench::stop("there is no dump");
}

void writeAsMuch(benchmark::State& state) {
    enterFolder();
    const std::vector<char> bytes(sizeOfADump(), 1);
    for (auto _ : state) {
        const int file = ::open("limit", O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
        if (::write(file, bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size()))
            state.SkipWithError("the file cannot be written");
        ::close(file);
    }
}

void dumps(benchmark::State& state) {
    enterFolder();
    std::filesystem::remove_all("Dumps");
    run(state, dump);
    std::filesystem::remove_all("Dumps");
}

auto* add(const char* name, void (*run)(benchmark::State&)) {
    return benchmark::RegisterBenchmark(name, run)->UseRealTime()->Unit(benchmark::kMicrosecond);
}

const bool added = [] {
    add("stack report/limit", [](benchmark::State& state) { run(state, reportByTheCLibrary); });
    add("stack report/ours", [](benchmark::State& state) { run(state, report); });
    add("stack report/gdb", [](benchmark::State& state) {
        run(state, [] { runGdb("bt 25"); });
    })->Iterations(1);
    add("mini dump/limit", writeAsMuch);
    add("mini dump/ours", dumps);
    add("mini dump/gdb", [](benchmark::State& state) {
        run(state, [] { runGdb("generate-core-file gdb.core"); });
    })->Iterations(1);
    return true;
}();

} // namespace

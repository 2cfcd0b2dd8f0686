// The main function of every benchmark program, and what support.h declares.

#include "support.h"

#include <benchmark/benchmark.h>
#include <malloc.h>
#include <sys/resource.h>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <map>

namespace bench {

namespace {

std::string folder;

// The starting values of the C library, held: left alone it raises both after the first big block
// that is freed, and whoever runs second would find memory that is mapped already.
constexpr int kHeapLimit = 128 * 1024;

void holdHeapLimits() {
    ::mallopt(M_MMAP_THRESHOLD, kHeapLimit);
    ::mallopt(M_TRIM_THRESHOLD, kHeapLimit);
}

// Each walk of a flat file leaves one stream open.
void allowManyFiles() {
    rlimit limit = {};
    ::getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    ::setrlimit(RLIMIT_NOFILE, &limit);
}

} // namespace

const std::string& dataFile(const char* name) {
    static std::map<std::string, std::string> names;
    std::string& full = names[name];
    if (full.empty()) {
        full = folder + "/" + name;
        if (!std::filesystem::exists(full))
            stop(full + " is missing: run vdreader_bench_data first");
    }
    return full;
}

std::string outputFile(const char* name) {
    return folder + "/" + name;
}

void startWithFreshHeap() {
    ::mallopt(M_TRIM_THRESHOLD, kHeapLimit);
    ::malloc_trim(0);
}

void keepFreedMemory() {
    ::mallopt(M_TRIM_THRESHOLD, 1 << 30);
}

void stop(const std::string& text) {
    std::cerr << text << '\n';
    std::exit(1);
}

} // namespace bench

int main(int argc, char** argv) {
    bench::holdHeapLimits();
    bench::allowManyFiles();
    benchmark::Initialize(&argc, argv);
    if (argc != 2)
        bench::stop(std::string("usage: ") + argv[0] + " [benchmark options] FOLDER");
    // The library takes a relative name from the folder of the program.
    bench::folder = std::filesystem::absolute(argv[1]).string();
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}

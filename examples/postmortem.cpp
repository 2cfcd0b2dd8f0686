// A fault that is survived: a dump, a report in the logs, and an exception that is caught.
//
//   postmortem FOLDER     an existing folder, absolute; gets the logs, sarn.ini and Dumps
//
// Compiled with -fnon-call-exceptions (g++), so that a fault may throw.

#include <cstdint>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <string>

#include "vdreader/errors.hpp"
#include "vdreader/vdreader.h"

namespace {

std::int32_t* volatile g_nowhere = nullptr;

[[gnu::noinline]] std::int32_t readNothing() {
    return *g_nowhere;
}

// What a callback of the host would do wrong.
[[gnu::noinline]] std::int32_t faultyWork() {
    return readNothing() + 1;
}

// The exception of the fault itself comes as CSEHError.  The first one of a process whose sibling
// service is missing comes as that service's failure, which is a std::exception as well.
bool survives() {
    try {
        std::printf("read %d\n", static_cast<int>(faultyWork()));
        return false;
    } catch (const CSEHError& fault) {
        std::printf("caught: %s\n", fault.what());
    } catch (const std::exception& failure) {
        std::printf("caught: %s\n", failure.what());
    }
    return true;
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: postmortem FOLDER\n");
        return 2;
    }
    const std::filesystem::path folder = argv[1];
    std::ofstream(folder / "sarn.ini") << "[dumps]\nauto=1\nfulloncrash=0\n";
    const std::string ini = (folder / "sarn.ini").string();
    util_init((folder / "events.log").string().c_str(), (folder / "errors.log").string().c_str(),
              "MAIN", ini.c_str());
    // The dumps and their settings are looked for in the working folder.
    std::filesystem::current_path(folder);

    util_set_se_translator(seh_translator);
    const bool survived = survives() && survives();
    shutdown_logs();
    std::puts(survived ? "goes on" : "no fault came");
    return survived ? 0 : 1;
}

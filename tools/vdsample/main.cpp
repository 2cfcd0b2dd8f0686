// vdsample: writes a made-up market as data files into a folder, with an ini file that names them,
// or plays the server on such files.

#include <cstdint>
#include <string>

#include "sample/market.h"
#include "sample/output.h"
#include "support/commandLine.h"
#include "support/program.h"
#include "vdsample/serve.h"

namespace {

struct Request {
    std::string folder;
    sample::MarketOptions market;
    std::size_t records = 1000;
    bool live = false;
    vdsample::ServeRequest serve;
};

constexpr const char* kFooter =
    "The same numbers give the same files, whatever the system.\n"
    "\n"
    "With --live it plays the server on files that are there: takes the lock of a security's slot\n"
    "in data.vd, changes some of its values and lets go; appends a record of each change to the\n"
    "journal of data.vd, which gets new pages as it grows; and after every sixteenth change\n"
    "appends to alert.vd. Readers may come and go meanwhile, several processes at a time; a "
    "second\n"
    "server may not. Ctrl-C, a termination signal or --seconds end it in good order.\n"
    "\n"
    "Exit codes: 0 done, 1 internal failure, 2 wrong usage, 3 a file cannot be opened and 4 is\n"
    "malformed (--live), 7 a file or the output cannot be written.\n"
    "\n"
    "Examples:\n"
    "  vdsample /tmp/sample --securities 5000\n"
    "  vdsample /tmp/sample --live --rate 200 --seconds 60";

void describe(CLI::App& app, Request& request) {
    sample::MarketOptions& market = request.market;
    app.set_version_flag("--version", "vdsample " VDREADER_TOOL_VERSION, "Print the version");
    app.set_help_flag("-h,--help", "Print this help");
    app.footer(kFooter);
    app.add_option("DIR", request.folder, "Folder for the files, made if it is not there")
        ->type_name("")
        ->required();
    app.add_option("--securities", market.securities, "Securities in all classes together")
        ->type_name("N")
        ->check(tool::wholeNumber(4'000'000))
        ->capture_default_str();
    app.add_option("--classes", market.classes, "Classes")
        ->type_name("N")
        ->check(tool::wholeNumber(100'000))
        ->capture_default_str();
    app.add_option(
           "--records", request.records,
           "Change records of data.vd, records of futures limits, and of positions, so many "
           "of each")
        ->type_name("N")
        ->check(tool::wholeNumber(9'000'000))
        ->capture_default_str();
    app.add_option("--alerts", market.alerts, "Alerts")
        ->type_name("N")
        ->check(tool::wholeNumber(9'000'000))
        ->capture_default_str();
    app.add_option("--params", market.params, "Parameters of each class")
        ->type_name("N")
        ->check(tool::wholeNumber(60'000))
        ->capture_default_str();
    app.add_option("--seed", market.seed, "Start of the random numbers")
        ->type_name("N")
        ->check(tool::wholeNumber(UINT64_MAX))
        ->capture_default_str();
    app.add_flag("--live", request.live, "Play the server on the files of DIR");
    app.add_option("--rate", request.serve.rate,
                   "Changes a second, 0 for as many as there can be (--live)")
        ->type_name("N")
        ->check(tool::wholeNumber(1'000'000))
        ->capture_default_str();
    app.add_option("--seconds", request.serve.seconds,
                   "Stop after so many seconds, by default when told to (--live)")
        ->type_name("N")
        ->check(tool::wholeNumber(1'000'000'000));
    app.add_option("--log", request.serve.logFolder,
                   "Folder for events.log and errors.log, rotated by a sarn.ini there (--live)")
        ->type_name("LOGDIR");
}

// An option that would do nothing is a mistake of the caller's.
void checkOptions(const CLI::App& app, const Request& request) {
    for (const char* option : {"--securities", "--classes", "--records", "--alerts", "--params"})
        if (request.live && app.count(option))
            throw tool::Failure(tool::kUsage,
                                std::string("--live plays on files that are there: ") + option +
                                    " does not go with it (try --help)");
    for (const char* option : {"--rate", "--seconds", "--log"})
        if (!request.live && app.count(option))
            throw tool::Failure(tool::kUsage,
                                std::string(option) + " goes with --live alone (try --help)");
    if (request.market.classes == 0 && request.market.securities != 0)
        throw tool::Failure(tool::kUsage, "--classes 0 needs --securities 0 (try --help)");
}

std::string contentsOf(const sample::WrittenFile& file, const sample::Market& market) {
    const std::string name = file.path.filename().string();
    if (name == sample::kClassFileName) {
        std::size_t securities = 0;
        for (const sample::ClassRecord& record : market.classes)
            securities += record.securities.size();
        return std::to_string(file.records) + " classes, " + std::to_string(securities) +
               " securities";
    }
    if (name == sample::kIniFileName)
        return std::string("section ") + sample::kIniSection;
    return std::to_string(file.records) + " records";
}

int run(int argc, char** argv) {
    Request request;
    CLI::App app(
        "Writes sample data files: class.vd, data.vd, alert.vd, flimit.vd, fclipos.vd and\n"
        "vdreader.ini; or plays the server that changes them.\n",
        "vdsample");
    describe(app, request);
    tool::Output output;
    if (const auto text = tool::parseCommandLine(app, argc, argv)) {
        output.write(*text);
        output.finish();
        return tool::kDone;
    }
    checkOptions(app, request);
    if (request.live) {
        request.serve.folder = request.folder;
        request.serve.seed = request.market.seed;
        vdsample::serve(request.serve, output);
        output.finish();
        return tool::kDone;
    }
    request.market.changes = request.records;
    request.market.limits = request.records;
    request.market.positions = request.records;
    const sample::Market market = sample::makeMarket(request.market);
    try {
        for (const sample::WrittenFile& file : sample::writeMarket(request.folder, market))
            output.write(file.path.string() + ": " + std::to_string(file.bytes) + " bytes, " +
                         contentsOf(file, market) + "\n");
    } catch (const sample::OutputError& error) {
        throw tool::Failure(tool::kOutputFailed, error.what());
    }
    output.finish();
    return tool::kDone;
}

} // namespace

int main(int argc, char** argv) {
    return tool::runProgram("vdsample", [&] { return run(argc, argv); });
}

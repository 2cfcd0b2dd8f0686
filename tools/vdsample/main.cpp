// vdsample: writes a made-up market as data files into a folder, with an ini file that names them.

#include <cstdint>
#include <string>

#include "sample/market.h"
#include "sample/output.h"
#include "support/commandLine.h"
#include "support/program.h"

namespace {

struct Request {
    std::string folder;
    sample::MarketOptions market;
    std::size_t records = 1000;
};

constexpr const char* kFooter =
    "The same numbers give the same files, whatever the system. Exit codes: 0 done, 1 internal\n"
    "failure, 2 wrong usage, 7 a file could not be written.";

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
    app.add_option("--records", request.records, "Records of futures limits, and of positions")
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
    CLI::App app("Writes sample data files: class.vd, flimit.vd, fclipos.vd and vdreader.ini.\n",
                 "vdsample");
    describe(app, request);
    tool::Output output;
    if (const auto text = tool::parseCommandLine(app, argc, argv)) {
        output.write(*text);
        output.finish();
        return tool::kDone;
    }
    request.market.limits = request.records;
    request.market.positions = request.records;
    if (request.market.classes == 0 && request.market.securities != 0)
        throw tool::Failure(tool::kUsage, "--classes 0 needs --securities 0 (try --help)");

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

// vdcat: shows the records of the data files through the library's C interface alone.

#include "support/logFolder.h"
#include "support/program.h"
#include "vdcat/fields.h"
#include "vdcat/info.h"
#include "vdcat/job.h"
#include "vdcat/marketShows.h"
#include "vdcat/options.h"
#include "vdcat/rows.h"
#include "vdcat/source.h"
#include "vdcat/walks.h"

namespace {

using namespace vdcat;

int showInfo(const Job& job) {
    Rows<InfoRow> rows(job.request, job.format, job.output);
    Source source(job.request);
    const InfoReport info = gatherInfo(source);
    bool goOn = rows.begin();
    for (std::size_t i = 0; i < info.rows.size() && goOn; ++i)
        goOn = rows.add(info.rows[i]);
    rows.end();
    return info.code;
}

bool isWanted(const Request& request, const sClassParUnitedDesc* classDesc) {
    return !request.classCode || *request.classCode == classCodeOf(classDesc);
}

int showClasses(const Job& job) {
    Rows<ClassRow> rows(job.request, job.format, job.output);
    Source source(job.request);
    open(source, &Source::openClasses);
    std::unordered_map<const sClassParUnitedDesc*, std::int64_t> counts;
    if (rows.shows("securities"))
        walkSecurities([&](sClassParUnitedDesc* classDesc, sSecurityDesc*) {
            ++counts[classDesc];
            return true;
        });
    if (rows.begin())
        walkClasses([&](sClassParUnitedDesc* classDesc) {
            return !isWanted(job.request, classDesc) || rows.add({classDesc, &counts});
        });
    rows.end();
    return tool::kDone;
}

int showSecurities(const Job& job) {
    Rows<SecurityRow> rows(job.request, job.format, job.output);
    Source source(job.request);
    open(source, &Source::openClasses);
    const Request& request = job.request;
    const auto visit = [&](sClassParUnitedDesc* classDesc, sSecurityDesc* security) {
        return (request.secCode && *request.secCode != secCodeOf(security)) ||
               rows.add({classDesc, security, request.lang});
    };
    if (rows.begin()) {
        if (request.classCode)
            walkSecuritiesOf(request.classCode->c_str(), visit);
        else
            walkSecurities(visit);
    }
    rows.end();
    return tool::kDone;
}

int showParams(const Job& job) {
    Rows<ParamRow> rows(job.request, job.format, job.output);
    Source source(job.request);
    open(source, &Source::openClasses);
    if (rows.begin())
        walkClasses([&](sClassParUnitedDesc* classDesc) {
            std::int64_t index = 0;
            bool goOn = true;
            const sParDesc* param = isWanted(job.request, classDesc)
                                        ? get_sClassParUnitedDesc_par_desc(classDesc)
                                        : nullptr;
            for (; param && goOn; param = get_sParDesc_next(classDesc))
                goOn = rows.add({classDesc, param, index++, job.request.lang});
            return goOn;
        });
    rows.end();
    return tool::kDone;
}

int showLimits(const Job& job) {
    Rows<LimitRow> rows(job.request, job.format, job.output);
    Source source(job.request);
    open(source, &Source::openLimits);
    if (rows.begin())
        walkLimits([&](sFutLimit* limit) { return rows.add({limit}); });
    rows.end();
    return tool::kDone;
}

int showPositions(const Job& job) {
    Rows<PositionRow> rows(job.request, job.format, job.output);
    Source source(job.request);
    open(source, &Source::openPositions);
    if (rows.begin())
        walkPositions([&](sFutPosition* position) {
            return (job.request.secCode && *job.request.secCode != secCodeOf(position)) ||
                   rows.add({position});
        });
    rows.end();
    return tool::kDone;
}

int show(const Job& job) {
    switch (job.request.kind) {
        case Kind::Info:
            return showInfo(job);
        case Kind::Classes:
            return showClasses(job);
        case Kind::Securities:
            return showSecurities(job);
        case Kind::Params:
            return showParams(job);
        case Kind::Last:
            return showLast(job);
        case Kind::Journal:
            return showJournal(job);
        case Kind::Alerts:
            return showAlerts(job);
        case Kind::Limits:
            return showLimits(job);
        case Kind::Positions:
            return showPositions(job);
    }
    return tool::kInternal;
}

// The same with lines in the log, if there is one.
int showAndLog(const Job& job) {
    const Request& request = job.request;
    std::optional<tool::LogFolder> log;
    if (request.logFolder)
        log.emplace(*request.logFolder, "VDCAT");
    event("showing %s of %s", nameOf(request.kind),
          (request.folder.empty() ? request.iniFile : request.folder).c_str());
    try {
        const int code = show(job);
        job.output.flush();
        event("done, exit code %d", code);
        return code;
    } catch (const std::exception& failure) {
        vdreader_error("%s", failure.what());
        throw;
    }
}

int run(int argc, char** argv) {
    const auto parsed = parseOptions(argc, argv);
    tool::Output output;
    int code = tool::kDone;
    if (const auto* text = std::get_if<std::string>(&parsed)) {
        output.write(*text);
    } else {
        const Request& request = std::get<Request>(parsed);
        const Format usual = output.isTerminal() ? Format::Table : Format::Json;
        code = showAndLog({request, request.format.value_or(usual), output});
    }
    output.finish();
    return code;
}

} // namespace

int main(int argc, char** argv) {
    return tool::runProgram("vdcat", [&] { return run(argc, argv); });
}

// One look at the files is a round; with --follow rounds go on until somebody stops them.

#include "vdcat/marketShows.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <functional>
#include <limits>
#include <optional>
#include <utility>
#include <vector>

#include "support/stop.h"
#include "vdcat/journalNews.h"
#include "vdcat/marketRows.h"
#include "vdcat/overtaken.h"
#include "vdcat/rows.h"
#include "vdcat/walks.h"

namespace vdcat {

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

void openAll(const Job& job, Source& source, void (Source::*reader)()) {
    open(source, &Source::openClasses);
    open(source, reader);
    if (!job.request.live)
        return;
    std::fputs(
        "vdcat: reads the server's files in place: they are open for writing, and block "
        "heads and the close stamp are written (--help tells more)\n",
        stderr);
    std::fflush(stderr);
}

// What is to come behind a round.
enum class Next {
    End,   // nothing more is wanted
    Wait,  // the next round, when its time comes
    Again, // the next round now, also behind the last one: that one held something back
};

// Calls `round` once, or until it gives Next::End, nobody reads any more, the time is over or the
// user stops it.  `round` is told whether it is to show what it finds, and whether a stop is
// wished.
template <typename Row>
void showRounds(const Job& job, Rows<Row>& rows,
                const std::function<Next(bool show, const tool::StopWish* stop)>& round) {
    if (!rows.begin()) {
        rows.end();
        return;
    }
    if (!job.request.follow) {
        round(true, nullptr);
        rows.end();
        return;
    }
    const tool::StopWish stop;
    const Clock::time_point start = Clock::now();
    const Clock::time_point end = job.request.seconds
                                      ? start + std::chrono::seconds(*job.request.seconds)
                                      : Clock::time_point::max();
    bool isLast = false; // the round begins when the time is over, so it shows all of that time
    for (bool show = !job.request.onlyNew;; show = true) {
        const bool wasLast = std::exchange(isLast, Clock::now() >= end);
        const Next next = round(show, &stop);
        rows.flush();
        job.output.flush();
        if (next == Next::End || wasLast || !job.output.hasReader())
            break;
        if (next == Next::Again && !stop.isThere())
            continue;
        if (isLast)
            break;
        const auto left =
            std::min<Clock::duration>(milliseconds(job.request.interval), end - Clock::now());
        if (stop.waitFor(std::max(std::chrono::ceil<milliseconds>(left), milliseconds(1))))
            break;
    }
    rows.end();
}

bool isStopped(const tool::StopWish* stop) {
    return stop && stop->isThere();
}

// ---- latest values ----

// Visits the securities that the request asks for, each with its place among these.
void walkWanted(
    const Request& request,
    const std::function<bool(sClassParUnitedDesc*, sSecurityDesc*, std::size_t)>& visit) {
    std::size_t place = 0;
    const auto wanted = [&](sClassParUnitedDesc* classDesc, sSecurityDesc* security) {
        return (request.secCode && *request.secCode != secCodeOf(security)) ||
               visit(classDesc, security, place++);
    };
    if (request.classCode)
        walkSecuritiesOf(request.classCode->c_str(), wanted);
    else
        walkSecurities(wanted);
}

// Shows a security of which `before` is what was shown last, null for nothing.
using ShowValues = std::function<bool(const sClassParUnitedDesc*, const sSecurityDesc*,
                                      const LastValues& now, const LastValues* before)>;

// The values of every security in every round are kept where a later round compares with them.
template <typename Row>
void showValues(const Job& job, Rows<Row>& rows, const ShowValues& showOne) {
    std::vector<LastValues> shown;
    showRounds(job, rows, [&](bool show, const tool::StopWish* stop) {
        bool goOn = true;
        walkWanted(job.request,
                   [&](sClassParUnitedDesc* classDesc, sSecurityDesc* security, std::size_t place) {
                       const LastValues now(security);
                       const LastValues* before = place < shown.size() ? &shown[place] : nullptr;
                       if (show && !(before && *before == now))
                           goOn = showOne(classDesc, security, now, before);
                       if (before)
                           shown[place] = now;
                       else if (job.request.follow)
                           shown.push_back(now);
                       return goOn && !isStopped(stop);
                   });
        return goOn ? Next::Wait : Next::End;
    });
}

int showLastObjects(const Job& job) {
    Rows<LastSecurityRow> rows(job.request, job.format, job.output);
    Source source(job.request);
    openAll(job, source, &Source::openCurrentData);
    const ParamCatalog catalog;
    showValues(job, rows,
               [&](const sClassParUnitedDesc* classDesc, const sSecurityDesc* security,
                   const LastValues& now, const LastValues*) {
                   LastSecurityRow row(classDesc, security);
                   row.json = now.json(catalog.of(classCodeOf(classDesc)));
                   return rows.add(row);
               });
    return tool::kDone;
}

int showLastRows(const Job& job) {
    Rows<LastRow> rows(job.request, job.format, job.output);
    Source source(job.request);
    openAll(job, source, &Source::openCurrentData);
    const ParamCatalog catalog;
    showValues(job, rows,
               [&](const sClassParUnitedDesc* classDesc, const sSecurityDesc* security,
                   const LastValues& now, const LastValues* before) {
                   const std::vector<ParamFacts>& params = catalog.of(classCodeOf(classDesc));
                   bool goOn = true;
                   for (std::size_t i = 0; i < params.size() && goOn; ++i) {
                       const bool has = now.has(i, params.size());
                       const bool had = before && before->has(i, params.size());
                       const Value value = has ? now.at(i, params[i]) : Value{};
                       if ((has || had) && !(had && has && now.isSame(i, params[i], *before)))
                           goOn = rows.add({classDesc, security, &params[i],
                                            static_cast<std::int64_t>(i), value});
                   }
                   return goOn;
               });
    return tool::kDone;
}

bool isWanted(const Request& request, const sDynParams& record) {
    return (!request.classCode || *request.classCode == record.class_code) &&
           (!request.secCode || *request.secCode == record.sec_code);
}

} // namespace

int showLast(const Job& job) {
    return job.format == Format::Json ? showLastObjects(job) : showLastRows(job);
}

int showJournal(const Job& job) {
    Rows<JournalRow> rows(job.request, job.format, job.output);
    Source source(job.request);
    openAll(job, source, &Source::openCurrentData);
    const ParamCatalog catalog;
    JournalNews news;
    showRounds(job, rows, [&](bool show, const tool::StopWish* stop) {
        bool goOn = true;
        news.beginWalk();
        walkChanges([&](sDynParams* record) {
            const bool isNew = !job.request.follow || news.take(record->dataField1);
            if (show && isNew && isWanted(job.request, *record))
                goOn = rows.add(JournalRow(*record, catalog.of(record->class_code)));
            return goOn && !isStopped(stop);
        });
        if (!show)
            news.skipWalk();
        if (!goOn)
            return Next::End;
        return news.heldBack() ? Next::Again : Next::Wait;
    });
    return tool::kDone;
}

int showAlerts(const Job& job) {
    Rows<AlertRow> rows(job.request, job.format, job.output);
    Source source(job.request);
    openAll(job, source, &Source::openAlerts);
    std::int64_t seen = 0;
    showRounds(job, rows, [&](bool show, const tool::StopWish* stop) {
        const std::uint64_t maxBody = source.alertFileSize();
        bool goOn = true;
        lookBesideServer([&] {
            std::int64_t number = 0;
            walkAlerts([&](sAlertDesc* alert) {
                if (number++ < seen)
                    return !isStopped(stop);
                seen = number;
                if (show)
                    goOn = rows.add(AlertRow(alert, number - 1, maxBody));
                return goOn && !isStopped(stop);
            });
        });
        return goOn ? Next::Wait : Next::End;
    });
    return tool::kDone;
}

} // namespace vdcat

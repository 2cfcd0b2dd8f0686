// Counting of every kind that can be opened.

#include "vdcat/info.h"

#include <functional>
#include <utility>

#include "vdcat/marketRows.h"
#include "vdcat/walks.h"

namespace vdcat {

namespace {

std::int64_t countParams() {
    std::int64_t count = 0;
    walkClasses([&](sClassParUnitedDesc* classDesc) {
        count += paramCount(classDesc);
        return true;
    });
    return count;
}

// Securities that have values.
std::int64_t countLast() {
    std::int64_t count = 0;
    walkSecurities([&](sClassParUnitedDesc*, sSecurityDesc* security) {
        count += LastValues(security).areThere();
        return true;
    });
    return count;
}

template <typename... Records>
std::int64_t countWith(void (*walk)(const std::function<bool(Records...)>&)) {
    std::int64_t count = 0;
    walk([&](Records...) {
        ++count;
        return true;
    });
    return count;
}

void report(InfoReport& info, const char* kind, const std::function<std::int64_t()>& count) {
    try {
        info.rows.push_back({kind, true, count(), ""});
    } catch (const tool::Failure& failure) {
        info.rows.push_back({kind, false, 0, failure.what()});
        if (info.code == tool::kDone)
            info.code = failure.code;
    }
}

} // namespace

InfoReport gatherInfo(Source& source) {
    InfoReport info;
    bool classesTried = false;
    bool currentDataTried = false;
    // The first of the kinds that share a reader opens it for the others.
    const auto opening = [&](bool& tried, void (Source::*reader)(), auto count) {
        return [&source, &tried, reader, count] {
            if (!std::exchange(tried, true))
                (source.*reader)();
            return count();
        };
    };
    const auto withClasses = [&](auto count) {
        return opening(classesTried, &Source::openClasses, count);
    };
    const auto withCurrentData = [&](auto count) {
        return opening(currentDataTried, &Source::openCurrentData, count);
    };
    report(info, "classes", withClasses([] { return countWith(&walkClasses); }));
    report(info, "securities", withClasses([] { return countWith(&walkSecurities); }));
    report(info, "params", withClasses(&countParams));
    report(info, "last", withCurrentData(&countLast));
    report(info, "journal", withCurrentData([] { return countWith(&walkChanges); }));
    report(info, "alerts", [&] {
        source.openAlerts();
        return countWith(&walkAlerts);
    });
    report(info, "limits", [&] {
        source.openLimits();
        return countWith(&walkLimits);
    });
    report(info, "positions", [&] {
        source.openPositions();
        return countWith(&walkPositions);
    });
    return info;
}

} // namespace vdcat

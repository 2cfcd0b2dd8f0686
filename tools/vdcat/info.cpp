// Counting of every kind that can be opened.

#include "vdcat/info.h"

#include <functional>
#include <utility>

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
    // The first of the three kinds opens the reader for the others.
    const auto withClasses = [&](const std::function<std::int64_t()>& count) {
        return [&source, &classesTried, count] {
            if (!std::exchange(classesTried, true))
                source.openClasses();
            return count();
        };
    };
    report(info, "classes", withClasses([] { return countWith(&walkClasses); }));
    report(info, "securities", withClasses([] { return countWith(&walkSecurities); }));
    report(info, "params", withClasses(&countParams));
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

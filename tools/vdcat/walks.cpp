// The library's callbacks carry no argument of the caller's: the visitor of the running walk stands
// beside them, one for each form of callback.

#include "vdcat/walks.h"

#include <cstdint>
#include <exception>

#include "support/brokenContract.h"
#include "vdcat/source.h"

namespace vdcat {

namespace {

constexpr std::int32_t kGoOn = 1;
constexpr std::int32_t kStop = 2;

template <typename... Records>
struct Bridge {
    using Visit = std::function<bool(Records...)>;

    static std::int32_t call(Records... records) {
        try {
            if ((*s_visit)(records...))
                return kGoOn;
        } catch (...) {
            s_raised = std::current_exception();
        }
        s_stopped = true;
        return kStop;
    }

    // `walk` starts the library's walk with the callback that it is given and returns its result.
    template <typename Walk>
    static void run(const Visit& visit, Walk walk) {
        s_visit = &visit;
        s_stopped = false;
        s_raised = nullptr;
        const std::int32_t result = walk(&call);
        s_visit = nullptr;
        if (s_raised)
            std::rethrow_exception(s_raised);
        if (result != 1 && !s_stopped)
            throw lastFailure();
    }

    static inline const Visit* s_visit = nullptr;
    static inline bool s_stopped = false;
    static inline std::exception_ptr s_raised;
};

} // namespace

void walkClasses(const std::function<bool(sClassParUnitedDesc*)>& visit) {
    Bridge<sClassParUnitedDesc*>::run(
        visit, [](ClassCallback callback) { return for_each_class(callback); });
}

void walkSecurities(const std::function<bool(sClassParUnitedDesc*, sSecurityDesc*)>& visit) {
    Bridge<sClassParUnitedDesc*, sSecurityDesc*>::run(
        visit, [](SecurityCallback callback) { return for_each_security(callback); });
}

void walkSecuritiesOf(const char* classCode,
                      const std::function<bool(sClassParUnitedDesc*, sSecurityDesc*)>& visit) {
    Bridge<sClassParUnitedDesc*, sSecurityDesc*>::run(visit, [&](SecurityCallback callback) {
        return for_each_security_in_class(classCode, callback);
    });
}

void walkChanges(const std::function<bool(sDynParams*)>& visit) {
    const tool::BrokenContract guard("vdcat: a record of data.vd has an impossible mask\n",
                                     tool::kMalformed);
    // A run-time whose handler returns lets the record through.
    const std::function<bool(sDynParams*)> checked = [&](sDynParams* record) {
        if (record->maskSize > sizeof record->mask)
            throw tool::Failure(tool::kMalformed, "a record of data.vd has an impossible mask");
        return visit(record);
    };
    Bridge<sDynParams*>::run(checked, [](DynParamsCallback callback) {
        // This walk alone lets the failures of the file out as they are raised.
        try {
            return for_each_dynamic_params(callback);
        } catch (const std::exception& error) {
            throw tool::Failure(tool::kMalformed, error.what());
        }
    });
}

void walkAlerts(const std::function<bool(sAlertDesc*)>& visit) {
    Bridge<sAlertDesc*>::run(visit,
                             [](AlertCallback callback) { return for_each_alert(callback); });
}

void walkLimits(const std::function<bool(sFutLimit*)>& visit) {
    Bridge<sFutLimit*>::run(visit,
                            [](FutLimitCallback callback) { return for_each_futlimit(callback); });
}

void walkPositions(const std::function<bool(sFutPosition*)>& visit) {
    Bridge<sFutPosition*>::run(
        visit, [](FutPositionCallback callback) { return for_each_futposition(callback); });
}

} // namespace vdcat

// Walks of the library with callbacks that may hold state and raise.

#pragma once

#include <functional>

#include "vdreader/vdreader.h"

namespace vdcat {

// Each calls `visit` with every record until it gives false, which is no failure.  What `visit`
// raises goes on to the caller when the library's walk has ended.  Raise tool::Failure with the
// library's text when a walk fails.  Not to be nested within themselves.
void walkClasses(const std::function<bool(sClassParUnitedDesc*)>& visit);
void walkSecurities(const std::function<bool(sClassParUnitedDesc*, sSecurityDesc*)>& visit);
void walkSecuritiesOf(const char* classCode,
                      const std::function<bool(sClassParUnitedDesc*, sSecurityDesc*)>& visit);
// The walk of the change records ends the process with kMalformed where the library finds a record
// that breaks the file's contract so far that it calls the C library's handler for such.
void walkChanges(const std::function<bool(sDynParams*)>& visit);
void walkAlerts(const std::function<bool(sAlertDesc*)>& visit);
void walkLimits(const std::function<bool(sFutLimit*)>& visit);
void walkPositions(const std::function<bool(sFutPosition*)>& visit);

} // namespace vdcat

// Showing of the kinds that a server changes all the time, once or again and again.

#pragma once

#include "vdcat/job.h"

namespace vdcat {

// Each shows what the request asks for and gives the program's exit code.  Raises tool::Failure.
int showLast(const Job& job);
int showJournal(const Job& job);
int showAlerts(const Job& job);

} // namespace vdcat

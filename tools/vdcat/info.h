// The report on all kinds.

#pragma once

#include <vector>

#include "vdcat/fields.h"
#include "vdcat/source.h"

namespace vdcat {

struct InfoReport {
    std::vector<InfoRow> rows;
    tool::ExitCode code = tool::kDone; // that of the first kind that failed
};

InfoReport gatherInfo(Source& source);

} // namespace vdcat

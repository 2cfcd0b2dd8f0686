// Parts of the writer of the benchmark data.

#pragma once

#include <filesystem>

#include "sample/market.h"

namespace bench {

// data.vd in three forms, alert.vd, and the same records in databases.  The journal is that of the
// market's securities.
void writeMappedFiles(const std::filesystem::path& folder, const sample::Market& market);

} // namespace bench

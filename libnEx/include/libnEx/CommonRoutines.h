// Opening of a file for reading that others may hold for themselves at the moment.

#pragma once

#include <cstdint>
#include <fstream>
#include <string>

namespace libn {

// A file that is waited for.
struct ReadRecord {
    std::string fileName;
    std::ifstream stream; // closed at first
};

// Opens the record's stream, whose state is then clear; others may read and write meanwhile, and a
// folder is refused.
//
// Each attempt that fails sets the stream's fail flag, tells the error log the system's error with
//   Can't read file <name=%s><attempt=%d>
// and the number of the attempt from 1, and then waits `waitMs` milliseconds (below 0: not at all).
// After the last the error log gets
//   (CommonRoutines at LINE) Can't read file <name=%s>
// and the stream stays as it is.  Nothing happens with `attempts` below 1.
void readWithAttempts(ReadRecord& record, std::int32_t attempts, std::int32_t waitMs);

} // namespace libn

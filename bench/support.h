// What the benchmark programs share: the folder of the data and the state of the heap.
//
// A program takes Google Benchmark's options and one argument, the folder that vdreader_bench_data
// wrote.  A benchmark is named "path/ours", "path/limit" or "path/peer"; table.py puts the names of
// one path into one row.

#pragma once

#include <string>

namespace bench {

// Full name of a data file.  Ends the program if the file is not there.
const std::string& dataFile(const char* name);

// Full name of a file that a benchmark writes, beside the data.
std::string outputFile(const char* name);

// Gives all free memory back to the system, so that what follows pays for its pages as it does in a
// process that has just started, whatever ran before it.
void startWithFreshHeap();

// From here on the heap keeps what is freed, as that of a process does that has been running.
void keepFreedMemory();

// Ends the program with a text on standard error.
[[noreturn]] void stop(const std::string& text);

} // namespace bench

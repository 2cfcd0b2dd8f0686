// What showing a kind of records needs.

#pragma once

#include "support/program.h"
#include "vdcat/options.h"
#include "vdcat/source.h"

namespace vdcat {

struct Job {
    const Request& request;
    Format format;
    tool::Output& output;
};

// Opens one of the source's readers and puts the source's name in front of what it raises, since
// the library's texts do not always name the file.
void open(Source& source, void (Source::*reader)());

} // namespace vdcat

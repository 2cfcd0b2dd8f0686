// The three forms of output: a table for people, JSON Lines and CSV for programs.

#pragma once

#include <memory>
#include <span>
#include <vector>

#include "support/program.h"
#include "vdcat/value.h"

namespace vdcat {

enum class Format { Table, Json, Csv };

class Printer {
  public:
    virtual ~Printer() = default;

    // Called once, before the rows.  Column names are plain ASCII words.
    virtual void begin(const std::vector<Column>& columns) = 0;

    // One value for each column.  False when nobody reads any more.
    virtual bool row(std::span<const Value> values) = 0;

    // Hands on the rows that are held back, for a reader who waits for them.
    virtual void flush() {}

    // Called once, behind the last row.
    virtual void end() = 0;
};

// JSON: one object a line.  CSV: RFC 4180 with a head line, lines end in carriage return and line
// feed.  Table: see tablePrinter.h.  `output` must outlive the printer.
std::unique_ptr<Printer> makePrinter(Format format, tool::Output& output);

} // namespace vdcat

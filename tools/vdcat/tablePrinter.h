// A table with a head line: columns two blanks apart, numbers to the right, texts to the left, "-"
// for a text that is absent, a dot for each control character.
//
// Widths are taken from the first 20,000 rows, which are held back until then or until a flush; a
// longer text further down pushes its line to the right.  Nothing is cut.  Behind a flush rows are
// held back again, and widths may grow from one flush to the next.  The head comes out with the
// first row, or at the end.

#pragma once

#include <string>
#include <vector>

#include "vdcat/printers.h"

namespace vdcat {

class TablePrinter : public Printer {
  public:
    explicit TablePrinter(tool::Output& output) : m_output(output) {}

    void begin(const std::vector<Column>& columns) override;
    bool row(std::span<const Value> values) override;
    void flush() override;
    void end() override;

  private:
    void hold(std::vector<std::string> cells);
    bool release();
    bool writeLine(const std::vector<std::string>& cells);

    tool::Output& m_output;
    std::vector<Column> m_columns;
    std::vector<std::size_t> m_widths;
    std::vector<std::vector<std::string>> m_held;
    bool m_released = false;
    bool m_headIsOut = false;
};

} // namespace vdcat

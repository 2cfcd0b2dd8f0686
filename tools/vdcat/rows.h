// The way of a record to the printer: the fields that were asked for, up to the limit.

#pragma once

#include <cstdint>
#include <vector>

#include "vdcat/fields.h"
#include "vdcat/options.h"
#include "vdcat/printers.h"

namespace vdcat {

template <typename Row>
class Rows {
  public:
    // Raises tool::Failure kUsage for an unknown field.  Begins nothing yet, so that a source
    // that fails to open leaves no head line.
    Rows(const Request& request, Format format, tool::Output& output)
        : m_fields(selectFields<Row>(request, format)),
          m_printer(makePrinter(format, output)),
          m_left(request.limit.value_or(UINT64_MAX)) {}

    bool shows(std::string_view field) const {
        for (const Field<Row>& shown : m_fields)
            if (field == shown.name)
                return true;
        return false;
    }

    // False when no row is wanted at all.
    bool begin() {
        std::vector<Column> columns;
        for (const Field<Row>& field : m_fields)
            columns.push_back({field.name, field.numeric});
        m_printer->begin(columns);
        m_values.resize(m_fields.size());
        return m_left > 0;
    }

    // False when no further row is wanted.
    bool add(const Row& row) {
        for (std::size_t i = 0; i < m_fields.size(); ++i)
            m_values[i] = m_fields[i].get(row);
        return m_printer->row(m_values) && --m_left > 0;
    }

    // Hands on what is held back.
    void flush() { m_printer->flush(); }

    void end() { m_printer->end(); }

  private:
    std::vector<Field<Row>> m_fields;
    std::unique_ptr<Printer> m_printer;
    std::vector<Value> m_values;
    std::uint64_t m_left;
};

} // namespace vdcat

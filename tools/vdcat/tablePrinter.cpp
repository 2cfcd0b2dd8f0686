// Layout of the table.

#include "vdcat/tablePrinter.h"

#include <algorithm>

#include "vdcat/convert.h"

namespace vdcat {

namespace {

constexpr std::size_t kHeldRows = 20'000;

// Control characters would move the terminal's cursor or change its state.
std::string withoutControls(const std::string& text) {
    std::string shown;
    for (std::size_t at = 0; at < text.size(); ++at) {
        const unsigned char letter = static_cast<unsigned char>(text[at]);
        const bool highControl = letter == 0xC2 && at + 1 < text.size() &&
                                 static_cast<unsigned char>(text[at + 1]) < 0xA0;
        if (highControl)
            ++at;
        shown += letter < 0x20 || letter == 0x7F || highControl ? '.' : text[at];
    }
    return shown;
}

std::string cellOf(const Value& value) {
    if (value.index() == 0)
        return "-";
    std::string text;
    appendPlainValue(text, value);
    return std::holds_alternative<std::string_view>(value) ? withoutControls(text) : text;
}

} // namespace

void TablePrinter::begin(const std::vector<Column>& columns) {
    m_columns = columns;
    m_widths.assign(columns.size(), 0);
    std::vector<std::string> names;
    names.reserve(columns.size());
    for (const Column& column : columns)
        names.push_back(column.name);
    hold(std::move(names));
}

bool TablePrinter::row(std::span<const Value> values) {
    std::vector<std::string> cells;
    cells.reserve(values.size());
    for (const Value& value : values)
        cells.push_back(cellOf(value));
    if (m_released)
        return writeLine(cells);
    hold(std::move(cells));
    return m_held.size() <= kHeldRows || release();
}

// A head without rows waits, so that its widths are those of the rows.
void TablePrinter::flush() {
    if (m_held.size() == 1 && !m_headIsOut)
        return;
    release();
    m_released = false;
}

void TablePrinter::end() {
    release();
}

void TablePrinter::hold(std::vector<std::string> cells) {
    for (std::size_t i = 0; i < cells.size(); ++i)
        m_widths[i] = std::max(m_widths[i], characterCount(cells[i]));
    m_held.push_back(std::move(cells));
}

bool TablePrinter::release() {
    m_released = true;
    m_headIsOut = true;
    bool goOn = true;
    for (std::size_t i = 0; i < m_held.size() && goOn; ++i)
        goOn = writeLine(m_held[i]);
    m_held.clear();
    return goOn;
}

bool TablePrinter::writeLine(const std::vector<std::string>& cells) {
    std::string line;
    for (std::size_t i = 0; i < cells.size(); ++i) {
        const std::size_t count = characterCount(cells[i]);
        const std::string padding(count < m_widths[i] ? m_widths[i] - count : 0, ' ');
        line += i ? "  " : "";
        line += m_columns[i].numeric ? padding + cells[i] : cells[i] + padding;
    }
    line.erase(line.find_last_not_of(' ') + 1);
    return m_output.write(line + "\n");
}

} // namespace vdcat

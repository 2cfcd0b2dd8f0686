// JSON Lines and CSV.

#include "vdcat/printers.h"

#include "vdcat/convert.h"
#include "vdcat/tablePrinter.h"

namespace vdcat {

namespace {

class JsonPrinter : public Printer {
  public:
    explicit JsonPrinter(tool::Output& output) : m_output(output) {}

    void begin(const std::vector<Column>& columns) override {
        for (const Column& column : columns) {
            std::string key;
            appendJsonString(key, column.name);
            m_keys.push_back((m_keys.empty() ? "{" : ",") + key + ":");
        }
    }

    bool row(std::span<const Value> values) override {
        m_line.clear();
        for (std::size_t i = 0; i < values.size(); ++i) {
            m_line += m_keys[i];
            appendJsonValue(m_line, values[i]);
        }
        m_line += "}\n";
        return m_output.write(m_line);
    }

    void end() override {}

  private:
    tool::Output& m_output;
    std::vector<std::string> m_keys;
    std::string m_line;
};

class CsvPrinter : public Printer {
  public:
    explicit CsvPrinter(tool::Output& output) : m_output(output) {}

    void begin(const std::vector<Column>& columns) override {
        std::string line;
        for (const Column& column : columns)
            line += (line.empty() ? "" : ",") + column.name;
        m_output.write(line + "\r\n");
    }

    bool row(std::span<const Value> values) override {
        m_line.clear();
        for (std::size_t i = 0; i < values.size(); ++i) {
            if (i)
                m_line += ',';
            appendCell(values[i]);
        }
        m_line += "\r\n";
        return m_output.write(m_line);
    }

    void end() override {}

  private:
    void appendCell(const Value& value) {
        const auto* text = std::get_if<std::string_view>(&value);
        if (const auto* composed = std::get_if<Composed>(&value))
            text = &composed->plain;
        if (!text || text->find_first_of(",\"\r\n") == std::string_view::npos) {
            appendPlainValue(m_line, value);
            return;
        }
        std::string quoted;
        for (const char letter : *text)
            quoted.append(letter == '"' ? 2 : 1, letter);
        m_line += '"';
        appendUtf8(m_line, quoted);
        m_line += '"';
    }

    tool::Output& m_output;
    std::string m_line;
};

} // namespace

std::unique_ptr<Printer> makePrinter(Format format, tool::Output& output) {
    if (format == Format::Json)
        return std::make_unique<JsonPrinter>(output);
    if (format == Format::Csv)
        return std::make_unique<CsvPrinter>(output);
    return std::make_unique<TablePrinter>(output);
}

} // namespace vdcat

// Fuzz target of the class filter: the first line is a filter text, the others are class codes.
// Which codes are kept is compared with a set of strings, for the filter itself and for a load
// through an ini file; both twice, since a direction turns with every reading.

#include <iostream>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "Classes/classFilter.h"
#include "platform/file.h"
#include "readerState.h"
#include "sample/classFile.h"
#include "support/input.h"
#include "vdreader/classes.h"
#include "vdreader/readers.h"

namespace {

class ReferenceFilter {
  public:
    void read(const std::string& text) {
        m_codes.clear();
        const std::size_t minus = text.find('-');
        m_include = m_include != (minus != std::string::npos);
        std::istringstream pieces(minus == std::string::npos ? text : text.substr(minus + 1));
        for (std::string piece; std::getline(pieces, piece, ',');)
            m_codes.insert(piece);
    }
    bool keeps(const std::string& code) const {
        if (m_include)
            return m_codes.empty() || m_codes.count(code) > 0;
        return !m_codes.empty() && m_codes.count(code) == 0;
    }

  private:
    bool m_include = true;
    std::set<std::string> m_codes;
};

std::string trimmed(const std::string& text) {
    const std::size_t begin = text.find_first_not_of(" \t\r");
    return begin == std::string::npos
               ? std::string()
               : text.substr(begin, text.find_last_not_of(" \t\r") - begin + 1);
}

std::vector<std::string> kept;
std::int32_t takeCode(sClassParUnitedDesc* held) {
    const std::string field(get_sClassParUnitedDesc_class_code(held), 13);
    kept.push_back(field.substr(0, field.find('\0')));
    return 1;
}

void checkFilter(const std::string& text, const std::vector<std::string>& codes) {
    ClassFilter filter;
    ReferenceFilter wanted;
    for (int reading = 0; reading < 3; ++reading) {
        filter.codes.clear();
        filter.add(text);
        wanted.read(text);
        for (const std::string& code : codes)
            FUZZ_CHECK(filter.keeps(code) == wanted.keeps(code));
    }
}

void checkLoads(const std::string& text, const std::vector<std::string>& codes) {
    static fuzzing::MemoryFiles files;
    std::vector<sample::ClassRecord> classes;
    for (const std::string& code : codes)
        classes.emplace_back().classCode = code;
    const std::string file = sample::encodeClassFile(classes);
    const std::string ini = "[s]\nclasses=/memory/class.vd\nclass_filter=" + text + "\n";
    files.put("class.vd", file);
    files.put("host.ini", ini);

    readerState().classFilter = ClassFilter();
    ReferenceFilter wanted;
    for (int reading = 0; reading < 3; ++reading) {
        wanted.read(trimmed(text));
        std::vector<std::string> wantedCodes;
        for (const std::string& code : codes) {
            const std::string stored = std::string(code.substr(0, 13).c_str());
            if (wanted.keeps(stored))
                wantedCodes.push_back(stored);
        }
        kept.clear();
        const std::int32_t result = init_vdreader_classes("/memory/host.ini", "s");
        FUZZ_CHECK(result == (wantedCodes.empty() ? 0 : 1));
        if (result == 0)
            FUZZ_CHECK(std::string("classes storage is empty") == get_vdreader_error());
        FUZZ_CHECK(for_each_class(takeCode) == result);
        FUZZ_CHECK(kept == wantedCodes);
        FUZZ_CHECK(files.openCount() == 0);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::istringstream lines(std::string(reinterpret_cast<const char*>(data), size));
    std::string text;
    std::getline(lines, text);
    std::vector<std::string> codes;
    for (std::string code; std::getline(lines, code);)
        codes.push_back(code);
    checkFilter(text, codes);

    codes.resize(std::min<std::size_t>(codes.size(), 3));
    const bool ends = platform::textEndMark >= 0 &&
                      text.find(static_cast<char>(platform::textEndMark)) != std::string::npos;
    if (!codes.empty() && !ends)
        checkLoads(text, codes);
    return 0;
}

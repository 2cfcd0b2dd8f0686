// Fuzz target of ini files: parses a file and compares all look-ups with the reference parser, with
// the file's own names and with pieces of it as sections and keys.  The fault trailer of input.h
// applies.

#include <algorithm>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "libn/Ini.h"
#include "platform/file.h"
#include "reference/iniReference.h"
#include "support/input.h"

namespace {

using reference::IniFile;

const std::string kPath = "/memory/host.ini";

// The class has no virtual destructor, and an optional one is only destroyed as itself.
struct ParsedIni final : libn::Ini {
    using Ini::Ini;
};

// The text as the system's text mode gives it.
std::string textOf(std::string_view file) {
    std::string text(file);
    if (platform::textEndMark >= 0)
        text.resize(std::min(text.size(), text.find(static_cast<char>(platform::textEndMark))));
    return text;
}

std::string otherCase(std::string text) {
    for (char& c : text)
        if (c >= 'a' && c <= 'z')
            c = static_cast<char>(c - 'a' + 'A');
    return text;
}

// Names that end at a zero, as a C string hands them over.
std::string cut(const std::string& name) {
    return name.c_str();
}

void checkSections(const libn::Ini& ini, const IniFile& wanted) {
    FUZZ_CHECK(ini.sections.size() == wanted.sections().size());
    for (const auto& [name, pairs] : wanted.sections()) {
        const auto section = ini.sections.find(name);
        FUZZ_CHECK(section != ini.sections.end());
        IniFile::Pairs sorted = pairs;
        std::stable_sort(sorted.begin(), sorted.end(),
                         [](const auto& a, const auto& b) { return a.first < b.first; });
        FUZZ_CHECK(std::equal(sorted.begin(), sorted.end(), section->second.begin(),
                              section->second.end(), [](const auto& a, const auto& b) {
                                  return a.first == b.first && a.second == b.second;
                              }));
    }
}

void checkKey(const libn::Ini& ini, const IniFile& wanted, const std::string& section,
              const std::string& key) {
    const std::string value = wanted.first(section, key);
    FUZZ_CHECK(ini.getValue(section.c_str(), key.c_str()) == value);

    std::string text = "before";
    ini.getString(section.c_str(), 1, key.c_str(), 0, "the default", 5, text);
    FUZZ_CHECK(text == (value.empty() ? "the d" : value));

    FUZZ_CHECK(ini.getInt(section.c_str(), key.c_str(), -7) ==
               (value.empty() ? -7 : IniFile::number(value.c_str())));
    for (const bool otherwise : {false, true}) {
        const bool wantedBool = value == "1" || (value != "0" && otherwise);
        FUZZ_CHECK(ini.getBool(section.c_str(), key.c_str(), otherwise) == wantedBool);
    }

    std::vector<std::string> values = {"kept"};
    ini.getValues(section.c_str(), key.c_str(), values);
    auto all = wanted.values(section, key);
    all.insert(all.begin(), "kept");
    FUZZ_CHECK(values == all);
}

void checkSection(libn::Ini& ini, const IniFile& wanted, const std::string& section) {
    std::map<std::string, std::string> pairs = {{"key", "held before"}};
    std::map<std::string, std::string> all = pairs;
    ini.getSection(section, pairs);
    const auto found = wanted.sections().find(IniFile::lower(cut(section)));
    if (found != wanted.sections().end())
        for (const auto& [name, value] : found->second)
            all.insert({name, value});
    FUZZ_CHECK(pairs == all);
}

// A prefix is put in front of the folded key by the single look-ups alone.
void checkPrefix(libn::Ini& ini, const IniFile& wanted, const std::string& section,
                 const std::string& key) {
    const std::size_t half = key.size() / 2;
    const std::string lower = IniFile::lower(key);
    ini.keyPrefix = lower.substr(0, half);
    FUZZ_CHECK(ini.getValue(section.c_str(), key.c_str() + half) == wanted.first(section, key));
    ini.keyPrefix.clear();
}

// Sections and keys to ask for: those of the file and pieces of its bytes.
void checkLookUps(libn::Ini& ini, const IniFile& wanted, const std::string& text) {
    std::vector<std::string> names = {"", "s", "key"};
    for (std::size_t at = 0; at < text.size() && names.size() < 8; at += 1 + text.size() / 5)
        names.push_back(cut(text.substr(at, 1 + at % 9)));
    for (const auto& [section, pairs] : wanted.sections()) {
        names.push_back(cut(section));
        checkSection(ini, wanted, otherCase(cut(section)));
        for (const auto& [key, value] : pairs) {
            checkKey(ini, wanted, otherCase(cut(section)), cut(key));
            checkKey(ini, wanted, cut(section), otherCase(cut(key)));
            checkPrefix(ini, wanted, cut(section), cut(key));
        }
    }
    names.resize(std::min<std::size_t>(names.size(), 12));
    for (const std::string& section : names) {
        checkSection(ini, wanted, section);
        for (const std::string& key : names)
            checkKey(ini, wanted, section, key);
    }
}

std::string readFailure(std::string_view file, std::uint64_t delivered) {
    const auto line =
        1 + std::count(file.begin(), file.begin() + static_cast<long>(delivered), '\n');
    return "Read ini file error. File" + kPath + " line:" + std::to_string(line);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static fuzzing::MemoryFiles files;
    const fuzzing::Input input = fuzzing::splitInput(data, size);
    files.put("host.ini", input.file);
    files.plan(input.plan);
    std::optional<ParsedIni> ini;
    try {
        ini.emplace(kPath);
    } catch (const std::runtime_error& failure) {
        FUZZ_CHECK(files.failedCalls() > 0);
        FUZZ_CHECK(failure.what() == readFailure(input.file, files.delivered()));
    }
    FUZZ_CHECK(files.openCount() == 0);
    // A failed first call is the open, which leaves the object empty.
    const bool opened = !(files.failedCalls() > 0 && input.plan.failingCall == 1);
    if (!ini)
        return 0;
    const std::string text = opened ? textOf(input.file) : std::string();
    const IniFile wanted(text);
    checkSections(*ini, wanted);
    checkLookUps(*ini, wanted, text);

    FUZZ_CHECK(ini->fileName == kPath);
    FUZZ_CHECK(libn::toLowerString(text.c_str()) == IniFile::lower(cut(text)));
    return 0;
}

// An ini file of 1,000 sections of 10 keys: parse and look-up.
//
// Parse, where releasing the result is not timed; "ini parse" on the heap of a process that has
// been running, "first ini parse" on a fresh one, where most of the time goes into the system's
// pages:
//   limit      the file read into one new buffer, its line ends found by memchr, and for each line
//              with a "=" two blocks of heap: one of the size of a node of libn::Ini's map with the
//              bytes of the key, one with the bytes of the value
//   ours       the constructor of libn::Ini
//   SimpleIni  LoadFile of a case-insensitive CSimpleIniA
//
// Look-up of each of the 10,000 values in a shuffled order:
//   limit      one hash table over all values: section and key folded into one text, hashed, found
//   ours       libn::Ini::getValue
//   SimpleIni  GetValue of a case-insensitive CSimpleIniA

#define SI_CONVERT_ICU // what the distribution's library is made with; the class used converts
                       // nothing
#include <SimpleIni.h>
#include <benchmark/benchmark.h>
#include <algorithm>
#include <array>
#include <boost/unordered/unordered_flat_map.hpp>
#include <cctype>
#include <cstdio>
#include <cstring>
#include <memory>
#include <random>
#include <vector>

#include "data.h"
#include "libn/Ini.h"
#include "support.h"

namespace {

using bench::dataFile;

constexpr std::size_t kValues = std::size_t{bench::kIniSections} * bench::kIniKeys;

// ---- parse ----

using Bytes = std::unique_ptr<char[]>;

// What an entry of two strings in a tree takes beside the text of a long string: four words for the
// tree, and the strings themselves, which hold short texts.
constexpr std::size_t kNode = 4 * sizeof(void*) + 2 * sizeof(std::string);

// A block of at least `least` bytes.
Bytes copyOf(const char* bytes, std::size_t size, std::size_t least = 0) {
    Bytes copy = std::make_unique_for_overwrite<char[]>(std::max(size, least));
    std::memcpy(copy.get(), bytes, size);
    return copy;
}

struct Entry {
    Bytes key;
    Bytes value;
};

// The room for the entries themselves is at hand.
void scan(const char* path, std::vector<Entry>& entries) {
    std::FILE* file = std::fopen(path, "rb");
    std::fseek(file, 0, SEEK_END);
    const auto size = static_cast<std::size_t>(std::ftell(file));
    std::rewind(file);
    std::setvbuf(file, nullptr, _IONBF, 0);
    const Bytes text = std::make_unique_for_overwrite<char[]>(size);
    const std::size_t got = std::fread(text.get(), 1, size, file);
    std::fclose(file);

    const char* const end = text.get() + got;
    const auto find = [](const char* from, const char* to, char c) {
        const void* found = std::memchr(from, c, static_cast<std::size_t>(to - from));
        return found != nullptr ? static_cast<const char*>(found) : to;
    };
    for (const char *line = text.get(), *next = line; line < end; line = next + 1) {
        next = find(line, end, '\n');
        const char* equals = find(line, next, '=');
        if (equals != next)
            entries.push_back({copyOf(line, static_cast<std::size_t>(equals - line), kNode),
                               copyOf(equals + 1, static_cast<std::size_t>(next - equals - 1))});
    }
}

template <class Parse, class Release>
void runParse(benchmark::State& state, bool freshHeap, Parse parse, Release release) {
    bench::keepFreedMemory();
    for (auto _ : state) {
        state.PauseTiming();
        if (freshHeap)
            bench::startWithFreshHeap();
        state.ResumeTiming();
        auto parsed = parse();
        benchmark::DoNotOptimize(parsed);
        state.PauseTiming();
        if (release(parsed) != kValues)
            state.SkipWithError("the file is not read whole");
        state.ResumeTiming();
    }
}

void parseLimit(benchmark::State& state, bool freshHeap) {
    const char* path = dataFile(bench::kIniFile).c_str();
    std::vector<Entry> entries;
    entries.reserve(kValues);
    runParse(
        state, freshHeap,
        [&] {
            scan(path, entries);
            return entries.data();
        },
        [&](const Entry*) {
            const std::size_t count = entries.size();
            entries.clear();
            return count;
        });
}

void parseOurs(benchmark::State& state, bool freshHeap) {
    const std::string& path = dataFile(bench::kIniFile);
    runParse(
        state, freshHeap, [&] { return std::make_unique<libn::Ini>(path); },
        [](std::unique_ptr<libn::Ini>& ini) {
            std::size_t count = 0;
            for (const auto& [name, entries] : ini->sections)
                count += entries.size();
            ini.reset();
            return count;
        });
}

void parseSimpleIni(benchmark::State& state, bool freshHeap) {
    const char* path = dataFile(bench::kIniFile).c_str();
    runParse(
        state, freshHeap,
        [&] {
            auto ini = std::make_unique<CSimpleIniA>();
            ini->LoadFile(path);
            return ini;
        },
        [](std::unique_ptr<CSimpleIniA>& ini) {
            std::size_t count = 0;
            CSimpleIniA::TNamesDepend sections;
            ini->GetAllSections(sections);
            for (const CSimpleIniA::Entry& section : sections)
                count += static_cast<std::size_t>(ini->GetSectionSize(section.pItem));
            ini.reset();
            return count;
        });
}

// ---- look-up ----

struct Question {
    std::string section;
    std::string key;
};

// The names of all values in an order that no cache can guess.
const std::vector<Question>& questions() {
    static const std::vector<Question> shuffled = [] {
        std::vector<Question> all;
        for (int section = 0; section < bench::kIniSections; ++section)
            for (int key = 0; key < bench::kIniKeys; ++key)
                all.push_back({bench::iniSection(section), bench::iniKey(key)});
        std::shuffle(all.begin(), all.end(), std::mt19937(1));
        return all;
    }();
    return shuffled;
}

// `look` gives the size of a value.  The time is that of one question.
template <class Look>
void runLookUp(benchmark::State& state, Look look) {
    const std::vector<Question>& all = questions();
    std::size_t next = 0, letters = 0;
    for (auto _ : state) {
        const Question& question = all[next];
        next = next + 1 < all.size() ? next + 1 : 0;
        const std::size_t size = look(question);
        if (size == 0)
            state.SkipWithError("a value was not found");
        letters += size;
    }
    benchmark::DoNotOptimize(letters);
}

class FlatIni {
  public:
    explicit FlatIni(const libn::Ini& ini) {
        for (int c = 0; c < 256; ++c)
            m_folded[static_cast<std::size_t>(c)] = static_cast<char>(std::tolower(c));
        for (const auto& [section, entries] : ini.sections)
            for (const auto& [key, value] : entries)
                m_values.try_emplace(section + '\n' + key, value);
    }

    const std::string& value(const char* section, const char* key) const {
        char name[256];
        std::size_t size = 0;
        for (; *section != '\0' && size < sizeof name; ++section)
            name[size++] = m_folded[static_cast<unsigned char>(*section)];
        name[size++] = '\n';
        for (; *key != '\0' && size < sizeof name; ++key)
            name[size++] = m_folded[static_cast<unsigned char>(*key)];
        static const std::string kNone;
        const auto found = m_values.find(std::string_view(name, size));
        return found != m_values.end() ? found->second : kNone;
    }

  private:
    struct Hash {
        using is_transparent = void;
        std::size_t operator()(std::string_view text) const {
            return std::hash<std::string_view>()(text);
        }
    };

    std::array<char, 256> m_folded;
    boost::unordered_flat_map<std::string, std::string, Hash, std::equal_to<>> m_values;
};

void lookUpLimit(benchmark::State& state) {
    static const FlatIni flat{libn::Ini(dataFile(bench::kIniFile))};
    runLookUp(state, [](const Question& question) {
        return flat.value(question.section.c_str(), question.key.c_str()).size();
    });
}

void lookUpOurs(benchmark::State& state) {
    static const libn::Ini ini(dataFile(bench::kIniFile));
    runLookUp(state, [](const Question& question) {
        return ini.getValue(question.section.c_str(), question.key.c_str()).size();
    });
}

void lookUpSimpleIni(benchmark::State& state) {
    static const auto ini = [] {
        auto loaded = std::make_unique<CSimpleIniA>();
        loaded->LoadFile(dataFile(bench::kIniFile).c_str());
        return loaded;
    }();
    runLookUp(state, [](const Question& question) {
        const char* value = ini->GetValue(question.section.c_str(), question.key.c_str(), "");
        return static_cast<std::size_t>(*value != '\0');
    });
}

void addParse(const std::string& path, bool freshHeap) {
    const auto add = [&](const char* name, void (*parse)(benchmark::State&, bool)) {
        benchmark::RegisterBenchmark((path + name).c_str(), parse, freshHeap)
            ->UseRealTime()
            ->Unit(benchmark::kMicrosecond);
    };
    add("/limit", parseLimit);
    add("/ours", parseOurs);
    add("/SimpleIni", parseSimpleIni);
}

void addLookUp(const char* name, void (*lookUp)(benchmark::State&)) {
    benchmark::RegisterBenchmark(name, lookUp)->UseRealTime()->Unit(benchmark::kNanosecond);
}

const bool added = [] {
    addParse("ini parse", false);
    addParse("first ini parse", true);
    addLookUp("ini look-up/limit", lookUpLimit);
    addLookUp("ini look-up/ours", lookUpOurs);
    addLookUp("ini look-up/SimpleIni", lookUpSimpleIni);
    return true;
}();

} // namespace

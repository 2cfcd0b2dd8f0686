// Ini files: sections of keys and values, parsed when the object is made.
//
// Lines end at a line feed.  Blanks (space, tab, carriage return) are trimmed from lines, names,
// keys and values.  A line that begins with ; or # is a comment; [name] opens a section, text
// behind the ] is ignored; key=value takes the first "=" as the border; other lines are skipped.
// There are no quotes, escapes, continuations or inline comments.  Sections and keys are folded by
// the C library's tolower, values keep their case. On Windows a Ctrl-Z ends the file.
//
// Deliberate: no virtual destructor.  Components that derive from this class count the entries of
// its table of virtual operations; nobody deletes through the base.
//
// Threads: after construction the object only reads, so any number of threads may ask it.

#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "libn/ByteOrder.h"

namespace libn {

// `text` folded byte by byte with tolower.
std::string toLowerString(const char* text);

class Ini {
  public:
    using Entries = std::multimap<std::string, std::string, ByteOrder>;

    // Parses the file.  A file that does not open leaves the object empty.  A read that fails
    // raises std::runtime_error "Read ini file error. File" + name + " line:" + number of the line.
    explicit Ini(const char* file);
    explicit Ini(const std::string& file);

    // Adds the section's pairs to `pairs` in key order.  Nothing is overwritten: of equal keys the
    // first counts, and a key that the map already holds keeps its value.
    virtual void getSection(const std::string& section, std::map<std::string, std::string>& pairs);

    // Rewrites the section in the file, whose other lines stay as they are, with `body`: all its
    // lines without the header and without the last line feed.  Makes section and file where there
    // are none.  Whether the file could be opened; IniWriter.h tells the rest.
    virtual bool writeSection(const std::string& section, std::string&& body);

    // As the first; with `reparse` from the file as it is now instead of the parsed contents.
    void getSection(const std::string& section, std::map<std::string, std::string>& pairs,
                    bool reparse);

    // The first value of the key; empty for an empty value and where there is none.
    const std::string& getValue(const char* section, const char* key) const;

    // Assigns the value to `out`, or the default where the value is empty.  Section and key are
    // searched as C strings; their lengths do not count.
    void getString(const char* section, std::size_t sectionLength, const char* key,
                   std::size_t keyLength, const char* defaultValue, std::size_t defaultLength,
                   std::string& out) const;

    // The value as a decimal number, 0 where it is none, the nearest 32-bit number where it is out
    // of range; the default where the value is empty.
    std::int32_t getInt(const char* section, const char* key, std::int32_t defaultValue) const;

    // true for "1", false for "0", else the default.
    bool getBool(const char* section, const char* key, bool defaultValue) const;

    // Appends every value of the key, in the file's order.
    void getValues(const char* section, const char* key, std::vector<std::string>& values) const;

    std::string fileName;
    // Put in front of the folded key by getValue and what builds on it.
    std::string keyPrefix;
    // The parser folds keys while this is set.
    bool lowerCaseKeys = true;
    std::map<std::string, Entries, ByteOrder> sections;

  private:
    struct Parser;

    void parse();
    const Entries* findSection(const char* section) const;
};

} // namespace libn

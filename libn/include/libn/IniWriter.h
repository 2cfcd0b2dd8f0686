// Rewriting of one section of an ini file by a copy of its text.
//
// Lines are told apart as Ini.h says; what is copied is each line as it stands, with a line feed
// behind it.  The file is read and written in the system's text mode.  The new text is put together
// in memory, and the file is emptied and written at the end.  Where it cannot be written whole, the
// error log gets the system's error with
//   Can't write file <name=%s>
// and the former bytes are put back.  Where that fails too, it gets
//   Can't restore file <name=%s>
//
// A section is found by its folded name; each of several headers of one name counts.
//
// Deliberate: no virtual destructors.  Components that derive from these classes count the entries
// of their tables of virtual operations; nobody deletes through the base.
//
// One thread at a time uses an object.  Other processes may see the file while it is written.

#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace libn {

// A derived class says what becomes of the section.  The order of the virtual operations is binding
// for other modules.
class IniBaseWriter {
  public:
    // Folds the section's name.
    IniBaseWriter(const std::string& file, const std::string& sectionName);
    IniBaseWriter(const IniBaseWriter&) = delete;
    IniBaseWriter& operator=(const IniBaseWriter&) = delete;

    // Called at the section's header, as it stands in the file, which is not copied: what is to
    // stand in its place goes to `text`.  Whether the lines of the section are to be left out.
    virtual bool onSectionFound(std::string& text, std::string_view headerLine) = 0;

    // Called for each key line of the section unless it is left out.  `line` may be changed; an
    // emptied one is dropped.
    virtual void onSectionLine(std::string& line, int arg) = 0;

    // Rewrites the file where it opens and holds the section, with `arg` not 0 wherever it opens.
    // False where not, where the file does not open for reading and writing, and for every failure
    // inside.
    virtual bool run(int arg);

  protected:
    ~IniBaseWriter() = default;

    // What `pass` tells.
    static constexpr int kFound = 0;
    static constexpr int kNoFile = 1;
    static constexpr int kNoSection = 2;

    // Copies the file to `out`: kFound also without the section where `arg` is not 0.  A read that
    // fails raises std::runtime_error "Read ini file error. File: " + name.
    int pass(int arg);

    // Writes `out` to the file and empties it.  False where the file does not open for reading and
    // writing.
    bool writeFile();

    std::string out; // the new text; empty between two runs, also after one that failed
    std::string section;
    std::string fileName;
};

// Puts a new text in the place of a section, or takes the section away.
class IniSectionWriter : public IniBaseWriter {
  public:
    // `body`: the lines of the section without its header and without the last line feed; none
    // takes the section away.  With `append` a section that is not in the file goes to its end,
    // behind an empty line and under its folded name, also where there is no file yet.
    IniSectionWriter(const std::string& file, const std::string& sectionName, bool append,
                     std::optional<std::string> body);

    bool onSectionFound(std::string& text, std::string_view headerLine) override;
    void onSectionLine(std::string& line, int arg) override;

    // False where the file does not open for reading and writing, where there is none unless
    // `appendIfMissing` is set, and for every failure inside.  With `arg` not 0 a section that the
    // file does not hold is not appended.
    bool run(int arg) override;

    bool appendIfMissing;
    std::optional<std::string> newBody;

  private:
    void appendSection();
};

} // namespace libn

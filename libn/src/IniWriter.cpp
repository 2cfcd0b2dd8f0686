// The pass that copies an ini file, and the writing of its new text.

#include "libn/IniWriter.h"

#include <stdexcept>
#include <utility>

#include "iniLines.h"
#include "libn/Ini.h"
#include "libn/WinFile.h"
#include "platform/error.h"
#include "vdreader/log.h"

namespace libn {

namespace {

constexpr char kSource[] = "libn/src/IniWriter";

// A line as the text mode of the system gives it: without what its line ends have in front of the
// line feed.
std::string_view asText(std::string_view line, bool endsFile) {
    const std::string_view front =
        platform::textLineEnd.substr(0, platform::textLineEnd.size() - 1);
    if (!endsFile && line.ends_with(front))
        line.remove_suffix(front.size());
    return line;
}

// The bytes that the text mode of the system makes of a text.
std::string asBytes(std::string_view text) {
    std::string bytes;
    for (std::size_t end; (end = text.find('\n')) != std::string_view::npos;
         text.remove_prefix(end + 1))
        bytes.append(text.substr(0, end)).append(platform::textLineEnd);
    return bytes.append(text);
}

// All of a file, nothing of one that does not open; none where it cannot be read.
std::optional<std::string> bytesOf(const std::string& fileName) {
    std::string bytes;
    WinFile file;
    if (!file.openExisting(fileName.c_str(), WinFile::kSequential, false))
        return bytes;
    std::uint64_t size = 0;
    if (!file.size(size))
        return std::nullopt;
    bytes.resize(size);
    std::uint64_t done = 0;
    if (size > 0 && !(file.read(bytes.data(), size, &done) && done == size))
        return std::nullopt;
    return bytes;
}

// The result of `work`; false where it raises.  After a failure `out` is empty: it must not stand
// in front of what another run copies.
template <class Work>
bool guarded(std::string& out, Work work) {
    try {
        if (work())
            return true;
    } catch (...) { // told by the result
    }
    out.clear();
    return false;
}

// One pass over a file; `target`: inside the section, `skips`: its lines are left out.
struct Copier {
    IniBaseWriter& writer;
    std::string& out;
    const std::string& section;
    int arg;
    FoldTable table;
    bool found = false;
    bool target = false;
    bool skips = false;

    void copy(std::string_view raw) { out.append(raw).push_back('\n'); }

    void header(std::string_view raw, std::string_view line) {
        const auto name = headerName(line);
        if (!name) {
            // Deliberate: a header without its bracket ends no section and is kept in one that
            // goes.  Whoever mends the file finds it where it stood.
            copy(raw);
            return;
        }
        target = table.fold(*name) == section;
        skips = false;
        if (!target) {
            copy(raw);
            return;
        }
        found = true;
        // Deliberate: at each header of the name, though the parser reads the first alone.  Writers
        // of older files may have left several, and the values of one must not come back.
        skips = writer.onSectionFound(out, raw);
    }

    void key(std::string_view raw) {
        if (skips)
            return;
        if (!target) {
            copy(raw);
            return;
        }
        std::string changed(raw);
        writer.onSectionLine(changed, arg);
        if (!changed.empty())
            copy(changed);
    }

    void line(std::string_view raw, bool endsFile) {
        const std::string_view line = trimmed(raw);
        if (isEmptyOrComment(line)) {
            // Deliberate: a comment that ends the file without a line feed is lost, and what a
            // section says about itself goes with its lines.  Generators of such files close them
            // with a mark of their own, which must not pile up.
            if (!skips && !endsFile)
                copy(raw);
        } else if (line.front() == '[') {
            header(raw, line);
        } else {
            key(raw);
        }
    }
};

} // namespace

IniBaseWriter::IniBaseWriter(const std::string& file, const std::string& sectionName)
    : section(toLowerString(sectionName.c_str())), fileName(file) {}

int IniBaseWriter::pass(int arg) {
    const platform::ReadFile file(fileName.c_str());
    if (!file.isOpen())
        return kNoFile;
    Copier copier{*this, out, section, arg, {}};
    const bool complete = forEachLine(file, [&](std::string_view line, bool endsFile) {
        copier.line(asText(line, endsFile), endsFile);
    });
    // Deliberate: other words than the parser's, and no line.  Operators' scripts tell by them
    // whether a file was being read or rewritten.
    if (!complete)
        throw std::runtime_error("Read ini file error. File: " + fileName);
    return copier.found || arg != 0 ? kFound : kNoSection;
}

bool IniBaseWriter::writeFile() {
    const std::optional<std::string> former = bytesOf(fileName);
    const std::string bytes = asBytes(out);
    WinFile file;
    // Deliberate: for reading too, though nothing more is read.  A file that may be written and not
    // read counted as none in the pass, and must not lose its other sections for that.
    if (!file.create(fileName.c_str(), 0))
        return false;
    if (!file.write(bytes.data(), bytes.size())) {
        // Back first: the report takes time and memory.
        const std::uint32_t reason = platform::lastError();
        const bool restored = former && file.create(fileName.c_str(), 0) &&
                              file.write(former->data(), former->size());
        const std::uint32_t laterReason = platform::lastError();
        platform::setLastError(reason);
        oserrori_ex(kSource, __LINE__, "Can't write file <name=%s>", fileName.c_str());
        if (!restored) {
            platform::setLastError(laterReason);
            oserrori_ex(kSource, __LINE__, "Can't restore file <name=%s>", fileName.c_str());
        }
    }
    out.clear();
    // Deliberate: true also where the text did not go into the file.  Callers take false for a file
    // that is held by another process, and try again; the error log tells the rest.
    return true;
}

bool IniBaseWriter::run(int arg) {
    return guarded(out, [&] { return pass(arg) == kFound && writeFile(); });
}

IniSectionWriter::IniSectionWriter(const std::string& file, const std::string& sectionName,
                                   bool append, std::optional<std::string> body)
    : IniBaseWriter(file, sectionName), appendIfMissing(append), newBody(std::move(body)) {}

bool IniSectionWriter::onSectionFound(std::string& text, std::string_view headerLine) {
    if (newBody)
        text.append(headerLine).append("\n").append(*newBody).append("\n");
    return true;
}

void IniSectionWriter::onSectionLine(std::string&, int) {}

// Deliberate: under the folded name, as the parser shows it.  Tools that list the sections of a
// file compare the two.
void IniSectionWriter::appendSection() {
    if (newBody)
        out.append("[").append(section).append("]\n").append(*newBody).append("\n");
}

bool IniSectionWriter::run(int arg) {
    return guarded(out, [&] {
        const int result = pass(arg);
        if (result == kNoFile && !appendIfMissing)
            return false;
        // Deliberate: the empty line is written also where no section follows it.  Files grow by
        // it at each try to take away what is not there; tools compare them with their copies.
        if (result == kNoSection)
            out.push_back('\n');
        if (result != kFound)
            appendSection();
        return writeFile();
    });
}

} // namespace libn

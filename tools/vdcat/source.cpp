// Opening of readers and the sorting of the library's failures into exit codes.

#include "vdcat/source.h"

#include <optional>

#include "vdreader/vdreader.h"

namespace vdcat {

namespace {

constexpr const char* kClasses = "class.vd";
constexpr const char* kLimits = "flimit.vd";
constexpr const char* kPositions = "fclipos.vd";

// The library cuts names behind this length and would open another file.
constexpr std::size_t kMaxPath = 259;

bool endsWith(std::string_view text, std::string_view end) {
    return text.size() >= end.size() && text.substr(text.size() - end.size()) == end;
}

bool tellsOfOpening(std::string_view text) {
    return endsWith(text, "can not be opened") || endsWith(text, "can not be initialized") ||
           text.find("setting or setting is empty") != std::string_view::npos ||
           text.substr(0, 19) == "Read ini file error";
}

} // namespace

tool::Failure lastFailure() {
    const std::string text = get_vdreader_error();
    return {tellsOfOpening(text) ? tool::kCannotOpen : tool::kMalformed, text};
}

Source::Source(const Request& request)
    : m_name(request.folder.empty() ? request.iniFile : request.folder),
      m_iniFile(request.iniFile),
      m_section(request.section) {
    if (request.folder.empty()) {
        if (!tool::isReadable(m_iniFile))
            throw tool::Failure(tool::kCannotOpen, "cannot open ini file " + m_iniFile);
        return;
    }
    m_folder = tool::absolutePath(request.folder);
    // A name that is too long to be made full comes back empty on some systems.
    const std::string& folder = m_folder.empty() ? request.folder : m_folder;
    if (tool::joinPath(folder, kPositions).size() > kMaxPath)
        throw tool::Failure(tool::kCannotOpen, "the path is too long: " + folder);
    if (m_folder.empty() || !tool::isFolder(m_folder))
        throw tool::Failure(tool::kCannotOpen, "there is no folder " + request.folder);
    if (!tool::isUnambiguous(m_folder))
        throw tool::Failure(tool::kCannotOpen, "the path holds a backslash: " + m_folder);
    if (m_folder.find_first_of("\r\n") != std::string::npos)
        throw tool::Failure(tool::kCannotOpen, "the path holds a line end: " + m_folder);
}

void Source::openFlatFile(std::int32_t (*init)(const char*, const char*), const char* key,
                          const char* name) {
    std::optional<tool::TemporaryFile> temporary;
    if (!m_folder.empty())
        temporary.emplace("[" + m_section + "]\n" + key + " = " + tool::joinPath(m_folder, name) +
                          "\n");
    const std::string& iniFile = temporary ? temporary->path() : m_iniFile;
    if (init(iniFile.c_str(), m_section.c_str()) != 1)
        throw lastFailure();
}

void Source::openClasses() {
    const bool ready =
        m_folder.empty()
            ? init_vdreader_classes(m_iniFile.c_str(), m_section.c_str()) == 1
            : init_vdreader_classes_file(tool::joinPath(m_folder, kClasses).c_str()) == 1;
    if (!ready)
        throw lastFailure();
}

void Source::openLimits() {
    openFlatFile(init_vdreader_futlimits, "flimits", kLimits);
}

void Source::openPositions() {
    openFlatFile(init_vdreader_futpositions, "fclipos", kPositions);
}

} // namespace vdcat

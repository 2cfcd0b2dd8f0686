// Opening of readers and the sorting of the library's failures into exit codes.

#include "vdcat/source.h"

#include <algorithm>
#include <filesystem>
#include <stdexcept>

#include "support/system.h"
#include "vdcat/job.h"
#include "vdcat/overtaken.h"
#include "vdcat/settings.h"
#include "vdreader/vdreader.h"

namespace vdcat {

namespace {

constexpr const char* kClasses = "class.vd";
constexpr const char* kCurrentData = "data.vd";
constexpr const char* kAlerts = "alert.vd";
constexpr const char* kLimits = "flimit.vd";
constexpr const char* kPositions = "fclipos.vd";

// The library cuts names behind this length and would open another file.
constexpr std::size_t kMaxPath = 259;

// What tells the two files that are opened for writing from others, and where: a signature behind
// the head of the first block, and two magic numbers.
constexpr std::size_t kSignatureOffset = 24;
constexpr std::string_view kSignature = "0B6C6676-8C6E-4807-B8CA-60367206277A";
constexpr std::string_view kMagicNumbers("\x38\x5E\xFB\x34\0\0\0\0\x38\x5E\xFB\x34\0\0\0\0", 16);

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

void open(Source& source, void (Source::*reader)()) {
    try {
        (source.*reader)();
    } catch (const tool::Failure& failure) {
        throw tool::Failure(failure.code, source.name() + ": " + failure.what());
    }
}

Source::Source(const Request& request)
    : m_name(request.folder.empty() ? request.iniFile : request.folder),
      m_iniFile(request.iniFile),
      m_section(request.section),
      m_live(request.live) {
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

// A system that removes no open file keeps the library's copy of data.vd until another file has
// taken its place there.
Source::~Source() {
    if (tool::kOpenFilesStay && m_copies && m_currentDataIsOpen)
        init_vdreader_dyn_params_file(tool::kNullDevice);
}

std::string Source::fileOf(const char* key, const char* name) const {
    if (!m_folder.empty())
        return tool::joinPath(m_folder, name);
    const std::string value = iniValue(m_iniFile, m_section, key);
    return configuredPath(value.empty() ? name : value, tool::executablePath());
}

std::string Source::prepared(const std::string& path, const char* name, std::size_t offset,
                             std::string_view mark) {
    const auto refuse = [&](tool::ExitCode code, const std::string& reason) {
        throw tool::Failure(code, "the file " + path + " " + reason);
    };
    if (path.size() > kMaxPath)
        refuse(tool::kCannotOpen, "has too long a path");
    if (!tool::isReadable(path))
        refuse(tool::kCannotOpen, "can not be opened");
    const std::string begin = tool::firstBytes(path, offset + mark.size());
    if (m_live && begin.empty())
        refuse(tool::kMalformed, "is empty: no server has laid it out yet");
    if (!begin.empty() && begin.substr(std::min(offset, begin.size())) != mark)
        refuse(tool::kMalformed, "is none of its kind");
    if (m_live) {
        if (!tool::isWritable(path))
            refuse(tool::kCannotOpen, "can not be opened for writing, which --live needs");
        return path;
    }
    if (!m_copies)
        m_copies.emplace();
    return m_copies->copy(path, name);
}

void Source::openCurrentData() {
    const std::string path = fileOf("dynparams", kCurrentData);
    const std::string file = prepared(path, kCurrentData, kSignatureOffset, kSignature);
    m_currentDataIsOpen = true;
    lookBesideServer([&] {
        if (init_vdreader_dyn_params_file(file.c_str()) != 1)
            throw lastFailure();
    });
}

void Source::openAlerts() {
    const std::string path = fileOf("alerts", kAlerts);
    m_alertFile = prepared(path, kAlerts, 0, kMagicNumbers);
    openThrough(init_vdreader_alerts, "alerts", m_alertFile);
}

std::uint64_t Source::alertFileSize() const {
    std::error_code error;
    const auto size = std::filesystem::file_size(m_alertFile, error);
    return error ? 0 : size;
}

void Source::openThrough(std::int32_t (*init)(const char*, const char*), const char* key,
                         const std::string& path) {
    const tool::TemporaryFile temporary("[" + m_section + "]\n" + key + " = " + path + "\n");
    if (init(temporary.path().c_str(), m_section.c_str()) != 1)
        throw lastFailure();
}

void Source::openFlatFile(std::int32_t (*init)(const char*, const char*), const char* key,
                          const char* name) {
    if (!m_folder.empty())
        return openThrough(init, key, tool::joinPath(m_folder, name));
    if (init(m_iniFile.c_str(), m_section.c_str()) != 1)
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

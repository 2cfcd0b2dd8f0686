// Folders and files of logs.

#include "diagnostics/createFile.h"

#include <boost/filesystem.hpp>

#include "platform/clock.h"
#include "platform/process.h"
#include "vdreader/log.h"
#include "vdreader/logfiles.h"

namespace {

namespace fs = boost::filesystem;

// The path with the system's own separators.
fs::path pathOf(const char* path) {
    std::string text = path != nullptr ? path : "";
    for (char& c : text)
        if (platform::pathForm.isSeparator(c))
            c = platform::pathForm.separator;
    return text;
}

bool endsWith(const std::string& text, const char* end) {
    const std::string tail(end);
    return text.size() >= tail.size() &&
           text.compare(text.size() - tail.size(), tail.size(), tail) == 0;
}

// The current folder and those above it are there.
bool isTakenToExist(const fs::path& folder) {
    const std::string& text = folder.string();
    return folder.filename() == "." || text == ".." || endsWith(text, "/..") ||
           endsWith(text, ":..") || endsWith(text, "\\..");
}

} // namespace

extern "C" void create_tree(const char* path) {
    const fs::path folder = pathOf(path).parent_path();
    if (isTakenToExist(folder))
        return;
    try {
        fs::create_directories(folder);
    } catch (const fs::filesystem_error& failure) {
        error("create_tree(%s) failed. %s", path != nullptr ? path : "null", failure.what());
        throw fs::filesystem_error(failure);
    }
}

bool create_file(libn::IFile& file, const char* path, bool touch) {
    if (path == nullptr) {
        error("create_file failed. Invalid param: file_path is null.");
        return false;
    }
    create_tree(path);
    if (!file.openAlways(path, 0)) {
        error("Failed to create file '%s'.", path);
        return false;
    }
    if (touch)
        fs::last_write_time(pathOf(path), platform::calls.wallClock().seconds);
    return true;
}

// Settings and steps of rotation.

#include "diagnostics/rotation.h"

#include <boost/filesystem.hpp>

#include <cctype>
#include <cstdio>
#include <filesystem>
#include <vector>

#include "libn/Ini.h"
#include "libn/pcsscanf.h"
#include "platform/clock.h"
#include "platform/error.h"
#include "platform/pathText.h"
#include "platform/process.h"
#include "vdreader/log.h"

namespace {

constexpr int kLoggedTries = 4;
constexpr std::uint32_t kPause = 500; // milliseconds
constexpr std::size_t kNameSize = 261;

bool exists(const char* path) {
    boost::system::error_code ignored;
    return boost::filesystem::exists(boost::filesystem::status(path, ignored));
}

// What stands behind the last separator.
const char* behindFolders(const char* path) {
    const char* name = path;
    for (const char* c = path; *c != '\0'; ++c)
        if (*c == '\\' || platform::pathForm.isSeparator(*c))
            name = c + 1;
    return name;
}

std::string trimmed(const std::string& text) {
    constexpr char kBlanks[] = " \t\n\r";
    const std::size_t begin = text.find_first_not_of(kBlanks);
    if (begin == std::string::npos)
        return "";
    return text.substr(begin, text.find_last_not_of(kBlanks) - begin + 1);
}

// Whether `text` begins with `name`, the case aside.
bool beginsWith(const char* text, const char* name) {
    for (; *name != '\0'; ++text, ++name)
        if (std::tolower(static_cast<unsigned char>(*text)) !=
            std::tolower(static_cast<unsigned char>(*name)))
            return false;
    return true;
}

// Whether a number stands behind the first comma.
bool hasNumber(const std::string& value) {
    const std::size_t comma = value.find(',');
    if (comma == std::string::npos)
        return false;
    std::size_t at = value.find_first_not_of(" \t\n\v\f\r", comma + 1); // as numbers are read
    if (at != std::string::npos && (value[at] == '-' || value[at] == '+'))
        ++at;
    return at < value.size() && value[at] >= '0' && value[at] <= '9';
}

void setDepth(EVENTS& entry, std::int32_t depth) {
    entry.isRotate = true;
    entry.rotateDepth = static_cast<std::int16_t>(depth);
}

bool isSameDay(const std::tm& a, const std::tm& b) {
    return a.tm_year == b.tm_year && a.tm_mon == b.tm_mon && a.tm_mday == b.tm_mday;
}

std::string numbered(const char* name, int number) {
    char text[kNameSize];
    std::snprintf(text, sizeof text, "%s.%d", name, number);
    return text;
}

std::string lastErrorText(std::uint32_t code) {
    char text[512];
    platform::systemErrorText(code, text, sizeof text);
    return text;
}

// Tries four times with a report and a pause behind each failure, and once more; false with the
// last error where that fails too.
template <class Try, class Report>
bool retried(Try attempt, Report report) {
    for (int i = 0; i < kLoggedTries; ++i) {
        if (attempt())
            return true;
        report(lastErrorText(platform::lastError()));
        platform::calls.sleep(kPause);
    }
    return attempt();
}

std::error_code lastErrorCode() {
    return {static_cast<int>(platform::lastError()), std::system_category()};
}

} // namespace

bool rotateOnOpen(EVENTS& entry, const char* iniPath) {
    loadRotateSettings(entry, iniPath);
    if (!entry.isRotate || !exists(entry.fileName))
        return false;
    std::int64_t made = 0;
    int reason = 0;
    if (!platform::calls.creationTime(entry.fileName, &made, &reason)) {
        error("GetFileCreationUtcTime(%s) failed. %s", entry.fileName,
              lastErrorText(static_cast<std::uint32_t>(reason)).c_str());
        return false;
    }
    const std::tm day = platform::localTime(made);
    if (isSameDay(day, platform::localTime(platform::calls.wallClock().seconds))) {
        // Deliberate: in the error log, though it is none.  Operators look there for why a log did
        // not rotate.
        error("Info: Rotation is not started. The creation day of the %s is %d(today).",
              entry.fileName, day.tm_mday);
        return false;
    }
    rotate_file(entry.fileName, entry.rotateDepth);
    return true;
}

void loadRotateSettings(EVENTS& entry, const char* iniPath) {
    entry.isRotate = false;
    entry.rotateDepth = 0;
    if (iniPath == nullptr || *iniPath == '\0')
        return;
    const libn::Ini ini(iniPath);
    std::vector<std::string> values;
    ini.getValues("logfile", "rotate", values);
    for (const std::string& value : values)
        parseRotateOption(value, entry);
    // Deliberate: values for other logs alone leave this one without rotation.  Hosts list the logs
    // that they want rotated.
    if (!values.empty())
        return;
    const std::int32_t depth = ini.getInt("files", "logdepth", 0);
    if (depth != 0)
        setDepth(entry, depth);
}

void parseRotateOption(const std::string& value, EVENTS& entry) {
    std::vector<char> text(value.size() + 1);
    std::int32_t depth = -1;
    pcsscanf(value.c_str(), "%s,%d", text.data(), &depth);
    // Deliberate: a word is no depth, though it scans as 0, which deletes the log each day.  Ini
    // files are written by hand, and a slip must not take what was to be kept.
    if (!hasNumber(value))
        depth = -1;
    const std::string name = trimmed(text.data());
    // Deliberate: a longer name matches too.  Ini files in the field name a log by its copies.
    if (!beginsWith(behindFolders(name.c_str()), behindFolders(entry.fileName)))
        return;
    if (depth < 0)
        error(
            "!Invalid rotate option '%s'. Expected format is '<filename>,<rotate_times>' e.g. "
            "'events.log,3'",
            value.c_str());
    else
        setDepth(entry, depth);
}

void rotate_file(const char* name, std::int32_t depth) {
    if (name == nullptr) {
        error("rotate_file failed. Invalid param: name is null.");
        return;
    }
    if (depth == 0) {
        delete_with_retry(name);
        return;
    }
    for (std::int32_t i = depth; i > 1; --i) {
        const std::string copy = numbered(name, i - 1);
        if (exists(copy.c_str()))
            rename_with_retry(copy, numbered(name, i));
    }
    rename_with_retry(name, numbered(name, 1));
}

void rename_with_retry(const std::string& from, const std::string& to) {
    const bool moved =
        retried([&] { return platform::calls.moveFile(from.c_str(), to.c_str()); },
                [&](const std::string& reason) {
                    error("rename(%s -> %s) failed. %s", from.c_str(), to.c_str(), reason.c_str());
                });
    if (!moved) {
        const std::error_code reason = lastErrorCode();
        throw std::filesystem::filesystem_error("rename", platform::pathOfName(from),
                                                platform::pathOfName(to), reason);
    }
}

void delete_with_retry(const std::string& path) {
    const bool gone = retried([&] { return platform::calls.removeFile(path.c_str()); },
                              [&](const std::string& reason) {
                                  error("delete(%s) failed. %s", path.c_str(), reason.c_str());
                              });
    if (!gone) {
        const std::error_code reason = lastErrorCode();
        throw std::filesystem::filesystem_error("remove", platform::pathOfName(path), reason);
    }
}

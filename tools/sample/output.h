// Files on the disk: whole files written in one go, and the set of a market with its ini file.

#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "sample/market.h"

namespace sample {

inline constexpr const char* kClassFileName = "class.vd";
inline constexpr const char* kFutLimitsFileName = "flimit.vd";
inline constexpr const char* kFutPositionsFileName = "fclipos.vd";
inline constexpr const char* kAlertFileName = "alert.vd";
inline constexpr const char* kDataFileName = "data.vd";
inline constexpr const char* kIniFileName = "vdreader.ini";
inline constexpr const char* kIniSection = "vdreader";

// A file or folder that could not be written.  The text is "cannot write ", the path, ": " and the
// system's reason.
struct OutputError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// Writes the bytes under a temporary name beside `path` and renames it, so that a reader sees the
// old file or the new one.  Raises OutputError; the temporary file is then gone.
void writeFile(const std::filesystem::path& path, std::string_view bytes);

// The same in pieces: `write` fills the file and calls back what it is given for each piece, which
// goes to its offset; what lies between pieces is zero and a hole where the system leaves such.
// Afterwards the file has the size that `write` tells.
void writeFileInParts(
    const std::filesystem::path& path,
    const std::function<std::uint64_t(
        const std::function<void(std::uint64_t offset, std::string_view bytes)>&)>& write);

// The ini file of a folder: the section with the keys classes, dynparams, alerts, flimits and
// fclipos, each an absolute name in `folder`, so that it serves any program wherever its executable
// stands.
std::string encodeIni(const std::filesystem::path& folder);

struct WrittenFile {
    std::filesystem::path path;
    std::uint64_t bytes = 0;
    std::uint64_t records = 0; // classes, changes, alerts ...; 0 for the ini file
};

// Makes the folder where it is absent and writes the files, the ini file last.  Raises
// OutputError.
std::vector<WrittenFile> writeMarket(const std::filesystem::path& folder, const Market& market);

} // namespace sample

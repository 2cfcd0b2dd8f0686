// Whole files through a temporary name, and the set of a market.

#include "sample/output.h"

#include <cerrno>
#include <fstream>
#include <system_error>

namespace sample {

namespace {

namespace fs = std::filesystem;

[[noreturn]] void fail(const fs::path& path, const std::error_code& reason) {
    throw OutputError("cannot write " + path.string() + ": " + reason.message());
}

std::error_code lastError() {
    return {errno != 0 ? errno : EIO, std::generic_category()};
}

void writeBytes(const fs::path& path, std::string_view bytes) {
    errno = 0;
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    if (!file)
        fail(path, lastError());
    file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    file.close();
    if (!file)
        fail(path, lastError());
}

} // namespace

void writeFile(const fs::path& path, std::string_view bytes) {
    fs::path temporary = path;
    temporary += ".tmp";
    std::error_code ignored;
    try {
        writeBytes(temporary, bytes);
    } catch (const OutputError&) {
        fs::remove(temporary, ignored);
        throw;
    }
    std::error_code error;
    fs::rename(temporary, path, error);
    if (error) {
        fs::remove(temporary, ignored);
        fail(path, error);
    }
}

std::string encodeIni(const fs::path& folder) {
    const fs::path absolute = fs::absolute(folder).lexically_normal();
    const auto line = [&](const char* key, const char* name) {
        return std::string(key) + " = " + (absolute / name).make_preferred().string() + "\n";
    };
    return "; Where the readers of this folder's files find them.\n[" + std::string(kIniSection) +
           "]\n" + line("classes", kClassFileName) + line("flimits", kFutLimitsFileName) +
           line("fclipos", kFutPositionsFileName);
}

std::vector<WrittenFile> writeMarket(const fs::path& folder, const Market& market) {
    std::error_code error;
    fs::create_directories(folder, error);
    if (error)
        fail(folder, error);
    std::vector<WrittenFile> written;
    const auto write = [&](const char* name, const std::string& bytes, std::size_t records) {
        const fs::path path = (folder / name).make_preferred();
        writeFile(path, bytes);
        written.push_back({path, bytes.size(), records});
    };
    write(kClassFileName, encodeClassFile(market.classes), market.classes.size());
    write(kFutLimitsFileName, encodeFutLimits(market.limits), market.limits.size());
    write(kFutPositionsFileName, encodeFutPositions(market.positions), market.positions.size());
    write(kIniFileName, encodeIni(folder), 0);
    return written;
}

} // namespace sample

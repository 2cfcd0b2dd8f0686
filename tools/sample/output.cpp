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

using Part = std::function<void(std::uint64_t, std::string_view)>;

void writeParts(const fs::path& path, const std::function<std::uint64_t(const Part&)>& write) {
    errno = 0;
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    if (!file)
        fail(path, lastError());
    const std::uint64_t size = write([&](std::uint64_t offset, std::string_view bytes) {
        if (static_cast<std::uint64_t>(file.tellp()) != offset)
            file.seekp(static_cast<std::streamoff>(offset));
        file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    });
    file.close();
    if (!file)
        fail(path, lastError());
    std::error_code error;
    if (fs::file_size(path, error) != size && !error)
        fs::resize_file(path, size, error);
    if (error)
        fail(path, error);
}

} // namespace

void writeFile(const fs::path& path, std::string_view bytes) {
    writeFileInParts(path, [&](const Part& part) {
        part(0, bytes);
        return std::uint64_t{bytes.size()};
    });
}

void writeFileInParts(const fs::path& path,
                      const std::function<std::uint64_t(const Part&)>& write) {
    fs::path temporary = path;
    temporary += ".tmp";
    std::error_code ignored;
    try {
        writeParts(temporary, write);
    } catch (...) {
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

std::uint64_t writeDataFile(const fs::path& path, const DataFile& file, DataFileLayout* layout) {
    std::uint64_t size = 0;
    writeFileInParts(path,
                     [&](const Part& part) { return size = encodeDataParts(file, part, layout); });
    return size;
}

std::string encodeIni(const fs::path& folder) {
    const fs::path absolute = fs::absolute(folder).lexically_normal();
    const auto line = [&](const char* key, const char* name) {
        return std::string(key) + " = " + (absolute / name).make_preferred().string() + "\n";
    };
    return "; Where the readers of this folder's files find them.\n[" + std::string(kIniSection) +
           "]\n" + line("classes", kClassFileName) + line("dynparams", kDataFileName) +
           line("alerts", kAlertFileName) + line("flimits", kFutLimitsFileName) +
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
    const fs::path data = (folder / kDataFileName).make_preferred();
    written.push_back({data, writeDataFile(data, makeDataFile(market)), market.changes.size()});
    write(kAlertFileName, encodeAlertFile(market.alerts), market.alerts.size());
    write(kFutLimitsFileName, encodeFutLimits(market.limits), market.limits.size());
    write(kFutPositionsFileName, encodeFutPositions(market.positions), market.positions.size());
    write(kIniFileName, encodeIni(folder), 0);
    return written;
}

} // namespace sample

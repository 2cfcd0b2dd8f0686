// Both systems' halves of system.h.

#include "support/system.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

#include <fcntl.h>
#include <sys/stat.h>

#ifdef _WIN32
#  include <io.h>
#  include <windows.h>
#else
#  include <poll.h>
#  include <unistd.h>
#  include <csignal>
#endif

namespace tool {

namespace {

constexpr int kStandardOutput = 1;

#ifdef _WIN32
int writeSome(int file, const char* bytes, std::size_t count) {
    return _write(file, bytes, static_cast<unsigned>(count));
}

// The run-time has one number for a pipe whose reader has gone and for a bad argument.
bool readerIsGone() {
    return errno == EPIPE || _doserrno == ERROR_NO_DATA || _doserrno == ERROR_BROKEN_PIPE;
}

int makeTemporary(std::string& path) {
    char folder[MAX_PATH + 1];
    char name[MAX_PATH + 1];
    if (!GetTempPathA(sizeof folder, folder) || !GetTempFileNameA(folder, "vdc", 0, name)) {
        errno = EACCES;
        return -1;
    }
    path = name;
    return _open(name, _O_WRONLY | _O_BINARY | _O_TRUNC);
}

int closeFile(int file) {
    return _close(file);
}
#else
int writeSome(int file, const char* bytes, std::size_t count) {
    return static_cast<int>(write(file, bytes, count));
}

bool readerIsGone() {
    return errno == EPIPE;
}

int makeTemporary(std::string& path) {
    const char* folder = std::getenv("TMPDIR");
    path = std::string(folder && *folder ? folder : "/tmp") + "/vdcat-XXXXXX";
    return mkstemp(path.data());
}

int closeFile(int file) {
    return close(file);
}
#endif

bool writeAll(int file, std::string_view bytes) {
    constexpr std::size_t kPiece = 1 << 20;
    while (!bytes.empty()) {
        const int written = writeSome(file, bytes.data(), std::min(bytes.size(), kPiece));
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            return false;
        bytes.remove_prefix(static_cast<std::size_t>(written));
    }
    return true;
}

} // namespace

#ifdef _WIN32
StandardOutput::StandardOutput() : m_terminal(_isatty(kStandardOutput) != 0) {
    _setmode(kStandardOutput, _O_BINARY);
    if (m_terminal) {
        m_formerCodePage = GetConsoleOutputCP();
        SetConsoleOutputCP(CP_UTF8);
    }
}

StandardOutput::~StandardOutput() {
    if (m_formerCodePage)
        SetConsoleOutputCP(m_formerCodePage);
}

bool StandardOutput::hasReader() const {
    return true;
}

const char* const kNullDevice = "\\\\.\\NUL";

std::string executablePath() {
    char path[MAX_PATH + 1];
    const DWORD size = GetModuleFileNameA(nullptr, path, sizeof path);
    return std::string(path, size < sizeof path ? size : 0);
}

std::string absolutePath(const std::string& name) {
    char* full = _fullpath(nullptr, name.c_str(), 0);
    std::string result = full ? full : "";
    std::free(full);
    return result;
}
#else
StandardOutput::StandardOutput() : m_terminal(isatty(kStandardOutput) == 1) {
    std::signal(SIGPIPE, SIG_IGN);
    // A number that nobody opened would go to the first data file.
    if (fcntl(kStandardOutput, F_GETFD) == -1)
        open("/dev/null", O_RDONLY);
}

StandardOutput::~StandardOutput() = default;

bool StandardOutput::hasReader() const {
    pollfd output = {kStandardOutput, 0, 0};
    return poll(&output, 1, 0) != 1 || !(output.revents & POLLERR);
}

const char* const kNullDevice = "/dev/null";

std::string executablePath() {
    char path[4096];
    const ssize_t size = readlink("/proc/self/exe", path, sizeof path);
    return std::string(path, size > 0 ? static_cast<std::size_t>(size) : 0);
}

std::string absolutePath(const std::string& name) {
    if (name.empty() || name.front() == '/')
        return name;
    char* folder = getcwd(nullptr, 0);
    std::string result = folder ? joinPath(folder, name) : "";
    std::free(folder);
    return result;
}
#endif

StandardOutput::Result StandardOutput::write(std::string_view bytes) {
    if (writeAll(kStandardOutput, bytes))
        return Result::Written;
    return readerIsGone() ? Result::NoReader : Result::Failed;
}

StandardOutput::Result StandardOutput::close() {
    return closeFile(kStandardOutput) == 0 ? Result::Written : Result::Failed;
}

bool isUnambiguous(const std::string& path) {
    return kPathSeparator == '\\' || path.find('\\') == std::string::npos;
}

std::string joinPath(const std::string& folder, std::string_view name) {
    std::string path = folder;
    if (!path.empty() && path.back() != '/' && path.back() != kPathSeparator)
        path += kPathSeparator;
    return path.append(name);
}

bool isFolder(const std::string& name) {
    struct stat facts;
    return stat(name.c_str(), &facts) == 0 && (facts.st_mode & S_IFMT) == S_IFDIR;
}

bool isReadable(const std::string& name) {
    std::FILE* file = isFolder(name) ? nullptr : std::fopen(name.c_str(), "rb");
    return file && std::fclose(file) == 0;
}

bool isWritable(const std::string& name) {
    std::FILE* file = isFolder(name) ? nullptr : std::fopen(name.c_str(), "r+b");
    return file && std::fclose(file) == 0;
}

std::string firstBytes(const std::string& name, std::size_t count) {
    std::string bytes(count, '\0');
    std::FILE* file = isFolder(name) ? nullptr : std::fopen(name.c_str(), "rb");
    bytes.resize(file ? std::fread(bytes.data(), 1, count, file) : 0);
    if (file)
        std::fclose(file);
    return bytes;
}

TemporaryFile::TemporaryFile(std::string_view contents) {
    const int file = makeTemporary(m_path);
    const bool written = file >= 0 && writeAll(file, contents);
    const int reason = errno;
    const bool closed = file >= 0 && closeFile(file) == 0;
    if (written && closed)
        return;
    if (file >= 0)
        std::remove(m_path.c_str());
    throw std::runtime_error(std::string("cannot write a temporary file: ") +
                             std::strerror(written ? errno : reason));
}

TemporaryFile::~TemporaryFile() {
    std::remove(m_path.c_str());
}

} // namespace tool

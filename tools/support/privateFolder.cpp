// Folder, sparse copy and removal on both systems.

#include "support/privateFolder.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <stdexcept>

#include "support/system.h"

#include <fcntl.h>
#include <sys/stat.h>

#ifdef _WIN32
#  include <io.h>
#  include <windows.h>
#  include <winioctl.h>
#else
#  include <unistd.h>
#  include <csignal>
#endif

namespace tool {

namespace {

constexpr std::size_t kMaxFiles = 4;
constexpr std::size_t kBlock = 64 * 1024;

// What a signal removes: the files, then the folder.  A text gets its first letter last, so that
// the handler meets whole texts alone.
char s_folder[1024];
char s_files[kMaxFiles][1024];

void note(char (&place)[1024], const std::string& path) {
    const std::size_t count = std::min(path.size(), sizeof place - 1);
    std::memcpy(place + 1, path.data() + std::min<std::size_t>(1, count), count - (count > 0));
    place[count] = '\0';
    std::atomic_signal_fence(std::memory_order_seq_cst);
    place[0] = path.empty() ? '\0' : path[0];
}

#ifdef _WIN32
using Count = int;

bool makeFolder(std::string& path) {
    char place[MAX_PATH + 1];
    if (!GetTempPathA(sizeof place, place)) {
        errno = EACCES;
        return false;
    }
    for (unsigned i = 0; i < 1000; ++i) {
        path = std::string(place) + "vdcat-" + std::to_string(GetCurrentProcessId()) + "-" +
               std::to_string(GetTickCount() + i);
        if (CreateDirectoryA(path.c_str(), nullptr))
            return true;
    }
    errno = EACCES;
    return false;
}

bool removeFile(const char* path) {
    return DeleteFileA(path) || GetLastError() == ERROR_FILE_NOT_FOUND;
}

bool removeFolder(const char* path) {
    return RemoveDirectoryA(path);
}

BOOL WINAPI onControl(DWORD) {
    PrivateFolder::removeNow();
    return FALSE; // the next handler ends the process
}

// Nothing here holds back what a console tells.
struct SignalsWait {
    SignalsWait() {}
};

void takeSignals() {
    SetConsoleCtrlHandler(&onControl, TRUE);
}

void giveSignalsBack() {
    SetConsoleCtrlHandler(&onControl, FALSE);
}

int openToRead(const std::string& path) {
    return _open(path.c_str(), _O_RDONLY | _O_BINARY);
}

int openToWrite(const std::string& path) {
    const int file =
        _open(path.c_str(), _O_WRONLY | _O_CREAT | _O_EXCL | _O_BINARY, _S_IREAD | _S_IWRITE);
    DWORD count = 0;
    if (file >= 0) // where it fails the zeros are written out
        DeviceIoControl(reinterpret_cast<HANDLE>(_get_osfhandle(file)), FSCTL_SET_SPARSE, nullptr,
                        0, nullptr, 0, &count, nullptr);
    return file;
}

Count readAt(int file, char* bytes, std::size_t count, std::uint64_t offset) {
    return _lseeki64(file, static_cast<long long>(offset), SEEK_SET) < 0
               ? -1
               : _read(file, bytes, static_cast<unsigned>(count));
}

Count writeAt(int file, const char* bytes, std::size_t count, std::uint64_t offset) {
    return _lseeki64(file, static_cast<long long>(offset), SEEK_SET) < 0
               ? -1
               : _write(file, bytes, static_cast<unsigned>(count));
}

bool setSize(int file, std::uint64_t size) {
    return _chsize_s(file, static_cast<long long>(size)) == 0;
}

std::int64_t sizeOf(int file) {
    return _filelengthi64(file);
}

std::uint64_t nextData(int, std::uint64_t offset, std::uint64_t) {
    return offset;
}

int closeFile(int file) {
    return _close(file);
}
#else
using Count = ssize_t;

constexpr int kSignals[] = {SIGINT, SIGTERM, SIGHUP};
struct sigaction s_former[3];

bool makeFolder(std::string& path) {
    const char* place = std::getenv("TMPDIR");
    path = std::string(place && *place ? place : "/tmp") + "/vdcat-XXXXXX";
    return mkdtemp(path.data()) != nullptr;
}

bool removeFile(const char* path) {
    return unlink(path) == 0 || errno == ENOENT;
}

bool removeFolder(const char* path) {
    return rmdir(path) == 0;
}

void onSignal(int number) {
    PrivateFolder::removeNow();
    signal(number, SIG_DFL);
    raise(number);
}

// Holds the signals back while the object lives.
class SignalsWait {
  public:
    SignalsWait() {
        sigset_t held;
        sigemptyset(&held);
        for (const int number : kSignals)
            sigaddset(&held, number);
        sigprocmask(SIG_BLOCK, &held, &m_former);
    }
    ~SignalsWait() { sigprocmask(SIG_SETMASK, &m_former, nullptr); }
    SignalsWait(const SignalsWait&) = delete;
    SignalsWait& operator=(const SignalsWait&) = delete;

  private:
    sigset_t m_former;
};

void takeSignals() {
    struct sigaction action = {};
    action.sa_handler = &onSignal;
    for (int i = 0; i < 3; ++i) {
        sigaction(kSignals[i], nullptr, &s_former[i]);
        if (s_former[i].sa_handler != SIG_IGN)
            sigaction(kSignals[i], &action, nullptr);
    }
}

void giveSignalsBack() {
    for (int i = 0; i < 3; ++i)
        sigaction(kSignals[i], &s_former[i], nullptr);
}

int openToRead(const std::string& path) {
    return open(path.c_str(), O_RDONLY | O_CLOEXEC);
}

int openToWrite(const std::string& path) {
    return open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
}

Count readAt(int file, char* bytes, std::size_t count, std::uint64_t offset) {
    return pread(file, bytes, count, static_cast<off_t>(offset));
}

Count writeAt(int file, const char* bytes, std::size_t count, std::uint64_t offset) {
    return pwrite(file, bytes, count, static_cast<off_t>(offset));
}

bool setSize(int file, std::uint64_t size) {
    return ftruncate(file, static_cast<off_t>(size)) == 0;
}

std::int64_t sizeOf(int file) {
    struct stat facts;
    return fstat(file, &facts) == 0 ? facts.st_size : -1;
}

// Where data follow, from `offset` on; `end` where there are none.
std::uint64_t nextData(int file, std::uint64_t offset, std::uint64_t end) {
    const off_t found = lseek(file, static_cast<off_t>(offset), SEEK_DATA);
    if (found >= 0)
        return static_cast<std::uint64_t>(found);
    return errno == ENXIO ? end : offset; // a file system without holes
}

int closeFile(int file) {
    return close(file);
}
#endif

bool copyBlock(int from, int to, std::uint64_t offset, std::size_t count, char* bytes) {
    std::size_t held = 0;
    while (held < count) {
        const Count got = readAt(from, bytes + held, count - held, offset + held);
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            return false;
        if (got == 0)
            break; // cut short meanwhile
        held += static_cast<std::size_t>(got);
    }
    if (std::all_of(bytes, bytes + held, [](char byte) { return byte == 0; }))
        return true;
    for (std::size_t done = 0; done < held;) {
        const Count put = writeAt(to, bytes + done, held - done, offset + done);
        if (put <= 0 && errno != EINTR)
            return false;
        done += static_cast<std::size_t>(std::max<Count>(put, 0));
    }
    return true;
}

bool copyBytes(int from, int to) {
    const std::int64_t size = sizeOf(from);
    if (size < 0)
        return false;
    const auto end = static_cast<std::uint64_t>(size);
    const auto bytes = std::make_unique<char[]>(kBlock);
    std::uint64_t offset = nextData(from, 0, end);
    while (offset < end) {
        const auto count = static_cast<std::size_t>(std::min<std::uint64_t>(kBlock, end - offset));
        if (!copyBlock(from, to, offset, count, bytes.get()))
            return false;
        offset += count;
        if (offset < end)
            offset = nextData(from, offset, end);
    }
    return setSize(to, end);
}

} // namespace

PrivateFolder::PrivateFolder() {
    const SignalsWait wait;
    if (!makeFolder(m_path))
        throw std::runtime_error(std::string("cannot make a temporary folder: ") +
                                 std::strerror(errno));
    note(s_folder, m_path);
    takeSignals();
}

void PrivateFolder::removeNow() {
    for (const auto& file : s_files)
        if (file[0])
            removeFile(file);
    if (s_folder[0])
        removeFolder(s_folder);
}

PrivateFolder::~PrivateFolder() {
    bool gone = true;
    for (const std::string& file : m_files)
        gone = removeFile(file.c_str()) && gone;
    if (!removeFolder(m_path.c_str()) || !gone)
        std::fprintf(stderr, "vdcat: cannot remove the temporary folder %s\n", m_path.c_str());
    giveSignalsBack();
    for (auto& file : s_files)
        file[0] = '\0';
    s_folder[0] = '\0';
}

std::string PrivateFolder::copy(const std::string& path, const std::string& name) {
    if (m_files.size() == kMaxFiles)
        throw std::logic_error("no room for a further private copy");
    std::string made = joinPath(m_path, name);
    const int from = openToRead(path);
    int to = -1;
    if (from >= 0) {
        note(s_files[m_files.size()], made);
        m_files.push_back(made);
        to = openToWrite(made);
    }
    const bool copied = to >= 0 && copyBytes(from, to);
    const int reason = errno;
    const bool closed = to >= 0 && closeFile(to) == 0;
    if (from >= 0)
        closeFile(from);
    if (!copied || !closed)
        throw std::runtime_error("cannot copy " + path + ": " +
                                 std::strerror(copied ? errno : reason));
    return made;
}

} // namespace tool

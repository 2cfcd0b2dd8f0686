// Both systems' halves of sharedFile.h.

#include "live/sharedFile.h"

#include <system_error>
#include <utility>

#ifdef _WIN32
#  include <windows.h>
#else
#  include <fcntl.h>
#  include <sys/mman.h>
#  include <sys/stat.h>
#  include <unistd.h>
#  include <cerrno>
#endif

namespace live {

namespace {

// Views begin at multiples of this on both systems.
constexpr std::uint64_t kGranularity = 65'536;

#ifdef _WIN32
HANDLE handleOf(std::intptr_t file) {
    return reinterpret_cast<HANDLE>(file);
}

int lastReason() {
    return static_cast<int>(GetLastError());
}

std::intptr_t openShared(const std::string& path) {
    return reinterpret_cast<std::intptr_t>(
        CreateFileA(path.c_str(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                    nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
}

void closeShared(std::intptr_t file) {
    CloseHandle(handleOf(file));
}

std::uint64_t sizeOf(std::intptr_t file) {
    LARGE_INTEGER size;
    return GetFileSizeEx(handleOf(file), &size) ? static_cast<std::uint64_t>(size.QuadPart) : 0;
}

// A mapping of more than the file holds makes the file larger; one of less leaves it alone.
HANDLE makeMapping(std::intptr_t file, std::uint64_t size) {
    return CreateFileMappingA(handleOf(file), nullptr, PAGE_READWRITE,
                              static_cast<DWORD>(size >> 32), static_cast<DWORD>(size), nullptr);
}

bool growShared(std::intptr_t file, std::uint64_t, std::uint64_t size) {
    const HANDLE mapping = makeMapping(file, size);
    return mapping && CloseHandle(mapping);
}

unsigned char* mapShared(std::intptr_t file, std::uint64_t offset, std::uint64_t count) {
    const HANDLE mapping = makeMapping(file, 0);
    if (!mapping)
        return nullptr;
    void* view = MapViewOfFile(mapping, FILE_MAP_WRITE, static_cast<DWORD>(offset >> 32),
                               static_cast<DWORD>(offset), count);
    const DWORD reason = GetLastError();
    CloseHandle(mapping);
    SetLastError(reason);
    return static_cast<unsigned char*>(view);
}

void unmapShared(unsigned char* bytes, std::uint64_t) {
    UnmapViewOfFile(bytes);
}
#else
int fileOf(std::intptr_t file) {
    return static_cast<int>(file);
}

int lastReason() {
    return errno;
}

std::intptr_t openShared(const std::string& path) {
    return open(path.c_str(), O_RDWR | O_CLOEXEC);
}

void closeShared(std::intptr_t file) {
    close(fileOf(file));
}

std::uint64_t sizeOf(std::intptr_t file) {
    struct stat facts;
    return fstat(fileOf(file), &facts) == 0 ? static_cast<std::uint64_t>(facts.st_size) : 0;
}

// Unlike a truncation this never takes away what another process has added.
bool growShared(std::intptr_t file, std::uint64_t offset, std::uint64_t size) {
    const std::uint64_t from = offset < size ? offset : size - 1;
    errno =
        posix_fallocate(fileOf(file), static_cast<off_t>(from), static_cast<off_t>(size - from));
    return errno == 0;
}

unsigned char* mapShared(std::intptr_t file, std::uint64_t offset, std::uint64_t count) {
    void* view = mmap(nullptr, count, PROT_READ | PROT_WRITE, MAP_SHARED, fileOf(file),
                      static_cast<off_t>(offset));
    return view == MAP_FAILED ? nullptr : static_cast<unsigned char*>(view);
}

void unmapShared(unsigned char* bytes, std::uint64_t size) {
    munmap(bytes, size);
}
#endif

} // namespace

View::View(View&& other) noexcept
    : m_bytes(std::exchange(other.m_bytes, nullptr)),
      m_offset(other.m_offset),
      m_size(other.m_size) {}

View& View::operator=(View&& other) noexcept {
    if (this != &other) {
        release();
        m_bytes = std::exchange(other.m_bytes, nullptr);
        m_offset = other.m_offset;
        m_size = other.m_size;
    }
    return *this;
}

void View::release() {
    if (m_bytes)
        unmapShared(m_bytes, m_size);
    m_bytes = nullptr;
}

SharedFile::SharedFile(const std::string& path) : m_path(path), m_file(openShared(path)) {
    if (m_file == -1)
        fail(Error::Kind::CannotOpen, "cannot open ");
}

SharedFile::~SharedFile() {
    closeShared(m_file);
}

std::uint64_t SharedFile::size() const {
    return sizeOf(m_file);
}

void SharedFile::growTo(std::uint64_t offset, std::uint64_t size) {
    if (size != 0 && !growShared(m_file, offset, size))
        fail(Error::Kind::CannotGrow, "cannot make larger ");
}

View SharedFile::map(std::uint64_t offset, std::uint64_t count) const {
    const std::uint64_t held = size();
    if (count == 0 || count > held || offset > held - count)
        throw Error(Error::Kind::Malformed, m_path + ": the file ends early");
    View view;
    view.m_offset = offset / kGranularity * kGranularity;
    view.m_size = offset - view.m_offset + count;
    view.m_bytes = mapShared(m_file, view.m_offset, view.m_size);
    if (!view.m_bytes)
        fail(Error::Kind::CannotOpen, "cannot map ");
    return view;
}

void SharedFile::fail(Error::Kind kind, const char* what) const {
    const int reason = lastReason();
    throw Error(kind, what + m_path + ": " + std::system_category().message(reason));
}

} // namespace live

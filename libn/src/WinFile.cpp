// Reading and writing of a plain file in pieces that the system takes.

#include "libn/WinFile.h"

#include <algorithm>
#include <limits>
#include <new>

namespace libn {

namespace {

using platform::Disposition;

platform::StorageAccess accessOf(Disposition disposition, std::int32_t hint, bool write) {
    return {.writes = write,
            .sharesWrite = true,
            .disposition = disposition,
            .sequential = hint == WinFile::kSequential};
}

// What is left, in one call's reach.
std::uint32_t pieceOf(std::uint64_t left) {
    return static_cast<std::uint32_t>(
        std::min<std::uint64_t>(left, std::numeric_limits<std::uint32_t>::max()));
}

} // namespace

WinFile::~WinFile() {
    if (WinFile::isOpen())
        platform::calls.closeStorage(m_file);
}

bool WinFile::open(const char* name, platform::StorageAccess access) {
    close();
    try {
        m_name = name != nullptr ? name : "";
    } catch (const std::bad_alloc&) {
        m_name.clear();
        m_file = platform::kInvalidStorage;
        return false;
    }
    m_file = platform::calls.openStorage(m_name.c_str(), access);
    return isOpen();
}

bool WinFile::openExisting(const char* name, std::int32_t accessHint, bool write) {
    return open(name, accessOf(Disposition::openExisting, accessHint, write));
}

bool WinFile::openAlways(const char* name, std::int32_t accessHint) {
    return open(name, accessOf(Disposition::openAlways, accessHint, true));
}

bool WinFile::create(const char* name, std::int32_t accessHint) {
    return open(name, accessOf(Disposition::createAlways, accessHint, true));
}

bool WinFile::openForWriting(const char* name) {
    platform::StorageAccess access = accessOf(Disposition::openAlways, 0, true);
    access.reads = false;
    return open(name, access);
}

bool WinFile::read(void* buffer, std::uint64_t n, std::uint64_t* done) {
    if (buffer == nullptr || n == 0 || !isOpen())
        return false;
    std::uint64_t total = 0;
    bool good = true;
    while (good && total < n) {
        std::uint32_t came = 0;
        good = platform::calls.readStorage(m_file, static_cast<char*>(buffer) + total,
                                           pieceOf(n - total), &came);
        total += came;
        if (came == 0)
            break;
    }
    if (done != nullptr)
        *done = total;
    // Deliberate: true also where the file ended early.  Readers of logs ask for more than there
    // is and go by the count.
    return good;
}

bool WinFile::writeAll(const void* data, std::uint64_t n, Write call) {
    if (data == nullptr || !isOpen())
        return false;
    for (std::uint64_t total = 0; total < n;) {
        std::uint32_t taken = 0;
        const bool good =
            call(m_file, static_cast<const char*>(data) + total, pieceOf(n - total), &taken);
        // What takes nothing might do so for ever.
        if (!good || taken == 0)
            return false;
        total += taken;
    }
    return true;
}

bool WinFile::write(const void* buffer, std::uint64_t n) {
    return writeAll(buffer, n, platform::calls.writeStorage);
}

bool WinFile::append(const void* data, std::uint64_t n) {
    return writeAll(data, n, platform::calls.appendStorage);
}

bool WinFile::seek(const std::int64_t& offset, std::uint32_t origin, std::int64_t* position) {
    using platform::SeekOrigin;
    constexpr SeekOrigin kOrigins[] = {SeekOrigin::begin, SeekOrigin::current, SeekOrigin::end};
    if (!isOpen() || origin >= std::size(kOrigins))
        return false;
    std::int64_t reached = 0;
    if (!platform::calls.moveStorage(m_file, offset, kOrigins[origin], &reached))
        return false;
    if (position != nullptr)
        *position = reached;
    return true;
}

std::int64_t WinFile::tell() {
    std::int64_t position = 0;
    return seek(0, kFromPosition, &position) ? position : -1;
}

bool WinFile::size(std::uint64_t& out) {
    const std::int64_t size = isOpen() ? platform::calls.storageSize(m_file) : -1;
    out = size > 0 ? static_cast<std::uint64_t>(size) : 0;
    return size >= 0;
}

void WinFile::close() {
    if (isOpen())
        platform::calls.closeStorage(m_file);
    m_file = nullptr;
}

bool WinFile::isOpen() const {
    return m_file != nullptr && m_file != platform::kInvalidStorage;
}

bool WinFile::writeAt(const void* buffer, std::uint64_t n, std::int64_t offset) {
    return seek(offset, kFromBegin, nullptr) && write(buffer, n) && seek(0, kFromEnd, nullptr);
}

} // namespace libn

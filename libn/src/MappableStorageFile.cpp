// The mapped file over the platform's calls.

#include <algorithm>
#include <limits>

#include "libn/Assert.h"
#include "libn/FieldText.h"
#include "libn/MappableStorage.h"
#include "libn/raiseText.h"
#include "platform/error.h"
#include "platform/mapping.h"
#include "vdreader/memtrace.h"

namespace {

constexpr char kSource[] = "libn/src/MappableStorageFile";

// Growth doubles the file below this size and adds it above.
constexpr std::uint64_t kGrowthStep = 100'000'000;

constexpr std::uint32_t kCreate = 1;
constexpr std::uint32_t kOpenOrCreate = 2;
constexpr std::uint32_t kReadOnly = 3;

bool writesIn(std::uint32_t mode) {
    return mode != kReadOnly;
}

// Deliberate: all modes in use open for writing, also for a caller that reads.  Readers of
// blocks renew the heads of what they map, and whoever meets an empty file first lays it out.
platform::StorageAccess accessOf(std::uint32_t mode) {
    using platform::Disposition;
    Disposition disposition = Disposition::openExisting;
    if (mode == kCreate)
        disposition = Disposition::createAlways;
    else if (mode == kOpenOrCreate)
        disposition = Disposition::openAlways;
    return {.writes = writesIn(mode), .sharesWrite = writesIn(mode), .disposition = disposition};
}

// Begins the text of a failure: lead text and name.
libn::FieldText failureText(const char* lead, const char* nameField, const std::string& name) {
    libn::FieldText text;
    text << lead << ':' << nameField << name << '>';
    return text;
}

[[noreturn]] void raiseWithError(libn::FieldText text, std::uint32_t code) {
    text << "GetLastError()<" << code << '>';
    libn::raiseText(text);
}

} // namespace

std::uint64_t allocationGranularity() {
    static const std::uint64_t granularity = platform::allocationGranularity();
    return granularity;
}

WinMappableStorageFile::~WinMappableStorageFile() {
    const auto closeOrReport = [this](void*& handle, bool (*closeCall)(void*)) {
        try {
            closeHanle(handle, closeCall);
        } catch (...) {
            libn::reportUnhandled("WinMappableStorageFile::~WinMappableStorageFile", kSource,
                                  __LINE__);
        }
    };
    closeOrReport(m_file, platform::calls.closeStorage);
    closeOrReport(m_mapping, platform::calls.closeMapping);
}

bool WinMappableStorageFile::open(std::uint32_t mode, std::error_code& error) {
    error.clear();
    if (m_filePath.empty()) {
        error.assign(22, std::generic_category());
        return false;
    }
    m_mode = mode;
    closeHanle(m_file, platform::calls.closeStorage);
    m_file = platform::calls.openStorage(m_filePath.c_str(), accessOf(mode));
    if (m_file == platform::kInvalidStorage)
        error.assign(static_cast<int>(platform::lastError()), std::system_category());
    return error.value() == 0;
}

bool WinMappableStorageFile::open() {
    std::error_code error;
    open(kOpenOrCreate, error);
    if (error) {
        libn::FieldText text =
            failureText("MappableStorageFile open CreateFile", "name()<", name());
        text << "error.message().c_str()<" << error.message() << '>';
        libn::raiseText(text);
    }
    return true;
}

bool WinMappableStorageFile::createMapping(std::uint64_t end) {
    const std::uint64_t present = size();
    std::uint64_t wanted = present;
    if (end > present)
        wanted = std::max(present < kGrowthStep ? present * 2 : present + kGrowthStep, end);
    closeHanle(m_mapping, platform::calls.closeMapping);
    m_mapping = platform::calls.createMapping(m_file, wanted, writesIn(m_mode));
    if (m_mapping == nullptr) {
        const std::uint32_t code = platform::lastError();
        libn::FieldText text =
            failureText("MappableStorageFile createMapping", "name().c_str()<", name());
        // Deliberate: what was asked for, not the larger size that was tried.  Operators compare it
        // with the free space that the server needs.
        text << "end<" << end << '>';
        raiseWithError(std::move(text), code);
    }
    return present == 0;
}

void* WinMappableStorageFile::mapPtr(std::uint64_t offset, std::uint64_t n) {
    void* view = platform::calls.mapView(m_mapping, offset, n, writesIn(m_mode));
    const std::uint32_t code = platform::lastError();
    try {
        // Deliberate: reported before it is tested, so a failed view stands in the tracer under
        // null.
        memTraceAddPtr(view, n, kSource, __LINE__);
    } catch (...) {
        // The caller has no pointer that it could give back.
        if (view != nullptr)
            platform::calls.unmapView(view);
        throw;
    }
    if (view == nullptr) {
        libn::FieldText text =
            failureText("MappableStorageFile mapPtr. Ensure offset is n multiple memory page size.",
                        "name()<", name());
        text << "offset<" << offset << ">n<" << n << '>';
        raiseWithError(std::move(text), code);
    }
    return view;
}

void WinMappableStorageFile::unmapPtr(void* view, std::uint64_t) {
    memTraceDelPtr(view);
    if (!platform::calls.unmapView(view)) {
        const std::uint32_t code = platform::lastError();
        raiseWithError(failureText("MappableStorageFile unmapPtr", "name()<", name()), code);
    }
}

void WinMappableStorageFile::clear() {
    closeHanle(m_mapping, platform::calls.closeMapping);
    if (!platform::calls.seekStorage(m_file, 0)) {
        const std::uint32_t code = platform::lastError();
        raiseWithError(failureText("MappableStorageFile clear SetFilePointer", "name()<", name()),
                       code);
    }
    if (!platform::calls.truncateStorage(m_file)) {
        const std::uint32_t code = platform::lastError();
        raiseWithError(failureText("MappableStorageFile clear SetEndOfFile", "name()<", name()),
                       code);
    }
}

void WinMappableStorageFile::close() {
    closeHanle(m_file, platform::calls.closeStorage);
    closeHanle(m_mapping, platform::calls.closeMapping);
}

std::uint64_t WinMappableStorageFile::size() const {
    const std::int64_t size = platform::calls.storageSize(m_file);
    return size > 0 ? static_cast<std::uint64_t>(size) : 0;
}

bool WinMappableStorageFile::read(void* buffer, std::uint64_t offset, std::uint64_t count,
                                  std::uint64_t* done) {
    if (buffer == nullptr || count == 0 || m_file == nullptr ||
        m_file == platform::kInvalidStorage || !platform::calls.seekStorage(m_file, offset))
        return false;
    std::uint64_t total = 0;
    bool good = true;
    while (good && total < count) {
        const std::uint64_t most = std::numeric_limits<std::uint32_t>::max();
        std::uint32_t came = 0;
        good = platform::calls.readStorage(
            m_file, static_cast<char*>(buffer) + total,
            static_cast<std::uint32_t>(std::min(count - total, most)), &came);
        total += came;
        if (came == 0)
            break;
    }
    if (done != nullptr)
        *done = total;
    return good && total == count;
}

// The name is that of the texts, which operators look for.
void WinMappableStorageFile::closeHanle(void*& handle, bool (*closeCall)(void*)) {
    if (handle != nullptr && !closeCall(handle)) {
        const std::uint32_t code = platform::lastError();
        raiseWithError(
            failureText("MappableStorageFile closeHanle", "m_filePath.c_str()<", m_filePath), code);
    }
    handle = nullptr;
}

// One storage file in memory behind the table of platform calls: opened, mapped and read as on
// disk, with a full disk at a limit that a target sets.
//
// All views of the file see each other's writes, and each stands at an address of its own where
// nothing but the view may be touched.  A view that was taken away stays out of bounds until all
// other places were used.  Calls count and fail by a FaultPlan, as those of MemoryFiles.  One
// object at a time, one thread; it is made behind a MemoryFiles and stays with the process.

#pragma once

#include <cstdint>
#include <cstring>
#include <deque>
#include <exception>
#include <map>
#include <set>
#include <string>
#include <string_view>

#include "aliasedMemory.h"
#include "memoryFiles.h"
#include "platform/mapping.h"

namespace fuzzing {

enum class StorageCall {
    TryOpen,
    Open,
    Close,
    Size,
    Seek,
    Truncate,
    Read,
    Map,
    CloseMap,
    View,
    Unmap
};

// Reasons that the calls give.
inline constexpr std::uint32_t kRefused = 5;
inline constexpr std::uint32_t kNoSuchFile = 2;
inline constexpr std::uint32_t kBadRange = 87;
inline constexpr std::uint32_t kDiskFull = 112;
inline constexpr std::uint32_t kNoMoreViews = 8;

class MemoryStorage {
  public:
    // A file of at most `mostBytes`, with at most `mostViews` of it at a time.
    MemoryStorage(std::string path, std::size_t mostBytes, std::size_t mostViews)
        : m_memory(mostBytes), m_path(std::move(path)), m_content(m_memory.makeAlias()) {
        s_current = this;
        openBytes(m_content, mostBytes);
        for (std::size_t i = 0; i < mostViews; ++i)
            m_free.push_back(m_memory.makeAlias());
        platform::Calls& calls = platform::calls;
        calls.openForReading = openForReading;
        calls.closeFile = closeFile;
        calls.openStorage = openStorage;
        calls.closeStorage = closeStorage;
        calls.storageSize = storageSize;
        calls.seekStorage = seekStorage;
        calls.truncateStorage = truncateStorage;
        calls.readStorage = readStorage;
        calls.createMapping = createMapping;
        calls.closeMapping = closeMapping;
        calls.mapView = mapView;
        calls.unmapView = unmapView;
    }
    MemoryStorage(const MemoryStorage&) = delete;
    MemoryStorage& operator=(const MemoryStorage&) = delete;

    // Nothing may be open.
    void put(std::string_view bytes) {
        if (openCount() != 0)
            misused("a file that is replaced while something of it is open");
        std::memcpy(m_content, bytes.data(), bytes.size());
        if (m_size > bytes.size())
            std::memset(m_content + bytes.size(), 0, m_size - bytes.size());
        m_size = bytes.size();
    }
    std::string_view content() const { return {m_content, m_size}; }

    // Takes effect from the next call on, which is number 1.
    void plan(const FaultPlan& plan) {
        m_plan = plan;
        m_random = plan.shortCounts;
        m_calls = 0;
        m_failed.clear();
    }
    const std::set<StorageCall>& failedCalls() const { return m_failed; }

    // Handles and views that are open.
    std::size_t openCount() const { return m_files.size() + m_mappings.size() + m_views.size(); }
    // Drops what a failed call left open.
    void dropAll() {
        m_files.clear();
        m_mappings.clear();
        while (!m_views.empty())
            drop(m_views.begin());
    }
    std::size_t mostBytes() const { return m_memory.size(); }

  private:
    struct View {
        char* alias;
        std::uint64_t size;
    };
    using Views = std::map<void*, View>;

    inline static MemoryStorage* s_current = nullptr;
    static constexpr platform::FileHandle kTryHandle = 7;

    // A failure of what lets go is told once, and not while another failure is on its way: a
    // process ends there by intention.
    bool passes(StorageCall call) {
        ++m_calls;
        const bool letsGo = call == StorageCall::Close || call == StorageCall::CloseMap ||
                            call == StorageCall::Unmap;
        if (m_plan.failingCall == 0 || (letsGo && std::uncaught_exceptions() > 0))
            return true;
        const bool later = m_plan.failsForGood && !letsGo && m_calls > m_plan.failingCall;
        if (m_calls != m_plan.failingCall && !later)
            return true;
        m_failed.insert(call);
        platform::setLastError(kRefused);
        return false;
    }

    static bool fail(std::uint32_t reason) {
        platform::setLastError(reason);
        return false;
    }

    void* newHandle() { return reinterpret_cast<void*>(0x1000 + 16 * ++m_handles); }

    // The position of an open file; null for one that a failed open gave.
    std::uint64_t* position(platform::StorageHandle file) {
        if (file == platform::kInvalidStorage || file == nullptr)
            return nullptr;
        const auto found = m_files.find(file);
        if (found == m_files.end())
            misused("a storage file that is not open");
        return &found->second;
    }

    bool cut(std::uint64_t size) {
        if (!m_views.empty())
            return fail(kRefused);
        if (size < m_size)
            std::memset(m_content + size, 0, m_size - size);
        if (size > m_memory.size())
            return fail(kDiskFull);
        m_size = size;
        return true;
    }

    void drop(Views::iterator view) {
        closeBytes(view->first, view->second.size);
        m_free.push_back(view->second.alias);
        m_views.erase(view);
    }

    static platform::FileHandle openForReading(const char* path) {
        MemoryStorage& self = *s_current;
        if (!self.passes(StorageCall::TryOpen))
            return platform::kNoFile;
        return self.m_path == path ? kTryHandle : platform::kNoFile;
    }

    static void closeFile(platform::FileHandle file) {
        if (file != kTryHandle)
            misused("a handle that is not open");
    }

    static platform::StorageHandle openStorage(const char* path, platform::StorageAccess access) {
        MemoryStorage& self = *s_current;
        if (!self.passes(StorageCall::Open))
            return platform::kInvalidStorage;
        if (self.m_path != path) {
            fail(kNoSuchFile);
            return platform::kInvalidStorage;
        }
        if (!access.writes || !access.sharesWrite)
            misused("a storage file that a server could not go on writing");
        if (access.disposition == platform::Disposition::createAlways && !self.cut(0))
            return platform::kInvalidStorage;
        void* handle = self.newHandle();
        self.m_files[handle] = 0;
        return handle;
    }

    static bool closeStorage(platform::StorageHandle file) {
        MemoryStorage& self = *s_current;
        if (!self.passes(StorageCall::Close))
            return false;
        if (self.position(file) != nullptr)
            self.m_files.erase(file);
        return true;
    }

    static std::int64_t storageSize(platform::StorageHandle file) {
        MemoryStorage& self = *s_current;
        if (!self.passes(StorageCall::Size) || self.position(file) == nullptr)
            return -1;
        return static_cast<std::int64_t>(self.m_size);
    }

    static bool seekStorage(platform::StorageHandle file, std::uint64_t offset) {
        MemoryStorage& self = *s_current;
        std::uint64_t* position = self.position(file);
        if (!self.passes(StorageCall::Seek) || position == nullptr)
            return false;
        *position = offset;
        return true;
    }

    static bool truncateStorage(platform::StorageHandle file) {
        MemoryStorage& self = *s_current;
        std::uint64_t* position = self.position(file);
        return self.passes(StorageCall::Truncate) && position != nullptr && self.cut(*position);
    }

    static bool readStorage(platform::StorageHandle file, void* out, std::uint32_t size,
                            std::uint32_t* done) {
        MemoryStorage& self = *s_current;
        *done = 0;
        std::uint64_t* position = self.position(file);
        if (!self.passes(StorageCall::Read) || position == nullptr)
            return false;
        if (*position >= self.m_size)
            return true;
        std::uint64_t count = std::min<std::uint64_t>(size, self.m_size - *position);
        if (self.m_plan.shortCounts != 0 && count > 1) {
            self.m_random = self.m_random * 1664525u + 1013904223u;
            count = 1 + (self.m_random >> 8) % count;
        }
        std::memcpy(out, self.m_content + *position, count);
        *position += count;
        *done = static_cast<std::uint32_t>(count);
        return true;
    }

    static platform::MappingHandle createMapping(platform::StorageHandle file, std::uint64_t size,
                                                 bool) {
        MemoryStorage& self = *s_current;
        if (!self.passes(StorageCall::Map) || self.position(file) == nullptr)
            return nullptr;
        if (size == 0)
            size = self.m_size;
        const std::uint32_t reason = size > self.m_memory.size() ? kDiskFull : kBadRange;
        if (size == 0 || reason == kDiskFull) {
            fail(reason);
            return nullptr;
        }
        self.m_size = std::max(self.m_size, size);
        void* handle = self.newHandle();
        self.m_mappings[handle] = size;
        return handle;
    }

    static bool closeMapping(platform::MappingHandle mapping) {
        MemoryStorage& self = *s_current;
        if (!self.passes(StorageCall::CloseMap))
            return false;
        if (self.m_mappings.erase(mapping) == 0)
            misused("a mapping that is not open");
        return true;
    }

    static void* mapView(platform::MappingHandle mapping, std::uint64_t offset, std::uint64_t size,
                         bool) {
        MemoryStorage& self = *s_current;
        const auto found = self.m_mappings.find(mapping);
        const std::uint64_t covered = found != self.m_mappings.end() ? found->second : 0;
        if (!self.passes(StorageCall::View))
            return nullptr;
        if (size == 0 || offset > covered || size > covered - offset ||
            offset % platform::allocationGranularity() != 0) {
            fail(kBadRange);
            return nullptr;
        }
        if (self.m_free.empty()) {
            fail(kNoMoreViews);
            return nullptr;
        }
        char* alias = self.m_free.front();
        self.m_free.pop_front();
        self.m_views[alias + offset] = {alias, size};
        openBytes(alias + offset, size);
        return alias + offset;
    }

    static bool unmapView(void* view) {
        MemoryStorage& self = *s_current;
        if (!self.passes(StorageCall::Unmap))
            return false;
        const auto found = self.m_views.find(view);
        if (found == self.m_views.end())
            misused("an address that is no view");
        self.drop(found);
        return true;
    }

    AliasedMemory m_memory;
    std::string m_path;
    char* m_content;
    std::uint64_t m_size = 0; // all bytes behind it are zero
    FaultPlan m_plan;
    std::uint32_t m_random = 0;
    std::uint32_t m_calls = 0;
    std::set<StorageCall> m_failed;
    std::uintptr_t m_handles = 0;
    std::map<void*, std::uint64_t> m_files;    // positions
    std::map<void*, std::uint64_t> m_mappings; // sizes
    Views m_views;
    std::deque<char*> m_free;
};

} // namespace fuzzing

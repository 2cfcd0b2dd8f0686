// The calls of storage files with a count of what is held, one of which can be made to fail.

#pragma once

#include <set>
#include <string>

#include "platform/calls.h"
#include "platform/error.h"
#include "support/scopedCalls.h"

// What the system gave out and has not got back.
struct HeldStorage {
    std::set<void*> files, mappings, views;
    bool operator==(const HeldStorage&) const = default;
};

// Puts its functions into the table for a scope.  One object at a time.
class FailingStorage {
  public:
    FailingStorage() {
        s_real = m_scope.saved();
        s_held = {};
        fail("", 0, 0);
        setFileCalls();
        setMappingCalls();
    }

    // Makes calls number `from` to `to`, 1-based and counted from now on, of one kind fail.
    static void fail(const char* call, int from, int to) {
        s_call = call;
        s_from = from;
        s_to = to;
        s_count = 0;
    }
    static void failNothing() { fail("", 0, 0); }

    static const HeldStorage& held() { return s_held; }

    // The last error that a failing call leaves, known to both systems.
    static constexpr std::uint32_t kReason = 5;

  private:
    static bool failsNow(const char* call) {
        if (s_call != call)
            return false;
        ++s_count;
        if (s_count < s_from || s_count > s_to)
            return false;
        platform::setLastError(kReason);
        return true;
    }

    template <class Handle>
    static Handle keep(std::set<void*>& all, Handle handle, Handle none) {
        if (handle != none)
            all.insert(handle);
        return handle;
    }

    static void setFileCalls() {
        using platform::StorageHandle;
        platform::calls.openStorage = [](const char* path, platform::StorageAccess access) {
            return failsNow("openStorage") ? platform::kInvalidStorage
                                           : keep(s_held.files, s_real.openStorage(path, access),
                                                  platform::kInvalidStorage);
        };
        platform::calls.closeStorage = [](StorageHandle file) {
            if (failsNow("closeStorage"))
                return false;
            s_held.files.erase(file);
            return s_real.closeStorage(file);
        };
        platform::calls.storageSize = [](StorageHandle file) {
            return failsNow("storageSize") ? std::int64_t{-1} : s_real.storageSize(file);
        };
        platform::calls.seekStorage = [](StorageHandle file, std::uint64_t offset) {
            return !failsNow("seekStorage") && s_real.seekStorage(file, offset);
        };
        platform::calls.truncateStorage = [](StorageHandle file) {
            return !failsNow("truncateStorage") && s_real.truncateStorage(file);
        };
    }

    static void setMappingCalls() {
        using platform::MappingHandle;
        platform::calls.createMapping = [](platform::StorageHandle file, std::uint64_t size,
                                           bool writes) -> MappingHandle {
            return failsNow("createMapping")
                       ? nullptr
                       : keep(s_held.mappings, s_real.createMapping(file, size, writes),
                              MappingHandle{});
        };
        platform::calls.closeMapping = [](MappingHandle mapping) {
            return !failsNow("closeMapping") && s_held.mappings.erase(mapping) == 1 &&
                   s_real.closeMapping(mapping);
        };
        platform::calls.mapView = [](MappingHandle mapping, std::uint64_t offset,
                                     std::uint64_t size, bool writes) -> void* {
            return failsNow("mapView")
                       ? nullptr
                       : keep<void*>(s_held.views, s_real.mapView(mapping, offset, size, writes),
                                     nullptr);
        };
        platform::calls.unmapView = [](void* view) {
            return !failsNow("unmapView") && s_held.views.erase(view) == 1 &&
                   s_real.unmapView(view);
        };
    }

    static inline platform::Calls s_real;
    static inline HeldStorage s_held;
    static inline std::string s_call;
    static inline int s_from = 0, s_to = 0, s_count = 0;

    ScopedCalls m_scope;
};

// The storage calls of the platform, counted, kept in books of what is open, and made to fail.

#pragma once

#include <array>
#include <set>
#include <string>

#include "platform/error.h"
#include "support/scopedCalls.h"

class StorageLedger {
  public:
    enum Call { open, close, size, seek, read, map, closeMap, view, unview, kCalls };
    static constexpr std::array<const char*, kCalls> kNames = {
        "open", "close", "size", "seek", "read", "map", "closeMap", "view", "unview"};

    // What failing calls leave as the last error.
    static constexpr std::uint32_t kReason = 5;

    StorageLedger() {
        books() = Books();
        platform::Calls& calls = platform::calls;
        s_real = m_saved.saved();
        calls.openStorage = openStorage;
        calls.closeStorage = closeStorage;
        calls.storageSize = storageSize;
        calls.seekStorage = [](platform::StorageHandle file, std::uint64_t offset) {
            return counted(seek) && s_real.seekStorage(file, offset);
        };
        calls.readStorage = readStorage;
        calls.createMapping = createMapping;
        calls.closeMapping = closeMapping;
        calls.mapView = mapView;
        calls.unmapView = unmapView;
    }

    // The Nth call of a kind from now on fails, counted from 1, and with `always` all behind it.
    static void fail(Call call, int number, bool always) {
        books().failing = call;
        books().countdown = number;
        books().always = always;
    }
    static void failNothing() { books().failing = kCalls; }

    static int count(Call call) { return books().counts[call]; }
    static std::size_t openFiles() { return books().files.size(); }
    static std::size_t openMappings() { return books().mappings.size(); }
    static std::size_t openViews() { return books().views.size(); }

    // Gives back what calls that were made to fail have left open, once its owners are gone.
    static void giveBack() {
        for (void* const made : books().views)
            s_real.unmapView(made);
        for (void* const mapping : books().mappings)
            s_real.closeMapping(mapping);
        for (void* const file : books().files)
            s_real.closeStorage(file);
        books() = Books();
    }

    // Called at the end of each unmapping, with the view gone.
    static void whenUnmapped(void (*call)()) { books().unmapped = call; }

    struct View {
        std::uint64_t offset;
        std::uint64_t size;
    };
    static View lastView() { return books().lastView; }

  private:
    struct Books {
        std::array<int, kCalls> counts{};
        std::set<void*> files, mappings, views;
        Call failing = kCalls;
        int countdown = 0;
        bool always = false;
        void (*unmapped)() = nullptr;
        View lastView{};
    };

    // Whether the call may go on.
    static bool counted(Call call) {
        ++books().counts[call];
        if (call != books().failing)
            return true;
        const int left = --books().countdown;
        if (left > 0 || (left < 0 && !books().always))
            return true;
        platform::setLastError(kReason);
        return false;
    }

    static platform::StorageHandle openStorage(const char* path, platform::StorageAccess access) {
        if (!counted(open))
            return platform::kInvalidStorage;
        void* const file = s_real.openStorage(path, access);
        if (file != platform::kInvalidStorage)
            books().files.insert(file);
        return file;
    }
    static bool closeStorage(platform::StorageHandle file) {
        if (!counted(close))
            return false;
        books().files.erase(file);
        return s_real.closeStorage(file);
    }
    static std::int64_t storageSize(platform::StorageHandle file) {
        return counted(size) ? s_real.storageSize(file) : -1;
    }
    static bool readStorage(platform::StorageHandle file, void* out, std::uint32_t bytes,
                            std::uint32_t* done) {
        *done = 0;
        return counted(read) && s_real.readStorage(file, out, bytes, done);
    }
    static void* createMapping(platform::StorageHandle file, std::uint64_t bytes, bool writes) {
        void* const mapping = counted(map) ? s_real.createMapping(file, bytes, writes) : nullptr;
        if (mapping != nullptr)
            books().mappings.insert(mapping);
        return mapping;
    }
    static bool closeMapping(platform::MappingHandle mapping) {
        if (!counted(closeMap))
            return false;
        books().mappings.erase(mapping);
        return s_real.closeMapping(mapping);
    }
    static void* mapView(platform::MappingHandle mapping, std::uint64_t offset, std::uint64_t bytes,
                         bool writes) {
        books().lastView = {offset, bytes};
        void* const made = counted(view) ? s_real.mapView(mapping, offset, bytes, writes) : nullptr;
        if (made != nullptr)
            books().views.insert(made);
        return made;
    }
    static bool unmapView(void* made) {
        if (!counted(unview))
            return false;
        books().views.erase(made);
        const bool done = s_real.unmapView(made);
        if (books().unmapped != nullptr)
            books().unmapped();
        return done;
    }

    static Books& books() {
        static Books books;
        return books;
    }
    static inline platform::Calls s_real;

    ScopedCalls m_saved;
};

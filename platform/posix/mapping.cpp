// Mappings of storage files and views on POSIX systems.
//
// A mapping object holds a descriptor of its own and the size that it was made with; a view past
// that size is refused, since the system itself would give one that faults.
//
// Views of 64 KiB and less are pieces of windows of 2 MiB, which are mapped once: a walk through a
// file that maps it unit by unit would spend a third of its time in the system's calls.  Smaller
// windows cost more, since each takes a page table of its own, which covers 2 MiB.  A window lives
// as long as one of its views, and as long as it is among the last three that its mapping used: a
// record file is walked in its root, in a table and at the records, each of which may lie in a
// window of its own, and they outlive the views of a page cache that starts over.

#include "platform/mapping.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <memory>
#include <mutex>
#include <new>
#include <unordered_map>
#include <utility>

#include "../src/system.h"
#include "storageHandle.h"

namespace platform {

std::uint64_t allocationGranularity() {
    return static_cast<std::uint64_t>(::sysconf(_SC_PAGESIZE));
}

namespace system {

namespace {

// A piece of a file in memory.
class Window {
  public:
    Window(int file, std::uint64_t offset, std::uint64_t size, int protection)
        : m_offset(offset),
          m_size(size),
          m_protection(protection),
          m_memory(
              ::mmap(nullptr, size, protection, MAP_SHARED, file, static_cast<off_t>(offset))) {}
    ~Window() {
        if (isMapped())
            ::munmap(m_memory, m_size);
    }
    Window(const Window&) = delete;
    Window& operator=(const Window&) = delete;

    bool isMapped() const { return m_memory != MAP_FAILED; }
    void* at(std::uint64_t offset) const {
        return static_cast<char*>(m_memory) + (offset - m_offset);
    }
    bool holds(std::uint64_t offset, std::uint64_t size, int protection) const {
        return offset >= m_offset && offset + size <= m_offset + m_size &&
               protection == m_protection;
    }

  private:
    std::uint64_t m_offset;
    std::uint64_t m_size;
    int m_protection;
    void* m_memory;
};

using SharedWindow = std::shared_ptr<Window>;

struct Mapping {
    int file;
    std::uint64_t size;
    // From the last used one.
    std::array<SharedWindow, 3> latest = {};
};

// The windows of all views, by the address of the view, which is all that its removal knows.
struct Views {
    std::mutex lock;
    std::unordered_map<void*, SharedWindow> windows;
};

// Never released: views are taken away by objects that live as long as the process.
Views& views() {
    static Views* const all = new Views;
    return *all;
}

// A window of the range alone.  Null with the reason in errno.
SharedWindow ownWindow(const Mapping& mapping, std::uint64_t offset, std::uint64_t size,
                       int protection) {
    auto window = std::make_shared<Window>(mapping.file, offset, size, protection);
    return window->isMapped() ? window : nullptr;
}

// The one of the mapping's latest windows that holds the range, or a new one in place of the one
// that was used longest ago; null where no window can hold it.
SharedWindow sharedWindow(Mapping& mapping, std::uint64_t offset, std::uint64_t size,
                          int protection) {
    constexpr std::uint64_t kWindow = std::uint64_t{2} << 20;
    constexpr std::uint64_t kSmall = std::uint64_t{64} << 10;
    const std::uint64_t begin = offset & ~(kWindow - 1);
    if (size > kSmall || offset + size > begin + kWindow)
        return nullptr;
    auto& latest = mapping.latest;
    const auto holds = [=](const SharedWindow& window) {
        return window != nullptr && window->holds(offset, size, protection);
    };
    auto found = std::find_if(latest.begin(), latest.end(), holds);
    if (found == latest.end()) {
        found = latest.end() - 1;
        *found = ownWindow(mapping, begin, std::min(kWindow, mapping.size - begin), protection);
    }
    std::rotate(latest.begin(), found, found + 1);
    return latest.front();
}

// Enters a view into its window; null without a window, and where another view begins already.
void* enter(const SharedWindow& window, std::uint64_t offset) {
    if (window == nullptr)
        return nullptr;
    Views& all = views();
    const std::lock_guard guard(all.lock);
    const auto [place, isNew] = all.windows.try_emplace(window->at(offset), window);
    return isNew ? place->first : nullptr;
}

// All of the new space is taken now: a full disk is told here, and not by a fault at some write.
bool grow(int file, std::uint64_t present, std::uint64_t size) {
    int reason = 0;
    do
        reason = ::posix_fallocate(file, static_cast<off_t>(present),
                                   static_cast<off_t>(size - present));
    while (reason == EINTR);
    errno = reason;
    return reason == 0;
}

} // namespace

MappingHandle createMapping(StorageHandle file, std::uint64_t size, bool) {
    const std::int64_t present = storageSize(file);
    if (present < 0)
        return nullptr;
    if (size == 0)
        size = static_cast<std::uint64_t>(present);
    if (size == 0 || size > static_cast<std::uint64_t>(INT64_MAX)) {
        errno = EINVAL;
        return nullptr;
    }
    if (size > static_cast<std::uint64_t>(present) &&
        !grow(fileOf(file), static_cast<std::uint64_t>(present), size))
        return nullptr;
    const int copy = ::fcntl(fileOf(file), F_DUPFD_CLOEXEC, 0);
    if (copy < 0)
        return nullptr;
    auto* mapping = new (std::nothrow) Mapping{copy, size};
    if (mapping == nullptr) {
        ::close(copy);
        errno = ENOMEM;
    }
    return mapping;
}

bool closeMapping(MappingHandle handle) {
    return closeOnce(static_cast<Mapping*>(handle));
}

void* mapView(MappingHandle handle, std::uint64_t offset, std::uint64_t size, bool writes) {
    auto* mapping = static_cast<Mapping*>(handle);
    if (mapping == nullptr || offset % allocationGranularity() != 0 || offset > mapping->size ||
        size > mapping->size - offset) {
        errno = EINVAL;
        return nullptr;
    }
    if (size == 0)
        size = mapping->size - offset;
    try {
        const int protection = writes ? PROT_READ | PROT_WRITE : PROT_READ;
        if (void* view = enter(sharedWindow(*mapping, offset, size, protection), offset))
            return view;
        return enter(ownWindow(*mapping, offset, size, protection), offset);
    } catch (const std::bad_alloc&) {
        errno = ENOMEM;
        return nullptr;
    }
}

bool unmapView(void* view) {
    Views& all = views();
    const std::lock_guard guard(all.lock);
    const auto found = all.windows.find(view);
    if (found == all.windows.end()) {
        errno = EINVAL;
        return false;
    }
    all.windows.erase(found);
    return true;
}

} // namespace system
} // namespace platform

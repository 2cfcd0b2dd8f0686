// Which memory goes into a core.
//
// A full one has all that can be read but for the mappings of devices and of the kernel.  A mini
// one has what a debugger needs to show the stacks of all threads: the used part of each stack, the
// thread's own block, the code around where it stands, the list of loaded objects, and the first
// page of each mapped file.

#include <elf.h>
#include <link.h>
#include <algorithm>
#include <cstring>

#include "coreWork.h"

namespace platform::core {

namespace {

constexpr std::uint64_t kMostStack = 256 * 1024;
constexpr std::uint64_t kRedZone = 128; // used below the stack pointer
// Around the thread pointer: thread-local variables lie below it, the thread's block above.
constexpr std::uint64_t kBelowThreadPointer = 2048;
constexpr std::uint64_t kAroundThreadPointer = 6144;
constexpr std::uint64_t kDynamicSection = 4096;
constexpr std::uint64_t kNameSize = 256;
constexpr int kMostObjects = 4096;

void add(Work& work, std::uint64_t begin, std::uint64_t end, std::uint32_t flags) {
    if (work.segmentCount < kMostSegments && begin < end)
        work.segments[work.segmentCount++] = {begin, end, flags};
}

// The pages around a range, as far as its map goes.
void addPages(Work& work, std::uint64_t begin, std::uint64_t size) {
    const Map* map = mapAt(work, begin);
    if (map == nullptr || (map->flags & PF_R) == 0)
        return;
    const std::uint64_t end = (begin + size + kPage - 1) / kPage * kPage;
    add(work, begin / kPage * kPage, std::min(end, map->end), map->flags);
}

void addPages(Work& work, const void* begin, std::uint64_t size) {
    addPages(work, reinterpret_cast<std::uint64_t>(begin), size);
}

void addStack(Work& work, const Thread& thread) {
    const std::uint64_t pointer = thread.registers.rsp;
    const Map* map = mapAt(work, pointer - kRedZone);
    if (map == nullptr)
        map = mapAt(work, pointer);
    if (map == nullptr || (map->flags & PF_R) == 0)
        return;
    const std::uint64_t begin = std::max((pointer - kRedZone) / kPage * kPage, map->begin);
    add(work, begin, std::min(begin + kMostStack, map->end), map->flags);
}

void addThreads(Work& work) {
    for (std::size_t i = 0; i < work.threadCount; ++i) {
        const Thread& thread = work.threads[i];
        if (!thread.stopped)
            continue;
        addStack(work, thread);
        addPages(work, thread.registers.rip - 64, 128);
        if (thread.registers.fs_base != 0)
            addPages(work, thread.registers.fs_base - kBelowThreadPointer, kAroundThreadPointer);
    }
}

// The loader's list is walked without its lock, whose owner may be stopped: each step is looked
// at, and their number is limited.
void addLoadedObjects(Work& work) {
    addPages(work, &_r_debug, sizeof _r_debug);
    const link_map* object = _r_debug.r_map;
    for (int i = 0; object != nullptr && i < kMostObjects; ++i, object = object->l_next) {
        if (mapAt(work, reinterpret_cast<std::uint64_t>(object)) == nullptr)
            return;
        addPages(work, object, sizeof *object);
        addPages(work, object->l_name, kNameSize);
        addPages(work, object->l_ld, kDynamicSection);
    }
}

void addFileHeads(Work& work) {
    for (std::size_t i = 0; i < work.mapCount; ++i) {
        const Map& map = work.maps[i];
        if (map.hasFile && map.offset == 0 && (map.flags & PF_R) != 0)
            add(work, map.begin, map.begin + kPage, map.flags);
        else if (std::strcmp(work.names + map.name, "[vdso]") == 0)
            add(work, map.begin, map.end, map.flags);
    }
}

// Sorts the pieces and makes one of those that touch inside one map.
void merge(Work& work) {
    std::sort(work.segments, work.segments + work.segmentCount,
              [](const Segment& a, const Segment& b) { return a.begin < b.begin; });
    std::size_t used = 0;
    for (std::size_t i = 0; i < work.segmentCount; ++i) {
        Segment next = work.segments[i];
        if (used != 0) {
            Segment& last = work.segments[used - 1];
            if (next.begin <= last.end && mapAt(work, next.begin) == mapAt(work, last.begin)) {
                last.end = std::max(last.end, next.end);
                continue;
            }
            next.begin = std::max(next.begin, last.end);
        }
        if (next.begin < next.end)
            work.segments[used++] = next;
    }
    work.segmentCount = used;
}

bool startsWith(const char* text, const char* start) {
    return std::strncmp(text, start, std::strlen(start)) == 0;
}

// Memory of devices must not be read, and that of the kernel cannot.
bool isOrdinary(const char* name) {
    if (startsWith(name, "[vvar") || startsWith(name, "[vsyscall"))
        return false;
    return !startsWith(name, "/dev/") || startsWith(name, "/dev/zero") ||
           startsWith(name, "/dev/shm/");
}

void addAll(Work& work) {
    for (std::size_t i = 0; i < work.mapCount; ++i) {
        const Map& map = work.maps[i];
        if ((map.flags & PF_R) != 0 && isOrdinary(work.names + map.name))
            add(work, map.begin, map.end, map.flags);
    }
}

} // namespace

void chooseSegments(Work& work) noexcept {
    work.segmentCount = 0;
    if (work.full) {
        addAll(work);
        return;
    }
    addThreads(work);
    addLoadedObjects(work);
    addFileHeads(work);
    merge(work);
}

} // namespace platform::core

// The file of a core: ELF head, program heads, notes, and the memory from the next page on.
//
// Pages that were never touched become holes.  Memory is handed to the kernel by its address, so a
// page that is gone meanwhile is an error of the call and no fault; it becomes a hole too.

#include <elf.h>
#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <algorithm>
#include <cerrno>
#include <cstring>

#include "coreWork.h"

namespace platform::core {

namespace {

constexpr std::size_t kPagesAtOnce = 512;

// Writes at one position after the other.
class Output {
  public:
    explicit Output(int file) : m_file(file) {}

    bool good() const { return m_good; }
    std::uint64_t position() const { return m_position; }
    void moveTo(std::uint64_t position) { m_position = position; }

    void put(const void* bytes, std::size_t size) {
        std::uint64_t at = reinterpret_cast<std::uint64_t>(bytes);
        while (m_good && size != 0) {
            // The bare call: checkers of memory must not look at what is written.
            const ssize_t count =
                ::syscall(SYS_pwrite64, m_file, at, size, static_cast<off_t>(m_position));
            std::uint64_t done = static_cast<std::uint64_t>(std::max<ssize_t>(count, 0));
            if (count < 0 && errno == EFAULT)
                done = std::min<std::uint64_t>(size, kPage - at % kPage);
            else if (count < 0 && errno != EINTR)
                m_good = false;
            at += done;
            m_position += done;
            size -= done;
        }
    }
    void endHere() { m_good = m_good && ::ftruncate(m_file, static_cast<off_t>(m_position)) == 0; }

  private:
    int m_file;
    std::uint64_t m_position = 0;
    bool m_good = true;
};

// Which pages of memory were ever touched, out of /proc/self/pagemap.
class TouchedPages {
  public:
    TouchedPages() : m_file(::open("/proc/self/pagemap", O_RDONLY | O_CLOEXEC)) {}
    ~TouchedPages() {
        if (m_file >= 0)
            ::close(m_file);
    }
    TouchedPages(const TouchedPages&) = delete;
    TouchedPages& operator=(const TouchedPages&) = delete;

    // Looks at `count` pages from `begin` on.
    void look(std::uint64_t begin, std::size_t count) {
        const ssize_t size = static_cast<ssize_t>(count * sizeof m_entries[0]);
        m_known = m_file >= 0 && ::pread(m_file, m_entries, static_cast<std::size_t>(size),
                                         static_cast<off_t>(begin / kPage * 8)) == size;
    }
    // Present or swapped out.
    bool touched(std::size_t index) const { return !m_known || m_entries[index] >> 62 != 0; }

  private:
    int m_file;
    bool m_known = false;
    std::uint64_t m_entries[kPagesAtOnce] = {};
};

void putHeads(const Work& work, Output& out) {
    Elf64_Ehdr head = {};
    std::memcpy(head.e_ident, ELFMAG, SELFMAG);
    head.e_ident[EI_CLASS] = ELFCLASS64;
    head.e_ident[EI_DATA] = ELFDATA2LSB;
    head.e_ident[EI_VERSION] = EV_CURRENT;
    head.e_type = ET_CORE;
    head.e_machine = EM_X86_64;
    head.e_version = EV_CURRENT;
    head.e_phoff = sizeof head;
    head.e_ehsize = sizeof head;
    head.e_phentsize = sizeof(Elf64_Phdr);
    head.e_phnum = static_cast<Elf64_Half>(work.segmentCount + 1);
    out.put(&head, sizeof head);

    Elf64_Phdr notes = {};
    notes.p_type = PT_NOTE;
    notes.p_offset = sizeof head + sizeof notes * (work.segmentCount + 1);
    notes.p_filesz = work.notesUsed;
    notes.p_align = 4;
    out.put(&notes, sizeof notes);

    std::uint64_t offset = (notes.p_offset + notes.p_filesz + kPage - 1) / kPage * kPage;
    for (std::size_t i = 0; i < work.segmentCount; ++i) {
        const Segment& segment = work.segments[i];
        Elf64_Phdr load = {};
        load.p_type = PT_LOAD;
        load.p_flags = segment.flags;
        load.p_offset = offset;
        load.p_vaddr = segment.begin;
        load.p_filesz = load.p_memsz = segment.end - segment.begin;
        load.p_align = kPage;
        out.put(&load, sizeof load);
        offset += load.p_filesz;
    }
    out.put(work.notes, work.notesUsed);
    out.moveTo((out.position() + kPage - 1) / kPage * kPage);
}

void putSegment(const Work& work, const Segment& segment, TouchedPages& pages, Output& out) {
    // An untouched page of a file has the file's content.
    const Map* map = mapAt(work, segment.begin);
    const bool mayHaveHoles = map == nullptr || !map->hasFile;
    for (std::uint64_t at = segment.begin; at < segment.end && out.good();) {
        const std::size_t count = std::min<std::uint64_t>((segment.end - at) / kPage, kPagesAtOnce);
        pages.look(at, count);
        for (std::size_t i = 0; i < count;) {
            const bool put = !mayHaveHoles || pages.touched(i);
            std::size_t next = i + 1;
            while (next < count && (!mayHaveHoles || pages.touched(next)) == put)
                ++next;
            const std::uint64_t size = (next - i) * kPage;
            if (put)
                out.put(reinterpret_cast<const void*>(at + i * kPage), size);
            else
                out.moveTo(out.position() + size);
            i = next;
        }
        at += count * kPage;
    }
}

} // namespace

bool writeFile(Work& work) noexcept {
    Output out(work.file);
    TouchedPages pages;
    putHeads(work, out);
    for (std::size_t i = 0; i < work.segmentCount && out.good(); ++i)
        putSegment(work, work.segments[i], pages, out);
    out.endHere();
    return out.good();
}

} // namespace platform::core

// The writing side of data.vd: what a server does to the slots and the journal while readers in
// other processes have the file mapped.
//
// Order that readers rely on, and that this writer keeps:
// - a slot is written while its lock word is held; whoever takes the same word sees it whole;
// - of a change record the bytes come first, then the page's `used`, then its `elements`: what lies
//   below `used` is whole;
// - behind the page that is written to there is always a zeroed block, made before the page gets
//   its first record, because a walk ends at the first block that is empty and goes astray where
//   the file ends;
// - the header counts and names a page only when its first record stands: the index of a reader is
//   keyed by that record's number;
// - the last 24 bytes of a page stay free, since a reader's copy of a mapped page lacks them.
//
// Readers write into the file as well: each load and each unload of a reader sets the close stamp,
// and each mapping of a block writes the head again with the values that it has.  Neither disturbs
// this writer, which lays heads out before they are needed and never goes back on one.

#pragma once

#include <cstdint>
#include <string>

#include "live/sharedFile.h"
#include "sample/dataFile.h"

namespace live {

// One object belongs to one thread, save for lockSlot, unlockSlot and what they protect: these may
// be used by many threads and processes at a time.  A file has one appending writer at a time.
class DataWriter {
  public:
    // Opens a file that has been laid out and maps its header and slots.  The journal goes on
    // behind the last record that it holds.  Sets the close stamp to 0, as a server does.  Raises
    // Error.
    explicit DataWriter(const std::string& path);

    // Writes the close stamp that a storage leaves behind when it goes.
    ~DataWriter();
    DataWriter(const DataWriter&) = delete;
    DataWriter& operator=(const DataWriter&) = delete;

    // Securities that there are slots for: the header's number, but no more than the pages hold.
    std::uint32_t slotCount() const { return m_slotCount; }

    // ---- slots; an index from slotCount() on raises std::out_of_range ----

    // Takes the slot's lock word by an atomic exchange of 1, giving way to other threads until it
    // was free, and sets it free by an atomic exchange of 0.  Not to be taken twice.
    void lockSlot(std::uint32_t index);
    void unlockSlot(std::uint32_t index);

    // Whether the lock word was free and is now taken.
    bool tryLockSlot(std::uint32_t index);

    // The slot without its lock word, for who holds the lock: `lock` is 0 in what is read and is
    // not written.
    sample::Slot readLocked(std::uint32_t index) const;
    void writeLocked(std::uint32_t index, const sample::Slot& slot);

    // The same, taking the lock around it.
    sample::Slot readSlot(std::uint32_t index);
    void writeSlot(std::uint32_t index, const sample::Slot& slot);

    // ---- journal ----

    // The number that the next record gets: one more than the highest one of the last page.
    std::int32_t nextNumber() const { return m_nextNumber; }

    // Appends the record under the next number, whatever its dataField1 says, and gives that
    // number.  Opens a new page where the record does not fit.  Raises std::length_error for a
    // record that fits no page and Error CannotGrow or CannotOpen for a new page that cannot be
    // had; the journal is then as before.
    std::int32_t appendRecord(const sample::Record& record);

    // Opens a new page with the next record although the present one has room.
    void closePage() { m_pageIsClosed = true; }

    // Pages that have been opened since construction.
    std::uint64_t pagesOpened() const { return m_pagesOpened; }

    // Writes the header's `elements`, a number of the server's own that readers hand on.
    void setElements(std::int32_t elements);

    // Makes the file reach `bytes` further than it does, with zeros, as a server does ahead of
    // need.
    void growBy(std::uint64_t bytes);

  private:
    // RAII for readSlot and writeSlot.
    class Hold;

    unsigned char* slotAt(std::uint32_t index) const;
    unsigned char* headerField(std::uint64_t offset) const;
    std::uint64_t blockSize() const { return m_header.eventPageSize + sample::kBlockOverhead; }
    std::uint32_t roomOfPage() const;
    void readHeader();
    void checkHeader() const;
    void mapPage(std::uint64_t point);
    void findLastPage();
    std::int32_t highestNumber(std::uint64_t point) const;
    void openPage();
    void namePage();
    void publish(const std::string& bytes);

    SharedFile m_file;
    View m_slots; // header and data pages
    View m_page;  // the page that is written to and the block behind it
    sample::DataHeader m_header;
    std::uint32_t m_slotCount = 0;
    std::uint64_t m_point = 0; // of the page that is written to
    std::int32_t m_nextNumber = 1;
    std::uint64_t m_pagesOpened = 0;
    bool m_pageIsClosed = false;
};

} // namespace live

// Blocks of a block file in memory: mapped in place, or copied into a buffer.
//
// A page that has no block answers 0 or none to every question.  Where a file is damaged, `used`
// and `capacity` may promise more than there is; no page hands out a pointer outside its view or
// buffer, and readable() tells how much of the payload may be looked at.

#pragma once

#include <cstddef>
#include <cstdint>

#include "FileAlloc/FILE_BLOCK.h"
#include "FileAlloc/file_point.h"
#include "memutil.h"

extern template class memutil::Redefine_NewDelete_<72>;

namespace FileWorkLibrary {

class TFileStorageAllocatorNew;

// Common part of the pages, and by itself a page over memory that the user provides with attach.
// The order of the virtual operations is binding for other modules.
//
// What stands in a view can go away when another process cuts the file, so an access to a block may
// raise a translated fault.
//
// Threads: one appends; any number reads the page, or copies it through loadBlock, meanwhile.  A
// reader that sees `used` sees the bytes below it.  Everything else is for one thread at a time.
class TPage : public memutil::Redefine_NewDelete_<72> {
  public:
    TPage() = default;
    TPage(const TPage&) = delete;
    TPage& operator=(const TPage&) = delete;

    // Writes the head of a block: marker, `size` as its capacity, `point`.  `used` and `elements`
    // keep what they are.  Nothing without a block.
    virtual void init(std::uint32_t size, const file_point& point);

    virtual ~TPage() = default;

    // 0; free for later use.
    virtual std::int32_t reserved();

    // The payload at `offset`, with `err` 0; null with `err` 1 at and past `used`, and past what
    // the memory holds.  Good for readable() - offset bytes, as long as the view or buffer.
    virtual char* getPtr(std::uint32_t offset, std::int32_t& err);

    // Puts `n` bytes behind those in use and then, atomically, raises `used`, and `elements` by 1.
    // 0, or 1 with nothing changed where there is no block or it has not `n` bytes left.
    virtual std::int32_t append(const void* source, std::uint32_t n);

    // Fills the page from the file; true if the bytes came.  False here.
    virtual bool load(TFileStorageAllocatorNew& allocator, std::uint32_t size,
                      const file_point& point);

    // Takes over what another page shows.  Nothing here.
    virtual void adopt(TPage& other);

    bool hasBlock() const noexcept { return block != nullptr; }
    std::uint32_t capacity() const;
    std::uint32_t used() const; // an acquire load
    std::uint32_t elements() const;
    // Where the block stands by its head, file_point::none() without a block.
    file_point point() const;
    // Writes the point into the head.  Nothing without a block.
    void setPoint(const file_point& point);

    // The first byte of the payload, null without a block.
    char* payload() const noexcept;
    // Bytes of payload that are really there, whatever the head says; the 4 bytes behind a block do
    // not count.  0 without a block.
    std::uint64_t payloadRoom() const noexcept;
    // Bytes of payload that hold something and are really there: the least of used(), capacity()
    // and payloadRoom().
    std::uint32_t readable() const;

    // Shows a block at `memory`, of which `size` bytes may be touched: at least 28, or the page
    // has no block afterwards.  The memory stays the caller's.
    void attach(void* memory, std::uint64_t size) noexcept;

    TFileStorageAllocatorNew* owner = nullptr; // of a mapped page
    FILE_BLOCK* block = nullptr;

    // Bytes that may be touched from `block` on.  Kept apart from the head, which belongs to
    // whoever wrote the file.
    std::uint64_t extent = 0;
};

// A copy of a block in a buffer of its own, of `capacity` + 28 bytes from the traced allocator.
class TLoadPage : public TPage {
  public:
    ~TLoadPage() override;

    // Copies the block at `point`, whose payload is `size` bytes, into the page: loadBlock of the
    // allocator with its results.  False also if the allocator is not open.  Where the page's
    // buffer is missing or too small a new one, zero-filled, takes its place and gets `size` and
    // `point` into its head; otherwise the head stays as it is until bytes come.  Raises what
    // loadBlock raises.
    bool load(TFileStorageAllocatorNew& allocator, std::uint32_t size,
              const file_point& point) override;

    // Makes sure of a buffer for a block of `size` bytes: a new one, zero-filled, unless the
    // present one's head promises that much and it really has it.  True if it is new.
    bool reserve(std::uint32_t size);

    // Takes over the first `size` bytes, head included, and `used` of a block that may be written
    // meanwhile and has at least `size` bytes.
    void copyMapped(const TPage& mapped, std::uint32_t size);

  private:
    void release() noexcept;
};

// A block inside a view that an allocator holds.  The page that the caller of mapBlock gets does
// not own the view; the allocator keeps a page of its own that does.  The block is gone for all of
// them after unmapBlock, unmapAll, reset or the end of the allocator; what still has it then may
// only be destroyed.
class TMappedPage : public TPage {
  public:
    // Unmaps the block if the page owns its mapping.
    ~TMappedPage() override;

    // Shows the block of another TMappedPage, without owning it.  Nothing for other pages.
    void adopt(TPage& other) override;

    bool ownsMapping = false;
};

} // namespace FileWorkLibrary

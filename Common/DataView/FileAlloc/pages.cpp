// Pages: reading and appending in a block, loading and adopting one.

#include "FileAlloc/pages.h"

#include <algorithm>
#include <cstring>

#include "FileAlloc/filealloc.h"
#include "libn/Assert.h"
#include "libn/viewCopy.h"
#include "sharedBytes.h"
#include "sourceFile.h"

template class memutil::Redefine_NewDelete_<72>;

namespace FileWorkLibrary {

namespace {

// Fields of a head, which may stand at any address.
template <class Field>
Field fieldAt(const FILE_BLOCK* block, std::size_t offset) {
    Field value;
    std::memcpy(&value, reinterpret_cast<const char*>(block) + offset, sizeof value);
    return value;
}

// Nothing without a block.
template <class Field>
void setFieldAt(FILE_BLOCK* block, std::size_t offset, const Field& value) {
    if (block != nullptr)
        std::memcpy(reinterpret_cast<char*>(block) + offset, &value, sizeof value);
}

// A copy of a head that may be written meanwhile.
FILE_BLOCK headOf(const TPage& page, std::uint32_t used) {
    FILE_BLOCK head{};
    std::memcpy(&head, page.block, offsetof(FILE_BLOCK, used));
    head.used = used;
    head.point = page.point();
    head.elements = page.elements();
    return head;
}

std::uint32_t sharedAt(const FILE_BLOCK* block, std::size_t offset) {
    return shared::load(reinterpret_cast<const char*>(block) + offset);
}

} // namespace

void TPage::init(std::uint32_t size, const file_point& point) {
    setFieldAt(block, offsetof(FILE_BLOCK, marker), FILE_BLOCK::kMarker);
    setFieldAt(block, offsetof(FILE_BLOCK, capacity), size);
    setFieldAt(block, offsetof(FILE_BLOCK, point), point);
}

std::int32_t TPage::reserved() {
    return 0;
}

char* TPage::getPtr(std::uint32_t offset, std::int32_t& err) {
    err = 1;
    if (offset >= used() || offset >= payloadRoom())
        return nullptr;
    err = 0;
    return payload() + offset;
}

std::int32_t TPage::append(const void* source, std::uint32_t n) {
    if (block == nullptr)
        return 1;
    const std::uint32_t filled = used();
    const std::uint64_t end = std::uint64_t{filled} + n;
    if (end > capacity() || end > payloadRoom())
        return 1;
    // The bytes first: whoever reads `used` relies on what it promises.
    shared::copyIn(payload() + filled, source, n);
    shared::add(reinterpret_cast<char*>(block) + offsetof(FILE_BLOCK, used), n);
    shared::add(reinterpret_cast<char*>(block) + offsetof(FILE_BLOCK, elements), 1);
    return 0;
}

bool TPage::load(TFileStorageAllocatorNew&, std::uint32_t, const file_point&) {
    return false;
}

void TPage::adopt(TPage&) {}

std::uint32_t TPage::capacity() const {
    return block != nullptr ? fieldAt<std::uint32_t>(block, offsetof(FILE_BLOCK, capacity)) : 0;
}

std::uint32_t TPage::used() const {
    return block != nullptr ? sharedAt(block, offsetof(FILE_BLOCK, used)) : 0;
}

std::uint32_t TPage::elements() const {
    return block != nullptr ? sharedAt(block, offsetof(FILE_BLOCK, elements)) : 0;
}

file_point TPage::point() const {
    return block != nullptr ? fieldAt<file_point>(block, offsetof(FILE_BLOCK, point))
                            : file_point::none();
}

void TPage::setPoint(const file_point& point) {
    setFieldAt(block, offsetof(FILE_BLOCK, point), point);
}

char* TPage::payload() const noexcept {
    return block != nullptr ? reinterpret_cast<char*>(block) + sizeof(FILE_BLOCK) : nullptr;
}

std::uint64_t TPage::payloadRoom() const noexcept {
    return block != nullptr ? extent - FILE_BLOCK::kOverhead : 0;
}

std::uint32_t TPage::readable() const {
    const std::uint32_t promised = std::min(used(), capacity());
    return static_cast<std::uint32_t>(std::min<std::uint64_t>(promised, payloadRoom()));
}

void TPage::attach(void* memory, std::uint64_t size) noexcept {
    const bool fits = memory != nullptr && size >= FILE_BLOCK::kOverhead;
    block = fits ? static_cast<FILE_BLOCK*>(memory) : nullptr;
    extent = fits ? size : 0;
}

TLoadPage::~TLoadPage() {
    release();
}

void TLoadPage::release() noexcept {
    void* buffer = block;
    attach(nullptr, 0);
    try {
        dwminiFree(&buffer);
    } catch (...) {
        // Deliberate: a failure of the free is swallowed.  A page ends inside other clean-ups, and
        // none of them could do anything about it.
    }
}

bool TLoadPage::reserve(std::uint32_t size) {
    const std::uint64_t needed = std::uint64_t{size} + FILE_BLOCK::kOverhead;
    if (block != nullptr && capacity() >= size && extent >= needed)
        return false;
    void* const buffer = dwminiAlloc(needed, kFileAllocSource, __LINE__, true);
    release();
    attach(buffer, needed);
    return true;
}

bool TLoadPage::load(TFileStorageAllocatorNew& allocator, std::uint32_t size,
                     const file_point& point) {
    if (!allocator.isOk())
        return false;
    // Deliberate: only a new buffer gets the point.  A page that is used again and whose load fails
    // keeps the position that its user gave it, by which a walk over pages ends.
    if (reserve(size)) {
        setFieldAt(block, offsetof(FILE_BLOCK, capacity), size);
        setPoint(point);
    }
    return allocator.loadBlock(point, *this, size);
}

void TLoadPage::copyMapped(const TPage& mapped, std::uint32_t size) {
    reserve(size);
    init(size, mapped.point());
    // Before any byte: what is appended meanwhile is not promised.
    const std::uint32_t filled = mapped.used();
    const FILE_BLOCK head = headOf(mapped, filled);
    // Deliberate: the head is part of the `size` bytes that are copied, so of a full payload the
    // tail is cut by as much as the head takes.  Readers of a live page have always seen it so.
    std::memcpy(block, &head, std::min<std::size_t>(size, sizeof head));
    if (size > sizeof head) {
        const std::uint32_t bytes = size - sizeof head;
        const std::uint32_t settled = std::min(filled, bytes);
        libn::viewCopy(payload(), mapped.payload(), settled);
        shared::copyOut(payload() + settled, mapped.payload() + settled, bytes - settled);
    }
    setFieldAt(block, offsetof(FILE_BLOCK, used), filled);
}

TMappedPage::~TMappedPage() {
    if (!ownsMapping)
        return;
    try {
        owner->unmapBlock(*this);
    } catch (...) {
        libn::reportUnhandled("FileWorkLibrary::TMappedPage::~TMappedPage", kFileAllocSource,
                              __LINE__);
    }
}

void TMappedPage::adopt(TPage& other) {
    auto* const mapped = dynamic_cast<TMappedPage*>(&other);
    if (mapped == nullptr)
        return;
    attach(mapped->block, mapped->extent);
    owner = mapped->owner;
    ownsMapping = false;
}

} // namespace FileWorkLibrary

// The allocator: opening, mapping, loading and starting over.

#include "FileAlloc/filealloc.h"

#include <cstring>
#include <system_error>

#include "dw_util/pathRule.h"
#include "libn/Assert.h"
#include "libn/FieldText.h"
#include "libn/raiseText.h"
#include "platform/error.h"
#include "sourceFile.h"
#include "vdreader/errors.hpp"
#include "vdreader/log.h"

template class memutil::Redefine_NewDelete_<194>;

namespace FileWorkLibrary {

namespace {

constexpr std::uint32_t kOpenExisting = 0;
constexpr std::uint32_t kCreateAlways = 1;

// Of the name for show, which may be longer than a path that other readers resolve.
constexpr std::size_t kNameSize = 512;

OwnedText copyOf(const char* text) {
    const std::size_t size = std::strlen(text) + 1;
    void* const copy = dwminiAlloc(size, kFileAllocSource, __LINE__, false);
    return OwnedText(static_cast<char*>(std::memcpy(copy, text, size)));
}

OwnedText resolvedCopy(const char* name) {
    char path[kNameSize] = {};
    resolvePath(path, sizeof path, name);
    return copyOf(path);
}

// What a block takes in the file.  Raises for one that ends too far behind to be meant.
std::uint64_t checkedNeed(const file_point& point, std::uint32_t size) {
    const std::uint64_t need = std::uint64_t{size} + FILE_BLOCK::kOverhead;
    const std::uint64_t start = point.offset();
    if (start > kMostFileBytes || need > kMostFileBytes - start) {
        libn::FieldText text;
        text << "FileWorkLibrary::TFileStorageAllocatorNew::mapBlock:point<" << point.position()
             << ">size<" << size << '>';
        libn::raiseText(text);
    }
    return need;
}

} // namespace

void TFileStorageAllocatorNew::NodeFree::operator()(Node* node) const noexcept {
    ServantsLibrary::freeNode(node);
}

TFileStorageAllocatorNew::TFileStorageAllocatorNew(const char* name, bool mode)
    : storage(name), head(ServantsLibrary::newNode()) {
    tail = head.get();
    granularity = allocationGranularity();
    // The storage keeps the name as it came.
    fileName = resolvedCopy(name);
    std::error_code error;
    const bool opened = storage.open(mode ? kCreateAlways : kOpenExisting, error);
    if (!opened)
        noteError(error.message().c_str());
    state = opened ? kOpen : kFailed;
}

TFileStorageAllocatorNew::~TFileStorageAllocatorNew() {
    try {
        errorText.reset();
        unmapAll();
        storage.close();
    } catch (...) {
        libn::reportUnhandled(
            "FileWorkLibrary::TFileStorageAllocatorNew::~TFileStorageAllocatorNew",
            kFileAllocSource, __LINE__);
    }
    freeNodes();
}

bool TFileStorageAllocatorNew::mapBlock(const file_point& point, std::uint32_t size, TPage& page) {
    const std::lock_guard guard(lock);
    const std::uint64_t need = checkedNeed(point, size);
    const std::uint64_t end = point.offset() + need;
    const std::uint64_t present = storage.size();
    const bool mapped = storage.isMapped();
    const bool grows = storage.needsGrow(end);
    // Views made so far do not mind a new mapping.
    if (grows || !mapped)
        storage.createMapping(grows ? end : present);
    // A view begins on the granularity, which a block need not do.
    const std::uint64_t skew = point.offset() % granularity;
    void* const view = storage.mapPtr(point.offset() - skew, need + skew);
    return enterView(view, need + skew, skew, point, size, page);
}

bool TFileStorageAllocatorNew::enterView(void* view, std::uint64_t viewSize, std::uint64_t skew,
                                         const file_point& point, std::uint32_t size, TPage& page) {
    if (view == nullptr) {
        state = kFailed;
        noteLastError();
        return false;
    }
    try {
        std::unique_ptr<TMappedPage> own(newListPage());
        own->attach(static_cast<char*>(view) + skew, viewSize - skew);
        own->owner = this;
        // Deliberate: the head is written at every mapping, also that of a block that has one.  A
        // fresh block gets its head this way, and files count on it.
        own->init(size, point);
        Node* const node = ServantsLibrary::newNode();
        own->ownsMapping = true;
        node->page = own.release();
        node->viewBase = view;
        node->viewSize = viewSize;
        node->prev = tail;
        tail->next = node;
        tail = node;
        ++count;
    } catch (...) {
        storage.unmapPtr(view, viewSize);
        throw;
    }
    page.adopt(*tail->page);
    return true;
}

TMappedPage* TFileStorageAllocatorNew::newListPage() {
    return new TMappedPage;
}

void TFileStorageAllocatorNew::unmapBlock(TPage& page) {
    if (!page.hasBlock())
        return;
    const std::lock_guard guard(lock);
    // Deliberate: the position decides, not the memory.  Where a block is mapped twice, the view
    // that was made first goes, whichever page asks.
    Node* const node = findNode(page.point());
    if (node == nullptr)
        return;
    takeViewAway(*node, &page);
    dropNode(node);
}

void TFileStorageAllocatorNew::takeViewAway(Node& node, TPage* shown) {
    TMappedPage& own = *node.page;
    storage.unmapPtr(node.viewBase, node.viewSize);
    // Nobody shows or unmaps it again, also if the node turns out to be damaged.
    node.viewBase = nullptr;
    if (shown != nullptr && shown->block == own.block)
        shown->attach(nullptr, 0);
    own.attach(nullptr, 0);
    ServantsLibrary::checkNode(node);
}

void TFileStorageAllocatorNew::unmapAll() {
    const std::lock_guard guard(lock);
    for (Node* node = head->next; node != nullptr; node = node->next) {
        ServantsLibrary::checkNode(*node);
        // Null: taken away by an earlier walk that did not come to its end.
        if (node->viewBase != nullptr)
            takeViewAway(*node, nullptr);
    }
    freeNodes();
}

bool TFileStorageAllocatorNew::loadBlock(const file_point& point, TLoadPage& page,
                                         std::uint32_t size) {
    const std::lock_guard guard(lock);
    if (const Node* const node = findNode(point)) {
        const TMappedPage& mapped = *node->page;
        // Deliberate: a block of another size counts as loaded and leaves the page alone; readers
        // go on with what they have.  The head alone does not prove that a view has `size` bytes.
        if (mapped.capacity() == size && size <= mapped.extent)
            page.copyMapped(mapped, size);
        return true;
    }
    if (point.offset() >= fileSize())
        return false;
    page.reserve(size);
    if (storage.read(page.block, point.offset(), std::uint64_t{size} + FILE_BLOCK::kOverhead,
                     nullptr))
        return true;
    noteLastError();
    return false;
}

bool TFileStorageAllocatorNew::reset() {
    const std::lock_guard guard(lock);
    try {
        unmapAll();
        storage.close();
        std::error_code error;
        if (!storage.open(kCreateAlways, error)) {
            noteError(error.message().c_str());
            state = kFailed;
        }
        // Deliberate: true also for a file that could not be opened, and an allocator that was not
        // open does not become so.  What is mapped next raises, and users tell the two apart by it.
        return true;
    } catch (const CEmptyError& failure) {
        event("Error while reseting data: %s", failure.what());
        return false;
    }
}

std::uint64_t TFileStorageAllocatorNew::fileSize() const {
    const std::lock_guard guard(lock);
    return storage.size();
}

void TFileStorageAllocatorNew::closeStorage() {
    const std::lock_guard guard(lock);
    storage.close();
}

auto TFileStorageAllocatorNew::findNode(const file_point& point) const -> Node* {
    for (Node* node = head->next; node != nullptr; node = node->next) {
        ServantsLibrary::checkNode(*node);
        if (node->page->hasBlock() && node->page->point() == point)
            return node;
    }
    return nullptr;
}

bool TFileStorageAllocatorNew::isFirstAt(const TPage& page) const {
    const std::lock_guard guard(lock);
    const Node* const node = findNode(page.point());
    return node != nullptr && node->page->block == page.block;
}

void TFileStorageAllocatorNew::dropNode(Node* node) noexcept {
    node->prev->next = node->next;
    if (node->next != nullptr)
        node->next->prev = node->prev;
    else
        tail = node->prev;
    // Its view is gone already.
    node->page->ownsMapping = false;
    delete node->page;
    ServantsLibrary::freeNode(node);
    --count;
}

// Deliberate: the pages of the nodes are left behind.  What else shows a block may still hold the
// list's page, and must find it when all views go at once.
void TFileStorageAllocatorNew::freeNodes() noexcept {
    for (Node* node = head->next; node != nullptr;) {
        Node* const next = node->magic == Node::kMagic ? node->next : nullptr;
        ServantsLibrary::freeNode(node);
        --count;
        node = next;
    }
    head->next = nullptr;
    tail = head.get();
}

void TFileStorageAllocatorNew::noteError(const char* text) {
    errorText = copyOf(text);
    event("Allocating error: %s", errorText.get());
}

void TFileStorageAllocatorNew::noteLastError() {
    char text[512];
    platform::systemErrorText(platform::lastError(), text, sizeof text);
    noteError(text);
}

} // namespace FileWorkLibrary

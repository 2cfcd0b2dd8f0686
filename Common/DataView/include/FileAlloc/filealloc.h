// Files of blocks that lie one behind another; users see a block where it is mapped, or in a copy.
//
// What the blocks hold and where they stand is the user's business.  All views that are out are
// known here: the whole file can be let go in one step.

#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>

#include "Buffers/pbuffer.h"
#include "FileAlloc/file_point.h"
#include "FileAlloc/pages.h"
#include "libn/MappableStorage.h"
#include "libn/dwmini.h"
#include "memutil.h"

extern template class memutil::Redefine_NewDelete_<194>;

namespace FileWorkLibrary {

// Offsets in a block file end here; what reaches further comes from a damaged file.
inline constexpr std::uint64_t kMostFileBytes = std::uint64_t{1} << 40;

// Gives a text of the traced allocator back.
struct FreeText {
    void operator()(char* text) const noexcept {
        void* block = text;
        dwminiFree(&block);
    }
};
using OwnedText = std::unique_ptr<char, FreeText>;

// Threads: any, each operation takes the object's recursive lock.  `errorText` and what it points
// to is for the thread that saw the failure.
//
// Every walk over the list of views raises a CEmptyError "MAGIC !!! IS INCORRECT" where a node is
// damaged.  The failures of WinMappableStorageFile pass through as they are raised there.
class TFileStorageAllocatorNew : public memutil::Redefine_NewDelete_<194> {
  public:
    enum State : std::uint32_t { kFailed = 0, kOpen = 1, kConstructing = 2 };

    // Opens the file `name`: an existing one, or with `mode` true a new one in the place of any
    // other.  Raises nothing if that fails: see isOk and errorText.
    TFileStorageAllocatorNew(const char* name, bool mode);

    // Takes all views away and closes the file.  What is raised on the way goes to the error log.
    virtual ~TFileStorageAllocatorNew();
    TFileStorageAllocatorNew(const TFileStorageAllocatorNew&) = delete;
    TFileStorageAllocatorNew& operator=(const TFileStorageAllocatorNew&) = delete;

    // Maps the block at `point` with `size` bytes of payload, writes its marker, capacity and point
    // into its head, and lets `page` adopt it.  A file that ends before the block grows.  A block
    // may be mapped more than once.  False, with errorText set and the allocator not open any more,
    // if no view could be made.  Raises
    // "FileWorkLibrary::TFileStorageAllocatorNew::mapBlock:point<%d>size<%d>" for a block that ends
    // behind kMostFileBytes.
    bool mapBlock(const file_point& point, std::uint32_t size, TPage& page);

    // Takes the first view away whose block stands at the page's position.  Nothing if there is
    // none or the page has no block.  If the page shows the very block it has none afterwards.
    void unmapBlock(TPage& page);

    // Takes all views away.  Pages that show them may only be destroyed, or adopt something else.
    void unmapAll();

    // Copies the block at `point` into the page, whose buffer grows where it is too small.
    // A block that is mapped is copied from memory: its first `size` bytes, head included, and its
    // `used`; true, also if its capacity is not `size`, and then the page keeps what it holds.
    // Any other is read from the file: false, with the page untouched, at and behind the file's
    // end; false, with errorText set, if the file ends inside the block or cannot be read.
    bool loadBlock(const file_point& point, TLoadPage& page, std::uint32_t size);

    // Drops all views and empties the file, or makes a new one.  True; also if the file could not
    // be opened, when errorText is set and the allocator is not open any more.  False if something
    // was raised, which goes to the event log as "Error while reseting data: %s".
    bool reset();

    bool isOk() const noexcept { return state.load(std::memory_order_relaxed) == kOpen; }

    // Bytes of the file, 0 if it is not open.
    std::uint64_t fileSize() const;

    // Closes the file; views stay good.
    void closeStorage();

    // The text of the last failure that was no exception, null before the first.  Each is written
    // to the event log as "Allocating error: %s".  Good until the next.
    const char* lastErrorText() const noexcept { return errorText.get(); }

    // The name as the path rule makes it, at most 511 characters; the file itself is opened by the
    // name as it came.
    const char* resolvedName() const noexcept { return fileName.get(); }

    // Views in the list.
    std::uint32_t mappedCount() const noexcept { return count.load(std::memory_order_relaxed); }

  protected:
    using Node = ServantsLibrary::pbuffer;
    struct NodeFree {
        void operator()(Node* node) const noexcept;
    };

    // Puts a view into the list and into `page`, or notes the system's error for a null view.
    bool enterView(void* view, std::uint64_t viewSize, std::uint64_t skew, const file_point& point,
                   std::uint32_t size, TPage& page);

    // The first node behind the sentinel whose block stands at `point`, or null.
    Node* findNode(const file_point& point) const;

    // Whether unmapBlock would take away the very view that `page` shows, and no older one.
    bool isFirstAt(const TPage& page) const;

    TMappedPage* newListPage();
    // Unmaps the view of a node that was looked at; a page that shows it has no block then.
    void takeViewAway(Node& node, TPage* shown);
    void dropNode(Node* node) noexcept;
    void freeNodes() noexcept;
    void noteError(const char* text);
    void noteLastError();

    // The order is that in which other modules know them.
    WinMappableStorageFile storage;
    std::atomic<std::uint32_t> state{kConstructing};
    OwnedText errorText;
    OwnedText fileName;
    mutable std::recursive_mutex lock;
    std::unique_ptr<Node, NodeFree> head; // a sentinel
    Node* tail = nullptr;
    std::atomic<std::uint32_t> count{0}; // nodes behind the sentinel
    std::uint64_t granularity = 0;
};

} // namespace FileWorkLibrary

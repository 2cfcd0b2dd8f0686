// The logs of one kind: up to forty open files, which threads that name the same file share, and a
// link to the console.
//
// Each thread has its own file of a kind in its ThreadLogState; a slot keeps a file open after the
// threads that used it have ended.
//
// Threads: any.  Set-up holds a lock, also while it waits for a rotation.

#pragma once

#include <array>
#include <atomic>
#include <iosfwd>
#include <memory>
#include <mutex>

#include "dw_util/threadLogState.h"
#include "logs/EVENTS.h"

// The kinds: which field of the thread's state each uses.
struct EventsTlsPtr {
    static std::shared_ptr<EVENTS>& field(ThreadLogState& state) { return state.eventsFile; }
};
struct ErrorsTlsPtr {
    static std::shared_ptr<EVENTS>& field(ThreadLogState& state) { return state.errorsFile; }
};
struct NetEventsTlsPtr {
    static std::shared_ptr<EVENTS>& field(ThreadLogState& state) { return state.netEventsFile; }
};

template <class Tag>
class Events {
  public:
    // Lives as long as the process, since threads may log until it ends.
    static Events& instance();

    // Closes the files of the kind, those aside that are in use at this moment: at the end of the
    // process, and when the library is unloaded.  Lines for them are dropped from then on.
    static void closeFiles();

    virtual ~Events() = default;

    // Makes `name` the calling thread's file of this kind.  A file that no thread had yet is
    // rotated by the settings of the ini file at `rotationPath` (null or empty: never) and opened;
    // where that fails, where all slots are in use, and for a null name the thread has no file.
    // Names are cut at 256 characters and compared without regard to case.  Raises what rotation
    // and the making of folders raise; the file then stays closed until the process ends.
    void setThreadFile(const char* name, const char* rotationPath);

    // Has every line of this kind go to the stream as well, which lives as long as the process.
    void linkStream(std::ostream& stream);

    // The link, empty where there is none.
    std::shared_ptr<EVENTS> defaultFile() const;

    // The same for lines, which take no memory for it: empty also while there is no instance.
    static std::shared_ptr<EVENTS> linkOfLines();

  private:
    static constexpr std::size_t kSlots = 40;

    static std::atomic<Events*>& made();

    std::shared_ptr<EVENTS> findFile(const char* name) const;
    std::shared_ptr<EVENTS> openFile(const char* name, const char* rotationPath);

    std::shared_ptr<EVENTS> m_defaultFile;
    std::recursive_mutex m_lock; // of the slots, the fields of this kind and changes of the link
    std::array<std::shared_ptr<EVENTS>, kSlots> m_slots;

    // Lines look for a link far more often than there is one.
    std::atomic<bool> m_linked{false};
    mutable std::mutex m_linkLock; // of m_defaultFile
};

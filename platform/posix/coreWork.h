// What the files core*.cpp share: the state of one dump of this process as an ELF core.
//
//   coreWriter.cpp    the call that the rest of the library makes
//   coreTracer.cpp    stops the threads by a tracer, which then writes
//   coreSignals.cpp   the same by signals, where tracing is not allowed
//   coreMaps.cpp      what is mapped
//   coreSegments.cpp  which of that goes into the file
//   coreNotes.cpp     registers, signal and lists for the debugger
//   coreFile.cpp      the file
//
// The state is one block of pages.  Nothing here takes memory from the heap or a lock, since the
// threads are stopped wherever they are.

#pragma once

#include <sys/types.h>
#include <sys/user.h>
#include <ucontext.h>
#include <atomic>
#include <cstddef>
#include <cstdint>

#include "vdreader/postmortem.h"

namespace platform::core {

inline constexpr std::uint64_t kPage = 4096;

// What exceeds these is missing in the dump; the kernel's own limits are near.
inline constexpr std::size_t kMostThreads = 4096;
inline constexpr std::size_t kMostMaps = 65536;
inline constexpr std::size_t kMostSegments = 65000;
inline constexpr std::size_t kNamesSize = std::size_t{4} << 20;
inline constexpr std::size_t kNotesSize = std::size_t{16} << 20;

// A thread of the process.
struct Thread {
    pid_t id;
    bool stopped;
    int heldSignal; // the signal at whose delivery it stopped, or 0
    user_regs_struct registers;
    user_fpregs_struct floating;
};

// A line of /proc/self/maps.
struct Map {
    std::uint64_t begin;
    std::uint64_t end;
    std::uint64_t offset;
    std::uint32_t name;  // in Work::names
    std::uint32_t flags; // PF_R, PF_W, PF_X
    bool hasFile;
};

// A piece of memory that goes into the file.
struct Segment {
    std::uint64_t begin;
    std::uint64_t end;
    std::uint32_t flags;
};

struct Work {
    // What is asked for.
    int file;
    bool full;
    pid_t process;
    pid_t parent;
    pid_t failing;                 // the thread that the dump shows first, or 0
    const ucontext_t* context;     // its state, or null: as it is
    const sExceptionRecord* fault; // or null

    std::atomic<int> allowed;  // the tracer waits for it
    std::atomic<int> finished; // -1 at first; whether the file is written

    std::size_t threadCount;
    std::size_t mapCount;
    std::size_t segmentCount;
    std::size_t namesUsed;
    std::size_t notesUsed;
    Thread threads[kMostThreads];
    Map maps[kMostMaps];
    Segment segments[kMostSegments];
    char names[kNamesSize];
    unsigned char notes[kNotesSize];
    char text[65536]; // for files of /proc
    pid_t tasks[kMostThreads];
    alignas(16) unsigned char stack[256 * 1024]; // the tracer's
};

// Lists the threads of `process` in work.tasks; their number.
std::size_t listTasks(Work& work) noexcept;

void readMaps(Work& work) noexcept;
// The map of an address, null if there is none.
const Map* mapAt(const Work& work, std::uint64_t address) noexcept;

// Takes over the general registers and the floating-point state of a context.
void takeContext(Thread& thread, const ucontext_t& context) noexcept;

void chooseSegments(Work& work) noexcept;
void makeNotes(Work& work) noexcept;
// Whether all was written.
bool writeFile(Work& work) noexcept;

// All of these with the threads stopped.
bool writeStopped(Work& work) noexcept;

// Stops all threads and calls writeStopped: whether that could be done at all.
bool writeByTracer(Work& work) noexcept;
bool writeBySignals(Work& work) noexcept;

// For tests: whether to try the tracer.
extern bool mayTrace;

// Waits until *word is no longer `value`, `milliseconds` at most, and wakes who does.
void waitWhile(std::atomic<int>& word, int value, int milliseconds) noexcept;
void wakeAll(std::atomic<int>& word) noexcept;

} // namespace platform::core

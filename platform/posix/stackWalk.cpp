// Unwinding by the unwinding library.  Nothing here takes memory from the heap: the thread that is
// looked at may hold the heap's lock.

#include "stackWalk.h"

#include <ucontext.h>
#include <cerrno>
#include <cstring>

#include "readMemory.h"
#include "unwind.h"

namespace platform {

namespace {

struct Frame {
    std::uint64_t programCounter;
    std::uint64_t stack;
    bool signal; // the kernel's return from a handler
    bool exact;  // stopped at its program counter, not at a return address
};

// The walk in force, one for the process.
class Walk {
  public:
    // Marks of the records that belong to this walk; never 0.
    std::uint64_t mark() const { return m_mark; }

    bool begin(const ucontext_t& context);
    // The next frame and its return address, 0 for the last one.
    bool next(Frame& frame, std::uint64_t& returnAddress);
    std::uint64_t lookUpAddress(std::uint64_t programCounter) const;

  private:
    static constexpr std::size_t kFrames = 4096;

    bool readFrame(Frame& frame);
    bool step();
    void fill();

    std::uint64_t m_mark = 0;
    ucontext_t m_context = {};
    unw_cursor_t m_cursor = {};
    Frame m_frames[kFrames] = {};
    std::size_t m_count = 0;
    std::size_t m_next = 0;
    bool m_ended = true; // nothing is behind the frames that stand in the array
    Frame m_given = {};  // the frame that was handed out last
};

constinit Walk walk;

bool Walk::readFrame(Frame& frame) {
    unw_word_t counter = 0;
    unw_word_t stack = 0;
    if (unwindCalls()->getRegister(&m_cursor, UNW_REG_IP, &counter) != 0 ||
        unwindCalls()->getRegister(&m_cursor, UNW_REG_SP, &stack) != 0)
        return false;
    const bool signal = unwindCalls()->isSignalFrame(&m_cursor) > 0;
    frame = {counter, stack, signal, signal};
    return true;
}

bool Walk::begin(const ucontext_t& context) {
    ++m_mark;
    m_count = m_next = 0;
    m_ended = true;
    m_context = context;
    if (unwindCalls() == nullptr ||
        unwindCalls()->initLocal(&m_cursor, &m_context, UNW_INIT_SIGNAL_FRAME) != 0 ||
        !readFrame(m_frames[0]))
        return false;
    m_frames[0].exact = true;
    m_count = 1;
    m_ended = false;
    fill();
    return true;
}

// The caller's frame lies above its callee's; only a signal's handler may run elsewhere.
bool Walk::step() {
    const Frame callee = m_frames[m_count - 1];
    std::uint32_t done = 0;
    char probe = 0;
    if (!readProcessMemory(nullptr, callee.stack, &probe, 1, &done) ||
        unwindCalls()->step(&m_cursor) <= 0)
        return false;
    Frame& caller = m_frames[m_count];
    if (!readFrame(caller) || caller.programCounter == 0)
        return false;
    caller.exact = caller.exact || callee.signal;
    return callee.signal || caller.stack > callee.stack;
}

void Walk::fill() {
    while (!m_ended && m_count < kFrames) {
        if (step())
            ++m_count;
        else
            m_ended = true;
    }
}

bool Walk::next(Frame& frame, std::uint64_t& returnAddress) {
    if (m_next + 1 == m_count && !m_ended) {
        m_frames[0] = m_frames[m_next];
        m_next = 0;
        m_count = 1;
        fill();
    }
    if (m_next >= m_count)
        return false;
    m_given = frame = m_frames[m_next++];
    returnAddress = m_next < m_count ? m_frames[m_next].programCounter : 0;
    return true;
}

std::uint64_t Walk::lookUpAddress(std::uint64_t programCounter) const {
    const bool isReturn = programCounter == m_given.programCounter && !m_given.exact;
    return isReturn ? programCounter - 1 : programCounter;
}

} // namespace

std::int32_t stackWalk64(std::uint32_t machine, ProcessHandle, void*, StackFrame64* frame,
                         void* context, MemoryReader, FunctionTableAccess, ModuleBaseReader,
                         void*) {
    if (machine != kMachineAmd64) {
        errno = EINVAL;
        return 0;
    }
    if (frame->reserved[0] == 0) {
        if (!walk.begin(*static_cast<const ucontext_t*>(context))) {
            errno = EFAULT;
            return 0;
        }
        frame->reserved[0] = walk.mark();
    }
    Frame found = {};
    std::uint64_t returnAddress = 0;
    if (frame->reserved[0] != walk.mark() || !walk.next(found, returnAddress)) {
        errno = ENOENT;
        return 0;
    }
    frame->programCounter = {found.programCounter, 0, kAddressModeFlat};
    frame->frame = frame->stack = {found.stack, 0, kAddressModeFlat};
    frame->returnAddress = {returnAddress, 0, kAddressModeFlat};
    return 1;
}

std::uint64_t lookUpAddress(std::uint64_t programCounter) {
    return walk.lookUpAddress(programCounter);
}

} // namespace platform

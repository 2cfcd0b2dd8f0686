// The stacks of a thread whose faults are shown: where its own lies, and the alternate one that
// takes the handler, and the faults for which there is no room on its own.

#include "faultState.h"

#include <pthread.h>
#include <sys/mman.h>
#include <unistd.h>
#include <algorithm>

namespace platform {

namespace {

// What a fault is given below itself at least; the red zone of its frame is not touched.
constexpr std::size_t kLeastRoom = std::size_t{64} << 10;
constexpr std::size_t kLeastAlternateRoom = std::size_t{32} << 10;
constexpr std::size_t kRedZone = 128;
// What the handler may still call on its stack.
constexpr std::size_t kHandlerFrames = std::size_t{16} << 10;

void* mapStack(std::size_t size) {
    void* low = ::mmap(nullptr, size, PROT_READ | PROT_WRITE,
                       MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE | MAP_STACK, -1, 0);
    return low == MAP_FAILED ? nullptr : low;
}

AddressRange boundsOfThread() noexcept {
    pthread_attr_t attributes = {};
    if (::pthread_getattr_np(::pthread_self(), &attributes) != 0)
        return {};
    void* low = nullptr;
    std::size_t size = 0;
    const int failed = ::pthread_attr_getstack(&attributes, &low, &size);
    ::pthread_attr_destroy(&attributes);
    const auto from = reinterpret_cast<std::uintptr_t>(low);
    return failed != 0 ? AddressRange{} : AddressRange{from, from + size};
}

// The alternate stack of a thread from its first translator to its end.
class AlternateStack {
  public:
    AlternateStack() noexcept {
        m_low = stackCalls.map(kGuard + kAlternateStackSize);
        if (m_low == nullptr)
            return;
        ::mprotect(m_low, kGuard, PROT_NONE);
        stack_t ours = {};
        ours.ss_sp = static_cast<char*>(m_low) + kGuard;
        ours.ss_size = kAlternateStackSize;
        if (stackCalls.setAlternate(&ours, &m_former) != 0) {
            ::munmap(m_low, kGuard + kAlternateStackSize);
            m_low = nullptr;
            return;
        }
        const auto low = reinterpret_cast<std::uintptr_t>(ours.ss_sp);
        threadFaults.alternate = {low, low + kAlternateStackSize};
    }

    // The thread's faults take their ordinary way from here on.
    ~AlternateStack() {
        threadFaults.translator = nullptr;
        threadFaults.alternate = {};
        if (m_low == nullptr)
            return;
        stack_t now = {};
        ::sigaltstack(nullptr, &now);
        if (now.ss_sp == static_cast<char*>(m_low) + kGuard)
            ::sigaltstack(&m_former, nullptr);
        ::munmap(m_low, kGuard + kAlternateStackSize);
    }
    AlternateStack(const AlternateStack&) = delete;
    AlternateStack& operator=(const AlternateStack&) = delete;

  private:
    static constexpr std::size_t kGuard = 4096;

    void* m_low = nullptr;
    stack_t m_former = {};
};

void unblockFaults() noexcept {
    sigset_t faults = {};
    ::sigemptyset(&faults);
    for (const int signal : kFaultSignals)
        ::sigaddset(&faults, signal);
    ::pthread_sigmask(SIG_UNBLOCK, &faults, nullptr);
}

} // namespace

constinit StackCalls stackCalls = {mapStack, ::sigaltstack};

void prepareThread() noexcept {
    unblockFaults();
    if (threadFaults.prepared)
        return;
    threadFaults.prepared = true;
    threadFaults.stack = boundsOfThread();
    static thread_local const AlternateStack alternate;
    static_cast<void>(alternate);
}

std::uintptr_t roomForFault(std::uintptr_t stackPointer, std::size_t size) noexcept {
    const ThreadFaults& mine = threadFaults;
    const auto handler = reinterpret_cast<std::uintptr_t>(__builtin_frame_address(0));
    const auto below = [&](const AddressRange& stack, std::size_t least) {
        std::uintptr_t top = stackPointer - kRedZone;
        if (stack.holds(handler)) // between the fault and the room that is free
            top = std::min(top, handler - kHandlerFrames);
        return top > stack.low && top - stack.low > size + least ? top : 0;
    };
    if (mine.alternate.holds(stackPointer))
        return below(mine.alternate, kLeastAlternateRoom);
    if (mine.stack.holds(stackPointer))
        if (const std::uintptr_t top = below(mine.stack, kLeastRoom))
            return top;
    if (mine.alternate.high == 0)
        return 0;
    return mine.alternate.high - kHandlerStackSize;
}

} // namespace platform

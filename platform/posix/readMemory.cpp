// Reading through the kernel, which checks each page.

#include "readMemory.h"

#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>
#include <algorithm>
#include <cerrno>

namespace platform {

namespace {

constexpr std::uint64_t kPage = 4096;

// The kernel reads the set of signals before it finds that the order given with it does not exist.
bool readable(std::uint64_t address) {
    constexpr long kNoSuchOrder = -1;
    const auto aligned = reinterpret_cast<const void*>(address & ~std::uint64_t{7});
    return ::syscall(SYS_rt_sigprocmask, kNoSuchOrder, aligned, nullptr, 8) != 0 && errno != EFAULT;
}

// For processes that the kernel does not let read by the call made for it.  Not a call of the C
// library: what is read may be what a sanitizer guards.
__attribute__((no_sanitize("address", "thread"))) std::uint32_t copyPages(std::uint64_t address,
                                                                          unsigned char* out,
                                                                          std::uint32_t size) {
    std::uint32_t done = 0;
    while (done < size && readable(address + done)) {
        const std::uint64_t page = (address + done) & ~(kPage - 1);
        const auto end =
            static_cast<std::uint32_t>(std::min<std::uint64_t>(size, page + kPage - address));
        for (; done < end; ++done)
            out[done] = *reinterpret_cast<const volatile unsigned char*>(address + done);
    }
    return done;
}

} // namespace

std::int32_t readProcessMemory(void*, std::uint64_t address, void* out, std::uint32_t size,
                               std::uint32_t* done) {
    const iovec to = {out, size};
    const iovec from = {reinterpret_cast<void*>(address), size};
    const long read = ::syscall(SYS_process_vm_readv, ::getpid(), &to, 1L, &from, 1L, 0L);
    if (read >= 0)
        *done = static_cast<std::uint32_t>(read);
    else if (errno == EFAULT)
        *done = 0;
    else
        *done = copyPages(address, static_cast<unsigned char*>(out), size);
    return *done == size;
}

} // namespace platform

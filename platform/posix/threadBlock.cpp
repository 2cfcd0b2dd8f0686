// The thread's block on POSIX systems: static thread-local storage.

#include "platform/threadBlock.h"

namespace platform {

namespace {
// Initial-exec: a third of the price of the default model for an access from a shared library.
__attribute__((tls_model("initial-exec"))) thread_local constinit struct {
    alignas(std::max_align_t) unsigned char bytes[kThreadBlockSize];
} block = {};
} // namespace

void* threadBlock() noexcept {
    return block.bytes;
}

} // namespace platform

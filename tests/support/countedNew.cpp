// The program's operator new, in the place of the run-time's.

#include "support/countedNew.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

std::atomic<std::size_t> count{0};
std::atomic<std::size_t> live{0};
std::atomic<int> passing{0};
std::atomic<int> failing{0};
std::atomic<void (*)()> raising{nullptr};

// calloc: malloc is made to fail elsewhere.
void* take(std::size_t size) {
    ++count;
    // NOLINTNEXTLINE(cppcoreguidelines-no-malloc)
    void* block = std::calloc(1, size != 0 ? size : 1);
    live += block != nullptr ? 1 : 0;
    return block;
}

void giveBack(void* block) {
    live -= block != nullptr ? 1 : 0;
    std::free(block);
}

} // namespace

std::size_t countedNews() {
    return count;
}

std::size_t liveNews() {
    return live;
}

FailingNew::FailingNew(int after, int calls, void (*raise)()) {
    raising = raise;
    passing = after;
    failing = calls;
}
FailingNew::~FailingNew() {
    failing = 0;
}

void* operator new(std::size_t size) {
    if (failing > 0 && passing-- <= 0 && failing-- > 0) {
        ++count;
        if (void (*const raise)() = raising)
            raise();
        throw std::bad_alloc();
    }
    void* block = take(size);
    if (block == nullptr)
        throw std::bad_alloc();
    return block;
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return take(size);
}
void operator delete(void* block) noexcept {
    giveBack(block);
}
void operator delete(void* block, std::size_t) noexcept {
    giveBack(block);
}

// Calls of operator new in the test program and in the library's objects within it.

#pragma once

#include <cstddef>

// How many there were so far, on all threads.
std::size_t countedNews();

// How many blocks of it there are now, of all threads.
std::size_t liveNews();

// While an object lives, `calls` calls raise std::bad_alloc, behind the first `after` ones.  With
// `raise` they raise what that does, which may also be a fault.
class FailingNew {
  public:
    FailingNew(int after, int calls, void (*raise)() = nullptr);
    ~FailingNew();
    FailingNew(const FailingNew&) = delete;
    FailingNew& operator=(const FailingNew&) = delete;
};

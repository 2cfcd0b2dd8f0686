// A base class that gives its derived classes traced allocation.
//
// Objects come zero-filled, which derived classes count on, and raise a COSError where memory is
// exhausted; the memory tracer charges them to line N.  The base has no data.  Any thread.

#pragma once

#include <cstddef>

#include "vdreader/export.h"

namespace memutil {

template <int N>
class Redefine_NewDelete_ {
  public:
    Redefine_NewDelete_() = default;
    Redefine_NewDelete_(const Redefine_NewDelete_&) = default;
    Redefine_NewDelete_(Redefine_NewDelete_&&) noexcept = default;
    ~Redefine_NewDelete_() = default;

    Redefine_NewDelete_& operator=(const Redefine_NewDelete_& other);
    Redefine_NewDelete_& operator=(Redefine_NewDelete_&& other) noexcept;

    static void* operator new(std::size_t size);
    static void* operator new[](std::size_t size);

    // Null is allowed.
    static void operator delete(void* block);
    static void operator delete[](void* block);

    // Placement: the place given, and nothing to free.
    static void* operator new(std::size_t size, void* place);
    static void* operator new[](std::size_t size, void* place);
    static void operator delete(void* block, void* place);
    static void operator delete[](void* block, void* place);
};

// The instance that the library exports; marked here and not at the members, since the others that
// the library has stay inside.
extern template class VDREADER_MEMBER Redefine_NewDelete_<13>;

} // namespace memutil

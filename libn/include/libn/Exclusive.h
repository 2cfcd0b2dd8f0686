// The abstract lock of the family.
//
// The order of the virtual operations is binding for other modules.  What a lock keeps out, and
// whether it may be taken twice, is told by the class that derives from it.

#pragma once

namespace libn {

class Exclusive {
  public:
    virtual ~Exclusive() = default;
    virtual void lock() = 0;
    virtual void unlock() = 0;
};

} // namespace libn

// The recursive lock of the family's modules: a thread may take it any number of times, and gives
// it back as often.

#pragma once

#include <memory>
#include <mutex>

#include "libn/Exclusive.h"
#include "libn/Noncopyable.h"

namespace libn {

class CS : public Exclusive, public Noncopyable {
  public:
    CS() : m_lock(std::make_unique<std::recursive_mutex>()) {}
    ~CS() override = default;

    // Raises std::system_error where the system's lock reports a failure.
    void lock() override { m_lock->lock(); }
    void unlock() override { m_lock->unlock(); }

  private:
    std::unique_ptr<std::recursive_mutex> m_lock;
};

} // namespace libn

// An object that is never destroyed and takes nothing from the heap itself: threads of a host may
// use it as long as the process lives, and a host that unloads the library loses no block by it.
// What the object holds in turn is its owner's to release.

#pragma once

#include <new>
#include <utility>

namespace platform {

template <class Object>
class Lasting {
  public:
    template <class... Arguments>
    explicit Lasting(Arguments&&... arguments)
        : m_object(::new (static_cast<void*>(m_place))
                       Object(std::forward<Arguments>(arguments)...)) {}
    Lasting(const Lasting&) = delete;
    Lasting& operator=(const Lasting&) = delete;

    Object& get() const noexcept { return *m_object; }

  private:
    alignas(Object) unsigned char m_place[sizeof(Object)];
    Object* m_object;
};

} // namespace platform

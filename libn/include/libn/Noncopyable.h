// A base for classes that are not copied.

#pragma once

namespace libn {

class Noncopyable {
  protected:
    Noncopyable() = default;
    ~Noncopyable() = default;

  public:
    Noncopyable(const Noncopyable&) = delete;
    Noncopyable& operator=(const Noncopyable&) = delete;
};

} // namespace libn

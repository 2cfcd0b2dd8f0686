// The C locale again when a test is over, however it ends.

#pragma once

#include <clocale>

class ScopedLocale {
  public:
    explicit ScopedLocale(int category) : m_category(category) {}
    ~ScopedLocale() { std::setlocale(m_category, "C"); }
    ScopedLocale(const ScopedLocale&) = delete;
    ScopedLocale& operator=(const ScopedLocale&) = delete;

  private:
    int m_category;
};

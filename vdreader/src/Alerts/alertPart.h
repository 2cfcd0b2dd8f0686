// A part of an alert that has no fixed size.
//
// It keeps its memory from one alert to the next and clears nothing that it makes room for, since
// all of that is about to be read: with a std::vector a tenth of a walk goes into zeroes.

#pragma once

#include <algorithm>
#include <cstddef>
#include <memory>
#include <type_traits>

template <class Element>
class AlertPart {
    static_assert(std::is_trivially_copyable_v<Element>);

  public:
    // There is memory for none or for so many bytes at least.
    static constexpr std::size_t kLeastBytes = 128;

    std::size_t size() const { return m_size; }
    bool empty() const { return m_size == 0; }
    std::size_t capacity() const { return m_capacity; }
    // Whether there is memory, for no more than `most` elements.
    bool hasUpTo(std::size_t most) const { return m_capacity - 1 < most; }

    // Null without memory.
    Element* data() { return m_elements.get(); }
    const Element* data() const { return m_elements.get(); }
    const Element* begin() const { return data(); }
    const Element* end() const { return data() + m_size; }
    const Element& operator[](std::size_t i) const { return m_elements[i]; }

    // Makes it so many elements.  The first ones stay as they are, the others hold anything.
    void resize(std::size_t count) {
        reserve(count);
        m_size = count;
    }

    // The same for kLeastBytes at the most, where there is memory.
    void resizeInPlace(std::size_t count) { m_size = count; }

    void reserve(std::size_t count) {
        constexpr std::size_t kLeast = (kLeastBytes + sizeof(Element) - 1) / sizeof(Element);
        if (count > m_capacity)
            grow(std::max({count, 2 * m_capacity, kLeast}));
    }

    // Gives the memory back.
    void drop() { *this = AlertPart(); }

  private:
    void grow(std::size_t capacity) {
        auto larger = std::make_unique_for_overwrite<Element[]>(capacity);
        std::copy_n(m_elements.get(), m_size, larger.get());
        m_elements = std::move(larger);
        m_capacity = capacity;
    }

    std::unique_ptr<Element[]> m_elements;
    std::size_t m_size = 0;
    std::size_t m_capacity = 0;
};

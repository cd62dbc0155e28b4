/// What one conversion of the library gave, with its memory.
#pragma once

#include <tovdom/tovnls/tovnls.h>

#include <cstddef>
#include <memory>
#include <string_view>

/// Ownership  Takes over the elements of the handle that it is made from.
template <class T>
class Converted {
public:
    Converted() = default;
    explicit Converted(const TovAutoBuffer<T> &handle)
        : m_elements(handle.buffer), m_size(handle.length > 0 ? static_cast<std::size_t>(handle.length) : 0) {
    }

    /// Takes `elements` over, of which there is one more than `size`.
    Converted(std::unique_ptr<T[]> elements, std::size_t size)
        : m_elements(std::move(elements)), m_size(size) {}

    std::size_t size() const { return m_size; }
    std::basic_string_view<T> view() const { return {m_elements.get(), m_size}; }

    /// Keeps the first `size` elements.
    void cut(std::size_t size) { m_size = size; }

    /// The text with `mark` behind it, without a copy: the library allocates one element more than a
    /// conversion can give.
    std::basic_string_view<T> followedBy(T mark) {
        m_elements[m_size] = mark;
        return {m_elements.get(), m_size + 1};
    }

private:
    std::unique_ptr<T[]> m_elements;
    std::size_t m_size = 0;
};

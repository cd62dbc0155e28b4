/// The library's plain strings: TovString of bytes, TovUString of 16-bit code units.
///
/// They are standard strings in all but their memory, which comes from TovAllocator. They convert to
/// std::string_view and std::u16string_view, so a caller who has another string type needs no copy to
/// read them.
///
/// Units      TovString: bytes, in the process locale's encoding unless a function says otherwise.
///            TovUString: code units, UTF-16 in host byte order; surrogate pairs are not validated.
/// Errors     Exhausted memory is raised as the out-of-memory TovError, not as std::bad_alloc. Lengths
///            and positions out of range raise the standard strings' own errors.
#pragma once

#include <tovutil/tovalloc.h>

#include <cstddef>
#include <iosfwd>
#include <limits>
#include <new>
#include <string>

/// A code unit, so that u"text" is a text.
using TovUChar = char16_t;

/// Takes the memory of strings from TovAllocator. Stateless: all instances are equal.
template <class T>
class TovStringAllocator {
public:
    using value_type = T;

    TovStringAllocator() noexcept = default;
    template <class U>
    TovStringAllocator(const TovStringAllocator<U> &) noexcept {} // rebinding, as allocators do

    T *allocate(std::size_t count) {
        if (count > std::numeric_limits<std::size_t>::max() / sizeof(T))
            throw std::bad_array_new_length();
        return static_cast<T *>(TovAllocator::allocate(count * sizeof(T)));
    }
    void deallocate(T *block, std::size_t count) noexcept {
        TovAllocator::deallocate(block, count * sizeof(T));
    }

    template <class U>
    bool operator==(const TovStringAllocator<U> &) const noexcept {
        return true;
    }
};

using TovString = std::basic_string<char, std::char_traits<char>, TovStringAllocator<char>>;
using TovUString = std::basic_string<TovUChar, std::char_traits<TovUChar>, TovStringAllocator<TovUChar>>;

/// Writes the text up to its first NUL, with no conversion.
TOV_EXPORT std::ostream &operator<<(std::ostream &os, const TovString &text);

/// The code page that a text comes in: which of its bytes make whole characters, and which byte a unit came
/// from. The library tells only how many units it made.
#pragma once

#include "converted.h"
#include "page.h"

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

/// No character of any code page is longer, its shift bytes included: what does not convert although this
/// much is there, never will.
constexpr std::size_t c_longestCharacter = 8;

/// A stretch of a text. `shift` is what the conversion of `bytes` must begin with: SO, when the stretch
/// begins among characters of two bytes.
struct Stretch {
    std::string_view shift;
    std::string_view bytes;
};

struct Taken {
    std::size_t bytes = 0;
    Converted<TovUChar> units;
};

/// Where the bytes that don't convert lie, from the place where conversion ended.
struct Bad {
    std::size_t skipped = 0; ///< shift bytes before it
    std::size_t bytes = 0;
};

class Source {
public:
    static std::unique_ptr<Source> of(const Page &page);
    virtual ~Source() = default;

    /// Whole characters from the start of the stretch: all up to the first bad one or to one that is cut off
    /// by the end of the stretch. While more bytes are to come (not `last`) it may be fewer.
    virtual Taken take(Stretch stretch, bool last) const = 0;

    /// The bytes before the character whose first unit is `index`, in a stretch that converts.
    virtual std::size_t bytesBefore(Stretch stretch, std::size_t index) const = 0;

    /// The bad bytes that a stretch begins with.
    virtual Bad badBytes(Stretch stretch) const = 0;

    /// The shift of what follows the stretch.
    virtual std::string_view shiftAfter(Stretch stretch) const = 0;
};

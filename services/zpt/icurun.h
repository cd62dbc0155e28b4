/// Conversion of one stretch of text by ICU, in either direction.
#pragma once

#include <unicode/ucnv.h>

#include <cstddef>
#include <cstdint>

namespace zpt {

/// How far a conversion came.
struct Progress {
    std::size_t consumed = 0; ///< elements of the source that are wholly converted
    std::size_t written = 0;  ///< elements of the target
};

/// What ended a conversion.
enum class End : std::uint8_t { Source, BadSource, TargetFull };

struct Stretch {
    Progress progress;
    End end = End::Source;
};

/// Bytes of the code page to 16-bit units.
struct ToUnits {
    using Source = char;
    using Target = char16_t;
    static void reset(UConverter *icu) { ucnv_resetToUnicode(icu); }
    static void convert(UConverter *icu, Target **to, const Target *toEnd, const Source **from,
                        const Source *fromEnd, bool last, UErrorCode *status) {
        ucnv_toUnicode(icu, to, toEnd, from, fromEnd, nullptr, last, status);
    }
    static std::int32_t pending(UConverter *icu, UErrorCode *status) {
        return ucnv_toUCountPending(icu, status);
    }
};

/// 16-bit units to bytes of the code page.
struct FromUnits {
    using Source = char16_t;
    using Target = char;
    static void reset(UConverter *icu) { ucnv_resetFromUnicode(icu); }
    static void convert(UConverter *icu, Target **to, const Target *toEnd, const Source **from,
                        const Source *fromEnd, bool last, UErrorCode *status) {
        ucnv_fromUnicode(icu, to, toEnd, from, fromEnd, nullptr, last, status);
    }
    static std::int32_t pending(UConverter *icu, UErrorCode *status) {
        return ucnv_fromUCountPending(icu, status);
    }
};

/// Converts [source, source + count) from the initial state into at most `room` elements.
///
/// With `last`, what is there is all there is: a sequence that is cut at the end is bad source, and bytes
/// end in the initial state. Without it the cut sequence is left unconsumed. In every case whole
/// characters are written, and bytes end in the initial state, also before a bad unit and when the room
/// is full.
template <class Direction>
Stretch convertStretch(UConverter *icu, const typename Direction::Source *source, std::size_t count,
                       typename Direction::Target *target, std::size_t room, bool last);

extern template Stretch convertStretch<ToUnits>(UConverter *, const char *, std::size_t, char16_t *,
                                                std::size_t, bool);
extern template Stretch convertStretch<FromUnits>(UConverter *, const char16_t *, std::size_t, char *,
                                                  std::size_t, bool);

} // namespace zpt

// ICU tells neither where a bad character begins nor whether a full target ends with a whole one. So a
// pass that ends early is made again over a shorter source, until the whole of it fits and is good:
// that pass also brings a stateful page back to its initial state.
#include <services/zpt/icurun.h>

#include <services/zpt/utf16.h>

#include <algorithm>
#include <type_traits>

namespace zpt {

namespace {

// ICU refuses longer arrays, of bytes and of units.
template <class Element>
constexpr std::size_t c_most = 0x7FFFFFFF / sizeof(Element);

struct Pass {
    Progress progress;
    UErrorCode status;
};

template <class Direction>
Pass onePass(UConverter *icu, const typename Direction::Source *source, std::size_t count,
             typename Direction::Target *target, std::size_t room, bool last) {
    UErrorCode status = U_ZERO_ERROR;
    const auto *from = source;
    auto *to = target;
    Direction::reset(icu);
    Direction::convert(icu, &to, target + room, &from, source + count, last, &status);
    return {{static_cast<std::size_t>(from - source), static_cast<std::size_t>(to - target)}, status};
}

template <class Direction>
std::size_t pendingIn(UConverter *icu) {
    UErrorCode status = U_ZERO_ERROR;
    return static_cast<std::size_t>(Direction::pending(icu, &status));
}

// What came before bad bytes is right as it stands. Bytes for what came before bad units lack the way
// back to the initial state.
template <class Direction>
constexpr bool c_standsBeforeError = std::is_same_v<Direction, ToUnits>;

// Some converters write the two units of a pair one at a time, and so end a full target with the first.
std::size_t withoutHalfPair(const char16_t *target, std::size_t written) {
    return written != 0 && isLeadSurrogate(target[written - 1]) ? written - 1 : written;
}
std::size_t withoutHalfPair(const char *, std::size_t written) { return written; }

} // namespace

template <class Direction>
Stretch convertStretch(UConverter *icu, const typename Direction::Source *source, std::size_t count,
                       typename Direction::Target *target, std::size_t room, bool last) {
    const std::size_t usedRoom = std::min(room, c_most<typename Direction::Target>);
    std::size_t length = std::min(count, c_most<typename Direction::Source>);
    const bool tooLong = length < count; // ends like a full target, for the state can't be carried on
    bool flush = last || tooLong;
    End end = tooLong ? End::TargetFull : End::Source;
    const auto stopped = [&](Progress at) {
        if (end == End::TargetFull)
            at.written = withoutHalfPair(target, at.written);
        return Stretch{at, end};
    };
    while (length != 0) {
        const auto [at, status] = onePass<Direction>(icu, source, length, target, usedRoom, flush);
        if (U_SUCCESS(status))
            return stopped({at.consumed - (flush ? 0 : pendingIn<Direction>(icu)), at.written});
        if (status == U_BUFFER_OVERFLOW_ERROR) {
            end = End::TargetFull;
            length = at.consumed < length ? at.consumed : length - 1;
        } else {
            if (end == End::Source)
                end = End::BadSource;
            if (c_standsBeforeError<Direction>)
                return stopped(at);
            length = std::clamp<std::size_t>(at.consumed, 1, length) - 1;
        }
        flush = true;
    }
    return {{}, end};
}

template Stretch convertStretch<ToUnits>(UConverter *, const char *, std::size_t, char16_t *, std::size_t,
                                         bool);
template Stretch convertStretch<FromUnits>(UConverter *, const char16_t *, std::size_t, char *, std::size_t,
                                           bool);

} // namespace zpt

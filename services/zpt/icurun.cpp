// ICU tells neither where a bad character begins nor whether a full target ends with a whole one. So a
// pass that ends early is made again over a shorter source, until the whole of it fits and is good:
// that pass also brings a stateful page back to its initial state.
#include <services/zpt/icurun.h>

#include <algorithm>

namespace zpt {

namespace {

constexpr std::size_t c_mostElements = 0x3FFFFFFF; // ICU refuses longer arrays

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
constexpr bool standsBeforeError(const ToUnits *) { return true; }
constexpr bool standsBeforeError(const FromUnits *) { return false; }

} // namespace

template <class Direction>
Stretch convertStretch(UConverter *icu, const typename Direction::Source *source, std::size_t count,
                       typename Direction::Target *target, std::size_t room, bool last) {
    const std::size_t usedRoom = std::min(room, c_mostElements);
    std::size_t length = std::min(count, c_mostElements);
    End end = End::Source;
    last = last && length == count;
    while (length != 0) {
        const Pass pass = onePass<Direction>(icu, source, length, target, usedRoom, last);
        const std::size_t read = pass.progress.consumed;
        if (U_SUCCESS(pass.status))
            return {{read - (last ? 0 : pendingIn<Direction>(icu)), pass.progress.written}, end};
        if (pass.status == U_BUFFER_OVERFLOW_ERROR) {
            end = End::TargetFull;
            length = read < length ? read : length - 1;
        } else {
            if (end == End::Source)
                end = End::BadSource;
            if (standsBeforeError(static_cast<const Direction *>(nullptr)))
                return {pass.progress, end};
            length = std::clamp<std::size_t>(read, 1, length) - 1;
        }
        last = true;
    }
    return {{}, end};
}

template Stretch convertStretch<ToUnits>(UConverter *, const char *, std::size_t, char16_t *, std::size_t,
                                         bool);
template Stretch convertStretch<FromUnits>(UConverter *, const char16_t *, std::size_t, char *, std::size_t,
                                           bool);

} // namespace zpt

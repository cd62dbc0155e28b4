// What TovUniString reads of its text: searches and comparisons.
#include <tovutil/tovutstr.h>

#include <tovutil/tovutstrk.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstring>

using tovdetail::bestUnitSearch;
using tovdetail::UnitPtr;

namespace {

unsigned positionOf(UnitPtr hit, UnitPtr begin, UnitPtr end) {
    return hit == end ? TovUniString::npos : static_cast<unsigned>(hit - begin);
}

// The units in front of the first 0, at most `most`. One by one, because nothing tells where the memory
// behind that 0 ends.
std::size_t lengthOf(UnitPtr text, std::size_t most) {
    std::size_t length = 0;
    while (length < most && text[length] != 0)
        ++length;
    return length;
}

int clamped(std::int64_t value) {
    return static_cast<int>(std::clamp<std::int64_t>(value, INT_MIN, INT_MAX));
}

} // namespace

const TovUChar *TovUniString::skip(const TovUChar *from, TovUChar unit) const noexcept {
    return from >= m_end ? from : bestUnitSearch().findOther(from, m_end, unit);
}

const TovUChar *TovUniString::find_first(TovUChar unit) const noexcept {
    return bestUnitSearch().findUnit(m_begin, m_end, unit);
}

const TovUChar *TovUniString::find_next(const TovUChar *from, TovUChar unit) const noexcept {
    return from >= m_end ? from : bestUnitSearch().findUnit(from, m_end, unit);
}

const TovUChar *TovUniString::find_any(const TovUChar *from, const TovUChar *set,
                                       unsigned setLength) const noexcept {
    return from >= m_end ? from : bestUnitSearch().findAny(from, m_end, set, setLength);
}

const TovUChar *TovUniString::find_any(const TovUChar *from, TovUChar a, TovUChar b) const noexcept {
    const TovUChar set[] = {a, b};
    return find_any(from, set, 2);
}

const TovUChar *TovUniString::find_any(const TovUChar *from, TovUChar a, TovUChar b,
                                       TovUChar c) const noexcept {
    const TovUChar set[] = {a, b, c};
    return find_any(from, set, 3);
}

unsigned TovUniString::find(const TovUChar *pattern, unsigned position,
                            unsigned patternLength) const noexcept {
    if (position >= length())
        return npos;
    const UnitPtr from = m_begin + position;
    if (patternLength == 0 || *pattern == 0)
        return positionOf(bestUnitSearch().findUnit(from, m_end, *pattern), m_begin, m_end);
    // One unit more than there is to match tells that a pattern is too long.
    const auto most = std::min<std::size_t>(patternLength, std::size_t{length() - position} + 1);
    const std::size_t n = lengthOf(pattern, most);
    return positionOf(bestUnitSearch().findPattern(from, m_end, pattern, n), m_begin, m_end);
}

unsigned TovUniString::find_first_of(TovUChar unit, unsigned position) const noexcept {
    if (position >= length())
        return npos;
    return positionOf(bestUnitSearch().findUnit(m_begin + position, m_end, unit), m_begin, m_end);
}

unsigned TovUniString::find_first_of(const TovUChar *set, unsigned position) const noexcept {
    if (position >= length() || !set)
        return npos;
    const std::size_t n = lengthOf(set, SIZE_MAX);
    return positionOf(bestUnitSearch().findAny(m_begin + position, m_end, set, n), m_begin, m_end);
}

unsigned TovUniString::find_first_not_of(TovUChar unit, unsigned position) const noexcept {
    if (position >= length())
        return npos;
    return positionOf(bestUnitSearch().findOther(m_begin + position, m_end, unit), m_begin, m_end);
}

unsigned TovUniString::find_last_of(TovUChar unit, unsigned position) const noexcept {
    const UnitPtr behind = position < length() ? m_begin + position + 1 : m_end;
    return positionOf(bestUnitSearch().findLastUnit(m_begin, behind, unit), m_begin, behind);
}

unsigned TovUniString::find_last_not_of(TovUChar unit, unsigned position) const noexcept {
    const UnitPtr behind = position < length() ? m_begin + position + 1 : m_end;
    return positionOf(bestUnitSearch().findLastOther(m_begin, behind, unit), m_begin, behind);
}

int TovUniString::compare(const TovUniString &other) const noexcept {
    const std::size_t same =
        bestUnitSearch().firstDifference(m_begin, other.m_begin, std::min(length(), other.length()));
    // Asked again, rather than kept over the call.
    const bool ownLeft = same < length(), othersLeft = same < other.length();
    if (ownLeft && othersLeft)
        return m_begin[same] > other.m_begin[same] ? 1 : -1;
    return ownLeft - othersLeft;
}

int TovUniString::fastCompare(const TovUniString &other) const noexcept {
    const std::int64_t own = length(), others = other.length();
    if (own != others || own == 0)
        return clamped(own - others);
    const int last = m_end[-1] - other.m_end[-1];
    return last != 0 ? last
                     : std::memcmp(m_begin, other.m_begin, static_cast<std::size_t>(own) * sizeof *m_begin);
}

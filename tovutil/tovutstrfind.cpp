// The string class's search and comparison.
#include <tovutil/tovutstr.h>

#include <algorithm>
#include <cstring>
#include <string_view>

namespace {

template <class Test>
const TovUChar *findIf(const TovUChar *from, const TovUChar *end, Test test) {
    return from < end ? std::find_if(from, end, test) : from;
}

} // namespace

const TovUChar *TovUniString::skip(const TovUChar *from, TovUChar unit) const noexcept {
    return findIf(from, m_end, [unit](TovUChar u) { return u != unit; });
}

const TovUChar *TovUniString::find_first(TovUChar unit) const noexcept { return find_next(m_begin, unit); }

const TovUChar *TovUniString::find_next(const TovUChar *from, TovUChar unit) const noexcept {
    return findIf(from, m_end, [unit](TovUChar u) { return u == unit; });
}

const TovUChar *TovUniString::find_any(const TovUChar *from, const TovUChar *set,
                                       unsigned setLength) const noexcept {
    const std::u16string_view units(set, setLength);
    return findIf(from, m_end, [units](TovUChar u) { return units.find(u) != units.npos; });
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
    const std::size_t most = std::min(patternLength, length() - position + 1);
    std::size_t count = 1;
    while (pattern[0] != 0 && count < most && pattern[count] != 0)
        ++count;
    const std::size_t at = view().find(pattern, position, count);
    return at == std::u16string_view::npos ? npos : static_cast<unsigned>(at);
}

namespace {

unsigned indexOf(std::size_t at) {
    return at == std::u16string_view::npos ? TovUniString::npos : static_cast<unsigned>(at);
}

} // namespace

unsigned TovUniString::find_first_of(TovUChar unit, unsigned position) const noexcept {
    return indexOf(view().find(unit, position));
}

unsigned TovUniString::find_first_of(const TovUChar *set, unsigned position) const noexcept {
    return set ? indexOf(view().find_first_of(set, position)) : npos;
}

unsigned TovUniString::find_first_not_of(TovUChar unit, unsigned position) const noexcept {
    return indexOf(view().find_first_not_of(unit, position));
}

unsigned TovUniString::find_last_of(TovUChar unit, unsigned position) const noexcept {
    return indexOf(view().rfind(unit, position));
}

unsigned TovUniString::find_last_not_of(TovUChar unit, unsigned position) const noexcept {
    return indexOf(view().find_last_not_of(unit, position));
}

int TovUniString::compare(const TovUniString &other) const noexcept {
    const int order = view().compare(other.view());
    return (order > 0) - (order < 0);
}

int TovUniString::fastCompare(const TovUniString &other) const noexcept {
    if (length() != other.length())
        return length() < other.length() ? -1 : 1;
    if (empty())
        return 0;
    const int last = m_end[-1] - other.m_end[-1];
    return last != 0 ? last : std::memcmp(m_begin, other.m_begin, length() * sizeof(TovUChar));
}

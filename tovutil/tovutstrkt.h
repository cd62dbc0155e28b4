/// Internal: the searches of UnitSearch, written once over a vector.
///
/// A row's file says in TOV_UNIT_TARGET what its code is compiled for, includes this, and makes its
/// functions by unitSearchOf<Vector>. All is in an unnamed namespace, because it is other code in each file.
///
/// A vector has so many `units`, is loaded from any address, and compares to `Lanes`. Their `bits` are
/// `bitsPerUnit` for each unit, the first unit's lowest; `oneEach` has one bit of each, and `all` is a vector
/// that is equal everywhere. Texts that are shorter than the vector are read by its `Half`, or by loads of
/// the `part` that there is.
#pragma once

#include <tovutil/tovutstrk.h>

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>
#if defined(__x86_64__)
#include <immintrin.h>
#endif

#ifndef TOV_UNIT_TARGET
#define TOV_UNIT_TARGET
#endif
#define TOV_UNIT_INLINE TOV_UNIT_TARGET [[gnu::always_inline]] inline

namespace tovdetail {

namespace {

#if defined(__x86_64__)
/// 8, 4, 2 or 1 units in a register of SSE2.
template <std::size_t count>
struct Sse2Vector {
    using Half = Sse2Vector<count / 2>;
    using Lanes = __m128i;
    using Bits = std::uint32_t;
    static constexpr std::size_t units = count;
    static constexpr std::size_t mostCompared = 16;
    static constexpr int bitsPerUnit = 2;
    static constexpr Bits all = (Bits{1} << bitsPerUnit * count) - 1;
    static constexpr Bits oneEach = 0x5555;

    TOV_UNIT_INLINE static __m128i load(UnitPtr from) {
        if constexpr (count == 8)
            return _mm_loadu_si128(reinterpret_cast<const __m128i *>(from));
        std::int64_t word = 0;
        std::memcpy(&word, from, std::min(sizeof word, count * sizeof *from));
        return _mm_cvtsi64_si128(word);
    }
    TOV_UNIT_INLINE static __m128i splat(TovUChar unit) { return _mm_set1_epi16(static_cast<short>(unit)); }
    TOV_UNIT_INLINE static Lanes equal(__m128i a, __m128i b) { return _mm_cmpeq_epi16(a, b); }
    TOV_UNIT_INLINE static Lanes either(Lanes a, Lanes b) { return _mm_or_si128(a, b); }
    TOV_UNIT_INLINE static Lanes both(Lanes a, Lanes b) { return _mm_and_si128(a, b); }
    TOV_UNIT_INLINE static Bits bits(Lanes lanes) {
        return static_cast<Bits>(_mm_movemask_epi8(lanes)) & all;
    }
};
#endif

// Tests -----------------------------------------------------------------------------------------------

// A test says by `lanes` which units of a vector are hits, or which are none if it is `inverted`, and by
// `ends` whether the search ends with a hit.

struct IsUnit {
    static constexpr bool inverted = false;
    TovUChar unit;

    template <class V, class... Part>
    TOV_UNIT_INLINE auto lanes(UnitPtr at, Part... part) const {
        return V::equal(V::load(at, part...), V::splat(unit));
    }
    static constexpr bool ends(UnitPtr) { return true; }
};

struct IsOther : IsUnit {
    static constexpr bool inverted = true;
};

template <std::size_t count>
struct IsOneOf {
    static constexpr bool inverted = false;
    TovUChar units[count];

    TOV_UNIT_INLINE explicit IsOneOf(UnitPtr set) { std::memcpy(units, set, sizeof units); }

    template <class V, class... Part>
    TOV_UNIT_INLINE auto lanes(UnitPtr at, Part... part) const {
        const auto text = V::load(at, part...);
        auto found = V::equal(text, V::splat(units[0]));
        for (std::size_t i = 1; i < count; ++i)
            found = V::either(found, V::equal(text, V::splat(units[i])));
        return found;
    }
    static constexpr bool ends(UnitPtr) { return true; }
};

struct IsInSet {
    static constexpr bool inverted = false;
    UnitPtr set;
    UnitPtr setEnd;

    template <class V, class... Part>
    TOV_UNIT_INLINE auto lanes(UnitPtr at, Part... part) const {
        const auto text = V::load(at, part...);
        auto found = V::equal(text, V::splat(*set));
        for (UnitPtr unit = set + 1; unit != setEnd; ++unit)
            found = V::either(found, V::equal(text, V::splat(*unit)));
        return found;
    }
    static constexpr bool ends(UnitPtr) { return true; }
};

struct Differs {
    static constexpr bool inverted = true;
    UnitPtr one;
    UnitPtr other;

    template <class V, class... Part>
    TOV_UNIT_INLINE auto lanes(UnitPtr at, Part... part) const {
        return V::equal(V::load(at, part...), V::load(other + (at - one), part...));
    }
    static constexpr bool ends(UnitPtr) { return true; }
};

// Scans -----------------------------------------------------------------------------------------------

template <class V, class Test, class... Part>
TOV_UNIT_INLINE typename V::Bits hits(UnitPtr at, const Test &test, Part... part) {
    typename V::Bits found = V::bits(test.template lanes<V>(at, part...)) ^ (Test::inverted ? V::all : 0);
    if constexpr (sizeof...(Part) != 0)
        found &= (... & part);
    return found;
}

template <class V, class Test>
TOV_UNIT_INLINE bool anyHitInFour(UnitPtr at, const Test &test) {
    const auto a = test.template lanes<V>(at), b = test.template lanes<V>(at + V::units);
    const auto c = test.template lanes<V>(at + 2 * V::units), d = test.template lanes<V>(at + 3 * V::units);
    if constexpr (Test::inverted)
        return V::bits(V::both(V::both(a, b), V::both(c, d))) != V::all;
    else
        return V::bits(V::either(V::either(a, b), V::either(c, d))) != 0;
}

// The first hit in a vector that ends the search, or null.
template <class V, class Test, class... Part>
TOV_UNIT_INLINE UnitPtr firstIn(UnitPtr at, Test &test, Part... part) {
    auto found = hits<V>(at, test, part...);
    if (found == 0)
        return nullptr;
    for (found &= V::oneEach; found != 0; found &= found - 1) {
        const UnitPtr hit = at + std::countr_zero(found) / V::bitsPerUnit;
        if (test.ends(hit))
            return hit;
    }
    return nullptr;
}

// The last hit in a vector, or null.
template <class V, class Test, class... Part>
TOV_UNIT_INLINE UnitPtr lastIn(UnitPtr at, const Test &test, Part... part) {
    const auto found = hits<V>(at, test, part...);
    return found == 0 ? nullptr : at + (std::bit_width(found) - 1) / V::bitsPerUnit;
}

// Fewer units than the vector has.
template <class V, class Test>
TOV_UNIT_INLINE UnitPtr firstInShort(UnitPtr begin, UnitPtr end, Test &test) {
    const auto n = static_cast<std::size_t>(end - begin);
    if constexpr (requires { V::part(n); }) {
        return firstIn<V>(begin, test, V::part(n));
    } else if constexpr (V::units > 1) {
        using Half = typename V::Half;
        if (n < Half::units)
            return firstInShort<Half>(begin, end, test);
        const UnitPtr hit = firstIn<Half>(begin, test);
        return hit ? hit : firstIn<Half>(end - Half::units, test);
    } else {
        return nullptr;
    }
}

template <class V, class Test>
TOV_UNIT_INLINE UnitPtr lastInShort(UnitPtr begin, UnitPtr end, const Test &test) {
    const auto n = static_cast<std::size_t>(end - begin);
    if constexpr (requires { V::part(n); }) {
        return lastIn<V>(begin, test, V::part(n));
    } else if constexpr (V::units > 1) {
        using Half = typename V::Half;
        if (n < Half::units)
            return lastInShort<Half>(begin, end, test);
        const UnitPtr hit = lastIn<Half>(end - Half::units, test);
        return hit ? hit : lastIn<Half>(begin, test);
    } else {
        return nullptr;
    }
}

// Loads in long texts are aligned, because each that spans two cache lines costs two. Long ones are called
// unlikely, so that the code for the others is in one piece.
template <class V>
constexpr std::size_t longText = 8 * V::units;

template <class V>
TOV_UNIT_INLINE std::size_t unitsBehindAlignment(UnitPtr at) {
    return reinterpret_cast<std::uintptr_t>(at) / sizeof *at % V::units;
}

// The first hit that ends the search, or null. What is left behind the last whole vector is read by one
// that ends with the text.
template <class V, class Test>
TOV_UNIT_INLINE UnitPtr first(UnitPtr begin, UnitPtr end, Test &test) {
    const auto n = static_cast<std::size_t>(end - begin);
    if (n < V::units)
        return firstInShort<V>(begin, end, test);
    if (const UnitPtr hit = firstIn<V>(begin, test))
        return hit;
    UnitPtr at = begin + V::units;
    if (n >= longText<V>) [[unlikely]] {
        at -= unitsBehindAlignment<V>(at);
        for (; static_cast<std::size_t>(end - at) >= 4 * V::units; at += 4 * V::units) {
            if (!anyHitInFour<V>(at, test)) [[likely]]
                continue;
            for (std::size_t i = 0; i < 4; ++i)
                if (const UnitPtr hit = firstIn<V>(at + i * V::units, test))
                    return hit;
        }
    }
    for (; static_cast<std::size_t>(end - at) > V::units; at += V::units)
        if (const UnitPtr hit = firstIn<V>(at, test))
            return hit;
    return at == end ? nullptr : firstIn<V>(end - V::units, test);
}

template <class V, class Test>
TOV_UNIT_INLINE UnitPtr last(UnitPtr begin, UnitPtr end, const Test &test) {
    const auto n = static_cast<std::size_t>(end - begin);
    if (n < V::units)
        return lastInShort<V>(begin, end, test);
    if (const UnitPtr hit = lastIn<V>(end - V::units, test))
        return hit;
    UnitPtr behind = end - V::units;
    if (n >= longText<V>) [[unlikely]] {
        behind += (V::units - unitsBehindAlignment<V>(behind)) % V::units;
        for (; static_cast<std::size_t>(behind - begin) >= 4 * V::units; behind -= 4 * V::units) {
            if (!anyHitInFour<V>(behind - 4 * V::units, test)) [[likely]]
                continue;
            for (std::size_t i = 1; i <= 4; ++i)
                if (const UnitPtr hit = lastIn<V>(behind - i * V::units, test))
                    return hit;
        }
    }
    for (; static_cast<std::size_t>(behind - begin) > V::units; behind -= V::units)
        if (const UnitPtr hit = lastIn<V>(behind - V::units, test))
            return hit;
    return behind == begin ? nullptr : lastIn<V>(begin, test);
}

// Searches --------------------------------------------------------------------------------------------

TOV_UNIT_INLINE UnitPtr orEnd(UnitPtr hit, UnitPtr end) { return hit ? hit : end; }

template <class V>
TOV_UNIT_TARGET UnitPtr findUnit(UnitPtr begin, UnitPtr end, TovUChar unit) noexcept {
    IsUnit test{unit};
    return orEnd(first<V>(begin, end, test), end);
}

template <class V>
TOV_UNIT_TARGET UnitPtr findOther(UnitPtr begin, UnitPtr end, TovUChar unit) noexcept {
    IsOther test{{unit}};
    return orEnd(first<V>(begin, end, test), end);
}

template <class V>
TOV_UNIT_TARGET UnitPtr findLastUnit(UnitPtr begin, UnitPtr end, TovUChar unit) noexcept {
    return orEnd(last<V>(begin, end, IsUnit{unit}), end);
}

template <class V>
TOV_UNIT_TARGET UnitPtr findLastOther(UnitPtr begin, UnitPtr end, TovUChar unit) noexcept {
    return orEnd(last<V>(begin, end, IsOther{{unit}}), end);
}

template <class V>
TOV_UNIT_TARGET std::size_t firstDifference(UnitPtr one, UnitPtr other, std::size_t n) noexcept {
    Differs test{one, other};
    return static_cast<std::size_t>(orEnd(first<V>(one, one + n, test), one + n) - one);
}

template <class V, std::size_t count>
TOV_UNIT_TARGET UnitPtr findOneOf(UnitPtr begin, UnitPtr end, UnitPtr set) noexcept {
    IsOneOf<count> test(set);
    return orEnd(first<V>(begin, end, test), end);
}

template <class V>
TOV_UNIT_TARGET UnitPtr findInSet(UnitPtr begin, UnitPtr end, UnitPtr set, std::size_t n) noexcept {
    IsInSet test{set, set + n};
    return orEnd(first<V>(begin, end, test), end);
}

// A table costs as much as to look for some units in the set, and the hit is often among these.
template <class V>
TOV_UNIT_TARGET UnitPtr findInLargeSet(UnitPtr begin, UnitPtr end, UnitPtr set, std::size_t n) noexcept {
    for (std::size_t i = 0; i < V::units; ++i, ++begin)
        if (begin == end || findUnit<V>(set, set + n, *begin) != set + n)
            return begin;
    return findAnyByTable(begin, end, set, n);
}

template <class V>
TOV_UNIT_TARGET UnitPtr findAny(UnitPtr begin, UnitPtr end, UnitPtr set, std::size_t n) noexcept {
    switch (n) {
    case 0:
        return end;
    case 1:
        return findUnit<V>(begin, end, *set);
    case 2:
        return findOneOf<V, 2>(begin, end, set);
    case 3:
        return findOneOf<V, 3>(begin, end, set);
    case 4:
        return findOneOf<V, 4>(begin, end, set);
    default:
        return n <= V::mostCompared ? findInSet<V>(begin, end, set, n)
                                    : findInLargeSet<V>(begin, end, set, n);
    }
}

// A hit is a place where both ends of the pattern stand. Those that are no match cost a comparison each,
// and a hostile text is full of them, so the search is given up when they have cost more than a linear one.
template <class V>
struct BeginsMatch {
    static constexpr bool inverted = false;
    UnitPtr begin;
    UnitPtr pattern;
    std::size_t lastIndex;
    TovUChar firstUnit = pattern[0];
    TovUChar lastUnit = pattern[lastIndex];
    std::size_t spent = 0;
    bool givenUp = false;

    template <class W, class... Part>
    TOV_UNIT_INLINE auto lanes(UnitPtr at, Part... part) const {
        return W::both(W::equal(W::load(at, part...), W::splat(firstUnit)),
                       W::equal(W::load(at + lastIndex, part...), W::splat(lastUnit)));
    }

    // Costs are counted in units that are compared; so is what a unit of text costs the linear search.
    TOV_UNIT_INLINE bool ends(UnitPtr hit) {
        constexpr std::size_t perHit = 64, perUnit = 32, free = 4096;
        const std::size_t middle = lastIndex < 2 ? 0 : lastIndex - 1;
        const std::size_t same = firstDifference<V>(hit + 1, pattern + 1, middle);
        if (same == middle)
            return true;
        spent += perHit + same;
        givenUp = spent > free + perUnit * (lastIndex + static_cast<std::size_t>(hit - begin));
        return givenUp;
    }
};

template <class V>
TOV_UNIT_TARGET UnitPtr findPattern(UnitPtr begin, UnitPtr end, UnitPtr pattern, std::size_t n) noexcept {
    if (n == 1)
        return findUnit<V>(begin, end, *pattern);
    if (n > static_cast<std::size_t>(end - begin))
        return end;
    BeginsMatch<V> test{begin, pattern, n - 1};
    const UnitPtr hit = first<V>(begin, end - (n - 1), test);
    return test.givenUp ? findPatternLinear(hit + 1, end, pattern, n) : orEnd(hit, end);
}

template <class V>
constexpr UnitSearch unitSearchOf{findUnit<V>, findOther<V>,   findLastUnit<V>,   findLastOther<V>,
                                  findAny<V>,  findPattern<V>, firstDifference<V>};

} // namespace

} // namespace tovdetail

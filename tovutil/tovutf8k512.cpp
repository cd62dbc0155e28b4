// UTF kernels for AVX-512 with VBMI2. A block is 64 bytes of source. Every result is computed in the place
// of the last byte or unit that it comes from; then a compress instruction squeezes out the places that
// have none. Masked loads and stores do the text's end like its middle, so that a short text takes one
// round, and nothing behind the result is written.
#include <tovutil/tovutf8kt.h>

#if defined(__x86_64__)

// g++ 12 takes the undefined vectors in its own header for a use of uninitialised ones.
#if !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif

#include <bit>
#include <immintrin.h>

#define TOV_AVX512 [[gnu::target("avx512f,avx512bw,avx512vl,avx512vbmi,avx512vbmi2,bmi,bmi2,popcnt")]]

namespace tovdetail {

bool utfAvx512Usable() noexcept {
    __builtin_cpu_init();
    return __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
           __builtin_cpu_supports("avx512vl") && __builtin_cpu_supports("avx512vbmi") &&
           __builtin_cpu_supports("avx512vbmi2") && __builtin_cpu_supports("bmi2");
}

namespace {

constexpr std::size_t blockBytes = 64;
constexpr std::size_t blockUnits = 32;

struct alignas(64) Positions : std::array<unsigned char, blockBytes> {
    consteval Positions() : array() {
        for (std::size_t i = 0; i < size(); ++i)
            (*this)[i] = static_cast<unsigned char>(i);
    }
};
constexpr Positions s_positions;

TOV_AVX512 inline std::uint64_t lowBits(std::size_t count) {
    return _bzhi_u64(~std::uint64_t{0}, static_cast<unsigned>(count));
}
TOV_AVX512 inline __mmask32 low32(std::uint64_t mask) { return static_cast<__mmask32>(mask); }
TOV_AVX512 inline __mmask32 high32(std::uint64_t mask) { return static_cast<__mmask32>(mask >> 32); }

TOV_AVX512 inline __m512i allBytes(unsigned value) { return _mm512_set1_epi8(static_cast<char>(value)); }
TOV_AVX512 inline __m512i allUnits(unsigned value) { return _mm512_set1_epi16(static_cast<short>(value)); }
TOV_AVX512 inline std::uint64_t bytesFrom(__m512i bytes, unsigned value) {
    return _mm512_cmpge_epu8_mask(bytes, allBytes(value));
}

using Layout = Utf8Layout<std::uint64_t>;

TOV_AVX512 inline Layout layoutOf(__m512i bytes, std::uint64_t nonAscii) {
    const std::uint64_t lead2 = bytesFrom(bytes, 0xC0);
    return {nonAscii & ~lead2, lead2, bytesFrom(bytes, 0xE0), bytesFrom(bytes, 0xF0)};
}

// Leads of four bytes or more whose value is no surrogate pair: they lead more bytes, or the value is
// above 0x10FFFF or below 0x10000.
TOV_AVX512 inline std::uint64_t unpaired(__m512i bytes) {
    const std::uint64_t nextFrom90 = bytesFrom(bytes, 0x90) >> 1;
    const std::uint64_t f0 = _mm512_cmpeq_epi8_mask(bytes, allBytes(0xF0));
    const std::uint64_t f4 = _mm512_cmpeq_epi8_mask(bytes, allBytes(0xF4));
    return bytesFrom(bytes, 0xF5) | (f4 & nextFrom90) | (f0 & ~nextFrom90);
}

// The number of bytes in front of the first character that is not plain.
TOV_AVX512 inline std::size_t plainBytes(__m512i bytes, const Layout &layout) {
    const std::uint64_t odd = layout.odd() | (layout.lead4 != 0 ? unpaired(bytes) : 0);
    return static_cast<std::size_t>(std::countr_zero(odd));
}

// Makes up to 32 units: the sum of the bytes at `last` and of up to two in front of each.
TOV_AVX512 inline __m512i unitsAt(__m256i last, __m512i bytes, __mmask32 fromTwo, __mmask32 fromThree) {
    const __m512i place = _mm512_cvtepu8_epi16(last);
    const __m512i places =
        _mm512_sub_epi16(_mm512_or_si512(place, _mm512_slli_epi16(place, 8)), allUnits(0x0100));
    const __m512i pair = _mm512_and_si512(_mm512_permutexvar_epi8(places, bytes), allUnits(0x3F7F));
    const __m512i single = _mm512_and_si512(pair, allUnits(0x007F));
    const __m512i units = _mm512_mask_maddubs_epi16(single, fromTwo, pair, allUnits(0x4001));
    const __m512i third = _mm512_permutexvar_epi8(_mm512_sub_epi16(places, allUnits(2)), bytes);
    return _mm512_or_si512(units, _mm512_maskz_slli_epi16(fromThree, third, 12));
}

// Makes surrogates of what unitsAt() gives for the third and the fourth byte of four.
TOV_AVX512 inline __m512i withPairs(__m512i units, __mmask32 high, __mmask32 low) {
    const __m512i upper = _mm512_srli_epi16(units, 4);
    const __m512i lower = _mm512_and_si512(units, allUnits(0x03FF));
    units = _mm512_mask_add_epi16(units, high, upper, allUnits(0xD800 - (0x10000 >> 10)));
    return _mm512_mask_add_epi16(units, low, lower, allUnits(0xDC00));
}

TOV_AVX512 inline void widen(__m512i bytes, std::uint64_t have, TovUChar *target) {
    _mm512_mask_storeu_epi16(target, low32(have), _mm512_cvtepu8_epi16(_mm512_castsi512_si256(bytes)));
    if (high32(have) != 0)
        _mm512_mask_storeu_epi16(target + 32, high32(have),
                                 _mm512_cvtepu8_epi16(_mm512_extracti64x4_epi64(bytes, 1)));
}

// Converts the first `count` bytes, all plain, and gives the number of units.
TOV_AVX512 inline std::size_t decode(__m512i bytes, const Layout &layout, std::size_t count,
                                     TovUChar *target) {
    const std::uint64_t emits = layout.emits(static_cast<unsigned>(count));
    const std::size_t units = static_cast<std::size_t>(std::popcount(emits));
    const __m512i places = _mm512_maskz_compress_epi8(emits, _mm512_load_si512(s_positions.data()));
    // In the results' order: bit i is the i-th unit.
    const std::uint64_t have = lowBits(units);
    const std::uint64_t fromTwo = _pext_u64(layout.following, emits);
    const std::uint64_t fromThree = _pext_u64(layout.following & layout.following << 1, emits);
    const std::uint64_t high = _pext_u64(layout.lead4 << 2, emits);
    const std::uint64_t low = high << 1;

    __m512i first = unitsAt(_mm512_castsi512_si256(places), bytes, low32(fromTwo), low32(fromThree));
    if (layout.lead4 != 0)
        first = withPairs(first, low32(high), low32(low));
    _mm512_mask_storeu_epi16(target, low32(have), first);
    if (units <= 32)
        return units;
    __m512i second = unitsAt(_mm512_extracti64x4_epi64(places, 1), bytes, high32(fromTwo), high32(fromThree));
    if (layout.lead4 != 0)
        second = withPairs(second, high32(high), high32(low));
    _mm512_mask_storeu_epi16(target + 32, high32(have), second);
    return units;
}

} // namespace

TOV_AVX512 void utf8To16Avx512(Utf8To16 &run) noexcept {
    for (;;) {
        std::size_t count = std::min({blockBytes, run.left(), run.room()});
        if (count == 0)
            return;
        const std::uint64_t have = lowBits(count);
        const __m512i bytes = _mm512_maskz_loadu_epi8(have, run.source);
        std::size_t units = count;
        if (const std::uint64_t nonAscii = _mm512_movepi8_mask(bytes); nonAscii == 0) {
            widen(bytes, have, run.target);
        } else {
            const Layout layout = layoutOf(bytes, nonAscii);
            count = std::min(count, plainBytes(bytes, layout));
            if (count == 0)
                return;
            units = decode(bytes, layout, count, run.target);
        }
        run.source += count;
        run.target += units;
    }
}

namespace {

// Bytes that a result does not have are 0 and are squeezed out, but for a character's `last`, which
// counts also when it is 0. Gives the number of bytes.
TOV_AVX512 inline std::size_t storeBytes(__m512i bytes, std::uint64_t last, std::uint64_t have,
                                         unsigned char *target) {
    const std::uint64_t wanted = (_mm512_test_epi8_mask(bytes, bytes) | last) & have;
    const std::size_t count = static_cast<std::size_t>(std::popcount(wanted));
    _mm512_mask_storeu_epi8(target, lowBits(count), _mm512_maskz_compress_epi8(wanted, bytes));
    return count;
}

// The last two bytes of each unit's sequence, the first of them in the low half; 0 and the unit for
// ASCII. `lead` are the units whose sequence begins in these two.
TOV_AVX512 inline __m512i lastTwoBytes(__m512i units, __mmask32 nonAscii, __mmask32 lead) {
    const __m512i upper = _mm512_and_si512(_mm512_srli_epi16(units, 6), allUnits(0x003F));
    const __m512i lower = _mm512_and_si512(_mm512_slli_epi16(units, 8), allUnits(0x3F00));
    const __m512i two = _mm512_or_si512(_mm512_or_si512(upper, lower), allUnits(0x8080));
    const __m512i marked = _mm512_mask_add_epi16(two, lead, two, allUnits(0x0040));
    return _mm512_mask_mov_epi16(_mm512_slli_epi16(units, 8), nonAscii, marked);
}

// The four bytes of a surrogate pair come from its two units as two bytes each. This gives units whose
// lastTwoBytes() are these.
TOV_AVX512 inline __m512i splitPairs(__m512i units, __mmask32 high, __mmask32 low) {
    const __m512i before = _mm512_permutexvar_epi16(
        _mm512_sub_epi16(
            _mm512_cvtepu8_epi16(_mm256_load_si256(reinterpret_cast<const __m256i *>(s_positions.data()))),
            allUnits(1)),
        units);
    const __m512i bits = _mm512_and_si512(units, allUnits(0x03FF));
    // 0x0C00 makes the mark of two bytes that of four, and the 0x10 is what a pair adds to its value.
    const __m512i split = _mm512_mask_add_epi16(units, high, _mm512_srli_epi16(bits, 2), allUnits(0x0C10));
    const __m512i highBits = _mm512_and_si512(_mm512_slli_epi16(before, 10), allUnits(0x0C00));
    return _mm512_mask_add_epi16(split, low, bits, highBits);
}

// Converts `count` units, some of them above 0x7FF. The last is no high surrogate.
TOV_AVX512 inline std::size_t encode(__m512i units, __mmask32 nonAscii, __mmask32 from800, __mmask32 high,
                                     __mmask32 low, std::size_t count, unsigned char *target) {
    __mmask32 three = from800;
    __mmask32 lead = nonAscii & ~from800;
    if ((high | low) != 0) {
        const __mmask32 pairHigh = high & low >> 1;
        const __mmask32 pairLow = low & high << 1;
        units = splitPairs(units, pairHigh, pairLow);
        three &= ~(pairHigh | pairLow);
        lead |= pairHigh;
    }
    const __m512i lastTwo = lastTwoBytes(units, nonAscii, lead);
    const __m512i firstMark = _mm512_or_si512(_mm512_srli_epi16(units, 4), allUnits(0xE000));
    const __m512i first = _mm512_maskz_mov_epi16(three, _mm512_and_si512(firstMark, allUnits(0xEF00)));

    // Eight bytes of either vector, then eight more, so that the unpacking gives units in their order.
    const __m512i order = _mm512_setr_epi64(0, 4, 1, 5, 2, 6, 3, 7);
    const __m512i lastOrdered = _mm512_permutexvar_epi64(order, lastTwo);
    const __m512i firstOrdered = _mm512_permutexvar_epi64(order, first);
    constexpr std::uint64_t last = 0x8888888888888888;
    const std::size_t lowerCount = std::min(count, blockUnits / 2);
    const std::size_t lower =
        storeBytes(_mm512_unpacklo_epi16(firstOrdered, lastOrdered), last, lowBits(4 * lowerCount), target);
    if (lowerCount == count)
        return lower;
    return lower + storeBytes(_mm512_unpackhi_epi16(firstOrdered, lastOrdered), last,
                              lowBits(4 * (count - lowerCount)), target + lower);
}

} // namespace

TOV_AVX512 void utf16To8Avx512(Utf16To8 &run) noexcept {
    for (;;) {
        std::size_t count = std::min({blockUnits, run.left(), run.room() / 3});
        if (count == 0)
            return;
        const auto have = low32(lowBits(count));
        const __m512i units = _mm512_maskz_loadu_epi16(have, run.source);
        const __mmask32 nonAscii = _mm512_test_epi16_mask(units, allUnits(0xFF80));
        std::size_t bytes = count;
        if (nonAscii == 0) {
            _mm256_mask_storeu_epi8(run.target, have, _mm512_cvtepi16_epi8(units));
        } else if (const __mmask32 from800 = _mm512_test_epi16_mask(units, allUnits(0xF800)); from800 == 0) {
            bytes = storeBytes(lastTwoBytes(units, nonAscii, nonAscii), 0xAAAAAAAAAAAAAAAA,
                               lowBits(2 * count), run.target);
        } else {
            const __m512i kind = _mm512_and_si512(units, allUnits(0xFC00));
            const __mmask32 high = _mm512_cmpeq_epi16_mask(kind, allUnits(0xD800));
            const __mmask32 low = _mm512_cmpeq_epi16_mask(kind, allUnits(0xDC00));
            count -= high >> (count - 1) & 1; // its partner is not in the block
            if (count == 0)
                return;
            bytes = encode(units, nonAscii, from800, high, low, count, run.target);
        }
        run.source += count;
        run.target += bytes;
    }
}

} // namespace tovdetail

#endif

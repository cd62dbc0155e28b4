// UTF kernels for AVX-512 with VBMI2. A block is 64 bytes of source. Every result is computed in the place
// of the last byte or unit that it comes from; then a compress instruction squeezes out the places that
// have none. Masked loads and stores do the text's end like its middle, so that a short text takes one
// round, and nothing behind the result is written.
#include <tovutil/tovutf8kt.h>

#if defined(__x86_64__)

// g++ 12 takes the undefined vectors in its own header for a use of uninitialised ones.
#if !defined(__clang__)
#pragma GCC diagnostic ignored "-Wuninitialized"
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif

#include <bit>
#include <immintrin.h>

#define TOV_AVX512 [[gnu::target("avx512f,avx512bw,avx512vl,avx512vbmi,avx512vbmi2,bmi,bmi2,popcnt")]]
#define TOV_AVX512_INLINE TOV_AVX512 [[gnu::always_inline]] inline

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

// Blocks of UTF-8 overlap by as many bytes as it takes to know all characters that end behind them. So the
// next block need not wait until it is known where the last character of this one begins.
constexpr std::size_t overlap = 3;

struct alignas(64) Positions : std::array<unsigned char, blockBytes> {
    consteval Positions() : array() {
        for (std::size_t i = 0; i < size(); ++i)
            (*this)[i] = static_cast<unsigned char>(i);
    }
};
constexpr Positions s_positions;

TOV_AVX512_INLINE std::uint64_t lowBits(std::size_t count) {
    return _bzhi_u64(~std::uint64_t{0}, static_cast<unsigned>(count));
}
TOV_AVX512_INLINE __mmask32 low32(std::uint64_t mask) { return static_cast<__mmask32>(mask); }
TOV_AVX512_INLINE __mmask32 high32(std::uint64_t mask) { return static_cast<__mmask32>(mask >> 32); }

TOV_AVX512_INLINE __m512i allBytes(unsigned value) { return _mm512_set1_epi8(static_cast<char>(value)); }
TOV_AVX512_INLINE __m512i allUnits(unsigned value) { return _mm512_set1_epi16(static_cast<short>(value)); }
TOV_AVX512_INLINE std::uint64_t bytesFrom(__m512i bytes, unsigned value) {
    return _mm512_cmpge_epu8_mask(bytes, allBytes(value));
}

using Layout = Utf8Layout<std::uint64_t>;

TOV_AVX512_INLINE Layout layoutOf(__m512i bytes, std::uint64_t nonAscii) {
    const std::uint64_t lead2 = bytesFrom(bytes, 0xC0);
    return {nonAscii & ~lead2, lead2, bytesFrom(bytes, 0xE0), bytesFrom(bytes, 0xF0)};
}

// Leads of four bytes or more whose value is no surrogate pair: they lead more bytes, or the value is
// above 0x10FFFF or below 0x10000.
TOV_AVX512_INLINE std::uint64_t unpaired(__m512i bytes) {
    const std::uint64_t nextFrom90 = bytesFrom(bytes, 0x90) >> 1;
    const std::uint64_t f0 = _mm512_cmpeq_epi8_mask(bytes, allBytes(0xF0));
    const std::uint64_t f4 = _mm512_cmpeq_epi8_mask(bytes, allBytes(0xF4));
    return bytesFrom(bytes, 0xF5) | (f4 & nextFrom90) | (f0 & ~nextFrom90);
}

// The number of bytes in front of the first character that is not plain.
TOV_AVX512_INLINE std::size_t plainBytes(__m512i bytes, const Layout &layout) {
    const std::uint64_t odd = layout.odd() | (layout.lead4 != 0 ? unpaired(bytes) : 0);
    return static_cast<std::size_t>(std::countr_zero(odd));
}

// Where the bytes of up to 32 units are: the last one's place in the low half, the one before it in the
// high half.
TOV_AVX512_INLINE __m512i placesOf(__m256i last) {
    const __m512i place = _mm512_cvtepu8_epi16(last);
    return _mm512_sub_epi16(_mm512_or_si512(place, _mm512_slli_epi16(place, 8)), allUnits(0x0100));
}

// The sums of the last two bytes, or of the last alone.
TOV_AVX512_INLINE __m512i unitsOfTwo(__m512i bytes, __m512i places, __mmask32 fromTwo) {
    const __m512i pair = _mm512_and_si512(_mm512_permutexvar_epi8(places, bytes), allUnits(0x3F7F));
    const __m512i single = _mm512_and_si512(pair, allUnits(0x007F));
    return _mm512_mask_maddubs_epi16(single, fromTwo, pair, allUnits(0x4001));
}

// What the third byte from the end adds to them.
TOV_AVX512_INLINE __m512i thirdByte(__m512i bytes, __m512i places, __mmask32 fromThree) {
    const __m512i third = _mm512_permutexvar_epi8(_mm512_sub_epi16(places, allUnits(2)), bytes);
    return _mm512_maskz_slli_epi16(fromThree, third, 12);
}

// Makes surrogates of what the sums are for the third and the fourth byte of four.
TOV_AVX512_INLINE __m512i withPairs(__m512i units, __mmask32 high, __mmask32 low) {
    const __m512i upper = _mm512_srli_epi16(units, 4);
    const __m512i lower = _mm512_and_si512(units, allUnits(0x03FF));
    units = _mm512_mask_add_epi16(units, high, upper, allUnits(0xD800 - (0x10000 >> 10)));
    return _mm512_mask_add_epi16(units, low, lower, allUnits(0xDC00));
}

// Which units of a block come from what, in their order: bit i is the i-th unit.
struct Results {
    std::uint64_t have;
    std::uint64_t fromTwo;   // from two bytes or more
    std::uint64_t fromThree; // from three bytes or more
    std::uint64_t high, low; // at the third or the fourth byte of four

    Results upper() const { return {have >> 32, fromTwo >> 32, fromThree >> 32, high >> 32, low >> 32}; }
};

TOV_AVX512_INLINE void storeUnits(__m512i bytes, __m256i last, const Layout &layout, const Results &results,
                                  TovUChar *target) {
    const __m512i places = placesOf(last);
    __m512i units = unitsOfTwo(bytes, places, low32(results.fromTwo));
    if (layout.lead3 != 0)
        units = _mm512_or_si512(units, thirdByte(bytes, places, low32(results.fromThree)));
    if (layout.lead4 != 0)
        units = withPairs(units, low32(results.high), low32(results.low));
    _mm512_mask_storeu_epi16(target, low32(results.have), units);
}

// Converts the plain characters whose last bytes are `inside`, and gives the number of units.
TOV_AVX512_INLINE std::size_t decode(__m512i bytes, const Layout &layout, std::uint64_t inside,
                                     TovUChar *target) {
    const std::uint64_t emits = layout.emits() & inside;
    const auto units = static_cast<std::size_t>(std::popcount(emits));
    const __m512i last = _mm512_maskz_compress_epi8(emits, _mm512_load_si512(s_positions.data()));
    const Results results{lowBits(units), _pext_u64(layout.following, emits),
                          _pext_u64(layout.following & layout.following << 1, emits),
                          _pext_u64(layout.lead4 << 2, emits), _pext_u64(layout.lead4 << 3, emits)};
    storeUnits(bytes, _mm512_castsi512_si256(last), layout, results, target);
    if (units > 32)
        storeUnits(bytes, _mm512_extracti64x4_epi64(last, 1), layout, results.upper(), target + 32);
    return units;
}

TOV_AVX512_INLINE void widen(__m512i bytes, std::uint64_t have, TovUChar *target) {
    _mm512_mask_storeu_epi16(target, low32(have), _mm512_cvtepu8_epi16(_mm512_castsi512_si256(bytes)));
    if (high32(have) != 0)
        _mm512_mask_storeu_epi16(target + 32, high32(have),
                                 _mm512_cvtepu8_epi16(_mm512_extracti64x4_epi64(bytes, 1)));
}

// Whole blocks of ASCII.
TOV_AVX512_INLINE void widenBlocks(Utf8To16 &run) {
    while (run.left() >= blockBytes && run.room() >= blockBytes) {
        const __m512i bytes = _mm512_loadu_si512(run.source);
        if (_mm512_movepi8_mask(bytes) != 0)
            return;
        _mm512_storeu_si512(run.target, _mm512_cvtepu8_epi16(_mm512_castsi512_si256(bytes)));
        _mm512_storeu_si512(run.target + 32, _mm512_cvtepu8_epi16(_mm512_extracti64x4_epi64(bytes, 1)));
        run.source += blockBytes;
        run.target += blockBytes;
    }
}

// Takes a plain text that may end within a character back to that character's first byte.
inline void leaveCutCharacter(Utf8To16 &run) {
    for (unsigned distance = 1; distance <= overlap; ++distance) {
        const unsigned char byte = *(run.source - distance);
        if (byte < 0x80 || (byte >= 0xC0 && bytesFromUTF8[byte] < distance))
            return;
        if (byte >= 0xC0) {
            run.source -= distance;
            run.target -= distance == 3 ? 1 : 0; // the first half of its pair
            return;
        }
    }
}

// Overlapping blocks of plain text, behind plain text.
TOV_AVX512_INLINE void decodeBlocks(Utf8To16 &run) {
    constexpr std::size_t step = blockBytes - overlap;
    constexpr std::uint64_t inside = ~std::uint64_t{0} << overlap;
    const unsigned char *const begin = run.source;
    while (run.left() >= step && run.room() >= step) {
        const __m512i bytes = _mm512_loadu_si512(run.source - overlap);
        const Layout layout = layoutOf(bytes, _mm512_movepi8_mask(bytes));
        if (layout.lead2 == 0 || ((layout.following ^ layout.wanted()) & inside) != 0)
            break;
        // The last byte's pair is looked at in the next block.
        if (layout.lead4 != 0 && (unpaired(bytes) & ~(std::uint64_t{1} << (blockBytes - 1))) != 0)
            break;
        run.target += decode(bytes, layout, inside, run.target);
        run.source += step;
    }
    if (run.source != begin)
        leaveCutCharacter(run);
}

// One block of any length, as far as it is plain. False when that is nothing.
TOV_AVX512_INLINE bool decodeRest(Utf8To16 &run) {
    const std::size_t most = std::min({blockBytes, run.left(), run.room()});
    const __m512i bytes = _mm512_maskz_loadu_epi8(lowBits(most), run.source);
    const std::uint64_t nonAscii = _mm512_movepi8_mask(bytes);
    if (nonAscii == 0) {
        widen(bytes, lowBits(most), run.target);
        run.source += most;
        run.target += most;
        return most != 0;
    }
    const Layout layout = layoutOf(bytes, nonAscii);
    const std::size_t count = std::min(most, plainBytes(bytes, layout));
    run.target += decode(bytes, layout, lowBits(count), run.target);
    run.source += count;
    return count != 0;
}

} // namespace

TOV_AVX512 void utf8To16Avx512(Utf8To16 &given) noexcept {
    Utf8To16 run = given; // which no store of text can change
    do {
        widenBlocks(run);
        if (static_cast<std::size_t>(run.source - given.source) >= overlap)
            decodeBlocks(run);
    } while (decodeRest(run) && run.source != run.sourceEnd);
    given = run;
}

namespace {

// Bytes that a result does not have are 0 and are squeezed out, but for a character's `last`, which
// counts also when it is 0. Gives the number of bytes.
TOV_AVX512_INLINE std::size_t storeBytes(__m512i bytes, std::uint64_t last, std::uint64_t have,
                                         unsigned char *target) {
    const std::uint64_t wanted = (_mm512_test_epi8_mask(bytes, bytes) | last) & have;
    const std::size_t count = static_cast<std::size_t>(std::popcount(wanted));
    _mm512_mask_storeu_epi8(target, lowBits(count), _mm512_maskz_compress_epi8(wanted, bytes));
    return count;
}

// The last two bytes of each unit's sequence, the first of them in the low half; 0 and the unit for
// ASCII. `lead` are the units whose sequence begins in these two.
TOV_AVX512_INLINE __m512i lastTwoBytes(__m512i units, __mmask32 nonAscii, __mmask32 lead) {
    const __m512i upper = _mm512_and_si512(_mm512_srli_epi16(units, 6), allUnits(0x003F));
    const __m512i lower = _mm512_and_si512(_mm512_slli_epi16(units, 8), allUnits(0x3F00));
    const __m512i two = _mm512_or_si512(_mm512_or_si512(upper, lower), allUnits(0x8080));
    const __m512i marked = _mm512_mask_add_epi16(two, lead, two, allUnits(0x0040));
    return _mm512_mask_mov_epi16(_mm512_slli_epi16(units, 8), nonAscii, marked);
}

// The four bytes of a surrogate pair come from its two units as two bytes each. This gives units whose
// lastTwoBytes() are these.
TOV_AVX512_INLINE __m512i splitPairs(__m512i units, __mmask32 high, __mmask32 low) {
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
TOV_AVX512_INLINE std::size_t encode(__m512i units, __mmask32 nonAscii, __mmask32 from800, __mmask32 high,
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

// Whole pairs of blocks of ASCII.
TOV_AVX512_INLINE void narrowBlocks(Utf16To8 &run) {
    const __m512i order = _mm512_setr_epi64(0, 2, 4, 6, 1, 3, 5, 7);
    while (run.left() >= 2 * blockUnits && run.room() >= 2 * blockUnits) {
        const __m512i lower = _mm512_loadu_si512(run.source);
        const __m512i upper = _mm512_loadu_si512(run.source + blockUnits);
        if (_mm512_test_epi16_mask(_mm512_or_si512(lower, upper), allUnits(0xFF80)) != 0)
            return;
        const __m512i packed = _mm512_packus_epi16(lower, upper);
        _mm512_storeu_si512(run.target, _mm512_permutexvar_epi64(order, packed));
        run.source += 2 * blockUnits;
        run.target += 2 * blockUnits;
    }
}

// The next `count` units, or one less. True when they are all ASCII.
TOV_AVX512_INLINE bool encodeBlock(Utf16To8 &run, std::size_t count) {
    const auto have = low32(lowBits(count));
    const __m512i units = _mm512_maskz_loadu_epi16(have, run.source);
    const __mmask32 nonAscii = _mm512_test_epi16_mask(units, allUnits(0xFF80));
    std::size_t bytes = count;
    if (nonAscii == 0) {
        _mm256_mask_storeu_epi8(run.target, have, _mm512_cvtepi16_epi8(units));
    } else if (const __mmask32 from800 = _mm512_test_epi16_mask(units, allUnits(0xF800)); from800 == 0) {
        bytes = storeBytes(lastTwoBytes(units, nonAscii, nonAscii), 0xAAAAAAAAAAAAAAAA, lowBits(2 * count),
                           run.target);
    } else {
        const __m512i kind = _mm512_and_si512(units, allUnits(0xFC00));
        const __mmask32 high = _mm512_cmpeq_epi16_mask(kind, allUnits(0xD800));
        const __mmask32 low = _mm512_cmpeq_epi16_mask(kind, allUnits(0xDC00));
        count -= high >> (count - 1) & 1; // its partner is not in the block
        bytes = encode(units, nonAscii, from800, high, low, count, run.target);
    }
    run.source += count;
    run.target += bytes;
    return nonAscii == 0;
}

// What is left, or finds room in any case. False when nothing of it could be converted.
TOV_AVX512_INLINE bool encodeRest(Utf16To8 &run) {
    const TovUChar *const before = run.source;
    if (const std::size_t count = std::min({blockUnits, run.left(), run.room() / 3}); count != 0)
        encodeBlock(run, count);
    return run.source != before;
}

} // namespace

TOV_AVX512 void utf16To8Avx512(Utf16To8 &given) noexcept {
    Utf16To8 run = given;
    narrowBlocks(run);
    while (run.left() >= blockUnits && run.room() >= 3 * blockUnits) {
        if (encodeBlock(run, blockUnits))
            narrowBlocks(run);
    }
    while (encodeRest(run)) {
    }
    given = run;
}

} // namespace tovdetail

#endif

// UTF kernels for SSE4.2, built as those for AVX2. A block is 16 bytes of source. Every result is computed in
// the place of the last byte or unit that it comes from; then a shuffle for each 16 bytes, chosen by the
// places that have one, moves the results together.
#include <tovutil/tovutf8kt.h>

#if defined(__x86_64__)

#include <bit>
#include <immintrin.h>

#define TOV_SSE42 [[gnu::target("sse4.2,popcnt")]]
#define TOV_SSE42_INLINE TOV_SSE42 [[gnu::always_inline]] inline

namespace tovdetail {

bool utfSse42Usable() noexcept {
    __builtin_cpu_init();
    return __builtin_cpu_supports("sse4.2") && __builtin_cpu_supports("popcnt");
}

namespace {

constexpr std::size_t blockBytes = 16;
constexpr std::size_t blockUnits = 8;
constexpr std::size_t storeBytes = 16; // what one shuffle's store writes, wanted or not

TOV_SSE42_INLINE __m128i allBytes(unsigned value) { return _mm_set1_epi8(static_cast<char>(value)); }
TOV_SSE42_INLINE __m128i allUnits(unsigned value) { return _mm_set1_epi16(static_cast<short>(value)); }
TOV_SSE42_INLINE std::uint32_t bits(__m128i bytes) {
    return static_cast<std::uint32_t>(_mm_movemask_epi8(bytes));
}
TOV_SSE42_INLINE __m128i bytesFrom(__m128i bytes, unsigned value) {
    return _mm_cmpeq_epi8(_mm_max_epu8(bytes, allBytes(value)), bytes);
}

// The vector with each byte `distance` places further on, behind zeros.
template <int distance>
TOV_SSE42_INLINE __m128i delayed(__m128i bytes) {
    return _mm_slli_si128(bytes, distance);
}

template <class T>
TOV_SSE42_INLINE __m128i load(const T *from) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i *>(from));
}
template <class T>
TOV_SSE42_INLINE void store(T *to, __m128i value) {
    _mm_storeu_si128(reinterpret_cast<__m128i *>(to), value);
}
template <class T>
TOV_SSE42_INLINE void storeShuffled(T *to, __m128i value, const UtfShuffles &shuffles, std::uint32_t index) {
    const auto *shuffle = reinterpret_cast<const __m128i *>(shuffles[index & 0xFF].data());
    _mm_storeu_si128(reinterpret_cast<__m128i *>(to), _mm_shuffle_epi8(value, _mm_load_si128(shuffle)));
}

using Layout = Utf8Layout<std::uint32_t>;

// A lead's length is the number of its upper bits that are set; a shift brings each to the top.
TOV_SSE42_INLINE Layout layoutOf(__m128i bytes, std::uint32_t nonAscii) {
    const std::uint32_t lead2 = nonAscii & bits(_mm_slli_epi16(bytes, 1));
    const std::uint32_t lead3 = lead2 & bits(_mm_slli_epi16(bytes, 2));
    return {nonAscii & ~lead2, lead2, lead3, lead3 & bits(_mm_slli_epi16(bytes, 3))};
}

// Leads of four bytes or more whose value is no surrogate pair: they lead more bytes, or the value is
// above 0x10FFFF or below 0x10000.
TOV_SSE42_INLINE std::uint32_t unpaired(__m128i bytes) {
    const std::uint32_t nextFrom90 = bits(bytesFrom(bytes, 0x90)) >> 1;
    const std::uint32_t f0 = bits(_mm_cmpeq_epi8(bytes, allBytes(0xF0)));
    const std::uint32_t f4 = bits(_mm_cmpeq_epi8(bytes, allBytes(0xF4)));
    return bits(bytesFrom(bytes, 0xF5)) | (f4 & nextFrom90) | (f0 & ~nextFrom90);
}

// The units that end on each byte, in two halves.
struct Units {
    __m128i lower, upper;
};

TOV_SSE42_INLINE Units unitsOf(__m128i bytes) {
    const __m128i before = delayed<1>(bytes);
    const __m128i following = _mm_cmpgt_epi8(allBytes(0xC0), bytes);
    const __m128i followsTwice = _mm_and_si128(following, _mm_cmpgt_epi8(allBytes(0xC0), before));
    const __m128i last = _mm_and_si128(bytes, allBytes(0x7F));
    const __m128i second = _mm_and_si128(before, _mm_and_si128(following, allBytes(0x3F)));
    const __m128i third = _mm_and_si128(delayed<2>(bytes), followsTwice);
    const __m128i zero = _mm_setzero_si128();
    const __m128i factors = allUnits(0x4001);
    const __m128i lower = _mm_maddubs_epi16(_mm_unpacklo_epi8(last, second), factors);
    const __m128i upper = _mm_maddubs_epi16(_mm_unpackhi_epi8(last, second), factors);
    return {_mm_or_si128(lower, _mm_slli_epi16(_mm_unpacklo_epi8(third, zero), 12)),
            _mm_or_si128(upper, _mm_slli_epi16(_mm_unpackhi_epi8(third, zero), 12))};
}

// Makes surrogates of what unitsOf() gives for the third and the fourth byte of four.
TOV_SSE42_INLINE __m128i withPairs(__m128i units, __m128i high, __m128i low) {
    const __m128i upper = _mm_add_epi16(_mm_srli_epi16(units, 4), allUnits(0xD800 - (0x10000 >> 10)));
    const __m128i lower = _mm_add_epi16(_mm_and_si128(units, allUnits(0x03FF)), allUnits(0xDC00));
    return _mm_blendv_epi8(_mm_blendv_epi8(units, upper, high), lower, low);
}

TOV_SSE42_INLINE Units withPairs(Units units, __m128i bytes) {
    const __m128i high = bytesFrom(delayed<2>(bytes), 0xF0);
    const __m128i low = bytesFrom(delayed<3>(bytes), 0xF0);
    return {withPairs(units.lower, _mm_unpacklo_epi8(high, high), _mm_unpacklo_epi8(low, low)),
            withPairs(units.upper, _mm_unpackhi_epi8(high, high), _mm_unpackhi_epi8(low, low))};
}

// Converts the plain characters whose last bytes are `inside`, and gives the number of units. Writes
// eight units behind those of all bytes but the last eight.
TOV_SSE42_INLINE unsigned decode(__m128i bytes, const Layout &layout, std::uint32_t inside,
                                 TovUChar *target) {
    const std::uint32_t emits = layout.emits() & inside;
    Units units = unitsOf(bytes);
    if (layout.lead4 != 0)
        units = withPairs(units, bytes);
    const int lowerUnits = std::popcount(emits & 0xFF);
    storeShuffled(target, units.lower, utfUnitsOfEight, emits);
    storeShuffled(target + lowerUnits, units.upper, utfUnitsOfEight, emits >> 8);
    return static_cast<unsigned>(std::popcount(emits));
}

// Whole blocks of ASCII.
TOV_SSE42_INLINE void widenBlocks(Utf8To16 &run) {
    while (run.left() >= blockBytes && run.room() >= blockBytes) {
        const __m128i bytes = load(run.source);
        if (bits(bytes) != 0)
            return;
        store(run.target, _mm_unpacklo_epi8(bytes, _mm_setzero_si128()));
        store(run.target + 8, _mm_unpackhi_epi8(bytes, _mm_setzero_si128()));
        run.source += blockBytes;
        run.target += blockBytes;
    }
}

// The next block's characters, up to the first that is not plain. The block begins `back` bytes before what
// is left, in the text that is converted. False when nothing could be done.
TOV_SSE42_INLINE bool decodeBlock(Utf8To16 &run, std::size_t back) {
    const __m128i bytes = load(run.source - back);
    const std::uint32_t nonAscii = bits(bytes);
    if (nonAscii == 0 && back == 0) {
        widenBlocks(run);
        return true;
    }
    const Layout layout = layoutOf(bytes, nonAscii);
    const std::uint32_t behind = ~std::uint32_t{0} << back;
    const std::uint32_t odd =
        ((layout.odd() | (layout.lead4 != 0 ? unpaired(bytes) : 0)) & behind) | 1u << blockBytes;
    const auto end = static_cast<std::size_t>(std::countr_zero(odd));
    const std::uint32_t plain = behind & (odd - 1) & ~odd; // those in front of the first odd one
    run.target += decode(bytes, layout, plain, run.target);
    run.source += end - back;
    return end != back;
}

TOV_SSE42 void decodeText(Utf8To16 &given) noexcept {
    Utf8To16 run = given; // which no store of text can change
    while (run.left() >= blockBytes && run.room() >= blockBytes + freeUnitsMost && decodeBlock(run, 0)) {
    }
    // The rest is the end of one more block, if that begins in the text that is converted and may write
    // all that decode() writes.
    const std::size_t left = run.left();
    if (left != 0 && left < blockBytes && run.room() >= std::max<std::size_t>(left, 8) + freeUnitsMost &&
        static_cast<std::size_t>(run.source - given.source) >= blockBytes - left)
        decodeBlock(run, blockBytes - left);
    given = run;
}

} // namespace

void utf8To16Sse42(Utf8To16 &run) noexcept {
    decodeText(run);
    utfShortBlock<blockBytes, 1>(decodeText, run);
}

namespace {

// Which bytes a unit's sequence has, as vectors of 16-bit masks.
struct Sequences {
    __m128i nonAscii; // at least two bytes
    __m128i three;    // three bytes
    __m128i lead;     // begins in its last two bytes
};

// The last two bytes of each unit's sequence, the first of them in the low half; 0 and the unit for
// ASCII.
TOV_SSE42_INLINE __m128i lastTwoBytes(__m128i units, __m128i nonAscii, __m128i lead) {
    const __m128i upper = _mm_and_si128(_mm_srli_epi16(units, 6), allUnits(0x003F));
    const __m128i ascii = _mm_slli_epi16(units, 8);
    const __m128i lower = _mm_and_si128(ascii, allUnits(0x3F00));
    const __m128i mark = _mm_or_si128(allUnits(0x8080), _mm_and_si128(lead, allUnits(0x0040)));
    const __m128i two = _mm_or_si128(_mm_or_si128(upper, lower), mark);
    return _mm_blendv_epi8(ascii, two, nonAscii);
}

// The four bytes of a surrogate pair come from its two units as two bytes each. This gives units whose
// lastTwoBytes() are these.
TOV_SSE42_INLINE __m128i splitPairs(__m128i units, __m128i kind, Sequences &sequences) {
    const __m128i before = delayed<2>(units);
    const __m128i low = _mm_cmpeq_epi16(kind, allUnits(0xDC00));
    const __m128i beforeKind = _mm_and_si128(before, allUnits(0xFC00));
    const __m128i pairLow = _mm_and_si128(low, _mm_cmpeq_epi16(beforeKind, allUnits(0xD800)));
    const __m128i pairHigh = _mm_srli_si128(pairLow, 2);
    sequences.three = _mm_andnot_si128(_mm_or_si128(pairHigh, pairLow), sequences.three);
    sequences.lead = _mm_or_si128(sequences.lead, pairHigh);

    const __m128i value = _mm_and_si128(units, allUnits(0x03FF));
    // 0x0C00 makes the mark of two bytes that of four, and the 0x10 is what a pair adds to its value.
    const __m128i high = _mm_add_epi16(_mm_srli_epi16(value, 2), allUnits(0x0C10));
    const __m128i highBits = _mm_and_si128(_mm_slli_epi16(before, 10), allUnits(0x0C00));
    return _mm_blendv_epi8(_mm_blendv_epi8(units, high, pairHigh), _mm_or_si128(highBits, value), pairLow);
}

// Converts a block whose units are all below 0x800.
TOV_SSE42_INLINE unsigned encodeTwo(__m128i units, __m128i nonAscii, unsigned char *target) {
    const __m128i two = lastTwoBytes(units, nonAscii, nonAscii);
    const std::uint32_t index = bits(_mm_packs_epi16(nonAscii, _mm_setzero_si128()));
    storeShuffled(target, two, utfBytesOfEight, index);
    return 8 + static_cast<unsigned>(std::popcount(index));
}

// Converts a block of any units. A high surrogate that stands last counts as one without a partner.
TOV_SSE42_INLINE unsigned encodeThree(__m128i units, __m128i nonAscii, unsigned char *target) {
    const __m128i below800 = _mm_cmpeq_epi16(_mm_and_si128(units, allUnits(0xF800)), _mm_setzero_si128());
    Sequences sequences{nonAscii, _mm_andnot_si128(below800, nonAscii), _mm_and_si128(nonAscii, below800)};
    const __m128i kind = _mm_and_si128(units, allUnits(0xFC00));
    const __m128i high = _mm_cmpeq_epi16(kind, allUnits(0xD800));
    if (bits(high) != 0)
        units = splitPairs(units, kind, sequences);
    const __m128i lastTwo = lastTwoBytes(units, nonAscii, sequences.lead);
    const __m128i firstMark = _mm_or_si128(_mm_srli_epi16(units, 4), allUnits(0xE000));
    const __m128i lower = _mm_unpacklo_epi16(firstMark, lastTwo);
    const __m128i upper = _mm_unpackhi_epi16(firstMark, lastTwo);
    const std::uint32_t index = bits(_mm_blendv_epi8(nonAscii, sequences.three, allUnits(0xFF00)));
    const unsigned lowerBytes = 4 + static_cast<unsigned>(std::popcount(index & 0xFF));
    storeShuffled(target, lower, utfBytesOfFour, index);
    storeShuffled(target + lowerBytes, upper, utfBytesOfFour, index >> 8);
    return 8 + static_cast<unsigned>(std::popcount(index));
}

TOV_SSE42 void encodeText(Utf16To8 &given) noexcept {
    Utf16To8 run = given;
    constexpr std::size_t most = 3 * blockUnits + storeBytes - 12; // up to the end of the last store
    while (run.left() >= blockUnits && run.room() >= most + freeBytesMost) {
        const __m128i units = load(run.source);
        if (_mm_testz_si128(units, allUnits(0xFF80))) {
            _mm_storel_epi64(reinterpret_cast<__m128i *>(run.target), _mm_packus_epi16(units, units));
            run.source += blockUnits;
            run.target += blockUnits;
            continue;
        }
        const __m128i nonAscii = _mm_xor_si128(
            _mm_cmpeq_epi16(_mm_and_si128(units, allUnits(0xFF80)), _mm_setzero_si128()), allUnits(0xFFFF));
        if (_mm_testz_si128(units, allUnits(0xF800))) {
            run.target += encodeTwo(units, nonAscii, run.target);
            run.source += blockUnits;
            continue;
        }
        // A high surrogate at the end is taken back: its partner may follow.
        const bool open = (run.source[blockUnits - 1] & 0xFC00) == 0xD800;
        run.target += encodeThree(units, nonAscii, run.target) - (open ? 3 : 0);
        run.source += blockUnits - (open ? 1 : 0);
    }
    given = run;
}

} // namespace

void utf16To8Sse42(Utf16To8 &run) noexcept {
    encodeText(run);
    utfShortBlock<blockUnits, 3>(encodeText, run);
}

} // namespace tovdetail

#endif

// UTF kernels for AVX2. A block is 32 bytes of source. Every result is computed in the place of the last
// byte or unit that it comes from; then a shuffle for each 16 bytes, chosen by the places that have one,
// moves the results together.
#include <tovutil/tovutf8kt.h>

#if defined(__x86_64__)

#include <bit>
#include <immintrin.h>

#define TOV_AVX2 [[gnu::target("avx2,bmi,popcnt")]]
#define TOV_AVX2_INLINE TOV_AVX2 [[gnu::always_inline]] inline

namespace tovdetail {

bool utfAvx2Usable() noexcept {
    __builtin_cpu_init();
    return __builtin_cpu_supports("avx2") && __builtin_cpu_supports("bmi") &&
           __builtin_cpu_supports("popcnt");
}

namespace {

constexpr std::size_t blockBytes = 32;
constexpr std::size_t blockUnits = 16;
constexpr std::size_t storeBytes = 16; // what one shuffle's store writes, wanted or not

TOV_AVX2_INLINE __m256i allBytes(unsigned value) { return _mm256_set1_epi8(static_cast<char>(value)); }
TOV_AVX2_INLINE __m256i allUnits(unsigned value) { return _mm256_set1_epi16(static_cast<short>(value)); }
TOV_AVX2_INLINE std::uint32_t bits(__m256i bytes) {
    return static_cast<std::uint32_t>(_mm256_movemask_epi8(bytes));
}
TOV_AVX2_INLINE __m256i bytesFrom(__m256i bytes, unsigned value) {
    return _mm256_cmpeq_epi8(_mm256_max_epu8(bytes, allBytes(value)), bytes);
}

// The vector with each byte `distance` places further on, behind zeros.
template <int distance>
TOV_AVX2_INLINE __m256i delayed(__m256i bytes) {
    return _mm256_alignr_epi8(bytes, _mm256_permute2x128_si256(bytes, bytes, 0x08), 16 - distance);
}

template <class T>
TOV_AVX2_INLINE __m256i load(const T *from) {
    return _mm256_loadu_si256(reinterpret_cast<const __m256i *>(from));
}
template <class T>
TOV_AVX2_INLINE void store(T *to, __m256i value) {
    _mm256_storeu_si256(reinterpret_cast<__m256i *>(to), value);
}
template <class T>
TOV_AVX2_INLINE void storeShuffled(T *to, __m128i value, const UtfShuffles &shuffles, std::uint32_t index) {
    const auto *shuffle = reinterpret_cast<const __m128i *>(shuffles[index & 0xFF].data());
    _mm_storeu_si128(reinterpret_cast<__m128i *>(to), _mm_shuffle_epi8(value, _mm_load_si128(shuffle)));
}

using Layout = Utf8Layout<std::uint32_t>;

// A lead's length is the number of its upper bits that are set; a shift brings each to the top.
TOV_AVX2_INLINE Layout layoutOf(__m256i bytes, std::uint32_t nonAscii) {
    const std::uint32_t lead2 = nonAscii & bits(_mm256_slli_epi16(bytes, 1));
    const std::uint32_t lead3 = lead2 & bits(_mm256_slli_epi16(bytes, 2));
    return {nonAscii & ~lead2, lead2, lead3, lead3 & bits(_mm256_slli_epi16(bytes, 3))};
}

// Leads of four bytes or more whose value is no surrogate pair: they lead more bytes, or the value is
// above 0x10FFFF or below 0x10000.
TOV_AVX2_INLINE std::uint32_t unpaired(__m256i bytes) {
    const std::uint32_t nextFrom90 = bits(bytesFrom(bytes, 0x90)) >> 1;
    const std::uint32_t f0 = bits(_mm256_cmpeq_epi8(bytes, allBytes(0xF0)));
    const std::uint32_t f4 = bits(_mm256_cmpeq_epi8(bytes, allBytes(0xF4)));
    return bits(bytesFrom(bytes, 0xF5)) | (f4 & nextFrom90) | (f0 & ~nextFrom90);
}

// The units that end on each byte, in two halves: of the bytes 0 to 7 and 16 to 23, and of the others.
struct Units {
    __m256i lower, upper;
};

TOV_AVX2_INLINE Units unitsOf(__m256i bytes) {
    const __m256i before = delayed<1>(bytes);
    const __m256i following = _mm256_cmpgt_epi8(allBytes(0xC0), bytes);
    const __m256i followsTwice = _mm256_and_si256(following, _mm256_cmpgt_epi8(allBytes(0xC0), before));
    const __m256i last = _mm256_and_si256(bytes, allBytes(0x7F));
    const __m256i second = _mm256_and_si256(before, _mm256_and_si256(following, allBytes(0x3F)));
    const __m256i third = _mm256_and_si256(delayed<2>(bytes), followsTwice);
    const __m256i zero = _mm256_setzero_si256();
    const __m256i factors = allUnits(0x4001);
    const __m256i lower = _mm256_maddubs_epi16(_mm256_unpacklo_epi8(last, second), factors);
    const __m256i upper = _mm256_maddubs_epi16(_mm256_unpackhi_epi8(last, second), factors);
    return {_mm256_or_si256(lower, _mm256_slli_epi16(_mm256_unpacklo_epi8(third, zero), 12)),
            _mm256_or_si256(upper, _mm256_slli_epi16(_mm256_unpackhi_epi8(third, zero), 12))};
}

// Makes surrogates of what unitsOf() gives for the third and the fourth byte of four.
TOV_AVX2_INLINE __m256i withPairs(__m256i units, __m256i high, __m256i low) {
    const __m256i upper = _mm256_add_epi16(_mm256_srli_epi16(units, 4), allUnits(0xD800 - (0x10000 >> 10)));
    const __m256i lower = _mm256_add_epi16(_mm256_and_si256(units, allUnits(0x03FF)), allUnits(0xDC00));
    return _mm256_blendv_epi8(_mm256_blendv_epi8(units, upper, high), lower, low);
}

TOV_AVX2_INLINE Units withPairs(Units units, __m256i bytes) {
    const __m256i high = bytesFrom(delayed<2>(bytes), 0xF0);
    const __m256i low = bytesFrom(delayed<3>(bytes), 0xF0);
    return {withPairs(units.lower, _mm256_unpacklo_epi8(high, high), _mm256_unpacklo_epi8(low, low)),
            withPairs(units.upper, _mm256_unpackhi_epi8(high, high), _mm256_unpackhi_epi8(low, low))};
}

// Converts the plain characters whose last bytes are `inside`, and gives the number of units. Writes
// eight units behind those of all bytes but the last eight.
TOV_AVX2_INLINE unsigned decode(__m256i bytes, const Layout &layout, std::uint32_t inside, TovUChar *target) {
    const std::uint32_t emits = layout.emits() & inside;
    Units units = unitsOf(bytes);
    if (layout.lead4 != 0)
        units = withPairs(units, bytes);
    const auto before = [emits](unsigned places) { return std::popcount(emits & ((1u << places) - 1)); };
    storeShuffled(target, _mm256_castsi256_si128(units.lower), utfUnitsOfEight, emits);
    storeShuffled(target + before(8), _mm256_castsi256_si128(units.upper), utfUnitsOfEight, emits >> 8);
    storeShuffled(target + before(16), _mm256_extracti128_si256(units.lower, 1), utfUnitsOfEight,
                  emits >> 16);
    storeShuffled(target + before(24), _mm256_extracti128_si256(units.upper, 1), utfUnitsOfEight,
                  emits >> 24);
    return static_cast<unsigned>(std::popcount(emits));
}

// Whole blocks of ASCII.
TOV_AVX2_INLINE void widenBlocks(Utf8To16 &run) {
    while (run.left() >= blockBytes && run.room() >= blockBytes) {
        const __m256i bytes = load(run.source);
        if (bits(bytes) != 0)
            return;
        store(run.target, _mm256_cvtepu8_epi16(_mm256_castsi256_si128(bytes)));
        store(run.target + 16, _mm256_cvtepu8_epi16(_mm256_extracti128_si256(bytes, 1)));
        run.source += blockBytes;
        run.target += blockBytes;
    }
}

// The next block's characters, up to the first that is not plain. The block begins `back` bytes before what
// is left, in the text that is converted. False when nothing could be done.
TOV_AVX2_INLINE bool decodeBlock(Utf8To16 &run, std::size_t back) {
    const __m256i bytes = load(run.source - back);
    const std::uint32_t nonAscii = bits(bytes);
    if (nonAscii == 0 && back == 0) {
        widenBlocks(run);
        return true;
    }
    const Layout layout = layoutOf(bytes, nonAscii);
    const std::uint32_t behind = ~std::uint32_t{0} << back;
    const std::uint32_t odd = (layout.odd() | (layout.lead4 != 0 ? unpaired(bytes) : 0)) & behind;
    const auto end = static_cast<std::size_t>(std::countr_zero(odd));
    const std::uint32_t plain = behind & (odd - 1) & ~odd; // those in front of the first odd one
    run.target += decode(bytes, layout, plain, run.target);
    run.source += end - back;
    return end != back;
}

TOV_AVX2 void decodeText(Utf8To16 &given) noexcept {
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

void utf8To16Avx2(Utf8To16 &run) noexcept {
    decodeText(run);
    utfShortBlock<blockBytes, 1>(decodeText, run);
}

namespace {

// Which bytes a unit's sequence has, as vectors of 16-bit masks.
struct Sequences {
    __m256i nonAscii; // at least two bytes
    __m256i three;    // three bytes
    __m256i lead;     // begins in its last two bytes
};

// The last two bytes of each unit's sequence, the first of them in the low half; 0 and the unit for
// ASCII.
TOV_AVX2_INLINE __m256i lastTwoBytes(__m256i units, __m256i nonAscii, __m256i lead) {
    const __m256i upper = _mm256_and_si256(_mm256_srli_epi16(units, 6), allUnits(0x003F));
    const __m256i ascii = _mm256_slli_epi16(units, 8);
    const __m256i lower = _mm256_and_si256(ascii, allUnits(0x3F00));
    const __m256i mark = _mm256_or_si256(allUnits(0x8080), _mm256_and_si256(lead, allUnits(0x0040)));
    const __m256i two = _mm256_or_si256(_mm256_or_si256(upper, lower), mark);
    return _mm256_blendv_epi8(ascii, two, nonAscii);
}

// The four bytes of a surrogate pair come from its two units as two bytes each. This gives units whose
// lastTwoBytes() are these.
TOV_AVX2_INLINE __m256i splitPairs(__m256i units, __m256i kind, Sequences &sequences) {
    const __m256i before = delayed<2>(units);
    const __m256i low = _mm256_cmpeq_epi16(kind, allUnits(0xDC00));
    const __m256i beforeKind = _mm256_and_si256(before, allUnits(0xFC00));
    const __m256i pairLow = _mm256_and_si256(low, _mm256_cmpeq_epi16(beforeKind, allUnits(0xD800)));
    const __m256i pairHigh =
        _mm256_alignr_epi8(_mm256_permute2x128_si256(pairLow, pairLow, 0x81), pairLow, 2);
    sequences.three = _mm256_andnot_si256(_mm256_or_si256(pairHigh, pairLow), sequences.three);
    sequences.lead = _mm256_or_si256(sequences.lead, pairHigh);

    const __m256i value = _mm256_and_si256(units, allUnits(0x03FF));
    // 0x0C00 makes the mark of two bytes that of four, and the 0x10 is what a pair adds to its value.
    const __m256i high = _mm256_add_epi16(_mm256_srli_epi16(value, 2), allUnits(0x0C10));
    const __m256i highBits = _mm256_and_si256(_mm256_slli_epi16(before, 10), allUnits(0x0C00));
    return _mm256_blendv_epi8(_mm256_blendv_epi8(units, high, pairHigh), _mm256_or_si256(highBits, value),
                              pairLow);
}

// Converts a block whose units are all below 0x800.
TOV_AVX2_INLINE unsigned encodeTwo(__m256i units, __m256i nonAscii, unsigned char *target) {
    const __m256i two = lastTwoBytes(units, nonAscii, nonAscii);
    const __m128i masks =
        _mm_packs_epi16(_mm256_castsi256_si128(nonAscii), _mm256_extracti128_si256(nonAscii, 1));
    const auto index = static_cast<std::uint32_t>(_mm_movemask_epi8(masks));
    storeShuffled(target, _mm256_castsi256_si128(two), utfBytesOfEight, index);
    storeShuffled(target + 8 + std::popcount(index & 0xFF), _mm256_extracti128_si256(two, 1), utfBytesOfEight,
                  index >> 8);
    return 16 + static_cast<unsigned>(std::popcount(index));
}

// Converts a block of any units. A high surrogate that stands last counts as one without a partner.
TOV_AVX2_INLINE unsigned encodeThree(__m256i units, __m256i nonAscii, unsigned char *target) {
    const __m256i below800 =
        _mm256_cmpeq_epi16(_mm256_and_si256(units, allUnits(0xF800)), _mm256_setzero_si256());
    Sequences sequences{nonAscii, _mm256_andnot_si256(below800, nonAscii),
                        _mm256_and_si256(nonAscii, below800)};
    const __m256i kind = _mm256_and_si256(units, allUnits(0xFC00));
    const __m256i high = _mm256_cmpeq_epi16(kind, allUnits(0xD800));
    if (bits(high) != 0)
        units = splitPairs(units, kind, sequences);
    const __m256i lastTwo = lastTwoBytes(units, nonAscii, sequences.lead);
    const __m256i firstMark = _mm256_or_si256(_mm256_srli_epi16(units, 4), allUnits(0xE000));
    const __m256i lower = _mm256_unpacklo_epi16(firstMark, lastTwo);
    const __m256i upper = _mm256_unpackhi_epi16(firstMark, lastTwo);
    const std::uint32_t index = bits(_mm256_blendv_epi8(nonAscii, sequences.three, allUnits(0xFF00)));
    const auto before = [index](unsigned count) {
        return count + static_cast<unsigned>(std::popcount(index & ((1u << 2 * count) - 1)));
    };
    storeShuffled(target, _mm256_castsi256_si128(lower), utfBytesOfFour, index);
    storeShuffled(target + before(4), _mm256_castsi256_si128(upper), utfBytesOfFour, index >> 8);
    storeShuffled(target + before(8), _mm256_extracti128_si256(lower, 1), utfBytesOfFour, index >> 16);
    storeShuffled(target + before(12), _mm256_extracti128_si256(upper, 1), utfBytesOfFour, index >> 24);
    return 16 + static_cast<unsigned>(std::popcount(index));
}

TOV_AVX2 void encodeText(Utf16To8 &given) noexcept {
    Utf16To8 run = given;
    constexpr std::size_t most = 3 * blockUnits + storeBytes - 12; // up to the end of the last store
    while (run.left() >= blockUnits && run.room() >= most + freeBytesMost) {
        const __m256i units = load(run.source);
        if (_mm256_testz_si256(units, allUnits(0xFF80))) {
            const __m256i packed = _mm256_permute4x64_epi64(_mm256_packus_epi16(units, units), 0x08);
            _mm_storeu_si128(reinterpret_cast<__m128i *>(run.target), _mm256_castsi256_si128(packed));
            run.source += blockUnits;
            run.target += blockUnits;
            continue;
        }
        const __m256i nonAscii = _mm256_xor_si256(
            _mm256_cmpeq_epi16(_mm256_and_si256(units, allUnits(0xFF80)), _mm256_setzero_si256()),
            allUnits(0xFFFF));
        if (_mm256_testz_si256(units, allUnits(0xF800))) {
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

void utf16To8Avx2(Utf16To8 &run) noexcept {
    encodeText(run);
    utfShortBlock<blockUnits, 3>(encodeText, run);
}

} // namespace tovdetail

#endif

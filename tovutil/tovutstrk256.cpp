// Searches in 16-bit text for AVX2.
#define TOV_UNIT_TARGET [[gnu::target("avx2,bmi")]]
#include <tovutil/tovutstrkt.h>

#if defined(__x86_64__)

namespace tovdetail {

bool unitAvx2Usable() noexcept {
    __builtin_cpu_init();
    return __builtin_cpu_supports("avx2") && __builtin_cpu_supports("bmi");
}

namespace {

struct Avx2Vector {
    using Half = Sse2Vector<8>;
    using Lanes = __m256i;
    using Bits = std::uint32_t;
    static constexpr std::size_t units = 16;
    static constexpr std::size_t mostCompared = 32;
    static constexpr int bitsPerUnit = 2;
    static constexpr Bits all = ~Bits{0};
    static constexpr Bits oneEach = 0x55555555;

    TOV_UNIT_INLINE static __m256i load(UnitPtr from) {
        return _mm256_loadu_si256(reinterpret_cast<const __m256i *>(from));
    }
    TOV_UNIT_INLINE static __m256i splat(TovUChar unit) {
        return _mm256_set1_epi16(static_cast<short>(unit));
    }
    TOV_UNIT_INLINE static Lanes equal(__m256i a, __m256i b) { return _mm256_cmpeq_epi16(a, b); }
    TOV_UNIT_INLINE static Lanes either(Lanes a, Lanes b) { return _mm256_or_si256(a, b); }
    TOV_UNIT_INLINE static Lanes both(Lanes a, Lanes b) { return _mm256_and_si256(a, b); }
    TOV_UNIT_INLINE static Bits bits(Lanes lanes) { return static_cast<Bits>(_mm256_movemask_epi8(lanes)); }
};

} // namespace

constinit const UnitSearch unitSearchAvx2 = unitSearchOf<Avx2Vector>;

} // namespace tovdetail

#endif

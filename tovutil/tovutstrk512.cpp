// Searches in 16-bit text for AVX-512. A load by a mask touches only the units that the mask names.
#define TOV_UNIT_TARGET [[gnu::target("avx512f,avx512bw,bmi,bmi2")]]
#include <tovutil/tovutstrkt.h>

#if defined(__x86_64__)

namespace tovdetail {

bool unitAvx512Usable() noexcept {
    __builtin_cpu_init();
    return __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
           __builtin_cpu_supports("bmi") && __builtin_cpu_supports("bmi2");
}

namespace {

struct Avx512Vector {
    using Lanes = __mmask32;
    using Bits = std::uint32_t;
    static constexpr std::size_t units = 32;
    static constexpr std::size_t mostCompared = 64;
    static constexpr int bitsPerUnit = 1;
    static constexpr Bits all = ~Bits{0};
    static constexpr Bits oneEach = all;

    TOV_UNIT_INLINE static __m512i load(UnitPtr from) { return _mm512_loadu_si512(from); }
    TOV_UNIT_INLINE static __m512i load(UnitPtr from, __mmask32 part) {
        return _mm512_maskz_loadu_epi16(part, from);
    }
    TOV_UNIT_INLINE static __mmask32 part(std::size_t n) { return _bzhi_u32(all, static_cast<unsigned>(n)); }
    TOV_UNIT_INLINE static __m512i splat(TovUChar unit) {
        return _mm512_set1_epi16(static_cast<short>(unit));
    }
    TOV_UNIT_INLINE static Lanes equal(__m512i a, __m512i b) { return _mm512_cmpeq_epi16_mask(a, b); }
    TOV_UNIT_INLINE static Lanes either(Lanes a, Lanes b) { return _kor_mask32(a, b); }
    TOV_UNIT_INLINE static Lanes both(Lanes a, Lanes b) { return _kand_mask32(a, b); }
    TOV_UNIT_INLINE static Bits bits(Lanes lanes) { return _cvtmask32_u32(lanes); }
};

} // namespace

constinit const UnitSearch unitSearchAvx512 = unitSearchOf<Avx512Vector>;

} // namespace tovdetail

#endif

// The table of search kernels, the choice among them, the portable one, and what all of them leave to
// scalar code.
#include <tovutil/tovutstrk.h>

#include <tovutil/tovutstrkt.h>

#include <algorithm>
#include <array>

namespace tovdetail {

namespace {

// 4, 2 or 1 units in a machine word.
template <std::size_t count>
struct WordVector {
    using Half = WordVector<count / 2>;
    using Lanes = std::uint64_t;
    using Bits = std::uint64_t;
    static constexpr std::size_t units = count;
    static constexpr std::size_t mostCompared = 6;
    static constexpr int bitsPerUnit = 16;
    static constexpr std::uint64_t each = ~std::uint64_t{0} >> (64 - 16 * count) & 0x0001000100010001;
    static constexpr Bits all = each << 15;
    static constexpr Bits oneEach = all;

    static Lanes load(UnitPtr from) {
        std::uint64_t word = 0;
        if constexpr (std::endian::native == std::endian::little)
            std::memcpy(&word, from, count * sizeof *from);
        else
            for (std::size_t i = 0; i < count; ++i)
                word |= std::uint64_t{from[i]} << bitsPerUnit * i;
        return word;
    }
    static Lanes splat(TovUChar unit) { return unit * each; }
    // The top bit of each unit in which all bits agree. No sum carries into the next unit.
    static Lanes equal(Lanes a, Lanes b) {
        constexpr std::uint64_t below = all - each;
        const Lanes different = a ^ b;
        return ~(((different & below) + below) | different) & all;
    }
    static Lanes either(Lanes a, Lanes b) { return a | b; }
    static Lanes both(Lanes a, Lanes b) { return a & b; }
    static Bits bits(Lanes lanes) { return lanes; }
};

constinit const UnitSearch s_portable = unitSearchOf<WordVector<4>>;

bool always() noexcept { return true; }

constexpr UnitKernel s_kernels[] = {
#if defined(__x86_64__)
    {"avx512", unitAvx512Usable, &unitSearchAvx512},
    {"avx2", unitAvx2Usable, &unitSearchAvx2},
    {"sse2", always, &unitSearchSse2},
#endif
    {"portable", always, &s_portable},
};

// The first call chooses. Racing threads store the same value.
template <auto function, class Result, class... Arguments>
Result chooseAndRun(Arguments... arguments) noexcept {
    const UnitKernel *best = s_kernels;
    while (!best->usable())
        ++best;
    chosenUnitSearch.store(best->search, std::memory_order_relaxed);
    return (best->search->*function)(arguments...);
}

constinit const UnitSearch s_choosers{
    chooseAndRun<&UnitSearch::findUnit>,       chooseAndRun<&UnitSearch::findOther>,
    chooseAndRun<&UnitSearch::findLastUnit>,   chooseAndRun<&UnitSearch::findLastOther>,
    chooseAndRun<&UnitSearch::findAny>,        chooseAndRun<&UnitSearch::findPattern>,
    chooseAndRun<&UnitSearch::firstDifference>};

} // namespace

constinit std::atomic<const UnitSearch *> chosenUnitSearch{&s_choosers};

std::span<const UnitKernel> unitKernels() noexcept { return s_kernels; }

UnitPtr findAnyByTable(UnitPtr begin, UnitPtr end, UnitPtr set, std::size_t n) noexcept {
    constexpr unsigned wordBits = 64;
    std::array<std::uint64_t, 0x10000 / wordBits> table{};
    for (UnitPtr unit = set; unit != set + n; ++unit)
        table[*unit / wordBits] |= std::uint64_t{1} << *unit % wordBits;
    return std::find_if(
        begin, end, [&table](TovUChar unit) { return (table[unit / wordBits] >> unit % wordBits & 1) != 0; });
}

// Two-way string matching: the pattern is cut in two where its local period is the period of the whole. The
// right part is compared first, forwards, then the left one, backwards. After a mismatch in the right part
// the pattern moves behind it, and after one in the left part by a whole period.
namespace {

struct Cut {
    std::size_t at;
    std::size_t period; // of what is behind it
};

// Where the greatest suffix of the pattern begins, by an order of units.
template <class Less>
Cut greatestSuffix(UnitPtr pattern, std::size_t n, Less less) {
    std::size_t at = 0, period = 1;
    std::size_t rival = 1, same = 0; // the suffix that is compared with the greatest so far
    while (rival + same < n) {
        const TovUChar own = pattern[at + same], other = pattern[rival + same];
        if (own == other) {
            if (++same == period) {
                rival += period;
                same = 0;
            }
        } else if (less(other, own)) {
            rival += same + 1;
            same = 0;
            period = rival - at;
        } else {
            at = rival++;
            same = 0;
            period = 1;
        }
    }
    return {at, period};
}

Cut criticalCut(UnitPtr pattern, std::size_t n) {
    const Cut up = greatestSuffix(pattern, n, [](TovUChar a, TovUChar b) { return a < b; });
    const Cut down = greatestSuffix(pattern, n, [](TovUChar a, TovUChar b) { return a > b; });
    return up.at > down.at ? up : down;
}

} // namespace

UnitPtr findPatternLinear(UnitPtr begin, UnitPtr end, UnitPtr pattern, std::size_t n) noexcept {
    const Cut cut = criticalCut(pattern, n);
    const bool periodic = std::equal(pattern, pattern + cut.at, pattern + cut.period);
    const std::size_t step = periodic ? cut.period : std::max(cut.at, n - cut.at) + 1;
    const std::size_t keptByStep = periodic ? n - step : 0;
    std::size_t kept = 0; // leading units of the pattern that are known to stand at `begin`
    while (static_cast<std::size_t>(end - begin) >= n) {
        std::size_t i = std::max(cut.at, kept);
        while (i < n && pattern[i] == begin[i])
            ++i;
        if (i < n) {
            begin += i - cut.at + 1;
            kept = 0;
            continue;
        }
        for (i = cut.at; i > kept && pattern[i - 1] == begin[i - 1];)
            --i;
        if (i <= kept)
            return begin;
        begin += step;
        kept = keptByStep;
    }
    return end;
}

} // namespace tovdetail

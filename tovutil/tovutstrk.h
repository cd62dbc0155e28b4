/// Internal: the searches in 16-bit text, and the choice among their kernels.
///
/// Ownership  None is taken and nothing is allocated.
/// Units      Code units, compared as unsigned numbers; 0 is a unit like any other.
/// Threads    Every function may run anywhere at any time.
/// Cost       One indirect call. A kernel reads nothing outside the given ranges, not one register
///            further, and wants no alignment; a unit may be read twice.
#pragma once

#include <tovutil/tovstring.h>

#include <atomic>
#include <cstddef>
#include <span>

namespace tovdetail {

using UnitPtr = const TovUChar *;

/// One set of kernels. What finds nothing gives `end`, and `firstDifference` gives `n`.
struct UnitSearch {
    UnitPtr (*findUnit)(UnitPtr begin, UnitPtr end, TovUChar unit) noexcept;
    UnitPtr (*findOther)(UnitPtr begin, UnitPtr end, TovUChar unit) noexcept; ///< the first that differs
    UnitPtr (*findLastUnit)(UnitPtr begin, UnitPtr end, TovUChar unit) noexcept;
    UnitPtr (*findLastOther)(UnitPtr begin, UnitPtr end, TovUChar unit) noexcept;
    /// The first unit that is one of `n`.
    UnitPtr (*findAny)(UnitPtr begin, UnitPtr end, UnitPtr set, std::size_t n) noexcept;
    /// The first place where all `n` units of the pattern stand; `n` is not 0. Linear in text and pattern.
    UnitPtr (*findPattern)(UnitPtr begin, UnitPtr end, UnitPtr pattern, std::size_t n) noexcept;
    /// The index of the first unit in which two texts of `n` units differ.
    std::size_t (*firstDifference)(UnitPtr one, UnitPtr other, std::size_t n) noexcept;
};

struct UnitKernel {
    const char *name;
    bool (*usable)() noexcept;
    const UnitSearch *search;
};

/// Best first; the last one is portable and always usable.
std::span<const UnitKernel> unitKernels() noexcept;

// The rows for x86-64, each set in a file of its own.
#if defined(__x86_64__)
bool unitAvx512Usable() noexcept;
extern const UnitSearch unitSearchAvx512;
bool unitAvx2Usable() noexcept;
extern const UnitSearch unitSearchAvx2;
extern const UnitSearch unitSearchSse2;
#endif

/// What bestUnitSearch() gives. It starts as a set of choosers, so that loading the library runs no code.
extern std::atomic<const UnitSearch *> chosenUnitSearch;

/// The best kernels that the processor has.
inline const UnitSearch &bestUnitSearch() noexcept {
    return *chosenUnitSearch.load(std::memory_order_relaxed);
}

/// As UnitSearch::findAny, by one look-up for each unit: for sets that are too large to be compared with.
UnitPtr findAnyByTable(UnitPtr begin, UnitPtr end, UnitPtr set, std::size_t n) noexcept;

/// As UnitSearch::findPattern, unit by unit, and linear whatever text and pattern are.
UnitPtr findPatternLinear(UnitPtr begin, UnitPtr end, UnitPtr pattern, std::size_t n) noexcept;

} // namespace tovdetail

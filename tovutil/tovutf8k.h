/// Internal: the block kernels between UTF-8 and UTF-16, and the scalar conversions that they speed up.
///
/// A kernel converts well-formed text in blocks and stops in front of the first character that needs a
/// decision, or when what is left is too short for a block. It may give up anywhere, so every rule stays
/// in the scalar conversions; a new kernel is one more row of the table.
#pragma once

#include <tovutil/tovutf8.h>

#include <cstddef>
#include <span>

namespace tovdetail {

/// A conversion under way: what is still to read, and where there is room.
template <class S, class D>
struct UtfRun {
    const S *source;
    const S *sourceEnd;
    D *target;
    D *targetEnd;

    std::size_t left() const { return static_cast<std::size_t>(sourceEnd - source); }
    std::size_t room() const { return static_cast<std::size_t>(targetEnd - target); }
};
using Utf8To16 = UtfRun<unsigned char, TovUChar>;
using Utf16To8 = UtfRun<TovUChar, unsigned char>;

/// The most places that targetExhausted can leave free: one unit where a pair is next, three bytes where
/// four are. A kernel that overwrites places behind its result leaves as many at the target's end alone,
/// so that the scalar code goes over all that it touched before it can stop for want of room.
inline constexpr std::size_t freeUnitsMost = 1;
inline constexpr std::size_t freeBytesMost = 3;

/// One set of kernels. They read nothing outside [source, sourceEnd), write nothing outside
/// [target, targetEnd), want no alignment, and move both pointers behind the characters they converted.
struct UtfKernel {
    const char *name;
    bool (*usable)() noexcept;
    void (*to16)(Utf8To16 &run) noexcept;
    void (*to8)(Utf16To8 &run) noexcept;
};

/// Best first; the last one is portable and always usable.
std::span<const UtfKernel> utfKernels() noexcept;

// The rows for x86-64, each set in a file of its own.
#if defined(__x86_64__)
bool utfAvx512Usable() noexcept;
void utf8To16Avx512(Utf8To16 &run) noexcept;
void utf16To8Avx512(Utf16To8 &run) noexcept;
bool utfAvx2Usable() noexcept;
void utf8To16Avx2(Utf8To16 &run) noexcept;
void utf16To8Avx2(Utf16To8 &run) noexcept;
bool utfSse42Usable() noexcept;
void utf8To16Sse42(Utf8To16 &run) noexcept;
void utf16To8Sse42(Utf16To8 &run) noexcept;
#endif

/// Run the best kernel that the processor has.
void utf8To16Blocks(Utf8To16 &run) noexcept;
void utf16To8Blocks(Utf16To8 &run) noexcept;

/// The reference: convert characters until one begins at or behind `stop`, which is not behind sourceEnd.
ConversionResult utf8To16Scalar(Utf8To16 &run, const unsigned char *stop) noexcept;
ConversionResult utf16To8Scalar(Utf16To8 &run, const TovUChar *stop) noexcept;

/// The whole conversion by one kernel and the scalar code.
ConversionResult utf8To16By(void (*kernel)(Utf8To16 &) noexcept, Utf8To16 &run) noexcept;
ConversionResult utf16To8By(void (*kernel)(Utf16To8 &) noexcept, Utf16To8 &run) noexcept;

} // namespace tovdetail

/// Internal: what the UTF kernels of the processors' instruction sets share.
#pragma once

#include <tovutil/tovutf8k.h>

#include <algorithm>
#include <array>
#include <limits>

namespace tovdetail {

/// Where the characters of a block of UTF-8 lie: bit i is byte i. What is behind the block counts as
/// ASCII.
template <class Mask>
struct Utf8Layout {
    Mask following; ///< bytes 0x80 to 0xBF
    Mask lead2;     ///< leads of two bytes or more
    Mask lead3;     ///< leads of three bytes or more
    Mask lead4;     ///< leads of four bytes or more

    /// The bytes that the leads want as following ones.
    Mask wanted() const { return lead2 << 1 | lead3 << 2 | lead4 << 3; }

    /// Leads whose sequence is broken or cut off, and following bytes that have no lead. The first of
    /// them is where the well-formed text ends.
    Mask odd() const {
        const Mask cut =
            (lead2 & ~(following >> 1)) | (lead3 & ~(following >> 2)) | (lead4 & ~(following >> 3));
        return cut | (following & ~wanted());
    }

    /// The places of a well-formed text that get a unit: the last byte of each character, and the third
    /// of four, for the first half of a surrogate pair.
    Mask emits() const {
        return static_cast<Mask>(~(following | lead2)) | (lead2 & ~lead3) << 1 | lead3 << 2 | lead4 << 3;
    }
};

/// Shuffles of 16 bytes, each of which moves the bytes that are wanted to the front.
using UtfShuffles = std::array<std::array<unsigned char, 16>, 256>;

template <class Wanted>
consteval UtfShuffles makeUtfShuffles(Wanted wanted) {
    UtfShuffles shuffles{};
    for (unsigned index = 0; index < shuffles.size(); ++index) {
        std::size_t to = 0;
        for (unsigned from = 0; from < 16; ++from) {
            if (wanted(index, from))
                shuffles[index][to++] = static_cast<unsigned char>(from);
        }
    }
    return shuffles;
}

/// Of eight 16-bit units, those whose bit is set.
alignas(64) inline constexpr UtfShuffles utfUnitsOfEight = makeUtfShuffles([](unsigned index, unsigned byte) {
    return (index >> byte / 2 & 1) != 0;
});

/// Of eight pairs of bytes, the second, and the first where the bit is set.
alignas(64) inline constexpr UtfShuffles utfBytesOfEight = makeUtfShuffles([](unsigned index, unsigned byte) {
    return byte % 2 == 1 || (index >> byte / 2 & 1) != 0;
});

/// Of four groups of four bytes, the fourth, the third where the group's first bit is set, the second
/// where its second bit is.
alignas(64) inline constexpr UtfShuffles utfBytesOfFour = makeUtfShuffles([](unsigned index, unsigned byte) {
    const unsigned bits = index >> byte / 4 * 2;
    return byte % 4 == 3 || (byte % 4 == 2 && (bits & 1) != 0) || (byte % 4 == 1 && (bits & 2) != 0);
});

/// Converts what is too short for `block`, or has too little room for one, in a copy that is filled up with
/// zeros, which `blocks` converts one to one. `worst` is the most places that a unit of the source can need.
template <std::size_t block, std::size_t worst, class S, class D>
void utfShortBlock(void (*blocks)(UtfRun<S, D> &) noexcept, UtfRun<S, D> &run) noexcept {
    if (run.left() >= block && run.room() >= (block + 4) * worst)
        return;
    std::size_t count = std::min({block, run.left(), run.room() / worst});
    // What follows a high surrogate might be its partner.
    if (count != 0 && sizeof(S) == 2 && (run.source[count - 1] & 0xFC00) == 0xD800)
        --count;
    if (count == 0)
        return;
    S from[block] = {};
    D to[(block + 4) * worst];
    std::copy_n(run.source, count, from);
    UtfRun<S, D> copy{from, from + block, to, std::end(to)};
    blocks(copy);
    const std::size_t taken = std::min(count, block - copy.left());
    const std::size_t zeros = block - copy.left() - taken;
    run.target = std::copy(to, copy.target - zeros, run.target);
    run.source += taken;
}

} // namespace tovdetail

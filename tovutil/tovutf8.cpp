// UTF conversion: the rules, one character at a time, and the functions that run block kernels over the
// plain stretches in between.
#include <tovutil/tovutf8.h>

#include <tovutil/tovtrcfn.h>
#include <tovutil/tovutf8k.h>

#include <algorithm>
#include <cstring>
#include <stdexcept>

using tovdetail::Utf16To8;
using tovdetail::Utf8To16;
using tovdetail::UtfRun;

TOV_TRACE_FILE("tovutil/tovutf8");

const unsigned char bytesFromUTF8[256] = {
    0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, // 0x00
    0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, // 0x20
    0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, // 0x40
    0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, // 0x60
    0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, // 0x80
    0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, // 0xA0
    1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, // 0xC0
    2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 3, 3, 3, 3, 3, 3, 3, 3, 4, 4, 4, 4, 5, 5, 5, 5, // 0xE0
};

const std::uint32_t offsetsFromUTF8[6] = {0, 0x3080, 0xE2080, 0x3C82080, 0xFA082080, 0x82082080};

const unsigned char firstByteMark[7] = {0, 0, 0xC0, 0xE0, 0xF0, 0xF8, 0xFC};

namespace {

constexpr std::uint32_t replacement = 0xFFFD;
constexpr std::uint32_t lastOfUtf16 = 0x10FFFF;
constexpr std::uint32_t lastOfUcs4 = 0x7FFFFFFF;

constexpr bool isHigh(std::uint32_t unit) { return unit >= 0xD800 && unit <= 0xDBFF; }
constexpr bool isLow(std::uint32_t unit) { return unit >= 0xDC00 && unit <= 0xDFFF; }

// Reads a unit, or a surrogate pair as one value.
template <class S, class D>
std::uint32_t takeUnits(UtfRun<S, D> &run) {
    const std::uint32_t unit = *run.source++;
    if (!isHigh(unit) || run.source == run.sourceEnd || !isLow(*run.source))
        return unit;
    return ((unit - 0xD800) << 10) + (*run.source++ - 0xDC00u) + 0x10000;
}

// Writes one unit or a pair. False, and nothing written, without room for all of it.
template <std::uint32_t last, class S, class D>
bool putUnits(UtfRun<S, D> &run, std::uint32_t value) {
    const bool isPair = value > 0xFFFF && value <= last;
    if (run.room() < (isPair ? 2 : 1))
        return false;
    if (isPair) {
        *run.target++ = static_cast<D>(((value - 0x10000) >> 10) + 0xD800);
        *run.target++ = static_cast<D>(((value - 0x10000) & 0x3FF) + 0xDC00);
    } else {
        *run.target++ = static_cast<D>(value > last ? replacement : value);
    }
    return true;
}

constexpr unsigned utf8Length(std::uint32_t value) {
    if (value < 0x80)
        return 1;
    if (value < 0x800)
        return 2;
    if (value < 0x10000)
        return 3;
    return value < 0x200000 ? 4 : value < 0x4000000 ? 5 : 6;
}

// Writes from the last byte to the first, so that the length decides everything in one step. False, and
// nothing written, without room for all of it.
template <class S>
bool putBytes(UtfRun<S, unsigned char> &run, std::uint32_t value) {
    if (value > lastOfUcs4)
        value = replacement;
    const unsigned length = utf8Length(value);
    if (run.room() < length)
        return false;
    for (unsigned i = length; --i > 0; value >>= 6)
        run.target[i] = static_cast<unsigned char>(0x80 | (value & 0x3F));
    run.target[0] = static_cast<unsigned char>(value | firstByteMark[length]);
    run.target += length;
    return true;
}

template <class D>
bool holdsSequence(const UtfRun<unsigned char, D> &run) {
    return run.left() > bytesFromUTF8[*run.source];
}

// Reads a sequence that holdsSequence(). The sum wraps.
template <class D>
std::uint32_t takeBytes(UtfRun<unsigned char, D> &run) {
    const unsigned following = bytesFromUTF8[*run.source];
    std::uint32_t sum = *run.source++;
    for (unsigned i = 0; i < following; ++i)
        sum = (sum << 6) + *run.source++;
    return sum - offsetsFromUTF8[following];
}

template <std::uint32_t last, class D>
ConversionResult decodeUtf8(UtfRun<unsigned char, D> &run, const unsigned char *stop) {
    while (run.source < stop) {
        if (!holdsSequence(run))
            return sourceExhausted;
        if (!putUnits<last>(run, takeBytes(run)))
            return targetExhausted;
    }
    return ok;
}

template <class S>
ConversionResult encodeUtf8(UtfRun<S, unsigned char> &run, const S *stop) {
    while (run.source < stop) {
        if (!putBytes(run, takeUnits(run)))
            return targetExhausted;
    }
    return ok;
}

// Kernel and scalar code by turns. The kernel has stopped at one character that needs a decision; where
// it got nowhere at all, more of them may follow.
template <class S, class D, class Scalar>
ConversionResult byTurns(void (*kernel)(UtfRun<S, D> &) noexcept, Scalar scalar, UtfRun<S, D> &run) {
    constexpr std::size_t stretch = 16;
    ConversionResult result = ok;
    while (result == ok && run.source != run.sourceEnd) {
        const S *const before = run.source;
        kernel(run);
        if (run.source == run.sourceEnd)
            break;
        const std::size_t wanted = run.source == before ? stretch : 1;
        result = scalar(run, run.source + std::min(wanted, run.left()));
    }
    return result;
}

// Runs `convert` over a range function's arguments and hands its pointers back.
template <class S, class D, class Convert>
ConversionResult overRange(const S **source, const S *sourceEnd, D **target, D *targetEnd, Convert convert) {
    UtfRun<S, D> run{*source, sourceEnd, *target, targetEnd};
    const ConversionResult result = convert(run);
    *source = run.source;
    *target = run.target;
    return result;
}

} // namespace

namespace tovdetail {

ConversionResult utf8To16Scalar(Utf8To16 &run, const unsigned char *stop) noexcept {
    return decodeUtf8<lastOfUtf16>(run, stop);
}

ConversionResult utf16To8Scalar(Utf16To8 &run, const TovUChar *stop) noexcept {
    return encodeUtf8(run, stop);
}

ConversionResult utf8To16By(void (*kernel)(Utf8To16 &) noexcept, Utf8To16 &run) noexcept {
    return byTurns(kernel, utf8To16Scalar, run);
}

ConversionResult utf16To8By(void (*kernel)(Utf16To8 &) noexcept, Utf16To8 &run) noexcept {
    return byTurns(kernel, utf16To8Scalar, run);
}

} // namespace tovdetail

ConversionResult ConvertUCS4toUTF16(const std::uint32_t **source, const std::uint32_t *sourceEnd,
                                    TovUChar **target, TovUChar *targetEnd) {
    return overRange(source, sourceEnd, target, targetEnd, [](auto &run) {
        while (run.source != run.sourceEnd) {
            if (run.target == run.targetEnd || !putUnits<lastOfUtf16>(run, *run.source++))
                return targetExhausted;
        }
        return ok;
    });
}

ConversionResult ConvertUTF16toUCS4(const TovUChar **source, const TovUChar *sourceEnd,
                                    std::uint32_t **target, std::uint32_t *targetEnd) {
    return overRange(source, sourceEnd, target, targetEnd, [](auto &run) {
        while (run.source != run.sourceEnd) {
            const std::uint32_t value = takeUnits(run);
            if (run.target == run.targetEnd)
                return targetExhausted;
            *run.target++ = value;
        }
        return ok;
    });
}

ConversionResult ConvertUTF16toUTF8(const TovUChar **source, const TovUChar *sourceEnd,
                                    unsigned char **target, unsigned char *targetEnd) {
    return overRange(source, sourceEnd, target, targetEnd,
                     [](Utf16To8 &run) { return tovdetail::utf16To8By(tovdetail::utf16To8Blocks, run); });
}

ConversionResult ConvertUTF8toUTF16(const unsigned char **source, const unsigned char *sourceEnd,
                                    TovUChar **target, TovUChar *targetEnd) {
    return overRange(source, sourceEnd, target, targetEnd,
                     [](Utf8To16 &run) { return tovdetail::utf8To16By(tovdetail::utf8To16Blocks, run); });
}

ConversionResult ConvertUCS4toUTF8(const std::uint32_t **source, const std::uint32_t *sourceEnd,
                                   unsigned char **target, unsigned char *targetEnd) {
    return overRange(source, sourceEnd, target, targetEnd,
                     [](auto &run) { return encodeUtf8(run, run.sourceEnd); });
}

ConversionResult ConvertUTF8toUCS4(const unsigned char **source, const unsigned char *sourceEnd,
                                   std::uint32_t **target, std::uint32_t *targetEnd) {
    return overRange(source, sourceEnd, target, targetEnd,
                     [](auto &run) { return decodeUtf8<lastOfUcs4>(run, run.sourceEnd); });
}

namespace {

// Texts are converted piece by piece into the string's own storage, because resize() fills with zeros:
// a piece's zeros are still in the nearest cache when its text overwrites them.
constexpr std::size_t pieceLength = 2048;

// Makes room for `length` times `worst` places. Compared before it is multiplied, so that no length
// wraps.
template <class String>
void reserveWorst(String &target, std::size_t length, std::size_t worst) {
    if (length > target.max_size() / worst)
        throw std::length_error("text too long for its target");
    target.reserve(length * worst);
    target.clear();
}

bool toUtf16(const unsigned char *source, std::size_t length, TovUString &target) {
    reserveWorst(target, length, 1);
    const unsigned char *const sourceEnd = source + length;
    ConversionResult result = ok;
    while (source != sourceEnd) {
        const std::size_t done = target.size();
        const std::size_t piece = std::min(pieceLength, static_cast<std::size_t>(sourceEnd - source));
        const unsigned char *const before = source;
        target.resize(done + piece);
        TovUChar *to = target.data() + done;
        result = ConvertUTF8toUTF16(&source, source + piece, &to, to + piece);
        target.resize(static_cast<std::size_t>(to - target.data()));
        // A sequence that crosses the piece's end is read again with the next one; at the text's end
        // it is cut off.
        if (result == sourceExhausted && before + piece == sourceEnd) {
            target.clear();
            return false;
        }
    }
    return true;
}

void toUtf8(const TovUChar *source, std::size_t length, TovString &target) {
    constexpr std::size_t worst = 3; // bytes that one unit can need; a pair needs four
    reserveWorst(target, length, 6);
    const TovUChar *const sourceEnd = source + length;
    while (source != sourceEnd) {
        const std::size_t done = target.size();
        std::size_t piece = std::min(pieceLength, static_cast<std::size_t>(sourceEnd - source));
        if (isHigh(source[piece - 1]) && source + piece != sourceEnd)
            --piece; // the pair stays together
        target.resize(done + piece * worst);
        auto *to = reinterpret_cast<unsigned char *>(target.data()) + done;
        ConvertUTF16toUTF8(&source, source + piece, &to, to + piece * worst);
        target.resize(static_cast<std::size_t>(reinterpret_cast<char *>(to) - target.data()));
    }
}

TovString toLdap(std::u16string_view text) {
    TovString converted;
    toUtf8(text.data(), text.size(), converted);
    return TovString(converted.data(), converted.size()); // a copy, without the worst case's capacity
}

} // namespace

bool tovUtf8ToUtf16(const char *source, std::uint32_t length, TovUString &target) {
    return toUtf16(reinterpret_cast<const unsigned char *>(source), length, target);
}

bool tovUtf16ToUtf8(const TovUChar *source, std::uint32_t length, TovString &target) {
    toUtf8(source, length, target);
    return true;
}

TovUString tovFromLdapString(const char *text) {
    TovUString converted;
    toUtf16(reinterpret_cast<const unsigned char *>(text), std::strlen(text), converted);
    return TovUString(converted.data(), converted.size()); // a copy, without the worst case's capacity
}

TovString tovToLdapString(const TovUString &text) { return toLdap(text); }

TovString tovToLdapString(const TovUChar *text) { return toLdap(text); }

#include <services/zpt/utf8.h>

#include <services/zpt/ascii.h>
#include <services/zpt/utf16.h>

#include <algorithm>

namespace zpt {

namespace {

// By the lead byte: the length, and the range of the second byte. The others are 80 to BF.
struct Lead {
    std::uint8_t first, last, length, lowest, highest;
};

constexpr Lead c_leads[] = {
    {0x00, 0x7F, 1, 0x00, 0x00}, {0xC2, 0xDF, 2, 0x80, 0xBF}, {0xE0, 0xE0, 3, 0xA0, 0xBF},
    {0xE1, 0xEC, 3, 0x80, 0xBF}, {0xED, 0xED, 3, 0x80, 0x9F}, {0xEE, 0xEF, 3, 0x80, 0xBF},
    {0xF0, 0xF0, 4, 0x90, 0xBF}, {0xF1, 0xF3, 4, 0x80, 0xBF}, {0xF4, 0xF4, 4, 0x80, 0x8F},
};

constexpr Lead c_badLead{0, 0, 0, 0, 0};

struct LeadTable {
    Lead rows[256];
    constexpr LeadTable() : rows{} {
        std::fill(std::begin(rows), std::end(rows), c_badLead);
        for (const Lead &lead : c_leads)
            std::fill(rows + lead.first, rows + lead.last + 1, lead);
    }
};

constexpr LeadTable c_leadTable;

bool isTrail(unsigned byte) { return (byte & 0xC0U) == 0x80U; }

struct Character {
    std::uint32_t value;
    std::size_t length; // 0: ill-formed
};

Character decode(const char *source, std::size_t count) {
    unsigned byte[4] = {static_cast<unsigned char>(*source), 0, 0, 0};
    const Lead &lead = c_leadTable.rows[byte[0]];
    if (lead.length == 0 || lead.length > count)
        return {0, 0};
    for (std::size_t i = 1; i < lead.length; ++i)
        byte[i] = static_cast<unsigned char>(source[i]);
    if (lead.length > 1 && (byte[1] < lead.lowest || byte[1] > lead.highest))
        return {0, 0};
    switch (lead.length) {
    case 1:
        return {byte[0], 1};
    case 2:
        return {(byte[0] & 0x1FU) << 6 | (byte[1] & 0x3FU), 2};
    case 3:
        return {(byte[0] & 0x0FU) << 12 | (byte[1] & 0x3FU) << 6 | (byte[2] & 0x3FU),
                isTrail(byte[2]) ? 3U : 0U};
    default:
        return {(byte[0] & 0x07U) << 18 | (byte[1] & 0x3FU) << 12 | (byte[2] & 0x3FU) << 6 |
                    (byte[3] & 0x3FU),
                isTrail(byte[2]) && isTrail(byte[3]) ? 4U : 0U};
    }
}

// The character at `source`, in units; a length of 0 is a lone surrogate.
Character nextCharacter(const char16_t *source, std::size_t count) {
    if (isPair(source, count))
        return {pairValue(source), 2};
    return {source[0], isSurrogate(source[0]) ? 0U : 1U};
}

std::size_t encodedLength(std::uint32_t value) {
    return value < 0x80 ? 1 : value < 0x800 ? 2 : value < 0x10000 ? 3 : 4;
}

void encode(std::uint32_t value, std::size_t length, char *target) {
    static constexpr std::uint8_t marks[] = {0, 0, 0xC0, 0xE0, 0xF0};
    for (std::size_t i = length - 1; i > 0; --i, value >>= 6)
        target[i] = static_cast<char>(0x80U | (value & 0x3FU));
    target[0] = static_cast<char>(marks[length] | value);
}

template <class Source, class Target>
struct Cursor {
    const Source *from;
    const Source *fromEnd;
    Target *to;
    Target *toEnd;

    Progress progress(const Source *source, const Target *target) const {
        return {static_cast<std::size_t>(from - source), static_cast<std::size_t>(to - target)};
    }
};

using Reader = Cursor<char, char16_t>;
using Writer = Cursor<char16_t, char>;

unsigned byteAt(const char *text) { return static_cast<unsigned char>(*text); }

// The plain cases, while four bytes and four units of room are left. Ends early at whatever is not plain.
void decodeRun(Reader &at) {
    const char *from = at.from;
    char16_t *to = at.to;
    while (at.fromEnd - from >= 4 && at.toEnd - to >= 4) {
        const unsigned lead = byteAt(from);
        if (lead < 0x80) {
            const auto most = static_cast<std::size_t>(std::min(at.fromEnd - from, at.toEnd - to));
            const std::size_t ascii = std::max<std::size_t>(widenAscii(from, most, to), 1);
            *to = static_cast<char16_t>(lead);
            from += ascii;
            to += ascii;
        } else if (lead < 0xE0) {
            if (lead < 0xC2 || !isTrail(byteAt(from + 1)))
                break;
            *to++ = static_cast<char16_t>((lead & 0x1FU) << 6 | (byteAt(from + 1) & 0x3FU));
            from += 2;
        } else {
            const unsigned unit =
                (lead & 0x0FU) << 12 | (byteAt(from + 1) & 0x3FU) << 6 | (byteAt(from + 2) & 0x3FU);
            const bool trails = isTrail(byteAt(from + 1)) && isTrail(byteAt(from + 2));
            if (lead >= 0xF0 || !trails || unit < 0x800 || isSurrogate(unit))
                break;
            *to++ = static_cast<char16_t>(unit);
            from += 3;
        }
    }
    at.from = from;
    at.to = to;
}

// The same for units; surrogates are not plain.
void encodeRun(Writer &at) {
    const char16_t *from = at.from;
    char *to = at.to;
    while (from != at.fromEnd && at.toEnd - to >= 4) {
        const unsigned unit = *from;
        if (unit < 0x80) {
            const auto most = static_cast<std::size_t>(std::min(at.fromEnd - from, at.toEnd - to));
            const std::size_t ascii = std::max<std::size_t>(narrowAscii(from, most, to), 1);
            *to = static_cast<char>(unit);
            from += ascii;
            to += ascii;
        } else if (unit < 0x800) {
            to[0] = static_cast<char>(0xC0U | unit >> 6);
            to[1] = static_cast<char>(0x80U | (unit & 0x3FU));
            to += 2;
            ++from;
        } else {
            if (isSurrogate(unit))
                break;
            to[0] = static_cast<char>(0xE0U | unit >> 12);
            to[1] = static_cast<char>(0x80U | (unit >> 6 & 0x3FU));
            to[2] = static_cast<char>(0x80U | (unit & 0x3FU));
            to += 3;
            ++from;
        }
    }
    at.from = from;
    at.to = to;
}

} // namespace

std::size_t utf8Length(const char *source, std::size_t count) noexcept {
    return count == 0 ? 0 : decode(source, count).length;
}

Stretch utf8ToUnits(const char *source, std::size_t count, char16_t *target, std::size_t room) noexcept {
    Reader at{source, source + count, target, target + room};
    for (;;) {
        decodeRun(at);
        const std::size_t left = static_cast<std::size_t>(at.fromEnd - at.from);
        const auto stop = [&](End end) { return Stretch{at.progress(source, target), end}; };
        if (left == 0)
            return stop(End::Source);
        const Character c = decode(at.from, left);
        if (c.length == 0)
            return stop(End::BadSource);
        if (static_cast<std::size_t>(at.toEnd - at.to) < unitsOf(c.value))
            return stop(End::TargetFull);
        putCharacter(at.to, c.value);
        at.from += c.length;
        at.to += unitsOf(c.value);
    }
}

Stretch utf8FromUnits(const char16_t *source, std::size_t count, char *target, std::size_t room) noexcept {
    Writer at{source, source + count, target, target + room};
    for (;;) {
        encodeRun(at);
        const std::size_t left = static_cast<std::size_t>(at.fromEnd - at.from);
        const auto stop = [&](End end) { return Stretch{at.progress(source, target), end}; };
        if (left == 0)
            return stop(End::Source);
        const Character c = nextCharacter(at.from, left);
        if (c.length == 0)
            return stop(End::BadSource);
        const std::size_t bytes = encodedLength(c.value);
        if (static_cast<std::size_t>(at.toEnd - at.to) < bytes)
            return stop(End::TargetFull);
        encode(c.value, bytes, at.to);
        at.from += c.length;
        at.to += bytes;
    }
}

} // namespace zpt

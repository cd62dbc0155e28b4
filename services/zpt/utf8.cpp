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
    const bool lone = isLeadSurrogate(source[0]) || isTrailSurrogate(source[0]);
    return {source[0], lone ? 0U : 1U};
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

} // namespace

std::size_t utf8Length(const char *source, std::size_t count) noexcept {
    return count == 0 ? 0 : decode(source, count).length;
}

Stretch utf8ToUnits(const char *source, std::size_t count, char16_t *target, std::size_t room) noexcept {
    Progress at;
    while (at.consumed < count) {
        const std::size_t ascii = widenAscii(
            source + at.consumed, std::min(count - at.consumed, room - at.written), target + at.written);
        at = {at.consumed + ascii, at.written + ascii};
        // Up to here by blocks; a run of characters one by one, before blocks are tried again.
        for (int run = 0; run < 16 && at.consumed < count; ++run) {
            const Character c = decode(source + at.consumed, count - at.consumed);
            if (c.length == 0)
                return {at, End::BadSource};
            const std::size_t units = unitsOf(c.value);
            if (room - at.written < units)
                return {at, End::TargetFull};
            putCharacter(target + at.written, c.value);
            at = {at.consumed + c.length, at.written + units};
        }
    }
    return {at, End::Source};
}

Stretch utf8FromUnits(const char16_t *source, std::size_t count, char *target, std::size_t room) noexcept {
    Progress at;
    while (at.consumed < count) {
        const std::size_t ascii = narrowAscii(
            source + at.consumed, std::min(count - at.consumed, room - at.written), target + at.written);
        at = {at.consumed + ascii, at.written + ascii};
        for (int run = 0; run < 16 && at.consumed < count; ++run) {
            const Character c = nextCharacter(source + at.consumed, count - at.consumed);
            if (c.length == 0)
                return {at, End::BadSource};
            const std::size_t bytes = encodedLength(c.value);
            if (room - at.written < bytes)
                return {at, End::TargetFull};
            encode(c.value, bytes, target + at.written);
            at = {at.consumed + c.length, at.written + bytes};
        }
    }
    return {at, End::Source};
}

} // namespace zpt

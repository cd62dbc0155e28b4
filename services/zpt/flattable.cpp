#include <services/zpt/flattable.h>

#include <services/zpt/ascii.h>

#include <algorithm>
#include <memory>
#include <new>
#include <vector>

namespace zpt {

namespace {

constexpr char16_t c_noUnit = 0xFFFF;      // not a character; a page that has it leaves it to ICU
constexpr std::uint16_t c_noCode = 0xFFFF; // no page has this pair of bytes in a table
constexpr std::size_t c_row = 256;

} // namespace

struct ToUnitsTable {
    bool twoBytes = false;
    bool ascii = false;                                                  // the first 128 bytes are ASCII
    char16_t one[c_row] = {};                                            // by the byte
    std::uint8_t rowOf[c_row] = {};                                      // by the lead byte; row 0 is empty
    std::vector<char16_t> rows = std::vector<char16_t>(c_row, c_noUnit); // by the trail byte

    char16_t unitOf(unsigned char lead, unsigned char trail) const {
        return rows[rowOf[lead] * c_row + trail];
    }
};

struct FromUnitsTable {
    bool twoBytes = false;
    bool ascii = false;
    std::uint32_t blockAt[c_row] = {}; // by the unit's upper half; block 0 is empty
    std::vector<std::uint16_t> codes = std::vector<std::uint16_t>(c_row, c_noCode);

    std::uint16_t codeOf(char16_t unit) const { return codes[blockAt[unit >> 8] + (unit & 0xFFU)]; }
};

namespace {

// Making ---------------------------------------------------------------------------------------------

// What ICU makes of a few elements that more could follow.
template <class Direction>
struct Answer {
    typename Direction::Target target[8];
    std::size_t written = 0;
    bool waits = false; // for what follows
    bool good = false;
};

template <class Direction>
Answer<Direction> ask(UConverter *icu, const typename Direction::Source *source, std::size_t count) {
    Answer<Direction> answer;
    UErrorCode status = U_ZERO_ERROR;
    const auto *from = source;
    auto *to = answer.target;
    Direction::reset(icu);
    Direction::convert(icu, &to, std::end(answer.target), &from, source + count, false, &status);
    answer.good = U_SUCCESS(status);
    answer.written = static_cast<std::size_t>(to - answer.target);
    answer.waits = answer.good && Direction::pending(icu, &status) != 0;
    return answer;
}

char16_t onlyUnit(const Answer<ToUnits> &answer) {
    return answer.good && !answer.waits && answer.written == 1 ? answer.target[0] : c_noUnit;
}

// One byte as it is, two with the first as the upper half. A lead byte of 0 could not be told from none.
std::uint16_t onlyCode(const Answer<FromUnits> &answer) {
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(answer.target[i]); };
    if (!answer.good || answer.waits || answer.written < 1 || answer.written > 2)
        return c_noCode;
    if (answer.written == 1)
        return byte(0);
    return byte(0) == 0 ? c_noCode : static_cast<std::uint16_t>(byte(0) << 8 | byte(1));
}

void addRow(ToUnitsTable &table, UConverter *icu, unsigned lead) {
    table.rowOf[lead] = static_cast<std::uint8_t>(table.rows.size() / c_row);
    for (unsigned trail = 0; trail < c_row; ++trail) {
        const char pair[] = {static_cast<char>(lead), static_cast<char>(trail)};
        table.rows.push_back(onlyUnit(ask<ToUnits>(icu, pair, 2)));
    }
}

template <class F>
bool isAscii(F mapped) {
    for (unsigned i = 0; i < 0x80; ++i)
        if (mapped(i) != i)
            return false;
    return true;
}

std::unique_ptr<ToUnitsTable> makeToUnits(Flat flat, UConverter *icu) {
    auto table = std::make_unique<ToUnitsTable>();
    table->twoBytes = flat == Flat::TwoBytes;
    for (unsigned lead = 0; lead < c_row; ++lead) {
        const char byte = static_cast<char>(lead);
        const auto answer = ask<ToUnits>(icu, &byte, 1);
        table->one[lead] = onlyUnit(answer);
        if (table->twoBytes && answer.waits && answer.written == 0 && table->rows.size() < c_row * c_row)
            addRow(*table, icu, lead);
    }
    table->ascii = isAscii([&](unsigned i) { return table->one[i]; });
    return table;
}

void addCode(FromUnitsTable &table, UConverter *icu, char16_t unit) {
    if (unit == c_noUnit)
        return;
    const std::uint16_t code = onlyCode(ask<FromUnits>(icu, &unit, 1));
    if (code == c_noCode)
        return;
    std::uint32_t &block = table.blockAt[unit >> 8];
    if (block == 0) {
        block = static_cast<std::uint32_t>(table.codes.size());
        table.codes.resize(table.codes.size() + c_row, c_noCode);
    }
    table.codes[block + (unit & 0xFFU)] = code;
}

// The units worth a place are those that bytes lead to; what else the page maps is rare.
std::unique_ptr<FromUnitsTable> makeFromUnits(const ToUnitsTable &units, UConverter *icu) {
    auto table = std::make_unique<FromUnitsTable>();
    table->twoBytes = units.twoBytes;
    for (const char16_t unit : units.one)
        addCode(*table, icu, unit);
    for (const char16_t unit : units.rows)
        addCode(*table, icu, unit);
    table->ascii = isAscii([&](unsigned i) { return table->codeOf(static_cast<char16_t>(i)); });
    return table;
}

// Gives what is published in the end: ours, or that of a thread which was faster.
template <class Table>
const Table *publish(std::atomic<const Table *> &place, std::unique_ptr<Table> made) {
    const Table *published = nullptr;
    if (place.compare_exchange_strong(published, made.get(), std::memory_order_acq_rel))
        published = made.release();
    return published;
}

} // namespace

void makeTables(const CodePage &page, Flat flat, UConverter *icu) noexcept {
    try {
        const ToUnitsTable *units = page.toUnits.load(std::memory_order_acquire);
        if (!units)
            units = publish(page.toUnits, makeToUnits(flat, icu));
        if (!page.fromUnits.load(std::memory_order_acquire))
            publish(page.fromUnits, makeFromUnits(*units, icu));
    } catch (const std::bad_alloc &) {
    }
}

// Running --------------------------------------------------------------------------------------------

namespace {

constexpr std::size_t c_step = 8;

// Eight bytes without a branch between them. Gives false, with nothing counted, when one has no unit.
bool stepToUnits(const char16_t *one, const char *source, char16_t *target) {
    char16_t units[c_step];
    unsigned missing = 0;
    for (std::size_t i = 0; i < c_step; ++i) {
        units[i] = one[static_cast<unsigned char>(source[i])];
        missing |= units[i] + 1U; // only the mark for none carries into bit 16
    }
    std::memcpy(target, units, sizeof units);
    return (missing & 0x10000U) == 0;
}

std::size_t oneByteToUnits(const ToUnitsTable &table, const char *source, std::size_t count,
                           char16_t *target) {
    std::size_t i = 0;
    while (count - i >= c_step && stepToUnits(table.one, source + i, target + i))
        i += c_step;
    for (; i < count; ++i) {
        const char16_t unit = table.one[static_cast<unsigned char>(source[i])];
        if (unit == c_noUnit)
            break;
        target[i] = unit;
    }
    return i;
}

bool stepFromUnits(const FromUnitsTable &table, const char16_t *source, char *target) {
    char bytes[c_step];
    unsigned codes = 0;
    for (std::size_t i = 0; i < c_step; ++i) {
        const std::uint16_t code = table.codeOf(source[i]);
        bytes[i] = static_cast<char>(code);
        codes |= code;
    }
    std::memcpy(target, bytes, sizeof bytes);
    return codes <= 0xFF;
}

std::size_t oneByteFromUnits(const FromUnitsTable &table, const char16_t *source, std::size_t count,
                             char *target) {
    std::size_t i = 0;
    while (count - i >= c_step && stepFromUnits(table, source + i, target + i))
        i += c_step;
    for (; i < count; ++i) {
        const std::uint16_t code = table.codeOf(source[i]);
        if (code == c_noCode)
            break;
        target[i] = static_cast<char>(code);
    }
    return i;
}

// Characters while two bytes of source are there for each; gives false when the table has none.
bool pairsToUnits(const ToUnitsTable &table, const char *source, std::size_t characters, char16_t *target,
                  Progress &at) {
    const char *from = source + at.consumed;
    char16_t *to = target + at.written;
    char16_t *const end = to + characters;
    bool good = true;
    while (to != end) {
        const auto lead = static_cast<unsigned char>(from[0]);
        char16_t unit = table.one[lead];
        std::ptrdiff_t length = 1;
        if (unit == c_noUnit) {
            unit = table.unitOf(lead, static_cast<unsigned char>(from[1]));
            length = 2;
            if (unit == c_noUnit) {
                good = false;
                break;
            }
        }
        *to++ = unit;
        from += length;
    }
    at = {static_cast<std::size_t>(from - source), static_cast<std::size_t>(to - target)};
    return good;
}

Progress twoBytesToUnits(const ToUnitsTable &table, const char *source, std::size_t count, char16_t *target,
                         std::size_t room) {
    Progress at;
    for (;;) {
        if (table.ascii) {
            const std::size_t ascii = widenAscii(
                source + at.consumed, std::min(count - at.consumed, room - at.written), target + at.written);
            at = {at.consumed + ascii, at.written + ascii};
        }
        const std::size_t characters =
            std::min({(count - at.consumed) / 2, room - at.written, std::size_t{64}});
        if (characters == 0)
            break;
        if (!pairsToUnits(table, source, characters, target, at))
            return at;
    }
    if (at.consumed < count && at.written < room) {
        const char16_t unit = table.one[static_cast<unsigned char>(source[at.consumed])];
        if (unit != c_noUnit) {
            target[at.written] = unit;
            at = {at.consumed + 1, at.written + 1};
        }
    }
    return at;
}

// Units while there is room for two bytes for each.
bool unitsToPairs(const FromUnitsTable &table, const char16_t *source, std::size_t units, char *target,
                  Progress &at) {
    const char16_t *from = source + at.consumed;
    const char16_t *const end = from + units;
    char *to = target + at.written;
    bool good = true;
    for (; from != end; ++from) {
        const std::uint16_t code = table.codeOf(*from);
        if (code == c_noCode) {
            good = false;
            break;
        }
        const unsigned wide = code > 0xFF;
        to[0] = static_cast<char>(code >> (8 * wide));
        to[1] = static_cast<char>(code);
        to += 1 + wide;
    }
    at = {static_cast<std::size_t>(from - source), static_cast<std::size_t>(to - target)};
    return good;
}

Progress twoBytesFromUnits(const FromUnitsTable &table, const char16_t *source, std::size_t count,
                           char *target, std::size_t room) {
    Progress at;
    for (;;) {
        if (table.ascii) {
            const std::size_t ascii = narrowAscii(
                source + at.consumed, std::min(count - at.consumed, room - at.written), target + at.written);
            at = {at.consumed + ascii, at.written + ascii};
        }
        const std::size_t units = std::min({count - at.consumed, (room - at.written) / 2, std::size_t{64}});
        if (units == 0)
            break;
        if (!unitsToPairs(table, source, units, target, at))
            return at;
    }
    if (at.consumed < count && at.written < room) {
        const std::uint16_t code = table.codeOf(source[at.consumed]);
        if (code <= 0xFF) {
            target[at.written] = static_cast<char>(code);
            at = {at.consumed + 1, at.written + 1};
        }
    }
    return at;
}

} // namespace

Progress convertFlat(const ToUnitsTable &table, const char *source, std::size_t count, char16_t *target,
                     std::size_t room) noexcept {
    if (table.twoBytes)
        return twoBytesToUnits(table, source, count, target, room);
    const std::size_t done = oneByteToUnits(table, source, std::min(count, room), target);
    return {done, done};
}

Progress convertFlat(const FromUnitsTable &table, const char16_t *source, std::size_t count, char *target,
                     std::size_t room) noexcept {
    if (table.twoBytes)
        return twoBytesFromUnits(table, source, count, target, room);
    const std::size_t done = oneByteFromUnits(table, source, std::min(count, room), target);
    return {done, done};
}

} // namespace zpt

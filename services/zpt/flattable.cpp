#include <services/zpt/flattable.h>

#include <services/zpt/ascii.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <new>
#include <utility>
#include <vector>

namespace zpt {

namespace {

constexpr char16_t c_noUnit = 0xFFFF; // not a character; a page that has it leaves it to ICU
constexpr std::size_t c_row = 256;

// A code as it lies in the table. 0 is none, so that the parts of a table which no unit uses stay zero
// pages that cost no memory. One byte is its value and 0x100; two bytes are their value as a number, and
// those whose first byte is 0 or 1 are left to ICU.
constexpr std::uint16_t c_noCode = 0;
constexpr std::uint16_t c_oneByte = 0x100;
constexpr std::uint16_t c_firstPair = 0x200;

} // namespace

struct ToUnitsTable {
    bool twoBytes = false;
    bool ascii = false;             // the first 128 bytes are ASCII
    bool complete = false;          // every single byte has its unit
    char16_t one[c_row] = {};       // by the byte
    std::uint8_t rowOf[c_row] = {}; // by the lead byte; row 0 is empty
    std::vector<char16_t> rows;     // by the trail byte

    char16_t unitOf(unsigned char lead, unsigned char trail) const {
        return rows[rowOf[lead] * c_row + trail];
    }
};

struct FromUnitsTable {
    bool twoBytes;
    bool ascii;
    std::uint16_t codes[0x10000];
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

std::uint16_t onlyCode(const Answer<FromUnits> &answer) {
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(answer.target[i]); };
    if (!answer.good || answer.waits || answer.written < 1 || answer.written > 2)
        return c_noCode;
    if (answer.written == 1)
        return c_oneByte | byte(0);
    const auto pair = static_cast<std::uint16_t>(byte(0) << 8 | byte(1));
    return pair < c_firstPair ? c_noCode : pair;
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
    table->rows.assign(c_row, c_noUnit);
    for (unsigned lead = 0; lead < c_row; ++lead) {
        const char byte = static_cast<char>(lead);
        const auto answer = ask<ToUnits>(icu, &byte, 1);
        table->one[lead] = onlyUnit(answer);
        if (table->twoBytes && answer.waits && answer.written == 0 && table->rows.size() < c_row * c_row)
            addRow(*table, icu, lead);
    }
    table->ascii = isAscii([&](unsigned i) { return static_cast<unsigned>(table->one[i]); });
    table->complete = std::find(table->one, table->one + c_row, c_noUnit) == table->one + c_row;
    table->rows.shrink_to_fit();
    return table;
}

struct FreeTable {
    void operator()(FromUnitsTable *table) const { std::free(table); }
};

using OwnFromUnitsTable = std::unique_ptr<FromUnitsTable, FreeTable>;

void addCode(FromUnitsTable &table, UConverter *icu, char16_t unit) {
    if (unit != c_noUnit)
        table.codes[unit] = onlyCode(ask<FromUnits>(icu, &unit, 1));
}

// The units worth a place are those that bytes lead to; what else the page maps is rare.
OwnFromUnitsTable makeFromUnits(const ToUnitsTable &units, UConverter *icu) {
    OwnFromUnitsTable table(static_cast<FromUnitsTable *>(std::calloc(1, sizeof(FromUnitsTable))));
    if (!table)
        throw std::bad_alloc();
    table->twoBytes = units.twoBytes;
    for (const char16_t unit : units.one)
        addCode(*table, icu, unit);
    for (const char16_t unit : units.rows)
        addCode(*table, icu, unit);
    table->ascii = isAscii([&](unsigned i) { return static_cast<unsigned>(table->codes[i] ^ c_oneByte); });
    return table;
}

// Gives what is published in the end: ours, or that of a thread which was faster.
template <class Table, class Delete>
const Table *publish(std::atomic<const Table *> &place, std::unique_ptr<Table, Delete> made) {
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

// Eight bytes without a branch between them; false when one alone has no unit, which does not happen in a
// complete table.
template <bool Complete, std::size_t... I>
bool stepToUnits(const char16_t *one, const char *source, char16_t *target, std::index_sequence<I...>) {
    std::uint32_t missing = 0;
    const auto put = [&](std::size_t i) {
        const char16_t unit = one[static_cast<unsigned char>(source[i])];
        target[i] = unit;
        if constexpr (!Complete)
            missing |= unit + 1U; // only the mark for none carries into bit 16
    };
    (put(I), ...);
    return (missing & 0x10000U) == 0;
}

template <bool Complete>
std::size_t stepsToUnits(const char16_t *one, const char *source, std::size_t count, char16_t *target) {
    std::size_t done = 0;
    while (count - done >= c_step &&
           stepToUnits<Complete>(one, source + done, target + done, std::make_index_sequence<c_step>()))
        done += c_step;
    return done;
}

std::size_t oneByteToUnits(const ToUnitsTable &table, const char *source, std::size_t count,
                           char16_t *target) {
    std::size_t i = table.complete ? stepsToUnits<true>(table.one, source, count, target)
                                   : stepsToUnits<false>(table.one, source, count, target);
    for (; i < count; ++i) {
        const char16_t unit = table.one[static_cast<unsigned char>(source[i])];
        if (unit == c_noUnit)
            break;
        target[i] = unit;
    }
    return i;
}

template <std::size_t... I>
bool stepFromUnits(const std::uint16_t *codes, const char16_t *source, char *target,
                   std::index_sequence<I...>) {
    unsigned all = c_oneByte;
    unsigned any = 0;
    const auto put = [&](std::size_t i) {
        const std::uint16_t code = codes[source[i]];
        target[i] = static_cast<char>(code);
        all &= code;
        any |= code;
    };
    (put(I), ...);
    return all != 0 && any < c_firstPair;
}

std::size_t stepsFromUnits(const std::uint16_t *codes, const char16_t *source, std::size_t count,
                           char *target) {
    std::size_t done = 0;
    while (count - done >= c_step &&
           stepFromUnits(codes, source + done, target + done, std::make_index_sequence<c_step>()))
        done += c_step;
    return done;
}

std::size_t oneByteFromUnits(const FromUnitsTable &table, const char16_t *source, std::size_t count,
                             char *target) {
    std::size_t i = stepsFromUnits(table.codes, source, count, target);
    for (; i < count; ++i) {
        const std::uint16_t code = table.codes[source[i]];
        if (code == c_noCode)
            break;
        target[i] = static_cast<char>(code);
    }
    return i;
}

// A place in the source and one in the target.
template <class Source, class Target>
struct Places {
    const Source *from;
    Target *to;
};

constexpr std::size_t c_batch = 64; // characters between two looks for a run of single bytes

// So many characters, for each of which two bytes of source are there. False when the table has no answer.
bool pairsToUnits(const ToUnitsTable &table, Places<char, char16_t> &at, std::size_t characters) {
    const char *from = at.from;
    char16_t *to = at.to;
    char16_t *const end = to + characters;
    for (; to != end; ++to) {
        const auto lead = static_cast<unsigned char>(from[0]);
        char16_t unit = table.one[lead];
        from += 1;
        if (unit == c_noUnit) {
            unit = table.unitOf(lead, static_cast<unsigned char>(from[0]));
            if (unit == c_noUnit) {
                at = {from - 1, to};
                return false;
            }
            from += 1;
        }
        *to = unit;
    }
    at = {from, to};
    return true;
}

// Steps of single bytes, if the text goes on with one.
std::size_t singlesToUnits(const ToUnitsTable &table, const char *source, std::size_t count,
                           char16_t *target) {
    if (count < c_step || table.one[static_cast<unsigned char>(*source)] == c_noUnit)
        return 0;
    return table.ascii ? widenAscii(source, count, target)
                       : stepsToUnits<false>(table.one, source, count, target);
}

void lastToUnits(const ToUnitsTable &table, Places<char, char16_t> &at) {
    const char16_t unit = table.one[static_cast<unsigned char>(*at.from)];
    if (unit != c_noUnit) {
        *at.to = unit;
        at = {at.from + 1, at.to + 1};
    }
}

Progress twoBytesToUnits(const ToUnitsTable &table, const char *source, std::size_t count, char16_t *target,
                         std::size_t room) {
    Places<char, char16_t> at{source, target};
    const auto sourceLeft = [&] { return count - static_cast<std::size_t>(at.from - source); };
    const auto roomLeft = [&] { return room - static_cast<std::size_t>(at.to - target); };
    for (bool good = true; good;) {
        const std::size_t most = std::min(sourceLeft(), roomLeft());
        const std::size_t singles = singlesToUnits(table, at.from, most, at.to);
        at = {at.from + singles, at.to + singles};
        const std::size_t characters = std::min({sourceLeft() / 2, roomLeft(), c_batch});
        if (characters == 0)
            break;
        good = pairsToUnits(table, at, characters);
    }
    if (sourceLeft() == 1 && roomLeft() > 0)
        lastToUnits(table, at);
    return {static_cast<std::size_t>(at.from - source), static_cast<std::size_t>(at.to - target)};
}

// So many units, for each of which there is room for two bytes.
bool unitsToPairs(const FromUnitsTable &table, Places<char16_t, char> &at, std::size_t units) {
    const char16_t *from = at.from;
    const char16_t *const end = from + units;
    char *to = at.to;
    for (; from != end; ++from) {
        const std::uint16_t code = table.codes[*from];
        if (code == c_noCode)
            break;
        const unsigned wide = code >= c_firstPair;
        to[0] = static_cast<char>(code >> (8 * wide)); // of one byte, the lower half
        to[1] = static_cast<char>(code);
        to += 1 + wide;
    }
    at = {from, to};
    return from == end;
}

std::size_t singlesFromUnits(const FromUnitsTable &table, const char16_t *source, std::size_t count,
                             char *target) {
    if (count < c_step || table.codes[*source] >= c_firstPair)
        return 0;
    return table.ascii ? narrowAscii(source, count, target)
                       : stepsFromUnits(table.codes, source, count, target);
}

void lastFromUnits(const FromUnitsTable &table, Places<char16_t, char> &at) {
    const std::uint16_t code = table.codes[*at.from];
    if (code != c_noCode && code < c_firstPair) {
        *at.to = static_cast<char>(code);
        at = {at.from + 1, at.to + 1};
    }
}

Progress twoBytesFromUnits(const FromUnitsTable &table, const char16_t *source, std::size_t count,
                           char *target, std::size_t room) {
    Places<char16_t, char> at{source, target};
    const auto sourceLeft = [&] { return count - static_cast<std::size_t>(at.from - source); };
    const auto roomLeft = [&] { return room - static_cast<std::size_t>(at.to - target); };
    for (bool good = true; good;) {
        const std::size_t most = std::min(sourceLeft(), roomLeft());
        const std::size_t singles = singlesFromUnits(table, at.from, most, at.to);
        at = {at.from + singles, at.to + singles};
        const std::size_t units = std::min({sourceLeft(), roomLeft() / 2, c_batch});
        if (units == 0)
            break;
        good = unitsToPairs(table, at, units);
    }
    if (sourceLeft() > 0 && roomLeft() == 1)
        lastFromUnits(table, at);
    return {static_cast<std::size_t>(at.from - source), static_cast<std::size_t>(at.to - target)};
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

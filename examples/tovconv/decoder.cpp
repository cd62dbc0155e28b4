#include "decoder.h"

#include "failure.h"
#include "report.h"

#include <algorithm>

namespace {

constexpr std::size_t c_pieceBytes = std::size_t{64} << 10;

bool isMark(TovUChar unit) {
    // The marks with which some code page has a common character for both.
    static constexpr struct {
        TovUChar first;
        TovUChar last;
    } ranges[] = {{0x02E5, 0x02E9}, {0x0300, 0x036F}, {0x3099, 0x309A}};
    return std::any_of(std::begin(ranges), std::end(ranges),
                       [unit](const auto &range) { return unit >= range.first && unit <= range.last; });
}

// The units after which a cut does no harm whatever comes next: all, where the last one stands alone; else
// those before the last character that is no mark. Looks back only so far, for marks may be heaped up.
std::size_t unitsUpToSafeCut(std::u16string_view units) {
    constexpr std::size_t farthest = 32;
    if (units.empty() || units.back() <= u' ')
        return units.size();
    for (std::size_t i = units.size(); i-- > units.size() - std::min(units.size(), farthest);)
        if ((units[i] & 0xFC00) != 0xDC00 && !isMark(units[i]))
            return i;
    return units.size();
}

} // namespace

Decoder::Decoder(const Page &page, const Source &source, Input &input, bool keepMarks)
    : m_page(page), m_source(source), m_input(input), m_keepMarks(keepMarks) {}

bool Decoder::next(Piece &piece) {
    for (;;) {
        readMore();
        if (m_bytes.empty() && m_atEnd)
            return false;
        if (m_page.isIndivisible() && !m_atEnd)
            continue;
        Taken taken = takeNext();
        if (taken.bytes == 0 && !mayBeCutOff(0))
            fail();
        if (m_keepMarks && mayBeCutOff(taken.bytes))
            keepMarksTogether(taken);
        if (taken.bytes != 0) {
            moveOut(taken, piece);
            return true;
        }
    }
}

// One read, so that what comes through a pipe goes on without waiting for more.
void Decoder::readMore() {
    const std::size_t held = m_bytes.size();
    const bool indivisible = m_page.isIndivisible();
    if (indivisible && held > c_mostIndivisible)
        throw tooLong(m_input.name(), m_page.name());
    const std::size_t room = indivisible ? c_pieceBytes : c_pieceBytes - std::min(held, c_pieceBytes);
    if (m_atEnd || room == 0)
        return;
    m_bytes.resize(held + room);
    const std::size_t count = m_input.read(m_bytes.data() + held, room);
    m_bytes.resize(held + count);
    m_atEnd = count == 0;
}

// What an indivisible text leaves over is bad: it must not be taken for a text of its own.
Taken Decoder::takeNext() const {
    if (m_page.isIndivisible() && m_place.byte != 0)
        return {};
    return m_source.take({m_shift, m_bytes}, m_atEnd);
}

bool Decoder::mayBeCutOff(std::size_t taken) const {
    return !m_atEnd && m_bytes.size() - taken < c_longestCharacter;
}

void Decoder::keepMarksTogether(Taken &taken) const {
    const std::size_t unitCount = unitsUpToSafeCut(taken.units.view());
    if (unitCount == taken.units.size())
        return;
    taken.bytes =
        m_source.bytesBefore({m_shift, std::string_view(m_bytes).substr(0, taken.bytes)}, unitCount);
    taken.units.cut(unitCount);
}

void Decoder::moveOut(Taken &taken, Piece &piece) {
    piece = {m_input.name(), m_place, std::move(m_shift), std::move(m_bytes), std::move(taken.units)};
    m_bytes.assign(piece.bytes, taken.bytes);
    piece.bytes.resize(taken.bytes);
    m_shift = m_source.shiftAfter(piece.stretch());
    m_place.byte += taken.bytes;
    m_place.pass(piece.units.view());
}

void Decoder::fail() const {
    const Bad bad = m_source.badBytes({m_shift, m_bytes});
    const std::string_view bytes = std::string_view(m_bytes).substr(bad.skipped, bad.bytes);
    Place place = m_place;
    place.byte += bad.skipped;
    throw badBytes(m_input.name(), place, bytes, m_page.name(),
                   bytes.end() == std::string_view(m_bytes).end());
}

#include "encoder.h"

#include "report.h"
#include "search.h"

#include <algorithm>
#include <memory>
#include <utility>

namespace {

char32_t characterAt(std::u16string_view units, std::size_t index) {
    const char32_t first = units[index];
    const bool pair = (first & 0xFC00) == 0xD800 && index + 1 < units.size();
    return pair ? 0x10000 + ((first & 0x3FF) << 10) + (units[index + 1] & 0x3FFU) : first;
}

} // namespace

Encoder::Encoder(const Page &page, const Source &source, Output &output)
    : m_page(page), m_source(source), m_output(output) {}

void Encoder::put(Piece piece) {
    m_heldUnits += piece.units.size();
    m_held.push_back(std::move(piece));
    if (!m_page.isIndivisible())
        flush();
    else if (m_heldUnits > c_mostIndivisible)
        throw tooLong(m_held.back().file, m_page.name());
}

void Encoder::finish() {
    flush();
    finishShift();
}

void Encoder::flush() {
    if (m_held.empty())
        return;
    Converted<TovUChar> joined = m_held.size() > 1 ? joinHeld() : Converted<TovUChar>();
    Converted<TovUChar> &units = m_held.size() > 1 ? joined : m_held.front().units;
    const auto bytes = m_page.allFromUnits(units);
    if (!bytes)
        writeUpToBad(units.view());
    write(bytes->view());
    m_held.clear();
    m_heldUnits = 0;
}

Converted<TovUChar> Encoder::joinHeld() const {
    auto joined = std::make_unique<TovUChar[]>(m_heldUnits + 1);
    TovUChar *end = joined.get();
    for (const Piece &piece : m_held)
        end = std::copy_n(piece.units.view().data(), piece.units.size(), end);
    return {std::move(joined), m_heldUnits};
}

// Every conversion ends a run of two-byte characters with SI, and the next begins it again with SO: at the
// seam of two pieces both are left out.
void Encoder::write(std::string_view bytes) {
    if (m_page.hasShifts() && !bytes.empty()) {
        if (m_shiftedOut && bytes.front() == '\x0E')
            bytes.remove_prefix(1);
        else
            finishShift();
        m_shiftedOut = bytes.back() == '\x0F';
        bytes.remove_suffix(m_shiftedOut ? 1 : 0);
    }
    m_output.write(bytes);
}

void Encoder::finishShift() {
    if (std::exchange(m_shiftedOut, false))
        m_output.write("\x0F");
}

void Encoder::writeUpToBad(std::u16string_view units) {
    const Converted<char> bytes = m_page.fromUnits(units);
    write(bytes.view());
    finishShift();
    const auto isAll = [&](std::size_t length) {
        return m_page.fromUnits(units.substr(0, length)).size() >= bytes.size();
    };
    fail(firstReached(0, units.size() - 1, isAll));
}

void Encoder::fail(std::size_t index) const {
    auto piece = m_held.begin();
    for (; index >= piece->units.size(); ++piece)
        index -= piece->units.size();
    const std::u16string_view units = piece->units.view();
    Place place = piece->start;
    place.byte += m_source.bytesBefore(piece->stretch(), index);
    place.pass(units.substr(0, index));
    throw badCharacter(piece->file, place, characterAt(units, index), m_page.name());
}

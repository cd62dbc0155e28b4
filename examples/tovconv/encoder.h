/// Converts pieces into the target's code page and writes them.
#pragma once

#include "decoder.h"
#include "output.h"
#include "page.h"
#include "source.h"

#include <cstdint>
#include <vector>

class Encoder {
public:
    Encoder(const Page &page, const Source &source, Output &output);

    /// Errors     Exit::BadText for a character that the code page does not have, after all that comes before
    ///            it was written; Exit::Limits for an indivisible text that is too long; those of Output.
    void put(Piece piece);

    /// Writes what is left, when the last piece was put.
    void finish();

private:
    void flush();
    Converted<TovUChar> joinHeld() const;
    void write(std::string_view bytes);
    void finishShift();
    [[noreturn]] void writeUpToBad(std::u16string_view units);
    [[noreturn]] void fail(std::size_t index) const;

    const Page &m_page;
    const Source &m_source;
    Output &m_output;
    std::vector<Piece> m_held; // one, or all of an indivisible text
    std::size_t m_heldUnits = 0;
    bool m_shiftedOut = false; // an SI is still to be written, unless two-byte characters go on
};

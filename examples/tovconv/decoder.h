/// Reads one file and cuts it into pieces of whole characters.
#pragma once

#include "converted.h"
#include "input.h"
#include "place.h"
#include "source.h"

#include <string>

/// Whole characters of one file, as bytes and as units. It begins at `start`.
struct Piece {
    std::string file;
    Place start;
    std::string shift; ///< as in Stretch
    std::string bytes;
    Converted<TovUChar> units;

    Stretch stretch() const { return {shift, bytes}; }
};

class Decoder {
public:
    /// With `keepMarks` a piece never ends before a combining mark: the target may have one character for the
    /// mark and what it stands on.
    Decoder(const Page &page, const Source &source, Input &input, bool keepMarks);

    /// The next piece of the file; false behind the last.
    ///
    /// Errors     Exit::BadText for bytes that don't convert, after all that comes before them was given;
    ///            Exit::Limits for an indivisible text that is too long; those of Input.
    bool next(Piece &piece);

private:
    void readMore();
    Taken takeNext() const;
    bool mayBeCutOff(std::size_t taken) const;
    void keepMarksTogether(Taken &taken) const;
    void moveOut(Taken &taken, Piece &piece);
    [[noreturn]] void fail() const;

    const Page &m_page;
    const Source &m_source;
    Input &m_input;
    bool m_keepMarks;
    Place m_place;       // of what m_bytes begins with
    std::string m_shift; // likewise
    std::string m_bytes; // read and not yet given
    bool m_atEnd = false;
};

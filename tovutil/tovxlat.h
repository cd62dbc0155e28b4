/// Tables that translate between a number and its text.
///
/// A table is a static array of rows that ends with a row whose text is null. The operations are called on
/// its first row and look at one row after the other; the first match wins.
///
///     static constexpr TovXlatEntry states[] = {{1, "open"}, {2, "closed"}, {0, nullptr}};
///     states->getText(2, "?");
///
/// Ownership  The texts belong to the caller.
/// Units      Texts are compared as bytes, in full: case counts, and a text with a NUL inside matches no row.
/// Errors     None but those of TovString in print().
/// Threads    Any thread.
/// Cost       One pass over the rows.
#pragma once

#include <tovutil/tovexport.h>
#include <tovutil/tovstring.h>

#include <cstdint>

struct TOV_EXPORT TovXlatEntry {
    std::int32_t m_value;
    const char *m_text; ///< null in the last row of a table, whose value is never read

    /// The value of the row with this text; null if there is none.
    const std::int32_t *lookupValue(const TovString &text) const;

    std::int32_t getValue(const TovString &text, std::int32_t defaultValue) const;

    /// The default may be null.
    const char *getText(std::int32_t value, const char *defaultText) const;

    /// The text of the row with this value; "#" and the number in decimal if there is none.
    TovString print(std::int32_t value) const;
};

/// A code page by its name: the library's converter, and what its length results don't say by themselves,
/// namely whether a text was converted to its end.
#pragma once

#include "converted.h"

#include <tovdom/tovnls/tovnls.h>

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// What a text in an indivisible code page may have: bytes of a source, units for a target.
constexpr std::size_t c_mostIndivisible = std::size_t{16} << 20;

class Page {
public:
    enum class Form { Utf8, Utf16, Closed };

    /// An empty name means the process code page.
    ///
    /// Errors     The library's error for an unknown name; Exit::UnknownCodePage for one that is no text.
    explicit Page(const std::string &name);

    /// As the user spelled it.
    const std::string &name() const { return m_name; }
    Form form() const { return m_form; }

    /// Whether a text in this code page carries a state from its first byte to its last, in escape sequences,
    /// windows or a byte order mark, so that a part of it can't be converted alone.
    bool isIndivisible() const { return m_indivisible; }

    /// Whether shift bytes (SO, SI) switch between one and two bytes for a character.
    bool hasShifts() const { return m_shifts; }

    /// Bytes of the longest character.
    std::size_t longestCharacter() const;

    Converted<TovUChar> toUnits(std::string_view bytes) const;
    Converted<char> fromUnits(std::u16string_view units) const;

    /// The units of `bytes` if all of it converts, and ends where a character does. `shift` comes before it.
    std::optional<Converted<TovUChar>> allToUnits(std::string_view shift, std::string_view bytes) const;

    /// The bytes of `units` if all of them convert.
    std::optional<Converted<char>> allFromUnits(Converted<TovUChar> &units) const;

private:
    // A character that is put behind a text: when it comes out at the end, all before it was converted.
    // Where the text may stop in different states, each one has bytes of its own.
    struct Mark {
        TovUChar unit = 0;
        std::vector<std::string> bytes;
    };

    Mark findMark() const;
    bool isProof(std::u16string_view text) const;
    std::optional<Converted<TovUChar>> markedToUnits(std::string &text, const std::string &mark) const;

    std::string m_name;
    TovNls m_nls;
    Form m_form;
    bool m_indivisible = false;
    bool m_shifts = false;
    Mark m_mark;
};

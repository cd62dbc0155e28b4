#include "page.h"

#include "failure.h"

#include <services/zptlist.h>
#include <tovutil/tovutil.h>

#include <fnmatch.h>

#include <algorithm>

namespace {

using namespace std::string_literals;

constexpr std::size_t c_longestMark = 8;

// Code pages whose text is one run with a state, by the pattern of their name. The line feed (a blank, where
// line feeds don't stand for themselves) gets through behind a whole text in one of these spellings, and
// behind a text that is cut off in none of them.
struct Indivisible {
    const char *pattern;
    TovUChar unit;
    std::vector<std::string> bytes;
};

const std::vector<Indivisible> &indivisiblePages() {
    static const std::vector<Indivisible> rows = {
        {"ISO-2022-*", u'\n', {"\n"}},
        {"ISO_2022,*", u'\n', {"\n"}},
        {"ibm-25546", u'\n', {"\n"}},     // ISO-2022-KR
        {"windows-570??", u'\n', {"\n"}}, // ISCII
        {"HZ*", u'\n', {"\n", "~}\n"}},
        {"UTF-7", u'\n', {"\n"}},
        {"IMAP-*", u' ', {" "}},
        {"SCSU", u'\n', {"\n", "\0\n"s}},
        {"BOCU-1", u'\n', {"\n"}},
        {"UTF-16", u'\n', {"\0\n"s, "\n\0"s}}, // with a byte order mark, unlike those of the library itself
        {"UTF-16*,version=*", u'\n', {"\0\n"s, "\n\0"s}},
        {"UTF-32", u'\n', {"\0\0\0\n"s, "\n\0\0\0"s}},
    };
    return rows;
}

std::string listedName(std::int32_t id) {
    for (std::size_t i = 0; i < ZPT_CodepageCount(); ++i)
        if (ZPT_CodepageIdAt(i) == id)
            return ZPT_CodepageNameAt(i);
    return {};
}

const Indivisible *findIndivisible(std::int32_t id) {
    const std::string name = listedName(id);
    for (const Indivisible &row : indivisiblePages())
        if (fnmatch(row.pattern, name.c_str(), FNM_CASEFOLD) == 0)
            return &row;
    return nullptr;
}

// A name that converts in part would be taken for what its first bytes name.
TovUString wholeName(const std::string &name) {
    TovUString units = tovToUnicode(name.c_str(), 0xFFFFFFFFU, !name.empty());
    if (std::string_view(tovToMbcs(units.c_str(), 0xFFFFFFFFU, false)) != name)
        throw Failure(Exit::UnknownCodePage, name + ": unknown code page");
    return units;
}

Page::Form formOf(std::int32_t id) {
    switch (id) {
    case TovCodePage::Utf8:
        return Page::Form::Utf8;
    case TovCodePage::Utf16Host:
    case TovCodePage::Utf16Swapped:
        return Page::Form::Utf16;
    default:
        return Page::Form::Closed;
    }
}

} // namespace

Page::Page(const std::string &name)
    : m_name(name.empty() ? "the process code page" : name), m_nls(wholeName(name).c_str()),
      m_form(formOf(m_nls.getCodePageId())) {
    if (m_form != Form::Closed)
        return;
    if (const Indivisible *row = findIndivisible(m_nls.getCodePageId())) {
        m_indivisible = true;
        m_mark = {row->unit, row->bytes};
        return;
    }
    m_shifts = m_nls.isEbcdicBased() && longestCharacter() > 2; // two bytes and their shifts
    m_mark = findMark();
}

std::size_t Page::longestCharacter() const { return static_cast<std::size_t>(m_nls.getMaxByteLen()); }

Converted<TovUChar> Page::toUnits(std::string_view bytes) const {
    return Converted<TovUChar>(m_nls.toUnicode(bytes.data(), static_cast<std::int32_t>(bytes.size())));
}

Converted<char> Page::fromUnits(std::u16string_view units) const {
    return Converted<char>(m_nls.fromUnicode(units.data(), static_cast<std::int32_t>(units.size())));
}

// A control character that texts hardly contain serves best; code pages of two bytes only have none.
Page::Mark Page::findMark() const {
    for (const TovUChar unit : std::u16string_view(u"\x01\x02\x03\x04\x05\x06\x10\x11\x12\x13\n\u3000")) {
        const Converted<char> bytes = fromUnits({&unit, 1});
        if (bytes.size() != 0 && toUnits(bytes.view()).view() == std::u16string_view(&unit, 1))
            return {unit, {(m_shifts ? "\x0F" : "") + std::string(bytes.view())}};
    }
    throw Failure(Exit::UnknownCodePage, m_name + ": this code page has no character that can mark an end");
}

// Whether a mark that comes out at the end proves by itself that all before it was converted.
bool Page::isProof(std::u16string_view text) const {
    return !m_indivisible && text.find(m_mark.unit) == text.npos;
}

std::optional<Converted<TovUChar>> Page::markedToUnits(std::string &text, const std::string &mark) const {
    const std::size_t length = text.size();
    Converted<TovUChar> units = toUnits(text += mark);
    text.resize(length);
    if (units.size() == 0 || units.view().back() != m_mark.unit)
        return std::nullopt;
    units.cut(units.size() - 1);
    const bool whole = isProof(units.view()) || toUnits(text).size() == units.size();
    return whole ? std::optional(std::move(units)) : std::nullopt;
}

std::optional<Converted<TovUChar>> Page::allToUnits(std::string_view shift, std::string_view bytes) const {
    std::string text;
    text.reserve(shift.size() + bytes.size() + c_longestMark);
    text.append(shift).append(bytes);
    for (const std::string &mark : m_mark.bytes)
        if (auto units = markedToUnits(text, mark))
            return units;
    return std::nullopt;
}

std::optional<Converted<char>> Page::allFromUnits(Converted<TovUChar> &units) const {
    if (m_form != Form::Closed)
        return fromUnits(units.view());
    const bool proof = isProof(units.view());
    Converted<char> marked = fromUnits(units.followedBy(m_mark.unit));
    const std::string_view end = std::string_view(m_mark.bytes.front()).substr(m_shifts ? 1 : 0);
    if (proof && marked.view().ends_with(end)) {
        marked.cut(marked.size() - end.size());
        return marked;
    }
    Converted<char> plain = fromUnits(units.view());
    const bool whole = !proof && marked.view() != plain.view();
    return whole ? std::optional(std::move(plain)) : std::nullopt;
}

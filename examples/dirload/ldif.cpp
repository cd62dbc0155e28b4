#include "ldif.h"

#include "text.h"

#include <algorithm>
#include <array>
#include <utility>

namespace {

constexpr std::size_t c_blockSize = std::size_t{64} << 10;
constexpr auto npos = std::string_view::npos;

constexpr std::string_view c_base64Digits =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

constexpr std::array<unsigned char, 256> c_base64Value = [] {
    std::array<unsigned char, 256> values{};
    values.fill(0xFF);
    for (std::size_t i = 0; i < c_base64Digits.size(); ++i)
        values[static_cast<unsigned char>(c_base64Digits[i])] = static_cast<unsigned char>(i);
    return values;
}();

std::size_t paddingOf(std::string_view text) {
    return text.ends_with("==") ? 2 : text.ends_with('=') ? 1 : 0;
}

// Gives the offset of what is no base64, which is the end where something is missing; npos if all is well.
std::size_t decodeBase64(std::string_view text, std::string &bytes) {
    const std::size_t digitCount = text.size() - paddingOf(text);
    bytes.resize(digitCount * 6 / 8);
    std::uint32_t bits = 0;
    unsigned bitCount = 0;
    auto to = bytes.begin();
    for (std::size_t i = 0; i < digitCount; ++i) {
        const unsigned char value = c_base64Value[static_cast<unsigned char>(text[i])];
        if (value == 0xFF)
            return i;
        bits = bits << 6 | value;
        bitCount += 6;
        if (bitCount >= 8)
            *to++ = static_cast<char>(bits >> (bitCount -= 8));
    }
    return text.size() % 4 == 0 ? npos : text.size();
}

// Gives the offset of the first byte that makes it no attribute description; npos if all is well.
std::size_t badInDescription(std::string_view text) {
    for (std::size_t i = 0, partBegin = 0; i <= text.size(); ++i) {
        const bool partEnds = i == text.size() || text[i] == ';';
        const bool inOid = partBegin == 0 && i < text.size() && text[i] == '.';
        if (partEnds ? i == partBegin : !isNameByte(text[i]) && !inOid)
            return i;
        if (partEnds)
            partBegin = i + 1;
    }
    return npos;
}

std::size_t findUnsafe(std::string_view text, std::size_t from) {
    return std::min(text.find('\0', from), text.find('\r', from));
}

} // namespace

LdifReader::LdifReader(ByteSource &source, std::size_t longestLine)
    : m_source(source), m_longestLine(longestLine), m_buffer(c_blockSize) {}

bool LdifReader::next(LdifItem &item) {
    while (std::exchange(m_again, false) || readLine())
        if (examine(item))
            return true;
    item = {};
    return std::exchange(m_inRecord, false);
}

// Lines ----------------------------------------------------------------------------------------------------

bool LdifReader::fill() {
    if (m_unread.empty())
        m_unread = {m_buffer.data(), m_source.read(m_buffer.data(), m_buffer.size())};
    return !m_unread.empty();
}

bool LdifReader::readLine() {
    m_text.clear();
    m_folds.clear();
    m_tooLong = false;
    if (!fill())
        return false;
    takeLine(1);
    while ((!m_text.empty() || m_tooLong) && fill() && m_unread.front() == ' ') {
        m_unread.remove_prefix(1);
        takeLine(2);
    }
    return true;
}

// Takes what is left of a line of the file. Of continuations without a text only the last is remembered, for
// there may be any number.
void LdifReader::takeLine(std::uint64_t column) {
    if (!m_folds.empty() && m_folds.back().offset == m_text.size())
        m_folds.pop_back();
    m_folds.push_back({m_text.size(), {++m_lineCount, column}});
    while (fill()) {
        const std::size_t end = m_unread.find('\n');
        append(m_unread.substr(0, end));
        m_unread.remove_prefix(std::min(m_unread.size(), end == npos ? npos : end + 1));
        if (end != npos)
            break;
    }
    if (m_text.size() > m_folds.back().offset && m_text.back() == '\r')
        m_text.pop_back();
}

void LdifReader::append(std::string_view bytes) {
    const std::size_t room = m_longestLine - m_text.size();
    m_text += bytes.substr(0, room);
    m_tooLong = m_tooLong || bytes.size() > room;
}

Place LdifReader::placeOf(std::size_t offset) const {
    const auto behind = std::upper_bound(m_folds.begin(), m_folds.end(), offset,
                                         [](std::size_t at, const Fold &fold) { return at < fold.offset; });
    const Fold &fold = behind[-1];
    return {fold.place.line, fold.place.column + (offset - fold.offset)};
}

Place LdifReader::placeInValue(std::size_t offset) const {
    return placeOf(m_valueAt + (m_base64 ? offset / 3 * 4 : offset));
}

// Records --------------------------------------------------------------------------------------------------

// True when the line gives an item.
bool LdifReader::examine(LdifItem &item) {
    item = {};
    if (m_text.empty() && !m_tooLong) {
        m_skipping = false;
        return std::exchange(m_inRecord, false);
    }
    if (m_text.starts_with('#') || m_skipping)
        return false;
    if (m_text.starts_with(' '))
        return fail(item, Fault::StrayContinuation, 0);
    const std::string_view description = std::string_view(m_text).substr(0, m_text.find(':'));
    const std::string_view name = description.substr(0, description.find(';'));
    if (!m_inRecord || equalNames(name, "dn"))
        return begin(item, name);
    if (equalNames(name, "changetype") || equalNames(name, "control")) {
        m_skipping = true;
        return fail(item, Fault::ChangeRecord, 0);
    }
    item.kind = LdifItem::Kind::Value;
    item.name = name;
    item.options = description.substr(name.size());
    return parseValue(item);
}

bool LdifReader::begin(LdifItem &item, std::string_view name) {
    if (std::exchange(m_atStart, false) && equalNames(name, "version"))
        return checkVersion(item);
    if (m_inRecord) {
        m_inRecord = false;
        m_again = true;
        return fail(item, Fault::MissingSeparator, 0);
    }
    m_inRecord = true;
    if (!equalNames(name, "dn"))
        return fail(item, Fault::MissingDn, 0);
    item.kind = LdifItem::Kind::Dn;
    item.name = name;
    return parseValue(item);
}

bool LdifReader::checkVersion(LdifItem &item) {
    parseValue(item);
    if (item.kind == LdifItem::Kind::Fault)
        return true;
    return item.bytes != "1" && fail(item, Fault::BadVersion, m_valueAt);
}

// Always true: the value is an item, and so is a fault.
bool LdifReader::parseValue(LdifItem &item) {
    const std::string_view text = m_text;
    if (m_tooLong)
        return fail(item, Fault::LineTooLong, text.size());
    const std::size_t colon = text.find(':');
    if (colon == npos)
        return fail(item, Fault::MissingColon, text.size());
    if (const std::size_t bad = badInDescription(text.substr(0, colon)); bad != npos)
        return fail(item, Fault::BadAttribute, bad);
    const std::string_view behind = text.substr(colon + 1);
    if (behind.starts_with('<'))
        return fail(item, Fault::UrlValue, colon + 1);
    m_base64 = behind.starts_with(':');
    m_valueAt = std::min(text.size(), text.find_first_not_of(' ', colon + (m_base64 ? 2 : 1)));
    item.bytes = text.substr(m_valueAt);
    if (m_base64) {
        const std::size_t bad = decodeBase64(item.bytes, m_decoded);
        item.bytes = m_decoded;
        return bad == npos || fail(item, Fault::BadBase64, m_valueAt + bad);
    }
    const std::size_t bad = findUnsafe(text, m_valueAt);
    return bad == npos || fail(item, Fault::UnsafeByte, bad);
}

// Always true, to be returned by those that have an item.
bool LdifReader::fail(LdifItem &item, Fault fault, std::size_t offset) const {
    item.kind = LdifItem::Kind::Fault;
    item.fault = fault;
    item.place = placeOf(offset);
    item.bytes = std::string_view(m_text).substr(offset);
    return true;
}

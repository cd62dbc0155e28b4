#include "dn.h"

#include "../tovconv/utf8.h"
#include "problem.h"
#include "text.h"

#include <tovutil/tovldapu.h>
#include <tovutil/tovutf8.h>
#include <tovutil/tovutil.h>

#include <algorithm>
#include <functional>

namespace {

constexpr std::size_t c_longestKept = 1000; // so that the size of the cache has a limit in bytes, too

struct KnownDn {
    TovString bytes;
    std::string_view key; // as find() and insert() get it
    TovUString normal;
};

std::string_view keyOf(void *key) { return *static_cast<std::string_view *>(key); }

// The first separator at or behind `at` that no backslash precedes, or the end.
template <class Unit>
std::size_t partEnd(std::basic_string_view<Unit> text, std::size_t at,
                    std::basic_string_view<Unit> separators) {
    while (at < text.size() && separators.find(text[at]) == separators.npos)
        at += text[at] == '\\' ? 2U : 1U;
    return std::min(at, text.size());
}

int hexDigit(char byte) {
    constexpr std::string_view digits = "0123456789abcdef";
    const std::size_t value = digits.find(asciiLower(byte));
    return value == digits.npos ? -1 : static_cast<int>(value);
}

// The library takes the digits of \2C as they are, so the byte that they stand for must be there before. It
// keeps its backslash where it would mean something else without.
TovString withoutHexPairs(std::string_view dn) {
    if (dn.find('\\') == dn.npos)
        return TovString(dn);
    TovString plain;
    for (std::size_t i = 0; i < dn.size(); ++i) {
        plain += dn[i];
        if (dn[i] != '\\' || i + 1 == dn.size())
            continue;
        const int high = hexDigit(dn[i + 1]);
        const int low = i + 2 < dn.size() ? hexDigit(dn[i + 2]) : -1;
        if (high < 0 || low < 0) {
            plain += dn[++i];
            continue;
        }
        const int byte = high << 4 | low;
        if (byte >= 0x80)
            plain.pop_back();
        plain += static_cast<char>(byte);
        i += 2;
    }
    return plain;
}

TovUString withDoubledBackslashes(const TovUString &text) {
    if (text.find(u'\\') == text.npos)
        return text;
    TovUString doubled;
    for (const TovUChar unit : text)
        doubled.append(unit == u'\\' ? 2 : 1, unit);
    return doubled;
}

TovUString normalValue(const TovUString &raw) {
    const TovUString trimmed = tovTrimSpaces(raw);
    if (trimmed.starts_with(u'#'))
        return tovToLower(trimmed); // the hexadecimal form, in which nothing is escaped
    const TovUString plain = tovToLower(tovTrimSpaces(TovLdapUtil::dnUnEscape(raw)));
    return TovLdapUtil::dnEscape(withDoubledBackslashes(plain));
}

TovUString normalPart(const TovUString &part) {
    const std::size_t equals = part.find(u'=');
    const TovUString type = tovTrimSpaces(part.substr(0, equals));
    if (equals == part.npos || type.empty())
        throw reasonOf(Fault::BadDn, "A part has no attribute in front of a \"=\".");
    return tovToLower(type) + u'=' + normalValue(part.substr(equals + 1));
}

} // namespace

TovUString normalDn(std::string_view dn) {
    const TovString plain = withoutHexPairs(dn);
    if (wellFormedUtf8(plain) != plain.size())
        throw reasonOf(Fault::BadDn, "Its hexadecimal digits give no UTF-8.");
    TovUString text;
    tovUtf8ToUtf16(plain.data(), static_cast<std::uint32_t>(plain.size()), text);
    TovUString normal;
    for (std::size_t at = 0; !dn.empty() && at <= text.size();) {
        const std::size_t end = partEnd<TovUChar>(text, at, u",;+");
        normal += normalPart(text.substr(at, end - at));
        if (end < text.size())
            normal += text[end] == u'+' ? u'+' : u',';
        at = end + 1;
    }
    return normal;
}

DnCache::DnCache(unsigned maxSize) : m_cache(TovUtCacheImplFactory::create(0, this, maxSize)) {}

TovUString DnCache::normal(std::string_view dn) {
    if (dn.size() > c_longestKept)
        return normalDn(dn);
    bool created = false;
    auto *known = static_cast<KnownDn *>(m_cache->insert(&dn, nullptr, &created));
    ++(created ? m_misses : m_hits);
    return known->normal;
}

TovUString DnCache::normalOfEntry(std::string_view dn) {
    const std::size_t end = partEnd<char>(dn, 0, ",;");
    if (end + 1 >= dn.size())
        return normalDn(dn); // a name of one part, or no name
    return normalDn(dn.substr(0, end)) + u',' + normal(dn.substr(end + 1));
}

// What the cache asks for: its words are pointers to a std::string_view and to a KnownDn.

unsigned DnCache::hash(void *key) { return static_cast<unsigned>(std::hash<std::string_view>()(keyOf(key))); }

bool DnCache::equal(void *storedKey, void *probedKey) { return keyOf(storedKey) == keyOf(probedKey); }

void *DnCache::getKey(void *value) { return &static_cast<KnownDn *>(value)->key; }

void *DnCache::create(void *key, void *) {
    auto known = std::make_unique<KnownDn>();
    known->normal = normalDn(keyOf(key));
    known->bytes = keyOf(key);
    known->key = known->bytes;
    return known.release();
}

void DnCache::destroy(void *value) { delete static_cast<KnownDn *>(value); }

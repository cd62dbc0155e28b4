// Case mapping: ICU's full mapping in the locale's language, and the simple one where that has no room.
#include <services/zpt/locale.h>
#include <services/zpt/utf16.h>

#include <unicode/uchar.h>
#include <unicode/ustring.h>

#include <algorithm>

namespace zpt {

namespace {

using FullMapping = std::int32_t (*)(UChar *, std::int32_t, const UChar *, std::int32_t, const char *,
                                     UErrorCode *);

struct Mapping {
    FullMapping full;
    UChar32 (*simple)(UChar32);
    char16_t first, last; // the ASCII letters that change, all by the same bit
};

constexpr Mapping c_upper{u_strToUpper, u_toupper, u'a', u'z'};
constexpr Mapping c_lower{u_strToLower, u_tolower, u'A', u'Z'};
constexpr char16_t c_caseBit = 0x20;

// Languages in which the letter i keeps its dot, or its lack of one.
bool isTurkic(std::string_view language) {
    static constexpr std::string_view rows[] = {"tr", "tur", "az", "aze"};
    return std::find(std::begin(rows), std::end(rows), language) != std::end(rows);
}

// Text of ASCII alone maps unit by unit in all other languages; gives false at the first other unit.
bool mapAscii(const Mapping &mapping, char16_t *target, const char16_t *source, std::int32_t count) {
    for (std::int32_t i = 0; i < count; ++i) {
        const char16_t unit = source[i];
        if (unit > 0x7F)
            return false;
        target[i] =
            unit >= mapping.first && unit <= mapping.last ? static_cast<char16_t>(unit ^ c_caseBit) : unit;
    }
    return true;
}

UChar32 simpleTurkic(const Mapping &mapping, UChar32 c) {
    if (&mapping == &c_upper)
        return c == u'i' ? u'\u0130' : u_toupper(c);
    return c == u'I' ? u'\u0131' : u_tolower(c);
}

std::uint32_t mapOne(const Mapping &mapping, bool turkic, std::uint32_t value) {
    const auto c = static_cast<UChar32>(value);
    return static_cast<std::uint32_t>(turkic ? simpleTurkic(mapping, c) : mapping.simple(c));
}

// Gives the units written; a character that has no room either ends the text.
std::size_t mapSimply(const Mapping &mapping, CXLocale &locale, bool turkic, char16_t *target,
                      std::size_t capacity, const char16_t *source, std::size_t count) {
    std::size_t written = 0;
    for (std::size_t read = 0; read < count;) {
        const bool pair = isPair(source + read, count - read);
        const std::uint32_t mapped = mapOne(mapping, turkic, pair ? pairValue(source + read) : source[read]);
        if (unitsOf(mapped) > capacity - written) {
            fail(locale, BufferTooSmall);
            break;
        }
        putCharacter(target + written, mapped);
        written += unitsOf(mapped);
        read += pair ? 2 : 1;
    }
    return written;
}

std::int32_t mapCase(const Mapping &mapping, CXLocale &locale, char16_t *target, std::int32_t capacity,
                     const char16_t *source, std::int32_t count) {
    const bool turkic = isTurkic(locale.name.language.view());
    if (!turkic && count <= capacity && mapAscii(mapping, target, source, count))
        return count;
    UErrorCode status = U_ZERO_ERROR;
    const std::int32_t written =
        mapping.full(target, capacity, source, count, locale.name.language.c_str(), &status);
    if (U_SUCCESS(status))
        return written;
    if (status == U_BUFFER_OVERFLOW_ERROR)
        return static_cast<std::int32_t>(mapSimply(mapping, locale, turkic, target,
                                                   static_cast<std::size_t>(capacity), source,
                                                   static_cast<std::size_t>(count)));
    fail(locale, status == U_MEMORY_ALLOCATION_ERROR ? NoMemory : NotConvertible);
    return 0;
}

} // namespace

} // namespace zpt

extern "C" TOV_EXPORT std::int32_t CXMapStringU(CXLocale *locale, char16_t *target,
                                                std::int32_t capacityUnits, const char16_t *source,
                                                std::int32_t sourceUnits, std::uint32_t flags) {
    if (!locale || !target || !source || sourceUnits <= 0 || capacityUnits < 0)
        return 0;
    if (flags == CX_MAP_UPPER)
        return zpt::mapCase(zpt::c_upper, *locale, target, capacityUnits, source, sourceUnits);
    if (flags == CX_MAP_LOWER)
        return zpt::mapCase(zpt::c_lower, *locale, target, capacityUnits, source, sourceUnits);
    zpt::fail(*locale, zpt::BadOption);
    return 0;
}

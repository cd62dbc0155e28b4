// Locale information: what libzpt knows of a locale, by keys and items.
#include <services/lng1.h>

#include <services/zpt/zptlocale.h>
#include <tovutil/tovexport.h>

#include <algorithm>
#include <cstring>
#include <iterator>
#include <string_view>

namespace {

constexpr std::size_t c_longestText = 96; // language and country of 11, a name of 60, two separators
constexpr std::size_t c_mostBytes = c_longestText * 9; // for the longest character of any code page

// A text item, made in place, because nothing here may fail for want of memory.
class ItemText {
public:
    void append(std::string_view text) {
        for (char c : text)
            m_units[m_length++] = static_cast<unsigned char>(c);
    }
    const char16_t *units() const { return m_units; }
    std::int32_t length() const { return static_cast<std::int32_t>(m_length); }

private:
    char16_t m_units[c_longestText];
    std::size_t m_length = 0;
};

void appendLocaleName(ItemText &text, const zpt::LocaleTexts &parts) {
    text.append(parts.language);
    if (!parts.country.empty()) {
        text.append("_");
        text.append(parts.country);
    }
    text.append(".");
    text.append(parts.codePage);
}

// False for an unknown item.
bool appendItem(ItemText &text, const CXLocale &locale, std::int32_t item) {
    const zpt::LocaleTexts parts = zpt::textsOf(locale);
    switch (item) {
    case LNG1_TEXT_LOCALE:
        appendLocaleName(text, parts);
        return true;
    case LNG1_TEXT_LANGUAGE:
        text.append(parts.language);
        return true;
    case LNG1_TEXT_COUNTRY:
        text.append(parts.country);
        return true;
    case LNG1_TEXT_CODEPAGE:
        text.append(parts.codePage);
        return true;
    default:
        return false;
    }
}

std::int32_t refuse(CXLocale *locale, zpt::Error error) {
    if (locale)
        zpt::fail(*locale, error);
    return -1;
}

// Gives the length, or refuses what has no room.
template <class T>
std::int32_t deliver(CXLocale *locale, const T *text, std::int32_t length, T *buffer, std::int32_t capacity) {
    if (length > capacity)
        return refuse(locale, zpt::BufferTooSmall);
    std::copy_n(text, length, buffer);
    return length;
}

} // namespace

extern "C" {

TOV_EXPORT CXLocale *LNG1_PrivateFunction_GetProcessLocale(void) { return zpt::processLocale(); }

TOV_EXPORT CXLocale *LNG1_GetLocale(std::int32_t, std::int32_t codePageId, std::int32_t, long *error) {
    zpt::Error reason = zpt::NoError;
    CXLocale *locale = zpt::openLocale(codePageId, reason);
    if (!locale && error)
        *error = reason;
    return locale;
}

TOV_EXPORT std::int32_t LNG1_GetLocaleNumInfo(CXLocale *locale, std::int32_t key, std::int32_t) {
    const zpt::LocaleFacts facts = zpt::factsOf(locale);
    switch (key) {
    case LNG1_CODEPAGE_ID:
        return facts.codePageId;
    case LNG1_MAX_BYTE_LENGTH:
        return facts.maxBytes;
    case LNG1_EBCDIC:
        return facts.ebcdic ? 0 : 1;
    default:
        return refuse(locale, zpt::BadType);
    }
}

TOV_EXPORT std::int32_t LNG1_GetLocaleTextInfoU(CXLocale *locale, std::int32_t item, char16_t *buffer,
                                                std::int32_t capacity, std::int32_t) {
    ItemText text;
    if (!locale || !buffer || !appendItem(text, *locale, item))
        return refuse(locale, zpt::BadType);
    return deliver(locale, text.units(), text.length(), buffer, capacity);
}

TOV_EXPORT std::int32_t LNG1_GetLocaleTextInfo(CXLocale *locale, std::int32_t item, char *buffer,
                                               std::int32_t capacity, std::int32_t) {
    ItemText text;
    if (!locale || !buffer || !appendItem(text, *locale, item))
        return refuse(locale, zpt::BadType);
    char bytes[c_mostBytes];
    const auto made = zpt::bytesOf(*locale, text.units(), text.length(), bytes, sizeof bytes);
    return made < 0 ? made : deliver<char>(locale, bytes, made, buffer, capacity);
}

TOV_EXPORT void LNG1_GetCodepageName(std::int32_t codePageId, char *buffer, std::int32_t capacity) {
    if (!buffer || capacity <= 0)
        return;
    const std::string_view name = zpt::codePageName(codePageId);
    const std::size_t length = name.copy(buffer, static_cast<std::size_t>(capacity) - 1);
    buffer[length] = '\0';
}

TOV_EXPORT std::int32_t LNG1_GetCodepageId(const char *name, long *) {
    return name ? zpt::codePageId(name) : 0;
}
}

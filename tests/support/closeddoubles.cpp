// Doubles of the two closed libraries, for builds that have neither: tracing is off, and the one locale has
// the code page 819, in which a byte is the code unit of the same number.
#include <services/cx.h>
#include <services/lng1.h>
#include <services/trc1.h>

#include <algorithm>
#include <cstring>

struct CXLocale {};

namespace {

constexpr std::int32_t c_codePage = 819;
constexpr char c_codePageName[] = "ISO-8859-1";
constinit CXLocale s_locale;

std::int32_t textInfo(std::int32_t capacity) { return capacity > 0 ? 0 : -1; }

char16_t mapUnit(char16_t unit, std::uint32_t flags) {
    if (flags == CX_MAP_UPPER && unit >= u'a' && unit <= u'z')
        return static_cast<char16_t>(unit - u'a' + u'A');
    if (flags == CX_MAP_LOWER && unit >= u'A' && unit <= u'Z')
        return static_cast<char16_t>(unit - u'A' + u'a');
    return unit;
}

} // namespace

std::uint32_t TRC1_Sync(TRC1_EPB *record) {
    record->level.store(0, std::memory_order_relaxed);
    record->sequence.store(record->unitSequence->load(), std::memory_order_release);
    return 0;
}

void TRC1_Event(TRC1_EPB *, std::uint32_t, std::uint32_t) {}

void TRC1_Printf(TRC1_EPB *, std::uint32_t, const char *, ...) {}

void TRC1_Dump(TRC1_EPB *, std::uint32_t, const void *, std::uint32_t, const char *, const char *) {}

CXLocale *LNG1_PrivateFunction_GetProcessLocale(void) { return &s_locale; }

CXLocale *LNG1_GetLocale(std::int32_t, std::int32_t codePageId, std::int32_t, long *error) {
    if (codePageId == c_codePage)
        return &s_locale;
    *error = 1;
    return nullptr;
}

std::int32_t LNG1_GetLocaleNumInfo(CXLocale *, std::int32_t key, std::int32_t) {
    return key == LNG1_CODEPAGE_ID ? c_codePage : 1;
}

std::int32_t LNG1_GetLocaleTextInfo(CXLocale *, std::int32_t, char *, std::int32_t capacity, std::int32_t) {
    return textInfo(capacity);
}

std::int32_t LNG1_GetLocaleTextInfoU(CXLocale *, std::int32_t, char16_t *, std::int32_t capacity,
                                     std::int32_t) {
    return textInfo(capacity);
}

void LNG1_GetCodepageName(std::int32_t codePageId, char *buffer, std::int32_t capacity) {
    if (capacity <= 0)
        return;
    const char *name = codePageId == c_codePage ? c_codePageName : "";
    const std::size_t length = std::min(std::strlen(name), static_cast<std::size_t>(capacity - 1));
    std::memcpy(buffer, name, length);
    buffer[length] = '\0';
}

std::int32_t LNG1_GetCodepageId(const char *name, long *) {
    return std::strcmp(name, c_codePageName) == 0 ? c_codePage : 0;
}

std::int32_t CXGetError(CXLocale *) { return 0; }

void CXReleaseLocale(CXLocale *, std::int32_t) {}

std::int32_t CXByteLength(CXLocale *, const char *, std::int32_t) { return 1; }

void CXInitState(CXLocale *, CXState *state, std::int32_t) { *state = 0; }

std::int32_t CXStringToUnicode(char16_t *target, std::int32_t capacityUnits, CXLocale *, const char *source,
                               std::int32_t sourceBytes, std::int32_t) {
    const std::int32_t count = std::min(capacityUnits, sourceBytes);
    for (std::int32_t i = 0; i < count; ++i)
        target[i] = static_cast<unsigned char>(source[i]);
    return count;
}

std::int32_t CXStringToUnicodeEx(char16_t *target, std::int32_t capacityUnits, CXLocale *locale,
                                 const char *source, CXState, std::int32_t sourceBytes, std::int32_t zero) {
    return CXStringToUnicode(target, capacityUnits, locale, source, sourceBytes, zero);
}

std::int32_t CXUnicodeToStringEx(CXLocale *, char *target, CXState, std::int32_t capacityBytes,
                                 const char16_t *source, std::int32_t sourceUnits, std::int32_t) {
    std::int32_t count = 0;
    while (count < std::min(capacityBytes, sourceUnits) && source[count] <= 0xFF) {
        target[count] = static_cast<char>(source[count]);
        ++count;
    }
    return count;
}

std::int32_t CXMapStringU(CXLocale *, char16_t *target, std::int32_t capacityUnits, const char16_t *source,
                          std::int32_t sourceUnits, std::uint32_t flags) {
    const std::int32_t count = std::min(capacityUnits, sourceUnits);
    std::transform(source, source + count, target, [flags](char16_t unit) { return mapUnit(unit, flags); });
    return count;
}

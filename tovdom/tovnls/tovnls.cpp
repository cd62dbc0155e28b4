// The locale primitives, and the converter for one code page.
#include <tovdom/tovnls/tovnls.h>

#include <services/lng1.h>
#include <tovutil/tovsize.h>
#include <tovutil/tovtrcfn.h>
#include <tovutil/tovutf8.h>
#include <tovutil/tovutil.h>

#include <algorithm>
#include <cstring>
#include <string>

TOV_TRACE_FILE("tovdom/tovnls/tovnls");

namespace {

constexpr std::int32_t c_textInfoCapacity = 33;

// The length of a source that may be given as negative.
std::int32_t sourceLength(const char *source, std::int32_t length) {
    return length >= 0 ? length : TOV_LENGTH32(std::strlen(source));
}

std::int32_t sourceLength(const TovUChar *source, std::int32_t length) {
    return length >= 0 ? length : TOV_LENGTH32(tovStrlen(source));
}

// Room for `count` elements and the terminator behind them.
template <class T>
TovAutoBuffer<T> terminatedBuffer(std::int32_t count) {
    TovAutoBuffer<T> result;
    result.buffer = new T[static_cast<std::size_t>(count) + 1];
    result.length = count;
    result.buffer[count] = 0;
    return result;
}

std::int32_t worstCase(std::int32_t length, std::int32_t factor) {
    return TOV_LENGTH32(static_cast<std::uint64_t>(length) * static_cast<std::uint64_t>(factor));
}

} // namespace

// Locale primitives ---------------------------------------------------------------------------------

CXLocale *tovNlsGetLocale(std::int32_t codePageId) {
    TOV_TRACE_ENTER("tovNlsGetLocale", TOV_NAMED("codepage", static_cast<long>(codePageId)));
    long error = 0;
    CXLocale *locale = LNG1_GetLocale(0, codePageId, 0, &error);
    if (!locale)
        TOV_RAISE_AT(39, 0, TOVRC_NLS_ERROR, TovNls::getErrorMsg(static_cast<std::int32_t>(error)));
    TOV_TRACE_LEAVE();
    return locale;
}

namespace {

// The code page id that the trace of the text items names.
long codePageOf(CXLocale *locale) { return LNG1_GetLocaleNumInfo(locale, LNG1_CODEPAGE_ID, 0); }

} // namespace

TovAutoBuffer<TovUChar> tovNlsGetLocaleTextInfoU(CXLocale *locale, std::int32_t item) {
    TOV_TRACE_ENTER("tovNlsGetLocaleTextInfoU", TOV_NAMED("codepage", codePageOf(locale)));
    TovAutoBuffer<TovUChar> text(c_textInfoCapacity);
    const std::int32_t length = LNG1_GetLocaleTextInfoU(locale, item, text.buffer, c_textInfoCapacity, 0);
    if (length < 0)
        TOV_RAISE_AT(64, 0, TOVRC_NLS_ERROR, TovNls::getErrorMsg(CXGetError(locale)));
    text.length = length;
    text.owned = false;
    TOV_TRACE_LEAVE();
    return text;
}

TovAutoBuffer<char> tovNlsGetLocaleTextInfo(CXLocale *locale, std::int32_t item) {
    TOV_TRACE_ENTER("tovNlsGetLocaleTextInfo", TOV_NAMED("codepage", codePageOf(locale)));
    TovAutoBuffer<char> text(c_textInfoCapacity);
    const std::int32_t length = LNG1_GetLocaleTextInfo(locale, item, text.buffer, c_textInfoCapacity, 0);
    if (length < 0)
        TOV_RAISE_AT(91, 0, TOVRC_NLS_ERROR, TovNls::getErrorMsg(CXGetError(locale)));
    text.length = length;
    text.owned = false;
    TOV_TRACE_LEAVE();
    return text;
}

std::int32_t tovNlsGetMaxByteLen(CXLocale *locale) {
    return LNG1_GetLocaleNumInfo(locale, LNG1_MAX_BYTE_LENGTH, 0);
}

std::int32_t tovNlsGetMinByteLen(CXLocale *locale) { return CXByteLength(locale, " ", 0); }

TovAutoBuffer<TovUChar> tovNlsToUnicode(const char *source, std::int32_t length, CXLocale *locale) {
    if (!source)
        return TovAutoBuffer<TovUChar>();
    CXState state = 0;
    CXInitState(locale, &state, 0);
    const std::int32_t n = sourceLength(source, length);
    auto units = terminatedBuffer<TovUChar>(n);
    units.length = CXStringToUnicodeEx(units.buffer, n, locale, source, state, n, 0);
    return units;
}

TovAutoBuffer<char> tovNlsFromUnicode(const TovUChar *source, std::int32_t length, CXLocale *locale) {
    if (!source)
        return TovAutoBuffer<char>();
    CXState state = 0;
    CXInitState(locale, &state, 0);
    const std::int32_t n = sourceLength(source, length);
    const std::int32_t capacity = worstCase(n, tovNlsGetMaxByteLen(locale));
    auto bytes = terminatedBuffer<char>(capacity);
    bytes.length = CXUnicodeToStringEx(locale, bytes.buffer, state, capacity, source, n, 0);
    return bytes;
}

std::uint32_t tovStrlen(const TovUChar *text) {
    const std::size_t length = std::char_traits<TovUChar>::length(text);
    if (length > UINT32_MAX)
        tovCheck("tovdom/tovnls/tovnls", __LINE__, "Internal error: length <= UINT32_MAX",
                 TOV_CODE(TOVRC_INTERNAL_ERROR));
    return static_cast<std::uint32_t>(length);
}

const char *TovNls::getErrorMsg(std::int32_t code) {
    static constexpr struct {
        std::int32_t code;
        const char *message;
    } rows[] = {
        {0, "NLS: No error."},
        {1, "NLS: Unable to free locale object."},
        {2, "NLS: Invalid option specified."},
        {20, "NLS: Memory allocation error."},
        {30, "NLS: Invalid code page specified."},
        {31, "NLS: Invalid language specified."},
        {35, "NLS: Invalid value specified in type."},
        {40, "NLS: Output buffer not large enough to contain entire string (not fatal)."},
    };
    for (const auto &row : rows)
        if (row.code == code)
            return row.message;
    return "NLS: Operation failed.";
}

// The converter -------------------------------------------------------------------------------------

TovString tovdetail::invalidCodePage(const TovString *name) {
    TovString text = TovNls::getErrorMsg(30);
    if (name)
        text.append(" (").append(*name).append(")");
    return text;
}

namespace {

TovString unknownName(const TovUChar *cpName) {
    if (!cpName)
        return tovdetail::invalidCodePage(nullptr);
    const TovString bytes = tovToMbcs(cpName, 0xFFFFFFFFU, false);
    return tovdetail::invalidCodePage(&bytes);
}

bool isUtf16(std::int32_t id) { return id == TovCodePage::Utf16Host || id == TovCodePage::Utf16Swapped; }

bool needsLocale(std::int32_t id) { return !isUtf16(id) && id != TovCodePage::Utf8; }

// Copies with the two bytes of each unit changing places, four units a step.
void swapUnits(unsigned char *target, const unsigned char *source, std::size_t size) {
    constexpr std::uint64_t evenBytes = 0x00FF00FF00FF00FFU;
    std::size_t i = 0;
    for (; i + 8 <= size; i += 8) {
        std::uint64_t units = 0;
        std::memcpy(&units, source + i, 8);
        units = (units & evenBytes) << 8 | (units >> 8 & evenBytes);
        std::memcpy(target + i, &units, 8);
    }
    for (; i < size; i += 2) {
        target[i] = source[i + 1];
        target[i + 1] = source[i];
    }
}

// Copies `unitCount` units of two bytes each. One form of the two is the host's, so the other swaps.
void copyUtf16(void *target, const void *source, std::int32_t unitCount, std::int32_t id) {
    const std::size_t size = 2 * static_cast<std::size_t>(unitCount);
    if (id == TovCodePage::Utf16Host) {
        std::memcpy(target, source, size);
        return;
    }
    swapUnits(static_cast<unsigned char *>(target), static_cast<const unsigned char *>(source), size);
}

TovAutoBuffer<TovUChar> unitsFromUtf16(const char *source, std::int32_t byteLength, std::int32_t id) {
    auto units = terminatedBuffer<TovUChar>(byteLength / 2);
    copyUtf16(units.buffer, source, units.length, id);
    return units;
}

TovAutoBuffer<char> bytesAsUtf16(const TovUChar *source, std::int32_t unitCount, std::int32_t id) {
    auto bytes = terminatedBuffer<char>(worstCase(unitCount, 2));
    copyUtf16(bytes.buffer, source, unitCount, id);
    return bytes;
}

TovAutoBuffer<TovUChar> unitsFromUtf8(const char *source, std::int32_t byteLength) {
    TovUString text;
    tovUtf8ToUtf16(source, static_cast<std::uint32_t>(byteLength), text);
    auto units = terminatedBuffer<TovUChar>(static_cast<std::int32_t>(text.size())); // at most the bytes
    text.copy(units.buffer, text.size());
    return units;
}

TovAutoBuffer<char> bytesAsUtf8(const TovUChar *source, std::int32_t unitCount) {
    auto bytes = terminatedBuffer<char>(worstCase(unitCount, 4));
    auto *const begin = reinterpret_cast<unsigned char *>(bytes.buffer);
    unsigned char *end = begin;
    ConvertUTF16toUTF8(&source, source + unitCount, &end, begin + bytes.length);
    *end = 0;
    bytes.length = static_cast<std::int32_t>(end - begin);
    return bytes;
}

} // namespace

TovNls::TovNls(const TovUChar *cpName) : m_locale(nullptr), m_codePage(nullptr) {
    TOV_TRACE_ENTER("TovNls::TovNls");
    m_codePage = tovGetCodePage(cpName);
    if (!m_codePage)
        TOV_RAISE_AT(204, 0, TOVRC_NLS_ERROR, unknownName(cpName));
    if (needsLocale(m_codePage->id))
        m_locale = tovNlsGetLocale(m_codePage->id);
    TOV_TRACE_LEAVE();
}

TovNls::~TovNls() {
    if (m_locale && m_locale != LNG1_PrivateFunction_GetProcessLocale())
        CXReleaseLocale(m_locale, 0);
}

TovAutoBuffer<TovUChar> TovNls::toUnicode(const char *source, std::int32_t length) const {
    const std::int32_t n = sourceLength(source, length);
    const std::int32_t id = m_codePage->id;
    if (id == TovCodePage::Utf8)
        return unitsFromUtf8(source, n);
    if (isUtf16(id))
        return unitsFromUtf16(source, n, id);
    return tovNlsToUnicode(source, n, m_locale);
}

TovAutoBuffer<char> TovNls::fromUnicode(const TovUChar *source, std::int32_t length) const {
    const std::int32_t n = sourceLength(source, length);
    const std::int32_t id = m_codePage->id;
    if (id == TovCodePage::Utf8)
        return bytesAsUtf8(source, n);
    if (isUtf16(id))
        return bytesAsUtf16(source, n, id);
    return tovNlsFromUnicode(source, n, m_locale);
}

const TovUChar *TovNls::getCodePage() const {
    return isUtf16(m_codePage->id) ? u"UTF-16" : m_codePage->name.c_str();
}

std::int32_t TovNls::getCodePageId() const { return m_codePage->id; }

std::int32_t TovNls::getMaxByteLen() const {
    if (isUtf16(m_codePage->id))
        return 2;
    return m_codePage->id == TovCodePage::Utf8 ? 6 : tovNlsGetMaxByteLen(m_locale);
}

std::int32_t TovNls::getMinByteLen() const {
    if (isUtf16(m_codePage->id))
        return 2;
    return m_codePage->id == TovCodePage::Utf8 ? 1 : tovNlsGetMinByteLen(m_locale);
}

bool TovNls::isEbcdicBased() const { return LNG1_GetLocaleNumInfo(m_locale, LNG1_EBCDIC, 0) == 0; }

bool TovNls::isNativeUtf16(const TovUChar *cpName) {
    const TovCodePage *row = tovGetCodePage(cpName);
    return row && row->id == TovCodePage::Utf16Host;
}

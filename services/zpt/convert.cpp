// Conversion: flat tables where the page has them, ICU for the rest, UTF-8 by itself.
#include <services/zpt/converters.h>
#include <services/zpt/flattable.h>
#include <services/zpt/icurun.h>
#include <services/zpt/locale.h>
#include <services/zpt/utf8.h>

#include <algorithm>
#include <cstring>
#include <new>

namespace zpt {

namespace {

// Tables of two-byte pages take a millisecond or two to make, which short work does not repay.
constexpr std::size_t c_worthTables = std::size_t{32} << 10;

// ICU's share of a text begins with so many elements, and doubles while the tables do not get as far.
constexpr std::size_t c_firstWindow = 8;

const ToUnitsTable *tableOf(const CodePage &page, ToUnits) {
    return page.toUnits.load(std::memory_order_acquire);
}
const FromUnitsTable *tableOf(const CodePage &page, FromUnits) {
    return page.fromUnits.load(std::memory_order_acquire);
}

Stretch utf8Stretch(const char *source, std::size_t count, char16_t *target, std::size_t room) {
    return utf8ToUnits(source, count, target, room);
}
Stretch utf8Stretch(const char16_t *source, std::size_t count, char *target, std::size_t room) {
    return utf8FromUnits(source, count, target, room);
}

// The rest of a conversion that ICU has a share in.
template <class Direction>
class Conversion {
public:
    Conversion(const CXLocale &locale, const typename Direction::Source *source, std::size_t count,
               typename Direction::Target *target, std::size_t room, Progress done)
        : m_locale(locale), m_source(source), m_count(count), m_target(target), m_room(room), m_at(done) {}

    Stretch run();

private:
    void makeTablesWhenWorth(ThreadConverter &converter);
    bool runFlat(); // whether all is done
    End runWindow(UConverter *icu, std::size_t window);

    const CXLocale &m_locale;
    const typename Direction::Source *m_source;
    std::size_t m_count;
    typename Direction::Target *m_target;
    std::size_t m_room;
    Progress m_at;
};

template <class Direction>
bool Conversion<Direction>::runFlat() {
    if (const auto *table = tableOf(*m_locale.page, Direction())) {
        const Progress done = convertFlat(*table, m_source + m_at.consumed, m_count - m_at.consumed,
                                          m_target + m_at.written, m_room - m_at.written);
        m_at = {m_at.consumed + done.consumed, m_at.written + done.written};
    }
    return m_at.consumed == m_count;
}

template <class Direction>
void Conversion<Direction>::makeTablesWhenWorth(ThreadConverter &converter) {
    const Flat flat = m_locale.facts.flat;
    converter.converted += m_count;
    if (flat == Flat::OneByte || (flat == Flat::TwoBytes && converter.converted >= c_worthTables))
        makeTables(*m_locale.page, flat, converter.icu);
}

template <class Direction>
Stretch Conversion<Direction>::run() {
    ThreadConverter *converter = converterFor(*m_locale.page);
    if (!converter)
        throw std::bad_alloc(); // it could be opened when the locale was made
    if (!tableOf(*m_locale.page, Direction())) {
        makeTablesWhenWorth(*converter);
        if (runFlat())
            return {m_at, End::Source};
    }
    std::size_t window = tableOf(*m_locale.page, Direction()) ? c_firstWindow : m_count;
    for (;;) {
        const End end = runWindow(converter->icu, window);
        const std::size_t before = m_at.consumed;
        if (end != End::Source || runFlat())
            return {m_at, end};
        window = m_at.consumed - before < c_firstWindow ? window * 2 : c_firstWindow;
    }
}

template <class Direction>
End Conversion<Direction>::runWindow(UConverter *icu, std::size_t window) {
    const std::size_t left = m_count - m_at.consumed;
    const std::size_t length = std::min(window, left);
    const Stretch stretch =
        convertStretch<Direction>(icu, m_source + m_at.consumed, length, m_target + m_at.written,
                                  m_room - m_at.written, length == left);
    m_at = {m_at.consumed + stretch.progress.consumed, m_at.written + stretch.progress.written};
    return stretch.end;
}

Error errorOf(End end) {
    static constexpr Error codes[] = {NoError, NotConvertible, BufferTooSmall};
    return codes[static_cast<std::size_t>(end)];
}

template <class Direction>
Stretch convertText(const CXLocale &locale, const typename Direction::Source *source, std::size_t count,
                    typename Direction::Target *target, std::size_t room) {
    Progress done;
    if (const auto *table = tableOf(*locale.page, Direction()))
        done = convertFlat(*table, source, count, target, room);
    else if (locale.page == &c_utf8Page)
        return utf8Stretch(source, count, target, room);
    if (done.consumed == count)
        return {done, End::Source};
    return Conversion<Direction>(locale, source, count, target, room, done).run();
}

struct Outcome {
    std::int32_t written = 0;
    Error error = NoError;
};

template <class Direction>
Outcome convert(CXLocale &locale, const typename Direction::Source *source, std::int32_t count,
                typename Direction::Target *target, std::int32_t capacity) noexcept {
    try {
        const Stretch done = convertText<Direction>(locale, source, static_cast<std::size_t>(count), target,
                                                    static_cast<std::size_t>(capacity));
        return {static_cast<std::int32_t>(done.progress.written), errorOf(done.end)};
    } catch (const std::bad_alloc &) {
        return {0, NoMemory};
    }
}

template <class Direction>
std::int32_t convertFor(CXLocale *locale, const typename Direction::Source *source, std::int32_t count,
                        typename Direction::Target *target, std::int32_t capacity) noexcept {
    if (!locale || !source || !target || count <= 0 || capacity < 0)
        return 0;
    const Outcome done = convert<Direction>(*locale, source, count, target, capacity);
    if (done.error != NoError)
        fail(*locale, done.error);
    return done.written;
}

// The first character of a page of several bytes, as ICU reads it; the shortest where there is none.
std::int32_t firstCharacter(const CXLocale &locale, const char *text) {
    const std::size_t length = strnlen(text, locale.facts.maxBytes);
    if (locale.page == &c_utf8Page)
        return std::max(1, static_cast<std::int32_t>(utf8Length(text, length)));
    const ThreadConverter *converter = converterFor(*locale.page);
    if (!converter)
        throw std::bad_alloc();
    UErrorCode status = U_ZERO_ERROR;
    const char *end = text;
    ucnv_resetToUnicode(converter->icu);
    ucnv_getNextUChar(converter->icu, &end, text + length, &status);
    return U_SUCCESS(status) ? static_cast<std::int32_t>(end - text) : locale.facts.minBytes;
}

} // namespace

std::int32_t bytesOf(CXLocale &locale, const char16_t *text, std::int32_t units, char *target,
                     std::int32_t capacity) noexcept {
    const Outcome done = convert<FromUnits>(locale, text, units, target, capacity);
    if (done.error == NoError)
        return done.written;
    fail(locale, done.error);
    return -1;
}

} // namespace zpt

extern "C" {

TOV_EXPORT void CXInitState(CXLocale *, CXState *state, std::int32_t) { *state = 0; }

TOV_EXPORT std::int32_t CXByteLength(CXLocale *locale, const char *text, std::int32_t) {
    if (!locale || !text)
        return 0;
    const zpt::PageFacts facts = locale->facts;
    if (facts.minBytes == facts.maxBytes || facts.minBytes > 1)
        return facts.minBytes;
    try {
        return zpt::firstCharacter(*locale, text);
    } catch (const std::bad_alloc &) {
        zpt::fail(*locale, zpt::NoMemory);
        return facts.minBytes;
    }
}

TOV_EXPORT std::int32_t CXStringToUnicode(char16_t *target, std::int32_t capacityUnits, CXLocale *locale,
                                          const char *source, std::int32_t sourceBytes, std::int32_t) {
    return zpt::convertFor<zpt::ToUnits>(locale, source, sourceBytes, target, capacityUnits);
}

TOV_EXPORT std::int32_t CXStringToUnicodeEx(char16_t *target, std::int32_t capacityUnits, CXLocale *locale,
                                            const char *source, CXState, std::int32_t sourceBytes,
                                            std::int32_t) {
    return zpt::convertFor<zpt::ToUnits>(locale, source, sourceBytes, target, capacityUnits);
}

TOV_EXPORT std::int32_t CXUnicodeToStringEx(CXLocale *locale, char *target, CXState,
                                            std::int32_t capacityBytes, const char16_t *source,
                                            std::int32_t sourceUnits, std::int32_t) {
    return zpt::convertFor<zpt::FromUnits>(locale, source, sourceUnits, target, capacityBytes);
}
}

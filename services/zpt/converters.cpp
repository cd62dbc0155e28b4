#include <services/zpt/converters.h>

#include <services/zpt/iculock.h>

#include <pthread.h>

#include <algorithm>
#include <array>
#include <memory>
#include <new>

namespace zpt {

namespace {

constexpr std::size_t c_mostConverters = 16;

struct Cache {
    std::array<ThreadConverter, c_mostConverters> entries{}; // most recently used first
    std::size_t count = 0;
};

// A key besides the thread-local pointer, because registering a destructor of a thread-local object
// ends the process when memory runs out, and pthread_setspecific only fails. Destructors of the
// program's own thread-local objects run earlier, so that they may still convert.
constinit thread_local Cache *t_cache = nullptr;
constinit pthread_key_t s_key{};
constinit bool s_haveKey = false;

void closeAll(void *cache) {
    t_cache = nullptr;
    const std::unique_ptr<Cache> owner(static_cast<Cache *>(cache));
    const IcuLock lock;
    for (std::size_t i = 0; i < owner->count; ++i)
        ucnv_close(owner->entries[i].icu);
}

[[gnu::constructor]] void createKey() { s_haveKey = pthread_key_create(&s_key, closeAll) == 0; }

Cache &threadCache() {
    if (!t_cache) {
        auto cache = std::make_unique<Cache>();
        if (!s_haveKey || pthread_setspecific(s_key, cache.get()) != 0)
            throw std::bad_alloc();
        t_cache = cache.release();
    }
    return *t_cache;
}

// ICU has set the error before it asks; leaving it is to stop.
void stop(const void *, UConverterFromUnicodeArgs *, const UChar *, std::int32_t, UChar32,
          UConverterCallbackReason, UErrorCode *) {}
void stop(const void *, UConverterToUnicodeArgs *, const char *, std::int32_t, UConverterCallbackReason,
          UErrorCode *) {}

UConverter *openConverter(const CodePage &page) {
    UErrorCode status = U_ZERO_ERROR;
    const IcuLock lock;
    UConverter *icu = ucnv_open(page.icuName, &status);
    if (status == U_MEMORY_ALLOCATION_ERROR)
        throw std::bad_alloc();
    if (U_FAILURE(status))
        return nullptr;
    ucnv_setFromUCallBack(icu, stop, nullptr, nullptr, nullptr, &status);
    ucnv_setToUCallBack(icu, stop, nullptr, nullptr, nullptr, &status);
    return icu;
}

void makeRoom(Cache &cache) {
    if (cache.count < c_mostConverters)
        return;
    ThreadConverter &oldest = cache.entries[--cache.count];
    const IcuLock lock;
    ucnv_close(oldest.icu);
    oldest = {};
}

} // namespace

ThreadConverter *converterFor(const CodePage &page) {
    Cache &cache = threadCache();
    const auto begin = cache.entries.begin();
    if (begin->page == &page)
        return begin;
    auto end = begin + static_cast<std::ptrdiff_t>(cache.count);
    auto at = std::find_if(begin, end, [&](const ThreadConverter &entry) { return entry.page == &page; });
    if (at == end) {
        UConverter *icu = openConverter(page);
        if (!icu)
            return nullptr;
        makeRoom(cache);
        at = begin + static_cast<std::ptrdiff_t>(cache.count++);
        *at = {&page, icu, 0};
    }
    std::rotate(begin, at, at + 1);
    return &cache.entries.front();
}

// Facts of a page ------------------------------------------------------------------------------------

namespace {

// Enough bytes per unit for any text, where that is more than ICU's figure: what opens and closes a
// shift state around a single character, and what stands before a text of one character.
std::uint8_t maxBytes(UConverter *icu) {
    static constexpr struct {
        UConverterType type;
        std::uint8_t bytes;
    } rows[] = {
        {UCNV_UTF16_BigEndian, 4},
        {UCNV_UTF16_LittleEndian, 4},
        {UCNV_UTF16, 4},           // a byte order mark and a unit; a pair needs no more than 3 per unit
        {UCNV_UTF32, 8},           // a byte order mark and a character
        {UCNV_EBCDIC_STATEFUL, 4}, // out, two bytes, in
        {UCNV_ISO_2022, 9},        // escapes of four and three bytes around two
        {UCNV_HZ, 6},
        {UCNV_UTF7, 8}, // a pair within a base 64 run of its own; a unit needs 5
        {UCNV_IMAP_MAILBOX, 8},
        {UCNV_SCSU, 5},
        {UCNV_CESU8, 6},
        {UCNV_LMBCS_1, 6},
    };
    const UConverterType type = ucnv_getType(icu);
    for (const auto &row : rows)
        if (row.type == type)
            return row.bytes;
    return static_cast<std::uint8_t>(ucnv_getMaxCharSize(icu));
}

// All EBCDIC code pages agree on the blank, the wide one of those without single-byte characters too.
bool isEbcdic(UConverter *icu) {
    static constexpr struct {
        char16_t blank;
        std::string_view bytes;
    } rows[] = {{u' ', "\x40"}, {u'\u3000', "\x40\x40"}};
    char bytes[16];
    for (const auto &row : rows) {
        UErrorCode status = U_ZERO_ERROR;
        const auto length = ucnv_fromUChars(icu, bytes, sizeof bytes, &row.blank, 1, &status);
        if (U_SUCCESS(status) && std::string_view(bytes, static_cast<std::size_t>(length)) == row.bytes)
            return true;
    }
    return false;
}

// In these a character is the same wherever it stands.
Flat flatness(UConverterType type) {
    switch (type) {
    case UCNV_SBCS:
    case UCNV_LATIN_1:
    case UCNV_US_ASCII:
        return Flat::OneByte;
    case UCNV_DBCS:
    case UCNV_MBCS:
        return Flat::TwoBytes;
    default:
        return Flat::None;
    }
}

} // namespace

PageFacts pageFacts(const CodePage &page) {
    PageFacts facts = page.facts.load(std::memory_order_relaxed);
    if (facts.maxBytes != 0)
        return facts;
    const ThreadConverter *converter = converterFor(page);
    if (!converter)
        return facts;
    UConverter *icu = converter->icu;
    facts = {maxBytes(icu), static_cast<std::uint8_t>(ucnv_getMinCharSize(icu)), isEbcdic(icu),
             flatness(ucnv_getType(icu))};
    page.facts.store(facts, std::memory_order_relaxed);
    return facts;
}

} // namespace zpt

// Locale objects: the process's own, made at first use and never released, and those of LNG1_GetLocale.
#include <services/zpt/locale.h>

#include <services/zpt/converters.h>

#include <algorithm>
#include <memory>
#include <new>

namespace zpt {

namespace {

constinit std::atomic<CXLocale *> s_process{nullptr};

// Serves while memory lacks for the locale that the environment names.
constinit CXLocale s_standIn{&c_utf8Page, c_utf8Facts, {}, {NoMemory}};

bool isShared(const CXLocale *locale) {
    return locale == &s_standIn || locale == s_process.load(std::memory_order_acquire);
}

// Locale names write code sets with or without punctuation. UTF-8, which nearly all name, needs no table.
bool meansUtf8(std::string_view codeset) {
    return codeset.empty() || codeset == "UTF-8" || codeset == "utf8" || codeset == "UTF8" ||
           codeset == "utf-8";
}

// A code set that nobody knows means UTF-8, as none does: what runs must go on, and UTF-8 is what a
// system uses that says nothing.
const CodePage &pageOf(const LocaleName &name) {
    if (meansUtf8(name.codeset.view()))
        return c_utf8Page;
    const CodePage *page = findPageLoosely(name.codeset.c_str());
    return page && pageFacts(*page).maxBytes != 0 ? *page : c_utf8Page;
}

std::unique_ptr<CXLocale> makeLocale(const CodePage &page, const LocaleName &name) {
    return std::unique_ptr<CXLocale>(new CXLocale{&page, pageFacts(page), name, {NoError}});
}

CXLocale *makeProcessLocale() noexcept {
    try {
        const LocaleName name = parseLocaleName(localeFromEnvironment());
        auto made = makeLocale(pageOf(name), name);
        CXLocale *published = nullptr;
        if (s_process.compare_exchange_strong(published, made.get(), std::memory_order_acq_rel))
            published = made.release();
        return published;
    } catch (const std::bad_alloc &) {
        return &s_standIn;
    }
}

CXLocale *makeLocaleFor(std::int32_t codePageId, Error &error) {
    CXLocale *process = processLocale();
    if (process->page->id == codePageId)
        return process;
    const CodePage *page = findPage(codePageId);
    error = BadCodePage;
    return page && pageFacts(*page).maxBytes != 0 ? makeLocale(*page, process->name).release() : nullptr;
}

} // namespace

CXLocale *processLocale() noexcept {
    CXLocale *known = s_process.load(std::memory_order_acquire);
    return known ? known : makeProcessLocale();
}

CXLocale *openLocale(std::int32_t codePageId, Error &error) noexcept {
    try {
        return makeLocaleFor(codePageId, error);
    } catch (const std::bad_alloc &) {
        error = NoMemory;
        return nullptr;
    }
}

LocaleFacts factsOf(const CXLocale *locale) noexcept {
    if (!locale)
        return {};
    return {locale->page->id, locale->facts.maxBytes, locale->facts.ebcdic};
}

LocaleTexts textsOf(const CXLocale &locale) noexcept {
    return {locale.name.language.view(), locale.name.country.view(), locale.page->name};
}

void fail(CXLocale &locale, Error error) noexcept {
    locale.lastError.store(error, std::memory_order_relaxed);
}

std::int32_t codePageId(const char *name) noexcept {
    try {
        const CodePage *page = findPage(std::string_view(name));
        return page ? page->id : 0;
    } catch (const std::bad_alloc &) {
        return 0;
    }
}

const char *codePageName(std::int32_t id) noexcept {
    try {
        const CodePage *page = findPage(id);
        return page ? page->name : "";
    } catch (const std::bad_alloc &) {
        return "";
    }
}

} // namespace zpt

extern "C" {

TOV_EXPORT std::int32_t CXGetError(CXLocale *locale) {
    return locale ? locale->lastError.load(std::memory_order_relaxed) : zpt::BadOption;
}

TOV_EXPORT void CXReleaseLocale(CXLocale *locale, std::int32_t) {
    if (!zpt::isShared(locale))
        delete locale;
}
}

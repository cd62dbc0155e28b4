/// What libzpt offers to the locale half of libhvd; not installed.
///
/// Errors     Codes of zpterror.h; nothing is thrown.
/// Threads    Any thread.
#pragma once

#include <services/cx.h>
#include <services/zpt/zpterror.h>
#include <tovutil/tovexport.h>

#include <cstdint>
#include <string_view>

namespace zpt {

/// Never null. UTF-8 without a language stands in while memory lacks for the real one.
TOV_EXPORT CXLocale *processLocale() noexcept;

/// A locale for the code page, in the process's language; the process's own for its own code page. Null
/// on failure, with the reason in `error`.
TOV_EXPORT CXLocale *openLocale(std::int32_t codePageId, Error &error) noexcept;

struct LocaleFacts {
    std::int32_t codePageId;
    std::int32_t maxBytes;
    bool ebcdic;
};

/// All 0 for null.
TOV_EXPORT LocaleFacts factsOf(const CXLocale *locale) noexcept;

/// The texts belong to the locale; empty where it has none.
struct LocaleTexts {
    std::string_view language;
    std::string_view country;
    std::string_view codePage;
};

TOV_EXPORT LocaleTexts textsOf(const CXLocale &locale) noexcept;

/// Makes `error` the locale's last error.
TOV_EXPORT void fail(CXLocale &locale, Error error) noexcept;

/// Converts the whole text to the locale's code page and gives the bytes written; -1 when a unit can't be
/// converted or the capacity does not do, with the reason as the locale's last error.
TOV_EXPORT std::int32_t bytesOf(CXLocale &locale, const char16_t *text, std::int32_t units, char *target,
                                std::int32_t capacity) noexcept;

/// 0 for an unknown name.
TOV_EXPORT std::int32_t codePageId(const char *name) noexcept;

/// Empty for an unknown id.
TOV_EXPORT const char *codePageName(std::int32_t id) noexcept;

} // namespace zpt

/// Locale information of libhvd.
///
/// A CXLocale stands for a code page together with a language. Literal 0 arguments are what every
/// caller passes.
///
/// Errors     Codes are those that TovNls::getErrorMsg tells in words; nothing is thrown.
/// Threads    Any thread at any time, without a lock around the calls.
#pragma once

#include <services/cx.h>

#include <cstdint>

/// Keys of LNG1_GetLocaleNumInfo.
enum : std::int32_t {
    LNG1_CODEPAGE_ID = 9,
    LNG1_MAX_BYTE_LENGTH = 85,
    LNG1_EBCDIC = 86, ///< 0 if and only if the code page is EBCDIC based
};

/// Items of LNG1_GetLocaleTextInfo.
enum : std::int32_t {
    LNG1_TEXT_LOCALE = 1,   ///< language, country and code page: "de_DE.ISO-8859-1", ".UTF-8"
    LNG1_TEXT_LANGUAGE = 2, ///< "de"; empty where the locale has none, as "C"
    LNG1_TEXT_COUNTRY = 3,  ///< "DE"; empty where the locale has none
    LNG1_TEXT_CODEPAGE = 4, ///< as LNG1_GetCodepageName gives it
};

extern "C" {

/// The process's locale, as LC_ALL, LC_CTYPE or LANG name it at the first call, the first that is set and
/// not empty. UTF-8 where the name has no code set, or one that is unknown, and for "C" and "POSIX".
/// Shared: nobody releases it. Never null.
CXLocale *LNG1_PrivateFunction_GetProcessLocale(void);

/// A locale for a code page id, in the process's language; may be the process's own. Null on
/// failure, with an error code in `*error`. The caller gives it back with CXReleaseLocale.
CXLocale *LNG1_GetLocale(std::int32_t zero, std::int32_t codePageId, std::int32_t zeroToo, long *error);

/// The number that `key` names.
std::int32_t LNG1_GetLocaleNumInfo(CXLocale *locale, std::int32_t key, std::int32_t zero);

/// Writes the text of `item` in the locale's code page, without a terminator; gives its length in bytes,
/// negative on failure: an unknown item (code 35), a text that needs more than `capacity` bytes (40).
std::int32_t LNG1_GetLocaleTextInfo(CXLocale *locale, std::int32_t item, char *buffer, std::int32_t capacity,
                                    std::int32_t zero);

/// The same in 16-bit units; lengths and capacity count units.
std::int32_t LNG1_GetLocaleTextInfoU(CXLocale *locale, std::int32_t item, char16_t *buffer,
                                     std::int32_t capacity, std::int32_t zero);

/// Writes the name of a code page, NUL-terminated, cut to `capacity` bytes with its NUL; an empty
/// text for an unknown id.
void LNG1_GetCodepageName(std::int32_t codePageId, char *buffer, std::int32_t capacity);

/// The id of a code page, above 0 for a known name. Names count without regard to case, and with
/// nothing else left out. `*unused` is not read.
std::int32_t LNG1_GetCodepageId(const char *name, long *unused);
}

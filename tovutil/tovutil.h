/// The chief header: module state, errors, allocation, strings, and what converts with the process locale.
#pragma once

#include <tovutil/tovalloc.h>
#include <tovutil/toverrfl.h>
#include <tovutil/toverror.h>
#include <tovutil/tovexport.h>
#include <tovutil/tovmutex.h>
#include <tovutil/tovpool.h>
#include <tovutil/tovstring.h>

#include <cstdint>
#include <iosfwd>
#include <pthread.h>

/// Two small utilities of lazy initialisation.
class TOV_EXPORT TovInitUtils {
public:
    TovInitUtils() = delete;

    /// Runs `function` once, as pthread_once.
    static void init(pthread_once_t &once, void (*function)());

    /// Rounds an address up to the next multiple of 8.
    static void *align(void *address);
};

/// Convert between 16-bit text and bytes in the process locale's encoding.
///
/// Units      `length` counts elements of the source; 0xFFFFFFFF, and every value above 0x7FFFFFFF, means
///            up to the source's terminator. A null source gives an empty string.
/// Errors     With `raiseOnFailure`, a conversion that yields nothing raises TOVRC_INVALID_WCHAR or
///            TOVRC_INVALID_MBCHAR, unless the source is null or `length` 0; without, the result is empty. A
///            text that converts in part gives that part, in either mode. TOVRC_INTERNAL_ERROR for a text
///            whose worst case does not fit 32 bits.
/// Threads    Any thread.
/// Cost       One allocation for the worst case, and one for the result.
TOV_EXPORT TovString tovToMbcs(const TovUChar *source, std::uint32_t length, bool raiseOnFailure);
TOV_EXPORT TovUString tovToUnicode(const char *source, std::uint32_t length, bool raiseOnFailure);

// What follows gives strings, and raises what they raise: the out-of-memory TovError, std::length_error.

/// A string of `n` units, 0 units included; `n` 0 or less means up to the terminator. A null pointer, and a
/// text that begins with a 0 unit, give an empty string.
TOV_EXPORT TovUString tovToUString(const TovUChar *text, long n);

/// The value in decimal.
TOV_EXPORT TovUString tovToUString(long value);

/// Blank, tab, line feed and carriage return; no other unit.
TOV_EXPORT bool tovIsWhiteSpace(TovUChar unit);

/// Without the blanks (0x20) at both ends.
TOV_EXPORT TovUString tovTrimSpaces(const TovUString &text);

/// Without the white space at both ends.
TOV_EXPORT TovUString tovTrimWhiteSpaces(const TovUString &text);

/// Map case by the rules of the process locale, within the length of the text.
///
/// Errors     std::bad_alloc; TOVRC_INTERNAL_ERROR for a text of more than 0x7FFFFFFF units.
TOV_EXPORT TovUString tovToUpper(const TovUString &text);
TOV_EXPORT TovUString tovToLower(const TovUString &text);

/// Writes the text in the process locale's encoding, up to its first NUL; nothing when it can't be converted.
///
/// Errors     As tovToMbcs without `raiseOnFailure`.
TOV_EXPORT std::ostream &operator<<(std::ostream &os, const TovUString &text);

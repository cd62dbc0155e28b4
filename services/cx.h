/// Code page conversion and case mapping of libzpt.
///
/// Conversion never substitutes: it stops at the first byte or unit that can't be converted and
/// gives the count up to there. A sequence that the source's end cuts off can't be converted. Where the
/// target is full it ends with a whole character. Nothing is terminated; callers write any terminator
/// themselves. 16-bit text is UTF-16 in host byte order.
///
/// Each call converts a text of its own. A code page with shift states ends in its initial state, so that
/// results can be joined; HZ names its state at the start of each text instead, and in SCSU and BOCU-1 a
/// text is one piece. A code page whose name leaves the byte order open ("UTF-32") puts a byte order mark
/// before each text, and takes one away; in one whose name tells it ("UTF-32BE"), and in UTF-8, the
/// mark is a character like any other.
///
/// Errors     Results below 1 mean that nothing was converted; CXGetError tells why. Nothing is
///            thrown.
/// Threads    Any thread at any time, also on one locale, without a lock around the calls.
#pragma once

#include <cstdint>

/// Opaque: a code page together with a language.
struct CXLocale;

/// Holds a conversion's state. Every conversion begins with a fresh one.
using CXState = std::uint32_t;

/// Flags of CXMapStringU.
enum : std::uint32_t {
    CX_MAP_LOWER = 0x80000024U,
    CX_MAP_UPPER = 0x80000025U,
};

extern "C" {

/// The locale's last error code, one of those of TovNls::getErrorMsg, or another for a text that can't be
/// converted (50). A call that succeeds leaves it alone.
std::int32_t CXGetError(CXLocale *locale);

/// Gives back a locale of LNG1_GetLocale; the process's own stays.
void CXReleaseLocale(CXLocale *locale, std::int32_t zero);

/// The length in bytes of the character that `text` begins with.
std::int32_t CXByteLength(CXLocale *locale, const char *text, std::int32_t zero);

/// Puts a fresh conversion state into `*state`, which the caller has set to 0.
void CXInitState(CXLocale *locale, CXState *state, std::int32_t zero);

/// Converts `sourceBytes` bytes; gives the units written, below 1 when nothing was converted.
std::int32_t CXStringToUnicode(char16_t *target, std::int32_t capacityUnits, CXLocale *locale,
                               const char *source, std::int32_t sourceBytes, std::int32_t zero);

/// The same from a state of CXInitState.
std::int32_t CXStringToUnicodeEx(char16_t *target, std::int32_t capacityUnits, CXLocale *locale,
                                 const char *source, CXState state, std::int32_t sourceBytes,
                                 std::int32_t zero);

/// Converts `sourceUnits` units; gives the bytes written. A stateful code page ends in its initial
/// state.
std::int32_t CXUnicodeToStringEx(CXLocale *locale, char *target, CXState state, std::int32_t capacityBytes,
                                 const char16_t *source, std::int32_t sourceUnits, std::int32_t zero);

/// Maps case by the rules of the locale's language; gives the units written. Where the full mapping
/// does not fit, the simple mapping of each character is used.
std::int32_t CXMapStringU(CXLocale *locale, char16_t *target, std::int32_t capacityUnits,
                          const char16_t *source, std::int32_t sourceUnits, std::uint32_t flags);
}

/// Conversion between UTF-8, UTF-16 and UCS-4, without any locale.
///
/// The conversions are lenient: they validate nothing and know no illegal source. Every byte or unit
/// gives output, but for a UTF-8 sequence that the source's end cuts off.
///   - UTF-8 is read by its lead bytes alone, up to six bytes a character. The top bits of following
///     bytes do not count, overlong forms and surrogates are taken as they are, and a byte 0x80 to 0xBF
///     in a lead's place is the character of that value.
///   - A UTF-16 surrogate without its partner is a character of its own: three bytes in UTF-8.
///   - A value that the target form cannot hold becomes U+FFFD.
///
/// Units      `unsigned char` for UTF-8, TovUChar for UTF-16 in host byte order, `std::uint32_t` for
///            UCS-4. Lengths count units of the source. Zero is a unit like any other; nothing is
///            terminated.
/// Threads    All functions are reentrant; the tables are constant.
/// Cost       One pass. Well-formed text goes between UTF-8 and UTF-16 in blocks, by the best
///            instructions that the processor has; forms that need leniency go one by one, and so does
///            all that reads or writes UCS-4.
#pragma once

#include <tovutil/tovexport.h>
#include <tovutil/tovstring.h>

#include <cstdint>

enum ConversionResult {
    ok,              ///< the whole source was converted
    sourceExhausted, ///< the source ends inside a UTF-8 sequence
    targetExhausted, ///< the target has no room for the next character
};

/// The number of bytes that follow a UTF-8 lead byte, 0 to 5. What is no lead, 0x80 to 0xBF, stands
/// alone; 0xFE and 0xFF lead six bytes.
TOV_EXPORT extern const unsigned char bytesFromUTF8[256];

/// By the number of following bytes: what the marker bits of a sequence add to its plain sum.
TOV_EXPORT extern const std::uint32_t offsetsFromUTF8[6];

/// By the length of a sequence: the marker bits of its first byte.
TOV_EXPORT extern const unsigned char firstByteMark[7];

// The range functions convert from [*source, sourceEnd) to [*target, targetEnd) until one of the two is
// used up. Both pointers are moved to where the conversion stopped, whatever the result:
//   ok               *source is at its end.
//   sourceExhausted  *source is on the lead byte of the sequence that is cut off.
//   targetExhausted  *target is behind the last whole character. The next one has been read and is lost:
//                    *source is behind it. Who wants to go on keeps a copy or gives enough room.
// What lies behind the final *target is not written on targetExhausted; with the other results it may be
// overwritten, never behind targetEnd. Source and target must not overlap.

/// Values up to 0xFFFF take one unit, surrogates included, those up to 0x10FFFF two, all others become
/// U+FFFD. Unlike the other five this one looks for room before it reads: when the target is full,
/// *source stays on the next value. It is lost only where one place is left and it needs two.
TOV_EXPORT ConversionResult ConvertUCS4toUTF16(const std::uint32_t **source, const std::uint32_t *sourceEnd,
                                               TovUChar **target, TovUChar *targetEnd);

/// A surrogate pair becomes one value.
TOV_EXPORT ConversionResult ConvertUTF16toUCS4(const TovUChar **source, const TovUChar *sourceEnd,
                                               std::uint32_t **target, std::uint32_t *targetEnd);

/// Three bytes for each unit are always enough.
TOV_EXPORT ConversionResult ConvertUTF16toUTF8(const TovUChar **source, const TovUChar *sourceEnd,
                                               unsigned char **target, unsigned char *targetEnd);

/// One unit for each byte is always enough. Values above 0x10FFFF become U+FFFD.
TOV_EXPORT ConversionResult ConvertUTF8toUTF16(const unsigned char **source, const unsigned char *sourceEnd,
                                               TovUChar **target, TovUChar *targetEnd);

/// Up to six bytes a value; one above 0x7FFFFFFF becomes U+FFFD. Surrogate pairs are joined first, as
/// ConvertUTF8toUCS4 writes them.
TOV_EXPORT ConversionResult ConvertUCS4toUTF8(const std::uint32_t **source, const std::uint32_t *sourceEnd,
                                              unsigned char **target, unsigned char *targetEnd);

/// Writes a surrogate pair, two places, for every value from 0x10000 up. Above 0x10FFFF the first of the
/// two exceeds the surrogates: 0xD7C0 plus the value's upper bits. Above 0x7FFFFFFF: U+FFFD.
TOV_EXPORT ConversionResult ConvertUTF8toUCS4(const unsigned char **source, const unsigned char *sourceEnd,
                                              std::uint32_t **target, std::uint32_t *targetEnd);

/// Makes `target` the UTF-16 of `length` bytes; what it held before is gone. False with an empty target
/// when the end cuts a sequence off, else true. A null source is allowed for a length of 0.
///
/// Errors     As reserve() of the string, with the target as it was: exhausted memory, and
///            std::length_error for what exceeds max_size().
/// Cost       At most one allocation, of `length` units; what is not used stays as capacity.
TOV_EXPORT bool tovUtf8ToUtf16(const char *source, std::uint32_t length, TovUString &target);

/// Makes `target` the UTF-8 of `length` units; what it held before is gone. Always true. A null source is
/// allowed for a length of 0.
///
/// Errors     As tovUtf8ToUtf16.
/// Cost       At most one allocation, of 6 * `length` bytes, of which half is never touched; what is not
///            used stays as capacity.
TOV_EXPORT bool tovUtf16ToUtf8(const TovUChar *source, std::uint32_t length, TovString &target);

// LDAP carries its strings in UTF-8, whatever the process locale. The pointer forms read up to the
// terminator and want a pointer that is not null. The results have no spare capacity.

/// Empty when the text ends inside a sequence, even if it began well.
TOV_EXPORT TovUString tovFromLdapString(const char *text);

/// All units of the text, zeros included.
TOV_EXPORT TovString tovToLdapString(const TovUString &text);
TOV_EXPORT TovString tovToLdapString(const TovUChar *text);

/// Writes memory as a table of hexadecimal digits and characters:
///
///                0 1 2 3  4 5 6 7   8 9 A B  C D E F    0123456789ABCDEF
///               ------------------------------------    ----------------
///     00000000: 616263                                  abc
///
/// Every line has its full width, also the last one, and no line feed follows it. A byte that the process's
/// current locale (isprint) calls not printable is shown as a dot.
///
/// Units      `length` is in bytes and must be below 0x80000000. With 0 there is only the heading, and
///            `memory` may be null.
/// Errors     TOVRC_INTERNAL_ERROR for a longer block, and the text is as before. When the text finds no
///            memory, it is empty.
/// Threads    Any thread.
/// Cost       One allocation, 4.25 bytes of text for each byte.
#pragma once

#include <tovutil/tovexport.h>
#include <tovutil/tovstring.h>

#include <cstdint>
#include <iosfwd>

/// Replaces `text` by the dump. It must not lie in the memory that is dumped.
TOV_EXPORT void tovDumpHex(TovString &text, const void *memory, std::uint32_t length);

/// Inserts the dump into the stream; there is no line end and no flush.
TOV_EXPORT void tovDumpHex(std::ostream &os, const void *memory, std::uint32_t length);

/// The code pages of our libzpt, one by one.
///
/// Not part of what the library relies on; programs that list the code pages use it.
///
/// Ownership  Texts belong to libzpt and live as long as the process.
/// Errors     None. Where memory ran out for the list, it is empty, and the next call tries again.
/// Threads    Any thread.
/// Cost       The first call of a process reads the names of all code pages, about a millisecond.
#pragma once

#include <cstddef>
#include <cstdint>

extern "C" {

/// How many code pages there are.
std::size_t ZPT_CodepageCount(void);

/// The id of the code page at `index`, in ascending order of ids; 0 behind the last one.
std::int32_t ZPT_CodepageIdAt(std::size_t index);

/// The name of the code page at `index`, as LNG1_GetCodepageName gives it; empty behind the last one.
const char *ZPT_CodepageNameAt(std::size_t index);
}

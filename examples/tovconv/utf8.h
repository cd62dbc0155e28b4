/// Strict UTF-8: no overlong form, no surrogate, nothing above U+10FFFF. The library's own conversion is
/// lenient on purpose and takes all of these.
#pragma once

#include <cstddef>
#include <string_view>

/// The bytes of the longest start of `bytes` that consists of whole, well-formed characters.
std::size_t wellFormedUtf8(std::string_view bytes);

/// The bytes of the ill-formed or incomplete sequence that `bytes` begins with, up to the one that shows it.
std::size_t illFormedUtf8(std::string_view bytes);

/// The bytes of the first `unitCount` UTF-16 units of well-formed `bytes`.
std::size_t utf8BytesOfUnits(std::string_view bytes, std::size_t unitCount);

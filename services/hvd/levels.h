// The language of HVD_TRACE: "*=error,TovNls::*=flow+state".
#pragma once

#include <services/trc1.h>

#include <string_view>

namespace hvd {

/// Whether the whole of `text` matches: '*' stands for any bytes, '?' for any one byte.
bool globMatches(std::string_view pattern, std::string_view text) noexcept;

/// What `levels` gives to a record: the last entry that matches the function's name, the source path
/// or the unit name holds; 0 when there is none. Malformed entries do not count.
std::uint32_t levelsFor(std::string_view levels, const TRC1_EPB &record) noexcept;

/// Whether every entry is well formed; reports the first ten that are not, with their
/// places in `source`, and the number of the others.
bool checkLevels(std::string_view levels, const char *source) noexcept;

} // namespace hvd

// Byte strings as JSON.
#pragma once

#include <services/hvd/lines.h>

#include <string_view>

namespace hvd {

/// Puts the inside of a JSON string: quotes and control characters escaped, each byte that belongs to
/// no UTF-8 character as U+FFFD. Stops with "..." where less than `reserve` bytes would be left.
void putJson(Lines &lines, std::string_view bytes, std::size_t reserve) noexcept;

} // namespace hvd

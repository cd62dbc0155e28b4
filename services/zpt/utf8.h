/// UTF-8, strictly: ill-formed bytes and lone surrogates end the conversion.
#pragma once

#include <services/zpt/icurun.h>

namespace zpt {

Stretch utf8ToUnits(const char *source, std::size_t count, char16_t *target, std::size_t room) noexcept;
Stretch utf8FromUnits(const char16_t *source, std::size_t count, char *target, std::size_t room) noexcept;

/// The length of the well-formed sequence that [source, source + count) begins with; 0 if there is none.
std::size_t utf8Length(const char *source, std::size_t count) noexcept;

} // namespace zpt

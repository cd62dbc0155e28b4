// Internal: lengths that a 32-bit field must hold. Refused with an error, never cut.
#pragma once

#include <tovutil/toverrfl.h>

#include <cstdint>

namespace tovdetail {

/// A length as a signed 32-bit number, never negative. `file` and `line` tell where it came in.
inline std::int32_t length32(std::uint64_t length, const char *file, long line) {
    if (length > INT32_MAX)
        tovCheck(file, line, "Internal error: length <= INT32_MAX", TOV_CODE(TOVRC_INTERNAL_ERROR));
    return static_cast<std::int32_t>(length);
}

/// A length that a TovUniString can have: with a terminator's unit it is still below npos.
inline std::uint32_t stringLength(std::uint64_t length, const char *file, long line) {
    if (length > UINT32_MAX - 2)
        tovCheck(file, line, "Internal error: length <= max_size()", TOV_CODE(TOVRC_INTERNAL_ERROR));
    return static_cast<std::uint32_t>(length);
}

} // namespace tovdetail

/// length32() from the current place of a source file that has its trace declaration.
#define TOV_LENGTH32(length) tovdetail::length32(length, s_unit.sourcePath.text, __LINE__)

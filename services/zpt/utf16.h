/// Surrogate pairs.
#pragma once

#include <cstddef>
#include <cstdint>

namespace zpt {

inline bool isSurrogate(unsigned unit) { return (unit & 0xF800U) == 0xD800U; }
inline bool isLeadSurrogate(unsigned unit) { return (unit & 0xFC00U) == 0xD800U; }
inline bool isTrailSurrogate(unsigned unit) { return (unit & 0xFC00U) == 0xDC00U; }

/// Whether a pair begins at `text`, of which `count` units, at least 1, are there.
inline bool isPair(const char16_t *text, std::size_t count) {
    return isLeadSurrogate(text[0]) && count > 1 && isTrailSurrogate(text[1]);
}

inline std::uint32_t pairValue(const char16_t *pair) {
    return 0x10000U + ((pair[0] & 0x3FFU) << 10 | (pair[1] & 0x3FFU));
}

inline std::size_t unitsOf(std::uint32_t value) { return value < 0x10000 ? 1 : 2; }

/// Writes the units of a character.
inline void putCharacter(char16_t *target, std::uint32_t value) {
    if (value < 0x10000) {
        target[0] = static_cast<char16_t>(value);
        return;
    }
    target[0] = static_cast<char16_t>(0xD7C0U + (value >> 10));
    target[1] = static_cast<char16_t>(0xDC00U | (value & 0x3FFU));
}

} // namespace zpt

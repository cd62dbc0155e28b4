/// Runs of ASCII, by blocks.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace zpt {

/// Copies the leading ASCII blocks of [source, source + count) and gives their length, a multiple of the
/// block. What is shorter than a block is left to the caller.
inline std::size_t widenAscii(const char *source, std::size_t count, char16_t *target) noexcept {
    constexpr std::size_t block = 16;
    std::size_t done = 0;
    for (; count - done >= block; done += block) {
        std::uint64_t half[2];
        std::memcpy(half, source + done, block);
        if ((half[0] | half[1]) & 0x8080808080808080U)
            break;
        unsigned char bytes[block];
        char16_t units[block];
        std::memcpy(bytes, source + done, block);
        for (std::size_t i = 0; i < block; ++i)
            units[i] = bytes[i];
        std::memcpy(target + done, units, sizeof units);
    }
    return done;
}

/// The same from units to bytes.
inline std::size_t narrowAscii(const char16_t *source, std::size_t count, char *target) noexcept {
    constexpr std::size_t block = 16;
    std::size_t done = 0;
    for (; count - done >= block; done += block) {
        std::uint64_t quarter[4];
        std::memcpy(quarter, source + done, sizeof quarter);
        if ((quarter[0] | quarter[1] | quarter[2] | quarter[3]) & 0xFF80FF80FF80FF80U)
            break;
        char16_t units[block];
        char bytes[block];
        std::memcpy(units, source + done, sizeof units);
        for (std::size_t i = 0; i < block; ++i)
            bytes[i] = static_cast<char>(units[i]);
        std::memcpy(target + done, bytes, sizeof bytes);
    }
    return done;
}

} // namespace zpt

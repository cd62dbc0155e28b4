/// ASCII, whatever the locale.
#pragma once

#include <algorithm>
#include <string_view>

constexpr char asciiLower(char byte) {
    return byte >= 'A' && byte <= 'Z' ? static_cast<char>(byte + ('a' - 'A')) : byte;
}

/// A letter, a digit or "-": what names and options of attributes consist of.
constexpr bool isNameByte(char byte) {
    const char lower = asciiLower(byte);
    return (lower >= 'a' && lower <= 'z') || (byte >= '0' && byte <= '9') || byte == '-';
}

/// The order of attribute names, which does not tell capitals from small letters.
struct NameLess {
    using is_transparent = void;
    bool operator()(std::string_view left, std::string_view right) const {
        return std::lexicographical_compare(left.begin(), left.end(), right.begin(), right.end(),
                                            [](char a, char b) { return asciiLower(a) < asciiLower(b); });
    }
};

inline bool equalNames(std::string_view left, std::string_view right) {
    return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                      [](char a, char b) { return asciiLower(a) == asciiLower(b); });
}

#include "place.h"

#include <algorithm>

namespace {

// In blocks of a fixed size, which the compiler turns into vector code.
std::size_t lineFeedsIn(std::u16string_view units) {
    constexpr std::size_t block = 64;
    std::size_t found = 0;
    for (; units.size() >= block; units.remove_prefix(block)) {
        std::uint16_t inBlock = 0;
        for (std::size_t i = 0; i < block; ++i)
            inBlock = static_cast<std::uint16_t>(inBlock + (units[i] == u'\n'));
        found += inBlock;
    }
    return found + static_cast<std::size_t>(std::count(units.begin(), units.end(), u'\n'));
}

} // namespace

void Place::pass(std::u16string_view units) {
    if (const std::size_t lineFeeds = lineFeedsIn(units)) {
        line += lineFeeds;
        column = 1;
        units.remove_prefix(units.rfind(u'\n') + 1);
    }
    const auto isCharacter = [](char16_t unit) { return (unit & 0xFC00) != 0xDC00; }; // a pair counts once
    column += static_cast<std::uint64_t>(std::count_if(units.begin(), units.end(), isCharacter));
}

#include "place.h"

#include <algorithm>

void Place::pass(std::u16string_view units) {
    const auto lineFeeds = std::count(units.begin(), units.end(), u'\n');
    if (lineFeeds != 0) {
        line += static_cast<std::uint64_t>(lineFeeds);
        column = 1;
        units.remove_prefix(units.rfind(u'\n') + 1);
    }
    const auto isCharacter = [](char16_t unit) { return (unit & 0xFC00) != 0xDC00; }; // a pair counts once
    column += static_cast<std::uint64_t>(std::count_if(units.begin(), units.end(), isCharacter));
}

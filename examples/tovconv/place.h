/// A place in a file, as a report names it.
#pragma once

#include <cstdint>
#include <string_view>

struct Place {
    std::uint64_t byte = 0;   ///< bytes before it
    std::uint64_t line = 1;   ///< line feeds before it, and one
    std::uint64_t column = 1; ///< characters before it in its line, and one

    /// Moves line and column past `units`.
    void pass(std::u16string_view units);
};

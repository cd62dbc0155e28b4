/// A binary search over numbers.
#pragma once

#include <cstddef>

/// The smallest number from `low` to `high` that `reached` holds for, when it holds for `high` and for all
/// above one that it holds for.
template <class Reached>
std::size_t firstReached(std::size_t low, std::size_t high, Reached reached) {
    while (low < high) {
        const std::size_t middle = low + (high - low) / 2;
        if (reached(middle))
            high = middle;
        else
            low = middle + 1;
    }
    return low;
}

// The seed of all random tests, printed by every test program, so that a failure can be run again.
#pragma once

#include <cstddef>
#include <cstdlib>
#include <random>

namespace tovtest {

inline unsigned long long seed() {
    static const unsigned long long value = [] {
        const char *given = std::getenv("TOV_TEST_SEED");
        return given ? std::strtoull(given, nullptr, 10) : std::random_device{}();
    }();
    return value;
}

/// A generator that depends on the seed and on the test's own number.
inline std::mt19937_64 generator(unsigned test = 0) { return std::mt19937_64(seed() + test); }

/// A number below `limit`.
inline std::size_t below(std::mt19937_64 &random, std::size_t limit) {
    return static_cast<std::size_t>(random() % limit);
}

} // namespace tovtest

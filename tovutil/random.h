/// Pseudo-random numbers by the subtractive method with 55 words of state: one stream for the whole process,
/// the same in every process.
///
/// Not for secrets: whoever has seen 55 numbers of a stream knows the rest.
///
/// Errors     What making the module's mutex raises: the out-of-memory errors, at the first number.
/// Threads    Any thread; each number comes from one complete step under one mutex.
/// Cost       A mutex pair, two loads, a store and a division.
#pragma once

#include <tovutil/tovexport.h>
#include <tovutil/tovpool.h>

#include <cstdint>
#include <cstdlib>
#include <pthread.h>

/// A generator of its own. Usable after seed().
///
/// Threads    One thread at a time.
class TOV_EXPORT __random_generator {
public:
    void seed(std::uint32_t start);

    /// One step; all 32 bits of it.
    std::uint32_t next() {
        m_first = m_first == c_words - 1 ? 0 : m_first + 1;
        m_second = m_second == c_words - 1 ? 0 : m_second + 1;
        return m_table[m_first] -= m_table[m_second];
    }

private:
    static constexpr std::uint32_t c_words = 55;
    static constexpr std::uint32_t c_lag = 31; // m_second is always this far ahead, modulo 55

    std::uint32_t m_table[c_words];
    std::uint32_t m_first;
    std::uint32_t m_second;
};

/// The module behind the process's stream: its mutex. After TovRandom_release the next number makes a new
/// one, and the stream goes on.
class TOV_EXPORT TovRandom {
public:
    static TovPoolCtrl ms_pool;
    static pthread_once_t ms_lock;
};

extern "C" {
TOV_EXPORT void TovRandom_init();
TOV_EXPORT void TovRandom_release();

/// The next number of the process's stream, below `limit`, which must not be 0.
TOV_EXPORT std::uint32_t __long_random(std::uint32_t limit);

/// __long_random(0x7FFFFFFF), in place of the platform's function for every program that links this library.
/// The platform declares that it throws nothing. After the first number that is so; the first one needs
/// memory for the mutex, and the process ends when there is none.
TOV_EXPORT long lrand48() noexcept;
}

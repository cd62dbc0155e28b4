// The process's stream of random numbers.
#include <tovutil/random.h>

#include <tovutil/tovmodule.h>
#include <tovutil/tovtrcfn.h>

#include <cassert>
#include <mutex>

TOV_TRACE_FILE("tovutil/random");

void __random_generator::seed(std::uint32_t start) {
    std::uint32_t following = 1;
    m_table[c_words - 1] = start;
    for (std::uint32_t i = 1; i < c_words; ++i) {
        m_table[21 * i % c_words - 1] = following; // 21 and 55 have no common factor, so each word comes once
        const std::uint32_t former = following;
        following = start - following;
        start = former;
    }
    for (int round = 0; round < 4; ++round)
        for (std::uint32_t i = 0; i < c_words; ++i)
            m_table[i] -= m_table[(i + c_lag) % c_words];
    m_first = 0;
    m_second = c_lag;
}

namespace {

// Under the module's mutex. They outlive it, so that the stream goes on after a release.
constinit __random_generator s_generator = {};
constinit bool s_seeded = false;

std::uint32_t nextWord() {
    auto &mutex =
        *static_cast<tovdetail::ModuleMutex *>(TovRandom::ms_pool.get(TovRandom::ms_lock, TovRandom_init));
    const std::lock_guard lock(mutex);
    if (!s_seeded) {
        s_generator.seed(161803398);
        s_seeded = true;
    }
    return s_generator.next();
}

} // namespace

std::uint32_t __long_random(std::uint32_t limit) {
    assert(limit != 0);
    return nextWord() % limit; // outside of the lock, because others wait for that alone
}

long lrand48() noexcept { return static_cast<long>(__long_random(0x7FFFFFFF)); }

// The module ----------------------------------------------------------------------------------------

constinit TovPoolCtrl TovRandom::ms_pool = {};
constinit pthread_once_t TovRandom::ms_lock = PTHREAD_ONCE_INIT;

void TovRandom_init() {
    tovdetail::initModule<tovdetail::ModuleMutex>(TovRandom::ms_pool, TovRandom_release);
}

void TovRandom_release() {
    tovdetail::releaseModule<tovdetail::ModuleMutex>(TovRandom::ms_pool);
    TovRandom::ms_lock = PTHREAD_ONCE_INIT;
}

// One random number below a limit: bare, and from a stream that threads share.
#include "bench.h"

#include <tovutil/random.h>

#include <cstdlib>
#include <mutex>
#include <random>

#include <pthread.h>
#ifdef TOV_BENCH_ABSL
#include <absl/random/random.h>
#endif
#ifdef TOV_BENCH_GLIB
#include <glib.h>
#endif
#ifdef TOV_BENCH_QT
#include <QRandomGenerator>
#endif

namespace tovbench {

namespace {

std::uint32_t s_limit = 1000;

template <class Next>
void both(const char *peer, Next next) {
    job(std::string("random/bare/") + peer, [next] {
        benchmark::DoNotOptimize(s_limit);
        benchmark::DoNotOptimize(next() % s_limit);
    });
    job(std::string("random/locked/") + peer, [next] {
        static std::mutex mutex;
        benchmark::DoNotOptimize(s_limit);
        const std::lock_guard lock(mutex);
        benchmark::DoNotOptimize(next() % s_limit);
    });
}

void addLimits() {
    job("random/bare/limit:modulo", [number = std::uint32_t{1}]() mutable {
        benchmark::DoNotOptimize(s_limit);
        benchmark::DoNotOptimize(number++ % s_limit);
    });
    job("random/locked/limit:mutex-pair", [] {
        static pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
        pthread_mutex_lock(&mutex);
        benchmark::ClobberMemory();
        pthread_mutex_unlock(&mutex);
    });
}

void addTovutil() {
    job("random/bare/tovutil:generator", [] {
        static __random_generator generator = [] {
            __random_generator made;
            made.seed(1);
            return made;
        }();
        benchmark::DoNotOptimize(s_limit);
        benchmark::DoNotOptimize(generator.next() % s_limit);
    });
    preparedJob("random/locked/tovutil", [](benchmark::State &state) {
        require(state, __long_random(1) == 0 && __long_random(s_limit) < s_limit);
        return [] {
            benchmark::DoNotOptimize(s_limit);
            benchmark::DoNotOptimize(__long_random(s_limit));
        };
    });
    job("random/locked/tovutil:lrand48", [] { benchmark::DoNotOptimize(lrand48()); });
}

} // namespace

void registerTopic() {
    addLimits();
    addTovutil();
    both("mt19937", [] {
        static std::mt19937 generator;
        return static_cast<std::uint32_t>(generator());
    });
    both("minstd", [] {
        static std::minstd_rand generator;
        return static_cast<std::uint32_t>(generator());
    });
    both("ranlux24_base", [] {
        static std::ranlux24_base generator;
        return static_cast<std::uint32_t>(generator());
    });
    // The platform's lrand48 by another name: that one is the library's here.
    both("glibc-nrand48", [] {
        static unsigned short state[3];
        return static_cast<std::uint32_t>(nrand48(state));
    });
    both("glibc-rand", [] { return static_cast<std::uint32_t>(std::rand()); }); // locks by itself
#ifdef TOV_BENCH_ABSL
    both("absl-bitgen", [] {
        static absl::BitGen generator;
        return static_cast<std::uint32_t>(generator());
    });
    both("absl-insecure", [] {
        static absl::InsecureBitGen generator;
        return static_cast<std::uint32_t>(generator());
    });
#endif
    // Streams that are safe from any thread without a lock of ours.
#ifdef TOV_BENCH_QT
    job("random/locked/qt-global",
        [] { benchmark::DoNotOptimize(QRandomGenerator::global()->generate() % s_limit); });
#endif
#ifdef TOV_BENCH_GLIB
    job("random/locked/glib", [] { benchmark::DoNotOptimize(g_random_int() % s_limit); });
#endif
}

} // namespace tovbench

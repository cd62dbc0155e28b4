// Reaching a module's data after its first use.
#include "bench.h"

#include <tovutil/tovpool.h>

#include <atomic>
#include <mutex>

#include <pthread.h>
#ifdef TOV_BENCH_ABSL
#include <absl/base/call_once.h>
#endif
#ifdef TOV_BENCH_GLIB
#include <glib.h>
#endif
#ifdef TOV_BENCH_QT
#include <QGlobalStatic>
#endif

namespace tovbench {

namespace {

struct Data {
    Data() { benchmark::ClobberMemory(); }
    std::uint64_t word = 7;
};

Data *s_always = new Data;
signed char s_state = 1;
std::atomic<Data *> s_published{new Data};

constinit TovPoolCtrl s_pool = {};
constinit pthread_once_t s_poolOnce = PTHREAD_ONCE_INIT;

void releasePool() { delete static_cast<Data *>(s_pool.release()); }
void initPool() { s_pool.initOk(new Data, releasePool, TovPoolCtrlListInst<0>::ms_list, nullptr); }

[[gnu::noinline]] Data *byPool() { return static_cast<Data *>(s_pool.get(s_poolOnce, initPool)); }

[[gnu::noinline]] Data *byLoad() { return s_always; }

[[gnu::noinline]] Data *byByte() {
    if (s_state != 1)
        s_always = new Data;
    return s_always;
}

[[gnu::noinline]] Data *byAtomic() {
    Data *data = s_published.load(std::memory_order_acquire);
    if (!data)
        s_published.store(data = new Data, std::memory_order_release);
    return data;
}

[[gnu::noinline]] Data *byStaticPointer() {
    static Data *const data = new Data;
    return data;
}

[[gnu::noinline]] Data *byStaticObject() {
    static Data data;
    return &data;
}

[[gnu::noinline]] Data *byCallOnce() {
    static std::once_flag once;
    std::call_once(once, [] { s_always = new Data; });
    return s_always;
}

[[gnu::noinline]] Data *byPthreadOnce() {
    static pthread_once_t once = PTHREAD_ONCE_INIT;
    pthread_once(&once, [] { s_always = new Data; });
    return s_always;
}

[[gnu::noinline]] Data *byMutex() {
    static std::mutex mutex;
    const std::lock_guard lock(mutex);
    if (!s_always)
        s_always = new Data;
    return s_always;
}

#ifdef TOV_BENCH_ABSL
[[gnu::noinline]] Data *byAbsl() {
    static absl::once_flag once;
    absl::call_once(once, [] { s_always = new Data; });
    return s_always;
}
#endif

#ifdef TOV_BENCH_GLIB
[[gnu::noinline]] Data *byGlib() {
    static gsize once;
    if (g_once_init_enter(&once)) {
        s_always = new Data;
        g_once_init_leave(&once, 1);
    }
    return s_always;
}
#endif

#ifdef TOV_BENCH_QT
Q_GLOBAL_STATIC(Data, qtData)
[[gnu::noinline]] Data *byQt() { return qtData(); }
#endif

void add(const char *peer, Data *(*get)()) {
    preparedJob(std::string("once/access/") + peer, [get](benchmark::State &state) {
        const Data *const first = get();
        require(state, first && first->word == 7 && get() == first);
        return [get] {
            benchmark::DoNotOptimize(get());
            benchmark::ClobberMemory();
        };
    });
}

} // namespace

void registerTopic() {
    add("limit:call-and-load", byLoad);
    add("tovutil", byPool);
    add("byte-test", byByte);
    add("atomic-acquire", byAtomic);
    add("static-pointer", byStaticPointer);
    add("static-object", byStaticObject);
    add("std-call_once", byCallOnce);
    add("pthread_once", byPthreadOnce);
    add("mutex", byMutex);
#ifdef TOV_BENCH_ABSL
    add("absl-call_once", byAbsl);
#endif
#ifdef TOV_BENCH_GLIB
    add("glib-once", byGlib);
#endif
#ifdef TOV_BENCH_QT
    add("qt-global-static", byQt);
#endif
}

} // namespace tovbench

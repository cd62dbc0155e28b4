// The program of a topic. It has a parked second thread, because glibc and libstdc++ leave out atomic
// operations while a process has one thread, and a library lives in processes with several.
// TOV_BENCH_ONE_THREAD=1 measures without it.
#include "bench.h"

#include <condition_variable>
#include <cstdlib>
#include <mutex>
#include <thread>

#include <gnu/libc-version.h>

namespace {

class ParkedThread {
public:
    ParkedThread() : m_thread([this] { park(); }) {}
    ~ParkedThread() {
        {
            const std::lock_guard lock(m_mutex);
            m_done = true;
        }
        m_end.notify_all();
        m_thread.join();
    }
    ParkedThread(const ParkedThread &) = delete;
    ParkedThread &operator=(const ParkedThread &) = delete;

private:
    void park() {
        std::unique_lock lock(m_mutex);
        m_end.wait(lock, [this] { return m_done; });
    }

    std::mutex m_mutex;
    std::condition_variable m_end;
    bool m_done = false;
    std::thread m_thread;
};

void run(const char *threads) {
    benchmark::AddCustomContext("compiler", __VERSION__);
    benchmark::AddCustomContext("glibc", gnu_get_libc_version());
    benchmark::AddCustomContext("peers", TOV_BENCH_PEERS);
    benchmark::AddCustomContext("threads", threads);
    tovbench::registerTopic();
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
}

} // namespace

int main(int argc, char **argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    if (std::getenv("TOV_BENCH_ONE_THREAD")) {
        run("1");
    } else {
        const ParkedThread parked;
        run("2");
    }
    return 0;
}

// Children are made while threads use the library. Each child uses it, too, and none may hang.
#include <tovdom/tovnls/tovnls.h>
#include <tovutil/tovutil.h>

#include <services/hvdctl.h>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <mutex>
#include <shared_mutex>
#include <thread>
#include <vector>

#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr unsigned threadCount = 4;

// One of each; gives whether all was as it should be.
bool useTheLibrary(unsigned number) {
    static const TovUChar *const pages[] = {u"windows-1252", u"ibm-37",   u"Shift_JIS",   u"GB18030",
                                            u"utf-8",        u"utf-16be", u"iso-8859-15", u"big5",
                                            u"euc-kr",       u"koi8-r",   u"cp850",       u"euc-jp"};
    const TovNls nls(pages[number % std::size(pages)]);
    auto bytes = nls.fromUnicode(u"some text", -1);
    auto units = nls.toUnicode(bytes.own().buffer, bytes.length);
    if (units.own().view() != u"some text")
        return false;
    try {
        TovNls unknown(u"no such page");
        return false;
    } catch (const TovError &error) {
        return error.getReturnCode() == TOVRC_NLS_ERROR && *error.getErrorMessage() && *error.getLocation();
    }
}

// Holds the threads still while a child is made, where the address sanitizer wants it: its allocator leaves
// its own locks taken in a child. Elsewhere the threads run on.
class Rest {
public:
#ifdef TOV_ADDRESS_SANITIZER
    std::shared_lock<std::shared_mutex> working() {
        const std::lock_guard gate(m_gate);
        return std::shared_lock(m_mutex);
    }
    std::unique_lock<std::shared_mutex> forking() {
        while (m_begun != threadCount)
            std::this_thread::yield();
        const std::lock_guard gate(m_gate); // without it the threads would never leave a gap
        return std::unique_lock(m_mutex);
    }

    void begun() { ++m_begun; } // a thread that begins allocates by itself

private:
    std::atomic<unsigned> m_begun = 0;
    std::mutex m_gate;
    std::shared_mutex m_mutex;
#else
    int working() { return 0; }
    int forking() { return 0; }
    void begun() {}
#endif
};

// Waits for the child; one that hangs is ended and counts as failed.
bool endsWell(pid_t child) {
    using namespace std::chrono;
    for (const auto end = steady_clock::now() + seconds(30); steady_clock::now() < end;) {
        int status = 0;
        if (waitpid(child, &status, WNOHANG) == child)
            return WIFEXITED(status) && WEXITSTATUS(status) == 0;
        std::this_thread::sleep_for(milliseconds(1));
    }
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    return false;
}

TEST(Fork, ChildrenOfABusyProcessUseTheLibrary) {
    hvdTraceSetLevels("*=all");
    hvdTraceSetSink([](void *, const HvdTraceEvent &) {}, nullptr);
#ifdef TOV_THREAD_SANITIZER
    useTheLibrary(0); // the sanitizer's own pthread_once can't be continued in a child
#endif
    std::atomic<bool> done = false;
    std::atomic<int> wrong = 0;
    Rest rest;
    std::vector<std::thread> threads;
    for (unsigned t = 0; t < threadCount; ++t)
        threads.emplace_back([&, t] {
            for (unsigned i = t; !done; ++i) {
                {
                    [[maybe_unused]] const auto working = rest.working();
                    wrong += !useTheLibrary(i);
                }
                if (i == t)
                    rest.begun();
            }
        });
    int bad = 0;
    for (unsigned i = 0; i < 200 && bad == 0; ++i) {
        const pid_t child = [&] {
            [[maybe_unused]] const auto forking = rest.forking();
            return fork();
        }();
        if (child == 0)
            _exit(useTheLibrary(i) ? 0 : 1);
        ASSERT_GT(child, 0);
        bad += !endsWell(child);
    }
    done = true;
    for (std::thread &thread : threads)
        thread.join();
    hvdTraceSetSink(nullptr, nullptr);
    hvdTraceSetLevels("");
    EXPECT_EQ(0, bad);
    EXPECT_EQ(0, wrong);
}

} // namespace

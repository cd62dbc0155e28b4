#include <support/traced.h>

#include <tovutil/tovmodule.h>
#include <tovutil/tovutil.h>

#include <gtest/gtest.h>

#include <atomic>
#include <new>
#include <set>
#include <thread>
#include <vector>

namespace {

// A module for tests. `make` is what its init function runs.
struct Probe {
    static TovPoolCtrl ms_pool;
    static pthread_once_t ms_lock;
    static std::atomic<int> inits;
    static std::atomic<int> live;
    static void (*make)();

    Probe() {
        ++inits;
        if (make)
            make();
        ++live;
    }
    ~Probe() { --live; }
    Probe(const Probe &) = delete;
    Probe &operator=(const Probe &) = delete;

    static void init();
    static void release() { tovdetail::releaseModule<Probe>(ms_pool); }
    static Probe &get() { return *static_cast<Probe *>(ms_pool.get(ms_lock, init)); }

    // Back to the state before any use.
    static void forget(void (*newMake)()) {
        release();
        ms_pool = {};
        ms_lock = PTHREAD_ONCE_INIT;
        inits = 0;
        make = newMake;
    }
};

TovPoolCtrl Probe::ms_pool = {};
pthread_once_t Probe::ms_lock = PTHREAD_ONCE_INIT;
std::atomic<int> Probe::inits = 0;
std::atomic<int> Probe::live = 0;
void (*Probe::make)() = nullptr;

void Probe::init() { tovdetail::initModule<Probe>(ms_pool, release); }

[[noreturn]] void raiseFullError() {
    throw TovErrorFull(7, "SEVEN", 8, "LAYER", 9, "NINE", 1, TovError::Transient, 42, "make", "v", "f.cpp",
                       "build", "text", nullptr);
}

std::string messageOfAccess() {
    try {
        Probe::get();
    } catch (const TovErrorFull &error) {
        return error.getErrorMessage();
    }
    return {};
}

TEST(TovPoolCtrl, RunsTheInitFunctionOnceForRacingThreads) {
    for (int round = 0; round < 50; ++round) {
        // Traced, too: a thread reads the fields for its arguments while another initialises them.
        const tovtest::TraceRecorder recorder(round % 2 ? "TovPoolCtrl::*=flow" : "");
        Probe::forget(nullptr);
        std::vector<Probe *> seen(4);
        std::vector<std::thread> threads;
        for (Probe *&mine : seen)
            threads.emplace_back([&mine] { mine = &Probe::get(); });
        for (std::thread &thread : threads)
            thread.join();
        EXPECT_EQ(1, Probe::inits);
        EXPECT_EQ(1U, std::set<Probe *>(seen.begin(), seen.end()).size());
        EXPECT_EQ(TovPoolCtrl::Ready, Probe::ms_pool.m_stat);
    }
}

TEST(TovPoolCtrl, RaisesAFailedInitAnewWithItsTypeAtEveryAccess) {
    Probe::forget(raiseFullError);
    const std::string first = messageOfAccess();
    EXPECT_EQ("SEVEN LAYER(NINE) Pos(1) ErrorType(TRANSIENT),\ntext", first);
    for (int i = 0; i < 10; ++i)
        EXPECT_EQ(first, messageOfAccess());
    EXPECT_EQ(1, Probe::inits);
    EXPECT_EQ(TovPoolCtrl::Failed, Probe::ms_pool.m_stat);
    EXPECT_EQ(nullptr, Probe::ms_pool.m_data);

    EXPECT_EQ(nullptr, Probe::ms_pool.release()) << "a failed pool has nothing to hand out";
    EXPECT_EQ(first, messageOfAccess()) << "and keeps its error";
}

TEST(TovPoolCtrl, GivesRacingThreadsCopiesOfOneStoredError) {
    Probe::forget(raiseFullError);
    std::atomic<int> equal = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([&] {
            for (int k = 0; k < 200; ++k)
                equal += messageOfAccess() == "SEVEN LAYER(NINE) Pos(1) ErrorType(TRANSIENT),\ntext";
        });
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(800, equal);
    EXPECT_EQ(1, Probe::inits);
}

TEST(TovPoolCtrl, TriesAgainAfterAnExceptionThatIsNoTovError) {
#ifdef TOV_THREAD_SANITIZER
    GTEST_SKIP() << "the sanitizer's own pthread_once does not let an exception through";
#endif
    Probe::forget([] { throw std::bad_alloc(); });
    EXPECT_THROW(Probe::get(), std::bad_alloc);
    EXPECT_EQ(TovPoolCtrl::Untouched, Probe::ms_pool.m_stat);
    Probe::make = nullptr;
    Probe::get();
    EXPECT_EQ(2, Probe::inits);
    EXPECT_EQ(1, Probe::live);
}

TEST(TovPoolCtrl, HandsOutItsDataOnReleaseAndDoesNotMakeThemAgain) {
    Probe::forget(nullptr);
    EXPECT_EQ(nullptr, Probe::ms_pool.release()) << "never used";
    EXPECT_EQ(TovPoolCtrl::Untouched, Probe::ms_pool.m_stat);

    Probe *data = &Probe::get();
    TovPoolCtrlImpl *entry = Probe::ms_pool.m_impl;
    EXPECT_EQ(&Probe::ms_pool, entry->m_ctrl);
    EXPECT_EQ(data, Probe::ms_pool.release());
    EXPECT_EQ(nullptr, entry->m_ctrl) << "the entry shows that its pool is gone";
    EXPECT_EQ(nullptr, Probe::ms_pool.m_impl);
    EXPECT_EQ(nullptr, Probe::ms_pool.release());

    EXPECT_EQ(nullptr, Probe::ms_pool.init(Probe::ms_lock, Probe::init));
    EXPECT_EQ(1, Probe::inits);
    EXPECT_EQ("TOVRC_INTERNAL_ERROR  Pos(1) ErrorType(ERROR),\nInternal error: pool released",
              messageOfAccess());
    delete data;
}

TEST(TovPoolCtrl, RegistersPoolsNewestFirstInTheOneList) {
    Probe::forget(nullptr);
    Probe::get();
    const TovPoolCtrlList &list = TovPoolCtrlListInst<0>::ms_list;
    ASSERT_NE(0, list.m_isInit);
    EXPECT_EQ(Probe::ms_pool.m_impl, list.m_impl->m_head);
    EXPECT_EQ(&Probe::release, list.m_impl->m_head->m_release);
    EXPECT_EQ(list.m_impl, TovPoolCtrlListImpl::ms_head);
    EXPECT_EQ(nullptr, list.m_impl->m_next) << "one list body in the process";
    EXPECT_EQ(&list, list.m_impl->m_list);
    EXPECT_FALSE(TovPoolCtrlList::isCleanupEnabled());
}

TEST(TovPoolCtrl, ChainsSeveralLists) {
    static TovPoolCtrlList other = {};
    TovPoolCtrlListImpl *former = TovPoolCtrlListImpl::ms_head;
    EXPECT_EQ(&other, &TovPoolCtrlListImpl::checkInit(other, nullptr));
    EXPECT_EQ(other.m_impl, TovPoolCtrlListImpl::ms_head);
    EXPECT_EQ(former, other.m_impl->m_next);
    if (former) {
        EXPECT_EQ(other.m_impl, former->m_prev);
    }
    TovPoolCtrlListImpl::checkInit(other, nullptr);
    EXPECT_EQ(other.m_impl, TovPoolCtrlListImpl::ms_head) << "made once";

    // The chain belongs to the process: leave it as the other tests expect it.
    TovPoolCtrlListImpl::ms_head = former;
    if (former)
        former->m_prev = nullptr;
    pthread_mutex_destroy(&other.m_impl->m_mutex);
    delete other.m_impl;
}

TEST(TovPoolCtrl, TracesItsLife) {
    Probe::forget(raiseFullError);
    tovtest::TraceRecorder recorder("TovPoolCtrl::*=all");
    messageOfAccess();
    messageOfAccess();
    const auto init = recorder.lines("TovPoolCtrl::init");
    ASSERT_EQ(6U, init.size());
    EXPECT_EQ("> TovPoolCtrl::init", init[0]);
    EXPECT_EQ(0U, init[1].find("TovPoolCtrl::init: Args - this(0x"));
    EXPECT_EQ("TovPoolCtrl::init: State - Re-throw pending error", init[2]);
    EXPECT_EQ("> TovPoolCtrl::init", init[3]) << "left by an exception: no exit";

    const auto failed = recorder.lines("TovPoolCtrl::initError");
    ASSERT_LE(4U, failed.size());
    EXPECT_EQ("TovPoolCtrl::initError: !!! Error - (SEVEN LAYER(NINE) Pos(1) ErrorType(TRANSIENT),\ntext)",
              failed[failed.size() - 2]);
    EXPECT_EQ("< TovPoolCtrl::initError", failed.back());
}

TEST(TovInitUtils, AlignsToTheNextMultipleOfEight) {
    alignas(8) static char area[16];
    for (int offset = 0; offset <= 8; ++offset)
        EXPECT_EQ(area + (offset == 0 ? 0 : 8), TovInitUtils::align(area + offset)) << offset;
}

} // namespace

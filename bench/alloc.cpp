// Small objects: one at a time, in batches freed in three orders, and a steady population of which random
// members are replaced; a heap for ten objects; and what a copy of a counted reference costs.
#include "allocpeers.h"
#include "bench.h"

#include <algorithm>
#include <map>
#include <memory>
#include <utility>

#ifdef TOV_BENCH_BOOST
#include <boost/smart_ptr/intrusive_ptr.hpp>
#include <boost/smart_ptr/intrusive_ref_counter.hpp>
#endif

namespace tovbench {

namespace {

constexpr unsigned c_batch = 1000;
constexpr unsigned c_population = 10000;
constexpr std::size_t c_mixed[] = {16, 24, 32, 48, 64, 96, 128, 192, 256, 384, 512};

// What stands for one size in the names of groups: mixed sizes, and the same with 504 instead of 512, which
// is the largest size that our heap does not pass on to malloc.
constexpr std::size_t c_mix = 0;
constexpr std::size_t c_mix504 = 1;

bool isMix(std::size_t size) { return size == c_mix || size == c_mix504; }

std::string sizeName(std::size_t size) {
    return size == c_mix ? "mix" : size == c_mix504 ? "mix504" : std::to_string(size);
}

std::size_t oneOfMix(std::size_t mix, Lcg &lcg) {
    const std::size_t size = c_mixed[lcg.below(std::size(c_mixed))];
    return mix == c_mix504 ? std::min<std::size_t>(size, 504) : size;
}

// The sizes of a batch and the orders of freeing, the same for all peers.
struct Plan {
    std::vector<std::size_t> sizes;
    std::vector<unsigned> lifo, fifo, random;
};

Plan makePlan(std::size_t size) {
    Plan plan;
    Lcg lcg(5);
    for (unsigned i = 0; i < c_batch; ++i) {
        plan.sizes.push_back(isMix(size) ? oneOfMix(size, lcg) : size);
        plan.lifo.push_back(c_batch - 1 - i);
        plan.fifo.push_back(i);
    }
    plan.random = plan.fifo;
    for (unsigned i = c_batch; i > 1; --i)
        std::swap(plan.random[i - 1], plan.random[lcg.below(i)]);
    return plan;
}

const Plan &planOf(std::size_t size) {
    static std::map<std::size_t, Plan> plans;
    const auto found = plans.find(size);
    return found != plans.end() ? found->second : plans.emplace(size, makePlan(size)).first->second;
}

void touch(void *object, std::size_t value) {
    *static_cast<std::uint64_t *>(object) = value;
    benchmark::DoNotOptimize(object);
}

template <class Peer>
void addPair(const std::string &name, std::size_t size) {
    benchmark::RegisterBenchmark(("alloc/pair/" + name).c_str(), [size](benchmark::State &state) {
        const Plan &plan = planOf(size);
        Peer peer;
        unsigned i = 0;
        for (auto _ : state) {
            const std::size_t n = plan.sizes[i];
            void *object = peer.get(n);
            touch(object, n);
            peer.put(object, n);
            if (++i == c_batch)
                i = 0;
        }
    });
}

template <class Peer>
void addBatch(const char *order, std::vector<unsigned> Plan::*puts, const std::string &name,
              std::size_t size) {
    benchmark::RegisterBenchmark(("alloc/" + (order + ("/" + name))).c_str(),
                                 [size, puts](benchmark::State &state) {
                                     const Plan &plan = planOf(size);
                                     Peer peer;
                                     std::vector<void *> live(c_batch);
                                     for (auto _ : state) {
                                         for (unsigned i = 0; i < c_batch; ++i) {
                                             live[i] = peer.get(plan.sizes[i]);
                                             *static_cast<std::uint64_t *>(live[i]) = i;
                                         }
                                         benchmark::ClobberMemory();
                                         for (const unsigned i : plan.*puts)
                                             peer.put(live[i], plan.sizes[i]);
                                     }
                                     state.SetItemsProcessed(state.iterations() * c_batch);
                                 });
}

template <class Peer>
void addChurn(const std::string &name, std::size_t size) {
    benchmark::RegisterBenchmark(("alloc/churn/" + name).c_str(), [size](benchmark::State &state) {
        const Plan &plan = planOf(size);
        Peer peer;
        std::vector<std::pair<void *, std::size_t>> live(c_population);
        for (unsigned i = 0; i < c_population; ++i)
            live[i] = {peer.get(plan.sizes[i % c_batch]), plan.sizes[i % c_batch]};
        Lcg lcg(9);
        unsigned i = 0;
        for (auto _ : state) {
            auto &object = live[lcg.below(c_population)];
            peer.put(object.first, object.second);
            object = {peer.get(plan.sizes[i]), plan.sizes[i]};
            *static_cast<std::uint64_t *>(object.first) = i;
            if (++i == c_batch)
                i = 0;
        }
        for (auto &object : live)
            peer.put(object.first, object.second);
    });
}

template <class Peer>
void add(const std::string &peer, std::size_t size) {
    if (!Peer::usable())
        return;
    const std::string name = sizeName(size) + "/" + peer;
    addPair<Peer>(name, size);
    addBatch<Peer>("lifo", &Plan::lifo, name, size);
    addBatch<Peer>("fifo", &Plan::fifo, name, size);
    addBatch<Peer>("random", &Plan::random, name, size);
    addChurn<Peer>(name, size);
}

void addAll(std::size_t size) {
    if (isMix(size))
        add<ListPerSize>("limit:free-list", size);
    else
        add<OneList>("limit:free-list", size);
    add<PrefixList>("model:prefix-list", size);
    if (size == c_mix)
        add<PrefixListOrMalloc>("model:prefix-list-or-malloc", size);
    add<Tovutil>("tovutil", size);
    add<Glibc>("glibc", size);
    add<Mimalloc>("mimalloc", size);
    add<Jemalloc>("jemalloc", size);
    add<PmrPool>("pmr-pool", size);
#ifdef TOV_BENCH_GLIB
    add<GSlice>("glib-slice", size);
#endif
}

#ifdef TOV_BENCH_BOOST
template <std::size_t size>
void addBoost() {
    add<BoostPool<size>>("boost-pool", size);
    add<BoostFast<size>>("boost-fast", size);
}
#endif

// A heap for ten objects ----------------------------------------------------------------------------

template <class Get, class Put>
void tenObjects(Get get, Put put) {
    void *live[10];
    for (unsigned i = 0; i < std::size(live); ++i) {
        live[i] = get(c_mixed[i]);
        *static_cast<std::uint64_t *>(live[i]) = i;
    }
    benchmark::ClobberMemory();
    for (unsigned i = 0; i < std::size(live); ++i)
        put(live[i], c_mixed[i]);
}

void registerLife() {
    const std::string group = "alloc/life10/mix/";
    job(group + "limit:malloc-pair", [] {
        void *block = std::malloc(16000);
        benchmark::DoNotOptimize(block);
        std::free(block);
    });
    job(group + "tovutil", [] {
        Tovutil heap;
        tenObjects([&](std::size_t size) { return heap.get(size); },
                   [](void *object, std::size_t) { TovFastHeap::deallocate(object); });
    });
    job(group + "glibc-each", [] {
        tenObjects([](std::size_t size) { return std::malloc(size); },
                   [](void *object, std::size_t) { std::free(object); });
    });
    job(group + "pmr-pool", [] {
        PmrPool pool;
        tenObjects([&](std::size_t size) { return pool.get(size); },
                   [&](void *object, std::size_t size) { pool.put(object, size); });
    });
    job(group + "part:pmr-monotonic", [] { // frees nothing
        std::pmr::monotonic_buffer_resource arena(16000);
        tenObjects([&](std::size_t size) { return arena.allocate(size, 8); }, [](void *, std::size_t) {});
    });
    using Heap = struct mi_heap_s;
    const auto make = libraryFunction<Heap *(*)()>("libmimalloc.so.2", "mi_heap_new");
    const auto get = libraryFunction<void *(*)(Heap *, std::size_t)>("libmimalloc.so.2", "mi_heap_malloc");
    const auto end = libraryFunction<void (*)(Heap *)>("libmimalloc.so.2", "mi_heap_destroy");
    if (make && get && end)
        job(group + "mimalloc-heap", [=] {
            Heap *heap = make();
            tenObjects([&](std::size_t size) { return get(heap, size); }, [](void *, std::size_t) {});
            end(heap);
        });
}

// Counted references --------------------------------------------------------------------------------

struct Counted : TovUtRefBase {
    std::uint64_t payload[4]{};
};

template <class Reference>
void copied(const char *peer, Reference reference) {
    job(std::string("alloc/reference-copy/") + peer, [reference] {
        auto copy = reference;
        benchmark::DoNotOptimize(copy);
    });
}

void registerReferences() {
    copied("tovutil", TovUtRef<Counted>(new Counted));
    copied("tovutil:heap", TovFastHeap::create(0));
    copied("shared_ptr", std::make_shared<Counted>());
#ifdef TOV_BENCH_BOOST
    struct Plain : boost::intrusive_ref_counter<Plain, boost::thread_unsafe_counter> {
        std::uint64_t payload[4]{};
    };
    struct Atomic : boost::intrusive_ref_counter<Atomic, boost::thread_safe_counter> {
        std::uint64_t payload[4]{};
    };
    copied("limit:plain-count", boost::intrusive_ptr<Plain>(new Plain));
    copied("intrusive-atomic", boost::intrusive_ptr<Atomic>(new Atomic));
#endif
}

} // namespace

void registerTopic() {
    for (const std::size_t size : {std::size_t{16}, std::size_t{64}, std::size_t{512}, c_mix, c_mix504})
        addAll(size);
#ifdef TOV_BENCH_BOOST
    addBoost<16>();
    addBoost<64>();
    addBoost<512>();
#endif
    registerLife();
    registerReferences();
}

} // namespace tovbench

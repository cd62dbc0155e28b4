// A bounded least-recently-used cache: a find that hits and makes its entry the latest, and an insertion into
// a full cache, which drops the oldest entry.
#include "bench.h"

#include <tovutil/tovcache.h>

#include <list>
#include <map>
#include <memory>
#include <unordered_map>
#include <utility>
#include <vector>

#ifdef TOV_BENCH_ABSL
#include <absl/container/flat_hash_map.h>
#endif
#ifdef TOV_BENCH_BOOST
#include <boost/compute/detail/lru_cache.hpp>
#include <boost/multi_index/hashed_index.hpp>
#include <boost/multi_index/member.hpp>
#include <boost/multi_index/sequenced_index.hpp>
#include <boost/multi_index_container.hpp>
#endif
#ifdef TOV_BENCH_GLIB
#include <glib.h>
#endif

namespace tovbench {

namespace {

using Key = std::uint64_t;
using Value = std::uint64_t;

// Spreads the numbers 0, 1, 2 ... over all keys without any order.
Key key(std::uint64_t i) {
    i = (i + 1) * 0x9E3779B97F4A7C15ULL;
    i = (i ^ i >> 30) * 0xBF58476D1CE4E5B9ULL;
    i = (i ^ i >> 27) * 0x94D049BB133111EBULL;
    return i ^ i >> 31;
}

// With types that the compiler knows -----------------------------------------------------------------

// A list of entries and a table of their positions.
template <template <class...> class Map>
class Textbook {
public:
    explicit Textbook(std::size_t limit) : m_limit(limit) { m_map.reserve(limit + 1); }
    Value *find(Key key) {
        const auto at = m_map.find(key);
        if (at == m_map.end())
            return nullptr;
        m_list.splice(m_list.begin(), m_list, at->second);
        return &at->second->second;
    }
    void insert(Key key, Value value) {
        const auto [at, fresh] = m_map.try_emplace(key);
        if (!fresh) {
            m_list.splice(m_list.begin(), m_list, at->second);
            return;
        }
        m_list.emplace_front(key, value);
        at->second = m_list.begin();
        if (m_map.size() > m_limit) {
            m_map.erase(m_list.back().first);
            m_list.pop_back();
        }
    }

private:
    using List = std::list<std::pair<Key, Value>>;
    List m_list;
    Map<Key, typename List::iterator> m_map;
    std::size_t m_limit;
};

template <class K, class V>
using StdMap = std::unordered_map<K, V>;
#ifdef TOV_BENCH_ABSL
template <class K, class V>
using FlatMap = absl::flat_hash_map<K, V>;
#endif

#ifdef TOV_BENCH_BOOST
class MultiIndex {
public:
    explicit MultiIndex(std::size_t limit) : m_limit(limit) {}
    Value *find(Key key) {
        auto &hash = m_all.get<1>();
        const auto at = hash.find(key);
        if (at == hash.end())
            return nullptr;
        m_all.relocate(m_all.begin(), m_all.project<0>(at));
        return const_cast<Value *>(&at->value);
    }
    void insert(Key key, Value value) {
        const auto [at, fresh] = m_all.push_front({key, value});
        if (!fresh)
            m_all.relocate(m_all.begin(), at);
        else if (m_all.size() > m_limit)
            m_all.pop_back();
    }

private:
    struct Entry {
        Key key;
        Value value;
    };
    boost::multi_index_container<
        Entry, boost::multi_index::indexed_by<
                   boost::multi_index::sequenced<>,
                   boost::multi_index::hashed_unique<boost::multi_index::member<Entry, Key, &Entry::key>>>>
        m_all;
    std::size_t m_limit;
};

class BoostCompute {
public:
    explicit BoostCompute(std::size_t limit) : m_all(limit) {}
    Value *find(Key key) {
        m_last = m_all.get(key);
        return m_last ? &*m_last : nullptr;
    }
    void insert(Key key, Value value) { m_all.insert(key, value); }

private:
    boost::compute::detail::lru_cache<Key, Value> m_all;
    boost::optional<Value> m_last;
};
#endif

#ifdef TOV_BENCH_GLIB
class Glib {
public:
    explicit Glib(std::size_t limit)
        : m_limit(limit), m_table(g_hash_table_new(g_int64_hash, g_int64_equal)) {
        g_queue_init(&m_queue);
    }
    ~Glib() {
        g_hash_table_destroy(m_table);
        g_queue_clear_full(&m_queue, [](void *entry) { delete static_cast<Entry *>(entry); });
    }
    Glib(const Glib &) = delete;
    Glib &operator=(const Glib &) = delete;
    Value *find(Key key) {
        auto *link = static_cast<GList *>(g_hash_table_lookup(m_table, &key));
        if (!link)
            return nullptr;
        g_queue_unlink(&m_queue, link);
        g_queue_push_head_link(&m_queue, link);
        return &static_cast<Entry *>(link->data)->value;
    }
    void insert(Key key, Value value) {
        if (find(key))
            return;
        auto *entry = new Entry{key, value};
        g_queue_push_head(&m_queue, entry);
        g_hash_table_insert(m_table, &entry->key, m_queue.head);
        if (m_queue.length > m_limit) {
            auto *old = static_cast<Entry *>(g_queue_pop_tail(&m_queue));
            g_hash_table_remove(m_table, &old->key);
            delete old;
        }
    }

private:
    struct Entry {
        Key key;
        Value value;
    };
    std::size_t m_limit;
    GHashTable *m_table;
    GQueue m_queue;
};
#endif

// With untyped words and a helper --------------------------------------------------------------------

void *word(std::uint64_t value) { return reinterpret_cast<void *>(value); }

// The client of the library and of both models. Keys are words.
struct PairHelper final : TovUtCacheHelper {
    struct Entry {
        Key key;
        Value value;
    };
    unsigned hash(void *key) override {
        return static_cast<unsigned>(reinterpret_cast<std::uintptr_t>(key) >> 32);
    }
    bool equal(void *stored, void *probed) override { return stored == probed; }
    void *getKey(void *value) override { return word(static_cast<Entry *>(value)->key); }
    void *create(void *key, void *argument) override {
        return new Entry{reinterpret_cast<Key>(key), reinterpret_cast<Value>(argument)};
    }
    void destroy(void *value) override { delete static_cast<Entry *>(value); }
};

// A second client, so that a compiler that sees only one of them can't guess the targets of the models'
// calls; the library's are never guessed.
struct OtherHelper final : TovUtCacheHelper {
    unsigned hash(void *) override { return 0; }
    bool equal(void *, void *) override { return false; }
    void *getKey(void *value) override { return value; }
    void *create(void *key, void *) override { return key; }
    void destroy(void *) override {}
};
[[maybe_unused]] TovUtCacheHelper *volatile s_otherHelper = new OtherHelper;

class Untyped {
public:
    virtual ~Untyped() = default;
    virtual void *find(void *key) = 0;
    virtual void insert(void *key, void *argument) = 0;
};

// The same service from the standard containers, with hash and equality asked of the helper.
class UntypedTextbook : public Untyped {
public:
    UntypedTextbook(TovUtCacheHelper *helper, std::size_t limit)
        : m_helper(helper), m_limit(limit), m_map(limit, Hash{helper}, Equal{helper}) {}
    ~UntypedTextbook() override {
        for (void *value : m_list)
            m_helper->destroy(value);
    }
    void *find(void *key) override {
        const auto at = m_map.find(key);
        if (at == m_map.end())
            return nullptr;
        m_list.splice(m_list.begin(), m_list, at->second);
        return *at->second;
    }
    void insert(void *key, void *argument) override {
        if (find(key))
            return;
        void *value = m_helper->create(key, argument);
        m_list.push_front(value);
        m_map.emplace(m_helper->getKey(value), m_list.begin());
        if (m_map.size() > m_limit) {
            void *old = m_list.back();
            m_map.erase(m_helper->getKey(old));
            m_helper->destroy(old);
            m_list.pop_back();
        }
    }

private:
    struct Hash {
        std::size_t operator()(void *key) const { return helper->hash(key); }
        TovUtCacheHelper *helper;
    };
    struct Equal {
        bool operator()(void *stored, void *probed) const { return helper->equal(stored, probed); }
        TovUtCacheHelper *helper;
    };
    TovUtCacheHelper *m_helper;
    std::size_t m_limit;
    std::list<void *> m_list;
    std::unordered_map<void *, std::list<void *>::iterator, Hash, Equal> m_map;
};

// One node an entry, with key and value in it, and buckets chosen by a mask: what a table of nodes, a list of
// values and prime numbers of buckets cost shows beside it.
class UntypedOneNode : public Untyped {
public:
    UntypedOneNode(TovUtCacheHelper *helper, std::size_t limit) : m_helper(helper), m_limit(limit) {
        std::size_t count = 64;
        while (count < limit + limit / 2)
            count *= 2;
        m_buckets.resize(count);
        m_ends.next = m_ends.prev = &m_ends;
    }
    ~UntypedOneNode() override {
        while (m_ends.next != &m_ends) {
            auto *node = static_cast<Node *>(m_ends.next);
            unlink(node);
            m_helper->destroy(node->value);
            delete node;
        }
        delete m_spare;
    }
    UntypedOneNode(const UntypedOneNode &) = delete;
    UntypedOneNode &operator=(const UntypedOneNode &) = delete;
    void *find(void *key) override {
        Node *node = *place(key);
        if (!node)
            return nullptr;
        unlink(node);
        pushFront(node);
        return node->value;
    }
    void insert(void *key, void *argument) override {
        Node **at = place(key);
        if (Node *node = *at) {
            unlink(node);
            pushFront(node);
            return;
        }
        Node *node = m_spare ? std::exchange(m_spare, nullptr) : new Node;
        node->value = m_helper->create(key, argument);
        node->key = m_helper->getKey(node->value);
        node->chain = nullptr;
        *at = node;
        pushFront(node);
        if (++m_count > m_limit)
            evict();
    }

private:
    struct Link {
        Link *next;
        Link *prev;
    };
    struct Node : Link {
        Node *chain;
        void *key;
        void *value;
    };
    void evict() {
        auto *old = static_cast<Node *>(m_ends.prev);
        *place(old->key) = old->chain;
        unlink(old);
        m_helper->destroy(old->value);
        delete std::exchange(m_spare, old);
        --m_count;
    }
    Node **place(void *key) {
        Node **at = &m_buckets[m_helper->hash(key) & (m_buckets.size() - 1)];
        while (*at && !m_helper->equal((*at)->key, key))
            at = &(*at)->chain;
        return at;
    }
    static void unlink(Link *node) {
        node->prev->next = node->next;
        node->next->prev = node->prev;
    }
    void pushFront(Link *node) {
        node->next = m_ends.next;
        node->prev = &m_ends;
        m_ends.next->prev = node;
        m_ends.next = node;
    }
    TovUtCacheHelper *m_helper;
    std::size_t m_limit;
    std::size_t m_count = 0;
    std::vector<Node *> m_buckets;
    Link m_ends;
    Node *m_spare = nullptr;
};

class Tovutil : public Untyped {
public:
    Tovutil(TovUtCacheHelper *helper, std::size_t limit)
        : m_cache(TovUtCacheImplFactory::create(0, helper, static_cast<unsigned>(limit))) {}
    ~Tovutil() override { TovUtCacheImplFactory::destroy(0, m_cache); }
    Tovutil(const Tovutil &) = delete;
    Tovutil &operator=(const Tovutil &) = delete;
    TovUtCacheImpl &cache() { return *m_cache; }
    void *find(void *key) override { return m_cache->find(key); }
    void insert(void *key, void *argument) override { m_cache->insert(key, argument, nullptr); }

private:
    TovUtCacheImpl *m_cache;
};

// The library is called through its own interface alone.
TovUtCacheImpl &service(Tovutil &cache) { return cache.cache(); }
Untyped &service(Untyped &cache) { return cache; }
void insertInto(TovUtCacheImpl &cache, void *key, void *argument) { cache.insert(key, argument, nullptr); }
void insertInto(Untyped &cache, void *key, void *argument) { cache.insert(key, argument); }

template <class Kind>
class WithHelper {
public:
    explicit WithHelper(std::size_t limit) : m_cache(std::make_unique<Kind>(m_helper.get(), limit)) {}
    Value *find(Key key) {
        auto *entry = static_cast<PairHelper::Entry *>(service(*m_cache).find(word(key)));
        return entry ? &entry->value : nullptr;
    }
    void insert(Key key, Value value) { insertInto(service(*m_cache), word(key), word(value)); }

private:
    std::unique_ptr<PairHelper> m_helper = std::make_unique<PairHelper>();
    std::unique_ptr<Kind> m_cache;
};

// Jobs -----------------------------------------------------------------------------------------------

// A full cache whose order of use is shuffled. It is kept between repetitions, one per kind, limit and job.
template <class Cache, int>
struct Filled {
    explicit Filled(std::size_t limit) : cache(limit) {
        for (; next < limit; ++next)
            cache.insert(key(next), next);
        Lcg random(29);
        for (std::size_t i = 0; i < 2 * limit; ++i)
            cache.find(key(random.below(static_cast<std::uint32_t>(limit))));
    }
    static Filled &of(std::size_t limit) {
        static std::map<std::size_t, std::unique_ptr<Filled>> all;
        auto &filled = all[limit];
        if (!filled)
            filled = std::make_unique<Filled>(limit);
        return *filled;
    }
    Cache cache;
    std::uint64_t next = 0;
};

std::string name(const char *work, const char *label, const char *peer) {
    return std::string("cache/") + work + "/" + label + "/" + peer;
}

template <class Cache>
void add(const char *peer, std::size_t limit, const char *label) {
    preparedJob(name("find-hit", label, peer), [limit](benchmark::State &state) {
        Cache &cache = Filled<Cache, 0>::of(limit).cache;
        require(state, cache.find(key(5)) && *cache.find(key(5)) == 5 && !cache.find(key(limit)));
        return [&cache, limit, random = Lcg(17)]() mutable {
            benchmark::DoNotOptimize(cache.find(key(random.below(static_cast<std::uint32_t>(limit)))));
        };
    });
    preparedJob(name("insert-evict", label, peer), [limit](benchmark::State &state) {
        auto &filled = Filled<Cache, 1>::of(limit);
        require(state, filled.cache.find(key(filled.next - 1)) && !filled.cache.find(key(filled.next)));
        return [&filled] {
            filled.cache.insert(key(filled.next), filled.next);
            ++filled.next;
        };
    });
}

// One access to one of as many cache lines as there are entries.
void addLimit(std::size_t limit, const char *label) {
    struct alignas(64) Line {
        std::uint64_t word;
    };
    for (const char *work : {"find-hit", "insert-evict"})
        preparedJob(name(work, label, "limit:line"), [limit](benchmark::State &) {
            return [lines = std::vector<Line>(limit), random = Lcg(17)]() mutable {
                const auto count = static_cast<std::uint32_t>(lines.size());
                benchmark::DoNotOptimize(++lines[random.below(count)].word);
            };
        });
}

void addAll(std::size_t limit, const char *label) {
    addLimit(limit, label);
    add<WithHelper<Tovutil>>("tovutil", limit, label);
    add<WithHelper<UntypedTextbook>>("model:untyped-textbook", limit, label);
    add<WithHelper<UntypedOneNode>>("model:untyped-one-node", limit, label);
    add<Textbook<StdMap>>("unordered_map-list", limit, label);
#ifdef TOV_BENCH_ABSL
    add<Textbook<FlatMap>>("absl-flat-list", limit, label);
#endif
#ifdef TOV_BENCH_BOOST
    add<MultiIndex>("boost-multi_index", limit, label);
    add<BoostCompute>("boost-compute-lru", limit, label);
#endif
#ifdef TOV_BENCH_GLIB
    add<Glib>("glib-hash-queue", limit, label);
#endif
}

} // namespace

void registerTopic() {
    addAll(1000, "1e3");
    addAll(1000000, "1e6");
}

} // namespace tovbench

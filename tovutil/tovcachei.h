// Internal: the cache behind TovUtCacheImpl, as a template over the allocator of its memory.
//
// It is a table of nodes and a list of values. A node has its key and the position of its value in the list,
// which is ordered by use. The node and the list element of one entry lie in one block, so that a hit
// touches the cache lines of one block, and one allocation serves both.
#pragma once

#include <tovutil/tovcache.h>
#include <tovutil/toverrfl.h>

#include <algorithm>
#include <cassert>
#include <cstddef>
#include <iterator>
#include <memory>
#include <utility>
#include <vector>

template <class Alloc>
class TovUtCacheImplT {
public:
    TovUtCacheImplT(TovUtCacheHelper *helper, std::uint32_t maxSize)
        : m_helper(helper), m_maxSize(checkedLimit(maxSize)), m_count(0), m_table(maxSize), m_spare(nullptr) {
    }
    ~TovUtCacheImplT();
    TovUtCacheImplT(const TovUtCacheImplT &) = delete;
    TovUtCacheImplT &operator=(const TovUtCacheImplT &) = delete;

    void *find(void *key);
    void *insert(void *key, void *argument, bool *created);
    void clear();
    void setMaxSize(std::uint32_t a, std::uint32_t b);

    std::uint32_t size() const { return m_count; }
    std::uint32_t maxSize() const { return m_maxSize; }
    std::size_t bucketCount() const { return m_table.bucketCount(); }

private:
    struct Links {
        Links *next;
        Links *prev;
    };

    struct ListElement : Links {
        void *value;
    };

    // The most recently used value first.
    class ValueList {
    public:
        ValueList() : m_ends{&m_ends, &m_ends} {}
        ValueList(const ValueList &) = delete;
        ValueList &operator=(const ValueList &) = delete;

        void pushFront(ListElement &element) {
            element.next = m_ends.next;
            element.prev = &m_ends;
            m_ends.next->prev = &element;
            m_ends.next = &element;
        }
        void remove(ListElement &element) {
            element.prev->next = element.next;
            element.next->prev = element.prev;
        }
        void moveToFront(ListElement &element) {
            remove(element);
            pushFront(element);
        }
        bool empty() const { return m_ends.next == &m_ends; }
        ListElement &front() { return static_cast<ListElement &>(*m_ends.next); }
        ListElement &back() { return static_cast<ListElement &>(*m_ends.prev); }

    private:
        Links m_ends;
    };

    struct HashNode {
        void *key;
        ListElement *position;
    };

    struct Entry : ListElement {
        Entry *chain;
        HashNode node;
    };

    struct HashHelper {
        TovUtCacheImplT *m_cache;

        std::uint32_t hash(HashNode node) const { return m_cache->m_helper->hash(node.key); }
        bool equal(HashNode stored, HashNode probed) const {
            return m_cache->m_helper->equal(stored.key, probed.key);
        }
    };

    // Chains of entries; it does not own them.
    class HashTable {
    public:
        explicit HashTable(std::size_t size)
            : m_buckets(primeFor(size)), m_reciprocal(~std::uint64_t{0} / m_buckets.size() + 1) {}

        std::size_t bucketCount() const { return m_buckets.size(); }
        Entry *find(std::uint32_t hash, HashNode probed, HashHelper helper);
        void insert(std::uint32_t hash, Entry &entry);
        void remove(std::uint32_t hash, Entry &entry);
        void grow(std::size_t size, HashHelper helper);
        void clear() { std::fill(m_buckets.begin(), m_buckets.end(), nullptr); }

    private:
        static std::size_t primeFor(std::size_t size);

        // The bucket hash % count, without a division, which takes longer than all else in a hit: the low
        // 64 bits of hash * reciprocal are the fraction of count that the remainder is.
        Entry *&bucket(std::uint32_t hash) {
            return m_buckets[static_cast<std::size_t>(highHalf(hash * m_reciprocal, m_buckets.size()))];
        }

        static std::uint64_t highHalf(std::uint64_t fraction, std::uint64_t count) {
#ifdef __SIZEOF_INT128__
            __extension__ using Wide = unsigned __int128;
            return static_cast<std::uint64_t>(Wide{fraction} * count >> 64);
#else
            const std::uint64_t low = (fraction & 0xFFFFFFFFU) * count >> 32; // count is below 2^32
            return ((fraction >> 32) * count + low) >> 32;
#endif
        }

        std::vector<Entry *, typename std::allocator_traits<Alloc>::template rebind_alloc<Entry *>> m_buckets;
        std::uint64_t m_reciprocal;
    };

    using EntryAlloc = typename std::allocator_traits<Alloc>::template rebind_alloc<Entry>;
    using EntryTraits = std::allocator_traits<EntryAlloc>;

    // An entry that goes back to the cache unless it is taken.
    class NewEntry {
    public:
        explicit NewEntry(TovUtCacheImplT &cache) : m_cache(cache), m_entry(cache.allocate()) {}
        ~NewEntry() {
            if (m_entry)
                m_cache.free(*m_entry);
        }
        NewEntry(const NewEntry &) = delete;
        NewEntry &operator=(const NewEntry &) = delete;
        Entry &take() { return *std::exchange(m_entry, nullptr); }

    private:
        TovUtCacheImplT &m_cache;
        Entry *m_entry;
    };

    static std::uint32_t checkedLimit(std::uint32_t maxSize);
    Entry *allocate();
    void free(Entry &entry);
    void release(Entry *entry);
    void evict();

    TovUtCacheHelper *m_helper;
    std::uint32_t m_maxSize;
    std::uint32_t m_count;
    HashTable m_table;
    ValueList m_list;
    Entry *m_spare; // the last entry that was freed; null if it is in use again
    [[no_unique_address]] EntryAlloc m_alloc;
};

/// Gives the template the interface, which has no template parameter.
template <class Alloc>
class TovUtCacheAdapter : public TovUtCacheImpl {
public:
    TovUtCacheAdapter(TovUtCacheHelper *helper, std::uint32_t maxSize)
        : m_impl(std::make_unique<TovUtCacheImplT<Alloc>>(helper, maxSize)) {}

    void *find(void *key) override { return m_impl->find(key); }
    void *insert(void *key, void *argument, bool *created) override {
        return m_impl->insert(key, argument, created);
    }
    void clear() override { m_impl->clear(); }
    void setMaxSize(unsigned a, unsigned b) override { m_impl->setMaxSize(a, b); }
    unsigned size() const override { return m_impl->size(); }
    bool empty() const override { return m_impl->size() == 0; }
    unsigned maxSize() const override { return m_impl->maxSize(); }

private:
    const std::unique_ptr<TovUtCacheImplT<Alloc>> m_impl;
};

// The cache -----------------------------------------------------------------------------------------

template <class Alloc>
TovUtCacheImplT<Alloc>::~TovUtCacheImplT() {
    clear();
    release(m_spare);
}

template <class Alloc>
void *TovUtCacheImplT<Alloc>::find(void *key) {
    const HashNode probed{key, nullptr};
    const HashHelper helper{this};
    Entry *entry = m_table.find(helper.hash(probed), probed, helper);
    if (!entry)
        return nullptr;
    m_list.moveToFront(*entry); // which is its node's position, without a wait for the node
    return entry->value;
}

template <class Alloc>
void *TovUtCacheImplT<Alloc>::insert(void *key, void *argument, bool *created) {
    const HashHelper helper{this};
    m_table.grow(std::size_t{m_count} + 1, helper);
    const HashNode probed{key, nullptr};
    const std::uint32_t hash = helper.hash(probed);
    Entry *present = m_table.find(hash, probed, helper);
    if (created)
        *created = !present;
    if (present) {
        m_list.moveToFront(*present);
        return present->value;
    }
    NewEntry room(*this); // what can fail comes before the value is made
    void *value = m_helper->create(key, argument);
    Entry &entry = room.take();
    entry.value = value;
    m_list.pushFront(entry);
    ++m_count;
    entry.node = {m_helper->getKey(value), &entry};
    m_table.insert(hash, entry);
    if (m_count > m_maxSize)
        evict();
    return value;
}

template <class Alloc>
void TovUtCacheImplT<Alloc>::evict() {
    Entry &entry = static_cast<Entry &>(m_list.back());
    const HashNode oldest{m_helper->getKey(entry.value), &entry};
    m_table.remove(HashHelper{this}.hash(oldest), entry);
    m_helper->destroy(entry.value);
    m_list.remove(entry);
    --m_count;
    free(entry);
    if (!m_list.empty())
        __builtin_prefetch(m_list.back().value); // a full cache drops that one next
}

template <class Alloc>
void TovUtCacheImplT<Alloc>::clear() {
    m_table.clear();
    while (!m_list.empty()) {
        ListElement &element = m_list.front();
        m_helper->destroy(element.value);
        m_list.remove(element);
        free(static_cast<Entry &>(element));
    }
    m_count = 0;
}

template <class Alloc>
void TovUtCacheImplT<Alloc>::setMaxSize(std::uint32_t a, std::uint32_t b) {
    const std::uint32_t maxSize = checkedLimit(a * b + 1);
    while (m_count > maxSize)
        evict();
    m_table.grow(maxSize, HashHelper{this});
    m_maxSize = maxSize;
}

template <class Alloc>
std::uint32_t TovUtCacheImplT<Alloc>::checkedLimit(std::uint32_t maxSize) {
    if (maxSize == 0)
        tovCheck("tovutil/tovcache", __LINE__, "Internal error: maxSize > 0", TOV_CODE(TOVRC_INTERNAL_ERROR));
    return maxSize;
}

// Memory of entries. One that was freed is kept for the next insertion, so that a full cache allocates
// nothing.

template <class Alloc>
typename TovUtCacheImplT<Alloc>::Entry *TovUtCacheImplT<Alloc>::allocate() {
    if (m_spare)
        return std::exchange(m_spare, nullptr);
    Entry *entry = EntryTraits::allocate(m_alloc, 1);
    EntryTraits::construct(m_alloc, entry);
    return entry;
}

template <class Alloc>
void TovUtCacheImplT<Alloc>::free(Entry &entry) {
    release(std::exchange(m_spare, &entry));
}

template <class Alloc>
void TovUtCacheImplT<Alloc>::release(Entry *entry) {
    if (!entry)
        return;
    EntryTraits::destroy(m_alloc, entry);
    EntryTraits::deallocate(m_alloc, entry, 1);
}

// The table -----------------------------------------------------------------------------------------

template <class Alloc>
typename TovUtCacheImplT<Alloc>::Entry *
TovUtCacheImplT<Alloc>::HashTable::find(std::uint32_t hash, HashNode probed, HashHelper helper) {
    Entry *entry = bucket(hash);
    while (entry) {
        __builtin_prefetch(entry->next, 1); // most likely it is the one, and moves to the front
        __builtin_prefetch(entry->prev, 1);
        if (helper.equal(entry->node, probed))
            break;
        entry = entry->chain;
    }
    return entry;
}

// At the end of its chain, so that the entries that are dropped first are found first.
template <class Alloc>
void TovUtCacheImplT<Alloc>::HashTable::insert(std::uint32_t hash, Entry &entry) {
    Entry **link = &bucket(hash);
    while (*link)
        link = &(*link)->chain;
    *link = &entry;
    entry.chain = nullptr;
}

template <class Alloc>
void TovUtCacheImplT<Alloc>::HashTable::remove(std::uint32_t hash, Entry &entry) {
    Entry **link = &bucket(hash);
    while (*link != &entry) {
        assert(*link); // else the helper's getKey() or hash() has changed its mind
        link = &(*link)->chain;
    }
    *link = entry.chain;
}

template <class Alloc>
void TovUtCacheImplT<Alloc>::HashTable::grow(std::size_t size, HashHelper helper) {
    if (size <= m_buckets.size())
        return;
    HashTable grown(size);
    for (Entry *chain : m_buckets) {
        while (chain) {
            Entry &entry = *std::exchange(chain, chain->chain);
            grown.insert(helper.hash(entry.node), entry);
        }
    }
    *this = std::move(grown);
}

template <class Alloc>
std::size_t TovUtCacheImplT<Alloc>::HashTable::primeFor(std::size_t size) {
    static constexpr std::uint32_t primes[] = {
        53,        97,        193,       389,       769,        1543,       3079,
        6151,      12289,     24593,     49157,     98317,      196613,     393241,
        786433,    1572869,   3145739,   6291469,   12582917,   25165843,   50331653,
        100663319, 201326611, 402653189, 805306457, 1610612741, 3221225473, 4294967291};
    const auto *prime = std::lower_bound(std::begin(primes), std::end(primes), size);
    return prime == std::end(primes) ? std::end(primes)[-1] : *prime;
}

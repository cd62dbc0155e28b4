#include <support/failalloc.h>
#include <support/random.h>

#include <tovutil/tovcache.h>
#include <tovutil/tovcachei.h>
#include <tovutil/tovutil.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <list>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using Calls = std::vector<std::string>;

// Keys are numbers, in the word itself when a client asks and inside the value when the cache does. It writes
// down its calls, but for equal().
class Helper : public TovUtCacheHelper {
public:
    struct Value {
        unsigned number;
        void *argument;
    };

    static void *word(unsigned number) { return reinterpret_cast<void *>(std::uintptr_t{number} + 1); }

    unsigned hash(void *key) override {
        ++hashCalls;
        note("hash", number(key));
        return number(key) / hashDivisor;
    }
    bool equal(void *stored, void *probed) override {
        EXPECT_TRUE(isValue(stored)) << "the key of an entry is that of its value";
        EXPECT_FALSE(isValue(probed));
        return number(stored) == number(probed);
    }
    void *getKey(void *value) override {
        note("getKey", static_cast<Value *>(value)->number);
        return value;
    }
    void *create(void *key, void *argument) override {
        note("create", number(key));
        if (failCreate)
            throw std::runtime_error("create");
        ++live;
        return new Value{number(key), argument};
    }
    void destroy(void *value) override {
        note("destroy", static_cast<Value *>(value)->number);
        --live;
        delete static_cast<Value *>(value);
    }

    bool record = false;
    bool failCreate = false;
    unsigned hashDivisor = 1;
    int live = 0;
    long hashCalls = 0;
    Calls calls;

private:
    // Small words are keys of the client, all others point to values.
    static bool isValue(void *key) { return reinterpret_cast<std::uintptr_t>(key) > 1U << 20; }
    static unsigned number(void *key) {
        return isValue(key) ? static_cast<Value *>(key)->number
                            : static_cast<unsigned>(reinterpret_cast<std::uintptr_t>(key)) - 1;
    }
    void note(const char *call, unsigned number) {
        if (record)
            calls.push_back(call + std::string(" ") + std::to_string(number));
    }
};

struct Destroy {
    void operator()(TovUtCacheImpl *cache) const { TovUtCacheImplFactory::destroy(0, cache); }
};

struct Cache {
    explicit Cache(unsigned limit) : impl(TovUtCacheImplFactory::create(0, helper.get(), limit)) {}

    bool find(unsigned key) { return impl->find(Helper::word(key)); }
    // Whether the value is new.
    bool insert(unsigned key, void *argument = nullptr) {
        bool created = false;
        const auto *value = static_cast<Helper::Value *>(impl->insert(Helper::word(key), argument, &created));
        EXPECT_EQ(key, value->number);
        return created;
    }

    std::unique_ptr<Helper> helper = std::make_unique<Helper>();
    std::unique_ptr<TovUtCacheImpl, Destroy> impl;
};

TEST(TovUtCache, GivesTheValueThatIsThere) {
    Cache cache(2);
    int argument = 0;
    bool created = false;
    void *value = cache.impl->insert(Helper::word(1), &argument, &created);
    EXPECT_TRUE(created);
    EXPECT_EQ(&argument, static_cast<Helper::Value *>(value)->argument);
    EXPECT_EQ(value, cache.impl->insert(Helper::word(1), nullptr, &created));
    EXPECT_FALSE(created);
    EXPECT_EQ(&argument, static_cast<Helper::Value *>(value)->argument) << "the second one is not used";
    EXPECT_EQ(value, cache.impl->find(Helper::word(1)));
    EXPECT_EQ(nullptr, cache.impl->find(Helper::word(2)));
    EXPECT_EQ(value, cache.impl->insert(Helper::word(1), nullptr, nullptr));
    EXPECT_EQ(1U, cache.impl->size());
}

TEST(TovUtCache, CallsItsHelperInOrder) {
    Cache cache(2);
    Helper &helper = *cache.helper;
    helper.record = true;
    const auto calls = [&](auto action) {
        helper.calls.clear();
        action();
        return helper.calls;
    };
    EXPECT_EQ((Calls{"hash 1", "create 1", "getKey 1"}), calls([&] { cache.insert(1); }));
    EXPECT_EQ((Calls{"hash 2", "create 2", "getKey 2"}), calls([&] { cache.insert(2); }));
    EXPECT_EQ((Calls{"hash 1"}), calls([&] { cache.insert(1); }));
    EXPECT_EQ((Calls{"hash 1"}), calls([&] { cache.find(1); }));
    EXPECT_EQ((Calls{"hash 3"}), calls([&] { cache.find(3); }));
    EXPECT_EQ((Calls{"hash 3", "create 3", "getKey 3", "getKey 2", "hash 2", "destroy 2"}),
              calls([&] { cache.insert(3); }));
    EXPECT_EQ((Calls{"getKey 1", "hash 1", "destroy 1"}), calls([&] { cache.impl->setMaxSize(0, 0); }));
    cache.impl->setMaxSize(2, 2);
    cache.insert(4);
    cache.insert(5);
    EXPECT_EQ((Calls{"destroy 5", "destroy 4", "destroy 3"}), calls([&] { cache.impl->clear(); }))
        << "from the one used last";
}

TEST(TovUtCache, DoesNotNeedTheCallersKeyLater) {
    struct TextHelper : TovUtCacheHelper {
        static const std::string &text(void *key) { return *static_cast<std::string *>(key); }
        unsigned hash(void *key) override {
            return static_cast<unsigned>(std::hash<std::string>()(text(key)));
        }
        bool equal(void *stored, void *probed) override { return text(stored) == text(probed); }
        void *getKey(void *value) override { return value; }
        void *create(void *key, void *) override { return new std::string(text(key)); }
        void destroy(void *value) override { delete static_cast<std::string *>(value); }
    } helper;
    const std::unique_ptr<TovUtCacheImpl, Destroy> cache(TovUtCacheImplFactory::create(0, &helper, 60));
    for (int i = 0; i < 1000; ++i) {
        auto key = std::make_unique<std::string>("a key on the heap, number " + std::to_string(i));
        cache->insert(key.get(), nullptr, nullptr);
    }
    std::string key = "a key on the heap, number 940";
    EXPECT_NE(nullptr, cache->find(&key));
    key = "a key on the heap, number 939";
    EXPECT_EQ(nullptr, cache->find(&key));
}

TEST(TovUtCache, ComputesItsLimitIn32Bits) {
    const struct {
        unsigned a, b;
        unsigned want; // 0: refused
    } rows[] = {
        {0, 0, 1},
        {10, 1, 11},
        {0, 99, 1},
        {0x10000, 0x10000, 1},
        {0x10001, 0x10001, 0x20002},
        {0xFFFFFFFF, 1, 0},
        {3, 0x55555555, 0},
    };
    for (const auto &row : rows) {
        Cache cache(7);
        for (unsigned key = 0; key < 7; ++key)
            cache.insert(key);
        try {
            cache.impl->setMaxSize(row.a, row.b);
            EXPECT_EQ(row.want, cache.impl->maxSize());
            EXPECT_EQ(std::min(7U, row.want), cache.impl->size());
            EXPECT_TRUE(cache.find(6));
        } catch (const TovErrorFull &error) {
            EXPECT_EQ(0U, row.want);
            EXPECT_EQ("Internal error: maxSize > 0", error.getErrString());
            EXPECT_EQ(7U, cache.impl->maxSize());
            EXPECT_EQ(7U, cache.impl->size());
        }
    }
    Helper helper;
    EXPECT_THROW(TovUtCacheImplFactory::create(0, &helper, 0), TovErrorFull);
}

TEST(TovUtCache, EndsItsValuesAndItsMemory) {
    Helper helper;
    TovUtCacheImplFactory::destroy(0, nullptr);
    const long before = tovtest::liveAllocations();
    TovUtCacheImpl *cache = TovUtCacheImplFactory::create(3, &helper, 10);
    for (unsigned key = 0; key < 25; ++key)
        cache->insert(Helper::word(key), nullptr, nullptr);
    TovUtCacheImplFactory::destroy(4, cache);
    EXPECT_EQ(0, helper.live);
    EXPECT_EQ(before, tovtest::liveAllocations());
}

TEST(TovUtCache, AllocatesNothingWhenItIsFull) {
    Cache cache(10);
    for (unsigned key = 0; key < 11; ++key)
        cache.insert(key);
    const long before = tovtest::allocationCount();
    for (unsigned key = 11; key < 100; ++key)
        cache.insert(key);
    EXPECT_EQ(before + 89, tovtest::allocationCount()) << "one for each value, none for entries";
}

TEST(TovUtCache, IsAsBeforeWhenAValueCannotBeMade) {
    Cache cache(2);
    cache.insert(1);
    cache.insert(2);
    cache.helper->failCreate = true;
    bool created = false;
    EXPECT_THROW(cache.impl->insert(Helper::word(3), nullptr, &created), std::runtime_error);
    EXPECT_EQ(2U, cache.impl->size());
    EXPECT_FALSE(cache.find(3));
    cache.helper->failCreate = false;
    EXPECT_TRUE(cache.insert(3));
    EXPECT_FALSE(cache.find(1)) << "the order is as before, too";
    EXPECT_TRUE(cache.find(2));
}

using CacheImpl = TovUtCacheImplT<std::allocator<void *>>;

TEST(TovUtCacheBuckets, AreAPrimeThatHoldsTheLimit) {
    const struct {
        unsigned limit;
        std::size_t want;
    } rows[] = {
        {1, 53},          {53, 53},         {54, 97},          {97, 97},           {100, 193},
        {194, 389},       {390, 769},       {770, 1543},       {1544, 3079},       {3080, 6151},
        {6152, 12289},    {12290, 24593},   {24594, 49157},    {49158, 98317},     {98318, 196613},
        {196614, 393241}, {393242, 786433}, {786434, 1572869}, {1572870, 3145739}, {3145740, 6291469},
    };
    Helper helper;
    for (const auto &row : rows) {
        EXPECT_EQ(row.want, CacheImpl(&helper, row.limit).bucketCount()) << row.limit;
        CacheImpl cache(&helper, 1);
        cache.setMaxSize(row.limit - 1, 1);
        EXPECT_EQ(row.want, cache.bucketCount()) << row.limit;
        cache.setMaxSize(0, 0);
        EXPECT_EQ(row.want, cache.bucketCount()) << "the count never falls";
    }
}

TEST(TovUtCacheBuckets, GrowBeforeTheEntryThatIsOneTooMany) {
    Helper helper;
    CacheImpl cache(&helper, 53);
    for (unsigned key = 0; key < 53; ++key)
        cache.insert(Helper::word(key), nullptr, nullptr);
    EXPECT_EQ(53U, cache.bucketCount());
    const long before = helper.hashCalls;
    cache.insert(Helper::word(0), nullptr, nullptr);
    EXPECT_EQ(97U, cache.bucketCount()) << "also when the key turns out to be there";
    EXPECT_EQ(before + 54, helper.hashCalls) << "each entry once, and the key";
    for (unsigned key = 0; key < 53; ++key)
        EXPECT_NE(nullptr, cache.find(Helper::word(key)));
}

TEST(TovUtCacheBuckets, HoldKeysThatHashAlike) {
    for (const unsigned divisor : {1U, 7U, 1000000U}) {
        Cache cache(50);
        cache.helper->hashDivisor = divisor;
        for (unsigned key = 0; key < 200; ++key)
            cache.insert(key);
        for (unsigned key = 0; key < 200; ++key)
            EXPECT_EQ(key >= 150, cache.find(key)) << key;
    }
}

// What a cache of numbers holds, the one used last in front.
struct SlowCache {
    bool find(unsigned key) {
        const auto at = std::find(keys.begin(), keys.end(), key);
        const bool found = at != keys.end();
        if (found)
            keys.splice(keys.begin(), keys, at);
        return found;
    }
    bool insert(unsigned key) {
        if (find(key))
            return false;
        keys.push_front(key);
        limitTo(limit);
        return true;
    }
    void limitTo(std::size_t newLimit) {
        limit = newLimit;
        keys.resize(std::min(keys.size(), limit));
    }

    std::size_t limit;
    std::list<unsigned> keys;
};

TEST(TovUtCache, AgreesWithASlowOne) {
    auto random = tovtest::generator();
    Cache cache(20);
    SlowCache slow{20, {}};
    for (int step = 0; step < 50000; ++step) {
        const auto key = static_cast<unsigned>(random() % 150);
        const auto action = random() % 1000;
        if (action == 0) {
            cache.impl->clear();
            slow.keys.clear();
        } else if (action < 5) {
            const unsigned limit = key / (key % 2 == 0 ? 1 : 50); // often of 1 to 3 entries
            cache.impl->setMaxSize(limit, 1);
            slow.limitTo(limit + 1);
        } else if (action < 500) {
            ASSERT_EQ(slow.insert(key), cache.insert(key)) << step;
        } else {
            ASSERT_EQ(slow.find(key), cache.find(key)) << step;
        }
        ASSERT_EQ(slow.limit, cache.impl->maxSize()) << step;
        ASSERT_EQ(slow.keys.size(), cache.impl->size()) << step;
        ASSERT_EQ(slow.keys.empty(), cache.impl->empty()) << step;
        ASSERT_EQ(slow.keys.size(), static_cast<std::size_t>(cache.helper->live)) << step;
    }
}

} // namespace

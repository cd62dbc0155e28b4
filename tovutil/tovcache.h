/// A bounded cache that drops the entry that was not used for the longest time.
///
/// The cache knows nothing of what it holds. Keys and values are words of the client's, and the client's
/// TovUtCacheHelper hashes and compares keys and makes and ends values. A cache is made and ended by
/// TovUtCacheImplFactory and used through TovUtCacheImpl.
///
/// Ownership  The cache owns its values: each one that the helper has created it gives to the helper to be
///            destroyed, when the value is dropped, at clear(), or with the cache. What find() and insert()
///            give may so be destroyed by any later insert(), setMaxSize(), clear() or destroy(). The helper
///            is the client's and outlives the cache.
/// Units      Limits and sizes count entries.
/// Errors     std::bad_alloc, and what the helper's create() raises; the cache is then as before, with the
///            same values in the same order.
/// Threads    One thread at a time: find() changes the order of use, just as insert() does.
/// Cost       find() and insert() take constant time: one hash call and about one equal call, and one hash
///            call more when an entry is dropped. An entry takes one allocation of six words beside its
///            bucket; that of a dropped entry is used again. A limit of n takes at least n buckets of one
///            word from the start.
#pragma once

#include <tovutil/tovexport.h>

#include <cstdint>

/// What the client implements. None of its operations may use the cache that calls it, and only create() may
/// raise an exception.
class TOV_EXPORT TovUtCacheHelper {
public:
    virtual ~TovUtCacheHelper(); // never called by a cache

    /// Equal keys must hash equally. Asked again when the table grows.
    virtual unsigned hash(void *key) = 0;
    virtual bool equal(void *storedKey, void *probedKey) = 0;

    /// The key of a value, which must stay valid as long as the value lives.
    virtual void *getKey(void *value) = 0;

    /// Makes the value for a key.
    virtual void *create(void *key, void *argument) = 0;
    virtual void destroy(void *value) = 0;
};

class TOV_EXPORT TovUtCacheImpl {
public:
    virtual ~TovUtCacheImpl();

    /// The value for a key, which now is the one used last; null if there is none.
    virtual void *find(void *key) = 0;

    /// The same, but a missing value is created, and then the entry used longest ago is dropped if there are
    /// more than maxSize(). `*created` tells whether the value is new; `created` may be null. `argument` goes
    /// to the helper's create(). The key is not needed after the call.
    virtual void *insert(void *key, void *argument, bool *created) = 0;

    /// Drops all entries, the one used last first. The limit stays.
    virtual void clear() = 0;

    /// Makes `a` * `b` + 1 the limit, and drops what is beyond it.
    ///
    /// Errors     TOVRC_INTERNAL_ERROR, "Internal error: maxSize > 0", when that is 0 in 32 bits.
    virtual void setMaxSize(unsigned a, unsigned b) = 0;

    virtual unsigned size() const = 0;
    virtual bool empty() const = 0;
    virtual unsigned maxSize() const = 0;
};

class TOV_EXPORT TovUtCacheImplFactory {
public:
    TovUtCacheImplFactory() = delete;

    /// Makes a cache of at most `maxSize` entries. The number has no effect.
    ///
    /// Errors     TOVRC_INTERNAL_ERROR, "Internal error: maxSize > 0", for a limit of 0.
    static TovUtCacheImpl *create(int, TovUtCacheHelper *helper, unsigned maxSize);

    /// Ends a cache and its values; null does nothing. The number has no effect.
    static void destroy(int, TovUtCacheImpl *cache);
};

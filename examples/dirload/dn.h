/// Distinguished names in one normal form, of which the latest are kept.
#pragma once

#include <tovutil/tovcache.h>
#include <tovutil/tovstring.h>

#include <cstdint>
#include <memory>
#include <string_view>

/// The name in UTF-16 with small letters, no blanks around its parts and no escapes but those it needs.
///
/// Errors     TovErrorFull for what is no name: the library's own, or one of return code BAD_DN.
TovUString normalDn(std::string_view dn);

/// One thread at a time.
class DnCache : private TovUtCacheHelper {
public:
    explicit DnCache(unsigned maxSize);
    DnCache(const DnCache &) = delete;
    DnCache &operator=(const DnCache &) = delete;

    /// As normalDn().
    TovUString normal(std::string_view dn);

    /// The same, but looks up the parent of the name: that one many entries have in common.
    TovUString normalOfEntry(std::string_view dn);

    std::uint64_t hits() const { return m_hits; }
    std::uint64_t misses() const { return m_misses; }

private:
    unsigned hash(void *key) override;
    bool equal(void *storedKey, void *probedKey) override;
    void *getKey(void *value) override;
    void *create(void *key, void *argument) override;
    void destroy(void *value) override;

    struct Ender {
        void operator()(TovUtCacheImpl *cache) const { TovUtCacheImplFactory::destroy(0, cache); }
    };
    std::unique_ptr<TovUtCacheImpl, Ender> m_cache;
    std::uint64_t m_hits = 0;
    std::uint64_t m_misses = 0;
};

// The cache's factory, and its only instance: over the standard allocator.
#include <tovutil/tovcache.h>

#include <tovutil/tovcachei.h>

#include <memory>

TovUtCacheImpl::~TovUtCacheImpl() = default;

TovUtCacheHelper::~TovUtCacheHelper() = default;

TovUtCacheImpl *TovUtCacheImplFactory::create(int, TovUtCacheHelper *helper, unsigned maxSize) {
    return new TovUtCacheAdapter<std::allocator<void *>>(helper, maxSize);
}

void TovUtCacheImplFactory::destroy(int, TovUtCacheImpl *cache) { delete cache; }

// Allocation over malloc. Running out of memory never shows as a null pointer.
#include <tovutil/tovalloc.h>

#include <tovutil/tovatomic.h>
#include <tovutil/toverrfl.h>
#include <tovutil/tovtrcfn.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

TOV_TRACE_FILE("tovutil/tovalloc");

void (*__oom_handler)() = nullptr;

void *tovMalloc(std::size_t size) {
    void *block = std::malloc(size);
    if (!block)
        TovErrorFull::throwBadAlloc();
    return block;
}

void *tovRealloc(void *block, std::size_t size) {
    void *moved = std::realloc(block, size);
    if (!moved && size != 0)
        TovErrorFull::throwBadAlloc();
    return moved;
}

void tovFree(void *block) { std::free(block); }

void tovThrowBadAlloc() { TovErrorFull::throwBadAlloc(); }

namespace {

// The handler may free memory, replace itself or remove itself, so it is read anew each time.
void *allocateWithHandler(std::size_t size) {
    for (;;) {
        const auto handler = tovdetail::loadAcquire(__oom_handler);
        if (!handler)
            tovThrowBadAlloc();
        handler();
        if (void *block = std::malloc(size))
            return block;
    }
}

} // namespace

void *TovAllocator::allocate(std::size_t size) {
    void *block = std::malloc(size);
    return block ? block : allocateWithHandler(size);
}

void TovAllocator::deallocate(void *block, std::size_t) { std::free(block); }

void TovAllocator::deallocate(void *block) { std::free(block); }

void *TovAllocator::reallocate(void *oldp, std::size_t oldSize, std::size_t newSize) {
    if (oldSize != 0 && !oldp)
        tovCheck("tovutil//tovutil", 120, "Internal error: oldp", TOV_CODE(TOVRC_INTERNAL_ERROR));
    void *block = allocate(newSize);
    if (oldSize != 0)
        std::memcpy(block, oldp, std::min(oldSize, newSize));
    deallocate(oldp, oldSize);
    return block;
}

void *TovAllocator::reallocate(void *oldp, std::size_t newSize) {
    void *block = allocate(newSize);
    deallocate(oldp);
    return block;
}

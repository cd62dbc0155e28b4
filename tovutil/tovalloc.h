/// Allocation that raises instead of failing.
///
/// All blocks come from one malloc, so a block may be freed through either half of this header.
///
/// Units      Sizes are bytes.
/// Errors     Exhausted memory is raised as the out-of-memory TovError (return code 21011), which takes
///            no memory itself. tovMalloc and tovRealloc raise at once; TovAllocator, and with it every
///            TovString and TovUString, first gives `__oom_handler` the chance to free memory.
/// Threads    As safe as malloc.
#pragma once

#include <tovutil/tovexport.h>

#include <cstddef>

extern "C" {

/// Gives a block of `size` bytes, never null: a null result of malloc counts as failure, also for 0.
TOV_EXPORT void *tovMalloc(std::size_t size);

/// As realloc: moves `block` (null is allowed) to a block of `size` bytes. Null only for a size of 0; the old
/// block is then gone. When it raises, the old block is still valid.
TOV_EXPORT void *tovRealloc(void *block, std::size_t size);

/// Frees a block of this header or of malloc. Null does nothing.
TOV_EXPORT void tovFree(void *block);

/// Raises the out-of-memory TovError.
[[noreturn]] TOV_EXPORT void tovThrowBadAlloc();

/// Called when TovAllocator finds no memory, again and again until there is some: it frees memory, or
/// sets this pointer to another handler or to null, which ends in the raise. Null at first, and the
/// library never sets it. Set it before other threads allocate.
TOV_EXPORT extern void (*__oom_handler)();
}

/// Allocation with sizes; what the library's strings and stream buffers run on.
class TOV_EXPORT TovAllocator {
public:
    TovAllocator() = delete;

    /// Gives a block of `size` bytes, never null.
    static void *allocate(std::size_t size);

    /// Frees a block; null is allowed, and the size is not used.
    static void deallocate(void *block, std::size_t size);
    static void deallocate(void *block);

    /// Gives a new block with the first `newSize` or `oldSize` bytes of `oldp`, whichever are fewer, and
    /// frees `oldp`. The block always moves. `oldp` may be null when `oldSize` is 0.
    ///
    /// Errors     A null `oldp` with another size: "Internal error: oldp". After any error `oldp` is
    ///            untouched and stays the caller's.
    static void *reallocate(void *oldp, std::size_t oldSize, std::size_t newSize);

    /// The same without any content: gives a new block and frees `oldp`, which may be null.
    static void *reallocate(void *oldp, std::size_t newSize);
};

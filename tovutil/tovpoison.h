/// How arenas and heaps tell a memory checker which bytes of their blocks a caller may touch. Not for
/// callers; it is here because the fast paths of the arena and the heap are inline.
///
/// The address sanitizer is told whenever the including file is compiled with it, and Valgrind in a build
/// with TOV_HEAP_CHECKS; in all other builds these functions are empty. Library and callers must be compiled
/// alike.
#pragma once

#include <cstddef>

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define TOV_POISON_ASAN 1
#endif
#elif defined(__SANITIZE_ADDRESS__)
#define TOV_POISON_ASAN 1
#endif

#ifdef TOV_POISON_ASAN
#include <sanitizer/asan_interface.h>
#endif

#if defined(TOV_HEAP_CHECKS) && __has_include(<valgrind/memcheck.h>)
#define TOV_POISON_VALGRIND 1
#include <valgrind/memcheck.h>
#endif

namespace tovdetail {

/// Whether small objects carry what finds a wrong pointer at deallocate().
#ifdef TOV_HEAP_CHECKS
inline constexpr bool c_heapChecks = true;
#else
inline constexpr bool c_heapChecks = false;
#endif

/// Nobody may touch these bytes.
inline void poison([[maybe_unused]] const void *address, [[maybe_unused]] std::size_t size) noexcept {
#ifdef TOV_POISON_ASAN
    __asan_poison_memory_region(address, size);
#endif
#ifdef TOV_POISON_VALGRIND
    VALGRIND_MAKE_MEM_NOACCESS(address, size);
#endif
}

/// These bytes may be touched; their content is undefined.
inline void unpoison([[maybe_unused]] const void *address, [[maybe_unused]] std::size_t size) noexcept {
#ifdef TOV_POISON_ASAN
    __asan_unpoison_memory_region(address, size);
#endif
#ifdef TOV_POISON_VALGRIND
    VALGRIND_MAKE_MEM_UNDEFINED(address, size);
#endif
}

/// These bytes may be touched, and hold what was stored in them before they were poisoned.
inline void reveal([[maybe_unused]] const void *address, [[maybe_unused]] std::size_t size) noexcept {
#ifdef TOV_POISON_ASAN
    __asan_unpoison_memory_region(address, size);
#endif
#ifdef TOV_POISON_VALGRIND
    VALGRIND_MAKE_MEM_DEFINED(address, size);
#endif
}

} // namespace tovdetail

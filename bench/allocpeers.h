// The small-object allocators that stand beside each other, all with the same two operations. One instance is
// one heap, where the allocator knows such a thing.
#pragma once

#include <tovutil/tovfheap.h>

#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <memory>
#include <memory_resource>
#include <vector>

#include <dlfcn.h>

#ifdef TOV_BENCH_BOOST
#include <boost/pool/pool.hpp>
#include <boost/pool/pool_alloc.hpp>
#endif
#ifdef TOV_BENCH_GLIB
#include <glib.h>
#endif

namespace tovbench {

struct Tovutil {
    static bool usable() { return true; }
    void *get(std::size_t size) { return heap.allocate(size); }
    void put(void *object, std::size_t) { TovFastHeap::deallocate(object); }

    TovUtRef<TovFastHeap> ref = TovFastHeap::create(0);
    TovFastHeap &heap = *ref;
};

struct Glibc {
    static bool usable() { return true; }
    void *get(std::size_t size) { return std::malloc(size); }
    void put(void *object, std::size_t) { std::free(object); }
};

// Opened by hand, so that the process keeps the malloc of glibc.
template <class Function>
Function libraryFunction(const char *file, const char *name) {
    void *library = ::dlopen(file, RTLD_NOW | RTLD_LOCAL);
    return reinterpret_cast<Function>(library ? ::dlsym(library, name) : nullptr);
}

using MallocFunction = void *(*)(std::size_t);
using FreeFunction = void (*)(void *);

struct Mimalloc {
    static inline const auto malloc = libraryFunction<MallocFunction>("libmimalloc.so.2", "mi_malloc");
    static inline const auto free = libraryFunction<FreeFunction>("libmimalloc.so.2", "mi_free");
    static bool usable() { return malloc && free; }
    void *get(std::size_t size) { return malloc(size); }
    void put(void *object, std::size_t) { free(object); }
};

struct Jemalloc {
    static inline const auto malloc = libraryFunction<MallocFunction>("libjemalloc.so.2", "malloc");
    static inline const auto free = libraryFunction<FreeFunction>("libjemalloc.so.2", "free");
    static bool usable() { return malloc && free; }
    void *get(std::size_t size) { return malloc(size); }
    void put(void *object, std::size_t) { free(object); }
};

struct PmrPool {
    static bool usable() { return true; }
    void *get(std::size_t size) { return pool.allocate(size, 8); }
    void put(void *object, std::size_t size) { pool.deallocate(object, size, 8); }

    std::pmr::unsynchronized_pool_resource pool;
};

#ifdef TOV_BENCH_GLIB
struct GSlice {
    static bool usable() { return true; }
    void *get(std::size_t size) { return g_slice_alloc(size); }
    void put(void *object, std::size_t size) { g_slice_free1(size, object); }
};
#endif

#ifdef TOV_BENCH_BOOST
template <std::size_t objectSize>
struct BoostPool {
    static bool usable() { return true; }
    void *get(std::size_t) { return pool.malloc(); }
    void put(void *object, std::size_t) { pool.free(object); }

    boost::pool<> pool{objectSize};
};

template <std::size_t objectSize>
struct BoostFast {
    struct Object {
        char bytes[objectSize];
    };
    using Allocator = boost::fast_pool_allocator<Object, boost::default_user_allocator_new_delete,
                                                 boost::details::pool::null_mutex>;
    static bool usable() { return true; }
    void *get(std::size_t) { return Allocator::allocate(); }
    void put(void *object, std::size_t) { Allocator::deallocate(static_cast<Object *>(object)); }
};
#endif

// Where the limit and the models take their objects from.
class Bump {
public:
    void *take(std::size_t size) {
        if (size > m_left) {
            m_left = 64 << 10;
            m_blocks.push_back(std::make_unique<char[]>(m_left));
            m_current = m_blocks.back().get();
        }
        m_left -= size;
        return std::exchange(m_current, m_current + size);
    }

private:
    std::vector<std::unique_ptr<char[]>> m_blocks;
    char *m_current = nullptr;
    std::size_t m_left = 0;
};

struct FreeObject {
    FreeObject *next;
};

/// The least that reuse can cost: one list, without a header.
struct OneList {
    static bool usable() { return true; }
    void *get(std::size_t size) {
        if (FreeObject *object = head) {
            head = object->next;
            return object;
        }
        return bump.take((size + 7) & ~std::size_t{7});
    }
    void put(void *object, std::size_t) { head = ::new (object) FreeObject{head}; }

    FreeObject *head = nullptr;
    Bump bump;
};

/// The same with one list per size.
struct ListPerSize {
    static bool usable() { return true; }
    void *get(std::size_t size) {
        FreeObject *&head = heads[(size + 7) / 8];
        if (FreeObject *object = head) {
            head = object->next;
            return object;
        }
        return bump.take((size + 7) & ~std::size_t{7});
    }
    void put(void *object, std::size_t size) {
        FreeObject *&head = heads[(size + 7) / 8];
        head = ::new (object) FreeObject{head};
    }

    FreeObject *heads[65]{};
    Bump bump;
};

/// What the contract of our heap costs at least: a class by table, a word in front of each object that leads
/// back to its list, and a count that each object holds, all of it in memory because the heap may be shared.
struct PrefixList {
    struct Class {
        std::uint32_t size;
        FreeObject *free;
        PrefixList *owner;
    };

    PrefixList() {
        static constexpr std::uint32_t sizes[classCount] = {8,   16,  24,  32,  48,  64,  80,  104,
                                                            128, 152, 176, 200, 224, 256, 384, 520};
        std::uint32_t current = 0;
        for (std::uint32_t size = 0; size < std::size(index); ++size) {
            if (size > sizes[current])
                ++current;
            index[size] = current;
        }
        for (std::size_t i = 0; i < classCount; ++i) {
            classes[i] = {sizes[i], nullptr, this};
            table[i] = &classes[i];
        }
    }
    PrefixList(const PrefixList &) = delete;

    static bool usable() { return true; }
    void *get(std::size_t size) {
        Class &list = *table[index[size + 8]];
        moveCount(1);
        if (FreeObject *object = list.free) {
            list.free = object->next;
            return object;
        }
        auto **word = static_cast<Class **>(bump.take(list.size));
        *word = &list;
        return word + 1;
    }
    void put(void *object, std::size_t) {
        Class &list = *static_cast<Class **>(object)[-1];
        list.free = ::new (object) FreeObject{list.free};
        if (list.owner->moveCount(-1) == 0)
            std::abort();
    }

    // By a load and a store, because an addition in memory waits longer for the one before it.
    int moveCount(int by) {
        const std::atomic_ref<int> shared(count);
        const int moved = shared.load(std::memory_order_relaxed) + by;
        shared.store(moved, std::memory_order_relaxed);
        return moved;
    }

    static constexpr std::size_t classCount = 16;
    std::uint32_t index[521];
    Class classes[classCount];
    Class *table[classCount];
    int count = 1;
    Bump bump;
};

/// The same with objects of more than 504 bytes from malloc, as the contract has it.
struct PrefixListOrMalloc : PrefixList {
    void *get(std::size_t size) {
        if (size <= 504)
            return PrefixList::get(size);
        auto **word = static_cast<Class **>(std::malloc(size + 8));
        *word = nullptr;
        return word + 1;
    }
    void put(void *object, std::size_t size) {
        Class **word = static_cast<Class **>(object) - 1;
        if (*word)
            PrefixList::put(object, size);
        else
            std::free(word);
    }
};

} // namespace tovbench

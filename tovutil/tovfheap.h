/// A small-object heap: free lists by size class over one arena, which goes at once when the last reference
/// and the last small object are gone.
///
/// Ownership  create() gives a counted reference, and every live small object counts as a reference, too: the
///            last deallocate() ends a heap that nobody refers to any more. Objects above c_maxSmall bytes
///            come from tovMalloc(), are not counted, and may outlive the heap.
/// Units      Sizes are bytes. Objects lie on multiples of a pointer's size, not more: of 8 bytes on a 64-bit
///            machine; on a 32-bit one of 4, but for large objects whose size is a multiple of 8.
/// Errors     std::bad_alloc when a block can't be had, and for a size that no block can have; for a large
///            object the out-of-memory TovError. The heap, its objects and its count stay as they were. A
///            pointer that is not a live object of this header is outside the contract; in a build with
///            TOV_HEAP_CHECKS it raises TOVRC_INTERNAL_ERROR.
/// Threads    A heap belongs with all its small objects, also for freeing them, to one thread at a time, or
///            the caller locks. globalAllocate() and what it gives may be used from any thread.
/// Cost       A small object costs a table look-up and a list operation, inline, and one word in front of it.
///            A heap without small objects has no partitions.
///
/// When the environment variable that cDebugLeakEnv names has the value "off" at the first use of any heap,
/// all heaps of the process are one and the same that never ends, and each object is a plain operator new:
/// for tools that follow every allocation.
#pragma once

#include <tovutil/tovexport.h>
#include <tovutil/tovmemst.h>
#include <tovutil/tovpool.h>
#include <tovutil/tovutref.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>

class TovFastHeap;

/// Name of the environment variable that turns the fast heaps off; "TOV_FAST_HEAP" unless a caller sets it.
TOV_EXPORT extern const char *cDebugLeakEnv;

/// One size class of one heap.
class TOV_EXPORT TovFastHeapPartition {
public:
    TovFastHeapPartition(TovFastHeap &heap, std::uint32_t size)
        : m_size(size), m_free(nullptr), m_heap(heap) {}

    TovFastHeapPartition(const TovFastHeapPartition &) = delete;
    TovFastHeapPartition &operator=(const TovFastHeapPartition &) = delete;

    /// Whether no freed object waits here.
    bool isEmpty() const { return !m_free; }

    /// Gives the object that was freed last, or else a new one from the stack.
    inline void *allocate(TovMemStack &stack);

    /// Takes an object of this partition back. The partition may be gone afterwards.
    inline void deallocate(void *object);

    /// The word in front of an object: its partition, or null for a large object.
    static TovFastHeapPartition **getHeader(void *object) {
        const auto back = ((reinterpret_cast<std::uintptr_t>(object) - 1) & 7) + 1;
        return std::launder(reinterpret_cast<TovFastHeapPartition **>(static_cast<char *>(object) - back));
    }

    /// The bytes that an object of `size` bytes takes with its prefix word; with wide pointers never fewer
    /// than an object on a free list needs. For a size that has no such number, the largest there is.
    static constexpr std::size_t getAllocSize(std::size_t size) {
        const std::size_t allocSize = size + prefixRoom(size);
        return allocSize < size ? SIZE_MAX : std::max<std::size_t>(allocSize, c_minAllocSize);
    }

    /// The object of `size` bytes in a block of getAllocSize(size) bytes.
    static void *getObj(void *block, std::size_t size) {
        return static_cast<char *>(block) + prefixRoom(size);
    }

private:
    friend class TovFastHeap;

    struct FreeObject {
        FreeObject *next;
    };

    // Two words, unless the smallest class has room for them whatever the size.
    enum : std::size_t { c_minAllocSize = 2 * sizeof(void *) > 8 ? 2 * sizeof(void *) : 0 };

    static constexpr std::size_t prefixRoom(std::size_t size) { return size % 8 == 0 ? 8 : sizeof(void *); }

    // With wide pointers the alignment makes of the header's address the object's less 8.
    static TovFastHeapPartition *readPrefix(void *object) {
        TovFastHeapPartition **header = getHeader(std::assume_aligned<alignof(FreeObject)>(object));
        tovdetail::reveal(header, sizeof(void *));
        TovFastHeapPartition *partition = *header;
        tovdetail::poison(header, sizeof(void *));
        return partition;
    }
    static void writePrefix(void *object, TovFastHeapPartition *partition) {
        TovFastHeapPartition **header = getHeader(object);
        tovdetail::unpoison(header, sizeof(void *));
        *header = partition;
        tovdetail::poison(header, sizeof(void *));
    }

    inline void *takeFree(); // null when none waits
    void *allocateFresh(TovMemStack &stack);
    void poisonBehind(void *object, std::size_t size) {
        tovdetail::poison(static_cast<char *>(object) + size, m_size - sizeof(void *) - size);
    }

    // With TOV_HEAP_CHECKS: the pointers that deallocate() may be given are known, see the source.
    void markLive(void *object);
    void markFree(void *object);
    static void checkLive(void *object);

    std::uint32_t m_size; // of an object with its prefix word
    FreeObject *m_free;   // freed last, first; a free object keeps its prefix word
    TovFastHeap &m_heap;
};

/// The size classes of one heap.
struct TOV_EXPORT TovFastHeapHeader {
    enum : std::size_t { c_classCount = 16, c_maxAllocSize = 512 };

    /// The smallest class that holds an allocation size.
    static const std::array<std::uint32_t, c_maxAllocSize + 1> sm_index;

    TovFastHeapPartition *m_partitions[c_classCount];

    /// Makes all partitions on the stack.
    TovFastHeapHeader(TovFastHeap &heap, TovMemStack &stack);

    TovFastHeapHeader(const TovFastHeapHeader &) = delete;
    TovFastHeapHeader &operator=(const TovFastHeapHeader &) = delete;

    /// Gives an object from the class of `allocSize`, which is at most c_maxAllocSize.
    void *allocate(std::size_t allocSize, TovMemStack &stack) { return partition(allocSize).allocate(stack); }

private:
    friend class TovFastHeap;

    TovFastHeapPartition &partition(std::size_t allocSize) { return *m_partitions[sm_index[allocSize]]; }
};

class TOV_EXPORT TovFastHeap : public TovUtRefBase {
public:
    enum : std::size_t {
        c_defaultSize = 16000,
        c_maxSmall =
            TovFastHeapHeader::c_maxAllocSize - sizeof(void *), ///< the largest object of the heap itself
    };

    /// Makes a heap whose arena has blocks of `size` bytes; 0 means 16000.
    [[nodiscard]] static TovUtRef<TovFastHeap> create(std::size_t size);

    /// A heap on a stack of TovMemStack::create(), which it destroys when its count returns to 0.
    explicit TovFastHeap(TovMemStack &stack);
    ~TovFastHeap() override;

    /// Gives an object of `size` bytes, never null, that deallocate() takes back.
    [[nodiscard]] void *allocate(std::size_t size) {
        // A heap has no header while the fast heaps are off. Size 0 is told apart here because it alone would
        // need a test to find its class.
        if (size - 1 >= c_maxSmall || !m_header) [[unlikely]]
            return allocateSpecial(size);
        return allocateSmall(size, size + TovFastHeapPartition::prefixRoom(size));
    }

    /// The same without a heap, from tovMalloc().
    [[nodiscard]] static void *globalAllocate(std::size_t size);

    /// Takes back an object of allocate(), of any heap, or of globalAllocate(). Null does nothing.
    static void deallocate(void *object) {
        if (!object)
            return;
        if (!isOn()) [[unlikely]]
            return ::operator delete(object);
        if constexpr (tovdetail::c_heapChecks)
            TovFastHeapPartition::checkLive(object);
        if (auto *partition = TovFastHeapPartition::readPrefix(object)) [[likely]]
            partition->deallocate(object);
        else
            freeLarge(object);
    }

    /// Ends the heap with its stack and all its blocks, unless the fast heaps are off.
    void unreferenced() override;

    TovMemStack &getMemStack() { return *m_memStack; }

    /// An empty reference, always the same, to pass where no heap is wanted.
    static const TovUtRef<TovFastHeap> &getEmptyRef();

private:
    enum Mode : std::int8_t { Unknown = 0, Off = 1, On = 2 };

    static bool isOn() {
        const Mode mode = ms_mode.load(std::memory_order_relaxed);
        return mode == On || (mode == Unknown && readMode() == On);
    }
    static Mode readMode();

    void *allocateSmall(std::size_t size, std::size_t allocSize) {
        TovFastHeapPartition &partition = m_header->partition(allocSize);
        void *object = partition.takeFree();
        if (!object) [[unlikely]]
            object = partition.allocateFresh(*m_memStack);
        addReference();
        partition.poisonBehind(object, size);
        return object;
    }
    void *allocateSpecial(std::size_t size);
    static void freeLarge(void *object);
    static TovFastHeap &offHeap();

    // With TOV_HEAP_CHECKS: what checkLive() looks up.
    static void rememberPartitions(const TovFastHeapHeader &header);
    static void forgetPartitions(const TovFastHeapHeader &header);
    static void rememberLarge(void *object);

    static std::atomic<Mode> ms_mode; // threads that read it first at the same time find the same value

    TovMemStack *m_memStack; // holds the heap itself, its header and its partitions
    TovFastHeapHeader *m_header;
};

inline void *TovFastHeapPartition::allocate(TovMemStack &stack) {
    void *object = takeFree();
    return object ? object : allocateFresh(stack);
}

inline void *TovFastHeapPartition::takeFree() {
    FreeObject *object = m_free;
    if (!object) [[unlikely]]
        return nullptr;
    tovdetail::reveal(object, sizeof *object);
    m_free = object->next;
    tovdetail::unpoison(object, m_size - sizeof(void *));
    if constexpr (tovdetail::c_heapChecks)
        markLive(object);
    return object;
}

inline void TovFastHeapPartition::deallocate(void *object) {
    tovdetail::unpoison(object, sizeof(FreeObject));
    m_free = ::new (object) FreeObject{m_free};
    tovdetail::poison(object, m_size - sizeof(void *));
    if constexpr (tovdetail::c_heapChecks)
        markFree(object);
    m_heap.dropReference();
}

/// The module behind TovFastHeap::getEmptyRef().
class TOV_EXPORT TovUtAlcPool {
public:
    static TovPoolCtrl ms_pool;
    static pthread_once_t ms_lock;
};

extern "C" {
TOV_EXPORT void TovUtAlcPool_init();
TOV_EXPORT void TovUtAlcPool_release();
}

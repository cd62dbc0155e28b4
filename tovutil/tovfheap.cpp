// The heap's slow paths: the mode of the process, the making of heaps, partitions and fresh objects, large
// objects, and the check of pointers in a build that has it.
#include <tovutil/tovfheap.h>

#include <tovutil/tovalloc.h>
#include <tovutil/tovatomic.h>
#include <tovutil/tovmodule.h>

#include <bit>
#include <cstdlib>
#include <cstring>
#include <memory>

#ifdef TOV_HEAP_CHECKS
#include <mutex>
#include <tovutil/toverrfl.h>
#include <unordered_set>
#endif

const char *cDebugLeakEnv = "TOV_FAST_HEAP";

// The mode ------------------------------------------------------------------------------------------

constinit std::atomic<TovFastHeap::Mode> TovFastHeap::ms_mode{Unknown};

TovFastHeap::Mode TovFastHeap::readMode() {
    const char *name = tovdetail::loadAcquire(cDebugLeakEnv);
    const char *value = name ? std::getenv(name) : nullptr;
    const Mode mode = value && std::strcmp(value, "off") == 0 ? Off : On;
    ms_mode.store(mode, std::memory_order_relaxed);
    return mode;
}

namespace {

// The one heap of a process whose fast heaps are off. It ends with the library, and not as a static of a
// function would: that one goes before static objects of the caller that still refer to the heap.
struct OffHeap {
    TovMemStack stack{0};
    TovFastHeap heap{stack};
};

alignas(OffHeap) constinit std::byte s_offStorage[sizeof(OffHeap)] = {};
constinit OffHeap *s_off = nullptr;
constinit pthread_once_t s_offOnce = PTHREAD_ONCE_INIT;

void buildOffHeap() { s_off = ::new (s_offStorage) OffHeap; }

[[gnu::destructor]] void destroyOffHeap() {
    if (s_off)
        s_off->~OffHeap();
}

} // namespace

TovFastHeap &TovFastHeap::offHeap() {
    pthread_once(&s_offOnce, buildOffHeap);
    return s_off->heap;
}

// Heaps ---------------------------------------------------------------------------------------------

TovUtRef<TovFastHeap> TovFastHeap::create(std::size_t size) {
    if (!isOn())
        return TovUtRef<TovFastHeap>(&offHeap());
    if (size == 0)
        size = c_defaultSize;
    struct Destroy {
        void operator()(TovMemStack *stack) const { stack->destroy(); }
    };
    // Cut so that the sum can't wrap; the stack refuses all that is above its largest size.
    const std::size_t firstSize = std::min<std::size_t>(size, TovMemStack::c_maxSize) + sizeof(TovFastHeap);
    std::unique_ptr<TovMemStack, Destroy> stack(TovMemStack::create(firstSize));
    stack->m_blockSize = static_cast<std::uint32_t>(size);
    void *storage = stack->allocate(sizeof(TovFastHeap), sizeof(TovFastHeap));
    return TovUtRef<TovFastHeap>(::new (storage) TovFastHeap(*stack.release()));
}

TovFastHeap::TovFastHeap(TovMemStack &stack) : m_memStack(&stack), m_header(nullptr) {}

TovFastHeap::~TovFastHeap() {
    if constexpr (tovdetail::c_heapChecks)
        if (m_header)
            forgetPartitions(*m_header);
}

void TovFastHeap::unreferenced() {
    if (!isOn())
        return;
    TovMemStack *stack = m_memStack;
    this->~TovFastHeap();
    stack->destroy();
}

constinit TovPoolCtrl TovUtAlcPool::ms_pool = {};
constinit pthread_once_t TovUtAlcPool::ms_lock = PTHREAD_ONCE_INIT;

void TovUtAlcPool_init() {
    tovdetail::initModule<TovUtRef<TovFastHeap>>(TovUtAlcPool::ms_pool, TovUtAlcPool_release);
}

void TovUtAlcPool_release() { tovdetail::releaseModule<TovUtRef<TovFastHeap>>(TovUtAlcPool::ms_pool); }

const TovUtRef<TovFastHeap> &TovFastHeap::getEmptyRef() {
    return *static_cast<TovUtRef<TovFastHeap> *>(
        TovUtAlcPool::ms_pool.get(TovUtAlcPool::ms_lock, TovUtAlcPool_init));
}

// Objects -------------------------------------------------------------------------------------------

namespace {

constexpr std::uint32_t c_classSizes[TovFastHeapHeader::c_classCount] = {
    8, 16, 24, 32, 48, 64, 80, 104, 128, 152, 176, 198, 222, 256, 384, 512};

} // namespace

// constinit and not constexpr for the reason told at TovMemStack::ms_shift.
constinit const std::array<std::uint32_t, TovFastHeapHeader::c_maxAllocSize + 1> TovFastHeapHeader::sm_index =
    [] {
        std::array<std::uint32_t, c_maxAllocSize + 1> index{};
        for (std::uint32_t size = 0, sizeClass = 0; size <= c_maxAllocSize; ++size) {
            if (size > c_classSizes[sizeClass])
                ++sizeClass;
            index[size] = sizeClass;
        }
        return index;
    }();

TovFastHeapHeader::TovFastHeapHeader(TovFastHeap &heap, TovMemStack &stack) {
    for (std::size_t i = 0; i < c_classCount; ++i) {
        void *storage = stack.allocate(sizeof(TovFastHeapPartition), sizeof(TovFastHeapPartition));
        m_partitions[i] = ::new (storage) TovFastHeapPartition(heap, c_classSizes[i]);
    }
}

void *TovFastHeap::allocateSpecial(std::size_t size) {
    if (!isOn())
        return ::operator new(size);
    const std::size_t allocSize = TovFastHeapPartition::getAllocSize(size);
    if (allocSize > TovFastHeapHeader::c_maxAllocSize)
        return globalAllocate(size);
    if (!m_header) {
        void *storage = m_memStack->allocate(sizeof(TovFastHeapHeader), sizeof(TovFastHeapHeader));
        auto *header = ::new (storage) TovFastHeapHeader(*this, *m_memStack);
        if constexpr (tovdetail::c_heapChecks)
            rememberPartitions(*header);
        m_header = header; // last: a heap whose header can't be made has none
    }
    return allocateSmall(size, allocSize);
}

void *TovFastHeapPartition::allocateFresh(TovMemStack &stack) {
    char *block = static_cast<char *>(stack.allocate(m_size, 0));
    void *object = block + sizeof(void *);
    ::new (block) TovFastHeapPartition *(this);
    tovdetail::poison(block, sizeof(void *));
    return object;
}

void *TovFastHeap::globalAllocate(std::size_t size) {
    if (!isOn())
        return ::operator new(size);
    void *block = tovMalloc(TovFastHeapPartition::getAllocSize(size));
    ::new (block) TovFastHeapPartition *(nullptr);
    tovdetail::poison(block, sizeof(void *));
    void *object = TovFastHeapPartition::getObj(block, size);
    if constexpr (tovdetail::c_heapChecks)
        rememberLarge(object);
    return object;
}

void TovFastHeap::freeLarge(void *object) { tovFree(TovFastHeapPartition::getHeader(object)); }

// The check of pointers -----------------------------------------------------------------------------

#ifdef TOV_HEAP_CHECKS

namespace {

// What a prefix word can be believed by. A word that is no pointer to a partition can't be followed to find
// out, and the memory of a large object is not ours once it has been freed; so both kinds of addresses are
// kept here. Made at the first use and never freed, because objects may be freed while a process ends.
class KnownAddresses {
public:
    void add(const void *address) {
        const std::lock_guard lock(m_mutex);
        m_addresses.insert(address);
    }
    bool remove(const void *address) {
        const std::lock_guard lock(m_mutex);
        return m_addresses.erase(address) != 0;
    }
    bool has(const void *address) {
        const std::lock_guard lock(m_mutex);
        return m_addresses.contains(address);
    }

private:
    std::mutex m_mutex;
    std::unordered_set<const void *> m_addresses;
};

KnownAddresses &partitions() {
    static KnownAddresses &known = *new KnownAddresses;
    return known;
}

KnownAddresses &largeObjects() {
    static KnownAddresses &known = *new KnownAddresses;
    return known;
}

// The prefix word of a free object: its partition's address, made odd.
TovFastHeapPartition *freeMark(TovFastHeapPartition *partition) {
    return std::bit_cast<TovFastHeapPartition *>(reinterpret_cast<std::uintptr_t>(partition) ^ 1);
}

} // namespace

void TovFastHeapPartition::markLive(void *object) { writePrefix(object, this); }

void TovFastHeapPartition::markFree(void *object) { writePrefix(object, freeMark(this)); }

void TovFastHeapPartition::checkLive(void *object) {
    if (largeObjects().remove(object))
        return;
    TovFastHeapPartition *partition = readPrefix(object);
    if (partitions().has(partition))
        return;
    if (partitions().has(freeMark(partition)))
        tovCheck("tovutil/tovfheap", __LINE__, "Internal error: object freed twice",
                 TOV_CODE(TOVRC_INTERNAL_ERROR));
    tovdetail::reveal(getHeader(object), sizeof(void *)); // a stranger's memory
    tovCheck("tovutil/tovfheap", __LINE__, "Internal error: object is not a live one of a fast heap",
             TOV_CODE(TOVRC_INTERNAL_ERROR));
}

void TovFastHeap::rememberPartitions(const TovFastHeapHeader &header) {
    try {
        for (TovFastHeapPartition *partition : header.m_partitions)
            partitions().add(partition);
    } catch (...) {
        forgetPartitions(header);
        throw;
    }
}

void TovFastHeap::forgetPartitions(const TovFastHeapHeader &header) {
    for (TovFastHeapPartition *partition : header.m_partitions)
        partitions().remove(partition);
}

void TovFastHeap::rememberLarge(void *object) {
    try {
        largeObjects().add(object);
    } catch (...) {
        freeLarge(object);
        throw;
    }
}

#endif

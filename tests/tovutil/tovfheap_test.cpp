#include <support/failalloc.h>
#include <support/random.h>
#include <tovutil/toverrfl.h>
#include <tovutil/tovfheap.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <map>
#include <new>
#include <ostream>
#include <string>
#include <thread>
#include <vector>

// A size that no memory has is an error of the program to the sanitizers, unless they are told otherwise.
extern "C" {
[[gnu::visibility("default")]] const char *__asan_default_options() { return "allocator_may_return_null=1"; }
[[gnu::visibility("default")]] const char *__tsan_default_options() { return "allocator_may_return_null=1"; }
}

namespace {

using tovtest::failEachAllocation;
using tovtest::liveAllocations;

using HeapRef = TovUtRef<TovFastHeap>;

constexpr bool c_wide = sizeof(void *) == 8;
constexpr std::size_t c_classSizes[] = {8,   16,  24,  32,  48,  64,  80,  104,
                                        128, 152, 176, 198, 222, 256, 384, 512};

static_assert(sizeof(TovFastHeap) == (c_wide ? 32 : 16));
static_assert(sizeof(TovFastHeapHeader) == 16 * sizeof(void *));
static_assert(sizeof(TovFastHeapPartition) == 3 * sizeof(void *));

template <class T>
T wordAt(const void *object, std::size_t offset) {
    T word;
    std::memcpy(&word, static_cast<const char *>(object) + offset, sizeof word);
    return word;
}

std::uintptr_t address(const void *object) { return reinterpret_cast<std::uintptr_t>(object); }

// The prefix word, which memory checkers let nobody but the heap read.
const void *prefix(void *object) {
    TovFastHeapPartition **header = TovFastHeapPartition::getHeader(object);
    tovdetail::reveal(header, sizeof *header);
    const void *word = *header;
    tovdetail::poison(header, sizeof *header);
    return word;
}

TovFastHeapHeader *headerOf(const HeapRef &heap) {
    return wordAt<TovFastHeapHeader *>(heap.get(), sizeof(TovFastHeap) - sizeof(void *));
}

std::size_t classOf(const HeapRef &heap, void *object) {
    const auto &all = headerOf(heap)->m_partitions;
    return static_cast<std::size_t>(std::find(std::begin(all), std::end(all), prefix(object)) - all);
}

// Layout --------------------------------------------------------------------------------------------

TEST(FastHeapLayout, KeepsTheFieldsInTheirPlaces) {
    const HeapRef heap = TovFastHeap::create(0);
    const HeapRef second(heap);
    EXPECT_EQ(2, wordAt<std::int32_t>(heap.get(), sizeof(void *)));
    EXPECT_EQ(&heap->getMemStack(), wordAt<TovMemStack *>(heap.get(), 2 * sizeof(void *)));
    EXPECT_EQ(nullptr, headerOf(heap)) << "no header before the first small object";
    TovFastHeap::deallocate(heap->allocate(513));
    EXPECT_EQ(nullptr, headerOf(heap));
    TovFastHeap::deallocate(heap->allocate(1));
    ASSERT_NE(nullptr, headerOf(heap));
    for (std::size_t i = 0; i < std::size(c_classSizes); ++i) {
        const TovFastHeapPartition *partition = headerOf(heap)->m_partitions[i];
        EXPECT_EQ(c_classSizes[i], wordAt<std::uint32_t>(partition, 0));
        EXPECT_EQ(heap.get(), wordAt<TovFastHeap *>(partition, 2 * sizeof(void *)));
        EXPECT_EQ(i != 1 - !c_wide, partition->isEmpty());
    }
}

TEST(FastHeapLayout, FindsTheSmallestClass) {
    ASSERT_EQ(513U, TovFastHeapHeader::sm_index.size());
    for (std::size_t size = 0; size <= 512; ++size) {
        const auto *wanted = std::lower_bound(std::begin(c_classSizes), std::end(c_classSizes), size);
        EXPECT_EQ(wanted - c_classSizes, TovFastHeapHeader::sm_index[size]) << size;
    }
}

TEST(FastHeapLayout, AddsThePrefixWord) {
    const struct {
        std::size_t size, narrow, wide;
    } rows[] = {{0, 8, 16},      {1, 5, 16},      {3, 7, 16},      {4, 8, 16},
                {5, 9, 16},      {7, 11, 16},     {8, 16, 16},     {9, 13, 17},
                {12, 16, 20},    {16, 24, 24},    {500, 504, 508}, {504, 512, 512},
                {505, 509, 513}, {508, 512, 516}, {509, 513, 517}, {512, 520, 520}};
    for (const auto &row : rows) {
        SCOPED_TRACE(row.size);
        EXPECT_EQ(c_wide ? row.wide : row.narrow, TovFastHeapPartition::getAllocSize(row.size));
    }
    for (std::size_t size : {SIZE_MAX, SIZE_MAX - 3, SIZE_MAX - 7})
        EXPECT_EQ(SIZE_MAX, TovFastHeapPartition::getAllocSize(size)) << "never wraps";
}

TEST(FastHeapLayout, FindsThePrefixWordFromTheObjectAlone) {
    alignas(8) char block[32];
    for (std::size_t size = 0; size < 24; ++size) {
        void *object = TovFastHeapPartition::getObj(block, size);
        EXPECT_EQ(size % 8 == 0 ? 8 : static_cast<std::ptrdiff_t>(sizeof(void *)),
                  static_cast<char *>(object) - block);
        EXPECT_EQ(static_cast<void *>(block), TovFastHeapPartition::getHeader(object));
    }
}

// Objects -------------------------------------------------------------------------------------------

TEST(FastHeapAllocate, ServesEachSizeFromItsPlace) {
    constexpr std::size_t large = 16; // no class
    const struct {
        std::size_t size, narrow, wide;
    } rows[] = {
        {0, 0, 1},        {4, 0, 1},        {5, 1, 1},           {8, 1, 1},           {9, 1, 2},
        {16, 2, 2},       {194, 11, 12},    {190, 11, 11},       {500, 15, 15},       {504, 15, 15},
        {505, 15, large}, {508, 15, large}, {509, large, large}, {512, large, large}, {100000, large, large}};
    const HeapRef heap = TovFastHeap::create(0);
    TovFastHeap::deallocate(heap->allocate(0));
    for (const auto &row : rows) {
        SCOPED_TRACE(row.size);
        void *object = heap->allocate(row.size);
        const std::size_t wanted = c_wide ? row.wide : row.narrow;
        EXPECT_EQ(wanted, classOf(heap, object));
        EXPECT_EQ(wanted == large, prefix(object) == nullptr);
        EXPECT_EQ(wanted == large ? 1 : 2, heap->count());
        const bool boundary8 = c_wide || (wanted == large && row.size % 8 == 0);
        EXPECT_EQ(boundary8 ? 0U : 4U, address(object) % 8);
        std::memset(object, 1, row.size);
        TovFastHeap::deallocate(object);
        EXPECT_EQ(1, heap->count());
    }
}

TEST(FastHeapAllocate, GivesTheObjectFreedLast) {
    const HeapRef heap = TovFastHeap::create(0);
    void *one = heap->allocate(40);
    void *two = heap->allocate(33);
    void *other = heap->allocate(61);
    for (void *object : {one, other, two})
        TovFastHeap::deallocate(object);
    EXPECT_EQ(two, heap->allocate(36));
    EXPECT_EQ(one, heap->allocate(36));
    EXPECT_EQ(other, heap->allocate(64));
    for (void *object : {one, other, two})
        TovFastHeap::deallocate(object);
}

TEST(FastHeapAllocate, CutsFreshObjectsWhenTheyAreAskedFor) {
    const HeapRef heap = TovFastHeap::create(0);
    auto *one = static_cast<char *>(heap->allocate(190));
    auto *two = static_cast<char *>(heap->allocate(190));
    EXPECT_EQ(200, two - one) << "a class of 198 bytes, brought to a boundary of 8";
    TovFastHeap::deallocate(one);
    TovFastHeap::deallocate(two);
}

TEST(FastHeapAllocate, RefusesSizesThatWouldWrap) {
    const HeapRef heap = TovFastHeap::create(0);
    for (std::size_t size : {SIZE_MAX, SIZE_MAX - 3, SIZE_MAX - 7, SIZE_MAX - 8, SIZE_MAX / 2 + 1}) {
        EXPECT_THROW((void)heap->allocate(size), TovError);
        EXPECT_THROW((void)TovFastHeap::globalAllocate(size), TovError);
        EXPECT_EQ(1, heap->count());
    }
    for (std::size_t size :
         {SIZE_MAX, SIZE_MAX - 8, std::size_t{UINT32_MAX}, std::size_t{TovMemStack::c_maxSize} - 16})
        EXPECT_THROW((void)TovFastHeap::create(size), std::bad_alloc) << size;
}

TEST(FastHeapGlobal, NeedsNoHeap) {
    const long before = liveAllocations();
    for (std::size_t size : {0U, 1U, 8U, 504U, 70000U}) {
        void *object = TovFastHeap::globalAllocate(size);
        EXPECT_EQ(nullptr, prefix(object));
        EXPECT_EQ(c_wide || size % 8 == 0 ? 0U : 4U, address(object) % 8);
        std::memset(object, 1, size);
        TovFastHeap::deallocate(object);
    }
    EXPECT_EQ(before, liveAllocations());
}

// The end of a heap ---------------------------------------------------------------------------------

TEST(FastHeapEnd, WaitsForTheLastReferenceAndTheLastSmallObject) {
    const long before = liveAllocations();
    {
        HeapRef heap = TovFastHeap::create(0);
        void *object = heap->allocate(10);
        heap.reset();
        EXPECT_EQ(before + 1, liveAllocations()) << "the object keeps its heap";
        TovFastHeap::deallocate(object);
        EXPECT_EQ(before, liveAllocations());
    }
    {
        HeapRef heap = TovFastHeap::create(0);
        TovFastHeap::deallocate(heap->allocate(10));
        EXPECT_EQ(before + 1, liveAllocations()) << "the reference keeps its heap";
        heap.reset();
        EXPECT_EQ(before, liveAllocations());
    }
}

TEST(FastHeapEnd, DoesNotTouchLargeObjects) {
    HeapRef heap = TovFastHeap::create(0);
    void *object = heap->allocate(1000);
    heap.reset();
    std::memset(object, 1, 1000);
    TovFastHeap::deallocate(object);
}

TEST(FastHeapEnd, FreesBlocksThatAnyObjectsLieIn) {
    const long before = liveAllocations();
    {
        const HeapRef heap = TovFastHeap::create(100);
        std::vector<void *> objects;
        for (std::size_t i = 0; i < 500; ++i)
            objects.push_back(heap->allocate(i));
        EXPECT_LT(before + 100, liveAllocations());
        for (void *object : objects)
            TovFastHeap::deallocate(object);
    }
    EXPECT_EQ(before, liveAllocations());
}

TEST(FastHeapCreate, GivesTheFirstBlockRoomForTheHeap) {
    const struct { std::size_t size, wantedBlock; } rows[] = {{0, 16000}, {1000, 1000}, {1, 1}};
    for (const auto &row : rows) {
        SCOPED_TRACE(row.size);
        const HeapRef heap = TovFastHeap::create(row.size);
        EXPECT_EQ(1, heap->count());
        EXPECT_EQ(row.wantedBlock, wordAt<std::uint32_t>(&heap->getMemStack(), 0));
        if (row.size != 1) {
            const auto *block = wordAt<TovMemStackBlock *>(&heap->getMemStack(), sizeof(void *));
            EXPECT_EQ(row.wantedBlock + sizeof(TovFastHeap),
                      block->m_avail + static_cast<std::size_t>(block->m_current -
                                                                reinterpret_cast<const char *>(block + 1)));
            EXPECT_EQ(nullptr, block->m_next);
        }
    }
}

TEST(FastHeapConstructor, CountsFromNothing) {
    const long before = liveAllocations();
    TovMemStack *stack = TovMemStack::create(0);
    auto *heap = ::new (stack->allocate(sizeof(TovFastHeap), sizeof(TovFastHeap))) TovFastHeap(*stack);
    EXPECT_EQ(0, heap->count());
    void *object = heap->allocate(1);
    EXPECT_EQ(1, heap->count());
    TovFastHeap::deallocate(object);
    EXPECT_EQ(before, liveAllocations());
}

TEST(FastHeapEmptyRef, IsAlwaysTheSame) {
    const HeapRef &empty = TovFastHeap::getEmptyRef();
    EXPECT_FALSE(empty);
    EXPECT_EQ(&empty, &TovFastHeap::getEmptyRef());
}

// The model -----------------------------------------------------------------------------------------

// Many heaps side by side, each held by up to a few references and by its objects. Kept beside them: what
// each object holds, which object each class must hand out next, and how many counts each heap must have.
class HeapModel {
public:
    explicit HeapModel(unsigned test) : m_random(tovtest::generator(test)), m_before(liveAllocations()) {}

    void run(int steps) {
        for (int i = 0; i < steps && !testing::Test::HasFatalFailure(); ++i)
            step();
        std::vector<Heap>().swap(m_heaps);
        while (!m_objects.empty())
            free(m_objects.size() - 1);
        std::vector<Object>().swap(m_objects);
        m_waiting.clear();
        m_live.clear();
        EXPECT_EQ(m_before, liveAllocations()) << "heaps with all their blocks, and large objects";
    }

private:
    struct Heap {
        int id;
        HeapRef ref;
        std::vector<HeapRef> more;
    };
    struct Object {
        unsigned char *bytes;
        std::size_t size;
        unsigned char fill;
        int heap; // -1: not counted
        std::size_t sizeClass;
    };

    void step() {
        switch (below(16)) {
        case 0:
            if (m_heaps.size() < 12)
                m_heaps.push_back({m_nextId++, TovFastHeap::create(below(5000)), {}});
            break;
        case 1:
            if (!m_heaps.empty())
                m_heaps.erase(m_heaps.begin() + static_cast<std::ptrdiff_t>(pick(m_heaps)));
            break;
        case 2:
            if (!m_heaps.empty()) {
                Heap &heap = m_heaps[pick(m_heaps)];
                heap.more.push_back(heap.ref);
                if (heap.more.size() > 3)
                    heap.more.clear();
            }
            break;
        case 3:
            add(TovFastHeap::globalAllocate(m_size = randomSize()), -1, 0);
            break;
        default:
            if (below(2) == 0 && !m_heaps.empty())
                allocate(m_heaps[pick(m_heaps)]);
            else if (!m_objects.empty())
                free(pick(m_objects));
        }
    }

    template <class All>
    std::size_t pick(const All &all) {
        return below(all.size());
    }

    std::size_t below(std::size_t limit) { return tovtest::below(m_random, limit); }

    std::size_t randomSize() { return below(16) == 0 ? below(3000) : below(530); }

    void allocate(Heap &heap) {
        m_size = randomSize();
        auto *object = heap.ref->allocate(m_size);
        const std::size_t least = m_size + (m_size % 8 == 0 ? 8 : sizeof(void *));
        const bool small = least <= 512;
        const std::size_t sizeClass =
            static_cast<std::size_t>(std::lower_bound(std::begin(c_classSizes), std::end(c_classSizes),
                                                      std::max(least, 2 * sizeof(void *))) -
                                     c_classSizes);
        if (small) {
            auto &waiting = m_waiting[heap.id][sizeClass];
            if (!waiting.empty()) {
                ASSERT_EQ(waiting.back(), object);
                waiting.pop_back();
            }
        }
        add(object, small ? heap.id : -1, sizeClass);
        ASSERT_EQ(static_cast<std::int32_t>(1 + heap.more.size()) + m_live[heap.id], heap.ref->count());
    }

    void add(void *object, int heap, std::size_t sizeClass) {
        const auto fill = static_cast<unsigned char>(m_random());
        std::memset(object, fill, m_size);
        m_objects.push_back({static_cast<unsigned char *>(object), m_size, fill, heap, sizeClass});
        if (heap >= 0)
            ++m_live[heap];
    }

    void free(std::size_t index) {
        std::swap(m_objects[index], m_objects.back());
        const Object object = m_objects.back();
        m_objects.pop_back();
        for (std::size_t i = 0; i < object.size; ++i)
            ASSERT_EQ(object.fill, object.bytes[i]) << "of " << object.size;
        TovFastHeap::deallocate(object.bytes);
        if (object.heap >= 0) {
            --m_live[object.heap];
            m_waiting[object.heap][object.sizeClass].push_back(object.bytes);
        }
    }

    std::mt19937_64 m_random;
    const long m_before;
    std::size_t m_size = 0;
    int m_nextId = 0;
    std::vector<Heap> m_heaps;
    std::vector<Object> m_objects;
    std::map<int, std::int32_t> m_live;
    std::map<int, std::array<std::vector<void *>, 16>> m_waiting;
};

TEST(FastHeapModel, ManyHeapsAndObjects) { HeapModel(1).run(20000); }

TEST(FastHeapModel, ThreadsWithHeapsOfTheirOwn) {
    std::vector<std::thread> threads;
    for (unsigned id = 0; id < 4; ++id)
        threads.emplace_back([id] {
            auto random = tovtest::generator(10 + id);
            const HeapRef heap = TovFastHeap::create(2000);
            std::vector<void *> objects;
            for (int i = 0; i < 5000; ++i) {
                objects.push_back(heap->allocate(tovtest::below(random, 600)));
                if (objects.size() > 50) {
                    TovFastHeap::deallocate(objects.front());
                    objects.erase(objects.begin());
                }
            }
            for (void *object : objects)
                TovFastHeap::deallocate(object);
        });
    for (std::thread &thread : threads)
        thread.join();
}

// The mode of the process ---------------------------------------------------------------------------

// Runs `body` in a new process of this program, because the mode is read once.
void inNewProcess(void (*body)()) {
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
    EXPECT_EXIT(
        {
            body();
            std::exit(testing::Test::HasFailure() ? 1 : 0);
        },
        testing::ExitedWithCode(0), "");
}

bool isOff() { return TovFastHeap::create(0) == TovFastHeap::create(0); }

struct ModeRow {
    const char *value;
    bool off;

    // Without it the test library prints the bytes, those between the fields included.
    friend std::ostream &operator<<(std::ostream &os, const ModeRow &row) {
        return os << (row.value ? row.value : "unset");
    }
};

class FastHeapMode : public testing::TestWithParam<ModeRow> {};

TEST_P(FastHeapMode, IsOffForOneValueOnly) {
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
    EXPECT_EXIT(
        {
            if (GetParam().value)
                setenv("TOV_FAST_HEAP", GetParam().value, 1);
            else
                unsetenv("TOV_FAST_HEAP");
            std::exit(isOff());
        },
        testing::ExitedWithCode(GetParam().off), "");
}

INSTANTIATE_TEST_SUITE_P(Values, FastHeapMode,
                         testing::Values(ModeRow{"off", true}, ModeRow{"OFF", false}, ModeRow{"0", false},
                                         ModeRow{"", false}, ModeRow{"off ", false},
                                         ModeRow{nullptr, false}));

TEST(FastHeapMode, IsReadThroughThePointerToItsName) {
    inNewProcess([] {
        setenv("TOV_FAST_HEAP", "on", 1);
        setenv("OTHER_NAME", "off", 1);
        cDebugLeakEnv = "OTHER_NAME";
        EXPECT_TRUE(isOff());
    });
    inNewProcess([] {
        setenv("TOV_FAST_HEAP", "off", 1);
        cDebugLeakEnv = nullptr;
        EXPECT_FALSE(isOff()) << "no name, no variable";
    });
}

TEST(FastHeapMode, IsReadOnceAtTheFirstUse) {
    // Each first use settles the mode, but for the last: freeing null settles nothing.
    inNewProcess([] {
        unsetenv("TOV_FAST_HEAP");
        TovFastHeap::deallocate(TovFastHeap::globalAllocate(1));
        setenv("TOV_FAST_HEAP", "off", 1);
        EXPECT_FALSE(isOff());
    });
    inNewProcess([] {
        setenv("TOV_FAST_HEAP", "off", 1);
        TovFastHeap::deallocate(::operator new(sizeof(void *)));
        unsetenv("TOV_FAST_HEAP");
        EXPECT_TRUE(isOff());
    });
    inNewProcess([] {
        unsetenv("TOV_FAST_HEAP");
        TovMemStack *stack = TovMemStack::create(0);
        auto *heap = ::new (stack->allocate(sizeof(TovFastHeap), sizeof(TovFastHeap))) TovFastHeap(*stack);
        void *object = heap->allocate(1);
        setenv("TOV_FAST_HEAP", "off", 1);
        EXPECT_FALSE(isOff());
        TovFastHeap::deallocate(object);
    });
    inNewProcess([] {
        setenv("TOV_FAST_HEAP", "off", 1);
        TovMemStack *stack = TovMemStack::create(0);
        auto *heap = ::new (stack->allocate(sizeof(TovFastHeap), sizeof(TovFastHeap))) TovFastHeap(*stack);
        heap->unreferenced();
        unsetenv("TOV_FAST_HEAP");
        EXPECT_TRUE(isOff());
        heap->~TovFastHeap();
        stack->destroy();
    });
    inNewProcess([] {
        unsetenv("TOV_FAST_HEAP");
        TovFastHeap::deallocate(nullptr);
        setenv("TOV_FAST_HEAP", "off", 1);
        EXPECT_TRUE(isOff());
    });
}

TEST(FastHeapOff, IsPlainOperatorNewOnOneHeapThatNeverEnds) {
    inNewProcess([] {
        setenv("TOV_FAST_HEAP", "off", 1);
        HeapRef heap = TovFastHeap::create(123);
        const long before = liveAllocations();
        for (std::size_t size : {0U, 1U, 504U, 5000U})
            for (void *object : {heap->allocate(size), TovFastHeap::globalAllocate(size)}) {
                EXPECT_EQ(0U, address(object) % 16) << "as operator new gives it";
                EXPECT_EQ(1, heap->count());
                TovFastHeap::deallocate(object);
            }
        ::operator delete(heap->allocate(1));
        TovFastHeap::deallocate(::operator new(sizeof(void *)));
        EXPECT_EQ(before, liveAllocations());
        EXPECT_EQ(4000U, wordAt<std::uint32_t>(&heap->getMemStack(), 0));

        TovFastHeap *only = heap.get();
        heap.reset();
        EXPECT_EQ(0, only->count());
        heap = TovFastHeap::create(456);
        EXPECT_EQ(only, heap.get());
        EXPECT_EQ(1, heap->count());
        TovFastHeap::deallocate(nullptr);
    });
}

TEST(FastHeapOff, LetsThreadsHaveHeapsOfTheirOwnAsTheyThink) {
    inNewProcess([] {
        setenv("TOV_FAST_HEAP", "off", 1);
        std::vector<std::thread> threads;
        for (int id = 0; id < 4; ++id)
            threads.emplace_back([] {
                for (int i = 0; i < 1000; ++i) {
                    const HeapRef heap = TovFastHeap::create(0);
                    const HeapRef copy(heap);
                    TovFastHeap::deallocate(heap->allocate(20));
                }
            });
        for (std::thread &thread : threads)
            thread.join();
    });
}

// Allocations that fail -----------------------------------------------------------------------------

TEST(OutOfMemory, FastHeapCreate) {
    for (std::size_t size : {0U, 1U}) // 1: the heap object needs a block of its own
        failEachAllocation<std::bad_alloc>(
            liveAllocations, [&](long) { (void)TovFastHeap::create(size); },
            [](long before) { EXPECT_EQ(before, liveAllocations()); });
}

TEST(OutOfMemory, FastHeapAllocateSmall) {
    const long before = liveAllocations();
    for (std::size_t blockSize : {1U, 100U, 1000U})
        failEachAllocation<std::bad_alloc>([&] { return TovFastHeap::create(blockSize); },
                                           [](HeapRef &heap) {
                                               for (std::size_t size : {10U, 300U, 500U})
                                                   TovFastHeap::deallocate(heap->allocate(size));
                                           },
                                           [](HeapRef &heap) {
                                               EXPECT_EQ(1, heap->count());
                                               void *object = heap->allocate(300);
                                               std::memset(object, 1, 300);
                                               EXPECT_EQ(2, heap->count());
                                               TovFastHeap::deallocate(object);
                                           });
    EXPECT_EQ(before, liveAllocations());
}

TEST(OutOfMemory, FastHeapAllocateLarge) {
    const long before = liveAllocations();
    failEachAllocation<TovError>([] { return TovFastHeap::create(0); },
                                 [](HeapRef &heap) { TovFastHeap::deallocate(heap->allocate(1000)); },
                                 [](HeapRef &heap) { EXPECT_EQ(1, heap->count()); });
    EXPECT_EQ(before, liveAllocations());
}

TEST(OutOfMemory, FastHeapGlobalAllocate) {
    failEachAllocation<TovError>(
        liveAllocations, [](long) { TovFastHeap::deallocate(TovFastHeap::globalAllocate(10)); },
        [](long before) { EXPECT_EQ(before, liveAllocations()); });
}

TEST(OutOfMemory, FastHeapGetEmptyRef) {
#ifdef TOV_THREAD_SANITIZER
    GTEST_SKIP() << "its pthread_once does not let exceptions through";
#endif
    TovUtAlcPool_release();
    TovUtAlcPool::ms_lock = PTHREAD_ONCE_INIT;
    failEachAllocation<std::bad_alloc>([] { return 0; },
                                       [](int) { EXPECT_FALSE(TovFastHeap::getEmptyRef()); }, [](int) {});
}

// What memory checkers and the build with checks find ------------------------------------------------

#ifdef TOV_ADDRESS_SANITIZER

TEST(FastHeapPoison, CatchesUseOfWhatIsNotTheCallers) {
    const HeapRef heap = TovFastHeap::create(0);
    for (std::size_t size : {1U, 10U, 24U, 190U, 504U}) {
        SCOPED_TRACE(size);
        auto *object = static_cast<volatile char *>(heap->allocate(size));
        object[size - 1] = 1;
        EXPECT_DEATH(object[size] = 1, "use-after-poison") << "behind the object";
        if (c_wide) {
            EXPECT_DEATH(object[-1] = 1, "use-after-poison") << "the prefix word";
        }
        TovFastHeap::deallocate(const_cast<char *>(object));
        EXPECT_DEATH((void)object[0], "use-after-poison") << "after the free";
        EXPECT_DEATH((void)object[size - 1], "use-after-poison");
    }
    auto *stale = static_cast<volatile char *>(heap->allocate(20));
    TovFastHeap::deallocate(const_cast<char *>(stale));
    ASSERT_EQ(stale, heap->allocate(20));
    stale[19] = 1;
    TovFastHeap::deallocate(const_cast<char *>(stale));
}

#endif

#ifdef TOV_HEAP_CHECKS

std::string freed(void *object) {
    try {
        TovFastHeap::deallocate(object);
    } catch (const TovErrorFull &error) {
        EXPECT_EQ(TOVRC_INTERNAL_ERROR, error.getReturnCode());
        return std::string(error.getErrString());
    }
    return "";
}

TEST(FastHeapChecks, TellAPointerThatIsNotALiveObject) {
    constexpr char twice[] = "Internal error: object freed twice";
    constexpr char stranger[] = "Internal error: object is not a live one of a fast heap";
    const HeapRef heap = TovFastHeap::create(0);
    void *object = heap->allocate(20);
    EXPECT_EQ("", freed(object));
    EXPECT_EQ(twice, freed(object));
    EXPECT_EQ(object, heap->allocate(20)) << "the heap is as it was";
    EXPECT_EQ(2, heap->count());
    EXPECT_EQ("", freed(object));

    alignas(8) void *words[] = {nullptr, nullptr, &words, nullptr};
    EXPECT_EQ(stranger, freed(&words[1])) << "a null word alone does not make a large object";
    EXPECT_EQ(stranger, freed(&words[3]));
    void *inner = heap->allocate(400);
    std::memset(inner, 0x41, 400);
    EXPECT_EQ(stranger, freed(static_cast<char *>(inner) + 64)) << "a pointer into an object";
    EXPECT_EQ("", freed(inner));

    void *large = heap->allocate(1000);
    EXPECT_EQ("", freed(large));
#ifndef TOV_THREAD_SANITIZER // which sees that the check reads a word of what malloc has taken back
    EXPECT_EQ(stranger, freed(large));
#endif
    void *global = TovFastHeap::globalAllocate(8);
    EXPECT_EQ("", freed(global));
    EXPECT_EQ("", freed(nullptr));
}

TEST(FastHeapChecks, ForgetThePartitionsOfAHeaderThatCouldNotBeMade) {
    bool fired = true;
    for (int nth = 1; fired; ++nth) {
        SCOPED_TRACE(nth);
        const HeapRef heap = TovFastHeap::create(0);
        try {
            tovtest::FailingAllocation failing(nth);
            TovFastHeap::deallocate(heap->allocate(10));
            fired = failing.fired();
        } catch (const std::bad_alloc &) {
            const auto *block = wordAt<TovMemStackBlock *>(&heap->getMemStack(), sizeof(void *));
            alignas(8) void *words[] = {block->m_current - 16 * sizeof(TovFastHeapPartition), nullptr};
            EXPECT_EQ("Internal error: object is not a live one of a fast heap", freed(&words[1]));
        }
    }
}

#endif

} // namespace

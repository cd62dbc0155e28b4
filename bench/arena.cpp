// Arena: 1000 pieces taken, then all dropped at once.
#include "bench.h"

#include <tovutil/tovmemst.h>

#include <cstdlib>
#include <memory_resource>
#include <utility>
#include <vector>

#include <obstack.h>

// The macros of obstack.h cast what stands in these two.
#pragma GCC diagnostic ignored "-Wold-style-cast"
#define obstack_chunk_alloc std::malloc
#define obstack_chunk_free std::free

namespace tovbench {

namespace {

constexpr unsigned c_pieces = 1000;
constexpr std::size_t c_areaSize = 256 << 10;

using Sizes = std::vector<std::size_t>;

Sizes makeSizes(std::size_t size) {
    Sizes sizes;
    Lcg lcg(3);
    for (unsigned i = 0; i < c_pieces; ++i)
        sizes.push_back(size != 0 ? size : 8 + lcg.below(120));
    return sizes;
}

template <class Get>
void take(const Sizes &sizes, Get get) {
    for (const std::size_t size : sizes) {
        void *piece = get(size);
        *static_cast<std::uint64_t *>(piece) = size;
        benchmark::DoNotOptimize(piece);
    }
}

void bump(const Sizes &sizes, char *at) {
    take(sizes, [&](std::size_t size) {
        char *piece = at;
        at += (size + 7) & ~std::size_t{7};
        return piece;
    });
}

// Blocks of one size in a chain: what an arena with a room test costs when it grows as it goes.
class Chain {
public:
    explicit Chain(std::size_t blockSize) : m_blockSize(blockSize) {}
    Chain(const Chain &) = delete;
    ~Chain() {
        while (Block *block = m_head) {
            m_head = block->next;
            std::free(block);
        }
    }
    void *take(std::size_t size) {
        size = (size + 7) & ~std::size_t{7};
        if (size > static_cast<std::size_t>(m_end - m_current))
            grow();
        void *piece = m_current;
        m_current += size;
        return piece;
    }

private:
    struct Block {
        Block *next;
    };

    void grow() {
        m_head = ::new (std::malloc(sizeof(Block) + m_blockSize)) Block{m_head};
        m_current = reinterpret_cast<char *>(m_head + 1);
        m_end = m_current + m_blockSize;
    }

    const std::size_t m_blockSize;
    Block *m_head = nullptr;
    char *m_current = nullptr;
    char *m_end = nullptr;
};

// The least that an arena costs whose room and place are fields in memory, as they must be for one that
// others hold, too: a test and two stores a piece, without a table, a list of blocks or sizes that might
// wrap.
struct Fields {
    void *take(std::size_t size) {
        size = (size + 7) & ~std::size_t{7};
        if (size >= avail)
            return nullptr;
        avail -= static_cast<std::uint32_t>(size);
        return std::exchange(current, current + size);
    }

    std::uint32_t avail;
    char *current;
};

// One area that is large enough, and kept: the cost of a piece alone.
void registerWarm(const std::string &group, const Sizes &sizes) {
    static char area[c_areaSize];
    job(group + "limit:bump", [sizes] { bump(sizes, area); });
    job(group + "model:fields", [sizes] {
        Fields fields{c_areaSize, area};
        Fields *shared = &fields;
        benchmark::DoNotOptimize(shared);
        take(sizes, [shared](std::size_t size) { return shared->take(size); });
    });
    // Our arena has no operation that empties it, so it is made anew in the same block; the block outlives
    // it.
    job(group + "tovutil", [sizes] {
        static void *const storage = ::operator new(sizeof(TovMemStackBlock) + c_areaSize);
        auto *kept = ::new (storage) TovMemStackBlock(c_areaSize, nullptr);
        alignas(TovMemStack) std::byte stackStorage[sizeof(TovMemStack)];
        auto *stack = ::new (stackStorage) TovMemStack(4000, kept); // never destroyed: the block stays
        take(sizes, [stack](std::size_t size) { return stack->allocate(size, 0); });
    });
    job(group + "pmr-monotonic", [sizes] {
        std::pmr::monotonic_buffer_resource arena(area, sizeof area, std::pmr::null_memory_resource());
        take(sizes, [&](std::size_t size) { return arena.allocate(size, 8); });
    });
    job(group + "obstack", [sizes] {
        static obstack *const stack = [] {
            static obstack made;
            obstack_begin(&made, int{c_areaSize});
            return &made;
        }();
        void *base = obstack_alloc(stack, 0);
        take(sizes, [](std::size_t size) { return obstack_alloc(stack, static_cast<int>(size)); });
        obstack_free(stack, base);
    });
}

// An arena that is made, grows, and ends.
void registerLife(const std::string &group, const Sizes &sizes) {
    job(group + "limit:malloc-bump", [sizes] {
        auto *area = static_cast<char *>(std::malloc(96 << 10));
        bump(sizes, area);
        std::free(area);
    });
    for (const std::size_t blockSize : {std::size_t{4000}, std::size_t{16000}}) {
        job(group + "tovutil:" + std::to_string(blockSize), [sizes, blockSize] {
            TovMemStack *stack = TovMemStack::create(blockSize);
            take(sizes, [stack](std::size_t size) { return stack->allocate(size, 0); });
            stack->destroy();
        });
        job(group + "model:chain-" + std::to_string(blockSize), [sizes, blockSize] {
            Chain chain(blockSize);
            take(sizes, [&](std::size_t size) { return chain.take(size); });
        });
    }
    job(group + "pmr-monotonic", [sizes] { // its blocks grow by half each time
        std::pmr::monotonic_buffer_resource arena(4000);
        take(sizes, [&](std::size_t size) { return arena.allocate(size, 8); });
    });
    job(group + "obstack", [sizes] {
        obstack stack;
        obstack_begin(&stack, 4000);
        take(sizes, [&](std::size_t size) { return obstack_alloc(&stack, static_cast<int>(size)); });
        obstack_free(&stack, nullptr);
    });
    job(group + "glibc-each", [sizes] {
        static void *live[c_pieces];
        unsigned i = 0;
        take(sizes, [&](std::size_t size) { return live[i++] = std::malloc(size); });
        while (i != 0)
            std::free(live[--i]);
    });
}

} // namespace

void registerTopic() {
    for (const std::size_t size : {std::size_t{16}, std::size_t{64}, std::size_t{0}}) {
        const std::string label = size != 0 ? std::to_string(size) : "mix";
        registerWarm("arena/warm/" + label + "/", makeSizes(size));
        registerLife("arena/life/" + label + "/", makeSizes(size));
    }
}

} // namespace tovbench

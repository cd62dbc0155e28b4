#include <support/failalloc.h>
#include <support/random.h>
#include <tovutil/tovmemst.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <memory>
#include <new>
#include <vector>

namespace {

using tovtest::below;
using tovtest::failEachAllocation;
using tovtest::liveAllocations;

constexpr bool c_wide = sizeof(void *) == 8;

static_assert(offsetof(TovMemStackBlock, m_avail) == 0);
static_assert(offsetof(TovMemStackBlock, m_current) == sizeof(void *));
static_assert(offsetof(TovMemStackBlock, m_next) == 2 * sizeof(void *));
static_assert(sizeof(TovMemStackBlock) == (c_wide ? 24 : 12));
static_assert(sizeof(TovMemStack) == (c_wide ? 16 : 8));

struct Destroy {
    void operator()(TovMemStack *stack) const { stack->destroy(); }
};
using StackPtr = std::unique_ptr<TovMemStack, Destroy>;

StackPtr makeStack(std::size_t size) { return StackPtr(TovMemStack::create(size)); }

// The two fields of a stack, by their place.
std::uint32_t blockSize(const TovMemStack &stack) {
    std::uint32_t size;
    std::memcpy(&size, &stack, sizeof size);
    return size;
}
TovMemStackBlock *head(const TovMemStack &stack) {
    TovMemStackBlock *block;
    std::memcpy(&block, reinterpret_cast<const char *>(&stack) + sizeof(void *), sizeof block);
    return block;
}

std::uintptr_t address(const void *piece) { return reinterpret_cast<std::uintptr_t>(piece); }

char *dataOf(TovMemStackBlock *block) { return reinterpret_cast<char *>(block + 1); }

std::size_t dataSize(TovMemStackBlock *block) {
    return static_cast<std::size_t>(block->m_current - dataOf(block)) + block->m_avail;
}

std::size_t blockCount(const TovMemStack &stack) {
    std::size_t count = 0;
    for (TovMemStackBlock *block = head(stack); block; block = block->m_next)
        ++count;
    return count;
}

TEST(MemStackPadding, BringsAnyAddressToTheBoundaryOfItsClass) {
    const std::uint32_t boundaries[8] = {8, 1, 2, 1, 4, 1, 2, 1};
    for (std::uint32_t alignment = 0; alignment < 8; ++alignment)
        for (std::uint32_t low = 0; low < 8; ++low) {
            const std::uint32_t boundary = boundaries[alignment];
            EXPECT_EQ((boundary - low % boundary) % boundary, TovMemStack::ms_shift[alignment][low])
                << alignment << ", " << low;
        }
}

TEST(MemStackAllocate, TakesAnAlignmentByItsLowThreeBits) {
    const struct {
        std::size_t alignment, boundary;
    } rows[] = {{0, 8}, {8, 8}, {16, 8}, {64, 8}, {24, 8}, {4, 4}, {12, 4}, {20, 4},
                {2, 2}, {6, 2}, {10, 2}, {1, 1},  {3, 1},  {5, 1}, {7, 1},  {SIZE_MAX, 1}};
    for (const auto &row : rows)
        for (std::size_t before = 0; before < 8; ++before) {
            SCOPED_TRACE(std::to_string(row.alignment) + " behind " + std::to_string(before));
            const StackPtr stack = makeStack(0);
            (void)stack->allocate(before, 1);
            const std::uintptr_t from = address(head(*stack)->m_current);
            const std::uint32_t avail = head(*stack)->m_avail;
            const std::uintptr_t piece = address(stack->allocate(5, row.alignment));
            EXPECT_EQ((from + row.boundary - 1) / row.boundary * row.boundary, piece);
            EXPECT_EQ(piece + 5, address(head(*stack)->m_current));
            EXPECT_EQ(avail - (piece + 5 - from), head(*stack)->m_avail);
        }
}

TEST(MemStackAllocate, ServesASizeOfZeroLikeAnyOther) {
    const StackPtr stack = makeStack(0);
    (void)stack->allocate(1, 1);
    void *piece = stack->allocate(0, 0);
    EXPECT_EQ(0U, address(piece) % 8);
    EXPECT_EQ(piece, stack->allocate(0, 0));
    EXPECT_EQ(piece, stack->allocate(1, 0));
}

TEST(MemStackAllocate, NeverFillsABlockToItsLastByte) {
    for (std::size_t low = 0; low < 8; ++low)
        for (std::size_t left : {0U, 1U}) {
            SCOPED_TRACE(std::to_string(left) + " left behind a piece at " + std::to_string(low));
            const StackPtr stack = makeStack(0);
            while (address(head(*stack)->m_current) % 8 != low)
                (void)stack->allocate(1, 1);
            const std::size_t padding = TovMemStack::ms_shift[0][low];
            (void)stack->allocate(head(*stack)->m_avail - padding - left, 0);
            EXPECT_EQ(left == 0 ? 2U : 1U, blockCount(*stack));
        }
}

TEST(MemStackAllocate, MakesABlockThatHoldsTheRequestWithAnyPadding) {
    const struct {
        const char *why;
        std::size_t size, wantedData;
    } rows[] = {
        {"a small request gets the usual size", 60, 100},
        {"8 more than the request are the usual size", 92, 100},
        {"one byte above it", 93, 101},
        {"a large request", 5000, 5008},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.why);
        const StackPtr stack = makeStack(100);
        (void)stack->allocate(head(*stack)->m_avail - 1U, 1);
        const void *piece = stack->allocate(row.size, 0);
        EXPECT_EQ(row.wantedData, dataSize(head(*stack)));
        EXPECT_EQ(2U, blockCount(*stack));
        EXPECT_LE(address(dataOf(head(*stack))), address(piece));
    }
}

TEST(MemStackAllocate, NeverTriesAnOlderBlockAgain) {
    const StackPtr stack = makeStack(1000);
    TovMemStackBlock *first = head(*stack);
    const std::uint32_t idle = first->m_avail;
    (void)stack->allocate(2000, 0);
    TovMemStackBlock *large = head(*stack);
    ASSERT_EQ(first, large->m_next);
    (void)stack->allocate(3, 1);
    EXPECT_EQ(large, head(*stack)) << "what follows goes to the large block while it has room";
    (void)stack->allocate(100, 0);
    EXPECT_EQ(1000U, dataSize(head(*stack))) << "and then to one of the usual size";
    EXPECT_EQ(large, head(*stack)->m_next);
    EXPECT_EQ(idle, first->m_avail);
}

TEST(MemStackCreate, PutsTheStackIntoItsOwnFirstBlock) {
    const struct {
        std::size_t size;
        std::uint32_t wanted;
    } rows[] = {{0, 4000}, {1, 16}, {15, 16}, {16, 16}, {17, 17}, {100000, 100000}};
    for (const auto &row : rows) {
        SCOPED_TRACE(row.size);
        const StackPtr stack = makeStack(row.size);
        EXPECT_EQ(static_cast<void *>(dataOf(head(*stack))), stack.get());
        EXPECT_EQ(row.wanted, dataSize(head(*stack)));
        EXPECT_EQ(row.wanted - sizeof(TovMemStack), head(*stack)->m_avail);
        EXPECT_EQ(row.wanted, blockSize(*stack));
        EXPECT_EQ(nullptr, head(*stack)->m_next);
    }
}

TEST(MemStackConstructor, MakesNoBlockBeforeTheFirstPiece) {
    const struct {
        std::size_t size;
        std::uint32_t wanted, wantedData;
    } rows[] = {{0, 4000, 4000}, {1, 1, 10}, {300, 300, 300}};
    for (const auto &row : rows) {
        SCOPED_TRACE(row.size);
        TovMemStack stack(row.size);
        EXPECT_EQ(row.wanted, blockSize(stack));
        EXPECT_EQ(nullptr, head(stack));
        (void)stack.allocate(2, 1);
        EXPECT_EQ(row.wantedData, dataSize(head(stack)));
    }
}

TEST(MemStackConstructor, TakesOverABlockAsItIs) {
    const long before = liveAllocations();
    {
        void *storage = ::operator new(sizeof(TovMemStackBlock) + 64);
        auto *block = ::new (storage) TovMemStackBlock(64, nullptr);
        TovMemStack stack(0, block);
        EXPECT_EQ(0U, blockSize(stack));
        EXPECT_EQ(static_cast<void *>(dataOf(block)), stack.allocate(63, 1));
    }
    EXPECT_EQ(before, liveAllocations());
}

TEST(MemStackEnd, FreesAllBlocks) {
    const long before = liveAllocations();
    {
        const StackPtr inside = makeStack(32);
        TovMemStack outside(32);
        for (int i = 0; i < 100; ++i) {
            (void)inside->allocate(20, 0);
            (void)outside.allocate(20, 0);
        }
        EXPECT_EQ(before + 201, liveAllocations());
    }
    EXPECT_EQ(before, liveAllocations());
}

TEST(MemStackEnd, NeedsNoCallStackForAChainOfBlocks) {
    const long before = liveAllocations();
    StackPtr stack = makeStack(16);
    for (int i = 0; i < 300000; ++i)
        (void)stack->allocate(15, 0);
    stack.reset();
    EXPECT_EQ(before, liveAllocations());
}

TEST(MemStackLimits, RefusesWhatDoesNotFitABlock) {
    // Each would wrap somewhere: with its padding, with 8 more, with the header, or cut to 32 bits.
    const std::size_t tooLarge[] = {SIZE_MAX,
                                    SIZE_MAX - 7,
                                    SIZE_MAX - 8,
                                    SIZE_MAX - sizeof(TovMemStackBlock),
                                    UINT32_MAX,
                                    std::size_t{TovMemStack::c_maxSize} + 1,
                                    std::size_t{1} << (c_wide ? 32 : 31)};
    for (std::size_t size : tooLarge) {
        if (size <= TovMemStack::c_maxSize)
            continue;
        SCOPED_TRACE(size);
        const StackPtr stack = makeStack(0);
        (void)stack->allocate(1, 1);
        const std::uint32_t avail = head(*stack)->m_avail;
        for (std::size_t alignment : {0U, 1U})
            EXPECT_THROW((void)stack->allocate(size, alignment), std::bad_alloc);
        EXPECT_EQ(avail, head(*stack)->m_avail);
        EXPECT_EQ(1U, blockCount(*stack));
        EXPECT_THROW((void)TovMemStack::create(size), std::bad_alloc);
        EXPECT_THROW(TovMemStack{size}, std::bad_alloc);
        EXPECT_THROW((TovMemStack{size, nullptr}), std::bad_alloc);
    }
}

TEST(MemStackModel, PiecesKeepTheirContent) {
    auto random = tovtest::generator();
    for (int round = 0; round < 20; ++round) {
        const StackPtr stack = makeStack(below(random, 300));
        struct Piece {
            unsigned char *bytes;
            std::size_t size;
            unsigned char fill;
        };
        std::vector<Piece> pieces;
        for (int i = 0; i < 1000; ++i) {
            const std::size_t size = below(random, 8) == 0 ? below(random, 1000) : below(random, 40);
            auto *bytes = static_cast<unsigned char *>(stack->allocate(size, below(random, 100)));
            pieces.push_back({bytes, size, static_cast<unsigned char>(random())});
            std::memset(bytes, pieces.back().fill, size);
        }
        for (const Piece &piece : pieces)
            for (std::size_t i = 0; i < piece.size; ++i)
                ASSERT_EQ(piece.fill, piece.bytes[i]);
    }
}

TEST(OutOfMemory, MemStackCreate) {
    failEachAllocation<std::bad_alloc>(
        liveAllocations, [](long) { makeStack(100); },
        [](long before) { EXPECT_EQ(before, liveAllocations()); });
}

TEST(OutOfMemory, MemStackAllocate) {
    const long before = liveAllocations();
    failEachAllocation<std::bad_alloc>(
        [] { return makeStack(100); }, [](StackPtr &stack) { (void)stack->allocate(200, 0); },
        [](StackPtr &stack) {
            EXPECT_EQ(1U, blockCount(*stack));
            EXPECT_NE(nullptr, stack->allocate(10, 0)) << "what the newest block has is still there";
            EXPECT_EQ(1U, blockCount(*stack));
        });
    EXPECT_EQ(before, liveAllocations());
}

#ifdef TOV_ADDRESS_SANITIZER

TEST(MemStackPoison, CoversAllThatHasNotBeenHandedOut) {
    const StackPtr stack = makeStack(1000);
    auto *piece = static_cast<volatile char *>(stack->allocate(13, 0));
    piece[12] = 1;
    EXPECT_DEATH(piece[13] = 1, "use-after-poison") << "right behind a piece";
    EXPECT_DEATH(piece[500] = 1, "use-after-poison") << "the rest of the block";
}

#endif

} // namespace

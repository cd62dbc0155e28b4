/// An arena: hands out pieces of a chain of large blocks and releases all of them at once.
///
/// Ownership  Every piece belongs to the stack and dies with it; none is given back alone, and no
///            destructor of what a caller has built in a piece is run.
/// Units      Sizes are bytes. An alignment is a class, not a boundary, and only its low three bits count: 0
///            asks for 8 bytes, 4 for 4, 2 and 6 for 2, an odd value for none; so 64 asks for 8 bytes, and 12
///            for 4. Who places an object passes its size, who wants raw storage passes 0.
/// Errors     std::bad_alloc when a block can't be had, and for a size above c_maxSize. The stack and its
///            pieces stay as they were.
/// Threads    One thread at a time, or the caller locks. ms_shift may be read from any.
/// Cost       A table look-up, a compare, two additions, inline; a new block when the newest is used up.
///            Per block two pointers and a word, per piece only its padding.
#pragma once

#include <tovutil/tovexport.h>
#include <tovutil/tovpoison.h>

#include <bit>
#include <cstddef>
#include <cstdint>

/// Header of one block; its data area follows in the same allocation of the global operator new.
struct TOV_EXPORT TovMemStackBlock {
    std::uint32_t m_avail;    ///< bytes still free in the data area
    char *m_current;          ///< the next free byte
    TovMemStackBlock *m_next; ///< the next older block; null for the oldest

    /// Takes the `dataSize` bytes behind the header as the data area.
    TovMemStackBlock(std::uint32_t dataSize, TovMemStackBlock *next);

    /// Frees all older blocks. The block's own storage is the caller's.
    ~TovMemStackBlock();

    TovMemStackBlock(const TovMemStackBlock &) = delete;
    TovMemStackBlock &operator=(const TovMemStackBlock &) = delete;
};

class TOV_EXPORT TovMemStack {
public:
    enum : std::uint32_t {
        c_defaultBlockSize = 4000,
        c_minFirstSize = 16,
        c_maxSize = 0xFFFFFF00U, ///< of a piece and of a block; what is larger would not fit a block's fields
    };

    /// Pad bytes that bring an address to the boundary of an alignment class, by the low three bits of the
    /// alignment and those of the address.
    static const std::uint32_t ms_shift[8][8];

    /// Makes a stack inside its own first block: end it with destroy(), never with delete. `size`, of which
    /// the stack takes its own share, is that of all blocks; 0 means 4000, and less than 16 means 16.
    [[nodiscard]] static TovMemStack *create(std::size_t size);

    /// Ends a stack of create(), which is gone afterwards.
    void destroy();

    /// A stack with storage of its own, and without a block until the first piece. `size` 0 means 4000.
    explicit TovMemStack(std::size_t size);

    /// Takes over `block`, which is freed with the global operator delete.
    TovMemStack(std::size_t size, TovMemStackBlock *block);

    ~TovMemStack();

    TovMemStack(const TovMemStack &) = delete;
    TovMemStack &operator=(const TovMemStack &) = delete;

    /// Gives a piece of `size` bytes, never null. A block is never filled to its last byte, and what is left
    /// in a block when a new one is made lies idle. Two pieces of 0 bytes may have the same address.
    [[nodiscard]] void *allocate(std::size_t size, std::size_t alignment) {
        if (TovMemStackBlock *block = m_head) [[likely]] {
            char *piece = aligned(block->m_current, alignment);
            const auto pad = static_cast<std::size_t>(piece - block->m_current);
            std::size_t step;
            if (!__builtin_add_overflow(size, pad, &step) && step < block->m_avail) [[likely]] {
                block->m_avail -= static_cast<std::uint32_t>(step);
                block->m_current = piece + size;
                fetchAhead(block->m_current);
                tovdetail::unpoison(piece, size);
                return piece;
            }
        }
        return allocateInNewBlock(size, alignment);
    }

private:
    friend class TovFastHeap; // its first block is larger than the later ones

    // The rows of ms_shift as the masks of their boundaries: nothing to load where the alignment is a
    // constant, and two steps from the address, which the next piece waits for.
    static char *aligned(const char *address, std::size_t alignment) {
        const std::size_t mask = 0x01030107U >> (alignment & 7) * 4 & 7;
        return std::bit_cast<char *>((reinterpret_cast<std::uintptr_t>(address) + mask) & ~mask);
    }

    // Pieces are written one behind the other, and the stores of small ones alone do not run far enough ahead
    // of themselves to hide how long a line takes to come.
    static void fetchAhead(const char *current) {
        __builtin_prefetch(std::bit_cast<const char *>(reinterpret_cast<std::uintptr_t>(current) + 256), 1);
    }

    void *allocateInNewBlock(std::size_t size, std::size_t alignment);

    std::uint32_t m_blockSize;
    TovMemStackBlock *m_head; // newest first; only the newest is allocated from
};

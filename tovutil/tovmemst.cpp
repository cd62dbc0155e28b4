// The arena's blocks: how they are made and how all of them go.
#include <tovutil/tovmemst.h>

#include <algorithm>
#include <new>
#include <utility>

namespace {

std::uint32_t checkedSize(std::size_t size) {
    if (size > TovMemStack::c_maxSize)
        throw std::bad_alloc();
    return static_cast<std::uint32_t>(size);
}

std::uint32_t sizeOrDefault(std::size_t size) {
    return size != 0 ? checkedSize(size) : std::uint32_t{TovMemStack::c_defaultBlockSize};
}

TovMemStackBlock *makeBlock(std::uint32_t dataSize, TovMemStackBlock *next) {
    void *storage = ::operator new(sizeof(TovMemStackBlock) + dataSize);
    return ::new (storage) TovMemStackBlock(dataSize, next);
}

// Newest first, because the newest is likely to lie at the end of what the general allocator has in use, and
// is cheap to take back there. One by one: a destructor that calls the next one's would need as much call
// stack as there are blocks.
void freeBlocks(TovMemStackBlock *newest) {
    while (TovMemStackBlock *block = newest) {
        newest = std::exchange(block->m_next, nullptr);
        block->~TovMemStackBlock();
        ::operator delete(block);
    }
}

} // namespace

// Not constexpr: that would make it an inline variable, which the loader keeps unique in the process, and a
// library that defines such a variable is never unloaded.
constinit const std::uint32_t TovMemStack::ms_shift[8][8] = {
    {0, 7, 6, 5, 4, 3, 2, 1}, {}, {0, 1, 0, 1, 0, 1, 0, 1}, {},
    {0, 3, 2, 1, 0, 3, 2, 1}, {}, {0, 1, 0, 1, 0, 1, 0, 1}, {}};

TovMemStackBlock::TovMemStackBlock(std::uint32_t dataSize, TovMemStackBlock *next)
    : m_avail(dataSize), m_current(reinterpret_cast<char *>(this + 1)), m_next(next) {
    tovdetail::poison(m_current, dataSize);
}

TovMemStackBlock::~TovMemStackBlock() {
    freeBlocks(std::exchange(m_next, nullptr));
    const char *data = reinterpret_cast<const char *>(this + 1);
    tovdetail::unpoison(data, static_cast<std::size_t>(m_current + m_avail - data));
}

TovMemStack *TovMemStack::create(std::size_t size) {
    const std::uint32_t dataSize = std::max<std::uint32_t>(sizeOrDefault(size), c_minFirstSize);
    TovMemStackBlock *block = makeBlock(dataSize, nullptr);
    char *storage = block->m_current;
    tovdetail::unpoison(storage, sizeof(TovMemStack));
    block->m_avail -= static_cast<std::uint32_t>(sizeof(TovMemStack));
    block->m_current += sizeof(TovMemStack);
    return ::new (storage) TovMemStack(dataSize, block);
}

static_assert(sizeof(TovMemStack) <= TovMemStack::c_minFirstSize, "the smallest first block holds the stack");
static_assert(sizeof(TovMemStackBlock) % alignof(TovMemStack) == 0, "and at a boundary that suits it");

void TovMemStack::destroy() {
    TovMemStackBlock *blocks = std::exchange(m_head, nullptr);
    this->~TovMemStack(); // before its storage goes with the oldest block
    freeBlocks(blocks);
}

TovMemStack::TovMemStack(std::size_t size) : m_blockSize(sizeOrDefault(size)), m_head(nullptr) {}

TovMemStack::TovMemStack(std::size_t size, TovMemStackBlock *block)
    : m_blockSize(checkedSize(size)), m_head(block) {}

TovMemStack::~TovMemStack() { freeBlocks(m_head); }

void *TovMemStack::allocateInNewBlock(std::size_t size, std::size_t alignment) {
    // 8 more than asked for, so that the piece fits whatever its padding is.
    const std::uint32_t dataSize = std::max(checkedSize(size) + 8, m_blockSize);
    m_head = makeBlock(dataSize, m_head);
    return allocate(size, alignment);
}

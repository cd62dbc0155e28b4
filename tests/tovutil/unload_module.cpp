// Uses the library from a shared object that a test loads and unloads.
#include <tovutil/tovexport.h>
#include <tovutil/tovfheap.h>

/// Makes a heap and takes `size` bytes of its arena; with a heap that is off, of the one of the process.
extern "C" TOV_EXPORT void takeFromHeap(std::size_t size) {
    *static_cast<char *>(TovFastHeap::create(0)->getMemStack().allocate(size, 0)) = 1;
}

// Wrong uses of a heap, for a memory checker to find: one by name.
#include <tovutil/tovfheap.h>

#include <cstdio>
#include <cstring>

namespace {

volatile char s_sink;

void useAfterFree(TovFastHeap &heap) {
    auto *object = static_cast<volatile char *>(heap.allocate(24));
    object[3] = 1;
    TovFastHeap::deallocate(const_cast<char *>(object));
    s_sink = object[3];
}

void overrun(TovFastHeap &heap) { static_cast<volatile char *>(heap.allocate(20))[20] = 1; }

void underrun(TovFastHeap &heap) { static_cast<volatile char *>(heap.allocate(20))[-1] = 1; }

void undefined(TovFastHeap &heap) {
    auto *stale = static_cast<char *>(heap.allocate(24));
    std::memset(stale, 1, 24);
    TovFastHeap::deallocate(stale);
    if (static_cast<volatile char *>(heap.allocate(24))[20])
        s_sink = 1;
}

void leak(TovFastHeap &heap) { *static_cast<volatile char *>(heap.allocate(24)) = 1; }

constexpr struct {
    const char *name;
    void (*run)(TovFastHeap &);
} c_misuses[] = {{"use-after-free", useAfterFree},
                 {"overrun", overrun},
                 {"underrun", underrun},
                 {"undefined", undefined},
                 {"leak", leak}};

} // namespace

int main(int argc, char **argv) {
    const auto heap = TovFastHeap::create(0);
    for (const auto &misuse : c_misuses)
        if (argc == 2 && std::strcmp(misuse.name, argv[1]) == 0)
            return misuse.run(*heap), 0;
    std::puts("which misuse?");
    return 2;
}

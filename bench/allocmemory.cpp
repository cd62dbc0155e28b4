// How much memory a small object takes in each allocator: objects of one size are taken and touched, and the
// growth of the resident set is divided among them. Each measurement has a process of its own. Prints a
// table.
#include "allocpeers.h"

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>

#include <sys/wait.h>
#include <unistd.h>

namespace {

using namespace tovbench;

constexpr std::size_t c_objects = 200000;
constexpr std::size_t c_mixed[] = {16, 24, 32, 48, 64, 96, 128, 192, 256, 384, 512};
constexpr std::size_t c_mix = 0;

std::size_t residentBytes() {
    std::size_t total = 0, resident = 0;
    std::ifstream("/proc/self/statm") >> total >> resident;
    return resident * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

std::size_t sizeOf(std::size_t i, std::size_t size) {
    return size != c_mix ? size : c_mixed[i % std::size(c_mixed)];
}

// Bytes beyond those asked for, per object.
template <class Peer>
double overhead(std::size_t size) {
    Peer peer;
    std::memset(peer.get(sizeOf(0, size)), 1, sizeOf(0, size)); // what the first object brings with it
    std::size_t asked = 0;
    const std::size_t before = residentBytes();
    for (std::size_t i = 0; i < c_objects; ++i) {
        const std::size_t bytes = sizeOf(i, size);
        std::memset(peer.get(bytes), 1, bytes);
        asked += bytes;
    }
    const double grown = static_cast<double>(residentBytes() - before);
    return (grown - static_cast<double>(asked)) / c_objects;
}

void inChild(double (*measure)(std::size_t), std::size_t size) {
    std::fflush(stdout);
    if (fork() == 0) {
        std::printf(" %.1f |", measure(size));
        std::fflush(stdout);
        _exit(0);
    }
    wait(nullptr);
}

template <class Peer>
void row(const char *name) {
    if (!Peer::usable())
        return;
    std::printf("| %s |", name);
    for (const std::size_t size : {std::size_t{16}, std::size_t{24}, std::size_t{56}, std::size_t{64},
                                   std::size_t{100}, std::size_t{504}, c_mix})
        inChild(overhead<Peer>, size);
    std::puts("");
}

} // namespace

int main() {
    std::puts("| | 16 | 24 | 56 | 64 | 100 | 504 | mixed, 16 to 512 |\n|---|---|---|---|---|---|---|---|");
    row<Tovutil>("TovFastHeap");
    row<Glibc>("glibc malloc");
    row<Mimalloc>("mimalloc");
    row<Jemalloc>("jemalloc");
    row<PmrPool>("pmr pool");
#ifdef TOV_BENCH_GLIB
    row<GSlice>("GLib slice");
#endif
}

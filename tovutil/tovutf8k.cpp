// The table of kernels, the choice among them, and the portable one.
#include <tovutil/tovutf8k.h>

#include <atomic>
#include <cstring>

namespace tovdetail {

namespace {

// ASCII by machine words. A word is looked at before anything is written, so that no place behind the
// result is touched.
template <class S, class D>
void copyAscii(UtfRun<S, D> &run) noexcept {
    constexpr std::size_t block = sizeof(std::uint64_t) / sizeof(S);
    constexpr std::uint64_t plain = sizeof(S) == 1 ? 0x7F7F7F7F7F7F7F7F : 0x007F007F007F007F;
    while (run.left() >= block && run.room() >= block) {
        std::uint64_t word;
        std::memcpy(&word, run.source, sizeof word);
        if ((word & ~plain) != 0)
            return;
        for (std::size_t i = 0; i < block; ++i)
            run.target[i] = static_cast<D>(run.source[i]);
        run.source += block;
        run.target += block;
    }
}

void utf8To16Portable(Utf8To16 &run) noexcept { copyAscii(run); }
void utf16To8Portable(Utf16To8 &run) noexcept { copyAscii(run); }

constexpr UtfKernel s_kernels[] = {
#if defined(__x86_64__)
    {"avx512", utfAvx512Usable, utf8To16Avx512, utf16To8Avx512},
    {"avx2", utfAvx2Usable, utf8To16Avx2, utf16To8Avx2},
    {"sse4.2", utfSse42Usable, utf8To16Sse42, utf16To8Sse42},
#endif
    {"portable", []() noexcept { return true; }, utf8To16Portable, utf16To8Portable},
};

void chooseTo16(Utf8To16 &run) noexcept;
void chooseTo8(Utf16To8 &run) noexcept;

// They start as the choosers, so that loading the library runs no code; the first call replaces them.
// Racing threads store the same values.
constinit std::atomic<void (*)(Utf8To16 &) noexcept> s_to16{chooseTo16};
constinit std::atomic<void (*)(Utf16To8 &) noexcept> s_to8{chooseTo8};

void choose() noexcept {
    const UtfKernel *best = s_kernels;
    while (!best->usable())
        ++best;
    s_to16.store(best->to16, std::memory_order_relaxed);
    s_to8.store(best->to8, std::memory_order_relaxed);
}

void chooseTo16(Utf8To16 &run) noexcept {
    choose();
    utf8To16Blocks(run);
}

void chooseTo8(Utf16To8 &run) noexcept {
    choose();
    utf16To8Blocks(run);
}

} // namespace

std::span<const UtfKernel> utfKernels() noexcept { return s_kernels; }

void utf8To16Blocks(Utf8To16 &run) noexcept { s_to16.load(std::memory_order_relaxed)(run); }

void utf16To8Blocks(Utf16To8 &run) noexcept { s_to8.load(std::memory_order_relaxed)(run); }

} // namespace tovdetail

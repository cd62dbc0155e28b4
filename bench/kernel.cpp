// Each kernel of UTF-8 and UTF-16 by itself, beside those of simdutf for the same instructions.
#include "bench.h"

#include <tovutil/tovutf8k.h>

#include <cstring>

#ifdef TOV_BENCH_SIMDUTF
#include <simdutf.h>
#endif

namespace tovbench {

namespace {

constexpr std::size_t c_sizes[] = {1 << 10, 64 << 10};
constexpr std::size_t c_room = 3 * (64 << 10) + 64; // units or bytes, for the worst case

template <class Unit>
Unit *out() {
    static auto *const area = static_cast<Unit *>(targetArea(c_room * sizeof(Unit)));
    return area;
}

// `convert(from, to)` gives the number of units written.
template <class From, class To, class Convert>
void add(const std::string &group, const std::string &name, Kind kind, std::size_t size,
         std::basic_string_view<From> Text::*from, std::basic_string_view<To> Text::*to, Convert convert) {
    preparedJob(
        group + name,
        [=](benchmark::State &state) {
            const Text &source = text(kind, size);
            std::memset(out<To>(), 0xEE, c_room * sizeof(To));
            const std::size_t count = convert(source.*from, out<To>());
            require(state, std::basic_string_view<To>(out<To>(), count) == source.*to);
            return [&source, from, convert] { benchmark::DoNotOptimize(convert(source.*from, out<To>())); };
        },
        size);
}

void registerTo16(Kind kind, std::size_t size) {
    const std::string group = std::string("kernel/8to16/") + kindName(kind) + "/" + sizeName(size) + "/";
    const auto entry = [&](const std::string &name, auto convert) {
        add(group, name, kind, size, &Text::utf8, &Text::utf16, convert);
    };
    copyLimit(group, kind, size, out<char16_t>());
    for (const auto &kernel : tovdetail::utfKernels())
        if (kernel.usable())
            entry(std::string("tovutil:") + kernel.name, [&kernel](std::string_view from, char16_t *to) {
                const auto *source = reinterpret_cast<const unsigned char *>(from.data());
                tovdetail::Utf8To16 run{source, source + from.size(), to, to + c_room};
                tovdetail::utf8To16By(kernel.to16, run);
                return static_cast<std::size_t>(run.target - to);
            });
#ifdef TOV_BENCH_SIMDUTF
    for (const simdutf::implementation *kernel : simdutf::get_available_implementations())
        if (kernel->supported_by_runtime_system())
            entry("simdutf-" + std::string(kernel->name()), [kernel](std::string_view from, char16_t *to) {
                return kernel->convert_utf8_to_utf16le(from.data(), from.size(), to);
            });
#endif
}

void registerTo8(Kind kind, std::size_t size) {
    const std::string group = std::string("kernel/16to8/") + kindName(kind) + "/" + sizeName(size) + "/";
    const auto entry = [&](const std::string &name, auto convert) {
        add(group, name, kind, size, &Text::utf16, &Text::utf8, convert);
    };
    copyLimit(group, kind, size, out<char>());
    for (const auto &kernel : tovdetail::utfKernels())
        if (kernel.usable())
            entry(std::string("tovutil:") + kernel.name, [&kernel](std::u16string_view from, char *to) {
                auto *const begin = reinterpret_cast<unsigned char *>(to);
                tovdetail::Utf16To8 run{from.data(), from.data() + from.size(), begin, begin + c_room};
                tovdetail::utf16To8By(kernel.to8, run);
                return static_cast<std::size_t>(run.target - begin);
            });
#ifdef TOV_BENCH_SIMDUTF
    for (const simdutf::implementation *kernel : simdutf::get_available_implementations())
        if (kernel->supported_by_runtime_system())
            entry("simdutf-" + std::string(kernel->name()), [kernel](std::u16string_view from, char *to) {
                return kernel->convert_utf16le_to_utf8(from.data(), from.size(), to);
            });
#endif
}

} // namespace

void registerTopic() {
    for (const Kind kind : allKinds)
        for (const std::size_t size : c_sizes) {
            registerTo16(kind, size);
            registerTo8(kind, size);
        }
}

} // namespace tovbench

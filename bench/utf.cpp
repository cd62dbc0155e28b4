// UTF-8 and UTF-16: into a given buffer, into a fresh string, and with ill-formed places.
#include "bench.h"

#include <tovutil/tovutf8.h>

#include <algorithm>
#include <codecvt>
#include <cstring>
#include <iterator>
#include <locale>
#include <memory>

#include <iconv.h>
#include <unicode/unistr.h>
#include <unicode/ustring.h>
#ifdef TOV_BENCH_QT
#include <QString>
#endif
#ifdef TOV_BENCH_BOOST
#include <boost/locale/encoding_utf.hpp>
#endif
#ifdef TOV_BENCH_GLIB
#include <glib.h>
#endif
#ifdef TOV_BENCH_SIMDUTF
#include <simdutf.h>
#endif

namespace tovbench {

namespace {

using Codecvt = std::codecvt_utf8_utf16<char16_t>;

constexpr std::size_t c_bufferSizes[] = {32, 64, 1 << 10, 64 << 10, 1 << 20, 8 << 20};
constexpr std::size_t c_stringSizes[] = {32, 64, 1 << 10, 64 << 10, 1 << 20};
constexpr std::size_t c_illFormedSizes[] = {1 << 10, 64 << 10};

// Room for the worst case of the largest text.
constexpr std::size_t c_room16 = (8 << 20) + 64;
constexpr std::size_t c_room8 = (24 << 20) + 64;

char16_t *out16() {
    static auto *const area = static_cast<char16_t *>(targetArea(2 * c_room16));
    return area;
}
char *out8() {
    static auto *const area = static_cast<char *>(targetArea(c_room8));
    return area;
}

// One text, and the group of all who convert it.
struct Group {
    Group(const char *what, Kind textKind, std::size_t textSize)
        : name(std::string("utf/") + what + "/" + kindName(textKind) + "/" + sizeName(textSize) + "/"),
          kind(textKind), size(textSize) {}

    const Text &source() const { return text(kind, size); }

    std::string name;
    Kind kind;
    std::size_t size;
};

// What was there before must not pass for a result.
void spoilTargets(std::size_t bytes) {
    std::memset(out16(), 0xEE, 2 * bytes);
    std::memset(out8(), 0xEE, 3 * bytes);
}

// The converters ------------------------------------------------------------------------------------

// Each gives the number of units or bytes that it wrote to out16() or out8(). Lambdas, so that every loop has
// its own converter inline.

constexpr auto tovTo16 = [](std::string_view utf8) {
    auto *source = reinterpret_cast<const unsigned char *>(utf8.data());
    char16_t *target = out16();
    ConvertUTF8toUTF16(&source, source + utf8.size(), &target, target + c_room16);
    return static_cast<std::size_t>(target - out16());
};

constexpr auto tovTo8 = [](std::u16string_view utf16) {
    const char16_t *source = utf16.data();
    auto *const begin = reinterpret_cast<unsigned char *>(out8());
    unsigned char *target = begin;
    ConvertUTF16toUTF8(&source, source + utf16.size(), &target, begin + c_room8);
    return static_cast<std::size_t>(target - begin);
};

constexpr auto icuTo16 = [](std::string_view utf8) {
    UErrorCode error = U_ZERO_ERROR;
    std::int32_t count = 0;
    u_strFromUTF8(out16(), c_room16, &count, utf8.data(), static_cast<std::int32_t>(utf8.size()), &error);
    return static_cast<std::size_t>(count);
};

constexpr auto icuTo8 = [](std::u16string_view utf16) {
    UErrorCode error = U_ZERO_ERROR;
    std::int32_t count = 0;
    u_strToUTF8(out8(), c_room8, &count, utf16.data(), static_cast<std::int32_t>(utf16.size()), &error);
    return static_cast<std::size_t>(count);
};

// ICU with U+FFFD in the place of what is ill-formed.
constexpr auto icuSubstTo16 = [](std::string_view utf8) {
    UErrorCode error = U_ZERO_ERROR;
    std::int32_t count = 0;
    u_strFromUTF8WithSub(out16(), c_room16, &count, utf8.data(), static_cast<std::int32_t>(utf8.size()),
                         0xFFFD, nullptr, &error);
    return static_cast<std::size_t>(count);
};

constexpr auto icuSubstTo8 = [](std::u16string_view utf16) {
    UErrorCode error = U_ZERO_ERROR;
    std::int32_t count = 0;
    u_strToUTF8WithSub(out8(), c_room8, &count, utf16.data(), static_cast<std::int32_t>(utf16.size()), 0xFFFD,
                       nullptr, &error);
    return static_cast<std::size_t>(count);
};

// The bytes written.
std::size_t iconvRun(iconv_t descriptor, const void *source, std::size_t sourceBytes, void *target,
                     std::size_t targetBytes) {
    char *in = const_cast<char *>(static_cast<const char *>(source));
    char *out = static_cast<char *>(target);
    std::size_t left = targetBytes;
    iconv(descriptor, &in, &sourceBytes, &out, &left);
    return targetBytes - left;
}

constexpr auto iconvTo16 = [](std::string_view utf8) {
    static auto *const descriptor = iconv_open("UTF-16LE", "UTF-8");
    return iconvRun(descriptor, utf8.data(), utf8.size(), out16(), 2 * c_room16) / 2;
};

constexpr auto iconvTo8 = [](std::u16string_view utf16) {
    static auto *const descriptor = iconv_open("UTF-8", "UTF-16LE");
    return iconvRun(descriptor, utf16.data(), 2 * utf16.size(), out8(), c_room8);
};

constexpr auto codecvtTo16 = [](std::string_view utf8) {
    static const Codecvt codecvt(1);
    std::mbstate_t state{};
    const char *from = nullptr;
    char16_t *to = nullptr;
    codecvt.in(state, utf8.data(), utf8.data() + utf8.size(), from, out16(), out16() + c_room16, to);
    return static_cast<std::size_t>(to - out16());
};

constexpr auto codecvtTo8 = [](std::u16string_view utf16) {
    static const Codecvt codecvt(1);
    std::mbstate_t state{};
    const char16_t *from = nullptr;
    char *to = nullptr;
    codecvt.out(state, utf16.data(), utf16.data() + utf16.size(), from, out8(), out8() + c_room8, to);
    return static_cast<std::size_t>(to - out8());
};

// Into a given buffer -------------------------------------------------------------------------------

template <class Convert>
void to16(const Group &group, const char *peer, Convert convert) {
    preparedJob(
        group.name + peer,
        [=](benchmark::State &state) {
            const Text &source = group.source();
            spoilTargets(group.size);
            require(state, std::u16string_view(out16(), convert(source.utf8)) == source.utf16);
            return [&source, convert] { benchmark::DoNotOptimize(convert(source.utf8)); };
        },
        group.size);
}

template <class Convert>
void to8(const Group &group, const char *peer, Convert convert) {
    preparedJob(
        group.name + peer,
        [=](benchmark::State &state) {
            const Text &source = group.source();
            spoilTargets(group.size);
            require(state, std::string_view(out8(), convert(source.utf16)) == source.utf8);
            return [&source, convert] { benchmark::DoNotOptimize(convert(source.utf16)); };
        },
        group.size);
}

void registerTo16(Kind kind, std::size_t size) {
    const Group group("8to16", kind, size);
    copyLimit(group.name, kind, size, out16());
    to16(group, "tovutil", tovTo16);
#ifdef TOV_BENCH_SIMDUTF
    to16(group, "simdutf", [](std::string_view utf8) {
        return simdutf::convert_utf8_to_utf16(utf8.data(), utf8.size(), out16());
    });
    to16(group, "simdutf-valid", [](std::string_view utf8) {
        return simdutf::convert_valid_utf8_to_utf16(utf8.data(), utf8.size(), out16());
    });
#endif
    to16(group, "icu", icuTo16);
    to16(group, "iconv", iconvTo16);
    to16(group, "codecvt", codecvtTo16);
}

void registerTo8(Kind kind, std::size_t size) {
    const Group group("16to8", kind, size);
    copyLimit(group.name, kind, size, out8());
    to8(group, "tovutil", tovTo8);
#ifdef TOV_BENCH_SIMDUTF
    to8(group, "simdutf", [](std::u16string_view utf16) {
        return simdutf::convert_utf16_to_utf8(utf16.data(), utf16.size(), out8());
    });
    to8(group, "simdutf-valid", [](std::u16string_view utf16) {
        return simdutf::convert_valid_utf16_to_utf8(utf16.data(), utf16.size(), out8());
    });
#endif
    to8(group, "icu", icuTo8);
    to8(group, "iconv", iconvTo8);
    to8(group, "codecvt", codecvtTo8);
}

// Into a fresh string -------------------------------------------------------------------------------

// The text of what the peers make.
template <class Unit, class Traits, class Allocator>
std::basic_string_view<Unit> contents(const std::basic_string<Unit, Traits, Allocator> &made) {
    return made;
}
std::u16string_view contents(const icu::UnicodeString &made) {
    return {made.getBuffer(), static_cast<std::size_t>(made.length())};
}
#ifdef TOV_BENCH_QT
std::u16string_view contents(const QString &made) {
    return {reinterpret_cast<const char16_t *>(made.utf16()), static_cast<std::size_t>(made.size())};
}
std::string_view contents(const QByteArray &made) {
    return {made.constData(), static_cast<std::size_t>(made.size())};
}
#endif
#ifdef TOV_BENCH_GLIB
template <class Unit>
using GlibText = std::unique_ptr<Unit, void (*)(void *)>;
std::u16string_view contents(const GlibText<gunichar2> &made) {
    return reinterpret_cast<const char16_t *>(made.get());
}
std::string_view contents(const GlibText<char> &made) { return made.get(); }
#endif

// `make(source)` gives an object whose contents() are `wanted(source)`.
template <class Wanted, class Make>
void fresh(const Group &group, const char *peer, Wanted wanted, Make make) {
    preparedJob(
        group.name + peer,
        [=](benchmark::State &state) {
            const Text &source = group.source();
            require(state, contents(make(source)) == source.*wanted);
            return [&source, make] {
                auto made = make(source);
                benchmark::DoNotOptimize(made);
            };
        },
        group.size);
}

void registerFresh16(Kind kind, std::size_t size) {
    const Group group("8to16str", kind, size);
    const auto add = [&](const char *peer, auto make) { fresh(group, peer, &Text::utf16, make); };

    // One allocation of the exact size and a copy of the finished text.
    add("limit:copy", [](const Text &source) { return std::u16string(source.utf16); });
    add("tovutil", [](const Text &source) {
        TovUString target;
        tovUtf8ToUtf16(source.utf8.data(), static_cast<std::uint32_t>(source.utf8.size()), target);
        return target;
    });
#ifdef TOV_BENCH_SIMDUTF
    add("simdutf-count", [](const Text &source) {
        const auto [data, count] = std::pair(source.utf8.data(), source.utf8.size());
        std::u16string target(simdutf::utf16_length_from_utf8(data, count), u'\0');
        target.resize(simdutf::convert_utf8_to_utf16(data, count, target.data()));
        return target;
    });
    add("simdutf-worst", [](const Text &source) {
        std::u16string target(source.utf8.size(), u'\0');
        target.resize(simdutf::convert_utf8_to_utf16(source.utf8.data(), source.utf8.size(), target.data()));
        return target;
    });
#endif
    add("icu", [](const Text &source) { return icu::UnicodeString::fromUTF8(source.utf8); });
#ifdef TOV_BENCH_QT
    add("qt", [](const Text &source) {
        return QString::fromUtf8(source.utf8.data(), static_cast<int>(source.utf8.size()));
    });
#endif
#ifdef TOV_BENCH_BOOST
    add("boost-locale", [](const Text &source) {
        return boost::locale::conv::utf_to_utf<char16_t>(source.utf8.data(),
                                                         source.utf8.data() + source.utf8.size());
    });
#endif
#ifdef TOV_BENCH_GLIB
    add("glib", [](const Text &source) {
        return GlibText<gunichar2>(g_utf8_to_utf16(source.utf8.data(), static_cast<glong>(source.utf8.size()),
                                                   nullptr, nullptr, nullptr),
                                   g_free);
    });
#endif
}

void registerFresh8(Kind kind, std::size_t size) {
    const Group group("16to8str", kind, size);
    const auto add = [&](const char *peer, auto make) { fresh(group, peer, &Text::utf8, make); };

    add("limit:copy", [](const Text &source) { return std::string(source.utf8); });
    add("tovutil", [](const Text &source) {
        TovString target;
        tovUtf16ToUtf8(source.utf16.data(), static_cast<std::uint32_t>(source.utf16.size()), target);
        return target;
    });
#ifdef TOV_BENCH_SIMDUTF
    add("simdutf-count", [](const Text &source) {
        const auto [data, count] = std::pair(source.utf16.data(), source.utf16.size());
        std::string target(simdutf::utf8_length_from_utf16(data, count), '\0');
        target.resize(simdutf::convert_utf16_to_utf8(data, count, target.data()));
        return target;
    });
    add("simdutf-worst", [](const Text &source) {
        std::string target(3 * source.utf16.size(), '\0');
        target.resize(
            simdutf::convert_utf16_to_utf8(source.utf16.data(), source.utf16.size(), target.data()));
        return target;
    });
#endif
    add("icu", [](const Text &source) {
        std::string target;
        icu::UnicodeString(false, source.utf16.data(), static_cast<std::int32_t>(source.utf16.size()))
            .toUTF8String(target);
        return target;
    });
#ifdef TOV_BENCH_QT
    add("qt", [](const Text &source) {
        return QStringView(source.utf16.data(), static_cast<qsizetype>(source.utf16.size())).toUtf8();
    });
#endif
#ifdef TOV_BENCH_BOOST
    add("boost-locale", [](const Text &source) {
        return boost::locale::conv::utf_to_utf<char>(source.utf16.data(),
                                                     source.utf16.data() + source.utf16.size());
    });
#endif
#ifdef TOV_BENCH_GLIB
    add("glib", [](const Text &source) {
        return GlibText<char>(g_utf16_to_utf8(reinterpret_cast<const gunichar2 *>(source.utf16.data()),
                                              static_cast<glong>(source.utf16.size()), nullptr, nullptr,
                                              nullptr),
                              g_free);
    });
#endif
}

// One ill-formed place per KiB ----------------------------------------------------------------------

// `end`, or the next place behind it that is between two characters.
std::size_t characterEnd(std::string_view utf8, std::size_t end) {
    while (end < utf8.size() && (static_cast<unsigned char>(utf8[end]) & 0xC0) == 0x80)
        ++end;
    return std::min(end, utf8.size());
}

// A text with `bytes` and `units` behind each KiB.
Text withMarks(const Text &clean, std::string_view bytes, std::u16string_view units) {
    std::string utf8;
    std::u16string utf16;
    for (std::string_view rest = clean.utf8; !rest.empty();) {
        const std::string_view piece = rest.substr(0, characterEnd(rest, 1000));
        utf8.append(piece).append(bytes);
        const auto converted = icu::UnicodeString::fromUTF8(piece);
        utf16.append(converted.getBuffer(), static_cast<std::size_t>(converted.length())).append(units);
        rest.remove_prefix(piece.size());
    }
    return {placed<char>(utf8), placed<char16_t>(utf16)};
}

// A following byte in a lead's place: the library takes it as a character, ICU gives U+FFFD.
void registerIllFormed16(Kind kind, std::size_t size) {
    const Group group("8to16-ill", kind, size);
    copyLimit(group.name, kind, size, out16());
    const auto add = [&](const char *peer, std::u16string_view mark, auto convert) {
        preparedJob(
            group.name + peer,
            [=](benchmark::State &state) {
                const Text marked = withMarks(group.source(), "\x80", mark);
                spoilTargets(group.size);
                require(state, std::u16string_view(out16(), convert(marked.utf8)) == marked.utf16);
                return [marked, convert] { benchmark::DoNotOptimize(convert(marked.utf8)); };
            },
            group.size);
    };
    to16(group, "tovutil:clean", tovTo16);
    add("tovutil", u"\x80", tovTo16);
    add("icu-subst", u"\xFFFD", icuSubstTo16);
}

// A surrogate without its partner: the library writes it as three bytes, ICU gives U+FFFD.
void registerIllFormed8(Kind kind, std::size_t size) {
    static constexpr char16_t alone[] = {0xD800};
    const Group group("16to8-ill", kind, size);
    copyLimit(group.name, kind, size, out8());
    const auto add = [&](const char *peer, std::string_view mark, auto convert) {
        preparedJob(
            group.name + peer,
            [=](benchmark::State &state) {
                const Text marked = withMarks(group.source(), mark, {alone, 1});
                spoilTargets(group.size);
                require(state, std::string_view(out8(), convert(marked.utf16)) == marked.utf8);
                return [marked, convert] { benchmark::DoNotOptimize(convert(marked.utf16)); };
            },
            group.size);
    };
    to8(group, "tovutil:clean", tovTo8);
    add("tovutil", "\xED\xA0\x80", tovTo8);
    add("icu-subst", "\xEF\xBF\xBD", icuSubstTo8);
}

template <std::size_t count>
void registerSizes(const std::size_t (&sizes)[count], void (*add)(Kind kind, std::size_t size)) {
    for (const Kind kind : allKinds)
        for (const std::size_t size : sizes)
            add(kind, size);
}

} // namespace

void registerTopic() {
#ifdef TOV_BENCH_SIMDUTF
    benchmark::AddCustomContext("simdutf kernel", std::string(simdutf::get_active_implementation()->name()));
#endif
    registerSizes(c_bufferSizes, registerTo16);
    registerSizes(c_bufferSizes, registerTo8);
    registerSizes(c_stringSizes, registerFresh16);
    registerSizes(c_stringSizes, registerFresh8);
    registerSizes(c_illFormedSizes, registerIllFormed16);
    registerSizes(c_illFormedSizes, registerIllFormed8);
}

} // namespace tovbench

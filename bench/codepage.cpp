// Code page conversion: with a converter that is kept, with one opened per call, with flat tables.
#include "bench.h"

#include <tovdom/tovnls/tovnls.h>

#include <algorithm>
#include <bit>
#include <cstring>
#include <iterator>
#include <map>
#include <memory>
#include <utility>

#include <iconv.h>
#include <unicode/ucnv.h>
#include <unistd.h>
#ifdef TOV_BENCH_SIMDUTF
#include <simdutf.h>
#endif

namespace tovbench {

namespace {

struct Page {
    const char *label;
    const char16_t *name; // of the library
    const char *icu;
    const char *iconv;
    bool single; // one byte per character
    bool kana;   // its text has Hiragana, too
};
constexpr Page c_pages[] = {
    {"windows-1252", u"windows-1252", "windows-1252", "CP1252", true, false},
    {"ibm-37", u"ibm-37", "ibm-37", "IBM037", true, false},
    {"shift_jis", u"Shift_JIS", "Shift_JIS", "SHIFT_JIS", false, true},
    {"gb18030", u"GB18030", "gb18030", "GB18030", false, false},
};

constexpr std::size_t c_largest = 64 << 10;
constexpr std::size_t c_sizes[] = {32, 1 << 10, c_largest};

// Room for the worst case of the largest text.
constexpr std::size_t c_room16 = c_largest + 64;
constexpr std::size_t c_room8 = 4 * c_largest;

char16_t *out16() {
    static auto *const area = static_cast<char16_t *>(targetArea(2 * c_room16));
    return area;
}
char *out8() {
    static auto *const area = static_cast<char *>(targetArea(c_room8));
    return area;
}

// What was there before must not pass for a result.
void spoilTargets() {
    std::memset(out16(), 0xEE, 2 * c_room16);
    std::memset(out8(), 0xEE, c_room8);
}

// A value for each page, made at the first need and never freed.
template <class Value>
Value &perPage(const Page &page, Value (*make)(const Page &page)) {
    static std::map<const Page *, Value> values;
    const auto found = values.find(&page);
    return found != values.end() ? found->second : values.emplace(&page, make(page)).first->second;
}

// What conversions give: a view of the fixed area, or elements of their own.
template <class T>
struct Owned {
    std::unique_ptr<T[]> elements;
    std::int32_t count;
};
template <class T>
std::basic_string_view<T> contents(const Owned<T> &result) {
    return {result.elements.get(), static_cast<std::size_t>(std::max(result.count, 0))};
}
template <class T>
std::basic_string_view<T> contents(std::basic_string_view<T> result) {
    return result;
}

// The library ---------------------------------------------------------------------------------------

const TovNls *tovConverter(const Page &page) {
    using Kept = std::unique_ptr<const TovNls>;
    return perPage<Kept>(page, [](const Page &p) { return std::make_unique<const TovNls>(p.name); }).get();
}

template <class T>
Owned<T> taken(const TovAutoBuffer<T> &handle) {
    return {std::unique_ptr<T[]>(handle.buffer), handle.length};
}

constexpr auto tovTo16 = [](const TovNls *converter, std::string_view bytes) -> Owned<char16_t> {
    return taken(converter->toUnicode(bytes.data(), static_cast<std::int32_t>(bytes.size())));
};
constexpr auto tovFrom16 = [](const TovNls *converter, std::u16string_view units) -> Owned<char> {
    return taken(converter->fromUnicode(units.data(), static_cast<std::int32_t>(units.size())));
};

// ICU -----------------------------------------------------------------------------------------------

struct CloseConverter {
    void operator()(UConverter *converter) const { ucnv_close(converter); }
};
using IcuConverter = std::unique_ptr<UConverter, CloseConverter>;

IcuConverter openIcu(const Page &page) {
    UErrorCode error = U_ZERO_ERROR;
    IcuConverter converter(ucnv_open(page.icu, &error));
    ucnv_setFromUCallBack(converter.get(), UCNV_FROM_U_CALLBACK_STOP, nullptr, nullptr, nullptr, &error);
    ucnv_setToUCallBack(converter.get(), UCNV_TO_U_CALLBACK_STOP, nullptr, nullptr, nullptr, &error);
    return converter;
}

UConverter *icuKept(const Page &page) { return perPage<IcuConverter>(page, openIcu).get(); }

std::int32_t icuInto16(UConverter *converter, std::string_view bytes, char16_t *to, std::int32_t room) {
    UErrorCode error = U_ZERO_ERROR;
    return ucnv_toUChars(converter, to, room, bytes.data(), static_cast<std::int32_t>(bytes.size()), &error);
}
std::int32_t icuOutOf16(UConverter *converter, std::u16string_view units, char *to, std::int32_t room) {
    UErrorCode error = U_ZERO_ERROR;
    return ucnv_fromUChars(converter, to, room, units.data(), static_cast<std::int32_t>(units.size()),
                           &error);
}

constexpr auto icuTo16 = [](UConverter *converter, std::string_view bytes) -> std::u16string_view {
    return {out16(), static_cast<std::size_t>(icuInto16(converter, bytes, out16(), c_room16))};
};
constexpr auto icuFrom16 = [](UConverter *converter, std::u16string_view units) -> std::string_view {
    return {out8(), static_cast<std::size_t>(icuOutOf16(converter, units, out8(), c_room8))};
};

// With the allocation for the worst case that the library's callers pay, too.
constexpr auto icuNewTo16 = [](UConverter *converter, std::string_view bytes) -> Owned<char16_t> {
    std::unique_ptr<char16_t[]> units(new char16_t[bytes.size() + 1]);
    const auto count = icuInto16(converter, bytes, units.get(), static_cast<std::int32_t>(bytes.size()) + 1);
    return {std::move(units), count};
};
constexpr auto icuNewFrom16 = [](UConverter *converter, std::u16string_view units) -> Owned<char> {
    const auto longest = static_cast<std::size_t>(ucnv_getMaxCharSize(converter));
    const std::size_t room = units.size() * longest + 1;
    std::unique_ptr<char[]> bytes(new char[room]);
    const auto count = icuOutOf16(converter, units, bytes.get(), static_cast<std::int32_t>(room));
    return {std::move(bytes), count};
};

// iconv ---------------------------------------------------------------------------------------------

iconv_t iconvKeptTo16(const Page &page) {
    struct To16 {
        iconv_t descriptor;
    };
    return perPage<To16>(page, [](const Page &p) { return To16{iconv_open("UTF-16LE", p.iconv)}; })
        .descriptor;
}
iconv_t iconvKeptFrom16(const Page &page) {
    struct From16 {
        iconv_t descriptor;
    };
    return perPage<From16>(page, [](const Page &p) { return From16{iconv_open(p.iconv, "UTF-16LE")}; })
        .descriptor;
}

constexpr auto iconvTo16 = [](iconv_t descriptor, std::string_view bytes) -> std::u16string_view {
    char *in = const_cast<char *>(bytes.data());
    char *out = reinterpret_cast<char *>(out16());
    std::size_t left = bytes.size();
    std::size_t room = 2 * c_room16;
    iconv(descriptor, &in, &left, &out, &room);
    return {out16(), (2 * c_room16 - room) / 2};
};
constexpr auto iconvFrom16 = [](iconv_t descriptor, std::u16string_view units) -> std::string_view {
    char *in = reinterpret_cast<char *>(const_cast<char16_t *>(units.data()));
    char *out = out8();
    std::size_t left = 2 * units.size();
    std::size_t room = c_room8;
    iconv(descriptor, &in, &left, &out, &room);
    return {out8(), c_room8 - room};
};

// Flat tables ---------------------------------------------------------------------------------------

// For a page's characters of one and two bytes, filled from ICU.
struct Tables {
    static constexpr char16_t c_none16 = 0xFFFD;
    static constexpr std::uint32_t c_none8 = 0x10000;

    explicit Tables(const Page &page) {
        std::fill(std::begin(one), std::end(one), c_none16);
        std::fill(std::begin(two), std::end(two), c_none16);
        std::fill(std::begin(back), std::end(back), c_none8);
        for (std::uint32_t unit = 0; unit < c_none16; ++unit)
            if (unit < 0xD800 || unit >= 0xE000)
                fill(icuKept(page), static_cast<char16_t>(unit));
    }

    char16_t one[256], two[65536];
    std::uint32_t back[65536];

private:
    void fill(UConverter *converter, char16_t unit) {
        char bytes[8];
        const std::int32_t length = icuOutOf16(converter, {&unit, 1}, bytes, sizeof bytes);
        if (length < 1 || length > 2)
            return;
        std::uint32_t code = 0;
        for (std::int32_t i = 0; i < length; ++i)
            code = code << 8 | static_cast<unsigned char>(bytes[i]);
        (length == 1 ? one : two)[code] = unit;
        back[unit] = code;
    }
};

const Tables *tables(const Page &page) {
    using Kept = std::unique_ptr<const Tables>;
    return perPage<Kept>(page, [](const Page &p) { return std::make_unique<const Tables>(p); }).get();
}

constexpr auto modelSingle = [](const Tables *table, std::string_view bytes) -> std::u16string_view {
    char16_t *to = out16();
    for (const char byte : bytes)
        *to++ = table->one[static_cast<unsigned char>(byte)];
    benchmark::ClobberMemory();
    return {out16(), bytes.size()};
};

constexpr auto modelDouble = [](const Tables *table, std::string_view bytes) -> std::u16string_view {
    char16_t *to = out16();
    const auto *from = reinterpret_cast<const unsigned char *>(bytes.data());
    const auto *const end = from + bytes.size();
    while (from < end) {
        char16_t unit = table->one[*from];
        if (unit != Tables::c_none16) {
            ++from;
        } else {
            if (end - from < 2 || (unit = table->two[from[0] << 8 | from[1]]) == Tables::c_none16)
                break;
            from += 2;
        }
        *to++ = unit;
    }
    benchmark::ClobberMemory();
    return {out16(), static_cast<std::size_t>(to - out16())};
};

constexpr auto modelFrom16 = [](const Tables *table, std::u16string_view units) -> std::string_view {
    char *to = out8();
    for (const char16_t unit : units) {
        const std::uint32_t code = table->back[unit];
        if (code == Tables::c_none8)
            break;
        if (code >= 0x100)
            *to++ = static_cast<char>(code >> 8);
        *to++ = static_cast<char>(code);
    }
    benchmark::ClobberMemory();
    return {out8(), static_cast<std::size_t>(to - out8())};
};

// Texts ---------------------------------------------------------------------------------------------

struct Sample {
    std::string_view bytes;
    std::u16string_view units;
};

char16_t randomUnit(const Page &page, Lcg &random) {
    const auto from = [&](std::uint32_t first, std::uint32_t count) {
        return static_cast<char16_t>(first + random.below(count));
    };
    const std::uint32_t pick = random.below(20);
    if (page.single)
        return pick < 15 ? from('a', 26) : pick < 18 ? u' ' : from(0xE0, 0x17);
    if (pick < 2)
        return from('a', 26);
    return page.kana && pick < 11 ? from(0x3041, 0x50) : from(0x4E00, 0x5000);
}

// The unit in the page, empty unless ICU and iconv agree.
std::string agreedBytes(const Page &page, char16_t unit) {
    const std::string_view first = icuFrom16(icuKept(page), {&unit, 1});
    const std::string bytes(first.size() <= 8 ? first : std::string_view());
    return iconvFrom16(iconvKeptFrom16(page), {&unit, 1}) == bytes ? bytes : std::string();
}

// A text of about `size` bytes in the page.
const Sample &sample(const Page &page, std::size_t size) {
    static std::map<std::pair<const Page *, std::size_t>, Sample> made;
    Sample &entry = made[{&page, size}];
    if (!entry.bytes.empty())
        return entry;
    std::string bytes;
    std::u16string units;
    Lcg random(11);
    while (bytes.size() < size) {
        const char16_t unit = randomUnit(page, random);
        const std::string code = agreedBytes(page, unit);
        bytes += code;
        if (!code.empty())
            units += unit;
    }
    entry = {placed<char>(bytes), placed<char16_t>(units)};
    return entry;
}

// Benchmarks ----------------------------------------------------------------------------------------

// One text in one page, and the group of all who convert it.
struct Group {
    Group(const char *way, const Page &textPage, std::size_t textSize)
        : name(std::string("codepage/") + way + "/" + textPage.label + "/" + sizeName(textSize) + "/"),
          page(textPage), size(textSize) {}

    std::string name;
    const Page &page;
    std::size_t size;
};

// `convert(kept, source)`, where `keep(page)` gives what is made before the timing. Converters are lambdas,
// so that every loop has its own inline.
template <class Keep, class Convert>
void add(const Group &group, const char *peer, auto Sample::*source, auto Sample::*wanted, Keep keep,
         Convert convert) {
    preparedJob(
        group.name + peer,
        [=](benchmark::State &state) {
            const Sample &text = sample(group.page, group.size);
            const auto kept = keep(group.page);
            spoilTargets();
            require(state, contents(convert(kept, text.*source)) == text.*wanted);
            return [&text, source, kept, convert] {
                const auto result = convert(kept, text.*source);
                benchmark::DoNotOptimize(contents(result).data());
            };
        },
        group.size);
}

const Page *nothingKept(const Page &page) { return &page; }

// The limit: as many units copied to where the result goes.
void limitCopy(const Group &group, void *target) {
    preparedJob(
        group.name + "limit:memcpy",
        [=](benchmark::State &) {
            const std::u16string_view units = sample(group.page, group.size).units;
            return [units, target] {
                std::memcpy(target, units.data(), 2 * units.size());
                benchmark::ClobberMemory();
            };
        },
        group.size);
}

constexpr auto icuOpenTo16 = [](const Page *page, std::string_view bytes) -> std::u16string_view {
    return icuTo16(openIcu(*page).get(), bytes);
};
constexpr auto icuOpenFrom16 = [](const Page *page, std::u16string_view units) -> std::string_view {
    return icuFrom16(openIcu(*page).get(), units);
};

constexpr auto iconvOpenTo16 = [](const Page *page, std::string_view bytes) -> std::u16string_view {
    auto *const descriptor = iconv_open("UTF-16LE", page->iconv);
    const auto result = iconvTo16(descriptor, bytes);
    iconv_close(descriptor);
    return result;
};
constexpr auto iconvOpenFrom16 = [](const Page *page, std::u16string_view units) -> std::string_view {
    auto *const descriptor = iconv_open(page->iconv, "UTF-16LE");
    const auto result = iconvFrom16(descriptor, units);
    iconv_close(descriptor);
    return result;
};

void registerTo16(const Page &page, std::size_t size) {
    const Group group("to16", page, size);
    const auto peer = [&](const char *name, auto keep, auto convert) {
        add(group, name, &Sample::bytes, &Sample::units, keep, convert);
    };
    limitCopy(group, out16());
    peer("tovutil:TovNls", tovConverter, tovTo16);
    peer("icu-kept", icuKept, icuTo16);
    peer("icu-kept+new", icuKept, icuNewTo16);
    peer("icu-open", nothingKept, icuOpenTo16);
    peer("iconv-kept", iconvKeptTo16, iconvTo16);
    peer("iconv-open", nothingKept, iconvOpenTo16);
    if (page.single)
        peer("model:table256", tables, modelSingle);
    else
        peer("model:table64k", tables, modelDouble);
}

void registerFrom16(const Page &page, std::size_t size) {
    const Group group("from16", page, size);
    const auto peer = [&](const char *name, auto keep, auto convert) {
        add(group, name, &Sample::units, &Sample::bytes, keep, convert);
    };
    limitCopy(group, out8());
    peer("tovutil:TovNls", tovConverter, tovFrom16);
    peer("icu-kept", icuKept, icuFrom16);
    peer("icu-kept+new", icuKept, icuNewFrom16);
    peer("icu-open", nothingKept, icuOpenFrom16);
    peer("iconv-kept", iconvKeptFrom16, iconvFrom16);
    peer("iconv-open", nothingKept, iconvOpenFrom16);
    peer("model:table64k", tables, modelFrom16);
}

// Byte swap -----------------------------------------------------------------------------------------

std::u16string_view randomUnits(std::size_t bytes) {
    Lcg random(13);
    std::u16string units(bytes / 2, u'\0');
    for (char16_t &unit : units)
        unit = static_cast<char16_t>(random.below(0x10000));
    return placed<char16_t>(units);
}

const TovNls *tovSwapper() {
    static const TovNls *const swapper =
        new TovNls(std::endian::native == std::endian::little ? u"UTF-16BE" : u"UTF-16LE");
    return swapper;
}

std::string_view asBytes(std::u16string_view units) {
    return {reinterpret_cast<const char *>(units.data()), 2 * units.size()};
}

constexpr auto swabbed = [](std::u16string_view units) -> std::string_view {
    swab(units.data(), out8(), static_cast<ssize_t>(2 * units.size()));
    return {out8(), 2 * units.size()};
};

void registerSwap(std::size_t size) {
    const std::string name = "codepage/swap/" + sizeName(size) + "/";
    const std::u16string_view units = randomUnits(size);
    const auto peer = [&](const char *peerName, auto convert) {
        preparedJob(
            name + peerName,
            [units, convert](benchmark::State &state) {
                spoilTargets();
                const auto result = convert(units);
                const std::string bytes(reinterpret_cast<const char *>(contents(result).data()),
                                        2 * units.size());
                require(state, bytes == swabbed(units));
                return [units, convert] {
                    const auto made = convert(units);
                    benchmark::DoNotOptimize(contents(made).data());
                    benchmark::ClobberMemory();
                };
            },
            size);
    };
    job(
        name + "limit:memcpy",
        [units] {
            std::memcpy(out8(), units.data(), 2 * units.size());
            benchmark::ClobberMemory();
        },
        size);
    peer("tovutil:TovNls", [](std::u16string_view source) { return tovTo16(tovSwapper(), asBytes(source)); });
    peer("tovutil:TovNls-from16", [](std::u16string_view source) { return tovFrom16(tovSwapper(), source); });
    peer("glibc-swab", swabbed);
#ifdef TOV_BENCH_SIMDUTF
    peer("simdutf", [](std::u16string_view source) {
        simdutf::change_endianness_utf16(source.data(), source.size(), out16());
        return std::u16string_view(out16(), source.size());
    });
#endif
}

} // namespace

void registerTopic() {
    for (const Page &page : c_pages)
        for (const std::size_t size : c_sizes) {
            registerTo16(page, size);
            registerFrom16(page, size);
        }
    registerSwap(1 << 10);
    registerSwap(c_largest);
}

} // namespace tovbench

// 32-bit numbers to 16-bit text and back: 1000 numbers of 1 to 10 digits a pass.
#include "bench.h"

#include <tovutil/tovuterr.h>
#include <tovutil/tovutstr.h>

#include <bit>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#ifdef TOV_BENCH_ABSL
#include <absl/strings/numbers.h>
#include <absl/strings/str_cat.h>
#endif
#ifdef TOV_BENCH_FMT
#include <fmt/format.h>
#endif
#ifdef TOV_BENCH_QT
#include <QString>
#endif

namespace tovbench {

namespace {

using View = std::u16string_view;

const std::vector<std::uint32_t> &numbers() {
    static const auto made = [] {
        std::vector<std::uint32_t> values;
        Lcg random(13);
        for (std::uint64_t limit = 10; values.size() < 1000; limit = limit < 10000000000U ? limit * 10 : 10)
            values.push_back(static_cast<std::uint32_t>(
                (std::uint64_t(random.below(1U << 31)) * 2 + random.below(2)) % limit % 0xFFFFFFFFU));
        return values;
    }();
    return made;
}

const std::vector<std::u16string> &texts() {
    static const auto made = [] {
        std::vector<std::u16string> all;
        for (const std::uint32_t number : numbers()) {
            const std::string digits = std::to_string(number);
            all.emplace_back(digits.begin(), digits.end());
        }
        return all;
    }();
    return made;
}

View widen(char16_t *to, const char *from, const char *end) {
    const char16_t *begin = to;
    while (from != end)
        *to++ = static_cast<unsigned char>(*from++);
    return View(begin, static_cast<std::size_t>(to - begin));
}

// `put` gives the text, which lies where it likes; the plain functions put it behind `to`, which has room.
template <class Put>
void toText(const char *peer, Put given) {
    preparedJob(std::string("number/to-text/") + peer, [given](benchmark::State &state) {
        Put put = given;
        char16_t area[32];
        for (std::size_t i = 0; i < numbers().size(); ++i)
            require(state, put(area, numbers()[i]) == texts()[i]);
        return [put]() mutable {
            char16_t target[32];
            for (const std::uint32_t number : numbers()) {
                benchmark::DoNotOptimize(put(target, number).size());
                benchmark::ClobberMemory();
            }
        };
    });
}

// Into a string object that has room.
template <class String, class Put>
void toString(const char *peer, String given, Put put) {
    preparedJob(std::string("number/to-string/") + peer, [given, put](benchmark::State &state) {
        String string = given;
        for (std::size_t i = 0; i < numbers().size(); ++i) {
            put(string, numbers()[i]);
            require(state, View(string) == texts()[i]);
        }
        return [put, string]() mutable {
            for (const std::uint32_t number : numbers()) {
                put(string, number);
                benchmark::DoNotOptimize(string);
            }
        };
    });
}

template <class Text, class Read>
void fromText(const char *peer, Read read) {
    preparedJob(std::string("number/from-text/") + peer, [read](benchmark::State &state) {
        std::vector<Text> all;
        for (const auto &text : texts())
            all.emplace_back(text);
        for (std::size_t i = 0; i < all.size(); ++i)
            require(state, read(all[i]) == numbers()[i]);
        return [read, all] {
            for (const Text &text : all)
                benchmark::DoNotOptimize(read(text));
        };
    });
}

// Gives the length; the numbers here have at most 10 digits, and none but ASCII ones.
std::size_t narrow(char *target, View text) {
    for (std::size_t i = 0; i < text.size(); ++i)
        target[i] = static_cast<char>(text[i]);
    target[text.size()] = 0;
    return text.size();
}

// The model: digits counted first, then pairs of them written in place.
View pairsInPlace(char16_t *to, std::uint32_t number) {
    static const auto pairs = [] {
        std::vector<std::uint32_t> table(100);
        for (std::uint32_t i = 0; i < 100; ++i) {
            const char16_t two[2] = {static_cast<char16_t>(u'0' + i / 10),
                                     static_cast<char16_t>(u'0' + i % 10)};
            std::memcpy(&table[i], two, sizeof two);
        }
        return table;
    }();
    static constexpr std::uint32_t powers[] = {1,      10,      100,      1000,      10000,
                                               100000, 1000000, 10000000, 100000000, 1000000000};
    const auto guess = static_cast<std::size_t>(std::bit_width(number | 1)) * 1233 >> 12;
    const std::size_t length = guess + (number >= powers[guess] || number == 0 ? 1 : 0);
    char16_t *at = to + length;
    for (; number >= 100; number /= 100)
        std::memcpy(at -= 2, &pairs[number % 100], 4);
    if (number >= 10)
        std::memcpy(at -= 2, &pairs[number], 4);
    else
        *--at = static_cast<char16_t>(u'0' + number);
    return View(to, length);
}

void registerToText() {
    job("number/to-text/limit:copy", [] {
        char16_t target[32];
        for (const auto &text : texts()) {
            std::memcpy(target, text.data(), 2 * text.size());
            benchmark::DoNotOptimize(target);
            benchmark::ClobberMemory();
        }
    });
    // Behind each other, in a buffer that has room.
    toText("tovutil", [string = TovUniString(std::u16string(1000, u' ')),
                       n = 0u](char16_t *, std::uint32_t number) mutable {
        if (n++ % 64 == 0)
            string.erase();
        const unsigned before = string.length();
        string.appendUInt32(number, 0);
        return string.view().substr(before);
    });
    toText("model:pairs-in-place", pairsInPlace);
    toText("to_chars", [](char16_t *to, std::uint32_t number) {
        char digits[16];
        return widen(to, digits, std::to_chars(digits, digits + 16, number).ptr);
    });
#ifdef TOV_BENCH_FMT
    toText("fmt", [](char16_t *to, std::uint32_t number) {
        const fmt::format_int digits(number);
        return widen(to, digits.data(), digits.data() + digits.size());
    });
#endif
#ifdef TOV_BENCH_ABSL
    toText("absl", [](char16_t *to, std::uint32_t number) {
        const absl::AlphaNum digits(number);
        return widen(to, digits.data(), digits.data() + digits.size());
    });
#endif
    toText("snprintf", [](char16_t *to, std::uint32_t number) {
        char digits[16];
        return widen(to, digits, digits + std::snprintf(digits, sizeof digits, "%u", number));
    });
}

void registerToString() {
    job("number/to-string/limit:copy", [string = std::u16string(30, u' ')]() mutable {
        for (const auto &text : texts()) {
            string.assign(text);
            benchmark::DoNotOptimize(string);
        }
    });
    toString("tovutil", TovUniString(std::u16string(30, u' ')),
             [](TovUniString &string, std::uint32_t number) {
                 string.erase();
                 string.appendUInt32(number, 0);
             });
    toString("u16string", std::u16string(30, u' '), [](std::u16string &string, std::uint32_t number) {
        char digits[16];
        string.assign(digits, std::to_chars(digits, digits + 16, number).ptr);
    });
#ifdef TOV_BENCH_QT
    job("number/to-string/qt", [] {
        for (const std::uint32_t number : numbers()) {
            QString made = QString::number(number);
            benchmark::DoNotOptimize(made);
        }
    });
#endif
}

void registerFromText() {
    job("number/from-text/limit:sum", [] {
        for (const auto &text : texts()) {
            std::uint32_t sum = 0;
            for (const char16_t unit : text)
                sum += unit;
            benchmark::DoNotOptimize(sum);
        }
    });
    fromText<TovUniString>("tovutil", [](const TovUniString &text) {
        const TovUChar *at = text.begin();
        return text.scanUInt32(at);
    });
    fromText<TovUniString>("tovutil:toUInt32", [](const TovUniString &text) {
        TovRc rc;
        return text.toUInt32(rc);
    });
    fromText<TovUniString>("tovutil:strtoul", [](const TovUniString &text) {
        const TovUChar *at = text.begin();
        return text.strtoul(at, 10);
    });
    fromText<std::u16string>("from_chars", [](const std::u16string &text) {
        char digits[16];
        std::uint32_t number = 0;
        std::from_chars(digits, digits + narrow(digits, text), number);
        return number;
    });
    fromText<std::u16string>("strtoul", [](const std::u16string &text) {
        char digits[16];
        narrow(digits, text);
        return static_cast<std::uint32_t>(std::strtoul(digits, nullptr, 10));
    });
    // Without a call, without the rule for overflow, and with no place to tell.
    fromText<std::u16string>("model:digit-loop", [](const std::u16string &text) {
        std::uint32_t number = 0;
        for (const char16_t unit : text) {
            const std::uint32_t digit = unit - std::uint32_t{u'0'};
            if (digit > 9)
                break;
            number = number * 10 + digit;
        }
        return number;
    });
#ifdef TOV_BENCH_ABSL
    fromText<std::u16string>("absl", [](const std::u16string &text) {
        char digits[16];
        std::uint32_t number = 0;
        (void)absl::SimpleAtoi(absl::string_view(digits, narrow(digits, text)), &number);
        return number;
    });
#endif
#ifdef TOV_BENCH_QT
    fromText<std::u16string>("qt", [](const std::u16string &text) {
        return static_cast<std::uint32_t>(
            QStringView(text.data(), static_cast<qsizetype>(text.size())).toUInt());
    });
#endif
}

} // namespace

void registerTopic() {
    registerToText();
    registerToString();
    registerFromText();
}

} // namespace tovbench

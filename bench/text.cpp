// Generated texts: words of one script, or a web-like mixture.
#include "bench.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <map>
#include <utility>

#include <unicode/unistr.h>

namespace tovbench {

namespace {

std::string encoded(std::uint32_t character) {
    std::string bytes;
    icu::UnicodeString(static_cast<UChar32>(character)).toUTF8String(bytes);
    return bytes;
}

// `count` characters, each one of `size` from `first` on.
std::string letters(Lcg &random, std::uint32_t count, std::uint32_t first, std::uint32_t size) {
    std::string text;
    while (count-- > 0)
        text += encoded(first + random.below(size));
    return text;
}

std::string asciiWord(Lcg &random) {
    const std::string word = letters(random, 2 + random.below(9), 'a', 26);
    return word + (random.below(12) ? ' ' : '\n');
}

std::string latinWord(Lcg &random) { // every fourth letter or so has an accent
    std::string word;
    for (std::uint32_t n = 2 + random.below(9); n > 0; --n)
        word += random.below(4) ? letters(random, 1, 'a', 26) : letters(random, 1, 0xE0, 0x17);
    return word + ' ';
}

std::string cyrillicOrArabicWord(Lcg &random) {
    const bool arabic = random.below(2) != 0;
    return letters(random, 2 + random.below(9), arabic ? 0x627 : 0x430, arabic ? 20 : 32) + ' ';
}

std::string cjkPhrase(Lcg &random) {
    const std::string phrase = letters(random, 5 + random.below(20), 0x4E00, 0x5000);
    return phrase + (random.below(4) ? encoded(0x3002) : "\n");
}

std::string emojiGroup(Lcg &random) { return letters(random, 4 + random.below(8), 0x1F300, 0x340) + ' '; }

std::string webElement(Lcg &random) {
    using Word = std::string (*)(Lcg &);
    static constexpr Word inner[10] = {
        latinWord, latinWord, latinWord, latinWord, latinWord, cyrillicOrArabicWord, cyrillicOrArabicWord,
        cjkPhrase, cjkPhrase, emojiGroup};
    const Word word = inner[random.below(10)];
    std::string element = "<p class=\"text\">";
    for (std::uint32_t n = 1 + random.below(8); n > 0; --n)
        element += word(random);
    return element + "</p>\n";
}

struct KindRow {
    const char *name;
    std::string (*word)(Lcg &);
};

const KindRow &row(Kind kind) {
    static constexpr KindRow rows[] = {
        {"ascii", asciiWord}, {"latin", latinWord},  {"cyr-ara", cyrillicOrArabicWord},
        {"cjk", cjkPhrase},   {"emoji", emojiGroup}, {"web", webElement}};
    return rows[static_cast<int>(kind)];
}

// Cut between two characters, and filled up.
std::string generated(Kind kind, std::size_t bytes) {
    Lcg random(7 + static_cast<std::uint64_t>(kind));
    std::string text;
    while (text.size() <= bytes)
        text += row(kind).word(random);
    std::size_t end = bytes;
    while ((static_cast<unsigned char>(text[end]) & 0xC0) == 0x80)
        --end;
    text.resize(end);
    text.resize(bytes, 'x');
    return text;
}

} // namespace

const char *kindName(Kind kind) { return row(kind).name; }

std::string sizeName(std::size_t bytes) {
    if (bytes >= 1 << 20)
        return std::to_string(bytes >> 20) + "MiB";
    if (bytes >= 1 << 10)
        return std::to_string(bytes >> 10) + "KiB";
    return std::to_string(bytes) + "B";
}

void *targetArea(std::size_t bytes) { return std::aligned_alloc(4096, (bytes + 8191) & ~std::size_t{4095}); }

void *sourceArea(std::size_t bytes) { return static_cast<char *>(targetArea(bytes + 2048)) + 2048; }

const Text &text(Kind kind, std::size_t bytes) {
    static std::map<std::pair<Kind, std::size_t>, Text> made;
    Text &entry = made[{kind, bytes}];
    if (entry.utf8.empty()) {
        const std::string utf8 = generated(kind, bytes);
        const auto utf16 = icu::UnicodeString::fromUTF8(utf8);
        entry.utf8 = placed<char>(utf8);
        entry.utf16 = placed<char16_t>({utf16.getBuffer(), static_cast<std::size_t>(utf16.length())});
    }
    return entry;
}

void copyLimit(const std::string &group, Kind kind, std::size_t bytes, void *target) {
    preparedJob(
        group + "limit:memcpy",
        [=](benchmark::State &) {
            const Text &source = text(kind, bytes);
            const std::size_t utf16Bytes = 2 * source.utf16.size();
            const void *larger = source.utf16.data();
            if (source.utf8.size() > utf16Bytes)
                larger = source.utf8.data();
            return [larger, size = std::max(utf16Bytes, source.utf8.size()), target] {
                std::memcpy(target, larger, size);
                benchmark::ClobberMemory();
            };
        },
        bytes);
}

} // namespace tovbench

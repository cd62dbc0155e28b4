// 16-bit strings. Searches end at the last unit they read, so that the whole text is read once.
#include "bench.h"

#include <tovutil/tovutstr.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <memory>

#include <unicode/uniset.h>
#include <unicode/unistr.h>
#include <unicode/ustring.h>
#ifdef TOV_BENCH_QT
#include <QString>
#include <QStringMatcher>
#endif
#ifdef TOV_BENCH_SIMDUTF
#include <simdutf.h>
#endif

namespace tovbench {

namespace {

using Units = std::u16string;
using View = std::u16string_view;

constexpr std::size_t c_sizes[] = {16, 64, 256, 64 << 10};

// Latin and Cyrillic letters alone, so that a sign stands nowhere but where it is put.
Units letters(std::size_t n) {
    Lcg random(21);
    Units text(n, u' ');
    for (char16_t &unit : text)
        unit =
            static_cast<char16_t>(random.below(8) != 0 ? u'a' + random.below(26) : 0x430 + random.below(32));
    return text;
}

// The same memory for everybody, as each one's kind of string.
TovUniString tovString(View text) {
    return TovUniString::fromStatic(text.data(), static_cast<unsigned>(text.size()));
}
icu::UnicodeString icuString(View text) {
    return {false, text.data(), static_cast<std::int32_t>(text.size())};
}
#ifdef TOV_BENCH_QT
QString qtString(View text) {
    return QString::fromRawData(reinterpret_cast<const QChar *>(text.data()), static_cast<int>(text.size()));
}
#endif

// One job over texts of `units` units, which has to give `want`.
struct Group {
    Group(const char *what, std::size_t textUnits, std::ptrdiff_t wanted)
        : name(std::string("string/") + what + "/" + std::to_string(textUnits) + "/"), units(textUnits),
          want(wanted) {}

    template <class Run>
    void entry(const char *peer, Run run) const {
        preparedJob(
            name + peer,
            [run, wanted = want](benchmark::State &state) {
                require(state, run() == wanted);
                return [run] { benchmark::DoNotOptimize(run()); };
            },
            2 * units);
    }

    // What memory allows: a search in vain through as many bytes, or a comparison of equal ones.
    void memchrLimit() const {
        limit("limit:memchr", [](const void *bytes, std::size_t n) { return std::memchr(bytes, '#', n); });
    }
    void memrchrLimit() const {
        limit("limit:memrchr", [](const void *bytes, std::size_t n) { return ::memrchr(bytes, '#', n); });
    }
    void memcmpLimit() const {
        const View other = placed(View(Units(units, u'x')));
        limit("limit:memcmp",
              [other](const void *bytes, std::size_t n) { return std::memcmp(bytes, other.data(), n); });
    }

    std::string name;
    std::size_t units;
    std::ptrdiff_t want;

private:
    template <class Run>
    void limit(const char *peer, Run run) const {
        const View text = placed(View(Units(units, u'x')));
        job(
            name + peer, [run, text, n = 2 * units] { benchmark::DoNotOptimize(run(text.data(), n)); },
            2 * units);
    }
};

std::ptrdiff_t signOf(std::ptrdiff_t value) { return (value > 0) - (value < 0); }

void registerFindUnit(std::size_t n) {
    Units made = letters(n);
    made.back() = u'#';
    const View text = placed(View(made));
    const auto size = static_cast<std::int32_t>(n);
    const Group group("find-unit", n, size - 1);
    group.memchrLimit();
    group.entry("tovutil", [s = tovString(text)] { return s.find_first(u'#') - s.begin(); });
    group.entry("std", [=] { return static_cast<std::ptrdiff_t>(text.find(u'#')); });
    group.entry("std-find", [=] { return std::find(text.begin(), text.end(), u'#') - text.begin(); });
    group.entry("icu", [s = icuString(text)] { return s.indexOf(u'#'); });
    group.entry("icu-memchr", [=] { return u_memchr(text.data(), u'#', size) - text.data(); });
#ifdef TOV_BENCH_QT
    group.entry("qt", [s = qtString(text)] { return s.indexOf(QChar(u'#')); });
#endif
#ifdef TOV_BENCH_SIMDUTF
    group.entry("simdutf",
                [=] { return simdutf::find(text.data(), text.data() + text.size(), u'#') - text.data(); });
#endif
}

void registerFindLastUnit(std::size_t n) {
    Units made = letters(n);
    made.front() = u'#';
    const View text = placed(View(made));
    const Group group("rfind-unit", n, 0);
    group.memrchrLimit();
    group.entry("tovutil", [s = tovString(text)] {
        return static_cast<std::ptrdiff_t>(s.find_last_of(u'#', TovUniString::npos));
    });
    group.entry("std", [=] { return static_cast<std::ptrdiff_t>(text.rfind(u'#')); });
    group.entry("icu", [s = icuString(text)] { return s.lastIndexOf(u'#'); });
#ifdef TOV_BENCH_QT
    group.entry("qt", [s = qtString(text)] { return s.lastIndexOf(QChar(u'#')); });
#endif
}

// All who look for a pattern in a text.
void registerPatternSearch(const Group &group, View text, View pattern) {
    const auto textSize = static_cast<std::int32_t>(text.size());
    const auto patternSize = static_cast<std::int32_t>(pattern.size());
    const auto indexOf = [begin = text.data()](const void *found) {
        return found ? static_cast<const char16_t *>(found) - begin : -1;
    };
    group.memchrLimit();
    group.entry("tovutil", [s = tovString(text), pattern, patternSize] {
        return static_cast<std::int32_t>(s.find(pattern.data(), 0, static_cast<unsigned>(patternSize)));
    });
    group.entry("std", [=] { return static_cast<std::ptrdiff_t>(text.find(pattern)); });
    group.entry("std-horspool",
                [text, end = group.want,
                 searcher = std::boyer_moore_horspool_searcher(pattern.begin(), pattern.end())] {
                    const auto found = std::search(text.begin(), text.end(), searcher);
                    return found == text.end() ? end : found - text.begin();
                });
    group.entry("memmem", [=] {
        return indexOf(::memmem(text.data(), 2 * text.size(), pattern.data(), 2 * pattern.size()));
    });
    group.entry("icu", [s = icuString(text), p = icuString(pattern)] { return s.indexOf(p); });
    group.entry("icu-find",
                [=] { return indexOf(u_strFindFirst(text.data(), textSize, pattern.data(), patternSize)); });
#ifdef TOV_BENCH_QT
    group.entry("qt", [s = qtString(text), p = qtString(pattern)] { return s.indexOf(p); });
    group.entry("qt-matcher", [s = qtString(text), matcher = QStringMatcher(qtString(pattern))] {
        return matcher.indexIn(s);
    });
#endif
}

// The pattern begins with a frequent letter and stands at the end alone.
void registerFindPattern(std::size_t n) {
    const View pattern = placed(View(u"abc#de"));
    Units text = letters(n);
    text.replace(n - pattern.size(), pattern.size(), pattern);
    registerPatternSearch({"find-pattern", n, static_cast<std::ptrdiff_t>(n - pattern.size())},
                          placed(View(text)), pattern);
}

// Both ends of the pattern match everywhere, and what tells that it does not stand there lies far inside.
void registerFindHostilePattern(std::size_t n) {
    const Units half(n / 4, u'a');
    registerPatternSearch({"find-hostile", n, -1}, placed(View(Units(n, u'a'))),
                          placed(View(half + u'b' + half)));
}

void registerFindAny(std::size_t n) {
    const View set = placed(View(u"=&;#"));
    Units made = letters(n);
    made.back() = u'#';
    made += u'\0'; // for the peer that wants one
    const View text = placed(View(made)).substr(0, n);
    const auto size = static_cast<std::int32_t>(n);
    const auto icuSet = std::make_shared<icu::UnicodeSet>();
    for (const char16_t unit : set)
        icuSet->add(static_cast<UChar32>(unit));
    icuSet->freeze();
    const Group group("find-any4", n, size - 1);
    group.memchrLimit();
    group.entry("tovutil",
                [s = tovString(text), set] { return s.find_any(s.begin(), set.data(), 4) - s.begin(); });
    group.entry("std", [=] { return static_cast<std::ptrdiff_t>(text.find_first_of(set)); });
    group.entry("icu-set", [=] { return icuSet->span(text.data(), size, USET_SPAN_NOT_CONTAINED); });
    group.entry("icu-strpbrk", [=] { return u_strpbrk(text.data(), u"=&;#") - text.data(); });
    group.entry("model:four-compares", [=] {
        return std::find_if(text.begin(), text.end(),
                            [](char16_t unit) {
                                return unit == u'=' || unit == u'&' || unit == u';' || unit == u'#';
                            }) -
               text.begin();
    });
}

void registerSkip(std::size_t n) {
    Units made(n, u' ');
    made.back() = u'x';
    const View text = placed(View(made));
    const auto size = static_cast<std::int32_t>(n);
    const auto blank = std::make_shared<icu::UnicodeSet>();
    blank->add(static_cast<UChar32>(u' '));
    blank->freeze();
    const Group group("skip", n, size - 1);
    group.memcmpLimit();
    group.entry("tovutil", [s = tovString(text)] { return s.skip(s.begin(), u' ') - s.begin(); });
    group.entry("std", [=] { return static_cast<std::ptrdiff_t>(text.find_first_not_of(u' ')); });
    group.entry("icu-set", [=] { return blank->span(text.data(), size, USET_SPAN_CONTAINED); });
}

// The last units differ, in their upper bytes.
void registerCompare(std::size_t n) {
    const Units left = letters(n);
    Units right = left;
    right.back() = u'\xFF00';
    const View one = placed(View(left)), other = placed(View(right));
    const auto size = static_cast<std::int32_t>(n);
    const Group group("compare", n, -1);
    group.memcmpLimit();
    group.entry("tovutil", [a = tovString(one), b = tovString(other)] { return a.compare(b); });
    group.entry("std", [=] { return signOf(one.compare(other)); });
    group.entry("icu", [a = icuString(one), b = icuString(other)] { return signOf(a.compare(b)); });
    group.entry("icu-strcmp",
                [=] { return signOf(u_strCompare(one.data(), size, other.data(), size, false)); });
#ifdef TOV_BENCH_QT
    group.entry("qt", [a = qtString(one), b = qtString(other)] { return signOf(QString::compare(a, b)); });
#endif
}

void registerEqual(std::size_t n) {
    const View one = placed(View(letters(n))), other = placed(View(letters(n)));
    const Group group("equal", n, 1);
    group.memcmpLimit();
    group.entry("tovutil", [a = tovString(one), b = tovString(other)] { return a == b; });
    group.entry("std", [=] { return one == other; });
    group.entry("icu", [a = icuString(one), b = icuString(other)] { return static_cast<bool>(a == b); });
#ifdef TOV_BENCH_QT
    group.entry("qt", [a = qtString(one), b = qtString(other)] { return a == b; });
#endif
}

void registerReading(std::size_t n) {
    registerFindUnit(n);
    registerFindLastUnit(n);
    registerFindPattern(n);
    registerFindAny(n);
    registerSkip(n);
    registerCompare(n);
    registerEqual(n);
}

} // namespace

void registerTopic() {
    for (const std::size_t n : c_sizes)
        registerReading(n);
    registerFindHostilePattern(4096);
}

} // namespace tovbench

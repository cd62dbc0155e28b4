// Each kernel against plain loops: at every length and at the edges of memory that can't be read, so that a
// register that reads one unit too many is a fault.
#include <tovutil/tovutstrk.h>

#include <support/guarded.h>
#include <support/random.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace {

using tovdetail::UnitKernel;
using tovdetail::UnitPtr;
using tovdetail::UnitSearch;
using Units = std::u16string;
using View = std::u16string_view;

constexpr std::size_t c_lengths = 300; // the aligned loop of the widest vector, twice

// The plain loops -------------------------------------------------------------------------------------

// What stands where nothing is found.
std::size_t orEnd(View text, std::size_t at) { return std::min(at, text.size()); }

std::size_t plainAny(View text, View set) { return orEnd(text, text.find_first_of(set)); }
std::size_t plainPattern(View text, View pattern) { return orEnd(text, text.find(pattern)); }
std::size_t plainDifference(View one, View other) {
    return static_cast<std::size_t>(std::mismatch(one.begin(), one.end(), other.begin()).first - one.begin());
}

// The kernels, with positions in the place of pointers ------------------------------------------------

std::size_t any(const UnitSearch &search, View text, View set) {
    const UnitPtr begin = text.data(), end = begin + text.size();
    return static_cast<std::size_t>(search.findAny(begin, end, set.data(), set.size()) - begin);
}
std::size_t pattern(const UnitSearch &search, View text, View wanted) {
    const UnitPtr begin = text.data(), end = begin + text.size();
    return static_cast<std::size_t>(search.findPattern(begin, end, wanted.data(), wanted.size()) - begin);
}

void expectUnitSearches(const UnitSearch &search, View text, TovUChar unit) {
    const UnitPtr begin = text.data(), end = begin + text.size();
    EXPECT_EQ(orEnd(text, text.find(unit)), search.findUnit(begin, end, unit) - begin);
    EXPECT_EQ(orEnd(text, text.find_first_not_of(unit)), search.findOther(begin, end, unit) - begin);
    EXPECT_EQ(orEnd(text, text.rfind(unit)), search.findLastUnit(begin, end, unit) - begin);
    EXPECT_EQ(orEnd(text, text.find_last_not_of(unit)), search.findLastOther(begin, end, unit) - begin);
}

/// A copy of a text that ends with its memory, or begins with it.
class AtEdge {
public:
    View atEnd(View text) const {
        TovUChar *to = m_memory.end() - text.size();
        std::copy(text.begin(), text.end(), to);
        return {to, text.size()};
    }
    View atBegin(View text) const {
        std::copy(text.begin(), text.end(), m_memory.begin());
        return {m_memory.begin(), text.size()};
    }

private:
    tovtest::Guarded<TovUChar> m_memory{2048};
};

class UnitKernels : public testing::TestWithParam<UnitKernel> {
protected:
    void SetUp() override {
        if (!GetParam().usable())
            GTEST_SKIP() << "not on this processor";
    }
    const UnitSearch &search() const { return *GetParam().search; }

    AtEdge m_text, m_other;
};

const auto c_kernels = tovdetail::unitKernels();
INSTANTIATE_TEST_SUITE_P(All, UnitKernels, testing::ValuesIn(c_kernels.begin(), c_kernels.end()),
                         [](const auto &each) { return std::string(each.param.name); });

// Units that differ from 'a' in one bit, or that a sum or a signed compare would take for others.
constexpr TovUChar c_odd[] = {u'b', 0x8061, 0x0161, 0, 0xFFFF, 0x0060, 0x7FFF, 0x8000};

TEST_P(UnitKernels, FindOneUnitAtEveryPlaceOfEveryLength) {
    for (std::size_t length = 0; length <= c_lengths; ++length) {
        Units text(length, u'a');
        for (std::size_t at = 0; at <= length; ++at) {
            const TovUChar odd = c_odd[(length + at) % std::size(c_odd)];
            if (at < length)
                text[at] = odd;
            for (const View placed : {m_text.atEnd(text), m_text.atBegin(text)}) {
                SCOPED_TRACE(testing::Message() << "unit " << at << " of " << length);
                expectUnitSearches(search(), placed, odd);
                expectUnitSearches(search(), placed, u'a');
                if (HasFailure())
                    return;
            }
            if (at < length)
                text[at] = u'a';
        }
    }
}

TEST_P(UnitKernels, FindTheFirstAndTheLastOfSeveral) {
    auto random = tovtest::generator();
    for (int round = 0; round < 4000; ++round) {
        Units text(tovtest::below(random, c_lengths), u'a');
        for (std::size_t changes = tovtest::below(random, 4); changes != 0 && !text.empty(); --changes)
            text[tovtest::below(random, text.size())] = c_odd[tovtest::below(random, std::size(c_odd))];
        const std::size_t from = tovtest::below(random, text.size() + 1);
        for (const TovUChar unit : {TovUChar{u'a'}, c_odd[tovtest::below(random, std::size(c_odd))]}) {
            SCOPED_TRACE(testing::Message() << text.size() << " units from " << from);
            expectUnitSearches(search(), m_text.atEnd(text).substr(from), unit);
            expectUnitSearches(search(), m_text.atBegin(text).substr(0, from), unit);
        }
    }
}

TEST_P(UnitKernels, TellTheFirstDifference) {
    auto random = tovtest::generator(1);
    for (std::size_t length = 0; length <= c_lengths; ++length)
        for (std::size_t at = 0; at <= length; at += 1 + tovtest::below(random, 7)) {
            Units one(length, u'\xFF00'), other = one;
            for (std::size_t i = at; i < length; i += 1 + tovtest::below(random, 9))
                other[i] = tovtest::below(random, 2) == 0 ? u'\x7F00' : u'\xFF01';
            const bool end = tovtest::below(random, 2) == 0;
            const View a = end ? m_text.atEnd(one) : m_text.atBegin(one);
            const View b = tovtest::below(random, 2) == 0 ? m_other.atEnd(other) : m_other.atBegin(other);
            ASSERT_EQ(plainDifference(one, other), search().firstDifference(a.data(), b.data(), length))
                << "unit " << at << " of " << length;
        }
}

TEST_P(UnitKernels, FindAnyOfASetOfEverySize) {
    auto random = tovtest::generator(2);
    for (std::size_t count = 0; count <= 200; ++count) {
        Units set;
        while (set.size() < count)
            set += static_cast<TovUChar>(0x8000 + tovtest::below(random, 0x8000));
        for (int round = 0; round < 8; ++round) {
            Units text;
            for (std::size_t length = tovtest::below(random, c_lengths); text.size() < length;)
                text.append(tovtest::below(random, 40),
                            static_cast<TovUChar>(tovtest::below(random, 0x8000)));
            if (!set.empty() && !text.empty() && round % 4 != 0)
                text[tovtest::below(random, text.size())] = set[tovtest::below(random, set.size())];
            const View placedSet = round % 2 == 0 ? m_other.atEnd(set) : m_other.atBegin(set);
            const std::size_t want = plainAny(text, set);
            ASSERT_EQ(want, any(search(), m_text.atEnd(text), placedSet)) << count;
            ASSERT_EQ(want, any(search(), m_text.atBegin(text), placedSet)) << count;
        }
    }
}

TEST_P(UnitKernels, TakeASetOfAlmostAllUnits) {
    Units set;
    for (unsigned unit = 0; unit < 0x1'0000; ++unit)
        if (unit != u'x')
            set.append(3, static_cast<TovUChar>(unit));
    Units text(5000, u'x');
    EXPECT_EQ(text.size(), any(search(), text, set));
    for (const TovUChar last : {u'\0', u'\xFFFF', u'?', u'@'}) {
        text.back() = last;
        EXPECT_EQ(text.size() - 1, any(search(), text, set));
    }
}

// Two units make texts that are full of near matches.
TEST_P(UnitKernels, FindPatternsOfTwoUnits) {
    auto random = tovtest::generator(3);
    for (int round = 0; round < 10'000; ++round) {
        Units text, wanted;
        const std::size_t rare = 2 + tovtest::below(random, 12);
        const auto unit = [&] { return tovtest::below(random, rare) == 0 ? u'\0' : u'a'; };
        for (std::size_t length = tovtest::below(random, c_lengths); text.size() < length;)
            text += unit();
        for (std::size_t length = 1 + tovtest::below(random, 40); wanted.size() < length;)
            wanted += unit();
        if (round % 2 == 0 && wanted.size() <= text.size())
            wanted = text.substr(tovtest::below(random, text.size() - wanted.size() + 1), wanted.size());
        const View placed = round % 4 < 2 ? m_other.atEnd(wanted) : m_other.atBegin(wanted);
        ASSERT_EQ(plainPattern(text, wanted), pattern(search(), m_text.atEnd(text), placed)) << round;
        ASSERT_EQ(plainPattern(text, wanted), pattern(search(), m_text.atBegin(text), placed)) << round;
    }
}

Units repeated(View piece, std::size_t times) {
    Units text;
    while (times-- != 0)
        text += piece;
    return text;
}

struct Hostile {
    const char *why;
    Units text;
    Units pattern;
};

std::vector<Hostile> hostile(std::size_t size) {
    const Units run(size, u'a'), half(size / 2, u'a');
    const Units periods = repeated(u"abaabaab", size / 8);
    Units fibonacci = u"a", before = u"b";
    while (fibonacci.size() < size)
        before = std::exchange(fibonacci, fibonacci + before);
    return {
        {"the odd unit is last", run, half + u'b'},
        {"the odd unit is first", run, u'b' + half},
        {"the odd unit is in the middle", run, half + u'b' + half},
        {"a short pattern whose ends match everywhere", run, u"aaaabaaa"},
        {"the odd unit is in the middle, and at last in the text", run + u'b' + run, half + u'b' + half},
        {"near matches with a period", periods + u"abaabaac", periods.substr(0, size / 2) + u"abaabaac"},
        {"a period that the text does not keep", periods, repeated(u"aba", size / 6) + u"abaaba"},
        {"Fibonacci words", fibonacci, fibonacci.substr(size / 3, size / 3) + u"ba"},
        {"a pattern as long as the text", run, run},
        {"a pattern longer than the text", half, run},
    };
}

TEST_P(UnitKernels, FindPatternsInHostileTexts) {
    for (const Hostile &row : hostile(6000)) {
        SCOPED_TRACE(row.why);
        EXPECT_EQ(plainPattern(row.text, row.pattern), pattern(search(), row.text, row.pattern));
    }
}

// A quadratic search would compare 10^12 units.
TEST_P(UnitKernels, AreLinearInHostileTexts) {
    const std::size_t size = 2'000'000;
    const Units text(size, u'a'), half(size / 2, u'a');
    for (const Units &wanted : {half + u'b' + half.substr(1), half + u"ba", u'a' + (u'b' + half)})
        EXPECT_EQ(size, pattern(search(), text, wanted));
}

TEST(LinearPatternSearch, AgreesWithThePlainOne) {
    auto random = tovtest::generator(4);
    for (int round = 0; round < 30'000; ++round) {
        Units text, wanted;
        for (std::size_t length = tovtest::below(random, 60); text.size() < length;)
            text += static_cast<TovUChar>(u'a' + tovtest::below(random, 2));
        for (std::size_t length = 1 + tovtest::below(random, 12); wanted.size() < length;)
            wanted += static_cast<TovUChar>(u'a' + tovtest::below(random, 2));
        const UnitPtr begin = text.data(), end = begin + text.size();
        ASSERT_EQ(plainPattern(text, wanted),
                  tovdetail::findPatternLinear(begin, end, wanted.data(), wanted.size()) - begin)
            << round;
    }
    for (const Hostile &row : hostile(6000)) {
        SCOPED_TRACE(row.why);
        const UnitPtr begin = row.text.data(), end = begin + row.text.size();
        EXPECT_EQ(plainPattern(row.text, row.pattern),
                  tovdetail::findPatternLinear(begin, end, row.pattern.data(), row.pattern.size()) - begin);
    }
}

TEST(ChosenUnitKernel, IsTheBestUsableWhoeverComesFirst) {
    const Units text = u"some text";
    const UnitPtr begin = text.data(), end = begin + text.size();
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back(
            [&] { EXPECT_EQ(begin + 5, tovdetail::bestUnitSearch().findUnit(begin, end, u't')); });
    for (std::thread &thread : threads)
        thread.join();
    const auto best =
        std::find_if(c_kernels.begin(), c_kernels.end(), [](auto &row) { return row.usable(); });
    EXPECT_EQ(best->search, &tovdetail::bestUnitSearch());
}

} // namespace

#include <tovutil/tovutstr.h>

#include <support/guarded.h>
#include <support/random.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <string>
#include <string_view>

namespace {

using Units = std::u16string;
using View = std::u16string_view;

constexpr unsigned npos = TovUniString::npos;

/// A string that views a text without a terminator.
TovUniString viewOf(View text) {
    return TovUniString::fromStatic(text.data(), static_cast<unsigned>(text.size()));
}

/// Texts that end with their memory, so that a unit read behind one is a fault.
class AtEdge {
public:
    const TovUChar *place(View text) const {
        return std::copy(text.begin(), text.end(), m_memory.end() - text.size()) - text.size();
    }
    const TovUChar *begin() const { return m_memory.begin(); }
    TovUniString string(View text) const { return viewOf({place(text), text.size()}); }

private:
    tovtest::Guarded<TovUChar> m_memory{1};
};

using namespace std::literals;

TEST(StringSearch, GivesThePlaceOfAUnit) {
    const struct {
        const char *why;
        View text;
        std::ptrdiff_t from;
        TovUChar unit;
        std::ptrdiff_t found, skipped;
    } rows[] = {
        {"an empty string has only its end", u"", 0, u'a', 0, 0},
        {"the place itself counts", u"abab", 1, u'b', 1, 2},
        {"what is in front of the place does not", u"abab", 2, u'b', 3, 2},
        {"no such unit gives the end", u"abab", 1, u'c', 4, 1},
        {"nothing else gives the end, too", u"aaaa", 1, u'a', 1, 4},
        {"0 is a unit", u"a\0\0b"sv, 1, u'\0', 1, 3},
        {"a place at the end is the result", u"abab", 4, u'a', 4, 4},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.why);
        const AtEdge edge;
        const TovUniString string = edge.string(row.text);
        EXPECT_EQ(row.found, string.find_next(string.begin() + row.from, row.unit) - string.begin());
        EXPECT_EQ(row.skipped, string.skip(string.begin() + row.from, row.unit) - string.begin());
        const TovUniString behind = edge.string(row.text.substr(static_cast<std::size_t>(row.from)));
        EXPECT_EQ(row.found - row.from, behind.find_first(row.unit) - behind.begin());
    }
}

TEST(StringSearch, LeavesAPlaceBehindTheEndWhereItIs) {
    const Units text = u"aaaaaa";
    const TovUniString string = viewOf(View(text).substr(0, 3));
    for (const TovUChar *place : {string.end(), string.end() + 2}) {
        EXPECT_EQ(place, string.skip(place, u'b'));
        EXPECT_EQ(place, string.find_next(place, u'a'));
        EXPECT_EQ(place, string.find_any(place, u"a", 1));
        EXPECT_EQ(place, string.find_any(place, u'a', u'b'));
        EXPECT_EQ(place, string.find_any(place, u'a', u'b', u'c'));
    }
}

TEST(StringSearch, FindsAnyUnitOfASet) {
    const struct {
        const char *why;
        View text, set;
        std::ptrdiff_t want;
    } rows[] = {
        {"a set of none is found nowhere", u"abc", u"", 3},
        {"the first in the text, not in the set", u"xxbxa", u"ab", 2},
        {"units of the set may repeat", u"xxb", u"bbbb", 2},
        {"0 in a counted set is a unit", u"ab\0"sv, u"x\0"sv, 2},
        {"what follows a 0 counts, too", u"ab", u"\0b"sv, 1},
        {"a run of strangers", u"xxxxxxxxxxxxxxxxxxxxyyyyyyyb", u"abcdefgh", 27},
        {"nothing of the set", u"xyz", u"abcdefgh", 3},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.why);
        const AtEdge textEdge, setEdge;
        const TovUniString string = textEdge.string(row.text);
        const auto length = static_cast<unsigned>(row.set.size());
        EXPECT_EQ(row.want, string.find_any(string.begin(), setEdge.place(row.set), length) - string.begin());
    }
    const TovUniString string = viewOf(u"xcba");
    EXPECT_EQ(2, string.find_any(string.begin(), u'a', u'b') - string.begin());
    EXPECT_EQ(1, string.find_any(string.begin(), u'a', u'b', u'c') - string.begin());
    EXPECT_EQ(3, string.find_any(string.begin() + 3, u'a', u'b', u'c') - string.begin());
    EXPECT_EQ(string.end(), string.find_any(string.begin(), nullptr, 0));
}

TEST(StringSearch, GivesThePositionOfAUnit) {
    const struct {
        const char *why;
        View text;
        unsigned position;
        TovUChar unit;
        unsigned firstOf, firstNotOf, lastOf, lastNotOf;
    } rows[] = {
        {"an empty string has nothing", u"", 0, u'a', npos, npos, npos, npos},
        {"nor has it behind its end", u"", npos, u'a', npos, npos, npos, npos},
        {"the position itself counts in both directions", u"abba", 1, u'b', 1, 3, 1, 0},
        {"units on the other side do not", u"abba", 2, u'a', 3, 2, 0, 2},
        {"no unit is at the end, the last is in front of it", u"abba", 4, u'a', npos, npos, 3, 2},
        {"far behind the end", u"abba", npos - 1, u'b', npos, npos, 2, 3},
        {"npos is the last unit", u"abba", npos, u'a', npos, npos, 3, 2},
        {"only that unit", u"aaa", 1, u'a', 1, npos, 1, npos},
        {"never that unit", u"aaa", 1, u'b', npos, 1, npos, 1},
        {"0 is a unit", u"a\0b"sv, 0, u'\0', 1, 0, npos, 0},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.why);
        const AtEdge edge;
        const TovUniString string = edge.string(row.text);
        EXPECT_EQ(row.firstOf, string.find_first_of(row.unit, row.position));
        EXPECT_EQ(row.firstNotOf, string.find_first_not_of(row.unit, row.position));
        EXPECT_EQ(row.lastOf, string.find_last_of(row.unit, row.position));
        EXPECT_EQ(row.lastNotOf, string.find_last_not_of(row.unit, row.position));
    }
}

TEST(StringSearch, GivesThePositionOfAnyUnitOfATerminatedSet) {
    const TovUniString string = viewOf(u"abc\0bc"sv);
    const struct {
        const char *why;
        const TovUChar *set;
        unsigned position, want;
    } rows[] = {
        {"null is an empty set", nullptr, 0, npos},
        {"an empty set", u"", 0, npos},
        {"one unit", u"b", 0, 1},
        {"the position counts", u"bc", 2, 2},
        {"what is in front of it does not", u"ab", 2, 4},
        {"behind the 0 nothing belongs to the set", u"x\0a", 0, npos},
        {"at the end", u"c", 6, npos},
        {"behind the end", u"abc", npos, npos},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.why);
        EXPECT_EQ(row.want, string.find_first_of(row.set, row.position));
    }
}

// Each pattern ends with its memory: what stands here is all that may be read.
TEST(StringSearch, FindsAPatternThatEndsWithZeroOrByItsLength) {
    const struct {
        const char *why;
        View text, pattern;
        unsigned position, length, want;
    } rows[] = {
        {"by its length", u"xxabcab", u"abc", 0, 3, 2},
        {"by its 0", u"xxabcab", u"abc\0"sv, 0, npos, 2},
        {"whichever comes first", u"xxabcab", u"abc\0zz"sv, 0, 5, 2},
        {"the length may come first", u"xxabcab", u"abz", 0, 2, 2},
        {"at the position", u"ababab", u"ab\0"sv, 2, npos, 2},
        {"behind it", u"ababab", u"ab\0"sv, 3, npos, 4},
        {"up to the end", u"xxab", u"ab\0"sv, 0, npos, 2},
        {"the text ends within the pattern", u"xxab", u"abc\0"sv, 0, npos, npos},
        {"a pattern longer than the text, as far as the text goes", u"ab", u"abc", 0, npos, npos},
        {"one that overlaps itself", u"aaab", u"aab", 0, 3, 1},
        {"a length of 0 looks for the first unit", u"xxab", u"a", 0, 0, 2},
        {"and for nothing else", u"xxbb", u"a", 0, 0, npos},
        {"an empty pattern is found at a 0", u"ab\0c"sv, u"\0"sv, 0, npos, 2},
        {"and nowhere in a text without one", u"abc", u"\0"sv, 0, npos, npos},
        {"of whatever length", u"ab\0c"sv, u"\0"sv, 0, 0, 2},
        {"a 0 ends a counted pattern", u"xab", u"a\0"sv, 0, 2, 1},
        {"at the end nothing of it is read", u"abc", u"", 3, 3, npos},
        {"nor behind it", u"abc", u"", npos, npos, npos},
        {"nor for an empty string", u"", u"", 0, 0, npos},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.why);
        const AtEdge textEdge, patternEdge;
        const TovUniString string = textEdge.string(row.text);
        EXPECT_EQ(row.want, string.find(patternEdge.place(row.pattern), row.position, row.length));
    }
}

TEST(StringCompare, IsLexicographicByUnsignedUnits) {
    const struct {
        const char *why;
        View left, right;
        int want;
    } rows[] = {
        {"both empty", u"", u"", 0},
        {"equal", u"abc", u"abc", 0},
        {"a prefix comes first", u"ab", u"abc", -1},
        {"empty is a prefix", u"", u"a", -1},
        {"the first difference decides, not the length", u"b", u"ab", 1},
        {"nor a later difference", u"abz", u"aca", -1},
        {"a unit with the top bit is greater", u"a\x8000", u"a\x7FFF", 1},
        {"no order of code points", u"\xD800\xDC00", u"\xFFFD", -1},
        {"not by bytes in memory", u"\x0100", u"\x00FF", 1},
        {"0 is a unit", u"a\0b"sv, u"a\0a"sv, 1},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.why);
        const AtEdge leftEdge, rightEdge;
        const TovUniString left = leftEdge.string(row.left), right = rightEdge.string(row.right);
        EXPECT_EQ(row.want, left.compare(right));
        EXPECT_EQ(-row.want, right.compare(left));
    }
}

// Its sign is that of the difference it tells, and the reverse with the strings changed.
TEST(StringFastCompare, IsByLengthThenByLastUnitThenByBytes) {
    constexpr int byBytes = 0x10000; // not a difference of lengths or units
    const struct {
        const char *why;
        View left, right;
        int sign, difference;
    } rows[] = {
        {"both empty", u"", u"", 0, 0},
        {"equal", u"abc", u"abc", 0, 0},
        {"the shorter comes first, whatever it says", u"z", u"ab", -1, -1},
        {"by as much as it is shorter", u"", u"abc", -1, -3},
        {"the last units decide, whatever stands before", u"zzb", u"aac", -1, -1},
        {"by their difference as plain numbers", u"a\xFFFF", u"b\x0001", 1, 0xFFFE},
        {"then the bytes", u"abz", u"acz", -1, byBytes},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.why);
        const TovUniString left = viewOf(row.left), right = viewOf(row.right);
        const int forth = left.fastCompare(right), back = right.fastCompare(left);
        EXPECT_EQ(row.sign, (forth > 0) - (forth < 0));
        EXPECT_EQ(row.sign, (back < 0) - (back > 0));
        if (row.difference != byBytes) {
            EXPECT_EQ(row.difference, forth);
            EXPECT_EQ(-row.difference, back);
        }
    }
    // Which of the two bytes of a unit comes first is the machine's.
    const Units left = u"\x0201z", right = u"\x0102z";
    const int bytes = std::memcmp(left.data(), right.data(), 4);
    EXPECT_EQ(bytes > 0, viewOf(left).fastCompare(viewOf(right)) > 0);
}

TEST(StringFastCompare, TouchesNoUnitThatItNeedNot) {
    const AtEdge edge;
    EXPECT_EQ(0, viewOf({edge.begin(), 0}).fastCompare(viewOf({edge.begin(), 0})));
    const TovUChar *unreadable = edge.place(u"");
    EXPECT_EQ(-2, viewOf({unreadable, 1}).fastCompare(viewOf({unreadable, 3})));
    EXPECT_EQ(INT_MIN, viewOf({unreadable, 1}).fastCompare(viewOf({unreadable, npos - 1})));
    EXPECT_EQ(INT_MAX, viewOf({unreadable, npos - 1}).fastCompare(viewOf({unreadable, 1})));
}

// The members that agree with those of a standard string.
TEST(StringSearch, AgreesWithTheStandardString) {
    auto random = tovtest::generator();
    const auto unit = [&] { return static_cast<TovUChar>(u'a' + tovtest::below(random, 3)); };
    for (int round = 0; round < 20'000; ++round) {
        Units text, other;
        for (std::size_t length = tovtest::below(random, 80); text.size() < length;)
            text.append(1 + tovtest::below(random, 8), unit());
        for (std::size_t length = 1 + tovtest::below(random, 6); other.size() < length;)
            other += unit();
        const TovUniString string = viewOf(text);
        const auto position = static_cast<unsigned>(tovtest::below(random, text.size() + 3));
        const TovUChar one = unit();
        const auto positionOf = [](std::size_t found) { return static_cast<unsigned>(found); };
        ASSERT_EQ(positionOf(text.find(other, position)), string.find(other.c_str(), position, npos));
        ASSERT_EQ(positionOf(text.find_first_of(one, position)), string.find_first_of(one, position));
        ASSERT_EQ(positionOf(text.find_first_of(other, position)),
                  string.find_first_of(other.c_str(), position));
        ASSERT_EQ(positionOf(text.find_first_not_of(one, position)), string.find_first_not_of(one, position));
        ASSERT_EQ(positionOf(text.find_last_of(one, position)), string.find_last_of(one, position));
        ASSERT_EQ(positionOf(text.find_last_not_of(one, position)), string.find_last_not_of(one, position));
        const int order = text.compare(other);
        ASSERT_EQ((order > 0) - (order < 0), string.compare(viewOf(other)));
        ASSERT_EQ(text == other, string.fastCompare(viewOf(other)) == 0);
    }
}

} // namespace

// Numbers, edits and the habits of standard strings.
#include <tovutil/toverrfl.h>
#include <tovutil/tovuterr.h>
#include <tovutil/tovutstr.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <iterator>
#include <ostream>
#include <ranges>
#include <set>
#include <string>
#include <unordered_set>
#include <vector>

namespace {

using View = std::u16string_view;

TovUniString literal(View text) {
    return TovUniString::fromStatic(text.data(), static_cast<unsigned>(text.size()));
}

// Numbers from text ---------------------------------------------------------------------------------------

struct Scan {
    std::uint32_t value;
    std::ptrdiff_t used;
    friend bool operator==(const Scan &, const Scan &) = default;
    friend std::ostream &operator<<(std::ostream &os, const Scan &scan) {
        return os << scan.value << " from " << scan.used << " units";
    }
};

Scan strtoul(View text, int base) {
    const TovUniString string = literal(text);
    const TovUChar *at = string.begin();
    const std::uint32_t value = string.strtoul(at, base);
    return {value, at - string.begin()};
}

TEST(Strtoul, ReadsOneNumber) {
    const struct {
        const char *why;
        View text;
        int base;
        Scan want;
    } rows[] = {
        {"base 0: hexadecimal", u"0x1f", 0, {31, 4}},
        {"base 0: capital X", u"0X1F", 0, {31, 4}},
        {"base 0: octal", u"017", 0, {15, 3}},
        {"base 0: decimal", u"18", 0, {18, 2}},
        {"base 0: 9 behind 0 is no number", u"09", 0, {0, 0}},
        {"base 0: 8 behind 0 is octal without digits", u"08", 0, {0, 1}},
        {"base 0: a lone 0 is no number", u"0", 0, {0, 0}},
        {"base 0: a prefix without digits is used", u"0x", 0, {0, 2}},
        {"base 0: a letter", u"a1", 0, {0, 0}},
        {"base 0: sign and white space in front", u" \t\r\n-0x10", 0, {16, 9}},
        {"base 16 has no prefix", u"0x1F", 16, {0, 1}},
        {"base 16", u"1F", 16, {31, 2}},
        {"base 16 up to a colon", u"1:2", 16, {1, 1}},
        {"base 36 in both cases", u"zZ", 36, {1295, 2}},
        {"base 2", u"1012", 2, {5, 3}},
        {"base 1 has the digit 0 only", u"001", 1, {0, 2}},
        {"the sign is not applied", u"-5", 10, {5, 2}},
        {"one sign only", u"+-5", 10, {0, 1}},
        {"the place moves behind what can lead a number", u" +z", 10, {0, 2}},
        {"nothing", u"", 10, {0, 0}},
        {"nothing but white space", u"  ", 10, {0, 0}},
        {"nothing but white space and a sign", u"  +", 10, {0, 0}},
        {"a wrap to a smaller value ends it", u"4294967296", 10, {429496729, 9}},
        {"a wrap to a larger value does not", u"10000000000", 10, {1410065408, 11}},
        {"a unit that looks like a letter in its low bits", u"1\u0141", 16, {1, 1}},
        {"units around the letters", u"@", 36, {0, 0}},
        {"units around the letters", u"`", 36, {0, 0}},
        {"units around the letters", u"{", 36, {0, 0}},
        {"units around the letters", u"[", 36, {0, 0}},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.why);
        EXPECT_EQ(row.want, strtoul(row.text, row.base));
    }
}

TEST(Strtoul, RefusesOtherBases) {
    for (int base : {-1, 37, 1 << 30}) {
        try {
            strtoul(u"1", base);
            ADD_FAILURE() << base;
        } catch (const TovErrorFull &error) {
            EXPECT_EQ(21020u, error.getReturnCode());
            EXPECT_NE(nullptr, std::strstr(error.getErrorMessage(), "base >= 0 && base <= 36"));
            EXPECT_NE(nullptr, std::strstr(error.getLocation(), "1159"));
        }
    }
}

TEST(ScanUInt32, ReadsDigitsFromAPlaceOn) {
    const TovUniString string = literal(u"a12b 7");
    const struct {
        std::ptrdiff_t from;
        Scan want;
    } rows[] = {{0, {0, 0}}, {1, {12, 3}}, {2, {2, 3}}, {4, {0, 4}}, {5, {7, 6}}, {6, {0, 6}}};
    for (const auto &row : rows) {
        SCOPED_TRACE(row.from);
        const TovUChar *at = string.begin() + row.from;
        const std::uint32_t value = string.scanUInt32(at);
        EXPECT_EQ(row.want, (Scan{value, at - string.begin()}));
    }
}

TEST(ToUInt32, TellsItsOutcome) {
    const struct {
        View text;
        std::uint32_t value;
        bool ok;
    } rows[] = {
        {u"", 0, false},
        {u"12a", 12, false},
        {u"x", 0, false},
        {u" 1", 0, false},
        {u"0", 0, true},
        {u"4294967295", 4294967295U, true},
        {u"0000000000007", 7, true},
        {u"4294967296", 429496729, false},
        {u"10000000000", 1410065408, true},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(std::string(row.text.begin(), row.text.end()));
        TovRc rc;
        rc.setMsg(7, "an earlier text");
        EXPECT_EQ(row.value, literal(row.text).toUInt32(rc));
        EXPECT_EQ(row.ok ? 0 : 0xFFFFFFFFU, rc.getRc());
        EXPECT_STREQ(row.ok ? "" : "an earlier text", rc.getMsg());
    }
}

// Numbers to text -------------------------------------------------------------------------------------------

TEST(AppendNumber, WritesAllLengths) {
    std::vector<std::uint32_t> values = {0, 1, 4294967295U, 2147483648U};
    for (std::uint32_t power = 10; power != 1410065408U; power *= 10)
        values.insert(values.end(), {power - 1, power, power + 1});
    for (std::uint32_t value : values) {
        const std::string digits = std::to_string(value);
        for (unsigned width : {0U, 1U, 5U, 10U, 13U}) {
            SCOPED_TRACE(digits + " at least " + std::to_string(width));
            std::string want = digits;
            want.insert(0, std::max<std::size_t>(width, digits.size()) - digits.size(), '0');
            want.insert(0, "n=");
            TovUniString string(u"n=");
            string.appendUInt32(value, width);
            EXPECT_EQ(string, std::u16string(want.begin(), want.end()));
        }
    }
}

TEST(AppendNumber, CountsTheSignAsAPlace) {
    const struct {
        std::int32_t value;
        unsigned width;
        View want;
    } rows[] = {
        {-5, 3, u"-05"},
        {-5, 0, u"-5"},
        {-5, 1, u"-5"},
        {-5, 2, u"-5"},
        {5, 3, u"005"},
        {0, 0, u"0"},
        {INT32_MIN, 0, u"-2147483648"},
        {INT32_MAX, 12, u"002147483647"},
    };
    for (const auto &row : rows) {
        TovUniString string;
        string.appendInt32(row.value, row.width);
        EXPECT_EQ(string, row.want);
    }
}

// Edits -----------------------------------------------------------------------------------------------

TEST(Append, TakesUnitsOfTheStringItself) {
    TovUniString string(u"ab");
    for (int i = 0; i < 40; ++i)
        string.append(string[static_cast<unsigned>(i) % 2]);
    EXPECT_EQ(string.length(), 42u);
    EXPECT_EQ(string.substr(38), u"abab");
    string = TovUniString(u"abc");
    string.append(string.view().substr(1));
    string.append(string.view());
    EXPECT_EQ(string, u"abcbcabcbc");
    const TovUniString shared(string);
    string.append(shared.view().substr(8));
    EXPECT_EQ(string, u"abcbcabcbcbc");
    EXPECT_EQ(shared, u"abcbcabcbc");
    const TovUniString all(u"0123456789");
    TovUniString front = all.substr(0, 4);
    front.append(all.view().substr(2, 6));
    EXPECT_EQ(front, u"0123234567") << "a text that begins in the string and ends behind it";
}

TEST(Append, LeavesALiteralAlone) {
    static constexpr char16_t text[] = u"abc\0def";
    auto string = TovUniString::fromStatic(text, 3, true);
    string.append(u'x');
    EXPECT_EQ(string, u"abcx");
    EXPECT_EQ(View(text, 7), View(u"abc\0def", 7));
}

TEST(Insert, OpensAGap) {
    const struct {
        unsigned position, count;
        View want;
    } rows[] = {{0, 2, u"xxabc"},
                {1, 1, u"axbc"},
                {2, 5, u"abxxxxxc"},
                {1, 0, u"abc"},
                {3, 2, u"abcxx"},
                {9, 1, u"abcx"},
                {TovUniString::npos, 1, u"abcx"}};
    for (const auto &row : rows) {
        TovUniString string(u"abc");
        const TovUniString shared(string);
        string.insert(row.position, row.count, u'x');
        EXPECT_EQ(string, row.want);
        EXPECT_EQ(shared, u"abc");
    }
}

// The first unit that a trimmed string views, to see that it shares the text.
template <class Cut>
void cutsTo(View text, View want, Cut cut) {
    SCOPED_TRACE(std::string(text.begin(), text.end()));
    const TovUniString string(text);
    const TovUniString result = cut(string);
    EXPECT_EQ(result, want);
    EXPECT_TRUE(want.empty() ? !result.isShared() || result.capacity() == 1
                             : result.begin() >= string.begin() && result.end() <= string.end());
}

TEST(Trim, CutsBothEnds) {
    const struct {
        View text, spaces, white;
    } rows[] = {
        {u"", u"", u""},
        {u"abc", u"abc", u"abc"},
        {u"   ", u"", u""},
        {u"  a b  ", u"a b", u"a b"},
        {u"\t a \n", u"\t a \n", u"a"},
        {u" \r\n\t ", u"\r\n\t", u""},
        {u"\u00A0a\u2003", u"\u00A0a\u2003", u"\u00A0a\u2003"},
    };
    for (const auto &row : rows) {
        cutsTo(row.text, row.spaces, [](const TovUniString &s) { return s.trimSpaces(); });
        cutsTo(row.text, row.white, [](const TovUniString &s) { return s.trimWs(); });
    }
}

TEST(StripPads, CutsWhereTheFieldIsPadded) {
    const struct {
        View text, left, center, right;
    } rows[] = {
        {u"**a**", u"**a", u"a", u"a**"},
        {u"***", u"", u"", u""},
        {u"a", u"a", u"a", u"a"},
        {u"", u"", u"", u""},
        {u"*", u"", u"", u""},
        {u"a*b", u"a*b", u"a*b", u"a*b"},
    };
    for (const auto &row : rows) {
        const std::pair<TovUniString::Justify, View> cuts[] = {{TovUniString::JustifyLeft, row.left},
                                                               {TovUniString::JustifyCenter, row.center},
                                                               {TovUniString::JustifyRight, row.right},
                                                               {TovUniString::JustifyNone, row.text}};
        for (const auto &[justify, want] : cuts)
            EXPECT_EQ(literal(row.text).stripPads(justify, u'*'), want) << justify;
    }
}

// Habits ----------------------------------------------------------------------------------------------

static_assert(std::ranges::contiguous_range<const TovUniString> && std::ranges::sized_range<TovUniString>);
static_assert(std::three_way_comparable<TovUniString, std::strong_ordering>);
static_assert(std::convertible_to<TovUniString, View> && !std::convertible_to<View, TovUniString>);

TEST(Habits, AreThoseOfStandardStrings) {
    TovUniString text(u"delta");
    EXPECT_TRUE(text == u"delta" && u"delta" == text && text != u"delt" && text == View(text));
    EXPECT_EQ(5, std::ranges::distance(text));
    EXPECT_TRUE(text < u"deltb" && u"delt" < text && text >= View(u"delta"));
    EXPECT_EQ(std::u16string(u"atled"), std::u16string(text.view().rbegin(), text.view().rend()));
    std::ranges::copy(View(u"-epsilon"), std::back_inserter(text));
    EXPECT_EQ(text, u"delta-epsilon");

    const TovUniString words[] = {literal(u"pear"), literal(u"apple"), literal(u"fig"), literal(u"apple")};
    const std::unordered_set<TovUniString> unique(std::begin(words), std::end(words));
    EXPECT_EQ(3u, unique.size());
    EXPECT_TRUE(unique.contains(TovUniString(u"fig")));
    const std::set<TovUniString> sorted(std::begin(words), std::end(words));
    EXPECT_EQ(*sorted.begin(), u"apple");
    EXPECT_EQ(*sorted.rbegin(), u"pear");

    TovUniString left(u"left"), right;
    swap(left, right);
    EXPECT_TRUE(left.empty() && right == u"left");
    TovUniString &self = right;
    right = self;
    right = std::move(self);
    EXPECT_EQ(right, u"left");
}

} // namespace

#include <support/traced.h>

#include <tovutil/tovutil.h>

#include <gtest/gtest.h>

#include <sstream>
#include <string>

// These tests run in a process whose locale is UTF-8; tests/processlocale_test.cpp has the others.
namespace {

constexpr std::uint32_t toTerminator = 0xFFFFFFFFU;

// The two texts of an error that `call` raises, or nothing.
template <class Call>
std::string raised(Call call) {
    try {
        call();
    } catch (const TovErrorFull &error) {
        const std::string location = error.getLocation();
        return std::string(error.getErrorMessage()) + "|" + location.substr(0, location.find(" Build("));
    }
    return {};
}

TEST(tovToMbcs, ConvertsByLengthOrUpToTheTerminator) {
    const struct {
        const TovUChar *source;
        std::uint32_t length;
        TovString want;
    } rows[] = {
        {nullptr, 5, ""},
        {u"text", 0, ""},
        {u"gr\u00FC\u00DF", toTerminator, "gr\xC3\xBC\xC3\x9F"},
        {u"text", 0x80000000U, "text"},
        {u"text", 2, "te"},
        {u"a\0b", 3, TovString("a\0b", 3)},
        {u"\U0001F600", 2, "\xF0\x9F\x98\x80"},
        {u"", toTerminator, ""},
    };
    for (const auto &row : rows)
        EXPECT_EQ(row.want, tovToMbcs(row.source, row.length, false));
}

TEST(tovToUnicode, ConvertsByLengthOrUpToTheTerminator) {
    const struct {
        const char *source;
        std::uint32_t length;
        TovUString want;
    } rows[] = {
        {nullptr, 5, u""},
        {"text", 0, u""},
        {"gr\xC3\xBC\xC3\x9F", toTerminator, u"gr\u00FC\u00DF"},
        {"text", 2, u"te"},
        {"a\0b", 3, TovUString(u"a\0b", 3)},
        {"\xF0\x9F\x98\x80", 4, u"\U0001F600"},
        {"good\xFF good", toTerminator, u"good"},
    };
    for (const auto &row : rows)
        EXPECT_EQ(row.want, tovToUnicode(row.source, row.length, false));
}

TEST(ProcessLocaleConversion, RaisesOnlyWhenAskedAndOnlyForNothing) {
    EXPECT_EQ("", raised([] { tovToMbcs(nullptr, 7, true); }));
    EXPECT_EQ("", raised([] { tovToMbcs(u"x", 0, true); }));
    EXPECT_EQ("", raised([] { tovToUnicode(nullptr, 7, true); }));
    EXPECT_EQ("", raised([] { tovToUnicode("good\xFF", toTerminator, true); })) << "a part is no failure";
    EXPECT_EQ("TOVRC_INVALID_WCHAR  Pos(1) ErrorType(ERROR),\nCannot convert with tovToMbcs()|"
              "From (tovToMbcs), Line(50) in module (tovutil)",
              raised([] { tovToMbcs(u"", toTerminator, true); }));
    EXPECT_EQ("TOVRC_INVALID_MBCHAR  Pos(1) ErrorType(ERROR),\nCannot convert with tovToUnicode()|"
              "From (tovToUnicode), Line(81) in module (tovutil)",
              raised([] { tovToUnicode("\xFF", 1, true); }));
    EXPECT_EQ("", tovToMbcs(u"\xD800", 1, false)) << "a lone surrogate has no form in the locale's encoding";
}

TEST(tovToUString, MakesStringsFromPointersAndNumbers) {
    EXPECT_EQ(u"", tovToUString(nullptr, 5));
    EXPECT_EQ(u"", tovToUString(u"\0abc", 5))
        << "a text that begins with its end is empty, whatever the count";
    EXPECT_EQ(u"ab", tovToUString(u"abc", 2));
    EXPECT_EQ(u"abc", tovToUString(u"abc", 0));
    EXPECT_EQ(u"abc", tovToUString(u"abc", -1));
    EXPECT_EQ(TovUString(u"a\0b", 3), tovToUString(u"a\0b", 3));
    EXPECT_EQ(u"-12", tovToUString(-12L));
    EXPECT_EQ(u"0", tovToUString(0L));
    EXPECT_EQ(u"-9223372036854775808", tovToUString(-9223372036854775807L - 1));
}

TEST(TrimFunctions, CutTheirOwnUnitsAtBothEnds) {
    const struct {
        const TovUChar *text, *spaces, *whiteSpaces;
    } rows[] = {
        {u"", u"", u""},
        {u"   ", u"", u""},
        {u" \t\r\n ", u"\t\r\n", u""},
        {u"a b", u"a b", u"a b"},
        {u"  a  b ", u"a  b", u"a  b"},
        {u"\t a \n", u"\t a \n", u"a"},
        {u"\u00A0a\u000B\u000C", u"\u00A0a\u000B\u000C", u"\u00A0a\u000B\u000C"},
    };
    for (const auto &row : rows) {
        EXPECT_EQ(row.spaces, tovTrimSpaces(row.text));
        EXPECT_EQ(row.whiteSpaces, tovTrimWhiteSpaces(row.text));
    }
    int count = 0;
    for (unsigned unit = 0; unit <= 0xFFFF; ++unit)
        count += tovIsWhiteSpace(static_cast<TovUChar>(unit));
    EXPECT_EQ(4, count);
}

TEST(CaseMapping, FollowsTheLocaleWithinTheLengthOfTheText) {
    EXPECT_EQ(u"", tovToUpper(u""));
    EXPECT_EQ(u"ABC \u00C4\u0416", tovToUpper(u"abc \u00E4\u0436"));
    EXPECT_EQ(u"abc \u00E4\u0436", tovToLower(u"ABC \u00C4\u0416"));
    EXPECT_EQ(u"\U00010400", tovToUpper(u"\U00010428"));
    EXPECT_EQ(TovUString(u"A\0B", 3), tovToUpper(TovUString(u"a\0b", 3)));
    EXPECT_EQ(u"\u00DF", tovToUpper(u"\u00DF")) << "two letters do not fit: the simple mapping";
}

TEST(UStringOutput, ConvertsAndEndsAtTheFirstNul) {
    std::ostringstream os;
    os << TovUString(u"gr\u00FC\0n", 5) << "|" << TovUString(u"\xDC00") << "|" << TovUString();
    EXPECT_EQ("gr\xC3\xBC||", os.str());
}

} // namespace

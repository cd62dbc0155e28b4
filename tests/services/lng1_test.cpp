// Locales: the process's own as the environment names it, those of a code page, and what they tell.
#include "zpt/child.h"

#include <services/lng1.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string_view>

using namespace tovtest;

namespace {

CXLocale *process() { return LNG1_PrivateFunction_GetProcessLocale(); }

struct Release {
    void operator()(CXLocale *locale) const { CXReleaseLocale(locale, 0); }
};
using Locale = std::unique_ptr<CXLocale, Release>;

Locale open(const char *page) {
    long error = 0;
    return Locale(LNG1_GetLocale(0, LNG1_GetCodepageId(page, nullptr), 0, &error));
}

// The item, or the error as a number.
std::string item(CXLocale *locale, std::int32_t which, std::int32_t capacity = 33) {
    char text[34] = {};
    const std::int32_t length = LNG1_GetLocaleTextInfo(locale, which, text, capacity, 0);
    return length < 0 ? std::to_string(CXGetError(locale))
                      : std::string(text, static_cast<std::size_t>(length));
}

std::u16string itemU(CXLocale *locale, std::int32_t which, std::int32_t capacity = 33) {
    char16_t text[34] = {};
    const std::int32_t length = LNG1_GetLocaleTextInfoU(locale, which, text, capacity, 0);
    return length < 0 ? u"failed" : std::u16string(text, static_cast<std::size_t>(length));
}

} // namespace

TEST(ProcessLocale, ComesFromTheEnvironment) {
    const struct {
        const char *why;
        Environment environment;
        const char *name;
    } rows[] = {
        {"nothing set", {}, ".UTF-8"},
        {"LC_ALL first", {"de_DE.UTF-8", "fr_FR", "it_IT"}, "de_DE.UTF-8"},
        {"then LC_CTYPE", {nullptr, "fr_FR", "it_IT"}, "fr_FR.UTF-8"},
        {"then LANG", {nullptr, nullptr, "it_IT"}, "it_IT.UTF-8"},
        {"empty is not set", {"", "", "it_IT"}, "it_IT.UTF-8"},
        {"C", {"C"}, ".UTF-8"},
        {"POSIX", {"POSIX"}, ".UTF-8"},
        {"C with a code set", {"C.UTF-8"}, ".UTF-8"},
        {"C with another code set", {"C.ISO-8859-1"}, ".ISO-8859-1"},
        {"the code set chooses", {"de_DE.ISO-8859-1"}, "de_DE.ISO-8859-1"},
        {"as the platform spells it", {"de_DE.iso88591"}, "de_DE.ISO-8859-1"},
        {"in whatever case", {"ja_JP.eucJP"}, "ja_JP.EUC-JP"},
        {"UTF-8 without punctuation", {"de_DE.utf8"}, "de_DE.UTF-8"},
        {"and in odd case", {"de_DE.Utf-8"}, "de_DE.UTF-8"},
        {"the modifier is dropped", {"de_DE@euro"}, "de_DE.UTF-8"},
        {"behind a code set, too", {"de_DE.ISO-8859-15@euro"}, "de_DE.ISO-8859-15"},
        {"a modifier with a dot", {"de_DE@a.b_c"}, "de_DE.UTF-8"},
        {"an unknown code set", {"de_DE.NONSENSE"}, "de_DE.UTF-8"},
        {"an EBCDIC one", {"en_US.IBM-1047"}, "en_US.IBM1047"},
        {"a language alone", {"tr"}, "tr.UTF-8"},
        {"a name too long to be one", {"aaaaaaaaaaaaaaaaaaaaaaaaaaaaaa_BBBBBBBBBBBBBBBBBBBBBBBBB"}, ".UTF-8"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.why);
        EXPECT_EQ(row.name, inChild(row.environment, [] {
                      const std::u16string name = itemU(process(), LNG1_TEXT_LOCALE);
                      std::string text;
                      for (const char16_t unit : name)
                          text += static_cast<char>(unit);
                      return text;
                  }));
    }
}

TEST(ProcessLocale, StaysAsItWasAtFirstUse) {
    EXPECT_EQ("same 819", inChild({"de_DE.ISO-8859-1"}, [] {
                  CXLocale *first = process();
                  setenv("LC_ALL", "fr_FR.UTF-8", 1);
                  CXReleaseLocale(first, 0);
                  return std::string(process() == first ? "same " : "other ") +
                         std::to_string(LNG1_GetLocaleNumInfo(process(), LNG1_CODEPAGE_ID, 0));
              }));
}

TEST(ProcessLocale, StandsForItsOwnCodePage) {
    EXPECT_EQ("own", inChild({"de_DE.ISO-8859-1"}, [] {
                  long error = 0;
                  return std::string(LNG1_GetLocale(0, 819, 0, &error) == process() ? "own" : "another");
              }));
}

TEST(GetLocale, GivesTheProcessesLanguageWithAnotherCodePage) {
    EXPECT_EQ("de DE Shift_JIS", inChild({"de_DE.ISO-8859-1"}, [] {
                  const Locale locale = open("Shift_JIS");
                  return item(locale.get(), LNG1_TEXT_LANGUAGE) + ' ' +
                         item(locale.get(), LNG1_TEXT_COUNTRY) + ' ' + item(locale.get(), LNG1_TEXT_CODEPAGE);
              }));
}

TEST(GetLocale, RefusesUnknownCodePages) {
    for (const std::int32_t id : {0, -1, -2, 7, 99999, 2147483647}) {
        long error = 0;
        EXPECT_EQ(nullptr, LNG1_GetLocale(0, id, 0, &error));
        EXPECT_EQ(30, error);
    }
    EXPECT_EQ(nullptr, LNG1_GetLocale(0, 0, 0, nullptr));
}

TEST(NumInfo, TellsTheCodePage) {
    const Locale locale = open("ibm-930");
    const struct {
        CXLocale *locale;
        std::int32_t key, value;
    } rows[] = {
        {locale.get(), 9, 930}, {locale.get(), 85, 4}, {locale.get(), 86, 0},
        {locale.get(), 1, -1},  {process(), 86, 1},    {nullptr, 86, 1}, // no locale is not EBCDIC
    };
    for (const auto &row : rows)
        EXPECT_EQ(row.value, LNG1_GetLocaleNumInfo(row.locale, row.key, 0)) << row.key;
    EXPECT_EQ(35, CXGetError(locale.get()));
}

TEST(TextInfo, IsInTheLocalesCodePage) {
    const Locale ebcdic = open("ibm-37");
    EXPECT_EQ("\xC9\xC2\xD4\xF0\xF3\xF7", item(ebcdic.get(), LNG1_TEXT_CODEPAGE));
    EXPECT_EQ(u"IBM037", itemU(ebcdic.get(), LNG1_TEXT_CODEPAGE));
    const Locale wide = open("UTF-16BE");
    EXPECT_EQ(std::string("\0U\0T\0F\0-\0001\0006\0B\0E", 16), item(wide.get(), LNG1_TEXT_CODEPAGE));
}

TEST(TextInfo, FailsForUnknownItemsAndShortBuffers) {
    const Locale locale = open("windows-1252");
    for (const std::int32_t which : {0, 5, -1, 2147483647})
        EXPECT_EQ("35", item(locale.get(), which)) << which;
    EXPECT_EQ(u"failed", itemU(locale.get(), 99));
    EXPECT_EQ("40", item(locale.get(), LNG1_TEXT_CODEPAGE, 11));
    EXPECT_EQ("windows-1252", item(locale.get(), LNG1_TEXT_CODEPAGE, 12));
    EXPECT_EQ(u"failed", itemU(locale.get(), LNG1_TEXT_CODEPAGE, 11));
    EXPECT_EQ(u"windows-1252", itemU(locale.get(), LNG1_TEXT_CODEPAGE, 12));
    const Locale pairsOnly = open("ibm-971"); // has no Latin letters but wide ones
    EXPECT_EQ("50", item(pairsOnly.get(), LNG1_TEXT_CODEPAGE));
}

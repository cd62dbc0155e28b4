#include <support/failalloc.h>
#include <support/traced.h>

#include <services/lng1.h>
#include <tovdom/tovnls/tovnls.h>
#include <tovutil/tovutil.h>

#include <gtest/gtest.h>

#include <bit>
#include <string>
#include <thread>
#include <vector>

namespace {

TovUString units(const TovNls &nls, std::string_view bytes) {
    auto result = nls.toUnicode(bytes.data(), static_cast<std::int32_t>(bytes.size()));
    EXPECT_FALSE(result.owned);
    result.own();
    return TovUString(result.view());
}

TovString bytes(const TovNls &nls, std::u16string_view text) {
    auto result = nls.fromUnicode(text.data(), static_cast<std::int32_t>(text.size()));
    EXPECT_FALSE(result.owned);
    result.own();
    return TovString(result.view());
}

using namespace std::literals;

TEST(TovNls, ConvertsBothWaysInAllForms) {
    const struct {
        const TovUChar *page;
        std::string_view encoded;
        std::u16string_view text;
    } rows[] = {
        {u"utf-8", "a\0\xC3\xBC\xF0\x9F\x98\x80"sv, u"a\0\u00FC\U0001F600"sv},
        {u"UTF-16LE", "a\0\xFC\0\x3D\xD8\0\xDE"sv, u"a\u00FC\U0001F600"sv},
        {u"UTF-16BE", "\0a\0\xFC\xD8\x3D\xDE\0"sv, u"a\u00FC\U0001F600"sv},
        {u"windows-1252", "a\x80\xFC"sv, u"a\u20AC\u00FC"sv},
        {u"ibm-37", "\x81\xC1\x40"sv, u"aA "sv},
        {u"Shift_JIS", "a\x82\xA0\xB1"sv, u"a\u3042\uFF71"sv},
        {u"GB18030", "a\xC4\xE3\x81\x30\x84\x36\x94\x39\xFC\x36"sv, u"a\u4F60\u00A5\U0001F600"sv},
    };
    for (const auto &row : rows) {
        const TovNls nls(row.page);
        SCOPED_TRACE(tovToMbcs(row.page, 0xFFFFFFFFU, false).c_str());
        EXPECT_EQ(row.text, units(nls, row.encoded));
        EXPECT_EQ(row.encoded, bytes(nls, row.text));
        EXPECT_EQ(u"", units(nls, ""));
        EXPECT_EQ("", bytes(nls, u""));
    }
}

TEST(TovNls, TerminatesBehindTheWorstCase) {
    const struct {
        const TovUChar *page;
        std::string_view encoded;
        std::int32_t unitLength, unitEnd;
    } rows[] = {
        {u"utf-8", "\xC3\xBC", 1, 1}, {u"utf-8", "ab\xC3", 0, 0},        {u"UTF-16", "abcde", 2, 2},
        {u"UTF-16BE", "a", 0, 0},     {u"Shift_JIS", "\x82\xA0x", 2, 3}, {u"windows-1252", "", 0, 0},
    };
    for (const auto &row : rows) {
        const TovNls nls(row.page);
        auto result = nls.toUnicode(row.encoded.data(), static_cast<std::int32_t>(row.encoded.size()));
        result.own();
        EXPECT_EQ(row.unitLength, result.length);
        EXPECT_EQ(0, result.buffer[row.unitEnd]);
    }
    const TovNls sjis(u"Shift_JIS");
    auto result = sjis.fromUnicode(u"\u3042x", 2);
    result.own();
    EXPECT_EQ(3, result.length);
    EXPECT_EQ(0, result.buffer[2 * sjis.getMaxByteLen()]);
}

TEST(TovNls, TakesNegativeLengthsUpToTheTerminator) {
    const TovNls utf8(u"utf-8"),
        swapped(std::endian::native == std::endian::little ? u"UTF-16BE" : u"UTF-16LE");
    auto text = utf8.toUnicode("ab\0c", -1);
    text.own();
    EXPECT_EQ(u"ab", text.view());
    auto encoded = utf8.fromUnicode(u"ab\0c", -5);
    encoded.own();
    EXPECT_EQ("ab", encoded.view());
    auto cut = swapped.toUnicode("ab\0c", -1);
    cut.own();
    EXPECT_EQ(1, cut.length) << "the first 0 byte ends the source, also where it is half a unit";
}

TEST(TovNls, StopsAtWhatDoesNotConvert) {
    const TovNls latin(u"iso-8859-1"), sjis(u"Shift_JIS");
    EXPECT_EQ("ab", bytes(latin, u"ab\u20ACcd"));
    EXPECT_EQ("", bytes(latin, u"\u20AC"));
    EXPECT_EQ(u"a", units(sjis, "a\x82"));
    EXPECT_EQ(u"a", units(sjis, "a\xFF"
                                "b"));
    EXPECT_EQ("\xED\xA0\x80", bytes(TovNls(u"utf-8"), u"\xD800"sv))
        << "UTF-8 takes lone surrogates as they are";
}

TEST(TovNls, TellsAboutItsCodePage) {
    const struct {
        const TovUChar *name, *shown;
        std::int32_t most, least;
    } rows[] = {
        {u"utf-8", u"UTF-8", 6, 1},
        {u"UTF-2", u"UTF-16", 2, 2},
        {u"utf-16be", u"UTF-16", 2, 2},
        {u"UTF-16LE", u"UTF-16", 2, 2},
        {u"windows-1252", u"WINDOWS-1252", 1, 1},
        {u"Shift_JIS", u"SHIFT_JIS", 2, 1},
        {u"GB18030", u"GB18030", 4, 1},
    };
    for (const auto &row : rows) {
        const TovNls nls(row.name);
        EXPECT_EQ(TovUString(row.shown), nls.getCodePage());
        EXPECT_EQ(row.most, nls.getMaxByteLen());
        EXPECT_EQ(row.least, nls.getMinByteLen());
        EXPECT_EQ(tovGetCodePage(row.name)->id, nls.getCodePageId());
    }
    EXPECT_TRUE(TovNls(u"ibm-37").isEbcdicBased());
    EXPECT_FALSE(TovNls(u"windows-1252").isEbcdicBased());
    EXPECT_TRUE(TovNls::isNativeUtf16(u"utf-16"));
    EXPECT_EQ(std::endian::native == std::endian::little, TovNls::isNativeUtf16(u"UTF-16LE"));
    EXPECT_FALSE(TovNls::isNativeUtf16(u"unknown"));
    EXPECT_FALSE(TovNls::isNativeUtf16(nullptr));
}

TEST(TovNls, RaisesForAnUnknownName) {
    tovtest::TraceRecorder recorder("TovNls::TovNls=flow,TovError::*=state");
    try {
        TovNls nls(u"no such page");
        FAIL();
    } catch (const TovErrorFull &error) {
        EXPECT_STREQ("TOVRC_NLS_ERROR  Pos(0) ErrorType(ERROR),\n"
                     "NLS: Invalid code page specified. (no such page)",
                     error.getErrorMessage());
        EXPECT_EQ(0U, std::string(error.getLocation())
                          .find("From (TovNls::TovNls), Line(204) in module (tovnls) Build("));
        EXPECT_NE(nullptr, strstr(error.getLocation(), "Version($Revision: "));
    }
    const auto lines = recorder.lines();
    ASSERT_LE(4U, lines.size());
    EXPECT_EQ("> TovNls::TovNls", lines[0]);
    EXPECT_EQ(0U, lines[2].find("TovError::logRaise: State - TOVRC_NLS_ERROR"));
}

TEST(TovNls, MayBeUsedByManyThreads) {
    const TovNls sjis(u"Shift_JIS"), gb(u"GB18030");
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([&] {
            for (int k = 0; k < 200; ++k) {
                EXPECT_EQ(u"\u3042a", units(sjis, "\x82\xA0"
                                                  "a"));
                EXPECT_EQ("\xC4\xE3", bytes(gb, u"\u4F60"));
            }
        });
    for (std::thread &thread : threads)
        thread.join();
}

TEST(TovNls, RefusesLengthsWhoseWorstCaseDoesNotFit) {
    // The length is refused before a unit is read.
    const auto refused = [](const TovNls &nls, std::int32_t length) {
        try {
            nls.fromUnicode(u"", length);
        } catch (const TovErrorFull &error) {
            return error.getReturnCode() == TOVRC_INTERNAL_ERROR;
        }
        return false;
    };
    EXPECT_TRUE(refused(TovNls(u"utf-8"), 0x20000000));
    EXPECT_TRUE(refused(TovNls(u"UTF-16"), 0x40000000));
    EXPECT_TRUE(refused(TovNls(u"Shift_JIS"), 0x40000000));
    EXPECT_TRUE(refused(TovNls(u"GB18030"), 0x20000000));
}

TEST(LocalePrimitives, GiveEmptyHandlesForNull) {
    const auto toUnits = tovNlsToUnicode(nullptr, 5, nullptr);
    EXPECT_EQ(nullptr, toUnits.buffer);
    EXPECT_EQ(0, toUnits.length);
    const auto toBytes = tovNlsFromUnicode(nullptr, -1, nullptr);
    EXPECT_EQ(nullptr, toBytes.buffer);
    EXPECT_FALSE(toBytes.owned);
}

TEST(LocalePrimitives, AllocateOnceForTheWorstCase) {
    CXLocale *locale = tovNlsGetLocale(tovGetCodePage(u"Shift_JIS")->id);
    tovNlsToUnicode("warm up", -1, locale).own();
    const long before = tovtest::allocationCount();
    tovNlsToUnicode("\x82\xA0text", 6, locale).own();
    EXPECT_EQ(before + 1, tovtest::allocationCount());
    tovNlsFromUnicode(u"\u3042text", 5, locale).own();
    EXPECT_EQ(before + 2, tovtest::allocationCount());
    CXReleaseLocale(locale, 0);
}

// What a failing primitive raises, as "function line|message".
template <class Call>
std::string failure(Call call) {
    try {
        call();
    } catch (const TovErrorFull &error) {
        const std::string location = error.getLocation();
        return location.substr(0, location.find(" in module (tovnls)")) + "|" + error.getErrString().c_str();
    }
    return {};
}

TEST(LocalePrimitives, RaiseWithTheMessageOfTheClosedLibrary) {
    CXLocale *process = LNG1_PrivateFunction_GetProcessLocale();
    EXPECT_EQ("From (tovNlsGetLocale), Line(39)|NLS: Invalid code page specified.",
              failure([] { tovNlsGetLocale(59999); }));
    EXPECT_EQ("From (tovNlsGetLocaleTextInfoU), Line(64)|NLS: Invalid value specified in type.",
              failure([&] { tovNlsGetLocaleTextInfoU(process, -77).own(); }));
    EXPECT_EQ("From (tovNlsGetLocaleTextInfo), Line(91)|NLS: Invalid value specified in type.",
              failure([&] { tovNlsGetLocaleTextInfo(process, -77).own(); }));
}

TEST(LocalePrimitives, TraceTheCodePage) {
    CXLocale *process = LNG1_PrivateFunction_GetProcessLocale();
    tovtest::TraceRecorder recorder("tovNlsGetLocale*=flow");
    failure([&] { tovNlsGetLocaleTextInfo(process, -77).own(); });
    CXReleaseLocale(tovNlsGetLocale(tovGetCodePage(u"cp1252")->id), 0);
    const auto lines = recorder.lines();
    ASSERT_EQ(5U, lines.size());
    EXPECT_EQ("tovNlsGetLocaleTextInfo: Args - codepage(57352) ", lines[1]);
    EXPECT_EQ("< tovNlsGetLocale", lines[4]);
}

TEST(getErrorMsg, NamesTheCodesOfTheClosedLibraries) {
    EXPECT_STREQ("NLS: No error.", TovNls::getErrorMsg(0));
    EXPECT_STREQ("NLS: Output buffer not large enough to contain entire string (not fatal).",
                 TovNls::getErrorMsg(40));
    for (std::int32_t other : {-1, 3, 19, 41, 1000})
        EXPECT_STREQ("NLS: Operation failed.", TovNls::getErrorMsg(other));
}

TEST(TovAutoBuffer, FreesWhatItOwns) {
    TovAutoBuffer<TovUChar> owner(4);
    EXPECT_EQ(4, owner.length);
    EXPECT_TRUE(owner.owned);
    TovAutoBuffer<TovUChar> copy(owner);
    copy.owned = false; // one of two owners
    owner.release();
    EXPECT_EQ(nullptr, owner.buffer);
    EXPECT_EQ(0, owner.length);
    EXPECT_EQ(u"", TovAutoBuffer<TovUChar>().view());
}

} // namespace

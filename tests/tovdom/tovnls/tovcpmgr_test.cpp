#include <support/random.h>
#include <support/traced.h>

#include <services/lng1.h>
#include <tovdom/tovnls/tovcpmgr.h>
#include <tovutil/tovutil.h>

#include <gtest/gtest.h>

#include <bit>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace {

constexpr bool littleEndian = std::endian::native == std::endian::little;

TEST(tovGetCodePage, GivesTheFixedRowsWithoutRegardToCase) {
    const struct {
        const TovUChar *name;
        std::int32_t id;
    } rows[] = {
        {u"UTF-16", -2},
        {u"utf-16", -2},
        {u"UTF-2", -2},
        {u"IBM-1200", -2},
        {u"ibm1200", -2},
        {u"Cp1200", -2},
        {u"utf-8", 57352},
        {u"ISO-10646-UCS-2", -2},
        {u"UTF-16LE", littleEndian ? -2 : -1},
        {u"Utf-8", 57352},
        {u"UTF-16BE", littleEndian ? -1 : -2},
    };
    for (const auto &row : rows) {
        const TovCodePage *page = tovGetCodePage(row.name);
        ASSERT_NE(nullptr, page);
        EXPECT_EQ(row.id, page->id);
        EXPECT_EQ(tovToUpper(row.name), page->name);
    }
}

TEST(tovGetCodePage, GivesTheProcessCodePageWithoutAName) {
    const TovCodePage *first = tovGetCodePage(nullptr);
    EXPECT_EQ(first, tovGetCodePage(u""));
    EXPECT_EQ(57352, first->id);
    EXPECT_EQ(first, tovGetCodePage(u"UTF-8")) << "the process's own row comes first";
}

TEST(tovGetCodePage, AddsARowForEverySpellingThatTheClosedLibraryKnows) {
    const TovCodePage *name = tovGetCodePage(u"windows-1252");
    ASSERT_NE(nullptr, name);
    EXPECT_EQ(u"WINDOWS-1252", name->name);
    EXPECT_EQ(name, tovGetCodePage(u"Windows-1252"));
    const TovCodePage *alias = tovGetCodePage(u"cp1252");
    ASSERT_NE(nullptr, alias);
    EXPECT_NE(name, alias);
    EXPECT_EQ(name->id, alias->id);
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(nullptr, tovGetCodePage(u"no such page"));
    EXPECT_EQ(nullptr, tovGetCodePage(u"latin1\xD800 and more"))
        << "it begins with a name, and does not convert";
    EXPECT_EQ(nullptr, tovGetCodePage(u"windows_1252")) << "letters count, one by one";
}

TEST(tovGetCodePage, RefusesLongNames) {
    EXPECT_EQ(nullptr, tovGetCodePage(TovUString(32, u'x').c_str()));
    EXPECT_EQ(nullptr, tovGetCodePage(TovUString(16, u'\u00E4').c_str())) << "32 bytes";
    for (const TovUString &name : {TovUString(33, u'x'), TovUString(17, u'\u00E4')}) {
        try {
            tovGetCodePage(name.c_str());
            FAIL();
        } catch (const TovErrorFull &error) {
            EXPECT_EQ(TOVRC_NLS_ERROR, error.getReturnCode());
            EXPECT_EQ("NLS: Invalid code page specified. (" + tovToMbcs(name.c_str(), 0xFFFFFFFFU, false) +
                          ")",
                      error.getErrString());
            EXPECT_EQ(0U, error.getPosition());
            EXPECT_EQ(0U, std::string(error.getLocation())
                              .find("From (tovGetCodePage), Line(174) in module (tovcpmgr) Build("));
        }
    }
}

TEST(tovGetCodePage, GivesOneRowToThreadsThatAskForANewNameAtOnce) {
    const TovUChar *names[] = {u"iso-8859-2", u"iso-8859-3", u"iso-8859-4", u"iso-8859-5",
                               u"iso-8859-6", u"iso-8859-7", u"iso-8859-8", u"iso-8859-9"};
    std::vector<std::vector<const TovCodePage *>> seen(4);
    std::vector<std::thread> threads;
    for (auto &mine : seen)
        threads.emplace_back([&] {
            for (const TovUChar *name : names)
                mine.push_back(tovGetCodePage(name));
        });
    for (std::thread &thread : threads)
        thread.join();
    for (const auto &mine : seen)
        EXPECT_EQ(seen[0], mine);
    EXPECT_EQ(8U, std::set<const TovCodePage *>(seen[0].begin(), seen[0].end()).size());
}

TEST(tovGetCodePage, DoesNotGrowUnderHostileNames) {
    // Spellings that look like names, wrong in one place or in case only.
    const std::u16string_view known[] = {u"windows-1250", u"shift_jis", u"gb18030", u"ibm-37", u"iso-8859-15",
                                         u"koi8-r",       u"big5",      u"euc-jp",  u"cp850",  u"latin1"};
#ifdef TOV_THREAD_SANITIZER
    const int spellings = 50000;
#else
    const int spellings = 1000000;
#endif
    auto random = tovtest::generator();
    std::set<const TovCodePage *> rows;
    for (int i = 0; i < spellings; ++i) {
        TovUString name(known[random() % std::size(known)]);
        const std::size_t at = random() % name.size();
        switch (random() % 4) {
        case 0:
            name[at] = static_cast<TovUChar>(1 + random() % 0xFFFF);
            break;
        case 1:
            name.insert(at, 1, u"-_ ."[random() % 4]);
            break;
        case 2:
            name.erase(at, 1);
            break;
        default:
            name[at] = static_cast<TovUChar>(name[at] ^ 0x20);
            break;
        }
        if (name.size() <= 10 && !name.empty() && name[0] != 0)
            if (const TovCodePage *row = tovGetCodePage(name.c_str()))
                rows.insert(row);
    }
    // All that came back is a known alias: one spelling in capitals each.
    std::set<TovUString> names;
    for (const TovCodePage *row : rows)
        names.insert(row->name);
    EXPECT_EQ(rows.size(), names.size());
    for (const TovUString &name : names)
        EXPECT_LT(0, LNG1_GetCodepageId(tovToMbcs(name.c_str(), 0xFFFFFFFFU, false).c_str(), nullptr));
}

TEST(tovGetCodePage, TracesItsName) {
    tovtest::TraceRecorder recorder("tovGetCodePage=flow");
    tovGetCodePage(u"utf-8");
    tovGetCodePage(nullptr);
    const auto lines = recorder.lines();
    ASSERT_EQ(8U, lines.size());
    EXPECT_EQ("tovGetCodePage: Args - cpName(utf-8) ", lines[1]);
    EXPECT_EQ(0U, lines[2].find("tovGetCodePage: Return - 0x"));
    EXPECT_EQ("< tovGetCodePage", lines[3]);
    EXPECT_EQ("tovGetCodePage: Args - cpName() ", lines[5]);
}

// Last in this file: the table does not come back.
TEST(TovCpMgr, RaisesAfterItsRelease) {
    loadCpTable();
    TovCpMgr_release();
    EXPECT_THROW(tovGetCodePage(u"utf-8"), TovErrorFull);
    TovCpMgr_release();
}

} // namespace

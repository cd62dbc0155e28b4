// The list of code pages: ids, names, and what leads from one to the other.
#include "pages.h"

#include <support/random.h>

#include <gtest/gtest.h>

#include <map>
#include <set>

using namespace tovtest;

namespace {

std::int32_t idOf(const char *name) { return LNG1_GetCodepageId(name, nullptr); }

std::string nameOf(std::int32_t id, std::int32_t capacity = 32) {
    std::string text(static_cast<std::size_t>(capacity) + 1, '#');
    LNG1_GetCodepageName(id, text.data(), capacity);
    EXPECT_EQ('#', text.back());
    return text.c_str();
}

std::string canonical(const std::string &name) {
    UErrorCode status = U_ZERO_ERROR;
    const char *icuName = ucnv_getAlias(name.c_str(), 0, &status);
    return icuName ? icuName : "";
}

// The CCSIDs by the rule, told anew from ICU's converters: the number that ICU gives for the page, where
// "ibm-NUMBER" is an alias of this page and of no other.
std::map<std::string, std::int32_t> expectedCcsids() {
    std::map<std::string, std::set<std::string>> pagesOfAlias;
    std::map<std::string, std::int32_t> numbers;
    for (std::int32_t i = 0; i < ucnv_countAvailable(); ++i) {
        const char *page = ucnv_getAvailableName(i);
        UErrorCode status = U_ZERO_ERROR;
        for (std::uint16_t k = 0; k < ucnv_countAliases(page, &status); ++k)
            pagesOfAlias[ucnv_getAlias(page, k, &status)].insert(page);
        UConverter *icu = ucnv_open(page, &status);
        numbers[page] = ucnv_getCCSID(icu, &status);
        ucnv_close(icu);
    }
    std::map<std::string, std::int32_t> ccsids;
    for (const auto &[page, number] : numbers)
        if (number > 0 && pagesOfAlias["ibm-" + std::to_string(number)] == std::set<std::string>{page})
            ccsids[page] = number;
    return ccsids;
}

} // namespace

TEST(CodePageIds, AreTheCcsidWhereThatNamesOnePageAndLeadsBack) {
    const auto ccsids = expectedCcsids();
    ASSERT_GT(ccsids.size(), 100U);
    for (const std::int32_t id : allPages()) {
        const std::string name = nameOf(id);
        const auto known = ccsids.find(canonical(name));
        if (id == 57352) {
            EXPECT_EQ("UTF-8", name);
        } else if (known != ccsids.end()) {
            EXPECT_EQ(known->second, id) << name;
        } else {
            EXPECT_TRUE(id >= 100000 && id < 1000000) << name << ' ' << id;
        }
    }
}

// Programs store these numbers: they may not move with another version of ICU.
TEST(CodePageIds, StayWhatTheyAre) {
    const struct {
        const char *name;
        std::int32_t id;
    } rows[] = {
        {"UTF-8", 57352},       {"IBM037", 37},          {"ISO-8859-1", 819},   {"GB18030", 1392},
        {"windows-1252", 5348}, {"Shift_JIS", 130630},   {"EUC-JP", 446743},    {"Big5", 593982},
        {"GBK", 705198},        {"ISO-2022-JP", 889236}, {"UTF-7", 108666},     {"ibm-943", 455226},
        {"ibm-930", 930},       {"UTF-16BE", 1200},      {"macintosh", 465088},
    };
    for (const auto &row : rows)
        EXPECT_EQ(row.id, idOf(row.name)) << row.name;
}

TEST(CodePageNames, LeadBackToTheirPage) {
    std::set<std::int32_t> ids;
    std::int32_t before = 0;
    for (std::size_t i = 0; i < ZPT_CodepageCount(); ++i) {
        const std::int32_t id = ZPT_CodepageIdAt(i);
        EXPECT_GT(id, before) << "ascending, each once";
        before = id;
        const std::string name = ZPT_CodepageNameAt(i);
        EXPECT_LE(name.size(), 31U);
        EXPECT_EQ(id, idOf(name.c_str())) << name;
        EXPECT_EQ(name, nameOf(id));
    }
    EXPECT_GT(ZPT_CodepageCount(), 200U);
    EXPECT_EQ(0, ZPT_CodepageIdAt(ZPT_CodepageCount()));
    EXPECT_STREQ("", ZPT_CodepageNameAt(ZPT_CodepageCount()));
}

TEST(CodePageNames, AreTheWellKnownOnes) {
    const struct {
        const char *alias, *name;
    } rows[] = {
        {"latin1", "ISO-8859-1"},     {"cp037", "IBM037"},  {"MS_Kanji", "Shift_JIS"},
        {"ibm-5348", "windows-1252"}, {"eucjis", "EUC-JP"}, {"csISO2022JP", "ISO-2022-JP"},
    };
    for (const auto &row : rows)
        EXPECT_EQ(row.name, nameOf(idOf(row.alias))) << row.alias;
}

TEST(CodePageNames, CountExactlyButForAsciiCase) {
    const std::int32_t page = idOf("ISO-8859-15");
    ASSERT_GT(page, 0);
    EXPECT_EQ(page, idOf("iso-8859-15"));
    for (const char *loose : {"ISO8859 15", "iso_8859-15", "ISO-8859-015", "ISO-8859-15 ", " ISO-8859-15",
                              "ISO-8859-15,swaplfnl", "utf8", "", "-", "nonsense",
                              "ISO-8859-\xC4\xB1"
                              "5"})
        EXPECT_EQ(0, idOf(loose)) << loose;
    EXPECT_EQ(0, LNG1_GetCodepageId(nullptr, nullptr));
}

// Each spelling that resolves becomes a row of a table that is never emptied.
TEST(CodePageNames, HaveAsManySpellingsAsIcuHasAliases) {
    std::set<std::string> aliases;
    for (std::int32_t i = 0; i < ucnv_countAvailable(); ++i) {
        const char *page = ucnv_getAvailableName(i);
        UErrorCode status = U_ZERO_ERROR;
        for (std::uint16_t k = 0; k < ucnv_countAliases(page, &status); ++k) {
            std::string alias = ucnv_getAlias(page, k, &status);
            const bool offered = std::string_view(page) != "x11-compound-text";
            EXPECT_EQ(offered, idOf(alias.c_str()) > 0) << alias;
            for (char &c : alias)
                c = c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
            aliases.insert(alias);
        }
    }
    std::mt19937_64 random = generator(1);
    const std::vector<std::string> known(aliases.begin(), aliases.end());
    for (int i = 0; i < 100000; ++i) {
        std::string name = known[random() % known.size()];
        name.insert(random() % (name.size() + 1), 1, "-_ 0.,aZ"[random() % 8]);
        if (idOf(name.c_str()) == 0)
            continue;
        for (char &c : name)
            c = c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
        EXPECT_EQ(1U, aliases.count(name)) << name;
    }
}

TEST(CodePageNames, AreCutToTheBufferAndEmptyForUnknownIds) {
    EXPECT_EQ("windows", nameOf(5348, 8));
    EXPECT_EQ("", nameOf(5348, 1));
    for (const std::int32_t id : {0, -1, -2, 1, 99999, 1000000, 2147483647})
        EXPECT_EQ("", nameOf(id)) << id;
    LNG1_GetCodepageName(5348, nullptr, 32);
}

TEST(CodePages, TellWhetherTheyAreEbcdic) {
    const struct {
        const char *page;
        bool ebcdic;
        std::int32_t maxBytes;
    } rows[] = {
        {"ibm-37", true, 1},          {"ibm-290", true, 1},        {"ibm-930", true, 4},
        {"ibm-16684", true, 2},       {"windows-1252", false, 1},  {"UTF-8", false, 4},
        {"GB18030", false, 4},        {"Shift_JIS", false, 2},     {"UTF-16BE", false, 4},
        {"gsm-03.38-2009", false, 2}, {"ISO-2022-JP-2", false, 9},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.page);
        const Page page(row.page);
        EXPECT_EQ(row.ebcdic, page.ebcdic());
        EXPECT_EQ(row.maxBytes, page.maxBytes());
    }
}

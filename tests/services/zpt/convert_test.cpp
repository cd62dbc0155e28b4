// Conversion against ICU itself: every byte, every pair of bytes, every unit, and random mixes, for every
// code page; and the rules on room, bad input and state that ICU does not give.
#include "pages.h"

#include <support/random.h>

#include <gtest/gtest.h>

#include <algorithm>

using namespace tovtest;

namespace {

// The same page in both hands. The name that we give for it must open it in ICU, too.
struct Pair {
    Page ours;
    std::string name;
    Icu icu;
    explicit Pair(std::int32_t id) : ours(id), name(ours.name()), icu(name) { ours.warmUp(); }

    void expectToUnits(std::string_view bytes) {
        const std::u16string got = ours.toUnits(bytes, 3 * bytes.size() + 3), want = icu.toUnits(bytes);
        if (got != want) // no macro on the way, for there are millions of these
            ADD_FAILURE() << name << ": " << hex(bytes) << "gives " << hex(got) << "not " << hex(want);
    }
    // Without a string on the way, for the tests that do nothing else. Only what differs is looked at again.
    void expectFromUnitsOfStateless(const char16_t *units, std::size_t count) {
        char got[16], want[16];
        char *to = want;
        const char16_t *from = units;
        UErrorCode status = U_ZERO_ERROR;
        const int written = CXUnicodeToStringEx(ours.locale(), got, 0, sizeof got, units, int(count), 0);
        ucnv_resetFromUnicode(icu.get());
        ucnv_fromUnicode(icu.get(), &to, std::end(want), &from, units + count, nullptr, true, &status);
        if (written != to - want || std::memcmp(got, want, std::size_t(written)) != 0)
            expectFromUnits({units, count});
    }

    void expectFromUnits(std::u16string_view units) {
        const std::string got = ours.fromUnits(units), want = icu.fromGoodPart(units);
        if (got != want)
            ADD_FAILURE() << name << ": " << hex(units) << "gives " << hex(got) << "not " << hex(want);
    }
};

bool isTableType(UConverterType type) { return type <= UCNV_LATIN_1 || type == UCNV_US_ASCII; }

// Units that combine with the one before them in some page.
constexpr char16_t c_combining[] = {0x309A, 0x0300, 0x0301, 0x0304, 0x030C, 0x02E5, 0x02E9};

std::u16string randomUnits(std::mt19937_64 &random, std::size_t most) {
    std::u16string units;
    for (std::size_t left = random() % (most + 1); left > 0; --left) {
        static constexpr struct {
            char16_t first, count;
        } ranges[] = {{0x20, 0x60},     {0x20, 0x60},     {0x0, 0x180},    {0x370, 0x100},
                      {0x900, 0x480},   {0x2000, 0x400},  {0x3000, 0x100}, {0x3000, 0x100},
                      {0x4E00, 0x5200}, {0xAC00, 0x2BA4}, {0xFF00, 0xF0}};
        const auto kind = random() % 100;
        const auto &range = ranges[kind % std::size(ranges)];
        if (kind == 99)
            units += static_cast<char16_t>(random());
        else if (kind == 98)
            units += character(static_cast<char32_t>(0x10000 + random() % 0x20000));
        else if (kind == 97)
            units += c_combining[random() % std::size(c_combining)];
        else
            units += static_cast<char16_t>(range.first + random() % range.count);
    }
    return units;
}

// Bytes that a page's own text consists of, now and then with one changed.
std::string randomBytes(std::mt19937_64 &random, Pair &pair) {
    std::string bytes;
    while (bytes.size() < random() % 60)
        bytes += pair.icu.fromGoodPart(randomUnits(random, 8));
    if (!bytes.empty() && random() % 3 == 0)
        bytes[random() % bytes.size()] = static_cast<char>(random());
    return bytes;
}

} // namespace

TEST(TablePages, GiveForEveryByteAndPairWhatIcuGives) {
    for (const std::int32_t id : allPages()) {
        Pair pair(id);
        if (!isTableType(pair.icu.type()))
            continue;
        const bool pairs = pair.ours.maxBytes() > 1;
        for (unsigned lead = 0; lead < 0x100; ++lead) {
            const char first = static_cast<char>(lead);
            pair.expectToUnits({&first, 1});
            for (unsigned trail = 0; pairs && trail < 0x100; ++trail) {
                const char both[] = {first, static_cast<char>(trail), 'A'};
                pair.expectToUnits({both, 3});
            }
        }
    }
}

TEST(TablePages, GiveForEveryUnitWhatIcuGives) {
    for (const std::int32_t id : allPages()) {
        Pair pair(id);
        if (!isTableType(pair.icu.type()))
            continue;
        for (unsigned unit = 0; unit < 0x10000; ++unit) {
            const char16_t one = static_cast<char16_t>(unit);
            pair.expectFromUnitsOfStateless(&one, 1);
        }
    }
}

// A unit that may combine with the next one must not be converted before that is seen.
TEST(TablePages, LeaveUnitsThatCombineToIcu) {
    for (const std::int32_t id : allPages()) {
        Pair pair(id);
        if (!isTableType(pair.icu.type()) || pair.ours.maxBytes() == 1)
            continue;
        for (unsigned unit = 0; unit < 0x10000; unit += unit >= 0x4E00 && unit < 0xE000 ? 97 : 1)
            for (const char16_t next : c_combining) {
                const char16_t text[] = {static_cast<char16_t>(unit), next};
                pair.expectFromUnitsOfStateless(text, 2);
            }
    }
    const Page page("ibm-16684");
    page.warmUp();
    const std::string combined = page.fromUnits(u"\u304B\u309A");
    EXPECT_EQ(2U, combined.size()) << "two characters of one code";
    EXPECT_EQ(hex(page.fromUnits(u"\u3042\u3042") + combined + page.fromUnits(u"\u3042")),
              hex(page.fromUnits(u"\u3042\u3042\u304B\u309A\u3042")));
    EXPECT_EQ(hex(std::u16string(u"\u304B\u309A")), hex(page.toUnits(combined + combined, 3)));
}

TEST(AllPages, ConvertRandomTextsAsIcuDoes) {
    std::mt19937_64 random = generator(1);
    for (const std::int32_t id : allPages()) {
        Pair pair(id);
        for (int i = 0; i < 400; ++i) {
            pair.expectFromUnits(randomUnits(random, 80));
            pair.expectToUnits(randomBytes(random, pair));
        }
    }
}

// Long runs of what no table holds take ICU's windows through all their sizes.
TEST(AllPages, ConvertLongTextsAsIcuDoes) {
    std::mt19937_64 random = generator(2);
    for (const char *name :
         {"GB18030", "EUC-JP", "Big5-HKSCS", "Shift_JIS", "ibm-930", "ISO-2022-JP", "UTF-8"}) {
        Pair pair(LNG1_GetCodepageId(name, nullptr));
        for (int i = 0; i < 20; ++i) {
            std::u16string units;
            while (units.size() < 3000) {
                std::u16string more = randomUnits(random, 40);
                std::erase_if(more, [&](char16_t c) { return pair.icu.fromUnits({&c, 1}).empty(); });
                for (int four = int(random() % 90); i % 2 != 0 && four > 0; --four)
                    more += static_cast<char16_t>(0x1000 + random() % 0x100);
                units += more;
            }
            pair.expectFromUnits(units);
            pair.expectToUnits(pair.icu.fromGoodPart(units));
        }
    }
}

TEST(AllPages, HaveRoomForEveryTextInLengthTimesLongest) {
    std::mt19937_64 random = generator(3);
    for (const std::int32_t id : allPages()) {
        const Page page(id);
        SCOPED_TRACE(page.name());
        if (page.maxBytes() == 1)
            continue; // every unit of these is tried above
        const auto most = static_cast<std::size_t>(page.maxBytes());
        const std::size_t mark = page.name().starts_with("UTF-16") ? 2 : 0; // that may stand before a pair
        for (char32_t c = 0; c < 0x30000; c += c < 0x3400 ? 1 : 7) {
            const std::u16string text = character(c);
            if (page.fromUnits(text, 64).size() > most + (text.size() - 1) * mark)
                ADD_FAILURE() << "U+" << std::hex << std::uint32_t(c) << " is longer than " << most;
        }
        for (int i = 0; i < 200; ++i) {
            const std::u16string text = randomUnits(random, 12);
            EXPECT_EQ(hex(page.fromUnits(text, 1000)), hex(page.fromUnits(text))) << hex(text);
        }
    }
}

// Whatever the room is, what is written is the conversion of a beginning of the text.
TEST(AllPages, EndAFullTargetWithAWholeCharacter) {
    std::mt19937_64 random = generator(4);
    for (const std::int32_t id : allPages()) {
        Pair pair(id);
        SCOPED_TRACE(pair.name);
        std::u16string units;
        for (int tries = 0; tries < 40 && units.size() < 12; ++tries) {
            const std::u16string more =
                tries % 4 == 0 ? character(0x20000U + char32_t(tries)) : randomUnits(random, 2);
            bool good = false;
            pair.icu.fromUnits(more, &good);
            units += good ? more : u"A";
        }
        std::vector<std::string> beginnings;
        for (std::size_t n = 0; n <= units.size(); ++n) {
            bool good = n == 0;
            beginnings.push_back(n == 0 ? "" : pair.icu.fromUnits(units.substr(0, n), &good));
            if (!good)
                beginnings.pop_back();
        }
        for (std::size_t room = 0; room <= beginnings.back().size(); ++room) {
            const std::string *longest = nullptr;
            for (const std::string &beginning : beginnings)
                if (beginning.size() <= room)
                    longest = &beginning;
            EXPECT_EQ(hex(*longest), hex(pair.ours.fromUnits(units, room))) << hex(units) << "room " << room;
        }
        const std::string bytes = beginnings.back();
        const std::u16string back = pair.icu.toUnits(bytes);
        for (std::size_t room = 0; room <= back.size(); ++room) {
            const std::u16string got = pair.ours.toUnits(bytes, room);
            EXPECT_EQ(hex(back.substr(0, got.size())), hex(got)) << "room " << room;
            EXPECT_TRUE(got.size() + 1 >= room && (got.empty() || (got.back() & 0xFC00) != 0xD800))
                << hex(got);
        }
    }
}

TEST(StatefulPages, EndInTheirInitialState) {
    const struct {
        const char *why, *page;
        std::u16string text;
        std::string bytes;
    } rows[] = {
        {"shift in at the end", "ibm-930", u"A\u4E9C", "\xC1\x0E\x48\x67\x0F"},
        {"and before a unit that is bad", "ibm-930", u"A\u4E9C\u0E01\u4E9C", "\xC1\x0E\x48\x67\x0F"},
        {"escape back to ASCII", "ISO-2022-JP", u"\u3042", "\x1B$B$\"\x1B(B"},
        {"also before a lone surrogate", "ISO-2022-JP", u"\u3042\xD800", "\x1B$B$\"\x1B(B"},
        {"the run of base 64 is closed", "UTF-7", u"\u3042", "+MEI-"},
        {"a bad first unit writes nothing", "ibm-930", u"\u0E01\u4E9C", ""},
        {"nor does a byte order mark stay alone", "UTF-32", u"\xDC00", ""},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.why);
        EXPECT_EQ(hex(row.bytes), hex(Page(row.page).fromUnits(row.text)));
    }
}

TEST(Conversion, StopsAtWhatCantBeConverted) {
    const struct {
        const char *why, *page;
        std::string bytes;
        std::u16string units;
    } rows[] = {
        {"a cut character at the end", "Shift_JIS", "A\x88", u"A"},
        {"an ASCII trail behind a bad lead", "Shift_JIS", "A\x88 B", u"A"},
        {"a byte without a character", "US-ASCII", "AB\x80", u"AB"},
        {"a cut four-byte character", "GB18030", "A\x81\x30\x81", u"A"},
        {"an overlong form", "UTF-8", "A\xC0\x80", u"A"},
        {"an encoded surrogate", "UTF-8", "A\xED\xA0\x80", u"A"},
        {"beyond the last character", "UTF-8", "A\xF4\x90\x80\x80", u"A"},
        {"a cut sequence", "UTF-8", "A\xF0\x9F\x98", u"A"},
        {"a zero is a character", "UTF-8", std::string("A\0B", 3), std::u16string(u"A\0B", 3)},
        {"and in a code page", "windows-1252", std::string("A\0B", 3), std::u16string(u"A\0B", 3)},
        {"a byte order mark stays in UTF-8", "UTF-8", "\xEF\xBB\xBF", u"\uFEFF"},
        {"and is taken where the name leaves the order open", "UTF-32", std::string("\0\0\xFE\xFF\0\0\0A", 8),
         u"A"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.why);
        EXPECT_EQ(hex(row.units), hex(Page(row.page).toUnits(row.bytes)));
    }
}

TEST(Conversion, NeverSubstitutesNorDrops) {
    const struct {
        const char *why, *page;
        std::u16string units;
        std::string bytes;
    } rows[] = {
        {"an unmapped unit", "windows-1252", u"A\u0416B", "A"},
        {"an invisible one is text, too", "windows-1252", u"A\u200BB", "A"},
        {"a soft hyphen as well", "ibm-437", u"A\u00ADB", "A"},
        {"and a variation selector", "Shift_JIS", u"\u4E9C\uFE00", "\x88\x9F"},
        {"a lone lead surrogate", "UTF-8",
         u"A\xD800"
         u"B",
         "A"},
        {"a lone trail surrogate", "UTF-8",
         u"A\xDC00"
         u"B",
         "A"},
        {"a lead surrogate at the end", "GB18030", u"A\xD83D", "A"},
        {"a pair", "GB18030", u"\U0001F600", "\x94\x39\xFC\x36"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.why);
        EXPECT_EQ(hex(row.bytes), hex(Page(row.page).fromUnits(row.units)));
    }
}

TEST(Conversion, TellsWhyItStopped) {
    const Page page("windows-1252");
    page.fromUnits(u"\u0416");
    EXPECT_EQ(50, CXGetError(page.locale()));
    page.fromUnits(u"AB", 1);
    EXPECT_EQ(40, CXGetError(page.locale()));
    page.fromUnits(u"AB");
    EXPECT_EQ(40, CXGetError(page.locale())) << "success leaves the last error alone";
}

TEST(Conversion, RefusesWhatIsNoText) {
    const Page page("UTF-8");
    char16_t unit = 0;
    EXPECT_EQ(0, CXStringToUnicode(&unit, 1, page.locale(), "A", -1, 0));
    EXPECT_EQ(0, CXStringToUnicode(&unit, 1, nullptr, "A", 1, 0));
    EXPECT_EQ(0, CXStringToUnicode(&unit, 0, page.locale(), "A", 1, 0));
    EXPECT_EQ(1, CXStringToUnicode(&unit, 1, page.locale(), "A", 1, 0));
    EXPECT_EQ(u'A', unit);
}

// Strict UTF-8 is ours alone, so all that decides on a sequence is tried against ICU.
TEST(Utf8, ReadsEverySequenceAsIcuDoes) {
    Pair pair(LNG1_GetCodepageId("UTF-8", nullptr));
    constexpr unsigned char edges[] = {0x41, 0x7F, 0x80, 0xBF, 0xC0};
    for (unsigned lead = 0; lead < 0x100; ++lead)
        for (unsigned second = 0; second < 0x100; ++second)
            for (const unsigned char third : edges)
                for (const unsigned char fourth : edges) {
                    const char bytes[] = {static_cast<char>(lead), static_cast<char>(second),
                                          static_cast<char>(third), static_cast<char>(fourth), 'x'};
                    pair.expectToUnits({bytes, 5});
                    pair.expectToUnits({bytes, 2 + fourth % 3U});
                }
}

TEST(Utf8, ConvertsEveryCharacterBothWays) {
    Pair pair(LNG1_GetCodepageId("UTF-8", nullptr));
    for (char32_t c = 0; c < 0x110000; c += c < 0x11000 ? 1 : 257) {
        pair.expectFromUnits(character(c));
        pair.expectToUnits(pair.icu.fromUnits(character(c) + u"12345678"));
    }
}

// A text of ASCII with one other character, at every place and length around the blocks.
TEST(Utf8, FindsTheEndOfAsciiAtEveryPlace) {
    Pair pair(LNG1_GetCodepageId("UTF-8", nullptr));
    for (std::size_t length = 1; length < 70; ++length)
        for (std::size_t place = 0; place < length; ++place)
            for (const char16_t odd : {u'\u00E9', u'\u3042', u'\xD800'}) {
                std::u16string text(length, u'a');
                text[place] = odd;
                pair.expectFromUnits(text);
                std::string bytes(length, 'a');
                bytes[place] = static_cast<char>(odd);
                pair.expectToUnits(bytes);
            }
}

TEST(ByteLength, MeasuresTheFirstCharacter) {
    const struct {
        const char *page, *text;
        std::int32_t length;
    } rows[] = {
        {"UTF-8", " ", 1},
        {"UTF-8", "\xE3\x81\x82", 3},
        {"UTF-8", "\xE3", 1},
        {"UTF-8", "", 1},
        {"Shift_JIS", "\x88\x9F", 2},
        {"Shift_JIS", " ", 1},
        {"ibm-37", " ", 1},
        {"ibm-930", " ", 1},
        {"UTF-16BE", " ", 2},
        {"UTF-32", " ", 4},
        {"GB18030", "\x81\x30\x81\x30", 4},
    };
    for (const auto &row : rows)
        EXPECT_EQ(row.length, CXByteLength(Page(row.page).locale(), row.text, 0)) << row.page;
}

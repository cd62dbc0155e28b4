// Case mapping in the language of the process, with and without room for what grows.
#include "child.h"

#include <services/lng1.h>

#include <unicode/uchar.h>
#include <unicode/ustring.h>

#include <gtest/gtest.h>

#include <cstring>
#include <string_view>
#include <vector>

using namespace tovtest;

namespace {

std::u16string mapped(std::u16string_view text, std::uint32_t flags, std::size_t room) {
    constexpr char16_t guard = 0x5A5A;
    std::vector<char16_t> target(room + 1, guard);
    const std::u16string source(text);
    const std::int32_t length =
        CXMapStringU(LNG1_PrivateFunction_GetProcessLocale(), target.data(), static_cast<std::int32_t>(room),
                     source.data(), static_cast<std::int32_t>(source.size()), flags);
    if (target[room] != guard || length < 0)
        return u"!";
    return {target.data(), static_cast<std::size_t>(length)};
}

std::u16string mappedIn(const char *language, std::u16string_view text, std::uint32_t flags,
                        std::size_t room) {
    const std::string bytes = inChild({language}, [&] {
        const std::u16string result = mapped(text, flags, room);
        std::string raw(2 * result.size(), '\0');
        std::memcpy(raw.data(), result.data(), raw.size());
        return raw;
    });
    std::u16string result(bytes.size() / 2, u'\0');
    std::memcpy(result.data(), bytes.data(), 2 * result.size());
    return result;
}

} // namespace

TEST(CaseMapping, FollowsTheLanguage) {
    constexpr auto up = CX_MAP_UPPER, low = CX_MAP_LOWER;
    const struct {
        const char *why, *language;
        std::uint32_t flags;
        std::u16string text, want;
        std::size_t room; // 0: as much as the text, as callers give
    } rows[] = {
        {"plain", "C", up, u"utf-8 {az}", u"UTF-8 {AZ}", 0},
        {"plain", "C", low, u"UTF-8 [AZ]", u"utf-8 [az]", 0},
        {"Turkish keeps the dot", "tr_TR", up, u"i\u0131", u"\u0130I", 0},
        {"and its lack", "tr_TR.ISO-8859-9", low, u"I\u0130", u"\u0131i", 0},
        {"Azeri, too", "az_AZ", up, u"i", u"\u0130", 0},
        {"no other language", "de_DE", up, u"i", u"I", 0},
        {"Greek drops accents", "el_GR", up, u"\u03AC", u"\u0391", 0},
        {"a final sigma is one by its place", "C", low, u"\u039F\u03A3", u"\u03BF\u03C2", 0},
        {"ASCII before it counts for the place", "C", low, u"A\u03A3", u"a\u03C2", 0},
        {"sharp s grows where there is room", "de_DE", up, u"\u00DFx", u"SSX", 3},
        {"and stays where there is none", "de_DE", up, u"x\u00DF", u"X\u00DF", 0},
        {"then Turkish stays Turkish", "tr_TR", up, u"i\u00DF", u"\u0130\u00DF", 0},
        {"a pair is one character", "C", up, u"\U00010428\u00DF", u"\U00010400\u00DF", 0},
        {"a lone surrogate is itself", "C", up, u"\xD801\u00DF\xDC28", u"\xD801\u00DF\xDC28", 0},
        {"Lithuanian keeps the dot under accents", "lt_LT", low, u"I\u0301", u"i\u0307\u0301", 3},
        {"a ligature grows threefold", "C", up, u"\uFB03", u"FFI", 3},
        {"no half of a pair", "C", up, u"\U00010428", u"", 1},
        {"what has no room is left off", "C", up, u"abc", u"AB", 2},
        {"zeros are text", "C", up, std::u16string(u"a\0b", 3), std::u16string(u"A\0B", 3), 0},
        {"other flags map nothing", "C", 0x80000026U, u"abc", u"", 0},
        {"nothing gives nothing", "C", up, u"", u"", 0},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.why);
        const std::size_t room = row.room == 0 ? row.text.size() : row.room;
        EXPECT_EQ(row.want, mappedIn(row.language, row.text, row.flags, room));
    }
}

TEST(CaseMapping, GivesForEveryCharacterWhatIcuGives) {
    for (char32_t c = 0; c < 0x20000; ++c) {
        char16_t text[4] = {u'x'};
        const bool pair = c > 0xFFFF;
        text[1] = pair ? static_cast<char16_t>(0xD7C0U + (c >> 10)) : static_cast<char16_t>(c);
        text[2] = static_cast<char16_t>(0xDC00U | (c & 0x3FFU));
        const std::size_t length = pair ? 3 : 2;
        for (const std::uint32_t flags : {std::uint32_t{CX_MAP_UPPER}, std::uint32_t{CX_MAP_LOWER}}) {
            char16_t want[16];
            UErrorCode status = U_ZERO_ERROR;
            const auto map = flags == CX_MAP_UPPER ? u_strToUpper : u_strToLower;
            const auto n = map(want, 16, text, static_cast<std::int32_t>(length), "", &status);
            if (mapped({text, length}, flags, 16) != std::u16string_view(want, static_cast<std::size_t>(n)))
                ADD_FAILURE() << "U+" << std::hex << std::uint32_t(c);
        }
    }
}

#include <tovutil/tovutf8.h>

#include <support/failalloc.h>
#include <support/guarded.h>
#include <support/random.h>
#include <tovutil/toverror.h>
#include <tovutil/tovutf8k.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

namespace {

using tovdetail::Utf16To8;
using tovdetail::Utf8To16;
using tovdetail::UtfKernel;

using Bytes = std::basic_string<unsigned char>;
using Units = std::u16string;
using Values = std::u32string;

template <std::size_t size>
Bytes bytes(const char (&literal)[size]) {
    return Bytes(literal, literal + size - 1);
}

// What a range function did with a source: its result, what it wrote, how much it took.
template <class D>
struct Done {
    ConversionResult result;
    std::basic_string<D> written;
    std::size_t taken;
    bool operator==(const Done &) const = default;
    friend std::ostream &operator<<(std::ostream &os, const Done &done) {
        os << "result " << done.result << ", taken " << done.taken << ", written" << std::hex;
        for (const auto unit : done.written)
            os << ' ' << static_cast<unsigned long>(unit);
        return os << std::dec;
    }
};
using DoneBytes = Done<unsigned char>;
using DoneUnits = Done<TovUChar>;
using DoneValues = Done<char32_t>;

constexpr std::size_t plenty = 64;

// Runs a range function with `room` places, and checks that none behind the final pointer is written.
template <class S, class D, class Text>
Done<typename Text::value_type> run(ConversionResult (*convert)(const S **, const S *, D **, D *),
                                    const std::vector<S> &source, std::size_t room, Text) {
    constexpr D untouched = static_cast<D>(0xA5A5A5A5);
    std::vector<D> target(room + 8, untouched);
    const S *from = source.data();
    D *to = target.data();
    const ConversionResult result = convert(&from, from + source.size(), &to, to + room);
    const auto written = static_cast<std::size_t>(to - target.data());
    for (std::size_t i = result == targetExhausted ? written : room; i < target.size(); ++i)
        EXPECT_EQ(untouched, target[i]) << "place " << i;
    return {result, Text(target.data(), target.data() + written),
            static_cast<std::size_t>(from - source.data())};
}

template <class S, class Text>
std::vector<S> asVector(const Text &text) {
    return std::vector<S>(text.begin(), text.end());
}

DoneUnits utf8To16(const Bytes &source, std::size_t room = plenty) {
    return run(ConvertUTF8toUTF16, asVector<unsigned char>(source), room, Units());
}
DoneValues utf8To32(const Bytes &source, std::size_t room = plenty) {
    return run(ConvertUTF8toUCS4, asVector<unsigned char>(source), room, Values());
}
DoneBytes utf16To8(const Units &source, std::size_t room = plenty) {
    return run(ConvertUTF16toUTF8, asVector<TovUChar>(source), room, Bytes());
}
DoneValues utf16To32(const Units &source, std::size_t room = plenty) {
    return run(ConvertUTF16toUCS4, asVector<TovUChar>(source), room, Values());
}
DoneBytes utf32To8(const Values &source, std::size_t room = plenty) {
    return run(ConvertUCS4toUTF8, asVector<std::uint32_t>(source), room, Bytes());
}
DoneUnits utf32To16(const Values &source, std::size_t room = plenty) {
    return run(ConvertUCS4toUTF16, asVector<std::uint32_t>(source), room, Units());
}

Units units(std::initializer_list<unsigned> list) {
    Units text;
    for (const unsigned unit : list)
        text += static_cast<TovUChar>(unit);
    return text;
}
Values values(std::initializer_list<std::uint32_t> list) {
    Values text;
    for (const std::uint32_t value : list)
        text += static_cast<char32_t>(value);
    return text;
}

TEST(UtfTables, TellLengthsMarksAndOffsets) {
    EXPECT_EQ(0, bytesFromUTF8[0x00]);
    EXPECT_EQ(0, bytesFromUTF8[0x7F]);
    EXPECT_EQ(0, bytesFromUTF8[0x80]);
    EXPECT_EQ(0, bytesFromUTF8[0xBF]);
    for (unsigned lead = 0xC0; lead <= 0xFF; ++lead) {
        const unsigned length = lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : lead < 0xF8 ? 4 : lead < 0xFC ? 5 : 6;
        EXPECT_EQ(length - 1, bytesFromUTF8[lead]) << std::hex << lead;
    }
    EXPECT_EQ(0, offsetsFromUTF8[0]);
    for (unsigned following = 1; following <= 5; ++following) {
        std::uint32_t offset = firstByteMark[following + 1];
        for (unsigned i = 0; i < following; ++i)
            offset = (offset << 6) + 0x80;
        EXPECT_EQ(offset, offsetsFromUTF8[following]) << following;
    }
    EXPECT_EQ(0, firstByteMark[0]);
    EXPECT_EQ(0, firstByteMark[1]);
}

TEST(DecodingUtf8, TakesEveryFormAsItIs) {
    const struct {
        const char *why;
        Bytes source;
        DoneUnits to16;
        DoneValues to32;
    } rows[] = {
        {"nothing", bytes(""), {ok, u"", 0}, {ok, U"", 0}},
        {"one to three bytes",
         bytes("A\xC3\xA9\xE2\x82\xAC"),
         {ok, u"A\u00E9\u20AC", 6},
         {ok, U"A\u00E9\u20AC", 6}},
        {"four bytes are a pair in either form",
         bytes("\xF0\x9F\x98\x80"),
         {ok, units({0xD83D, 0xDE00}), 4},
         {ok, values({0xD83D, 0xDE00}), 4}},
        {"the last pair",
         bytes("\xF4\x8F\xBF\xBF"),
         {ok, units({0xDBFF, 0xDFFF}), 4},
         {ok, values({0xDBFF, 0xDFFF}), 4}},
        {"behind the last pair only UCS-4 goes on",
         bytes("\xF4\x90\x80\x80"),
         {ok, units({0xFFFD}), 4},
         {ok, values({0xDC00, 0xDC00}), 4}},
        {"the largest lead of four",
         bytes("\xF7\xBF\xBF\xBF"),
         {ok, units({0xFFFD}), 4},
         {ok, values({0xD7C0 + 0x1FFFFF / 0x400, 0xDFFF}), 4}},
        {"five bytes",
         bytes("\xF8\x88\x80\x80\x80"),
         {ok, units({0xFFFD}), 5},
         {ok, values({0xD7C0 + 0x200000 / 0x400, 0xDC00}), 5}},
        {"six bytes, the largest",
         bytes("\xFD\xBF\xBF\xBF\xBF\xBF"),
         {ok, units({0xFFFD}), 6},
         {ok, values({0xD7C0 + 0x7FFFFFFF / 0x400, 0xDFFF}), 6}},
        {"0xFE leads six, and the value exceeds UCS-4",
         bytes("\xFE\x80\x80\x80\x80\x80"),
         {ok, units({0xFFFD}), 6},
         {ok, values({0xFFFD}), 6}},
        {"0xFF leads six, and the sum wraps into UCS-4",
         bytes("\xFF\xFF\xFF\xFF\xFF\xFF"),
         {ok, units({0xFFFD}), 6},
         {ok, values({0xD7C0 + 0x4104103F / 0x400, 0xDC3F}), 6}},
        {"five overlong bytes", bytes("\xF8\x80\x80\x81\x81"), {ok, u"A", 5}, {ok, U"A", 5}},
        {"six overlong bytes", bytes("\xFC\x80\x80\x80\x80\x80"), {ok, units({0}), 6}, {ok, values({0}), 6}},
        {"two overlong bytes are a zero, which is kept",
         bytes("\xC0\x80z"),
         {ok, units({0, 'z'}), 3},
         {ok, values({0, 'z'}), 3}},
        {"three overlong bytes", bytes("\xE0\x80\x81"), {ok, units({1}), 3}, {ok, values({1}), 3}},
        {"four overlong bytes are one unit",
         bytes("\xF0\x8F\xBF\xBF"),
         {ok, units({0xFFFF}), 4},
         {ok, values({0xFFFF}), 4}},
        {"a surrogate", bytes("\xED\xA0\x80"), {ok, units({0xD800}), 3}, {ok, values({0xD800}), 3}},
        {"top bits of a following byte do not count",
         bytes("\xC2\x41"),
         {ok, units({0x41}), 2},
         {ok, values({0x41}), 2}},
        {"a lead in a following byte's place",
         bytes("\xC3\xC3"),
         {ok, units({0x103}), 2},
         {ok, values({0x103}), 2}},
        {"a sum below the offset wraps",
         bytes("\xC0\x41"),
         {ok, units({0xFFFD}), 2},
         {ok, values({0xFFFD}), 2}},
        {"a following byte alone is its own value",
         bytes("\x80\xBFz"),
         {ok, units({0x80, 0xBF, 'z'}), 3},
         {ok, values({0x80, 0xBF, 'z'}), 3}},
        {"a zero is a character",
         bytes("a\0b"),
         {ok, units({'a', 0, 'b'}), 3},
         {ok, values({'a', 0, 'b'}), 3}},
        {"two bytes cut off", bytes("a\xC3"), {sourceExhausted, u"a", 1}, {sourceExhausted, U"a", 1}},
        {"three bytes cut off", bytes("a\xE2\x82"), {sourceExhausted, u"a", 1}, {sourceExhausted, U"a", 1}},
        {"four bytes cut off",
         bytes("a\xF0\x9F\x98"),
         {sourceExhausted, u"a", 1},
         {sourceExhausted, U"a", 1}},
        {"six bytes cut off",
         bytes("\xFF\x80\x80\x80\x80"),
         {sourceExhausted, u"", 0},
         {sourceExhausted, U"", 0}},
        {"what follows a lead is taken into its sequence, so that the next is cut off",
         bytes("\xE2z\xC3\xA9\xC3"),
         {sourceExhausted, units({0x1EC3, 0xA9}), 4},
         {sourceExhausted, values({0x1EC3, 0xA9}), 4}},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.why);
        EXPECT_EQ(row.to16, utf8To16(row.source));
        EXPECT_EQ(row.to32, utf8To32(row.source));
    }
}

TEST(EncodingUtf8, WritesEveryUnit) {
    const struct {
        const char *why;
        Units source;
        Bytes to8;
        Values to32;
    } rows[] = {
        {"nothing", u"", bytes(""), U""},
        {"each length's limits", units({0, 0x7F, 0x80, 0x7FF, 0x800, 0xFFFF}),
         bytes("\0\x7F\xC2\x80\xDF\xBF\xE0\xA0\x80\xEF\xBF\xBF"),
         values({0, 0x7F, 0x80, 0x7FF, 0x800, 0xFFFF})},
        {"a pair", units({0xD83D, 0xDE00}), bytes("\xF0\x9F\x98\x80"), values({0x1F600})},
        {"the first pair", units({0xD800, 0xDC00}), bytes("\xF0\x90\x80\x80"), values({0x10000})},
        {"the last pair", units({0xDBFF, 0xDFFF}), bytes("\xF4\x8F\xBF\xBF"), values({0x10FFFF})},
        {"a low surrogate alone", units({0xDC00}), bytes("\xED\xB0\x80"), values({0xDC00})},
        {"a high surrogate at the end", units({'a', 0xD800}), bytes("a\xED\xA0\x80"), values({'a', 0xD800})},
        {"a high surrogate before another unit", units({0xDBFF, 'a'}),
         bytes("\xED\xAF\xBF"
               "a"),
         values({0xDBFF, 'a'})},
        {"a high surrogate before a pair", units({0xD800, 0xD83D, 0xDE00}),
         bytes("\xED\xA0\x80\xF0\x9F\x98\x80"), values({0xD800, 0x1F600})},
        {"the halves in the wrong order", units({0xDE00, 0xD83D}), bytes("\xED\xB8\x80\xED\xA0\xBD"),
         values({0xDE00, 0xD83D})},
        {"a low surrogate behind a pair", units({0xD83D, 0xDE00, 0xDE00}),
         bytes("\xF0\x9F\x98\x80\xED\xB8\x80"), values({0x1F600, 0xDE00})},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.why);
        EXPECT_EQ((DoneBytes{ok, row.to8, row.source.size()}), utf16To8(row.source));
        EXPECT_EQ((DoneValues{ok, row.to32, row.source.size()}), utf16To32(row.source));
    }
}

TEST(ReadingUcs4, PairsSurrogatesForUtf8Only) {
    const struct {
        const char *why;
        Values source;
        Bytes to8;
        Units to16;
    } rows[] = {
        {"one unit, surrogates included", values({'A', 0x7FF, 0xD800, 0xFFFF}),
         bytes("A\xDF\xBF\xED\xA0\x80\xEF\xBF\xBF"), units({'A', 0x7FF, 0xD800, 0xFFFF})},
        {"a value of two units", values({0x1F600}), bytes("\xF0\x9F\x98\x80"), units({0xD83D, 0xDE00})},
        {"two surrogates", values({0xD83D, 0xDE00}), bytes("\xF0\x9F\x98\x80"), units({0xD83D, 0xDE00})},
        {"the last of UTF-16", values({0x10FFFF}), bytes("\xF4\x8F\xBF\xBF"), units({0xDBFF, 0xDFFF})},
        {"behind the last of UTF-16", values({0x110000}), bytes("\xF4\x90\x80\x80"), units({0xFFFD})},
        {"the last of four bytes", values({0x1FFFFF}), bytes("\xF7\xBF\xBF\xBF"), units({0xFFFD})},
        {"five bytes", values({0x200000}), bytes("\xF8\x88\x80\x80\x80"), units({0xFFFD})},
        {"the last of five bytes", values({0x3FFFFFF}), bytes("\xFB\xBF\xBF\xBF\xBF"), units({0xFFFD})},
        {"six bytes", values({0x4000000}), bytes("\xFC\x84\x80\x80\x80\x80"), units({0xFFFD})},
        {"the last of UCS-4", values({0x7FFFFFFF}), bytes("\xFD\xBF\xBF\xBF\xBF\xBF"), units({0xFFFD})},
        {"behind the last of UCS-4", values({0x80000000}), bytes("\xEF\xBF\xBD"), units({0xFFFD})},
        {"the largest number", values({0xFFFFFFFF}), bytes("\xEF\xBF\xBD"), units({0xFFFD})},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.why);
        EXPECT_EQ((DoneBytes{ok, row.to8, row.source.size()}), utf32To8(row.source));
        EXPECT_EQ((DoneUnits{ok, row.to16, row.source.size()}), utf32To16(row.source));
    }
}

TEST(ExhaustedTarget, LosesTheCharacterThatDoesNotFit) {
    const Bytes emoji = bytes("a\xF0\x9F\x98\x80z");
    EXPECT_EQ((DoneUnits{targetExhausted, u"", 1}), utf8To16(emoji, 0));
    EXPECT_EQ((DoneUnits{targetExhausted, u"a", 5}), utf8To16(emoji, 1));
    EXPECT_EQ((DoneUnits{targetExhausted, u"a", 5}), utf8To16(emoji, 2));
    EXPECT_EQ((DoneUnits{targetExhausted, units({'a', 0xD83D, 0xDE00}), 6}), utf8To16(emoji, 3));
    EXPECT_EQ((DoneUnits{ok, units({'a', 0xD83D, 0xDE00, 'z'}), 6}), utf8To16(emoji, 4));
    EXPECT_EQ((DoneValues{targetExhausted, U"a", 5}), utf8To32(emoji, 1));
    EXPECT_EQ((DoneValues{targetExhausted, U"a", 5}), utf8To32(emoji, 2));

    const Units pair = units({'a', 0xD83D, 0xDE00, 'z'});
    for (const std::size_t room : {1u, 2u, 3u, 4u})
        EXPECT_EQ((DoneBytes{targetExhausted, bytes("a"), 3}), utf16To8(pair, room)) << room;
    EXPECT_EQ((DoneBytes{targetExhausted, bytes("a\xF0\x9F\x98\x80"), 4}), utf16To8(pair, 5));
    EXPECT_EQ((DoneValues{targetExhausted, U"a", 3}), utf16To32(pair, 1));

    const Values value = values({'a', 0xD83D, 0xDE00, 0x1F600});
    EXPECT_EQ((DoneBytes{targetExhausted, bytes("a"), 3}), utf32To8(value, 4));
    EXPECT_EQ((DoneBytes{targetExhausted, bytes("a\xF0\x9F\x98\x80"), 4}), utf32To8(value, 8));
}

TEST(ExhaustedTarget, KeepsAUcs4ValueWhenNoPlaceIsLeft) {
    const Values source = values({'a', 0x1F600, 'z'});
    EXPECT_EQ((DoneUnits{targetExhausted, u"", 0}), utf32To16(source, 0));
    EXPECT_EQ((DoneUnits{targetExhausted, u"a", 1}), utf32To16(source, 1));
    EXPECT_EQ((DoneUnits{targetExhausted, u"a", 2}), utf32To16(source, 2)) << "one place left for two";
    EXPECT_EQ((DoneUnits{targetExhausted, units({'a', 0xD83D, 0xDE00}), 2}), utf32To16(source, 3));
}

TEST(ExhaustedTarget, ComesAfterTheEndOfTheSource) {
    EXPECT_EQ((DoneUnits{ok, u"", 0}), utf8To16(bytes(""), 0));
    EXPECT_EQ((DoneBytes{ok, bytes(""), 0}), utf16To8(u"", 0));
    EXPECT_EQ((DoneUnits{ok, u"", 0}), utf32To16(U"", 0));
    EXPECT_EQ((DoneUnits{sourceExhausted, u"", 0}), utf8To16(bytes("\xC3"), 0)) << "not read, not lost";
    EXPECT_EQ((DoneValues{sourceExhausted, U"", 0}), utf8To32(bytes("\xC3"), 0));
}

// Random characters, from pure ASCII to all lengths in one text.
class RandomText {
public:
    static constexpr unsigned kinds = 7;

    Bytes utf8(unsigned kind, std::size_t length) {
        Bytes text;
        while (text.size() < length)
            append(text, character(kind));
        text.resize(length); // may cut the last one off
        return text;
    }

    // Lone surrogates are as likely as a pair, where the kind has any.
    Units utf16(unsigned kind, std::size_t length) {
        Units text;
        while (text.size() < length) {
            const std::uint32_t value = character(kind);
            if (value > 0xFFFF && below(4) != 0)
                text += static_cast<TovUChar>(0xD7C0 + (value >> 10));
            if (value > 0xFFFF && below(4) != 0)
                text += static_cast<TovUChar>(0xDC00 + (value & 0x3FF));
            if (value <= 0xFFFF)
                text += static_cast<TovUChar>(value);
        }
        text.resize(length);
        return text;
    }

    template <class Text>
    void spoil(Text &text, unsigned most) {
        for (std::uint64_t i = below(most + 1); i-- > 0 && !text.empty();)
            text[below(text.size())] = static_cast<typename Text::value_type>(below(0x10000));
    }

    std::uint64_t below(std::uint64_t limit) { return m_random() % limit; }

private:
    std::uint32_t character(unsigned kind) {
        switch (kind) {
        case 0:
            return static_cast<std::uint32_t>(below(0x80));
        case 1:
            return static_cast<std::uint32_t>(0x80 + below(0x780));
        case 2:
            return static_cast<std::uint32_t>(0x800 + below(0xF800));
        case 3:
            return static_cast<std::uint32_t>(0x10000 + below(0x100000));
        case 4:
            return character(below(8) == 0 ? 1 : 0);
        case 5:
            return character(static_cast<unsigned>(below(3)));
        default:
            return character(static_cast<unsigned>(below(4)));
        }
    }

    static void append(Bytes &text, std::uint32_t value) {
        unsigned char encoded[4];
        unsigned char *end = encoded;
        const std::uint32_t *from = &value;
        ConvertUCS4toUTF8(&from, from + 1, &end, end + 4);
        text.append(encoded, end);
    }

    std::mt19937_64 m_random = tovtest::generator();
};

std::vector<UtfKernel> usableKernels() {
    std::vector<UtfKernel> usable;
    for (const UtfKernel &kernel : tovdetail::utfKernels()) {
        if (kernel.usable())
            usable.push_back(kernel);
    }
    return usable;
}

// Runs one conversion by a kernel and by the scalar code, from and to memory that begins or ends at a
// page that can't be touched, and compares all that they give.
class KernelAgainstScalar : public testing::TestWithParam<UtfKernel> {
protected:
    static constexpr std::size_t most = 4096;

    void compare8To16(const Bytes &text, std::size_t room) {
        compare(
            m_bytes, m_units, text, room,
            [](Utf8To16 &run) { return tovdetail::utf8To16By(GetParam().to16, run); },
            [](Utf8To16 &run) { return tovdetail::utf8To16Scalar(run, run.sourceEnd); });
    }
    void compare16To8(const Units &text, std::size_t room) {
        compare(
            m_units, m_bytes, text, room,
            [](Utf16To8 &run) { return tovdetail::utf16To8By(GetParam().to8, run); },
            [](Utf16To8 &run) { return tovdetail::utf16To8Scalar(run, run.sourceEnd); });
    }

    RandomText m_random;

private:
    template <class S, class D, class ByKernel, class Scalar>
    void compare(const tovtest::Guarded<S> &from, const tovtest::Guarded<D> &to,
                 const std::basic_string<S> &text, std::size_t room, ByKernel byKernel, Scalar scalar) {
        std::vector<D> expected(room + 1);
        tovdetail::UtfRun<S, D> want{text.data(), text.data() + text.size(), expected.data(),
                                     expected.data() + room};
        const ConversionResult wanted = scalar(want);

        for (S *source : {from.begin(), from.end() - text.size(), from.begin() + m_offset}) {
            for (D *target : {to.begin(), to.end() - room, to.begin() + m_offset}) {
                constexpr D untouched = static_cast<D>(0xA5A5);
                std::copy(text.begin(), text.end(), source);
                std::fill(target, target + room, untouched);
                tovdetail::UtfRun<S, D> run{source, source + text.size(), target, target + room};
                ASSERT_EQ(wanted, byKernel(run));
                ASSERT_EQ(want.source - text.data(), run.source - source);
                ASSERT_EQ(want.target - expected.data(), run.target - target);
                ASSERT_TRUE(std::equal(target, run.target, expected.data()));
                const auto isUntouched = [](D unit) { return unit == untouched; };
                ASSERT_TRUE(wanted != targetExhausted || std::all_of(run.target, target + room, isUntouched))
                    << "written behind the result";
            }
        }
        m_offset = (m_offset + 1) % 64;
    }

    tovtest::Guarded<unsigned char> m_bytes{most};
    tovtest::Guarded<TovUChar> m_units{most};
    std::size_t m_offset = 0;
};

INSTANTIATE_TEST_SUITE_P(Utf, KernelAgainstScalar, testing::ValuesIn(usableKernels()),
                         [](const auto &kernel) {
                             std::string name = kernel.param.name;
                             std::erase(name, '.');
                             return name;
                         });

TEST_P(KernelAgainstScalar, AtEveryLengthAndOffset) {
    for (unsigned kind = 0; kind < RandomText::kinds; ++kind) {
        for (std::size_t length = 0; length <= 200; ++length) {
            SCOPED_TRACE(testing::Message() << "kind " << kind << ", length " << length);
            compare8To16(m_random.utf8(kind, length), length);
            compare16To8(m_random.utf16(kind, length), 3 * length);
            if (HasFatalFailure())
                return;
        }
    }
}

TEST_P(KernelAgainstScalar, WithATargetTooSmallByEveryAmount) {
    constexpr std::size_t length = 150;
    for (unsigned kind = 0; kind < RandomText::kinds; ++kind) {
        const Bytes utf8 = m_random.utf8(kind, length);
        const Units utf16 = m_random.utf16(kind, length);
        for (std::size_t room = 0; room <= 3 * length; ++room) {
            SCOPED_TRACE(testing::Message() << "kind " << kind << ", room " << room);
            compare8To16(utf8, room);
            compare16To8(utf16, room);
            if (HasFatalFailure())
                return;
        }
    }
}

// A kernel may have written where the pair would stand that does not fit.
TEST_P(KernelAgainstScalar, WithATargetThatEndsWithinAPair) {
    for (std::size_t ascii = 0; ascii <= 40; ++ascii) {
        Bytes utf8(ascii, 'x');
        Units utf16(ascii, u'x');
        for (int i = 0; i < 40; ++i) {
            utf8 += bytes("\xF0\x9F\x98\x80");
            utf16 += units({0xD83D, 0xDE00});
        }
        for (std::size_t room = ascii; room <= ascii + 40; ++room) {
            SCOPED_TRACE(testing::Message() << "behind " << ascii << ", room " << room);
            compare8To16(utf8, room);
            compare16To8(utf16, room);
            if (HasFatalFailure())
                return;
        }
    }
}

TEST_P(KernelAgainstScalar, WithAnOddFormAtEveryPlace) {
    const Bytes odd[] = {bytes("\x80"),         bytes("\xC3"),     bytes("\xC0\x41"),
                         bytes("\xE2\x41\xAC"), bytes("\xE2\x82"), bytes("\xF0\x8F\xBF\xBF"),
                         bytes("\xF0\x90\x41"), bytes("\xF5"),     bytes("\xF4\x90\x80\x80"),
                         bytes("\xF8\x88"),     bytes("\xFF\xBF"), bytes("\xED\xA0\x80\xED\xB0\x80")};
    for (unsigned kind = 0; kind < RandomText::kinds; ++kind) {
        const Bytes plain = m_random.utf8(kind, 140);
        for (std::size_t at = 0; at <= plain.size(); ++at) {
            for (const Bytes &form : odd) {
                SCOPED_TRACE(testing::Message() << "kind " << kind << ", at " << at);
                Bytes text = plain;
                text.insert(at, form);
                compare8To16(text, text.size());
                if (HasFatalFailure())
                    return;
            }
        }
    }
}

TEST_P(KernelAgainstScalar, WithRandomDamage) {
    for (unsigned i = 0; i < 1500; ++i) {
        const auto kind = static_cast<unsigned>(m_random.below(RandomText::kinds));
        Bytes utf8 = m_random.utf8(kind, m_random.below(600));
        Units utf16 = m_random.utf16(kind, m_random.below(600));
        m_random.spoil(utf8, 8);
        m_random.spoil(utf16, 8);
        SCOPED_TRACE(testing::Message() << "round " << i);
        compare8To16(utf8, m_random.below(2) != 0 ? utf8.size() : m_random.below(utf8.size() + 1));
        compare16To8(utf16, m_random.below(2) != 0 ? 3 * utf16.size() : m_random.below(3 * utf16.size() + 1));
        if (HasFatalFailure())
            return;
    }
}

TEST(EveryCodePoint, ComesBack) {
    std::vector<std::uint32_t> all;
    for (std::uint32_t value = 0; value <= 0x10FFFF; ++value) {
        if (value < 0xD800 || value > 0xDFFF) // as a text, their last and first would make a pair
            all.push_back(value);
    }
    std::vector<unsigned char> utf8(4 * all.size());
    const std::uint32_t *value = all.data();
    unsigned char *byteEnd = utf8.data();
    ASSERT_EQ(ok, ConvertUCS4toUTF8(&value, value + all.size(), &byteEnd, byteEnd + utf8.size()));
    utf8.resize(static_cast<std::size_t>(byteEnd - utf8.data()));

    TovUString utf16;
    ASSERT_TRUE(tovUtf8ToUtf16(reinterpret_cast<const char *>(utf8.data()),
                               static_cast<std::uint32_t>(utf8.size()), utf16));
    std::vector<std::uint32_t> back(utf16.size());
    const TovUChar *unit = utf16.data();
    std::uint32_t *valueEnd = back.data();
    ASSERT_EQ(ok, ConvertUTF16toUCS4(&unit, unit + utf16.size(), &valueEnd, valueEnd + back.size()));
    back.resize(static_cast<std::size_t>(valueEnd - back.data()));
    EXPECT_TRUE(all == back);

    TovString again;
    ASSERT_TRUE(tovUtf16ToUtf8(utf16.data(), static_cast<std::uint32_t>(utf16.size()), again));
    EXPECT_TRUE(std::equal(utf8.begin(), utf8.end(), again.begin(), again.end(),
                           [](unsigned char a, char b) { return a == static_cast<unsigned char>(b); }));
}

TEST(EveryUnit, ComesBackAlone) {
    for (unsigned unit = 0; unit <= 0xFFFF; ++unit) {
        const DoneBytes encoded = utf16To8(units({unit}));
        ASSERT_EQ((DoneUnits{ok, units({unit}), encoded.written.size()}), utf8To16(encoded.written));
    }
}

bool toUtf16(const Bytes &source, TovUString &target) {
    return tovUtf8ToUtf16(reinterpret_cast<const char *>(source.data()),
                          static_cast<std::uint32_t>(source.size()), target);
}

TEST(TovUtf8ToUtf16, ReplacesTheTarget) {
    TovUString target(u"what it held before, which is a longer text than the new one");
    EXPECT_TRUE(toUtf16(bytes("a\0\xC3\xA9"), target));
    EXPECT_EQ(TovUString({u'a', u'\0', u'\u00E9'}), target);
    EXPECT_TRUE(tovUtf8ToUtf16(nullptr, 0, target));
    EXPECT_TRUE(target.empty());
}

TEST(TovUtf8ToUtf16, LeavesNothingOfATextThatIsCutOff) {
    TovUString target(u"before");
    EXPECT_FALSE(toUtf16(bytes("\xC3"), target));
    EXPECT_TRUE(target.empty());
    for (const std::size_t length : {1u, 63u, 2047u, 2048u, 2049u, 5000u}) {
        EXPECT_FALSE(toUtf16(Bytes(length, 'x') + bytes("\xE2\x82"), target)) << length;
        EXPECT_TRUE(target.empty()) << length;
    }
}

// Long texts are converted in pieces; every sequence must come through wherever a piece ends.
TEST(LongTexts, ComeThroughWhole) {
    RandomText random;
    for (unsigned kind = 0; kind < RandomText::kinds; ++kind) {
        for (unsigned shift = 0; shift < 8; ++shift) {
            SCOPED_TRACE(testing::Message() << "kind " << kind << ", shift " << shift);
            Bytes utf8(shift, 'x');
            utf8 += random.utf8(kind, 9000) + Bytes(6, 'x');
            random.spoil(utf8, 3);
            utf8 += Bytes(6, 'x');
            TovUString utf16;
            ASSERT_TRUE(toUtf16(utf8, utf16));
            EXPECT_EQ(utf8To16(utf8, utf8.size()).written, Units(utf16.begin(), utf16.end()));

            Units text(shift, u'x');
            text += random.utf16(kind, 9000);
            TovString back;
            ASSERT_TRUE(tovUtf16ToUtf8(text.data(), static_cast<std::uint32_t>(text.size()), back));
            EXPECT_EQ(utf16To8(text, 3 * text.size()).written, Bytes(back.begin(), back.end()));
        }
    }
}

TEST(TovUtf16ToUtf8, ReplacesTheTarget) {
    TovString target("before");
    EXPECT_TRUE(tovUtf16ToUtf8(u"a\0\u20AC", 3, target));
    EXPECT_EQ(TovString("a\0\xE2\x82\xAC", 5), target);
    EXPECT_TRUE(tovUtf16ToUtf8(nullptr, 0, target));
    EXPECT_TRUE(target.empty());
}

TEST(StringFunctions, AllocateAtMostOnce) {
    const Bytes utf8(10000, 'x');
    const Units utf16(10000, u'\u20AC');
    TovUString target16;
    TovString target8;
    const long before = tovtest::allocationCount();
    EXPECT_TRUE(toUtf16(utf8, target16));
    EXPECT_EQ(before + 1, tovtest::allocationCount());
    EXPECT_TRUE(tovUtf16ToUtf8(utf16.data(), 10000, target8));
    EXPECT_EQ(before + 2, tovtest::allocationCount());
    EXPECT_TRUE(toUtf16(utf8, target16));
    EXPECT_TRUE(tovUtf16ToUtf8(utf16.data(), 10000, target8));
    EXPECT_EQ(before + 2, tovtest::allocationCount()) << "there was room already";
}

TEST(StringFunctions, KeepTheTargetWhenMemoryRunsOut) {
    tovtest::failEachAllocation<TovError>(
        [] { return TovUString(u"before"); },
        [](TovUString &target) { EXPECT_TRUE(tovUtf8ToUtf16("0123456789", 10, target)); },
        [](TovUString &target) {
            EXPECT_EQ(u"before", target);
            EXPECT_TRUE(tovUtf8ToUtf16("0123456789", 10, target));
            EXPECT_EQ(u"0123456789", target);
        });
    tovtest::failEachAllocation<TovError>(
        [] { return TovString("before"); },
        [](TovString &target) { EXPECT_TRUE(tovUtf16ToUtf8(u"0123456789", 10, target)); },
        [](TovString &target) {
            EXPECT_EQ("before", target);
            EXPECT_TRUE(tovUtf16ToUtf8(u"0123456789", 10, target));
            EXPECT_EQ("0123456789", target);
        });
}

// 6 times this length is 2 in 32 bits, for which a string needs no memory.
TEST(StringFunctions, AskForTheWholeWorstCase) {
    TovString target;
    tovtest::FailingAllocation failing(1);
    EXPECT_THROW(tovUtf16ToUtf8(u"", 0x2AAAAAAB, target), TovError);
}

TEST(LdapStrings, ConvertBothWays) {
    const struct {
        const char *why;
        const char *utf8;
        TovUString utf16;
    } rows[] = {
        {"nothing", "", u""},
        {"several scripts", "Zo\xC3\xAB \xE6\x97\xA5", u"Zo\u00EB \u65E5"},
        {"a pair", "\xF0\x9F\x98\x80", {0xD83D, 0xDE00}},
        {"a lone surrogate", "\xED\xA0\x80", {0xD800}},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.why);
        EXPECT_EQ(row.utf16, tovFromLdapString(row.utf8));
        EXPECT_EQ(row.utf8, tovToLdapString(row.utf16));
        EXPECT_EQ(row.utf8, tovToLdapString(row.utf16.c_str()));
    }
}

TEST(LdapStrings, ShowNoTrouble) {
    EXPECT_EQ(u"", tovFromLdapString("good, then cut off \xE2\x82"));
    EXPECT_EQ(TovUString({0x103}), tovFromLdapString("\xC3\xC3"));
    EXPECT_EQ(TovString("a\0b", 3), tovToLdapString(TovUString(u"a\0b", 3)));
}

TEST(LdapStrings, RaiseExhaustedMemory) {
    const TovUString text(u"longer than a string that lies within itself");
    const auto nothing = [](int) {};
    const auto zero = [] { return 0; };
    tovtest::failEachAllocation<TovError>(
        zero, [](int) { EXPECT_EQ(10u, tovFromLdapString("0123456789").size()); }, nothing);
    tovtest::failEachAllocation<TovError>(
        zero, [&](int) { EXPECT_EQ(text.size(), tovToLdapString(text).size()); }, nothing);
    tovtest::failEachAllocation<TovError>(
        zero, [&](int) { EXPECT_EQ(text.size(), tovToLdapString(text.c_str()).size()); }, nothing);
}

} // namespace

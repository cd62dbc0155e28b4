// Code pages as the tests see them: ours through the services, and ICU's own converter beside it.
#pragma once

#include <services/lng1.h>
#include <services/zptlist.h>

#include <unicode/ucnv.h>

#include <cstring>
#include <memory>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

namespace tovtest {

/// An open code page of ours. `toUnits` and `fromUnits` give exactly the room that callers give, check a
/// guard behind it, and read from a block of the source's exact size.
class Page {
public:
    explicit Page(std::int32_t id) {
        long error = 0;
        m_locale = LNG1_GetLocale(0, id, 0, &error);
    }
    explicit Page(const char *name) : Page(LNG1_GetCodepageId(name, nullptr)) {}
    ~Page() {
        if (m_locale)
            CXReleaseLocale(m_locale, 0);
    }
    Page(const Page &) = delete;
    Page &operator=(const Page &) = delete;

    CXLocale *locale() const { return m_locale; }
    std::int32_t id() const { return LNG1_GetLocaleNumInfo(m_locale, LNG1_CODEPAGE_ID, 0); }
    std::int32_t maxBytes() const { return LNG1_GetLocaleNumInfo(m_locale, LNG1_MAX_BYTE_LENGTH, 0); }
    bool ebcdic() const { return LNG1_GetLocaleNumInfo(m_locale, LNG1_EBCDIC, 0) == 0; }
    std::string name() const {
        char text[32];
        LNG1_GetCodepageName(id(), text, sizeof text);
        return text;
    }

    std::u16string toUnits(std::string_view bytes) const { return toUnits(bytes, bytes.size()); }
    std::u16string toUnits(std::string_view bytes, std::size_t room) const {
        return run<char16_t>(bytes, room, [&](const char *source, char16_t *target) {
            CXState state = 0;
            CXInitState(m_locale, &state, 0);
            return CXStringToUnicodeEx(target, int(room), m_locale, source, state, int(bytes.size()), 0);
        });
    }

    std::string fromUnits(std::u16string_view units) const {
        return fromUnits(units, units.size() * static_cast<std::size_t>(maxBytes()));
    }
    std::string fromUnits(std::u16string_view units, std::size_t room) const {
        return run<char>(units, room, [&](const char16_t *source, char *target) {
            CXState state = 0;
            CXInitState(m_locale, &state, 0);
            return CXUnicodeToStringEx(m_locale, target, state, int(room), source, int(units.size()), 0);
        });
    }

    /// Converts enough for the page's tables to be made.
    void warmUp() const {
        toUnits(std::string(std::size_t{40} << 10, '\x41'));
        fromUnits(std::u16string(std::size_t{40} << 10, u'\u3000'));
    }

private:
    template <class Target, class View, class Convert>
    static std::basic_string<Target> run(View text, std::size_t room, Convert convert) {
        using Source = typename View::value_type;
        constexpr Target guard = 0x5A;
        const auto source = std::make_unique<Source[]>(text.size());
        text.copy(source.get(), text.size());
        std::vector<Target> target(room + 1, guard);
        const std::int32_t written = convert(source.get(), target.data());
        if (written < 0 || static_cast<std::size_t>(written) > room || target[room] != guard)
            return {Target('!'), Target('!'), Target('!')};
        return {target.data(), static_cast<std::size_t>(written)};
    }

    CXLocale *m_locale;
};

/// All code pages that we offer.
inline std::vector<std::int32_t> allPages() {
    std::vector<std::int32_t> ids;
    for (std::size_t i = 0; i < ZPT_CodepageCount(); ++i)
        ids.push_back(ZPT_CodepageIdAt(i));
    return ids;
}

inline void stopFrom(const void *, UConverterFromUnicodeArgs *, const UChar *, std::int32_t, UChar32,
                     UConverterCallbackReason, UErrorCode *) {}

/// ICU's converter for a name. Texts end before what can't be converted.
class Icu {
public:
    explicit Icu(const std::string &name) {
        UErrorCode status = U_ZERO_ERROR;
        m_icu = ucnv_open(name.c_str(), &status);
        ucnv_setFromUCallBack(m_icu, stopFrom, nullptr, nullptr, nullptr, &status);
        ucnv_setToUCallBack(m_icu, UCNV_TO_U_CALLBACK_STOP, nullptr, nullptr, nullptr, &status);
    }
    ~Icu() { ucnv_close(m_icu); }
    Icu(const Icu &) = delete;
    Icu &operator=(const Icu &) = delete;

    UConverterType type() const { return ucnv_getType(m_icu); }
    UConverter *get() const { return m_icu; }

    std::u16string toUnits(std::string_view bytes) {
        std::u16string units(4 * bytes.size() + 8, u'\0');
        UErrorCode status = U_ZERO_ERROR;
        char16_t *to = units.data();
        const char *from = bytes.data();
        ucnv_resetToUnicode(m_icu);
        ucnv_toUnicode(m_icu, &to, to + units.size(), &from, from + bytes.size(), nullptr, true, &status);
        units.resize(static_cast<std::size_t>(to - units.data()));
        return units;
    }

    /// `good`, when given, tells whether the whole text was converted.
    std::string fromUnits(std::u16string_view units, bool *good = nullptr) {
        std::string bytes(12 * units.size() + 16, '\0');
        UErrorCode status = U_ZERO_ERROR;
        char *to = bytes.data();
        const char16_t *from = units.data();
        ucnv_resetFromUnicode(m_icu);
        ucnv_fromUnicode(m_icu, &to, to + bytes.size(), &from, from + units.size(), nullptr, true, &status);
        bytes.resize(static_cast<std::size_t>(to - bytes.data()));
        if (good)
            *good = U_SUCCESS(status);
        return bytes;
    }

    /// The bytes of the longest beginning of the text that can be converted whole, by trying each.
    std::string fromGoodPart(std::u16string_view units) {
        if (units.empty())
            return {}; // not even what ICU puts before a text
        bool good = false;
        std::string bytes = fromUnits(units, &good);
        for (std::size_t length = units.size(); !good && length > 1;)
            bytes = fromUnits(units.substr(0, --length), &good);
        return good ? bytes : std::string();
    }

private:
    UConverter *m_icu;
};

inline std::u16string character(char32_t c) {
    if (c < 0x10000)
        return {static_cast<char16_t>(c)};
    return {static_cast<char16_t>(0xD7C0U + (c >> 10)), static_cast<char16_t>(0xDC00U | (c & 0x3FFU))};
}

/// Readable in a failed comparison.
template <class Text>
std::string hex(const Text &text) {
    static constexpr char digits[] = "0123456789ABCDEF";
    std::string out;
    for (auto c : text) {
        const auto value = static_cast<std::make_unsigned_t<decltype(c)>>(c);
        for (int shift = 8 * int(sizeof c) - 4; shift >= 0; shift -= 4)
            out += digits[(value >> shift) & 0xF];
        out += ' ';
    }
    return out;
}

} // namespace tovtest

/// Conversion between bytes and 16-bit units: the locale primitives, and TovNls, a converter for one named
/// code page.
#pragma once

#include <services/cx.h>
#include <tovdom/tovnls/tovcpmgr.h>
#include <tovutil/tovexport.h>
#include <tovutil/tovstring.h>

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <utility>

/// The handle in which conversions give their results: pointer, element count, owned flag.
///
/// Ownership  A handle that a function returns has `owned` false, and its elements, which come from array
///            new, belong to the receiver: own() is his first act, or nothing frees them. Copying copies
///            the three fields, so only one of the copies may own.
/// Units      `length` counts elements: bytes or 16-bit units. It may be 0 or less when nothing converted.
template <class T>
class TovAutoBuffer {
public:
    T *buffer = nullptr;
    std::int32_t length = 0;
    bool owned = false;

    TovAutoBuffer() = default;
    explicit TovAutoBuffer(std::int32_t capacity)
        : buffer(new T[static_cast<std::size_t>(capacity)]), length(capacity), owned(true) {}
    TovAutoBuffer(const TovAutoBuffer &) = default;
    TovAutoBuffer &operator=(const TovAutoBuffer &) = default;
    ~TovAutoBuffer() {
        if (owned)
            release();
    }

    /// Takes the elements over, and gives the handle.
    TovAutoBuffer &own() {
        owned = true;
        return *this;
    }

    /// Frees the elements and leaves pointer and length empty; `owned` stays as it is.
    void release() {
        delete[] std::exchange(buffer, nullptr);
        length = 0;
    }

    /// The valid elements.
    std::basic_string_view<T> view() const {
        return length > 0 ? std::basic_string_view<T>(buffer, static_cast<std::size_t>(length))
                          : std::basic_string_view<T>();
    }
};

/// Opens a locale for a code page; give it back with CXReleaseLocale, unless it is the process's own.
///
/// Errors     TOVRC_NLS_ERROR with the message of the locale layer's code.
TOV_EXPORT CXLocale *tovNlsGetLocale(std::int32_t codePageId);

/// A text item of a locale, of at most 33 elements.
///
/// Errors     TOVRC_NLS_ERROR with the message of the locale layer's code.
TOV_EXPORT TovAutoBuffer<TovUChar> tovNlsGetLocaleTextInfoU(CXLocale *locale, std::int32_t item);
TOV_EXPORT TovAutoBuffer<char> tovNlsGetLocaleTextInfo(CXLocale *locale, std::int32_t item);

/// The longest character of the locale, and a blank in it, in bytes.
TOV_EXPORT std::int32_t tovNlsGetMaxByteLen(CXLocale *locale);
TOV_EXPORT std::int32_t tovNlsGetMinByteLen(CXLocale *locale);

/// Convert with a locale. A negative length means up to the terminator; a null source gives the empty handle.
/// A 0 stands behind the capacity, at the index that the worst case has: only `length` tells where the text
/// ends.
///
/// Errors     None for text that does not convert: `length` then counts what did, up to 0 or less.
///            std::bad_alloc; TOVRC_INTERNAL_ERROR for a text whose worst case does not fit 32 bits.
/// Threads    Any thread, also on one locale.
/// Cost       One allocation, for the worst case.
TOV_EXPORT TovAutoBuffer<TovUChar> tovNlsToUnicode(const char *source, std::int32_t length, CXLocale *locale);
TOV_EXPORT TovAutoBuffer<char> tovNlsFromUnicode(const TovUChar *source, std::int32_t length,
                                                 CXLocale *locale);

/// The units before the first 0 unit; `text` is not null.
TOV_EXPORT std::uint32_t tovStrlen(const TovUChar *text);

/// A converter for one named code page.
///
/// Ownership  Owns its locale; refers to a row of the code page table, and must not outlive it.
/// Threads    Does not change after its constructor; any number of threads may use one object.
/// Cost       The constructor costs a look-up and, for a code page of the locale layer, a locale: use one
///            object for many conversions. A conversion costs one allocation of the worst case; from UTF-8,
///            two.
class TOV_EXPORT TovNls {
public:
    /// A null or empty name means the process code page.
    ///
    /// Errors     TOVRC_NLS_ERROR for a name that nobody knows; what tovGetCodePage and tovNlsGetLocale
    /// raise.
    explicit TovNls(const TovUChar *cpName);
    ~TovNls();
    TovNls(const TovNls &) = delete;
    TovNls &operator=(const TovNls &) = delete;

    /// Convert; a negative length means up to the terminator, which for bytes is the first 0 byte. `source`
    /// is not null. The last byte of an odd count is dropped by UTF-16.
    ///
    /// Errors     None for text that does not convert: see tovNlsToUnicode; UTF-8 that ends inside a sequence
    ///            gives length 0. std::bad_alloc; the out-of-memory TovError; TOVRC_INTERNAL_ERROR for a text
    ///            whose worst case does not fit 32 bits.
    TovAutoBuffer<TovUChar> toUnicode(const char *source, std::int32_t length) const;
    TovAutoBuffer<char> fromUnicode(const TovUChar *source, std::int32_t length) const;

    /// "UTF-16" for both byte orders, else the row's name; valid as long as the row.
    const TovUChar *getCodePage() const;
    std::int32_t getCodePageId() const;

    /// The longest and the shortest character in bytes.
    std::int32_t getMaxByteLen() const;
    std::int32_t getMinByteLen() const;

    /// Whether the code page is EBCDIC based. Not to be asked of the UTF forms.
    bool isEbcdicBased() const;

    /// Whether the name stands for UTF-16 in host byte order. May raise, as the constructor does for the
    /// name.
    static bool isNativeUtf16(const TovUChar *cpName);

    /// The message for a code of the locale layer; a literal.
    static const char *getErrorMsg(std::int32_t code);

private:
    CXLocale *m_locale;
    const TovCodePage *m_codePage;
};

namespace tovdetail {
/// The message of an unknown code page; with the name, unless that is null.
TovString invalidCodePage(const TovString *name);
} // namespace tovdetail

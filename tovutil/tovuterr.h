/// Messages built from a format and inserts, and a holder for the outcome of what reports a failure instead
/// of raising it.
#pragma once

#include <tovutil/toverror.h>
#include <tovutil/tovexport.h>
#include <tovutil/tovstring.h>

#include <cstdint>
#include <new>
#include <utility>

/// Something that a message can show. Callers derive their own, one for each kind of value.
///
///     TovInsert::subst("%s: %(2).40s not found in %(1)s", library, symbol)
///
/// A format is plain text with placeholders: "%", optionally "(" number ")", optionally "." width, and "s".
/// Numbers count the inserts from 1, or from 0 where the ")" is missing. A placeholder without a number takes
/// the insert behind that of the last one without a number. A text of more than `width` bytes, 512 if none is
/// given, keeps its first width - 3 and ends in "..."; a width below 3 leaves only so many dots. A digit that
/// makes a number wrap to a smaller one no longer belongs to it. "%%" stands for one "%".
///
/// A format from elsewhere, such as a catalogue of translations, can do no harm: a placeholder without its
/// insert or with another letter than "s" gives nothing, the latter using up its insert all the same, and a
/// format that ends inside a placeholder ends the message there.
///
/// Ownership  Inserts belong to the caller and are only read during the call.
/// Units      Bytes. A cut may fall inside a multi-byte character.
/// Errors     The out-of-memory TovError; what an insert raises passes.
/// Threads    As the inserts.
/// Cost       One walk over the format. One allocation if the message and each insert have at most 128 bytes,
///            some more beyond. Each placeholder asks its insert anew.
class TOV_EXPORT TovInsert {
public:
    /// Appends the text to show. The string is empty, but may have room.
    virtual void appendTo(TovString &text) const = 0;

    virtual ~TovInsert();

    static TovString subst(const char *format, const TovInsert &a);
    static TovString subst(const char *format, const TovInsert &a, const TovInsert &b);
    static TovString subst(const char *format, const TovInsert &a, const TovInsert &b, const TovInsert &c);
    static TovString subst(const char *format, const TovInsert &a, const TovInsert &b, const TovInsert &c,
                           const TovInsert &d);
    static TovString subst(const char *format, const TovInsert &a, const TovInsert &b, const TovInsert &c,
                           const TovInsert &d, const TovInsert &e);
    static TovString subst(const char *format, const TovInsert &a, const TovInsert &b, const TovInsert &c,
                           const TovInsert &d, const TovInsert &e, const TovInsert &f);
    static TovString subst(const char *format, const TovInsert &a, const TovInsert &b, const TovInsert &c,
                           const TovInsert &d, const TovInsert &e, const TovInsert &f, const TovInsert &g);
    static TovString subst(const char *format, const TovInsert &a, const TovInsert &b, const TovInsert &c,
                           const TovInsert &d, const TovInsert &e, const TovInsert &f, const TovInsert &g,
                           const TovInsert &h);

    /// Any number of inserts, ended by a null pointer.
    static TovString subst(const char *format, const TovInsert *const *inserts);
};

/// The outcome of an operation: a code, 0 for success, a text, and the error object if there was one.
///
///     TovRc rc;
///     const unsigned count = text.toUInt32(rc);
///     if (!rc.ok())
///         report(rc.getRc(), rc.getMsg());
///
/// Ownership  The holder owns its copy of the error and, if `m_ownsMsg` is set, the text. The text of an
///            error lives as long as the error does.
/// Units      Texts are NUL-terminated bytes in the process locale's encoding.
/// Errors     The setters leave everything as it was when they raise.
/// Threads    One thread at a time.
class TOV_EXPORT TovRc {
public:
    /// Success.
    TovRc() noexcept = default;
    TovRc(const TovRc &) = delete;
    TovRc &operator=(const TovRc &) = delete;
    ~TovRc() { reset(); }

    bool ok() const { return m_rc == 0; }
    std::uint32_t getRc() const { return m_rc; }
    const char *getMsg() const { return m_msg; }
    const TovError *getErrorObj() const { return m_error; }

    /// Keeps a clone of `error`, with its return code and its message. The own error object will do, too.
    /// Raises std::bad_alloc or, for texts, the out-of-memory TovError.
    void setErrorObj(const TovError &error);

    /// Keeps a copy of `msg`, null counting as empty, and no error object. The own text will do, too. Raises
    /// std::bad_alloc.
    void setMsg(std::uint32_t rc, const char *msg);

    /// Back to success.
    void reset() noexcept {
        delete std::exchange(m_error, nullptr);
        if (m_ownsMsg)
            ::operator delete(const_cast<char *>(m_msg));
        m_ownsMsg = 0;
        m_msg = "";
        m_rc = 0;
    }

    std::uint32_t m_rc = 0;
    std::int8_t m_ownsMsg = 0; ///< whether `m_msg` came from operator new and is freed here
    const char *m_msg = "";    ///< never null
    TovError *m_error = nullptr;
};

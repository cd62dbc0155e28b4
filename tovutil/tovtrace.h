/// Trace output for a function: a stream whose text ends up in the trace facility, in a byte string or in
/// a callback.
///
/// A statement is one text: getOs() begins it, insertions fill it, std::flush ends it. The text goes out
/// in pieces of at most 72 bytes, cut purely by count; the later ones are marked as continuations.
///
/// Ownership  Records, strings, callbacks and dumped memory belong to the caller and must outlive the text.
/// Units      Lengths and sizes are bytes.
/// Errors     std::bad_alloc, when the buffer or the stream can't be made at the first statement. Results of
///            the facility and of callbacks are ignored.
/// Threads    A stream belongs to one call of one function.
/// Cost       A stream that is not used costs two null pointers; the first statement allocates the buffer and
///            the stream, the later ones nothing.
#pragma once

#include <services/trc1.h>
#include <tovutil/tovexport.h>
#include <tovutil/tovpool.h>
#include <tovutil/tovstring.h>

#include <concepts>
#include <ostream>
#include <streambuf>
#include <type_traits>

/// Takes a piece of text; `continuation` says that it goes on with the former one.
using TovLogCallback = void (*)(const char *text, bool continuation);

/// Takes the memory and the last piece of the text, empty if there is none. `address` may be null.
using TovDumpCallback = void (*)(const void *address, unsigned size, const char *text, bool continuation);

/// The stream buffer behind a trace stream. It holds at most 72 bytes, inside the object.
class TOV_EXPORT TovTraceBuff : public std::streambuf {
public:
    /// Takes a piece: NUL-terminated text, or null when there is none; its length; whether the text ends.
    using PrintMode = void (TovTraceBuff::*)(const char *text, unsigned length, bool last);

    TovTraceBuff() = default;
    TovTraceBuff(const TovTraceBuff &) = delete;
    TovTraceBuff &operator=(const TovTraceBuff &) = delete;
    ~TovTraceBuff() override; // does not flush

    /// Each form begins a new text and drops what has not been sent.
    void init(TovString &target);
    void init(TRC1_EPB *record, std::int32_t line);
    void init(TRC1_EPB *record, std::int32_t line, const void *address, unsigned size);
    void init(TovLogCallback log);
    void init(TovDumpCallback dump, TovLogCallback log, const void *address, unsigned size);
    void init(PrintMode mode);

    void printStr(const char *text, unsigned length, bool last);
    void printTrc(const char *text, unsigned length, bool last);
    void printTrcDump(const char *text, unsigned length, bool last);
    void printLog(const char *text, unsigned length, bool last);
    void printLogDump(const char *text, unsigned length, bool last);

protected:
    int_type underflow() override;
    int_type overflow(int_type c) override;
    int sync() override;
    int doallocate();

private:
    static constexpr std::size_t c_putArea = 71;

    void resetPutArea();
    void send(unsigned length, bool last);
    const char *format(const char *first, const char *later) const;

    PrintMode m_mode = nullptr;
    std::int32_t m_line = 0;
    const void *m_dumpAddress = nullptr;
    unsigned m_dumpSize = 0;
    bool m_first = false;
    TovDumpCallback m_dump = nullptr;
    union {
        TovString *m_string = nullptr;
        TRC1_EPB *m_record;
        TovLogCallback m_log;
    };
    char m_text[c_putArea + 2]; // the put area, one byte of overflow, a NUL
};

/// A standard output stream over a TovTraceBuff that writes a null text pointer as "NULL".
class TOV_EXPORT tovtraceos : public std::ostream {
public:
    explicit tovtraceos(TovTraceBuff *buffer);
    ~tovtraceos() override;

    template <class T>
    tovtraceos &operator<<(const T &value) {
        std::ostream &os = *this;
        if constexpr (isTextPointer<std::decay_t<T>>) {
            const std::decay_t<const T &> text = value;
            if (text)
                os << text;
            else
                os << "NULL";
        } else
            os << value;
        return *this;
    }
    tovtraceos &operator<<(std::ostream &(*manipulator)(std::ostream &)) {
        manipulator(*this);
        return *this;
    }

private:
    // What the standard insertion operators take as a text.
    template <class T, class Unit = std::remove_const_t<std::remove_pointer_t<T>>>
    static constexpr bool isTextPointer = std::is_pointer_v<T> &&
                                          (std::same_as<Unit, char> || std::same_as<Unit, signed char> ||
                                           std::same_as<Unit, unsigned char>);
};

/// Makes the buffer and the stream on demand. A local variable of the function that traces.
class TOV_EXPORT TovTraceStream {
public:
    TovTraceStream() = default;
    ~TovTraceStream() {
        if (m_buffer)
            destroy();
    }
    TovTraceStream(const TovTraceStream &) = delete;
    TovTraceStream &operator=(const TovTraceStream &) = delete;

    TovTraceBuff &getBuff();

    /// Each form clears the stream's error state; those with arguments begin a new text.
    tovtraceos &getOs();
    tovtraceos &getOs(TovString &target);
    tovtraceos &getOs(TRC1_EPB *record, std::int32_t line);
    tovtraceos &getOs(TRC1_EPB *record, std::int32_t line, const void *address, unsigned size);
    tovtraceos &getOs(TovLogCallback log);
    tovtraceos &getOs(TovDumpCallback dump, TovLogCallback log, const void *address, unsigned size);

private:
    void destroy();

    TovTraceBuff *m_buffer = nullptr;
    tovtraceos *m_stream = nullptr;
};

/// The text, or "{NULL}" for a null pointer; that text stays valid until TovTrace_release.
///
/// Errors     For null: std::bad_alloc at first use; the stored error of a module that could not be made;
///            TOVRC_INTERNAL_ERROR after TovTrace_release. For 16-bit text as tovToMbcs.
TOV_EXPORT const char *tovTraceStr(const char *text);

/// The text in the process locale's encoding, empty when it can't be converted; "{NULL}" for a null pointer.
TOV_EXPORT const TovString tovTraceStr(const TovUChar *text);

/// The module behind tovTraceStr.
class TOV_EXPORT TovTrace {
public:
    static TovPoolCtrl ms_pool;
    static pthread_once_t ms_lock;
};

extern "C" {
TOV_EXPORT void TovTrace_init();
TOV_EXPORT void TovTrace_release();
}

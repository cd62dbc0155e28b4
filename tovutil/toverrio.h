/// The byte record in which an error travels between processes.
///
/// It is a flat sequence without a heading, a version or a count: both sides must agree on it exactly. A
/// record delimits itself, so that one may follow the other. A word is the memory image of an unsigned 32-bit
/// value; a counted text is a word with its length and then its bytes; a fixed text has the size given, with
/// a NUL behind its text and NULs to its end.
///
///     return code, position, failed layer, reason, error type, reason again     words
///     location, message                                                         counted texts
///     return code name, layer name, reason name                                 fixed texts of 48 bytes
///     function 128, version 64, file 16, build 64                               fixed texts
///     line                                                                      word
///     error text, composed message, composed location                           counted texts
///
/// A secondary error does not travel: that of the written error is lost, that of the target stays.
///
/// Ownership  Sinks and sources belong to the caller.
/// Units      Lengths are bytes. Words are in the host's byte order.
/// Errors     A sink or a source that fails must raise. Its exception passes, and a target is left with the
///            fields read so far, valid and free to be read, changed and raised. So does the out-of-memory
///            TovError. An error with a text that no word can count is refused with TOVRC_INTERNAL_ERROR
///            before anything is written.
/// Threads    One thread at a time.
/// Cost       One write an item, two a counted text. A reader may be given what a stranger sent: it takes
///            memory in steps of 64 KiB, as the bytes arrive, whatever a length word says.
#pragma once

#include <tovutil/toverrfl.h>
#include <tovutil/tovexport.h>

#include <iosfwd>

/// Where a record goes.
class TOV_EXPORT TovDataOutput {
public:
    virtual ~TovDataOutput();

    /// Takes exactly these bytes, behind those of the calls before. `length` may be 0.
    virtual void write(const char *bytes, unsigned length) = 0;
};

/// Where a record comes from.
class TOV_EXPORT TovDataInput {
public:
    class TOV_EXPORT Stream {
    public:
        virtual ~Stream();

        /// Delivers exactly `length` bytes, which is never 0, or raises.
        virtual void read(char *bytes, unsigned length) = 0;
    };

    explicit TovDataInput(Stream &stream) : m_stream(&stream) {}
    Stream &stream() const { return *m_stream; }

private:
    Stream *m_stream;
};

/// Writes the record of an error; composes its texts if that is due.
TOV_EXPORT TovDataOutput &operator<<(TovDataOutput &out, const TovErrorFull &error);

/// Reads a record into an error. Its message and location are composed anew from the fields at the next read,
/// so what a stranger claims them to be is only seen by the accessors of the base, called by their full
/// names. A fixed text without its NUL is cut at its last byte.
TOV_EXPORT TovDataInput &operator>>(TovDataInput &in, TovErrorFull &error);

/// A sink of bytes.
class TOV_EXPORT TovOutputStream {
public:
    virtual ~TovOutputStream();
    virtual void write(const char *bytes, unsigned length) = 0;
};

/// Passes bytes on to a standard stream, without a flush and without a look at the stream's state.
///
/// Ownership  The stream belongs to the caller and must outlive this.
class TOV_EXPORT TovStdOutputStream : public TovOutputStream {
public:
    explicit TovStdOutputStream(std::ostream &os) : m_stream(&os) {}
    ~TovStdOutputStream() override;
    void write(const char *bytes, unsigned length) override;

private:
    std::ostream *m_stream;
};

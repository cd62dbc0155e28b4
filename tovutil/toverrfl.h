/// The error that the library's code raises: numbers with their names, a source location, a free text.
///
/// The texts of getErrorMessage() and getLocation() are composed from these at the first read after a
/// change, so an error that nobody reads costs no composition.
///
/// Units      Text fields are NUL-terminated bytes; a text that is too long for its field is cut, null
///            counts as empty.
/// Errors     As TovError. When a composition finds no memory for its work the error survives: its
///            message is "Can't create error message: Out of memory." until the next change.
/// Threads    As TovError. All compositions of the process are serialised by one mutex, so that an error
///            that nobody changes may be read, copied and raised from any thread.
#pragma once

#include <tovutil/toverror.h>
#include <tovutil/tovpool.h>
#include <tovutil/tovstring.h>

#include <cstdint>

/// Return codes that the library raises. An error carries the name of its code beside the number.
enum : std::uint32_t {
    TOVRC_OUT_OF_MEMORY = 21011,
    TOVRC_INVALID_WCHAR = 21012,
    TOVRC_INVALID_MBCHAR = 21013,
    TOVRC_INTERNAL_ERROR = 21020,
    TOVRC_NLS_ERROR = 21029,
    TOVRC_SHLIB_ERROR = 21030,
};

/// The layer of all errors of this library.
enum : std::uint32_t { TOVOP_REPOSITORY = 101 };

/// The number and the name of a constant, as the errors' constructors take them.
#define TOV_CODE(constant) constant, #constant

class TovDataInput;
class TovDataOutput;

class TOV_EXPORT TovErrorFull : public TovError {
public:
    /// Numbers 0, type Api, empty texts.
    TovErrorFull();

    TovErrorFull(std::uint32_t returnCode, const char *returnCodeName, std::uint32_t failedLayer,
                 const char *layerName, std::uint32_t reason, const char *reasonName, std::uint32_t position,
                 ErrorType errorType, std::uint32_t line, const char *functionName, const char *version,
                 const char *sourceFile, const char *build, const TovString &errorText,
                 const TovError *secondary);

    /// Composes the source's texts if that is due.
    TovErrorFull(const TovErrorFull &source);
    TovErrorFull &operator=(const TovErrorFull &source);
    ~TovErrorFull() override;

    /// Copies `source` into a text field of this error, of `size` bytes with its NUL, and fills the rest of
    /// the field with NULs.
    void setStr(char *destination, const char *source, int size);

    /// Keeps what follows the last "/" or "\" of `path`, at most 15 bytes.
    void setFile(const char *path);

    /// Composes message and location if they are out of date.
    void checkMods() const;

    /// The composed texts, valid until the next change or composition.
    const char *getLocation() const override;
    const char *getErrorMessage() const override;

    TovError *clone() const override;
    [[noreturn]] void raise() const override;

    /// A copy of the free text.
    virtual TovString getErrString() const;

    /// "CRITICAL", "ERROR", "TRANSIENT", "API"; "Unknown" for any other type.
    const char *getErrorTypeName() const;

    /// The out-of-memory error, made without taking memory.
    static TovError getOutOfMem();

    /// Raises it, as a TovError.
    [[noreturn]] static void throwBadAlloc();

private:
    // Its byte record: toverrio.h.
    friend TovDataOutput &operator<<(TovDataOutput &out, const TovErrorFull &error);
    friend TovDataInput &operator>>(TovDataInput &in, TovErrorFull &error);

    TovString composedMessage() const;
    TovString composedLocation() const;
    void compose() const;

    char m_returnCodeStr[48];
    char m_layerStr[48];
    char m_reasonStr[48];
    std::uint32_t m_line;
    char m_from[128];
    char m_version[64];
    char m_file[16];
    char m_build[64];
    TovString m_errString;
    mutable TovString m_message;
    mutable TovString m_location;
};

/// The module behind the composition of texts: one mutex. After TovErrFl_release the next composition
/// makes a new one, so that raising an error never needs a module that is gone.
class TOV_EXPORT TovErrFl {
public:
    static TovPoolCtrl ms_pool;
    static pthread_once_t ms_lock;
};

extern "C" {
TOV_EXPORT void TovErrFl_init();
TOV_EXPORT void TovErrFl_release();
}

/// Raises an internal error; the caller has tested the condition.
///
/// `message` reads "Internal error: " and the condition; `returnCode` and its name are mostly
/// TOV_CODE(TOVRC_INTERNAL_ERROR).
[[noreturn]] TOV_EXPORT void tovCheck(const char *file, long line, const char *message, long returnCode,
                                      const char *returnCodeName);

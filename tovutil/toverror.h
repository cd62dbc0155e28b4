/// The error that the library raises: a small handle around a heap body with numbers and texts.
///
/// Errors are thrown by value and caught by reference to TovError; clone() and raise() keep the dynamic
/// type. Two bodies are static and shared: that of the out-of-memory error, so that exhausted memory can be
/// reported without taking memory, and that of an error constructed without arguments.
///
/// Ownership  A handle owns its body, and the body its texts and its secondary error. Copies are deep but
///            for the two static bodies.
/// Units      Texts are NUL-terminated bytes in the process locale's encoding; null counts as empty.
/// Errors     What needs memory raises the out-of-memory TovError for texts and std::bad_alloc for
///            bodies; the object is then as before.
/// Threads    A handle belongs to one thread at a time; errors that nobody changes may be read from any.
#pragma once

#include <tovutil/tovexport.h>

#include <cstdint>
#include <pthread.h>

struct TovErrorImpl;

class TOV_EXPORT TovError {
public:
    enum ErrorType : std::uint32_t { Critical = 1, Error = 2, Transient = 4, Api = 8 };

    /// Return code 0, type Api, empty texts. Takes no memory.
    TovError();

    /// `returnCode` 21011 gives the out-of-memory error and drops all other arguments. The secondary is
    /// cloned.
    TovError(std::uint32_t returnCode, std::uint32_t position, std::uint32_t failedLayer,
             std::uint32_t reason, ErrorType errorType, const char *location, const char *errorMessage,
             const TovError *secondary);

    /// Takes the texts from the virtual accessors, so that a copy of a derived error has its composed
    /// texts. Takes no memory when the source has a static body.
    TovError(const TovError &source);
    TovError &operator=(const TovError &source);
    virtual ~TovError();

    std::uint32_t getReturnCode() const;
    std::uint32_t getFailedLayer() const;
    std::uint32_t getReason() const;
    std::uint32_t getPosition() const;
    ErrorType getErrorType() const;

    /// The secondary error, owned by this one; null if there is none.
    const TovError *getSecondary() const;

    /// Whether something has changed since setMods(false).
    bool hasMods() const;

    /// The texts, owned by the error and valid until it changes; never null.
    virtual const char *getLocation() const;
    virtual const char *getErrorMessage() const;

    void setReturnCode(std::uint32_t returnCode);
    void setFailedLayer(std::uint32_t failedLayer);
    void setReason(std::uint32_t reason);
    void setPosition(std::uint32_t position);
    void setErrorType(ErrorType errorType);
    void setLocation(const char *location);
    void setErrorMessage(const char *errorMessage);

    /// Keeps a clone of `secondary`; null removes what there was. An error of this one's own chain will do.
    void setSecondary(const TovError *secondary);

    /// Gives an error on a static body a body of its own, as all setters do.
    void setMods(bool mods);

    /// A new copy of the same dynamic type, owned by the caller.
    virtual TovError *clone() const;

    /// Throws a copy of the same dynamic type.
    [[noreturn]] virtual void raise() const;

    /// Writes message and location to the trace, then raises.
    [[noreturn]] void logRaise() const;

    /// The first half of logRaise(): the report of a raise.
    void traceRaise() const;

protected:
    /// Replaces a static body by a private copy.
    void makePrivate();
    void swapBody(TovError &other) noexcept;

    /// setMods for what derived classes cache behind constant accessors.
    void storeMods(bool mods) const;

private:
    TovErrorImpl *body() const;
    void makeBodyPrivate() const;

    // Exchanged behind constant accessors when the cached state of an error on a static body is stored.
    mutable TovErrorImpl *m_impl;
};

/// The body of an error.
struct TOV_EXPORT TovErrorImpl {
    /// Selects the constructor of the out-of-memory body.
    struct OutOfMemory {};

    std::uint32_t m_returnCode;
    std::uint32_t m_failedLayer;
    std::uint32_t m_reason;
    std::uint32_t m_position;
    TovError::ErrorType m_errorType;
    TovError *m_secondary;      ///< owned; null if none
    const char *m_errorMessage; ///< from tovMalloc, never null; a literal in the static bodies
    const char *m_location;     ///< likewise
    bool m_mods;                ///< read without a lock while another thread composes

    /// The body of a default error.
    TovErrorImpl();
    explicit TovErrorImpl(OutOfMemory);
    TovErrorImpl(std::uint32_t returnCode, std::uint32_t position, std::uint32_t failedLayer,
                 std::uint32_t reason, TovError::ErrorType errorType, const char *location,
                 const char *errorMessage, const TovError *secondary);
    TovErrorImpl(const TovErrorImpl &source);
    TovErrorImpl &operator=(const TovErrorImpl &) = delete;
    ~TovErrorImpl();

    /// A new body, or the static out-of-memory body when `returnCode` is 21011.
    static TovErrorImpl *create(std::uint32_t returnCode, std::uint32_t position, std::uint32_t failedLayer,
                                std::uint32_t reason, TovError::ErrorType errorType, const char *location,
                                const char *errorMessage, const TovError *secondary);

    /// A copy of `text` from tovMalloc; null counts as empty.
    static char *dupString(const char *text);

    void setErrorMessage(const char *text);
    void setLocation(const char *text);
};

/// The two static bodies, built at the first need and never destroyed.
struct TOV_EXPORT TovErrorStatic {
    TovErrorImpl m_outOfMemory;
    TovErrorImpl m_default;

    TovErrorStatic();

    static TovErrorStatic &get();
    bool holds(const TovErrorImpl *body) const { return body == &m_outOfMemory || body == &m_default; }

    static TovErrorStatic *ms_static;
    static pthread_once_t ms_init;
    static std::int8_t ms_isInitialized;
};

/// Builds the static bodies; handed to pthread_once.
extern "C" TOV_EXPORT void __TovErrorStaticinit();

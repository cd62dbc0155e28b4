// The error handle and its body.
#include <tovutil/toverror.h>

#include <tovutil/tovalloc.h>
#include <tovutil/tovatomic.h>
#include <tovutil/toverrfl.h>
#include <tovutil/tovtrcfn.h>
#include <tovutil/tovutil.h>

#include <cstring>
#include <exception>
#include <memory>
#include <new>
#include <utility>

TOV_TRACE_FILE("tovutil/toverror");

using tovdetail::loadAcquire;
using tovdetail::storeRelease;

// The handle ----------------------------------------------------------------------------------------

namespace {

// Shares a static body, copies any other. The virtual accessors give a derived error's composed texts.
TovErrorImpl *copyBody(const TovError &source, TovErrorImpl *body) {
    if (TovErrorStatic::get().holds(body))
        return body;
    // Read first: composing a derived error's texts may change it.
    const char *location = source.getLocation();
    const char *message = source.getErrorMessage();
    return new TovErrorImpl(source.getReturnCode(), source.getPosition(), source.getFailedLayer(),
                            source.getReason(), source.getErrorType(), location, message,
                            source.getSecondary());
}

void destroyBody(TovErrorImpl *body) {
    if (!TovErrorStatic::get().holds(body))
        delete body;
}

} // namespace

TovError::TovError() : m_impl(&TovErrorStatic::get().m_default) {}

TovError::TovError(std::uint32_t returnCode, std::uint32_t position, std::uint32_t failedLayer,
                   std::uint32_t reason, ErrorType errorType, const char *location, const char *errorMessage,
                   const TovError *secondary)
    : m_impl(TovErrorImpl::create(returnCode, position, failedLayer, reason, errorType, location,
                                  errorMessage, secondary)) {}

TovError::TovError(const TovError &source) : m_impl(copyBody(source, source.body())) {}

TovError &TovError::operator=(const TovError &source) {
    if (body() == source.body())
        return *this;
    // The new body comes first: the source may be an error of this one's own chain.
    TovErrorImpl *old = std::exchange(m_impl, copyBody(source, source.body()));
    destroyBody(old);
    return *this;
}

TovError::~TovError() { destroyBody(m_impl); }

std::uint32_t TovError::getReturnCode() const { return body()->m_returnCode; }
std::uint32_t TovError::getFailedLayer() const { return body()->m_failedLayer; }
std::uint32_t TovError::getReason() const { return body()->m_reason; }
std::uint32_t TovError::getPosition() const { return body()->m_position; }
TovError::ErrorType TovError::getErrorType() const { return body()->m_errorType; }
const TovError *TovError::getSecondary() const { return body()->m_secondary; }
bool TovError::hasMods() const { return loadAcquire(body()->m_mods); }
const char *TovError::getLocation() const { return body()->m_location; }
const char *TovError::getErrorMessage() const { return body()->m_errorMessage; }

void TovError::setReturnCode(std::uint32_t returnCode) {
    setMods(true);
    m_impl->m_returnCode = returnCode;
}

void TovError::setFailedLayer(std::uint32_t failedLayer) {
    setMods(true);
    m_impl->m_failedLayer = failedLayer;
}

void TovError::setReason(std::uint32_t reason) {
    setMods(true);
    m_impl->m_reason = reason;
}

void TovError::setPosition(std::uint32_t position) {
    setMods(true);
    m_impl->m_position = position;
}

void TovError::setErrorType(ErrorType errorType) {
    setMods(true);
    m_impl->m_errorType = errorType;
}

void TovError::setLocation(const char *location) {
    makePrivate();
    m_impl->setLocation(location);
}

void TovError::setErrorMessage(const char *errorMessage) {
    makePrivate();
    m_impl->setErrorMessage(errorMessage);
}

void TovError::setSecondary(const TovError *secondary) {
    makePrivate();
    TovError *copy = secondary ? secondary->clone() : nullptr;
    delete std::exchange(m_impl->m_secondary, copy);
    storeRelease(m_impl->m_mods, true);
}

void TovError::setMods(bool mods) { storeMods(mods); }

TovError *TovError::clone() const { return new TovError(*this); }

void TovError::raise() const { throw TovError(*this); }

void TovError::logRaise() const {
    traceRaise(); // a function of its own, so that no trace object has to be unwound
    raise();
    std::terminate(); // an override that comes back breaks its promise
}

// Reports no exit: what it belongs to leaves by an exception.
void TovError::traceRaise() const {
    TOV_TRACE_ENTER("TovError::logRaise");
    TOV_TRACE_STATE(getErrorMessage());
    TOV_TRACE_STATE(getLocation());
}

void TovError::makePrivate() { makeBodyPrivate(); }

void TovError::swapBody(TovError &other) noexcept { std::swap(m_impl, other.m_impl); }

void TovError::storeMods(bool mods) const {
    makeBodyPrivate();
    storeRelease(m_impl->m_mods, mods);
}

TovErrorImpl *TovError::body() const { return loadAcquire(m_impl); }

void TovError::makeBodyPrivate() const {
    if (TovErrorStatic::get().holds(m_impl))
        storeRelease(m_impl, new TovErrorImpl(*m_impl));
}

// The body ------------------------------------------------------------------------------------------

namespace {

struct Freed {
    void operator()(char *text) const { tovFree(text); }
};
using OwnedText = std::unique_ptr<char, Freed>;

OwnedText ownedCopy(const char *text) { return OwnedText(TovErrorImpl::dupString(text)); }

void replaceText(const char *&field, const char *text) {
    const char *old = std::exchange(field, TovErrorImpl::dupString(text));
    tovFree(const_cast<char *>(old));
}

} // namespace

TovErrorImpl::TovErrorImpl()
    : m_returnCode(0), m_failedLayer(0), m_reason(0), m_position(0), m_errorType(TovError::Api),
      m_secondary(nullptr), m_errorMessage(""), m_location(""), m_mods(true) {}

TovErrorImpl::TovErrorImpl(OutOfMemory)
    : m_returnCode(TOVRC_OUT_OF_MEMORY), m_failedLayer(0), m_reason(0), m_position(0),
      m_errorType(TovError::Critical), m_secondary(nullptr), m_errorMessage("Out of memory."), m_location(""),
      m_mods(true) {}

TovErrorImpl::TovErrorImpl(std::uint32_t returnCode, std::uint32_t position, std::uint32_t failedLayer,
                           std::uint32_t reason, TovError::ErrorType errorType, const char *location,
                           const char *errorMessage, const TovError *secondary)
    : m_returnCode(returnCode), m_failedLayer(failedLayer), m_reason(reason), m_position(position),
      m_errorType(errorType), m_secondary(nullptr), m_errorMessage(nullptr), m_location(nullptr),
      m_mods(true) {
    std::unique_ptr<TovError> secondaryCopy(secondary ? secondary->clone() : nullptr);
    OwnedText messageCopy = ownedCopy(errorMessage);
    OwnedText locationCopy = ownedCopy(location);
    m_secondary = secondaryCopy.release();
    m_errorMessage = messageCopy.release();
    m_location = locationCopy.release();
}

TovErrorImpl::TovErrorImpl(const TovErrorImpl &source)
    : TovErrorImpl(source.m_returnCode, source.m_position, source.m_failedLayer, source.m_reason,
                   source.m_errorType, source.m_location, source.m_errorMessage, source.m_secondary) {}

TovErrorImpl::~TovErrorImpl() {
    if (TovErrorStatic::get().holds(this))
        return;
    delete m_secondary;
    tovFree(const_cast<char *>(m_errorMessage));
    tovFree(const_cast<char *>(m_location));
}

TovErrorImpl *TovErrorImpl::create(std::uint32_t returnCode, std::uint32_t position,
                                   std::uint32_t failedLayer, std::uint32_t reason,
                                   TovError::ErrorType errorType, const char *location,
                                   const char *errorMessage, const TovError *secondary) {
    if (returnCode == TOVRC_OUT_OF_MEMORY)
        return &TovErrorStatic::get().m_outOfMemory;
    return new TovErrorImpl(returnCode, position, failedLayer, reason, errorType, location, errorMessage,
                            secondary);
}

char *TovErrorImpl::dupString(const char *text) {
    const char *source = text ? text : "";
    const std::size_t size = std::strlen(source) + 1;
    return static_cast<char *>(std::memcpy(tovMalloc(size), source, size));
}

void TovErrorImpl::setErrorMessage(const char *text) {
    replaceText(m_errorMessage, text);
    storeRelease(m_mods, true);
}

void TovErrorImpl::setLocation(const char *text) {
    replaceText(m_location, text);
    storeRelease(m_mods, true);
}

// The static bodies ---------------------------------------------------------------------------------

namespace {
// Room to align the pair in; static storage, so that the pair needs no constructor at load time.
constinit std::byte s_storage[sizeof(TovErrorStatic) + 8] = {};
} // namespace

constinit TovErrorStatic *TovErrorStatic::ms_static = nullptr;
constinit pthread_once_t TovErrorStatic::ms_init = PTHREAD_ONCE_INIT;
constinit std::int8_t TovErrorStatic::ms_isInitialized = 0;

TovErrorStatic::TovErrorStatic() : m_outOfMemory(TovErrorImpl::OutOfMemory()), m_default() {}

TovErrorStatic &TovErrorStatic::get() {
    if (!loadAcquire(ms_isInitialized))
        TovInitUtils::init(ms_init, __TovErrorStaticinit);
    return *ms_static;
}

void __TovErrorStaticinit() {
    TovErrorStatic::ms_static = new (TovInitUtils::align(s_storage)) TovErrorStatic;
    storeRelease(TovErrorStatic::ms_isInitialized, std::int8_t{1});
}

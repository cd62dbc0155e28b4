// Pool control and the fork handlers of its locks, the recursive mutex, conversion with the process
// locale, and the free helpers on 16-bit strings.
#include <tovutil/tovutil.h>

#include <services/cx.h>
#include <services/lng1.h>
#include <tovdom/tovnls/tovnls.h>
#include <tovutil/tovmodule.h>
#include <tovutil/tovsize.h>
#include <tovutil/tovtrcfn.h>

#include <charconv>
#include <memory>
#include <mutex>
#include <ostream>
#include <utility>

TOV_TRACE_FILE("tovutil/tovutil");

using tovdetail::loadAcquire;
using tovdetail::storeRelease;

// Pool control --------------------------------------------------------------------------------------

// A field in a trace, while another thread may be initialising the pool.
#define TOV_POOL_FIELD(field) TOV_NAMED(#field, loadAcquire(field))

void *TovPoolCtrl::initLive(pthread_once_t &once, void (*fInit)()) {
    void *data = init(once, fInit);
    if (!data)
        tovCheck("tovutil/tovutil", __LINE__, "Internal error: pool released",
                 TOV_CODE(TOVRC_INTERNAL_ERROR));
    return data;
}

void *TovPoolCtrl::init(pthread_once_t &once, void (*fInit)()) {
    TOV_TRACE_ENTER("TovPoolCtrl::init", TOV_VALUE(this) << TOV_POOL_FIELD(m_stat) << TOV_POOL_FIELD(m_data)
                                                         << TOV_POOL_FIELD(m_impl));
    pthread_once(&once, fInit);
    if (loadAcquire(m_stat) == Failed) {
        TOV_TRACE_STATE("Re-throw pending error");
        m_impl->m_error->raise();
    }
    return TOV_TRACE_RESULT(m_data);
}

#define TOV_POOL_ARGUMENTS TOV_VALUE(this) << TOV_VALUE(m_stat) << TOV_VALUE(m_impl) << TOV_VALUE(m_data)

void TovPoolCtrl::initOk(void *data, void (*fRelease)(), TovPoolCtrlList &list, void (*fTermInit)()) {
    TOV_TRACE_ENTER("TovPoolCtrl::initOk",
                    TOV_POOL_ARGUMENTS
                        << TOV_NAMED("(void*)fRelease", tovdetail::functionAddress(fRelease))
                        << TOV_VALUE(&list)
                        << TOV_NAMED("(void*)fTermInit", tovdetail::functionAddress(fTermInit)));
    TovPoolCtrlListImpl::checkInit(list, fTermInit);
    storeRelease(m_impl, TovPoolCtrlImpl::create(this, fRelease, list));
    storeRelease(m_data, data);
    storeRelease(m_stat, std::int8_t{Ready}); // last, because accessors read m_stat without a lock
    TOV_TRACE_LEAVE();
}

void TovPoolCtrl::initError(const TovError &error, void (*fRelease)(), TovPoolCtrlList &list,
                            void (*fTermInit)()) {
    TOV_TRACE_ENTER("TovPoolCtrl::initError",
                    TOV_POOL_ARGUMENTS
                        << TOV_NAMED("(void*)fRelease", tovdetail::functionAddress(fRelease))
                        << TOV_VALUE(&list)
                        << TOV_NAMED("(void*)fTermInit", tovdetail::functionAddress(fTermInit)));
    TOV_TRACE_ERROR("(" << error.getErrorMessage() << ")");
    std::unique_ptr<TovError> copy(error.clone()); // what can fail comes before the entry
    TovPoolCtrlListImpl::checkInit(list, fTermInit);
    TovPoolCtrlImpl *entry = TovPoolCtrlImpl::create(this, fRelease, list);
    entry->m_error = copy.release();
    storeRelease(m_impl, entry);
    storeRelease(m_stat, std::int8_t{Failed});
    TOV_TRACE_LEAVE();
}

void *TovPoolCtrl::release() {
    TOV_TRACE_ENTER("TovPoolCtrl::release", TOV_POOL_ARGUMENTS);
    if (loadAcquire(m_stat) != Ready)
        return TOV_TRACE_RESULT(static_cast<void *>(nullptr));
    if (m_impl)
        std::exchange(m_impl, nullptr)->m_ctrl = nullptr;
    storeRelease(m_stat, std::int8_t{Untouched});
    return TOV_TRACE_RESULT(std::exchange(m_data, nullptr));
}

namespace {

class PthreadLock {
public:
    explicit PthreadLock(pthread_mutex_t &mutex) : m_mutex(mutex) { pthread_mutex_lock(&m_mutex); }
    ~PthreadLock() { pthread_mutex_unlock(&m_mutex); }
    PthreadLock(const PthreadLock &) = delete;
    PthreadLock &operator=(const PthreadLock &) = delete;

private:
    pthread_mutex_t &m_mutex;
};

} // namespace

TovPoolCtrlImpl *TovPoolCtrlImpl::create(TovPoolCtrl *ctrl, void (*fRelease)(), TovPoolCtrlList &list) {
    TovPoolCtrlListImpl &body = *list.m_impl;
    const PthreadLock lock(body.m_mutex);
    body.m_head = new TovPoolCtrlImpl{ctrl, nullptr, fRelease, body.m_head};
    return body.m_head;
}

template struct TovPoolCtrlListInst<0>;

bool TovPoolCtrlList::isCleanupEnabled() { return false; }

constinit TovPoolCtrlListImpl *TovPoolCtrlListImpl::ms_head = nullptr;
constinit pthread_mutex_t TovPoolCtrlListImpl::ms_mutex = PTHREAD_MUTEX_INITIALIZER;

TovPoolCtrlList &TovPoolCtrlListImpl::checkInit(TovPoolCtrlList &list, void (*)()) {
    if (loadAcquire(list.m_isInit))
        return list;
    tovdetail::guardLocksAtFork();
    const PthreadLock lock(ms_mutex);
    if (list.m_isInit)
        return list;
    auto *body = new TovPoolCtrlListImpl{nullptr, {}, nullptr, ms_head, &list};
    pthread_mutex_init(&body->m_mutex, nullptr);
    if (ms_head)
        ms_head->m_prev = body;
    ms_head = body;
    list.m_impl = body;
    storeRelease(list.m_isInit, std::int8_t{1});
    return list;
}

// Locks and fork ------------------------------------------------------------------------------------

namespace tovdetail {

// The forking thread takes every lock of the library, so that the child finds all of them free: first the
// chain of lists, then each list, then the modules' mutexes. No code of the library takes two of the last two
// kinds at a time, so their order among themselves is free.
struct ForkHandlers {
    // Without memory for the handlers the library works all the same, but for children of busy processes.
    static void install() { pthread_atfork(lockAll, unlockAll, unlockAll); }
    static void lockAll();
    static void unlockAll();
    static void add(ModuleMutex &mutex);
    static void remove(ModuleMutex &mutex);

    static pthread_once_t s_once;
    static pthread_mutex_t s_mutex; // guards the chain of module mutexes
    static ModuleMutex *s_head;
};

constinit pthread_once_t ForkHandlers::s_once = PTHREAD_ONCE_INIT;
constinit pthread_mutex_t ForkHandlers::s_mutex = PTHREAD_MUTEX_INITIALIZER;
constinit ModuleMutex *ForkHandlers::s_head = nullptr;

// A child that is made while the handlers are being registered registers them again, so that its own forks
// call them twice.
constinit thread_local int t_forking = 0;

void ForkHandlers::lockAll() {
    if (t_forking++ != 0)
        return;
    pthread_mutex_lock(&TovPoolCtrlListImpl::ms_mutex);
    for (auto *list = TovPoolCtrlListImpl::ms_head; list; list = list->m_next)
        pthread_mutex_lock(&list->m_mutex);
    pthread_mutex_lock(&s_mutex);
    for (ModuleMutex *mutex = s_head; mutex; mutex = mutex->m_next)
        mutex->lock();
}

void ForkHandlers::unlockAll() {
    if (--t_forking != 0)
        return;
    for (ModuleMutex *mutex = s_head; mutex; mutex = mutex->m_next)
        mutex->unlock();
    pthread_mutex_unlock(&s_mutex);
    for (auto *list = TovPoolCtrlListImpl::ms_head; list; list = list->m_next)
        pthread_mutex_unlock(&list->m_mutex);
    pthread_mutex_unlock(&TovPoolCtrlListImpl::ms_mutex);
}

void ForkHandlers::add(ModuleMutex &mutex) {
    const PthreadLock lock(s_mutex);
    mutex.m_next = s_head;
    s_head = &mutex;
}

void ForkHandlers::remove(ModuleMutex &mutex) {
    const PthreadLock lock(s_mutex);
    ModuleMutex **link = &s_head;
    while (*link != &mutex)
        link = &(*link)->m_next;
    *link = mutex.m_next;
}

void guardLocksAtFork() { pthread_once(&ForkHandlers::s_once, ForkHandlers::install); }

ModuleMutex::ModuleMutex() : m_next(nullptr) {
    guardLocksAtFork();
    ForkHandlers::add(*this);
}

ModuleMutex::~ModuleMutex() { ForkHandlers::remove(*this); }

} // namespace tovdetail

// Once and alignment --------------------------------------------------------------------------------

void TovInitUtils::init(pthread_once_t &once, void (*function)()) { pthread_once(&once, function); }

void *TovInitUtils::align(void *address) {
    const auto value = reinterpret_cast<std::uintptr_t>(address);
    return static_cast<char *>(address) + ((8 - (value & 7)) & 7);
}

// Recursive mutex -----------------------------------------------------------------------------------

constinit pthread_mutexattr_t *s_recursiveAttr = nullptr;

namespace {
constinit pthread_mutexattr_t s_recursiveAttrData = {};
constinit pthread_once_t s_recursiveAttrOnce = PTHREAD_ONCE_INIT;
} // namespace

TovMutex::TovMutex(RecursiveType) {
    pthread_mutexattr_t *attributes = loadAcquire(s_recursiveAttr);
    if (!attributes) {
        pthread_once(&s_recursiveAttrOnce, tovutil_recursiveAttrInitFunc);
        attributes = &s_recursiveAttrData;
        storeRelease(s_recursiveAttr, attributes); // racing threads store the same value
    }
    pthread_mutex_init(&m_mutex, attributes);
}

void tovutil_recursiveAttrInitFunc() {
    TOV_TRACE_ENTER("recursiveAttrOnceInit");
    if (pthread_mutexattr_init(&s_recursiveAttrData) != 0)
        tovCheck("tovutil/tovutil", 595, "Internal error: pthread_mutexattr_init(&s_recursiveAttrData) == 0",
                 TOV_CODE(TOVRC_INTERNAL_ERROR));
    if (pthread_mutexattr_settype(&s_recursiveAttrData, PTHREAD_MUTEX_RECURSIVE) != 0)
        tovCheck(
            "tovutil/tovutil", 598,
            "Internal error: pthread_mutexattr_settype( &s_recursiveAttrData, PTHREAD_MUTEX_RECURSIVE ) == 0",
            TOV_CODE(TOVRC_INTERNAL_ERROR));
    TOV_TRACE_LEAVE();
}

// Conversion with the process locale ----------------------------------------------------------------

namespace {

// A length of these two functions as the locale primitives take it: above 0x7FFFFFFF it turns negative, which
// means up to the terminator.
std::int32_t signedLength(std::uint32_t length) { return static_cast<std::int32_t>(length); }

} // namespace

TovString tovToMbcs(const TovUChar *source, std::uint32_t length, bool raiseOnFailure) {
    TOV_TRACE_ENTER("tovToMbcs");
    TovString text;
    if (source && length != 0) {
        auto bytes = tovNlsFromUnicode(source, signedLength(length), LNG1_PrivateFunction_GetProcessLocale());
        bytes.own();
        if (bytes.length <= 0 && raiseOnFailure)
            TOV_RAISE_AT(50, 1, TOVRC_INVALID_WCHAR, "Cannot convert with tovToMbcs()");
        text.assign(bytes.view());
    }
    TOV_TRACE_LEAVE();
    return text;
}

TovUString tovToUnicode(const char *source, std::uint32_t length, bool raiseOnFailure) {
    TOV_TRACE_ENTER("tovToUnicode");
    TovUString text;
    if (source && length != 0) {
        auto units = tovNlsToUnicode(source, signedLength(length), LNG1_PrivateFunction_GetProcessLocale());
        units.own();
        if (units.length <= 0 && raiseOnFailure)
            TOV_RAISE_AT(81, 1, TOVRC_INVALID_MBCHAR, "Cannot convert with tovToUnicode()");
        text.assign(units.view());
    }
    TOV_TRACE_LEAVE();
    return text;
}

// Free string helpers -------------------------------------------------------------------------------

TovUString tovToUString(const TovUChar *text, long n) {
    if (!text || *text == 0)
        return TovUString();
    return TovUString(text, n > 0 ? static_cast<std::size_t>(n) : tovStrlen(text));
}

TovUString tovToUString(long value) {
    char digits[24] = {};
    std::to_chars(digits, digits + sizeof digits - 1, value);
    return tovToUnicode(digits, 0xFFFFFFFFU, false);
}

bool tovIsWhiteSpace(TovUChar unit) { return unit == 0x20 || unit == 0x09 || unit == 0x0A || unit == 0x0D; }

namespace {

TovUString trimmed(const TovUString &text, std::u16string_view cut) {
    const std::size_t first = text.find_first_not_of(cut);
    if (first == text.npos)
        return TovUString();
    return text.substr(first, text.find_last_not_of(cut) - first + 1);
}

TovUString mapCase(const TovUString &text, std::uint32_t flags) {
    const std::int32_t length = TOV_LENGTH32(text.size());
    const std::unique_ptr<TovUChar[]> buffer(new TovUChar[text.size() + 1]);
    const std::int32_t mapped = CXMapStringU(LNG1_PrivateFunction_GetProcessLocale(), buffer.get(), length,
                                             text.data(), length, flags);
    return mapped > 0 ? TovUString(buffer.get(), static_cast<std::size_t>(mapped)) : TovUString();
}

} // namespace

TovUString tovTrimSpaces(const TovUString &text) { return trimmed(text, u" "); }

TovUString tovTrimWhiteSpaces(const TovUString &text) { return trimmed(text, u" \t\n\r"); }

TovUString tovToUpper(const TovUString &text) { return mapCase(text, CX_MAP_UPPER); }

TovUString tovToLower(const TovUString &text) { return mapCase(text, CX_MAP_LOWER); }

std::ostream &operator<<(std::ostream &os, const TovUString &text) {
    const std::int32_t length = TOV_LENGTH32(text.size());
    return os << tovToMbcs(text.data(), static_cast<std::uint32_t>(length), false);
}

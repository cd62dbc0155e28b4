// The full error: its fields, and the composition of its texts.
#include <tovutil/toverrfl.h>

#include <tovutil/tovmodule.h>
#include <tovutil/tovtrcfn.h>

#include <algorithm>
#include <charconv>
#include <cstring>
#include <memory_resource>
#include <mutex>
#include <new>
#include <ostream>
#include <string_view>

TOV_TRACE_FILE("tovutil/toverrfl");

std::ostream &operator<<(std::ostream &os, const TovString &text) { return os << text.c_str(); }

TovErrorFull::TovErrorFull()
    : m_returnCodeStr{}, m_layerStr{}, m_reasonStr{}, m_line(0), m_from{}, m_version{}, m_file{}, m_build{} {}

TovErrorFull::TovErrorFull(std::uint32_t returnCode, const char *returnCodeName, std::uint32_t failedLayer,
                           const char *layerName, std::uint32_t reason, const char *reasonName,
                           std::uint32_t position, ErrorType errorType, std::uint32_t line,
                           const char *functionName, const char *version, const char *sourceFile,
                           const char *build, const TovString &errorText, const TovError *secondary)
    : m_line(line), m_file{}, m_errString(errorText) {
    setReturnCode(returnCode);
    setFailedLayer(failedLayer);
    setReason(reason);
    setPosition(position);
    setErrorType(errorType);
    setStr(m_returnCodeStr, returnCodeName, sizeof m_returnCodeStr);
    setStr(m_layerStr, layerName, sizeof m_layerStr);
    setStr(m_reasonStr, reasonName, sizeof m_reasonStr);
    setStr(m_from, functionName, sizeof m_from);
    setStr(m_version, version, sizeof m_version);
    setFile(sourceFile);
    setStr(m_build, build, sizeof m_build);
    setSecondary(secondary);
}

TovErrorFull::TovErrorFull(const TovErrorFull &source) : TovErrorFull() { *this = source; }

TovErrorFull &TovErrorFull::operator=(const TovErrorFull &source) {
    if (this == &source) {
        setMods(true);
        return *this;
    }
    TovError body(source); // composes the source; all that can fail comes before the first change
    body.setMods(true);
    TovString errString(source.m_errString);
    swapBody(body);
    m_errString.swap(errString);
    setStr(m_returnCodeStr, source.m_returnCodeStr, sizeof m_returnCodeStr);
    setStr(m_reasonStr, source.m_reasonStr, sizeof m_reasonStr);
    setStr(m_layerStr, source.m_layerStr, sizeof m_layerStr);
    m_line = source.m_line;
    setStr(m_from, source.m_from, sizeof m_from);
    setStr(m_version, source.m_version, sizeof m_version);
    setStr(m_file, source.m_file, sizeof m_file);
    setStr(m_build, source.m_build, sizeof m_build);
    return *this;
}

TovErrorFull::~TovErrorFull() = default;

void TovErrorFull::setStr(char *destination, const char *source, int size) {
    setMods(true);
    if (size <= 0)
        return;
    const std::size_t room = static_cast<std::size_t>(size) - 1;
    const std::size_t length = source ? strnlen(source, room) : 0;
    std::memmove(destination, source ? source : "", length); // the source may be the field itself
    std::memset(destination + length, 0, room + 1 - length);
}

void TovErrorFull::setFile(const char *path) {
    if (!path || !*path) {
        m_file[0] = '\0';
        return;
    }
    const std::string_view text(path);
    const std::size_t separator = text.find_last_of("/\\");
    setStr(m_file, separator == text.npos ? path : path + separator + 1, sizeof m_file);
}

const char *TovErrorFull::getErrorMessage() const {
    checkMods();
    return m_message.empty() ? "Can't create error message: Out of memory." : m_message.c_str();
}

const char *TovErrorFull::getLocation() const {
    checkMods();
    return m_location.c_str();
}

TovString TovErrorFull::getErrString() const { return m_errString; }

const char *TovErrorFull::getErrorTypeName() const {
    static constexpr struct {
        ErrorType type;
        const char *name;
    } names[] = {{Api, "API"}, {Transient, "TRANSIENT"}, {Error, "ERROR"}, {Critical, "CRITICAL"}};
    for (const auto &row : names)
        if (row.type == getErrorType())
            return row.name;
    return "Unknown";
}

TovError *TovErrorFull::clone() const { return new TovErrorFull(*this); }

void TovErrorFull::raise() const { throw TovErrorFull(*this); }

TovError TovErrorFull::getOutOfMem() {
    return TovError(TOVRC_OUT_OF_MEMORY, 0, 0, 0, Critical, "", "", nullptr);
}

void TovErrorFull::throwBadAlloc() { throw getOutOfMem(); }

void tovCheck(const char *file, long line, const char *message, long returnCode, const char *returnCodeName) {
    throw tovdetail::tracedError(static_cast<std::uint32_t>(returnCode), returnCodeName, 1,
                                 static_cast<std::uint32_t>(line), "", "", file, TOV_BUILD_DATE,
                                 TovString(message ? message : ""));
}

TovErrorFull tovdetail::tracedError(std::uint32_t returnCode, const char *returnCodeName,
                                    std::uint32_t position, std::uint32_t line, const char *functionName,
                                    const char *version, const char *sourceFile, const char *build,
                                    const TovString &text) {
    TovErrorFull error(returnCode, returnCodeName, TOV_CODE(TOVOP_REPOSITORY), 0, "", position,
                       TovError::Error, line, functionName, version, sourceFile, build, text, nullptr);
    error.traceRaise();
    return error;
}

// Composition ---------------------------------------------------------------------------------------

namespace {

// Collects a text. Its memory is a buffer of its own and then `new`, never that of the library's strings:
// only the failure of `new` is forgiven by the composition.
class Composer {
public:
    Composer &operator<<(std::string_view text) {
        m_text.append(text);
        return *this;
    }
    Composer &operator<<(std::uint32_t number) {
        char digits[16];
        return *this << std::string_view(digits, std::to_chars(digits, digits + sizeof digits, number).ptr);
    }
    TovString text() const { return TovString(m_text.data(), m_text.size()); }

private:
    std::byte m_buffer[512];
    std::pmr::monotonic_buffer_resource m_resource{m_buffer, sizeof m_buffer,
                                                   std::pmr::new_delete_resource()};
    std::pmr::string m_text{&m_resource};
};

// A name if there is one, else the number.
struct NameOr {
    const char *name;
    std::uint32_t number;
};

Composer &operator<<(Composer &out, NameOr value) {
    return *value.name ? out << value.name : out << value.number;
}

} // namespace

namespace {

// Whether this thread is composing. What it calls then, a derived error's text or the handler of exhausted
// memory, may read another error: it composes under the lock that its thread has.
constinit thread_local bool t_composing = false;

class Composing {
public:
    Composing() { t_composing = true; }
    ~Composing() { t_composing = false; }
    Composing(const Composing &) = delete;
    Composing &operator=(const Composing &) = delete;
};

} // namespace

void TovErrorFull::checkMods() const {
    if (!hasMods())
        return;
    if (t_composing)
        return compose();
    auto &mutex =
        *static_cast<tovdetail::ModuleMutex *>(TovErrFl::ms_pool.get(TovErrFl::ms_lock, TovErrFl_init));
    const std::lock_guard lock(mutex);
    const Composing composing;
    if (hasMods())
        compose();
}

void TovErrorFull::compose() const {
    try {
        m_message = composedMessage();
        m_location = composedLocation();
        storeMods(false);
    } catch (const std::bad_alloc &) {
        m_location.clear();
        m_message.clear();
        try {
            storeMods(false);
        } catch (const std::bad_alloc &) {
            // An error on a static body stays out of date, and the next read tries again.
        }
    }
}

TovString TovErrorFull::composedMessage() const {
    Composer out;
    if (*m_returnCodeStr)
        out << m_returnCodeStr;
    else
        out << "ReturnCode(" << getReturnCode() << ")";
    out << " ";
    const NameOr reason{m_reasonStr, getReason()};
    if (!*m_layerStr)
        out << "Layer(" << getFailedLayer() << ") Reason(" << reason << ")";
    else if (getReason() != 0)
        out << m_layerStr << "(" << reason << ")";
    out << " Pos(" << getPosition() << ") ErrorType(" << getErrorTypeName() << "),\n";
    out << getErrString();
    return out.text();
}

TovString TovErrorFull::composedLocation() const {
    Composer out;
    out << "From (" << m_from << "), Line(" << m_line << ") in module (" << m_file << ") Build(" << m_build
        << ") Version(" << m_version << ")";
    return out.text();
}

// The module ----------------------------------------------------------------------------------------

constinit TovPoolCtrl TovErrFl::ms_pool = {};
constinit pthread_once_t TovErrFl::ms_lock = PTHREAD_ONCE_INIT;

void TovErrFl_init() { tovdetail::initModule<tovdetail::ModuleMutex>(TovErrFl::ms_pool, TovErrFl_release); }

void TovErrFl_release() {
    tovdetail::releaseModule<tovdetail::ModuleMutex>(TovErrFl::ms_pool);
    TovErrFl::ms_lock = PTHREAD_ONCE_INIT;
}

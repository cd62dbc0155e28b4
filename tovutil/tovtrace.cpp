// The trace buffer, the trace stream, and the mechanism behind the trace statements.
#include <tovutil/tovtrace.h>

#include <tovutil/tovmodule.h>
#include <tovutil/tovsize.h>
#include <tovutil/tovtrcfn.h>
#include <tovutil/tovutil.h>

#include <memory>

TOV_TRACE_FILE("tovutil/tovtrace");

// The buffer ----------------------------------------------------------------------------------------

TovTraceBuff::~TovTraceBuff() = default;

void TovTraceBuff::init(TovString &target) {
    m_string = &target;
    init(&TovTraceBuff::printStr);
}

void TovTraceBuff::init(TRC1_EPB *record, std::int32_t line) {
    m_record = record;
    m_line = line;
    init(&TovTraceBuff::printTrc);
}

void TovTraceBuff::init(TRC1_EPB *record, std::int32_t line, const void *address, unsigned size) {
    m_record = record;
    m_line = line;
    m_dumpAddress = address;
    m_dumpSize = size;
    init(&TovTraceBuff::printTrcDump);
}

void TovTraceBuff::init(TovLogCallback log) {
    m_log = log;
    init(&TovTraceBuff::printLog);
}

void TovTraceBuff::init(TovDumpCallback dump, TovLogCallback log, const void *address, unsigned size) {
    m_dump = dump;
    m_log = log;
    m_dumpAddress = address;
    m_dumpSize = size;
    init(&TovTraceBuff::printLogDump);
}

void TovTraceBuff::init(PrintMode mode) {
    m_mode = mode;
    m_first = true;
    resetPutArea();
}

TovTraceBuff::int_type TovTraceBuff::underflow() { return -1; }

int TovTraceBuff::doallocate() { return 0; }

TovTraceBuff::int_type TovTraceBuff::overflow(int_type c) {
    auto length = static_cast<unsigned>(pptr() - pbase());
    if (m_mode) {
        if (c != -1)
            m_text[length++] = traits_type::to_char_type(c);
        send(length, c == -1);
    }
    resetPutArea();
    return 0;
}

int TovTraceBuff::sync() {
    const auto length = static_cast<unsigned>(pptr() - pbase());
    if (m_mode)
        send(length, true);
    if (length != 0)
        resetPutArea();
    return 0;
}

void TovTraceBuff::resetPutArea() { setp(m_text, m_text + c_putArea); }

void TovTraceBuff::send(unsigned length, bool last) {
    m_text[length] = '\0';
    (this->*m_mode)(length != 0 ? m_text : nullptr, length, last);
}

const char *TovTraceBuff::format(const char *first, const char *later) const {
    return m_first ? first : later;
}

void TovTraceBuff::printStr(const char *text, unsigned length, bool) {
    if (text)
        m_string->append(text, length);
}

void TovTraceBuff::printTrc(const char *text, unsigned length, bool) {
    if (!text)
        return;
    const char *textFormat = format("%s", "+ %s");
    m_first = false;
    m_text[length] = '\0';
    TRC1_Printf(m_record, static_cast<std::uint32_t>(m_line), textFormat, text);
}

void TovTraceBuff::printTrcDump(const char *text, unsigned length, bool last) {
    if (!last)
        return printTrc(text, length, last);
    const auto line = static_cast<std::uint32_t>(m_line);
    const char *lastText = text ? text : "";
    if (m_dumpAddress)
        TRC1_Dump(m_record, line, m_dumpAddress, m_dumpSize, format("%s", "+ %s"), lastText);
    else
        TRC1_Printf(m_record, line, format("%s - ptr(NULL), size(%d)", " + %s - ptr(NULL), size(%d)"),
                    lastText, static_cast<int>(m_dumpSize));
    m_mode = &TovTraceBuff::printTrc;
    m_first = false;
}

void TovTraceBuff::printLog(const char *text, unsigned length, bool) {
    if (!text)
        return;
    m_text[length] = '\0';
    m_log(text, !m_first);
    m_first = false;
}

void TovTraceBuff::printLogDump(const char *text, unsigned length, bool last) {
    if (!last)
        return printLog(text, length, last);
    m_dump(m_dumpAddress, m_dumpSize, text ? text : "", !m_first);
    m_first = false;
    m_mode = &TovTraceBuff::printLog;
}

// The stream ----------------------------------------------------------------------------------------

tovtraceos::tovtraceos(TovTraceBuff *buffer) : std::ostream(buffer) {}

tovtraceos::~tovtraceos() = default;

TovTraceBuff &TovTraceStream::getBuff() {
    if (!m_buffer)
        m_buffer = new TovTraceBuff;
    return *m_buffer;
}

tovtraceos &TovTraceStream::getOs() {
    if (!m_stream)
        m_stream = new tovtraceos(&getBuff());
    m_stream->clear();
    return *m_stream;
}

tovtraceos &TovTraceStream::getOs(TovString &target) {
    getBuff().init(target);
    return getOs();
}

tovtraceos &TovTraceStream::getOs(TRC1_EPB *record, std::int32_t line) {
    getBuff().init(record, line);
    return getOs();
}

tovtraceos &TovTraceStream::getOs(TRC1_EPB *record, std::int32_t line, const void *address, unsigned size) {
    getBuff().init(record, line, address, size);
    return getOs();
}

tovtraceos &TovTraceStream::getOs(TovLogCallback log) {
    getBuff().init(log);
    return getOs();
}

tovtraceos &TovTraceStream::getOs(TovDumpCallback dump, TovLogCallback log, const void *address,
                                  unsigned size) {
    getBuff().init(dump, log, address, size);
    return getOs();
}

void TovTraceStream::destroy() {
    delete m_stream;
    delete m_buffer;
}

// Texts that may be null ----------------------------------------------------------------------------

constinit TovPoolCtrl TovTrace::ms_pool = {};
constinit pthread_once_t TovTrace::ms_lock = PTHREAD_ONCE_INIT;

namespace {

struct NullText {
    TovString text = "{NULL}";
};

const TovString &nullText() {
    return static_cast<NullText *>(TovTrace::ms_pool.get(TovTrace::ms_lock, TovTrace_init))->text;
}

} // namespace

void TovTrace_init() { tovdetail::initModule<NullText>(TovTrace::ms_pool, TovTrace_release); }

void TovTrace_release() { tovdetail::releaseModule<NullText>(TovTrace::ms_pool); }

const char *tovTraceStr(const char *text) { return text ? text : nullText().c_str(); }

const TovString tovTraceStr(const TovUChar *text) {
    return text ? tovToMbcs(text, 0xFFFFFFFFU, false) : nullText();
}

// The mechanism behind the trace statements ---------------------------------------------------------

namespace tovdetail {

tovtraceos &TracedCall::statement(unsigned line, const char *label) {
    tovtraceos &os = m_stream.getOs(&m_record, static_cast<std::int32_t>(line));
    os << label;
    return os;
}

tovtraceos &TracedCall::dumpStatement(unsigned line, const char *label, const void *address, unsigned size) {
    tovtraceos &os = m_stream.getOs(&m_record, static_cast<std::int32_t>(line), address, size);
    os << label;
    return os;
}

namespace {

// A text that is too long to convert is refused with an error; a trace shows nothing of it and goes on.
template <class Convert>
TovString orNothing(Convert convert) {
    try {
        return convert();
    } catch (const TovErrorFull &) {
        return TovString();
    }
}

} // namespace

TovString traceForm(const TovUString &text) {
    return orNothing(
        [&] { return tovToMbcs(text.data(), static_cast<std::uint32_t>(TOV_LENGTH32(text.size())), false); });
}

TovString traceForm(const TovUChar *text) {
    return orNothing([&] { return tovToMbcs(text, 0xFFFFFFFFU, false); });
}

void logText(TRC1_EPB &record, const char *text, bool continuation) {
    currentLevel(record);
    TRC1_Printf(&record, record.line, continuation ? "+ %s" : "%s", text);
}

void logDump(TRC1_EPB &record, const void *address, unsigned size, const char *text, bool continuation) {
    currentLevel(record);
    if (address)
        TRC1_Dump(&record, record.line, address, size, continuation ? "+ %s" : "%s", text);
    else
        TRC1_Printf(&record, record.line,
                    continuation ? "+ %s - ptr(NULL), size(%d)" : "%s - ptr(NULL), size(%d)", text,
                    static_cast<int>(size));
}

void raiseError(const TRC1_UNIT &unit, const char *functionName, std::uint32_t line, std::uint32_t position,
                std::uint32_t returnCode, const char *returnCodeName, const TovString &text) {
    throw tracedError(returnCode, returnCodeName, position, line, functionName, unit.revision.text,
                      unit.sourcePath.text, unit.buildDate.text, text);
}

} // namespace tovdetail

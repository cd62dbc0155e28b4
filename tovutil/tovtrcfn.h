// Internal: how a source file declares itself to the trace facility, how a function traces, and how an
// error is raised with the place that the trace records know.
//
//     TOV_TRACE_FILE("tovutil/tovpath");
//
//     bool TovOsPath::isFile(const char *path) {
//         TOV_TRACE_ENTER("TovOsPath::isFile", TOV_VALUE(path));
//         ...
//         TOV_TRACE_DETAIL(TOV_VALUE(st.st_mode));
//         return TOV_TRACE_RESULT(true);
//     }
//
// The level is read once, at entry. The parts of a statement are not computed unless its level bit is set.
// A function that leaves by an exception reports no exit, because TOV_TRACE_RESULT and TOV_TRACE_LEAVE stand
// at its normal returns only.
#pragma once

#include <services/trc1.h>
#include <tovbuild.h>
#include <tovutil/toverrfl.h>
#include <tovutil/tovstring.h>
#include <tovutil/tovtrace.h>

#include <cstdint>
#include <type_traits>
#include <utility>

namespace tovdetail {

/// The current level of a record. The facility is asked only after it has advanced the sequence word.
inline std::uint32_t currentLevel(TRC1_EPB &record) noexcept {
    // Acquire: the level was stored before the sequence.
    if (record.sequence.load(std::memory_order_acquire) !=
        record.unitSequence->load(std::memory_order_relaxed)) [[unlikely]]
        return TRC1_Sync(&record);
    return record.level.load(std::memory_order_relaxed);
}

/// One call of a traced function.
class TracedCall {
public:
    TracedCall(TRC1_EPB &record, unsigned line) noexcept
        : m_record(record), m_level(currentLevel(record)), m_entered((m_level & TRC1_FLOW) != 0) {
        if (m_entered) [[unlikely]]
            TRC1_Event(&record, line, TRC1_ENTER);
    }

    const TRC1_EPB &record() const { return m_record; }
    bool entered() const { return m_entered; }
    bool has(std::uint32_t bit) const { return (m_level & bit) == bit; }

    /// Begins a statement; std::flush ends it.
    tovtraceos &statement(unsigned line, const char *label);
    tovtraceos &dumpStatement(unsigned line, const char *label, const void *address, unsigned size);

    void leave(unsigned line) {
        if (m_entered) [[unlikely]]
            TRC1_Event(&m_record, line, TRC1_LEAVE);
    }

    template <class Result>
    std::decay_t<Result> result(unsigned line, Result &&value);

private:
    TRC1_EPB &m_record;
    const std::uint32_t m_level;
    const bool m_entered;
    TovTraceStream m_stream;
};

/// The form in which a value is written: 16-bit text converts, all else goes to the stream as it is.
TovString traceForm(const TovUString &text);
TovString traceForm(const TovUChar *text);
template <class T>
const T &traceForm(const T &value) {
    return value;
}
inline TovString traceForm(TovUChar *text) { return traceForm(static_cast<const TovUChar *>(text)); }

/// The address of a function, as the stream writes a pointer.
inline const void *functionAddress(void (*function)()) { return reinterpret_cast<const void *>(function); }

template <class Result>
std::decay_t<Result> TracedCall::result(unsigned line, Result &&value) {
    if (m_entered) [[unlikely]] {
        statement(line, "Return - ") << traceForm(value) << std::flush;
        leave(line);
    }
    return std::forward<Result>(value);
}

void logText(TRC1_EPB &record, const char *text, bool continuation);
void logDump(TRC1_EPB &record, const void *address, unsigned size, const char *text, bool continuation);

/// Makes an error of this library and reports it, as logRaise() does. What is thrown is this very object: the
/// frames and the copy of a raise cost more than the error itself.
TovErrorFull tracedError(std::uint32_t returnCode, const char *returnCodeName, std::uint32_t position,
                         std::uint32_t line, const char *functionName, const char *version,
                         const char *sourceFile, const char *build, const TovString &text);

/// Raises an error of this library from the place that the unit and the function's name tell.
[[noreturn]] void raiseError(const TRC1_UNIT &unit, const char *functionName, std::uint32_t line,
                             std::uint32_t position, std::uint32_t returnCode, const char *returnCodeName,
                             const TovString &text);

template <std::size_t size>
constexpr std::uint32_t literalLength(const char (&)[size]) {
    return size - 1;
}

} // namespace tovdetail

#define TOV_LITERAL(text)                                                                                    \
    { text, tovdetail::literalLength(text) }

#define TOV_RECORD(name, line, flags)                                                                        \
    {                                                                                                        \
        &s_unit, name, tovdetail::literalLength(name), line, &s_sequence, flags, 0, 0, {}                    \
    }

/// Declares a source file: its unit record, its sequence word and its three LOG functions. The first tells
/// whether all bits of `level` are set; the others have the form of the callbacks of TovTraceStream::getOs.
#define TOV_TRACE_FILE(path) TOV_TRACE_FILE_AS(path, "TOVUTIL", 0x40000000)
#define TOV_TRACE_FILE_AS(path, unitName, kind)                                                              \
    namespace {                                                                                              \
    constinit TRC1_UNIT s_unit = {180,                                                                       \
                                  kind,                                                                      \
                                  TOV_LITERAL(path),                                                         \
                                  TOV_LITERAL(TOV_BUILD_DATE),                                               \
                                  TOV_LITERAL(TOV_BUILD_TIME),                                               \
                                  TOV_LITERAL("$Revision: " TOV_VERSION " $"),                               \
                                  TOV_LITERAL(unitName),                                                     \
                                  {}};                                                                       \
    constinit TRC1_SEQUENCE s_sequence = 1;                                                                  \
    [[maybe_unused]] bool LOG(unsigned level) {                                                              \
        static constinit TRC1_EPB s_record = TOV_RECORD("LOG", __LINE__, TRC1_FLAG_LOG);                     \
        return (tovdetail::currentLevel(s_record) & level) == level;                                         \
    }                                                                                                        \
    [[maybe_unused]] void LOG(const char *text, bool continuation) {                                         \
        static constinit TRC1_EPB s_record = TOV_RECORD("LOG", __LINE__, TRC1_FLAG_LOG);                     \
        tovdetail::logText(s_record, text, continuation);                                                    \
    }                                                                                                        \
    [[maybe_unused]] void LOG(const void *address, unsigned size, const char *text, bool continuation) {     \
        static constinit TRC1_EPB s_record = TOV_RECORD("LOG", __LINE__, TRC1_FLAG_LOG);                     \
        tovdetail::logDump(s_record, address, size, text, continuation);                                     \
    }                                                                                                        \
    }                                                                                                        \
    static_assert(true)

/// The first statement of a traced function: entry, and the named arguments, TOV_VALUE(a) << TOV_VALUE(b).
#define TOV_TRACE_ENTER(functionName, ...)                                                                   \
    static constinit TRC1_EPB s_record = TOV_RECORD(functionName, __LINE__, TRC1_FLAG_FUNCTION);             \
    tovdetail::TracedCall trace(s_record, __LINE__);                                                         \
    TOV_TRACE_STATEMENT(trace.entered(), "Args - ", __VA_ARGS__)

#define TOV_TRACE_STATEMENT(guard, label, ...)                                                               \
    do {                                                                                                     \
        if (guard) [[unlikely]]                                                                              \
            trace.statement(__LINE__, label) __VA_OPT__(<<) __VA_ARGS__ << std::flush;                       \
    } while (false)

#define TOV_TRACE_FLOW(...) TOV_TRACE_STATEMENT(trace.has(TRC1_FLOW), "Flow - ", __VA_ARGS__)
#define TOV_TRACE_STATE(...) TOV_TRACE_STATEMENT(trace.has(TRC1_STATE), "State - ", __VA_ARGS__)
#define TOV_TRACE_DETAIL(...) TOV_TRACE_STATEMENT(trace.has(TRC1_DETAIL), "Detail - ", __VA_ARGS__)
#define TOV_TRACE_ERROR(...) TOV_TRACE_STATEMENT(trace.has(TRC1_ERROR), "!!! Error - ", __VA_ARGS__)

/// A "Detail - " statement that carries `size` bytes of memory.
#define TOV_TRACE_DETAIL_DUMP(address, size, ...)                                                            \
    do {                                                                                                     \
        if (trace.has(TRC1_DETAIL)) [[unlikely]]                                                             \
            trace.dumpStatement(__LINE__, "Detail - ", address, size) __VA_OPT__(<<) __VA_ARGS__             \
                << std::flush;                                                                               \
    } while (false)

/// A value under its name as it stands in the code, or under a name of its own.
#define TOV_VALUE(value) TOV_NAMED(#value, value)
#define TOV_NAMED(name, value) name "(" << tovdetail::traceForm(value) << ") "

/// The last statement of a traced function: reports the exit, and with it the value, which it gives.
#define TOV_TRACE_LEAVE() trace.leave(__LINE__)
#define TOV_TRACE_RESULT(value) trace.result(__LINE__, value)

/// Raises an error out of a traced function, from the current line or from a line that callers know.
#define TOV_RAISE(position, code, text) TOV_RAISE_AT(__LINE__, position, code, text)
#define TOV_RAISE_AT(line, position, code, text)                                                             \
    tovdetail::raiseError(s_unit, trace.record().name, line, position, TOV_CODE(code), text)

/// How a caller of the library traces its own functions: records of its own, and the library's trace stream.
#pragma once

#include <tovbuild.h>
#include <tovutil/tovtrace.h>

#include <exception>
#include <string_view>

constexpr TRC1_TEXT traceText(std::string_view text) {
    return {text.data(), static_cast<std::uint32_t>(text.size())};
}

/// The record of a source file, named without its extension.
constexpr TRC1_UNIT traceUnit(std::string_view path) {
    return {180,
            0x40000000,
            traceText(path),
            traceText(TOV_BUILD_DATE),
            traceText(TOV_BUILD_TIME),
            traceText("$Revision: " TOV_VERSION " $"),
            traceText("DIRLOAD"),
            {}};
}

/// The record of a function: a static variable in it.
constexpr TRC1_EPB traceRecord(const TRC1_UNIT &unit, TRC1_SEQUENCE &sequence, std::string_view name,
                               std::uint32_t line) {
    return {&unit, name.data(), static_cast<std::uint32_t>(name.size()),
            line,  &sequence,   TRC1_FLAG_FUNCTION,
            0,     0,           {}};
}

/// One call of a traced function.
class TracedCall {
public:
    explicit TracedCall(TRC1_EPB &record) : m_record(record), m_level(currentLevel(record)) {
        if (has(TRC1_FLOW))
            TRC1_Event(&m_record, m_record.line, TRC1_ENTER);
    }
    ~TracedCall() {
        if (has(TRC1_FLOW) && std::uncaught_exceptions() == m_exceptions)
            TRC1_Event(&m_record, m_record.line, TRC1_LEAVE);
    }
    TracedCall(const TracedCall &) = delete;
    TracedCall &operator=(const TracedCall &) = delete;

    /// Ask before computing what is to be traced.
    bool has(std::uint32_t level) const { return (m_level & level) == level; }

    /// Begins a text; std::flush ends it.
    tovtraceos &text(std::uint32_t line) {
        return m_stream.getOs(&m_record, static_cast<std::int32_t>(line));
    }

private:
    // Acquire: the facility stores the level before the sequence.
    static std::uint32_t currentLevel(TRC1_EPB &record) {
        const bool current = record.sequence.load(std::memory_order_acquire) ==
                             record.unitSequence->load(std::memory_order_relaxed);
        return current ? record.level.load(std::memory_order_relaxed) : TRC1_Sync(&record);
    }

    TRC1_EPB &m_record;
    const std::uint32_t m_level;
    const int m_exceptions = std::uncaught_exceptions();
    TovTraceStream m_stream;
};

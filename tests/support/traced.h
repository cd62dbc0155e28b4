// Records what the library reports to the trace facility while it lives.
#pragma once

#include <services/hvdctl.h>

#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

namespace tovtest {

struct TraceEvent {
    HvdTraceEvent::Kind kind;
    std::string function;
    std::uint32_t line;
    std::string format;
    std::string text;
    std::string memory;
};

class TraceRecorder {
public:
    /// `levels` as HVD_TRACE has them.
    explicit TraceRecorder(const char *levels) {
        hvdTraceSetSink(record, this);
        hvdTraceSetLevels(levels);
    }
    ~TraceRecorder() {
        hvdTraceSetLevels("");
        hvdTraceSetSink(nullptr, nullptr);
    }
    TraceRecorder(const TraceRecorder &) = delete;
    TraceRecorder &operator=(const TraceRecorder &) = delete;

    std::vector<TraceEvent> events() const {
        const std::lock_guard lock(m_mutex);
        return m_events;
    }

    /// One line an event: "> name", "< name", or "name: text"; with `function`, only its events.
    std::vector<std::string> lines(const std::string &function = {}) const {
        std::vector<std::string> result;
        for (const TraceEvent &event : events()) {
            if (!function.empty() && event.function != function)
                continue;
            if (event.kind == HvdTraceEvent::Enter)
                result.push_back("> " + event.function);
            else if (event.kind == HvdTraceEvent::Leave)
                result.push_back("< " + event.function);
            else
                result.push_back(event.function + ": " + event.text);
        }
        return result;
    }

private:
    static void record(void *context, const HvdTraceEvent &event) {
        auto &self = *static_cast<TraceRecorder *>(context);
        const std::lock_guard lock(self.m_mutex);
        self.m_events.push_back({event.kind, event.record->name, event.line, event.format ? event.format : "",
                                 event.text ? event.text : "",
                                 std::string(static_cast<const char *>(event.address), event.size)});
    }

    mutable std::mutex m_mutex;
    std::vector<TraceEvent> m_events;
};

} // namespace tovtest

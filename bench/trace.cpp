// A trace point that is off, and a statement that goes to a sink that drops it.
#include "bench.h"

#include <services/hvdctl.h>
#include <tovutil/tovtrcfn.h>

#include <atomic>
#include <cstdio>
#include <ostream>
#include <sstream>
#include <streambuf>

#ifdef TOV_BENCH_SPDLOG
#define SPDLOG_ACTIVE_LEVEL SPDLOG_LEVEL_TRACE
#include <fmt/format.h>
#include <spdlog/sinks/null_sink.h>
#include <spdlog/spdlog.h>
#endif
#ifdef TOV_BENCH_QT
#include <QLoggingCategory>
#endif
#ifdef TOV_BENCH_GLIB
#include <glib.h>
#endif

TOV_TRACE_FILE("bench/trace");

namespace tovbench {

namespace {

std::uint64_t s_sunk;

// The sink that drops.
[[gnu::noinline]] void sink(const char *text, std::size_t length) {
    benchmark::DoNotOptimize(text);
    s_sunk += length;
}

// The library ---------------------------------------------------------------------------------------

// Levels belong to the process, so each run sets its own.
void traceWith(const char *levels) {
    hvdTraceSetLevels(levels);
    hvdTraceSetSink([](void *, const HvdTraceEvent &event) { sink(event.text, 1); }, nullptr);
}

[[gnu::noinline]] void emptyFunction(int value) { benchmark::DoNotOptimize(value); }

[[gnu::noinline]] void tracedFunction(int value) {
    TOV_TRACE_ENTER("bench::tracedFunction", TOV_VALUE(value));
    benchmark::DoNotOptimize(value);
    TOV_TRACE_LEAVE();
}

[[gnu::noinline]] void oneStatement(int value) {
    TOV_TRACE_ENTER("bench::oneStatement", TOV_VALUE(value));
    benchmark::DoNotOptimize(value);
    TOV_TRACE_DETAIL(TOV_VALUE(value));
    TOV_TRACE_LEAVE();
}

[[gnu::noinline]] void fourStatements(int value) {
    TOV_TRACE_ENTER("bench::fourStatements", TOV_VALUE(value));
    benchmark::DoNotOptimize(value);
    TOV_TRACE_DETAIL(TOV_VALUE(value));
    TOV_TRACE_STATE(TOV_VALUE(value));
    TOV_TRACE_FLOW(TOV_VALUE(value));
    TOV_TRACE_DETAIL(TOV_VALUE(value));
    TOV_TRACE_LEAVE();
}

// The statements behind the first one of a call.
void furtherStatements(benchmark::State &state) {
    TOV_TRACE_ENTER("bench::furtherStatements");
    TOV_TRACE_DETAIL(TOV_NAMED("value", 42));
    for ([[maybe_unused]] auto _ : state) {
        TOV_TRACE_DETAIL(TOV_NAMED("value", 42));
        benchmark::ClobberMemory();
    }
    TOV_TRACE_LEAVE();
}

// Peers ---------------------------------------------------------------------------------------------

// What a record with a level and a sequence costs: two loads and two compares.
struct Record {
    std::uint32_t level = 0;
    std::uint32_t sequence = 1;
    const std::uint32_t *current = &sequence;
};
Record s_model;
std::atomic<std::uint32_t> s_levels{0};

[[gnu::noinline]] void formatted(int line, const char *name, int value) {
    char text[128];
    const int length = std::snprintf(text, sizeof text, "%d: Detail - %s(%d) ", line, name, value);
    sink(text, static_cast<std::size_t>(length));
}

// Collects in a fixed area, hands it on at a flush.
class Buffer : public std::streambuf {
public:
    Buffer() { setp(m_area, m_area + sizeof m_area); }
    int sync() override {
        sink(pbase(), static_cast<std::size_t>(pptr() - pbase()));
        setp(m_area, m_area + sizeof m_area);
        return 0;
    }

private:
    char m_area[256];
};

void insertStatement(std::ostream &os) {
    os << __LINE__ << ": Detail - "
       << "value" << '(' << 42 << ") " << std::flush;
}

#ifdef TOV_BENCH_SPDLOG
spdlog::logger &quiet() {
    static spdlog::logger logger("quiet", std::make_shared<spdlog::sinks::null_sink_mt>());
    logger.set_level(spdlog::level::info);
    return logger;
}
template <class Sink>
spdlog::logger &loud() {
    static spdlog::logger logger("loud", std::make_shared<Sink>());
    logger.set_level(spdlog::level::trace);
    return logger;
}
#endif

#ifdef TOV_BENCH_QT
Q_LOGGING_CATEGORY(category, "bench.trace", QtInfoMsg)
#endif

// Benchmarks ----------------------------------------------------------------------------------------

// A point that is off: nothing may reach the sink.
template <class Body>
void off(const std::string &name, Body body) {
    preparedJob(name, [body](benchmark::State &state) {
        traceWith(nullptr);
        const std::uint64_t before = s_sunk;
        body();
        require(state, s_sunk == before);
        return [body] {
            body();
            benchmark::ClobberMemory();
        };
    });
}

// A point that is on: its text reaches the sink.
template <class Body>
void on(const std::string &name, Body body) {
    preparedJob(name, [body](benchmark::State &state) {
        traceWith("bench::*=detail");
        const std::uint64_t before = s_sunk;
        body();
        require(state, s_sunk != before);
        return [body] {
            body();
            benchmark::ClobberMemory();
        };
    });
}

void further(const std::string &name, const char *levels) {
    benchmark::RegisterBenchmark(name.c_str(), [levels](benchmark::State &state) {
        traceWith(levels);
        const std::uint64_t before = s_sunk;
        furtherStatements(state);
        require(state, (s_sunk != before) == (levels != nullptr));
    });
}

void registerOff() {
    const std::string group = "trace/off/";
    off(group + "limit:empty", [] {});
    off(group + "tovutil", [] {
        TOV_TRACE_ENTER("bench::point", TOV_NAMED("value", 42));
        TOV_TRACE_LEAVE();
    });
    further(group + "tovutil:further", nullptr);
    off(group + "relaxed-load", [] {
        if (s_levels.load(std::memory_order_relaxed) & 1)
            formatted(__LINE__, "value", 1);
    });
    off(group + "model:record", [] {
        const std::uint32_t level = s_model.sequence != *s_model.current ? 255 : s_model.level;
        if (level & 64)
            formatted(__LINE__, "value", 1);
    });
#ifdef TOV_BENCH_SPDLOG
    static spdlog::logger *const direct = &quiet();
    spdlog::set_level(spdlog::level::info);
    off(group + "spdlog", [] { SPDLOG_LOGGER_DEBUG(&quiet(), "value({}) name({})", 42, "text"); });
    off(group + "spdlog-pointer", [] { SPDLOG_LOGGER_DEBUG(direct, "value({}) name({})", 42, "text"); });
    off(group + "spdlog-should_log", [] {
        if (direct->should_log(spdlog::level::debug))
            formatted(__LINE__, "value", 1);
    });
    off(group + "spdlog-default", [] { SPDLOG_DEBUG("value({}) name({})", 42, "text"); });
#endif
#ifdef TOV_BENCH_QT
    off(group + "qt-category", [] { qCDebug(category) << "value" << 42; });
#endif
#ifdef TOV_BENCH_GLIB
    off(group + "glib-debug", [] {
        if (!g_log_writer_default_would_drop(G_LOG_LEVEL_DEBUG, "bench"))
            formatted(__LINE__, "value", 1);
    });
#endif
}

// A whole function whose trace is off, beside the same function without one.
void registerOffCall() {
    const std::string group = "trace/off-call/";
    off(group + "limit:empty-function", [] { emptyFunction(42); });
    off(group + "tovutil", [] { tracedFunction(42); });
    off(group + "tovutil:4-statements", [] { fourStatements(42); });
}

void registerOn() {
    const std::string group = "trace/null-sink/";
    on(group + "limit:call", [] { sink("Detail - value(42) ", 19); });
    on(group + "tovutil:first", [] { oneStatement(42); });
    further(group + "tovutil:further", "bench::*=detail");
    on(group + "snprintf", [] { formatted(__LINE__, "value", 42); });
    on(group + "ostringstream-new", [] {
        std::ostringstream os;
        insertStatement(os);
        const std::string text = std::move(os).str();
        sink(text.data(), text.size());
    });
    on(group + "ostream-new", [] {
        Buffer buffer;
        std::ostream os(&buffer);
        insertStatement(os);
    });
    on(group + "ostream-kept", [] {
        static Buffer s_buffer;
        static std::ostream s_os(&s_buffer);
        insertStatement(s_os);
    });
#ifdef TOV_BENCH_SPDLOG
    on(group + "fmt-buffer", [] {
        fmt::memory_buffer buffer;
        fmt::format_to(std::back_inserter(buffer), "{}: Detail - {}({}) ", __LINE__, "value", 42);
        sink(buffer.data(), buffer.size());
    });
    // Their sinks are their own.
    job(group + "spdlog-st", [] {
        SPDLOG_LOGGER_DEBUG(&loud<spdlog::sinks::null_sink_st>(), "Detail - {}({}) ", "value", 42);
        benchmark::ClobberMemory();
    });
    job(group + "spdlog-mt", [] {
        SPDLOG_LOGGER_DEBUG(&loud<spdlog::sinks::null_sink_mt>(), "Detail - {}({}) ", "value", 42);
        benchmark::ClobberMemory();
    });
#endif
}

} // namespace

void registerTopic() {
    registerOff();
    registerOffCall();
    registerOn();
}

} // namespace tovbench

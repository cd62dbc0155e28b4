// The three services that report events. They hand each one to the sink, if there is one, else to the
// output in its format.
#include <services/hvd/chromeformat.h>
#include <services/hvd/config.h>
#include <services/hvd/keptlist.h>
#include <services/hvd/output.h>
#include <services/hvd/quiet.h>
#include <services/hvd/textformat.h>
#include <services/hvdctl.h>
#include <tovutil/tovexport.h>

#include <cstdarg>
#include <cstdio>
#include <new>

namespace hvd {

namespace {

struct Sink {
    Sink *next;
    HvdTraceSink function;
    void *context;
};

constinit KeptList<Sink> s_sinks;
constinit std::atomic<const Sink *> s_sink{nullptr};

Sink *makeSink(HvdTraceSink function, void *context) {
    void *room = std::malloc(sizeof(Sink));
    return room ? new (room) Sink{nullptr, function, context} : nullptr;
}

bool isHeard() { return s_sink.load(std::memory_order_relaxed) || !outputIsClosed(); }

void deliver(const HvdTraceEvent &event, std::uintptr_t stack) noexcept {
    if (const Sink *sink = s_sink.load(std::memory_order_acquire))
        return sink->function(sink->context, event);
    const Config *environment = config();
    if (!environment || outputIsClosed())
        return;
    const Quiet quiet;
    if (environment->format == Format::Chrome)
        writeChrome(event, stack, quiet);
    else
        writeText(event, quiet);
}

// A text longer than this takes memory from malloc, or is cut when there is none.
constexpr std::size_t shortText = 512;

void deliverFormatted(HvdTraceEvent event, std::va_list arguments) {
    char room[shortText];
    std::va_list again;
    va_copy(again, arguments);
    const int length = std::vsnprintf(room, sizeof room, event.format, arguments);
    char *whole = nullptr;
    if (length >= static_cast<int>(sizeof room)) {
        const std::size_t size = static_cast<std::size_t>(length) + 1;
        whole = static_cast<char *>(std::malloc(size));
        if (whole)
            std::vsnprintf(whole, size, event.format, again);
    }
    va_end(again);
    event.text = whole ? whole : length < 0 ? "" : room;
    deliver(event, 0);
    std::free(whole);
}

void deliverArguments(const HvdTraceEvent *event, ...) {
    std::va_list arguments;
    va_start(arguments, event);
    deliverFormatted(*event, arguments);
    va_end(arguments);
}

// Most texts come with "%s" and need no copy.
bool isPlain(const char *format) { return format[0] == '%' && format[1] == 's' && format[2] == '\0'; }

} // namespace

} // namespace hvd

TOV_EXPORT void TRC1_Event(TRC1_EPB *record, std::uint32_t line, std::uint32_t kind) {
    const hvd::KeepErrno keep;
    const auto what = kind == TRC1_ENTER ? HvdTraceEvent::Enter : HvdTraceEvent::Leave;
    hvd::deliver({what, record, line, nullptr, nullptr, nullptr, 0},
                 reinterpret_cast<std::uintptr_t>(__builtin_frame_address(0)));
}

TOV_EXPORT void TRC1_Printf(TRC1_EPB *record, std::uint32_t line, const char *format, ...) {
    const hvd::KeepErrno keep;
    if (!hvd::isHeard())
        return;
    HvdTraceEvent event = {HvdTraceEvent::Text, record, line, format, nullptr, nullptr, 0};
    std::va_list arguments;
    va_start(arguments, format);
    if (hvd::isPlain(format) && (event.text = va_arg(arguments, const char *)))
        hvd::deliver(event, 0);
    va_end(arguments);
    if (event.text)
        return;
    va_start(arguments, format);
    hvd::deliverFormatted(event, arguments);
    va_end(arguments);
}

TOV_EXPORT void TRC1_Dump(TRC1_EPB *record, std::uint32_t line, const void *address, std::uint32_t size,
                          const char *format, const char *text) {
    const hvd::KeepErrno keep;
    if (!hvd::isHeard())
        return;
    HvdTraceEvent event = {HvdTraceEvent::Dump, record, line, format, text, address, size};
    if (hvd::isPlain(format) && text)
        hvd::deliver(event, 0);
    else
        hvd::deliverArguments(&event, text);
}

TOV_EXPORT void hvdTraceSetSink(HvdTraceSink sink, void *context) {
    const hvd::KeepErrno keep;
    const hvd::Sink *kept = nullptr;
    if (sink)
        kept = hvd::s_sinks.findOrAdd(
            [&](const hvd::Sink &known) { return known.function == sink && known.context == context; },
            [&] { return hvd::makeSink(sink, context); });
    if (kept || !sink)
        hvd::s_sink.store(kept, std::memory_order_release);
}

#include <services/hvd/chromeformat.h>
#include <services/hvd/json.h>
#include <services/hvd/tracedthread.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <ctime>
#include <new>
#include <pthread.h>
#include <unistd.h>

namespace hvd {

namespace {

constexpr std::size_t nameLimit = 512;
constexpr std::size_t textLimit = std::size_t{1} << 19;   // of the pieces of one text together
constexpr std::size_t memoryLimit = std::size_t{1} << 16; // of dumped memory
constexpr std::size_t textReserve = 1024;                 // what dumped memory leaves of a line
constexpr std::size_t fieldReserve = 128;                 // room for the fields behind a string

// Microseconds, of a clock that never goes back.
std::uint64_t now() {
    using namespace std::chrono;
    return static_cast<std::uint64_t>(nanoseconds(steady_clock::now().time_since_epoch()).count());
}

void putName(Lines &lines, std::string_view name) {
    lines.put(",\"");
    lines.put(name);
    lines.put("\":");
}

void putField(Lines &lines, std::string_view name, std::uint64_t value) {
    putName(lines, name);
    lines.putNumber(value);
}

void putField(Lines &lines, std::string_view name, std::string_view value) {
    putName(lines, name);
    lines.put('"');
    putJson(lines, value, fieldReserve);
    lines.put('"');
}

void putEventStart(Lines &lines, std::string_view kind, pid_t process, pid_t thread, std::uint64_t time) {
    lines.put("{\"ph\":\"");
    lines.put(kind);
    lines.put('"');
    putField(lines, "pid", static_cast<std::uint64_t>(process));
    putField(lines, "tid", static_cast<std::uint64_t>(thread));
    putField(lines, "ts", time / 1000);
    lines.put('.');
    lines.putNumber(time % 1000, 10, 3);
}

void putEnd(Lines &lines, pid_t process, pid_t thread) {
    lines.put(",\n");
    putEventStart(lines, "E", process, thread, now());
    lines.put('}');
    lines.endLine();
}

void putMemory(Lines &lines, const void *address, std::uint32_t size) {
    putField(lines, "size", size);
    putName(lines, "memory");
    lines.put('"');
    const auto *bytes = static_cast<const unsigned char *>(address);
    for (std::size_t at = 0; at < std::min<std::size_t>(size, memoryLimit) && lines.hasRoom(textReserve);
         ++at)
        lines.putNumber(bytes[at], 16, 2);
    lines.put('"');
}

std::string_view nameOf(const TRC1_EPB &record) {
    return {record.name, std::min<std::size_t>(record.nameLength, nameLimit)};
}

std::string_view unitOf(const TRC1_EPB &record) {
    const TRC1_UNIT *unit = record.unit;
    return unit && unit->unitName.text ? std::string_view(unit->unitName.text, unit->unitName.length) : "";
}

/// The events that one event of the caller leads to. They go out together when it dies.
class ChromeWriter {
public:
    ChromeWriter(TracedThread &thread, const Output &output, const Quiet &quiet) noexcept
        : m_thread(thread), m_output(output),
          m_lines(quiet, output.descriptor(), output.atOnce(), output.atOnce()) {}
    ~ChromeWriter();
    ChromeWriter(const ChromeWriter &) = delete;
    ChromeWriter &operator=(const ChromeWriter &) = delete;

    void write(const HvdTraceEvent &event, std::uintptr_t stack);
    /// Writes what waits, and ends what is open.
    void endAll() noexcept;

private:
    pid_t threadId() const { return m_thread.id.load(std::memory_order_relaxed); }

    void moveToFile();
    void enter(const HvdTraceEvent &event, std::uintptr_t stack);
    void addText(const HvdTraceEvent &event);
    PendingText &beginText(const HvdTraceEvent &event);

    void putBegin(std::size_t frame);
    void popTo(std::size_t count) noexcept;
    void putText(PendingText &text, const HvdTraceEvent *dump = nullptr) noexcept;

    TracedThread &m_thread;
    const Output &m_output;
    Lines m_lines;
    std::uint32_t m_opened = 0; // begin events less end events, modulo 2^32
};

// After a fault the open functions end with the file, for their later events might be missing as well.
ChromeWriter::~ChromeWriter() {
    m_lines.dropLine();
    if (m_lines.flush()) {
        m_thread.open[m_output.slot()].fetch_add(m_opened, std::memory_order_relaxed);
    } else {
        m_output.failed(m_lines.error());
        m_thread.forgetFrames();
    }
}

void ChromeWriter::write(const HvdTraceEvent &event, std::uintptr_t stack) {
    moveToFile();
    switch (event.kind) {
    case HvdTraceEvent::Enter:
        return enter(event, stack);
    case HvdTraceEvent::Leave:
        if (PendingText *text = m_thread.pendingOf(event.record))
            putText(*text);
        return popTo(m_thread.framesBelow(event.record, stack));
    case HvdTraceEvent::Text:
    case HvdTraceEvent::Dump:
        return addText(event);
    }
}

void ChromeWriter::endAll() noexcept {
    for (PendingText &text : m_thread.pending)
        if (text.record)
            putText(text);
    if (m_thread.fileSerial == m_output.serial())
        popTo(0);
    m_thread.forgetFrames();
}

// What is open in a former file is ended there, and is begun here once more.
void ChromeWriter::moveToFile() {
    if (m_thread.fileSerial == m_output.serial())
        return;
    m_thread.fileSerial = m_output.serial();
    for (std::size_t frame = 0; frame < m_thread.frames.size(); ++frame)
        putBegin(frame);
}

void ChromeWriter::enter(const HvdTraceEvent &event, std::uintptr_t stack) {
    while (m_thread.innermostIsGone(event.record, stack))
        popTo(m_thread.frames.size() - 1);
    m_thread.push(event.record, event.line, stack, nameOf(*event.record));
    putBegin(m_thread.frames.size() - 1);
}

// The pieces of a text come with "%s", and then with formats that begin with a plus sign, maybe behind a
// blank; what is traced between two pieces has other records.
void ChromeWriter::addText(const HvdTraceEvent &event) {
    const std::string_view format = event.format;
    const std::size_t mark = std::min(format.find("%s"), format.size());
    const bool continues = format.substr(0, mark).find('+') != std::string_view::npos;
    PendingText *text = m_thread.pendingOf(event.record);
    if (text && !continues) {
        putText(*text);
        text = nullptr;
    }
    if (!text)
        text = &beginText(event);
    const std::string_view piece = event.text;
    text->bytes += piece.substr(std::min(mark, piece.size()), textLimit - text->bytes.size());
    if (event.kind == HvdTraceEvent::Dump)
        putText(*text, &event);
}

PendingText &ChromeWriter::beginText(const HvdTraceEvent &event) {
    PendingText &text = m_thread.pending[m_thread.nextPending];
    if (text.record)
        putText(text);
    m_thread.nextPending = (m_thread.nextPending + 1) % TracedThread::pendingCount;
    text.function = nameOf(*event.record);
    text.unit = unitOf(*event.record);
    text.bytes.clear();
    text.line = event.line;
    text.time = now();
    text.record = event.record;
    return text;
}

void ChromeWriter::putBegin(std::size_t frame) {
    m_lines.put(",\n");
    putEventStart(m_lines, "B", outputProcess(), threadId(), now());
    m_lines.put(",\"args\":{\"line\":");
    m_lines.putNumber(m_thread.frames[frame].line);
    m_lines.put('}');
    putField(m_lines, "name", m_thread.nameOf(frame));
    m_lines.put('}');
    m_lines.endLine();
    ++m_opened;
}

void ChromeWriter::popTo(std::size_t count) noexcept {
    while (m_thread.frames.size() > count) {
        m_thread.pop();
        putEnd(m_lines, outputProcess(), threadId());
        --m_opened;
    }
}

void ChromeWriter::putText(PendingText &text, const HvdTraceEvent *dump) noexcept {
    m_lines.put(",\n");
    putEventStart(m_lines, "i", outputProcess(), threadId(), text.time);
    m_lines.put(",\"s\":\"t\",\"args\":{\"line\":");
    m_lines.putNumber(text.line);
    putField(m_lines, "function", text.function);
    if (dump)
        putMemory(m_lines, dump->address, dump->size);
    m_lines.put('}');
    putField(m_lines, "cat", text.unit);
    putField(m_lines, "name", text.bytes);
    m_lines.put('}');
    m_lines.endLine();
    text.record = nullptr;
}

constinit std::atomic<bool> s_ending{false};

// A thread never waits for its own state: only the end of the process takes it away, for good.
bool takeOver(TracedThread &thread) { return !thread.busy.exchange(true, std::memory_order_acquire); }

// Waits for the event that a running thread is in.
bool takeOverAtEnd(TracedThread &thread) {
    const timespec moment{0, 1'000'000};
    for (int moments = 0; moments < 1000 && thread.id.load(std::memory_order_relaxed) != 0; ++moments) {
        if (takeOver(thread))
            return true;
        nanosleep(&moment, nullptr);
    }
    return false;
}

void endThread(TracedThread &thread) {
    const Quiet quiet;
    const Output output(quiet);
    if (!takeOver(thread))
        return;
    if (output)
        ChromeWriter(thread, output, quiet).endAll();
    thread.forgetFrames();
    thread.busy.store(false, std::memory_order_release);
}

// Runs after all destructors that may still trace: those of the libraries that use this one come first.
[[gnu::destructor]] void endProcess() {
    const KeepErrno keep;
    if (outputProcess() != getpid() || outputIsClosed() || config()->format != Format::Chrome)
        return;
    s_ending.store(true, std::memory_order_relaxed);
    const Quiet quiet;
    if (const Output output(quiet); output)
        for (TracedThread *thread = firstThread(); thread; thread = thread->next)
            if (takeOverAtEnd(*thread))
                ChromeWriter(*thread, output, quiet).endAll();
    closeOutput(quiet);
}

void childBegins() {
    threadsForked();
    outputForked();
}

[[gnu::constructor]] void watchForks() { pthread_atfork(nullptr, nullptr, childBegins); }

} // namespace

void writeChrome(const HvdTraceEvent &event, std::uintptr_t stack, const Quiet &quiet) noexcept {
    const Output output(quiet);
    if (!output)
        return;
    TracedThread *thread = s_ending.load(std::memory_order_relaxed) ? nullptr : currentThread();
    if (!thread || !takeOver(*thread))
        return;
    try {
        ChromeWriter(*thread, output, quiet).write(event, stack);
    } catch (const std::bad_alloc &) { // the event is lost, and nobody is disturbed
    }
    thread->busy.store(false, std::memory_order_release);
}

bool prepareChrome() noexcept { return prepareThreads(endThread); }

void putChromeHead(Lines &lines, bool continued, pid_t process) noexcept {
    lines.put(continued ? ",\n" : chromeHead);
    putEventStart(lines, "M", process, process, now());
    putField(lines, "name", "process_name");
    lines.put(",\"args\":{\"name\":\"");
    putJson(lines, program_invocation_short_name, fieldReserve);
    lines.put("\"}}");
    lines.endLine();
}

void putChromeTail(Lines &lines, unsigned slot, pid_t process) noexcept {
    for (TracedThread *thread = firstThread(); thread; thread = thread->next) {
        std::uint32_t open = thread->open[slot].exchange(0, std::memory_order_relaxed);
        for (; open > 0; --open)
            putEnd(lines, process, thread->id.load(std::memory_order_relaxed));
    }
    lines.put(chromeTail);
    lines.endLine();
}

} // namespace hvd
